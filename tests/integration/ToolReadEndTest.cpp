// The tool's reads that end before the SEL's end, and its saved states. A BMC of the tests' own
// (the small BMC's in-memory repositories behind the tests' RMCP+ responder, through the UDP
// forwarder) answers one Get SEL Entry with a refusal, cut short, empty, or goes silent from it:
// list, raw and show say the read was incomplete in every format, and exit 3. A reader that stops
// reading and a kill -9 part way through a long output lose no event for the next run; two
// processes on one state are refused.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "CraftedBmc.h"
#include "IPMIAuxiliaryLog.h"
#include "Loopback.h"
#include "LossyLink.h"
#include "ServerProcess.h"
#include "SmallBmc.h"
#include "ToolRun.h"

namespace {

using bmcsim::CommandAnswer;
using bmcsim::ToolRun;
using Bytes = std::vector<unsigned char>;

constexpr unsigned char kStorage = 0x0A;
constexpr unsigned char kGetSelEntry = 0x43;

enum class Fault { None, Refused, Short, Empty, Silent };

// The small BMC's repositories (or others), answered through a crafted BMC behind the forwarder;
// the `at`-th Get SEL Entry since faultAt meets `fault`.
class FaultyBmc {
public:
    explicit FaultyBmc(const std::function<void(sim::SimulatedBmc&)>& stock = sim::stockSmallBmc) {
        stock(memory_);
        memory_.setAuxLogEnterprise(Tolmar::kAuxLogEnterpriseNumber);
        crafted_ = std::make_unique<bmcsim::CraftedBmc>(
            account, [this](unsigned char netFn, unsigned char command, const Bytes& data) {
                return answer(netFn, command, data);
            });
        // Silent: every answer from the faulty one on is dropped.
        link_ = std::make_unique<bmcsim::LossyLink>(
            crafted_->port(),
            bmcsim::LinkFaults{0.0, std::chrono::microseconds(0),
                               [this](const Bytes&) -> std::optional<std::chrono::microseconds> {
                                   if (silent_) return std::nullopt;
                                   return std::chrono::microseconds(0);
                               }});
    }
    ~FaultyBmc() {
        link_.reset();
        crafted_.reset();
    }

    void faultAt(unsigned at, Fault fault, unsigned char code = 0) {
        std::lock_guard<std::mutex> lock(mutex_);
        at_ = at;
        fault_ = fault;
        code_ = code;
        count_ = 0;
        silent_ = false;
    }
    std::string host() const { return "127.0.0.1:" + std::to_string(link_->port()); }

    bmcsim::CraftedBehaviour account;

private:
    CommandAnswer answer(unsigned char netFn, unsigned char command, const Bytes& data) {
        std::lock_guard<std::mutex> lock(mutex_);
        sim::BmcResponse response = memory_.handle(netFn, command, data);
        CommandAnswer answer{response.completionCode, std::move(response.data)};
        if (netFn != kStorage || command != kGetSelEntry || fault_ == Fault::None ||
            ++count_ != at_)
            return answer;
        switch (fault_) {
            case Fault::Refused:
                return {code_, {}};
            case Fault::Short:
                answer.data.resize(std::min<std::size_t>(answer.data.size(), 10));
                return answer;
            case Fault::Empty:
                return {0x00, {}};
            case Fault::Silent:
                silent_ = true;
                return answer;
            case Fault::None:
                break;
        }
        return answer;
    }

    sim::SimulatedBmc memory_;
    std::mutex mutex_;
    unsigned at_ = 0;
    unsigned count_ = 0;
    Fault fault_ = Fault::None;
    unsigned char code_ = 0;
    std::atomic<bool> silent_{false};
    std::unique_ptr<bmcsim::CraftedBmc> crafted_;
    std::unique_ptr<bmcsim::LossyLink> link_;
};

// Replaces every `from` in `text` with `to`.
std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at))
        text.replace(at, from.size(), to), at += to.size();
    return text;
}

// Each whole line of `text`, with its "\n".
std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t start = 0, end; (end = text.find('\n', start)) != std::string::npos;
         start = end + 1)
        lines.push_back(text.substr(start, end + 1 - start));
    return lines;
}

// The rows of an output marked as those of an incomplete read: JSON's key; CSV's column, the last
// of raw entries, followed by the record's columns in events.
std::string markedIncomplete(const std::string& text) {
    return replaced(replaced(replaced(text, "\"complete\":true", "\"complete\":false"), ",true\r\n",
                             ",false\r\n"),
                    ",true,", ",false,");
}

// JSON lines as the JSON format's array.
std::string asJsonArray(const std::vector<std::string>& lines) {
    if (lines.empty()) return "[]\n";
    std::string array = "[";
    for (std::size_t i = 0; i < lines.size(); ++i)
        array += (i ? ",\n " : "\n ") + lines[i].substr(0, lines[i].size() - 1);
    return array + "\n]\n";
}

const char* const kFormats[] = {"table", "json", "jsonl", "csv"};
const char* const kCsvHeader =
    "host,recordId,timeStamp,severity,message,source,auxLog,complete,recordType,time,"
    "preInitSeconds,generatorId,sensorType,sensorTypeName,sensorNumber,sensorName,eventType,"
    "direction,offset,eventData,reading,readingUnits,threshold,thresholdUnits,manufacturerId,"
    "manufacturer,oemData\r\n";
const std::string kMissing = "; severities, sensor names and auxiliary details may be missing";

class ToolReadEndTest : public ::testing::Test {
protected:
    ToolRun tool(const FaultyBmc& bmc, const std::string& arguments) const {
        return bmcsim::runShell(command(bmc, arguments), scratch);
    }
    std::string command(const FaultyBmc& bmc, const std::string& arguments) const {
        return "env IPMI_PASSWORD='" + bmc.account.password +
               "' TOLMAR_IPMI_SESSION_TIMEOUT_MS=1000 TOLMAR_IPMI_RETRANSMISSION_TIMEOUT_MS=200 "
               "TZ=UTC " TOOL_PATH " -H " +
               bmc.host() + " -U " + bmc.account.user + " -E " + arguments;
    }

    // What a complete read prints of the first two records, in `format`: list and show 2 as the
    // complete read filtered, raw its first two rows, each marked incomplete.
    std::string firstTwo(FaultyBmc& bmc, const std::string& format, const std::string& what) {
        bmc.faultAt(0, Fault::None);
        if (what != "raw") {
            const std::string filtered = what == "list" ? "--id 1-2 list" : what;
            const ToolRun whole = tool(bmc, "--format " + format + " " + filtered);
            EXPECT_EQ(whole.status, 0) << whole.err;
            return markedIncomplete(whole.out);
        }
        const std::vector<std::string> rows = linesOf(
            tool(bmc, "--format " + std::string(format == "json" ? "jsonl" : format) + " raw").out);
        const std::size_t header = format == "csv" ? 1 : 0;
        const std::vector<std::string> kept(rows.begin(), rows.begin() + header + 2);
        if (format == "json") return asJsonArray(linesOf(markedIncomplete(kept[0] + kept[1])));
        std::string text;
        for (const std::string& row : kept) text += row;
        return markedIncomplete(text);
    }

    // The third Get SEL Entry meets `fault`: every command and format prints the two records read,
    // marked incomplete, says `reason` and exits 3.
    void expectIncompleteAfterTwo(Fault fault, unsigned char code, const std::string& reason) {
        FaultyBmc bmc;
        for (const char* format : kFormats) {
            for (const std::string what : {"list", "raw", "show 2"}) {
                const std::string expected = firstTwo(bmc, format, what);
                bmc.faultAt(3, fault, code);
                const ToolRun run = tool(bmc, std::string("--format ") + format + " " + what);
                EXPECT_EQ(run.status, 3) << format << " " << what;
                EXPECT_EQ(run.out, expected) << format << " " << what;
                EXPECT_EQ(run.err, "ipmi-event-log: " + bmc.host() + ": incomplete: " + reason +
                                       (what == "raw" ? "" : kMissing) + "\n")
                    << format << " " << what;
            }
        }
    }

    bmcsim::ScratchDirectory scratch;
};

TEST_F(ToolReadEndTest, ARefusalPartWayIsAnIncompleteReadInEveryFormat) {
    expectIncompleteAfterTwo(Fault::Refused, 0xD2,
                             "the BMC answered Get SEL Entry with D2h (BMC initialization in "
                             "progress) after 2 SEL entries");
    expectIncompleteAfterTwo(Fault::Refused, 0xC0,
                             "the BMC answered Get SEL Entry with C0h (node busy) after 2 SEL "
                             "entries");
    expectIncompleteAfterTwo(Fault::Refused, 0xFF,
                             "the BMC answered Get SEL Entry with FFh (unspecified error) after 2 "
                             "SEL entries");
}

TEST_F(ToolReadEndTest, AnEraseBegunPartWayIsAnIncompleteRead) {
    expectIncompleteAfterTwo(Fault::Refused, 0x81,
                             "the BMC answered Get SEL Entry with 81h (command-specific) after 2 "
                             "SEL entries");
}

TEST_F(ToolReadEndTest, AnAnswerCutShortOrEmptyPartWayIsAnIncompleteRead) {
    expectIncompleteAfterTwo(Fault::Short, 0,
                             "the BMC answered Get SEL Entry short after 2 SEL "
                             "entries");
    expectIncompleteAfterTwo(Fault::Empty, 0,
                             "the BMC answered Get SEL Entry short after 2 SEL "
                             "entries");
}

TEST_F(ToolReadEndTest, ABmcSilentPartWayIsAnIncompleteRead) {
    FaultyBmc bmc;
    // Raw records are as they were read; events were decoded without what the BMC no longer said.
    for (const char* format : kFormats) {
        const std::string expected = firstTwo(bmc, format, "raw");
        bmc.faultAt(3, Fault::Silent);
        const ToolRun run = tool(bmc, std::string("--format ") + format + " raw");
        EXPECT_EQ(run.status, 3) << format;
        EXPECT_EQ(run.out, expected) << format;
        EXPECT_EQ(run.err, "ipmi-event-log: " + bmc.host() +
                               ": incomplete: BMC stopped answering after 2 SEL entries\n")
            << format;
    }
    for (const char* format : kFormats) {
        bmc.faultAt(3, Fault::Silent);
        const ToolRun run = tool(bmc, std::string("--format ") + format + " list");
        EXPECT_EQ(run.status, 3) << format;
        EXPECT_EQ(run.err, "ipmi-event-log: " + bmc.host() +
                               ": incomplete: BMC stopped answering after 2 SEL entries" +
                               kMissing + "\n")
            << format;
        const std::vector<std::string> rows = linesOf(run.out);
        if (std::string(format) == "jsonl") {
            ASSERT_EQ(rows.size(), 2u);
            EXPECT_EQ(rows[0].rfind("{\"host\":\"" + bmc.host() + "\",\"recordId\":1,", 0), 0u);
            EXPECT_EQ(rows[1].rfind("{\"host\":\"" + bmc.host() + "\",\"recordId\":2,", 0), 0u);
            EXPECT_EQ(bmcsim::countOf(run.out, ",\"complete\":false,"), 2u);
        } else if (std::string(format) == "csv") {
            ASSERT_EQ(rows.size(), 3u);
            EXPECT_EQ(bmcsim::countOf(run.out, ",false,2,"), 2u);  // complete, then the record type
        } else if (std::string(format) == "json") {
            ASSERT_EQ(rows.size(), 4u);
            EXPECT_EQ(bmcsim::countOf(run.out, ",\"complete\":false,"), 2u);
        } else {
            ASSERT_EQ(rows.size(), 3u);
            EXPECT_EQ(rows[1].rfind("0x0001  ", 0), 0u);
            EXPECT_EQ(rows[2].rfind("0x0002  ", 0), 0u);
        }
    }
}

TEST_F(ToolReadEndTest, AReadThatEndsBeforeAnyRecordIsMarkedIncompleteForPrograms) {
    FaultyBmc bmc;
    const std::string host = bmc.host();
    const std::string marker = "{\"host\":\"" + host + "\",\"complete\":false}";
    // The host and "false" under complete; every other column empty.
    const auto csvMarker = [&host](std::size_t columns, std::size_t complete) {
        std::string row = host;
        for (std::size_t c = 1; c < columns; ++c) row += c == complete ? ",false" : ",";
        return row + "\r\n";
    };
    std::map<std::string, std::string> expected = {
        {"json", "[\n " + marker + "\n]\n"},
        {"jsonl", marker + "\n"},
    };
    for (const std::string what : {"list", "raw"}) {
        // The table shows no row for it: standard error says it.
        expected["table"] = what == "list" ? "ID  TIME  SEVERITY  SOURCE  MESSAGE\n" : "";
        for (const char* format : kFormats) {
            bmc.faultAt(1, Fault::Refused, 0xC0);
            const ToolRun run = tool(bmc, std::string("--format ") + format + " " + what);
            EXPECT_EQ(run.status, 3) << format << " " << what;
            if (std::string(format) != "csv") {
                EXPECT_EQ(run.out, expected.at(format)) << format << " " << what;
                continue;
            }
            const std::string header =
                what == "raw" ? "host,recordId,bytes,complete\r\n" : std::string(kCsvHeader);
            const std::size_t columns = bmcsim::countOf(header, ",") + 1;
            EXPECT_EQ(run.out, header + csvMarker(columns, what == "raw" ? 3 : 7)) << what;
        }
    }
}

TEST_F(ToolReadEndTest, AnEmptySelOrAnEraseAtTheFirstRecordIsACompleteReadOfNothing) {
    FaultyBmc bmc;
    const std::pair<std::string, std::string> expected[] = {
        {"table", "ID  TIME  SEVERITY  SOURCE  MESSAGE\n"},
        {"json", "[]\n"},
        {"jsonl", ""},
        {"csv", kCsvHeader}};
    const std::pair<std::string, std::string> expectedRaw[] = {
        {"table", ""},
        {"json", "[]\n"},
        {"jsonl", ""},
        {"csv", "host,recordId,bytes,complete\r\n"}};
    for (const unsigned char code : {0xCB, 0x81}) {
        for (const auto& [format, out] : expected) {
            bmc.faultAt(1, Fault::Refused, code);
            const ToolRun run = tool(bmc, "--format " + format + " list");
            EXPECT_EQ(run.status, 0) << format << " " << int(code);
            EXPECT_EQ(run.out, out) << format << " " << int(code);
            EXPECT_EQ(run.err, "") << format << " " << int(code);
        }
        for (const auto& [format, out] : expectedRaw) {
            bmc.faultAt(1, Fault::Refused, code);
            const ToolRun run = tool(bmc, "--format " + format + " raw");
            EXPECT_EQ(run.status, 0) << format << " " << int(code);
            EXPECT_EQ(run.out, out) << format << " " << int(code);
            EXPECT_EQ(run.err, "") << format << " " << int(code);
        }
        bmc.faultAt(1, Fault::Refused, code);
        const ToolRun absent = tool(bmc, "show 2");
        EXPECT_EQ(absent.status, 15);
        EXPECT_EQ(absent.out, "");
        EXPECT_EQ(absent.err,
                  "ipmi-event-log: " + bmc.host() + " has no SEL record with that ID\n");
    }
}

// The records of a few thousand events.
constexpr unsigned kManyRecords = 3000;

void stockManyRecords(sim::SimulatedBmc& bmc) {
    sim::stockSmallBmc(bmc);
    for (unsigned id = 4; id <= kManyRecords; ++id) {
        bmc.storeSelRecord(sim::selRecord(
            id, {0x02, static_cast<unsigned char>(id), static_cast<unsigned char>(id >> 8), 0x00,
                 0x55, 0x20, 0x00, 0x04, 0x01, 0x30, 0x01, 0x59, 0x5A, 0x50}));
    }
}

// The record IDs of JSON lines.
std::set<unsigned> recordIdsOf(const std::string& text) {
    std::set<unsigned> ids;
    static const std::regex id("\"recordId\":([0-9]+),");
    for (const std::string& line : linesOf(text)) {
        std::smatch match;
        if (std::regex_search(line, match, id)) ids.insert(std::stoul(match[1]));
    }
    return ids;
}

// Starts `commandLine` with its standard output into a pipe; its PID, and the pipe's read end.
pid_t spawn(const std::string& commandLine, int& output) {
    const std::string script = "exec " + commandLine;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return -1;
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execl("/bin/sh", "sh", "-c", script.c_str(), static_cast<char*>(nullptr));
        _exit(127);
    }
    close(ends[1]);
    output = ends[0];
    return pid;
}

// Reads from `fd` until `enough` says so (or its end); returns what was read.
std::string readUntil(int fd, const std::function<bool(const std::string&)>& enough) {
    std::string text;
    char buffer[4096];
    while (!enough(text)) {
        const ssize_t n = read(fd, buffer, sizeof buffer);
        if (n <= 0) break;
        text.append(buffer, static_cast<std::size_t>(n));
    }
    return text;
}

TEST_F(ToolReadEndTest, AKillPartWayThroughTheOutputLosesNoEventForTheNextRun) {
    FaultyBmc bmc(stockManyRecords);
    std::set<unsigned> all;
    for (unsigned id = 1; id <= kManyRecords; ++id) all.insert(id);
    const std::string states = scratch.file("states");
    ASSERT_EQ(mkdir(states.c_str(), 0755), 0);
    const std::string commands[] = {
        "--state " + scratch.file("bmc.state") + " --format jsonl list",
        "--state-dir " + states + " --polls 1 --full-warnings off --format jsonl follow"};
    for (const std::string& arguments : commands) {
        // A reader that takes one line and reads no more: the output, far larger than a pipe
        // holds, stops part way; the tool is killed there.
        int output = -1;
        const pid_t pid = spawn(command(bmc, arguments) + " 2>/dev/null", output);
        ASSERT_GT(pid, 0);
        std::string first = readUntil(
            output, [](const std::string& text) { return text.find('\n') != std::string::npos; });
        ASSERT_EQ(kill(pid, SIGKILL), 0);
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFSIGNALED(status)) << arguments;
        first += readUntil(output, [](const std::string&) { return false; });
        close(output);
        const std::set<unsigned> shown = recordIdsOf(first);
        EXPECT_GT(shown.size(), 0u) << arguments;
        EXPECT_LT(shown.size(), kManyRecords) << arguments;

        const ToolRun next = tool(bmc, arguments);
        EXPECT_EQ(next.status, 0) << arguments << ": " << next.err;
        EXPECT_EQ(next.err, "") << arguments;
        std::set<unsigned> both = recordIdsOf(next.out);
        both.insert(shown.begin(), shown.end());
        EXPECT_EQ(both, all) << arguments;
        // The run that ended printed them all: the state now says so, and nothing is new.
        const ToolRun idle = tool(bmc, arguments);
        EXPECT_EQ(idle.status, 0) << arguments;
        EXPECT_EQ(idle.out, "") << arguments;
    }
}

TEST_F(ToolReadEndTest, EventsWaitingForTheLogServerAreNotTakenAsRead) {
    FaultyBmc bmc;
    const std::size_t events = bmcsim::countOf(tool(bmc, "--format jsonl list").out, "\n");
    ASSERT_GT(events, 0u);
    const std::string states = scratch.file("states");
    ASSERT_EQ(mkdir(states.c_str(), 0755), 0);
    const std::string follow = "--state-dir " + states + " --polls 1 --full-warnings off ";
    // No log server: the events wait in memory and are never sent.
    const int closed = bmcsim::bindLoopback(SOCK_STREAM, 0);
    ASSERT_GE(closed, 0);
    const unsigned short nowhere = bmcsim::boundPort(closed);
    const ToolRun unsent =
        tool(bmc, follow + "--syslog tcp://127.0.0.1:" + std::to_string(nowhere) + " follow");
    close(closed);
    EXPECT_NE(unsent.err.find(std::to_string(events) + " events not sent"), std::string::npos)
        << unsent.err;
    // A log server now: the next run sends every event, none having been taken as read.
    const int server = bmcsim::bindLoopback(SOCK_STREAM, 0);
    ASSERT_EQ(listen(server, 1), 0);
    fcntl(server, F_SETFL, O_NONBLOCK);
    const ToolRun sent =
        tool(bmc, follow + "--syslog tcp://127.0.0.1:" + std::to_string(bmcsim::boundPort(server)) +
                      " follow");
    EXPECT_EQ(sent.status, 0) << sent.err;
    // The run is over: what it sent, if anything, waits in the server's backlog.
    const int connection = accept(server, nullptr, nullptr);
    close(server);
    ASSERT_GE(connection, 0) << "nothing was sent";
    const std::string received = readUntil(connection, [](const std::string&) { return false; });
    close(connection);
    EXPECT_EQ(bmcsim::countOf(received, "recordId=\""), events) << received;
}

TEST_F(ToolReadEndTest, TwoProcessesOnOneStateAreRefused) {
    FaultyBmc bmc;
    // A state file held by another process (this one, which says its PID in the lock file).
    const std::string state = scratch.file("bmc.state");
    const int held = open((state + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    ASSERT_GE(held, 0);
    ASSERT_EQ(flock(held, LOCK_EX | LOCK_NB), 0);
    const std::string pid = std::to_string(getpid());
    ASSERT_EQ(write(held, (pid + "\n").data(), pid.size() + 1),
              static_cast<ssize_t>(pid.size() + 1));
    const ToolRun refused = tool(bmc, "--state " + state + " list");
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err, "ipmi-event-log: " + state +
                               " is in use by another ipmi-event-log (process " + pid +
                               "): one process at a time may keep a state\n");
    close(held);
    const ToolRun taken = tool(bmc, "--state " + state + " --format jsonl list");
    EXPECT_EQ(taken.status, 0) << taken.err;
    EXPECT_EQ(linesOf(taken.out).size(), 3u);

    // A state directory followed by one process: neither follow nor serve may take it too, until
    // that process ends.
    const std::string states = scratch.file("states");
    ASSERT_EQ(mkdir(states.c_str(), 0755), 0);
    int output = -1;
    const pid_t follower =
        spawn(command(bmc, "--state-dir " + states + " --interval 3600 --format jsonl follow") +
                  " 2>/dev/null",
              output);
    ASSERT_GT(follower, 0);
    // Its first poll printed, so it holds the directory.
    const std::string printed =
        readUntil(output, [](const std::string& text) { return linesOf(text).size() >= 3; });
    EXPECT_EQ(linesOf(printed).size(), 3u);
    const std::string inUse =
        "ipmi-event-log: " + states + " is in use by another ipmi-event-log (process " +
        std::to_string(follower) + "): one process at a time may keep a state\n";
    const ToolRun second = tool(bmc, "--state-dir " + states + " --polls 1 follow");
    EXPECT_EQ(second.status, 1);
    EXPECT_EQ(second.out, "");
    EXPECT_EQ(second.err, inUse);
    const ToolRun server = tool(bmc, "--state-dir " + states + " --listen 127.0.0.1:0 serve");
    EXPECT_EQ(server.status, 1);
    EXPECT_EQ(server.err, inUse);
    ASSERT_EQ(kill(follower, SIGTERM), 0);
    int status = 0;
    ASSERT_EQ(waitpid(follower, &status, 0), follower);
    EXPECT_TRUE(WIFEXITED(status));
    close(output);
    const ToolRun after = tool(bmc, "--state-dir " + states + " --polls 1 --format jsonl follow");
    EXPECT_EQ(after.status, 0) << after.err;
    EXPECT_EQ(after.out, "");  // the first follower saved its state as it went
    EXPECT_EQ(after.err, "");
}

}  // namespace
