// follow --syslog against Debian's rsyslogd, started by each test as an ordinary user with a
// configuration of its own; and follow's priority prefixes when its output is the journal.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <climits>
#include <map>
#include <memory>
#include <sstream>
#include <thread>

#include "BmcSimulator.h"
#include "Loopback.h"
#include "SampleServer.h"
#include "ServerProcess.h"
#include "ToolRun.h"

namespace {

using bmcsim::ToolRun;

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// rsyslogd with UDP and TCP inputs on free loopback ports, writing each message it receives to a
// file as PRI|HOSTNAME|APP-NAME|PROCID|MSGID|STRUCTURED-DATA|MSG. Stopped by its PID when the
// object goes.
class LogServer {
public:
    explicit LogServer(const bmcsim::ScratchDirectory& scratch)
        : scratch_(scratch),
          udpPort_(bmcsim::freeLoopbackPort(SOCK_DGRAM)),
          tcpPort_(bmcsim::freeLoopbackPort(SOCK_STREAM)) {
        scratch_.write("rsyslog.conf", configuration());
    }

    std::string udpAddress() const { return "udp://127.0.0.1:" + std::to_string(udpPort_); }
    std::string tcpAddress() const { return "tcp://127.0.0.1:" + std::to_string(tcpPort_); }

    // Returns once both inputs take messages. The ports are those the tool is told: while
    // another program holds one of them (a client's port, for a while), rsyslogd is started again
    // on them. Throws std::runtime_error when it does not listen on both within a minute.
    void start() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        const auto udpListening = [&] {
            return bmcsim::holdsLoopbackPort(server_->pid(), SOCK_DGRAM, udpPort_);
        };
        for (;;) {
            server_.reset();
            // -n: in the foreground; -C: no chdir to /; -i: a PID file of its own.
            server_ = std::make_unique<bmcsim::ServerProcess>(
                std::vector<std::string>{RSYSLOGD, "-n", "-C", "-f", scratch_.file("rsyslog.conf"),
                                         "-i", scratch_.file("rsyslogd.pid")},
                "127.0.0.1:" + std::to_string(tcpPort_), scratch_.file("rsyslogd.out"));
            // It goes on without a UDP input whose port it cannot bind, and says so.
            bmcsim::waitUntil(
                [&] {
                    return udpListening() ||
                           server_->output().find("Could not create udp listener") !=
                               std::string::npos;
                },
                std::chrono::minutes(1));
            if (udpListening()) return;
            if (std::chrono::steady_clock::now() >= deadline)
                throw std::runtime_error("rsyslogd does not listen on UDP:\n" + server_->output());
        }
    }

    // The lines written once `count` are there (or a minute has passed), and rsyslogd stopped: a
    // message that came twice would be among them.
    std::vector<std::string> received(std::size_t count) {
        bmcsim::waitUntil([&] { return linesOf(scratch_.read("received.log")).size() >= count; },
                          std::chrono::minutes(1));
        server_->stop();
        return linesOf(scratch_.read("received.log"));
    }

private:
    std::string configuration() const {
        return "global(workDirectory=\"" + scratch_.path() +
               "\")\n"
               "module(load=\"imudp\")\n"
               "module(load=\"imtcp\")\n"
               "input(type=\"imudp\" address=\"127.0.0.1\" port=\"" +
               std::to_string(udpPort_) +
               "\")\n"
               "input(type=\"imtcp\" address=\"127.0.0.1\" port=\"" +
               std::to_string(tcpPort_) +
               "\")\n"
               "template(name=\"parts\" type=\"string\" string=\"%PRI%|%HOSTNAME%|%APP-NAME%|"
               "%PROCID%|%MSGID%|%STRUCTURED-DATA%|%msg%\\n\")\n"
               "action(type=\"omfile\" file=\"" +
               scratch_.file("received.log") + "\" template=\"parts\")\n";
    }

    const bmcsim::ScratchDirectory& scratch_;
    unsigned short udpPort_;
    unsigned short tcpPort_;
    std::unique_ptr<bmcsim::ServerProcess> server_;
};

// The text of a JSON line's string field `name` (the sample log's texts have nothing escaped).
std::string jsonText(const std::string& line, const std::string& name) {
    const std::string key = "\"" + name + "\":\"";
    const std::size_t start = line.find(key) + key.size();
    return line.substr(start, line.find("\",\"", start) - start);
}

std::string jsonNumber(const std::string& line, const std::string& name) {
    const std::string key = "\"" + name + "\":";
    const std::size_t start = line.find(key) + key.size();
    return line.substr(start, line.find(',', start) - start);
}

// The SD-PARAM ` NAME="..."` of a JSON line's field `name`, a string or a number; nothing when the
// line has it null or not at all.
std::string sdParam(const std::string& line, const std::string& name) {
    if (line.find("\"" + name + "\":") == std::string::npos ||
        line.find("\"" + name + "\":null") != std::string::npos)
        return "";
    const bool text = line.find("\"" + name + "\":\"") != std::string::npos;
    return " " + name + "=\"" + (text ? jsonText(line, name) : jsonNumber(line, name)) + "\"";
}

int syslogSeverity(const std::string& word) {
    return word == "critical" ? 2 : word == "warning" ? 4 : 6;
}

std::string localHostName() {
    char name[HOST_NAME_MAX + 1] = {};
    gethostname(name, sizeof name - 1);
    return name;
}

// What rsyslogd writes for an event `list --format jsonl` gives as `listed`, but the PROCID: the
// record's time stamp (JSON's time) as eventTime, and its type and sensor as JSON has them.
std::string expectedLine(const std::string& listed, int facility) {
    const std::string severity = jsonText(listed, "severity");
    const std::string time = sdParam(listed, "time");
    return std::to_string(facility * 8 + syslogSeverity(severity)) + "|" + localHostName() +
           "|ipmi-event-log|sel|[ipmi@32473 host=\"" + jsonText(listed, "host") + "\" recordId=\"" +
           jsonNumber(listed, "recordId") + "\" severity=\"" + severity + "\"" +
           (time.empty() ? "" : " eventTime" + time.substr(time.find('='))) + " source=\"" +
           jsonText(listed, "source") + "\"" + sdParam(listed, "recordType") +
           sdParam(listed, "sensorType") + sdParam(listed, "sensorTypeName") +
           sdParam(listed, "sensorNumber") + sdParam(listed, "sensorName") + "]|" +
           jsonText(listed, "message");
}

// A received line without its PROCID, which must be the tool's: digits.
std::string withoutProcessId(const std::string& line) {
    std::size_t at = 0;
    for (int field = 0; field < 3; ++field) at = line.find('|', at) + 1;
    const std::size_t end = line.find('|', at);
    const std::string processId = line.substr(at, end - at);
    EXPECT_FALSE(processId.empty()) << line;
    EXPECT_EQ(processId.find_first_not_of("0123456789"), std::string::npos) << line;
    return line.substr(0, at) + line.substr(end + 1);
}

// JOURNAL_STREAM as systemd sets it for output to the journal, naming the file at `path`.
std::string journalStreamOf(const std::string& path) {
    return "JOURNAL_STREAM=$(stat -c %d:%i " + path + ")";
}

std::string recordIdOf(const std::string& line) {
    const std::string key = "recordId=\"";
    const std::size_t start = line.find(key) + key.size();
    return line.substr(start, line.find('"', start) - start);
}

class SyslogTest : public ::testing::Test {
protected:
    void SetUp() override { bmc = bmcsim::sampleServerBmc(bmcsim::sampleEventLog()); }

    std::string host() const {
        return std::string(bmcsim::BmcSimulator::host()) + ":" + std::to_string(bmc->port());
    }

    // The tool as the BMC's administrator, with `arguments`, after the shell's assignments
    // `environment`.
    ToolRun tool(const std::string& arguments, const std::string& environment = "") const {
        return bmcsim::runShell(
            environment + " IPMI_PASSWORD='" + std::string(bmcsim::kAdministrator.password) +
                "' TOLMAR_IPMI_SESSION_TIMEOUT_MS=1000 " TOOL_PATH " -H " + host() + " -U " +
                bmcsim::kAdministrator.name + " -E " + arguments,
            scratch);
    }

    // follow's two polls, the first before `server` is up at `address`: said once, and every
    // event sent once it is up.
    void expectSentOnceTheServerIsUp(LogServer& server, const std::string& address) {
        const ToolRun run = followWithTheServerLate(server, address);
        EXPECT_EQ(run.status, 0);
        EXPECT_EQ(run.err, "ipmi-event-log: syslog: cannot send to " + address +
                               ": Connection refused; keeping the events (at most 10000) and "
                               "trying again at each poll\nipmi-event-log: syslog: " +
                               address + " reached again\n");
        expectTheSampleLog(server.received(35), 3);
    }

    // The sample log's 35 events, 12 of them critical, each once as list gives it, in `received`.
    void expectTheSampleLog(const std::vector<std::string>& received, int facility) const {
        const std::vector<std::string> listed = linesOf(tool("--format jsonl list").out);
        ASSERT_EQ(listed.size(), 35u);
        std::map<std::string, std::string> byRecord;
        for (const std::string& line : received) {
            EXPECT_TRUE(byRecord.emplace(recordIdOf(line), withoutProcessId(line)).second)
                << "twice: " << line;
        }
        EXPECT_EQ(received.size(), 35u);
        std::size_t critical = 0;
        for (const std::string& event : listed) {
            EXPECT_EQ(byRecord[jsonNumber(event, "recordId")], expectedLine(event, facility));
            critical += jsonText(event, "severity") == "critical";
        }
        EXPECT_EQ(critical, 12u);
        // As the sample's bytes say: record 16h, a memory event (type 0Ch) of sensor 70h, which
        // its SDR names; record 1Ch, an OS stop (type 20h) of sensor 90h, which no SDR describes.
        EXPECT_NE(byRecord["22"].find(" eventTime=\"2015-03-12T15:56:18Z\" "), std::string::npos);
        EXPECT_NE(byRecord["22"].find(" recordType=\"2\" sensorType=\"12\" "
                                      "sensorTypeName=\"Memory\" sensorNumber=\"112\" "
                                      "sensorName=\"DIMM Status\"]|"),
                  std::string::npos)
            << byRecord["22"];
        EXPECT_NE(byRecord["28"].find(" recordType=\"2\" sensorType=\"32\" "
                                      "sensorTypeName=\"OS Stop / Shutdown\" "
                                      "sensorNumber=\"144\"]|"),
                  std::string::npos)
            << byRecord["28"];
    }

    // Follows the BMC in three polls 3 s apart, sending to `address` of `server`, which starts
    // only once the tool has said after its first poll that it cannot reach it: up for the second
    // poll or, on a busy machine, for the third.
    ToolRun followWithTheServerLate(LogServer& server, const std::string& address) {
        ToolRun run;
        std::thread follow(
            [&] { run = tool("--polls 3 --interval 3 follow --syslog " + address); });
        const bool said = bmcsim::waitUntil(
            [&] { return scratch.read("stderr").find("cannot send") != std::string::npos; },
            std::chrono::minutes(1));
        if (said) server.start();
        follow.join();
        EXPECT_TRUE(said);
        return run;
    }

    std::unique_ptr<bmcsim::BmcSimulator> bmc;
    bmcsim::ScratchDirectory scratch;
};

TEST_F(SyslogTest, EachEventGoesOverUdpWithItsPriorityHostAndRecordId) {
    LogServer server(scratch);
    server.start();
    const ToolRun run = tool("--polls 1 follow --syslog " + server.udpAddress());
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "");  // the events go to the log server only
    EXPECT_EQ(run.err, "");
    expectTheSampleLog(server.received(35), 3);
}

TEST_F(SyslogTest, EachEventGoesOverTcpOctetCountedWithTheFacilityAskedFor) {
    LogServer server(scratch);
    server.start();
    const ToolRun run =
        tool("--polls 1 follow --syslog " + server.tcpAddress() + " --syslog-facility local3");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "");
    expectTheSampleLog(server.received(35), 19);
}

TEST_F(SyslogTest, EventsReadWhileTheUdpServerIsDownAreSentOnceItIsUp) {
    LogServer server(scratch);
    expectSentOnceTheServerIsUp(server, server.udpAddress());
}

TEST_F(SyslogTest, EventsReadWhileTheTcpServerIsDownAreSentOnceItIsUp) {
    LogServer server(scratch);
    expectSentOnceTheServerIsUp(server, server.tcpAddress());
}

TEST_F(SyslogTest, BadSyslogOptionsAreCommandLineErrors) {
    const auto refusal = [&](const std::string& arguments) {
        const ToolRun run = tool(arguments);
        EXPECT_EQ(run.status, 2) << arguments;
        return run.err.substr(0, run.err.find('\n'));
    };
    EXPECT_EQ(refusal("--syslog udp://127.0.0.1:514 list"),
              "ipmi-event-log: --syslog goes with follow");
    EXPECT_EQ(refusal("--syslog-facility local0 follow"),
              "ipmi-event-log: --syslog-facility goes with --syslog");
    EXPECT_EQ(refusal("--syslog-facility local9 --syslog udp://h follow"),
              "ipmi-event-log: syslog facility \"local9\" is not one of kern, user, mail, daemon, "
              "auth, syslog, lpr, news, uucp, cron, authpriv, ftp, local0 to local7");
    EXPECT_EQ(refusal("--syslog http://h follow"),
              "ipmi-event-log: syslog address \"http://h\" is not udp://HOST:PORT, "
              "tcp://HOST:PORT or unix:PATH");
}

TEST_F(SyslogTest, OutputToTheJournalCarriesEachEventsPriority) {
    const std::string out = scratch.file("follow.out");
    scratch.write("follow.out", "");
    const ToolRun run = tool("--format jsonl --polls 1 follow >" + out, journalStreamOf(out));
    EXPECT_EQ(run.status, 0) << run.err;
    const std::string listed = tool("--format jsonl list").out;
    const std::vector<std::string> events = linesOf(listed);
    const std::vector<std::string> journal = linesOf(scratch.read("follow.out"));
    ASSERT_EQ(journal.size(), 35u);
    std::size_t critical = 0;
    for (std::size_t i = 0; i < journal.size(); ++i) {
        const int severity = syslogSeverity(jsonText(events[i], "severity"));
        EXPECT_EQ(journal[i], "<" + std::to_string(severity) + ">" + events[i]);
        critical += journal[i].rfind("<2>{", 0) == 0;
    }
    EXPECT_EQ(critical, 12u);
    // Standard output on another file than the one JOURNAL_STREAM names: no prefixes.
    EXPECT_EQ(tool("--format jsonl --polls 1 follow", journalStreamOf(out)).out, listed);
}

}  // namespace
