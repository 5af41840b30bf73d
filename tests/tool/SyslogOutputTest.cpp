// follow's syslog messages, their frames and the server they go to, and the journal's priority
// prefixes, without a BMC.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <sstream>

#include "ScratchDirectory.h"
#include "fleet/IpmiEventSource.h"
#include "follow/SyslogMessage.h"
#include "follow/SyslogSender.h"
#include "output/Journal.h"
#include "output/Output.h"

namespace {

using tool::EventRow;
using tool::Severity;

// What the memory error's record means in IPMI v2.0.
Tolmar::DecodedSelRecord memoryErrorRecord() {
    Tolmar::DecodedSelRecord r;
    r.recordId = 0x16;
    r.recordType = 0x02;  // system event
    r.kind = Tolmar::DecodedSelRecord::Kind::SystemEvent;
    r.time = Tolmar::DecodedSelRecord::Time::Absolute;
    r.timestamp = 0x5501B722;  // 2015-03-12 15:56:18 UTC
    r.generatorId = 0x0020;    // the BMC
    r.sensorType = 0x0C;       // memory
    r.sensorTypeName = "Memory";
    r.sensorNumber = 0x60;
    r.sensorName = "DIMM Status";
    r.eventType = 0x6F;  // sensor-specific
    r.offset = 0x01;     // uncorrectable ECC
    r.eventData = {0xA1, 0x00, 0x01};
    return r;
}

// The memory error as the follower gives it.
Tolmar::FollowedEvent memoryErrorRead() {
    Tolmar::FollowedEvent followed;
    followed.record = memoryErrorRecord();
    followed.event.recordId = 0x16;
    followed.event.timeStamp = "03/12/2015 15:56:18";
    followed.event.message =
        "Memory Device 1 (Memory - DIMM Status): Assertion: Uncorrectable ECC  ";
    followed.event.severity = 2;
    followed.event.source = "BMC. Channel 0. ";
    followed.event.auxLog = "No Extended Data";
    return followed;
}

// The row of 10.1.2.3:623 the IPMI source makes of `followed` in `rendering`.
EventRow rowOf(const Tolmar::FollowedEvent& followed,
               tool::Rendering rendering = tool::Rendering::Ipmi) {
    EventRow row;
    row.host = "10.1.2.3:623";
    row.event = tool::ipmiEvent(followed, rendering);
    return row;
}

EventRow memoryError() { return rowOf(memoryErrorRead()); }

// 2023-11-14 22:13:20.123 UTC.
std::chrono::system_clock::time_point readAt() {
    return std::chrono::system_clock::from_time_t(1700000000) + std::chrono::milliseconds(123);
}

tool::SyslogOrigin origin(int facility) { return {facility, "monitor.example", "4242"}; }

// The message of `row`, read at readAt().
std::string messageOf(const EventRow& row, const tool::SyslogOrigin& from) {
    return tool::syslogMessage(row, tool::ipmiEventColumns(), from, readAt());
}

TEST(SyslogMessage, HasEveryPartOfTheEventInItsPlace) {
    EXPECT_EQ(messageOf(memoryError(), origin(16)),
              "<130>1 2023-11-14T22:13:20.123Z monitor.example ipmi-event-log 4242 sel "
              "[ipmi@32473 host=\"10.1.2.3:623\" recordId=\"22\" severity=\"critical\" "
              "eventTime=\"2015-03-12T15:56:18Z\" source=\"BMC. Channel 0. \" recordType=\"2\" "
              "sensorType=\"12\" sensorTypeName=\"Memory\" sensorNumber=\"96\" "
              "sensorName=\"DIMM Status\"] "
              "Memory Device 1 (Memory - DIMM Status): Assertion: Uncorrectable ECC  ");
}

TEST(SyslogMessage, TheEventsTimeIsTheRecordsWhateverItsText) {
    Tolmar::FollowedEvent followed = memoryErrorRead();
    // The IPMI rendering's text, or a local time: the record's own stamp is what eventTime says.
    followed.event.timeStamp = "2015-03-12 16:56:18 CET";
    EXPECT_NE(messageOf(rowOf(followed, tool::Rendering::Described), origin(3))
                  .find(" eventTime=\"2015-03-12T15:56:18Z\" "),
              std::string::npos);
    followed.record.time = Tolmar::DecodedSelRecord::Time::PreInit;
    followed.record.timestamp = 12;
    EXPECT_EQ(messageOf(rowOf(followed), origin(3)).find("eventTime"), std::string::npos);
}

TEST(SyslogMessage, ASensorWithoutAnSdrHasNoName) {
    Tolmar::FollowedEvent followed = memoryErrorRead();
    followed.record.sensorName.reset();
    EXPECT_NE(messageOf(rowOf(followed), origin(3))
                  .find(" sensorTypeName=\"Memory\" sensorNumber=\"96\"] "),
              std::string::npos);
}

TEST(SyslogMessage, PriorityIsTheFacilityTimesEightPlusTheSeverity) {
    EventRow event = memoryError();
    const auto priority = [&](int facility, Severity severity) {
        event.event.severity = severity;
        const std::string message = messageOf(event, origin(facility));
        return message.substr(0, message.find(' '));
    };
    EXPECT_EQ(priority(3, Severity::Critical), "<26>1");
    EXPECT_EQ(priority(3, Severity::Warning), "<28>1");
    EXPECT_EQ(priority(3, Severity::Info), "<30>1");
    EXPECT_EQ(priority(0, Severity::Critical), "<2>1");
    EXPECT_EQ(priority(23, Severity::Info), "<190>1");
}

TEST(SyslogMessage, LeavesOutWhatTheEventLacksAndMarksAnIncompleteRead) {
    Tolmar::FollowedEvent followed = memoryErrorRead();
    // A non-timestamped OEM record (E0h): no time stamp, no sensor.
    followed.event.timeStamp = "Unspecified";
    followed.event.source.clear();
    followed.event.message = "tab\there";
    followed.record = Tolmar::DecodedSelRecord{};
    followed.record.recordType = 0xE0;
    followed.record.kind = Tolmar::DecodedSelRecord::Kind::NonTimestampedOem;
    EventRow event = rowOf(followed);
    event.complete = false;
    EXPECT_EQ(messageOf(event, {3, "", ""}),
              "<26>1 2023-11-14T22:13:20.123Z - ipmi-event-log - sel [ipmi@32473 "
              "host=\"10.1.2.3:623\" recordId=\"22\" severity=\"critical\" recordType=\"224\" "
              "complete=\"false\"] tab\\x09here");
}

TEST(SyslogMessage, EscapesQuotesBackslashesAndClosingBracketsInParameterValues) {
    EXPECT_EQ(tool::sdParamValue("a\"b\\c]d[e"), "a\\\"b\\\\c\\]d[e");
    Tolmar::FollowedEvent followed = memoryErrorRead();
    followed.event.source = "OEM \"x\" ]";
    followed.record.sensorName = "CPU\\1 [\"0\"]";
    const std::string message = messageOf(rowOf(followed), origin(3));
    EXPECT_NE(message.find(" source=\"OEM \\\"x\\\" \\]\" "), std::string::npos) << message;
    // A backslash is shown doubled, as the table shows it, and each of the two escaped.
    EXPECT_NE(message.find(" sensorName=\"CPU\\\\\\\\1 [\\\"0\\\"\\]\"] "), std::string::npos)
        << message;
}

TEST(SyslogMessage, HeaderFieldsHaveNoSpaces) {
    EXPECT_NE(messageOf(memoryError(), {3, "my host", "1"}).find(" my_host ipmi-event-log 1 sel "),
              std::string::npos);
}

TEST(SyslogMessage, TimestampIsUtcToTheMillisecond) {
    EXPECT_EQ(tool::syslogTimestamp(std::chrono::system_clock::from_time_t(0)),
              "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(tool::syslogTimestamp(readAt() + std::chrono::microseconds(999)),
              "2023-11-14T22:13:20.123Z");
}

TEST(SyslogMessage, AnOctetCountedFrameCountsBytes) {
    EXPECT_EQ(tool::octetCountedFrame("<30>1 - - - - - -"), "17 <30>1 - - - - - -");
    EXPECT_EQ(tool::octetCountedFrame(""), "0 ");
}

TEST(SyslogAddress, TakesUdpTcpAndUnixSockets) {
    const tool::SyslogAddress udp = tool::parseSyslogAddress("udp://logs.example:5140");
    EXPECT_EQ(udp.transport, tool::SyslogTransport::Udp);
    EXPECT_EQ(udp.host, "logs.example");
    EXPECT_EQ(udp.port, "5140");
    const tool::SyslogAddress tcp = tool::parseSyslogAddress("tcp://[::1]:601");
    EXPECT_EQ(tcp.transport, tool::SyslogTransport::Tcp);
    EXPECT_EQ(tcp.host, "::1");
    EXPECT_EQ(tcp.port, "601");
    EXPECT_EQ(tool::parseSyslogAddress("tcp://logs").port, "514");
    EXPECT_EQ(tool::parseSyslogAddress("udp://[::1]").port, "514");
    const tool::SyslogAddress local = tool::parseSyslogAddress("unix:/dev/log");
    EXPECT_EQ(local.transport, tool::SyslogTransport::Unix);
    EXPECT_EQ(local.path, "/dev/log");
    EXPECT_EQ(local.text, "unix:/dev/log");
    for (const char* refused : {"logs:514", "udp://", "udp://:514", "tcp://h:70000",
                                "tcp://h:", "udp://[::1", "udp://[::1]x", "unix:"})
        EXPECT_THROW(tool::parseSyslogAddress(refused), tool::SyslogSettingError) << refused;
}

TEST(SyslogAddress, FacilitiesByTheirUsualNames) {
    EXPECT_EQ(tool::parseSyslogFacility("kern"), 0);
    EXPECT_EQ(tool::parseSyslogFacility("daemon"), 3);
    EXPECT_EQ(tool::parseSyslogFacility("authpriv"), 10);
    EXPECT_EQ(tool::parseSyslogFacility("local0"), 16);
    EXPECT_EQ(tool::parseSyslogFacility("local7"), 23);
    EXPECT_THROW(tool::parseSyslogFacility("local8"), tool::SyslogSettingError);
    EXPECT_THROW(tool::parseSyslogFacility("DAEMON"), tool::SyslogSettingError);
}

TEST(PendingMessages, KeepsTheNewestUpToItsBoundAndCountsTheOthers) {
    tool::PendingMessages pending(3);
    for (const char* message : {"1", "2", "3", "4", "5"}) pending.add(message);
    EXPECT_EQ(pending.size(), 3u);
    EXPECT_EQ(pending.takeDropped(), 2u);
    EXPECT_EQ(pending.takeDropped(), 0u);
    std::string order;
    for (; !pending.empty(); pending.removeOldest()) order += pending.oldest();
    EXPECT_EQ(order, "345");
}

// A unix socket of `type` bound at `path`, listening when a stream.
int unixServer(int type, const std::string& path) {
    const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    if (type == SOCK_STREAM) {
        EXPECT_EQ(listen(fd, 1), 0);
    }
    return fd;
}

// What has come on `fd` so far, without waiting for more; each datagram followed by "|".
std::string received(int fd, bool datagrams) {
    std::string all;
    char buffer[4096];
    for (ssize_t n; (n = recv(fd, buffer, sizeof buffer, MSG_DONTWAIT)) > 0;)
        all.append(buffer, static_cast<std::size_t>(n)).append(datagrams ? "|" : "");
    return all;
}

TEST(SyslogSender, KeepsWhatAMissingSocketCannotTakeAndSendsItOnceThere) {
    const bmcsim::ScratchDirectory scratch;
    const std::string path = scratch.file("log");
    tool::SyslogSender sender(tool::parseSyslogAddress("unix:" + path), 2);
    EXPECT_EQ(sender.deliver({"a", "b"}),
              "ipmi-event-log: syslog: cannot send to unix:" + path +
                  ": No such file or directory; keeping the events (at most 2) and trying again at "
                  "each poll\n");
    EXPECT_EQ(sender.deliver({"c"}), "");
    const int server = unixServer(SOCK_DGRAM, path);
    EXPECT_EQ(sender.deliver({"d"}), "ipmi-event-log: syslog: unix:" + path +
                                         " reached again\nipmi-event-log: syslog: 1 events dropped "
                                         "while unix:" +
                                         path + " could not be reached\n");
    EXPECT_EQ(received(server, true), "b|c|d|");
    EXPECT_EQ(sender.finish(), "");
    close(server);
}

TEST(SyslogSender, FallsBackToAStreamSocketEndingEachMessageWithANul) {
    const bmcsim::ScratchDirectory scratch;
    const std::string path = scratch.file("log");
    const int server = unixServer(SOCK_STREAM, path);
    tool::SyslogSender sender(tool::parseSyslogAddress("unix:" + path));
    EXPECT_EQ(sender.deliver({"one", "two"}), "");
    const int connection = accept(server, nullptr, nullptr);
    ASSERT_GE(connection, 0);
    EXPECT_EQ(received(connection, false), std::string("one\0two\0", 8));
    close(connection);
    close(server);
}

TEST(SyslogSender, SaysAtTheEndHowManyWereNeverSent) {
    const bmcsim::ScratchDirectory scratch;
    const std::string address = "unix:" + scratch.file("absent");
    tool::SyslogSender sender(tool::parseSyslogAddress(address), 2);
    sender.deliver({"a", "b", "c"});
    EXPECT_EQ(sender.finish(), "ipmi-event-log: syslog: 1 events dropped while " + address +
                                   " could not be reached\nipmi-event-log: syslog: 2 events not "
                                   "sent: " +
                                   address + " could not be reached\n");
}

TEST(Journal, RecognisesTheStreamItsVariableNames) {
    const bmcsim::ScratchDirectory scratch;
    scratch.write("out", "");
    const int fd = open(scratch.file("out").c_str(), O_RDONLY | O_CLOEXEC);
    struct stat opened {};
    ASSERT_EQ(fstat(fd, &opened), 0);
    const std::string device = std::to_string(opened.st_dev);
    const std::string inode = std::to_string(opened.st_ino);
    EXPECT_TRUE(tool::isJournalStream((device + ":" + inode).c_str(), fd));
    EXPECT_FALSE(tool::isJournalStream((device + ":" + inode + "1").c_str(), fd));
    EXPECT_FALSE(tool::isJournalStream((device + "1:" + inode).c_str(), fd));
    EXPECT_FALSE(tool::isJournalStream((device + ":" + inode + "x").c_str(), fd));
    EXPECT_FALSE(tool::isJournalStream(("x:" + inode).c_str(), fd));
    EXPECT_FALSE(tool::isJournalStream(nullptr, fd));
    close(fd);
}

std::string journalOutput(tool::Format format) {
    EventRow warning = memoryError();
    warning.event.severity = Severity::Warning;
    EventRow info = memoryError();
    info.event.severity = Severity::Info;
    tool::Style style;
    style.format = format;
    style.columns = tool::ipmiEventColumns();
    style.journal = true;
    std::ostringstream out;
    tool::writeEvents(out, {memoryError(), warning, info}, style);
    return out.str();
}

// The first `length` characters of each line of `text`.
std::string lineStarts(const std::string& text, std::size_t length) {
    std::string starts;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) starts += line.substr(0, length) + ";";
    return starts;
}

TEST(Journal, EachLineBeginsWithItsEventsPriority) {
    EXPECT_EQ(lineStarts(journalOutput(tool::Format::Jsonl), 4), "<2>{;<4>{;<6>{;");
    EXPECT_EQ(lineStarts(journalOutput(tool::Format::Json), 5), "<6>[;<2> {;<4> {;<6> {;<6>];");
    EXPECT_EQ(lineStarts(journalOutput(tool::Format::Csv), 7), "<6>host;<2>10.1;<4>10.1;<6>10.1;");
    EXPECT_EQ(lineStarts(journalOutput(tool::Format::Table), 5), "<6>ID;<2>0x;<4>0x;<6>0x;");
}

}  // namespace
