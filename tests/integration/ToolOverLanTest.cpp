// ipmi-event-log against ipmi_sim: every subcommand, format and filter, and a fleet with a BMC
// down.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <thread>

#include "LanFixture.h"
#include "LossyLink.h"
#include "ServerProcess.h"
#include "ToolRun.h"

namespace {

using bmcsim::ToolRun;

std::size_t lines(const std::string& text) { return std::count(text.begin(), text.end(), '\n'); }

using bmcsim::countOf;

class ToolOverLanTest : public ::testing::Test {
protected:
    static std::unique_ptr<bmcsim::BmcSimulator> sampleBmc() {
        return bmcsim::sampleServerBmc(bmcsim::sampleEventLog());
    }

    void SetUp() override { bmc = sampleBmc(); }

    static std::string hostOf(const bmcsim::BmcSimulator& b) {
        return std::string(bmcsim::BmcSimulator::host()) + ":" + std::to_string(b.port());
    }

    // Runs the tool as the administrator of `hosts` (this test's BMC by default).
    ToolRun tool(const std::string& arguments, const std::string& hosts = "") const {
        return shell("IPMI_PASSWORD='" + std::string(bmcsim::kAdministrator.password) +
                     "' TOLMAR_IPMI_SESSION_TIMEOUT_MS=1000 TZ=Etc/GMT-2 " TOOL_PATH " -H " +
                     (hosts.empty() ? hostOf(*bmc) : hosts) + " -U " + bmcsim::kAdministrator.name +
                     " -E " + arguments);
    }

    ToolRun shell(const std::string& commandLine) const {
        return bmcsim::runShell(commandLine, scratch);
    }

    // The tool refuses the command line: exit 2, nothing on stdout, `message` first on stderr.
    void expectUsageError(const std::string& arguments, const std::string& message) const {
        const ToolRun run = tool(arguments);
        EXPECT_EQ(run.status, 2) << arguments;
        EXPECT_EQ(run.out, "");
        EXPECT_EQ(run.err.rfind("ipmi-event-log: " + message + "\n", 0), 0u) << run.err;
    }

    // Runs the tool's follow with `arguments`, and adds `records` to the BMC once the tool has
    // printed `firstPollLines` lines (on standard error, with `onErrors`), so between its polls.
    // What it printed is in `out` and `err`.
    ToolRun followAdding(const std::string& arguments, std::size_t firstPollLines,
                         const std::vector<bmcsim::SelRecord>& records,
                         bool onErrors = false) const {
        // runShell writes standard error to "stderr" in the scratch directory.
        const char* watched = onErrors ? "stderr" : "follow.out";
        std::atomic<bool> ended{false};
        std::thread adder([&] {
            bmcsim::waitUntil(
                [&] { return ended || lines(scratch.read(watched)) >= firstPollLines; },
                std::chrono::seconds(60));
            bmc->addSelRecords(records);
        });
        ToolRun run = tool(arguments + " follow >" + scratch.file("follow.out"));
        ended = true;
        adder.join();
        run.out = scratch.read("follow.out");
        return run;
    }

    std::unique_ptr<bmcsim::BmcSimulator> bmc;
    bmcsim::ScratchDirectory scratch;
};

TEST_F(ToolOverLanTest, ListsTheDecodedLogInEveryFormat) {
    // Record 16h of the sample: 16 00 | 02 | 5501B722h, 2015-03-12 15:56:18 UTC | generator 0020h
    // (the BMC) | 04 | sensor type 0Ch (memory) | sensor 70h ("DIMM Status" in the SDR) | 6Fh
    // (assertion, sensor-specific) | A1h (bits 7:6 and 5:4 10b, OEM codes in bytes 2 and 3;
    // offset 1, uncorrectable ECC) 00 03.
    const ToolRun table = tool("list");
    EXPECT_EQ(table.status, 0) << table.err;
    EXPECT_EQ(lines(table.out), 1u + 35u);  // header and one row an event
    EXPECT_EQ(table.out.rfind("ID      TIME                     SEVERITY  SOURCE", 0), 0u);
    // SOURCE as wide as the longest, "System Boot / Restart Initiated Sys Boot".
    EXPECT_NE(table.out.find("0x0016  2015-03-12 15:56:18 UTC  critical  Memory DIMM Status" +
                             std::string(40 - 18 + 2, ' ') +
                             "Uncorrectable ECC / other uncorrectable memory error | Asserted | "
                             "Event Data 2 OEM code = 00h ; Event Data 3 OEM code = 03h\n"),
              std::string::npos)
        << table.out;

    const ToolRun json = tool("--format json list");
    EXPECT_EQ(json.out.front(), '[');
    EXPECT_EQ(lines(json.out), 37u);  // "[", 35 objects, "]"
    EXPECT_NE(json.out.find("\"recordId\":22,\"timeStamp\":\"2015-03-12 15:56:18 UTC\","
                            "\"severity\":\"critical\",\"message\":\"Uncorrectable ECC / other "
                            "uncorrectable memory error | Asserted | Event Data 2 OEM code = 00h ; "
                            "Event Data 3 OEM code = 03h\",\"source\":\"Memory DIMM Status\","),
              std::string::npos)
        << json.out;
    EXPECT_NE(json.out.find(",\"complete\":true,\"recordType\":2,\"time\":"
                            "\"2015-03-12T15:56:18Z\",\"generatorId\":32,\"sensorType\":12,"
                            "\"sensorTypeName\":\"Memory\",\"sensorNumber\":112,\"sensorName\":"
                            "\"DIMM Status\",\"eventType\":111,\"direction\":\"assertion\","
                            "\"offset\":1,\"eventData\":[161,0,3]}"),
              std::string::npos);

    EXPECT_EQ(lines(tool("--format jsonl list").out), 35u);
    const ToolRun csv = tool("--format csv list");
    EXPECT_EQ(lines(csv.out), 36u);
    EXPECT_EQ(csv.out.rfind("host,recordId,timeStamp,severity,message,source,auxLog,complete,"
                            "recordType,time,preInitSeconds,generatorId,sensorType,sensorTypeName,"
                            "sensorNumber,sensorName,eventType,direction,offset,eventData,reading,"
                            "readingUnits,threshold,thresholdUnits,manufacturerId,manufacturer,"
                            "oemData\r\n",
                            0),
              0u);
}

TEST_F(ToolOverLanTest, ListsTheLibrarysDescribedTextsOnRequest) {
    const ToolRun table = tool("--rendering described list");
    EXPECT_EQ(table.status, 0) << table.err;
    EXPECT_EQ(lines(table.out), 1u + 35u);
    EXPECT_EQ(table.out.rfind("ID      TIME                 SEVERITY  SOURCE", 0), 0u);
    EXPECT_NE(table.out.find("0x0016  03/12/2015 15:56:18  critical"), std::string::npos);

    const ToolRun json = tool("--rendering described --format json list");
    EXPECT_EQ(lines(json.out), 37u);
    EXPECT_NE(json.out.find("\"recordId\":22,\"timeStamp\":\"03/12/2015 15:56:18\",\"severity\":"
                            "\"critical\",\"message\":\"Memory Device 1 (Memory - DIMM Status): "
                            "Assertion: Uncorrectable ECC / other uncorrectable memory error  \","
                            "\"source\":\"16 (address). IPMB device LUN 0. Channel 0. \","),
              std::string::npos);
    // What the bytes mean is the same in either rendering.
    const std::string keys =
        ",\"complete\":true,\"recordType\":2,\"time\":\"2015-03-12T15:56:18Z\",";
    EXPECT_NE(json.out.find(keys), std::string::npos);
    EXPECT_EQ(countOf(json.out, ",\"complete\":true,\"recordType\":2,"), 35u);
    expectUsageError("--rendering ipmi2 list", "rendering \"ipmi2\" is not ipmi or described");
}

TEST_F(ToolOverLanTest, FiltersTheDecodedLog) {
    EXPECT_EQ(lines(tool("--format jsonl --severity critical list").out), 12u);
    EXPECT_EQ(lines(tool("--format jsonl --id 0x10-0x13 list").out), 4u);
    const ToolRun last = tool("--format csv --last 2 list");
    EXPECT_EQ(lines(last.out), 3u);
    EXPECT_NE(last.out.find(",0x0023,"), std::string::npos);
    // 03/12/2015 from 16:57:54 (record 0x1C) to 16:59:49 (record 0x1F).
    const ToolRun window =
        tool("--format csv --since '2015-03-12 16:57:54' --until '2015-03-12 16:59:49' list");
    EXPECT_EQ(lines(window.out), 1u + 4u) << window.out;
    EXPECT_EQ(tool("--since 2015-03-13 list --format jsonl").out, "");
}

TEST_F(ToolOverLanTest, ShowsLocalTimeOnRequest) {
    // TZ is two hours east of UTC here; record 1 is stamped 55000000h, 2015-03-11 08:42:40 UTC.
    const ToolRun run = tool("--localtime --format csv --id 1 list");
    EXPECT_NE(run.out.find(",2015-03-11 10:42:40 +02,"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find(",2015-03-11T08:42:40Z,"), std::string::npos) << run.out;
    const ToolRun described = tool("--rendering described --localtime --format csv --id 1 list");
    EXPECT_NE(described.out.find(",03/11/2015 10:42:40,"), std::string::npos) << described.out;
}

TEST_F(ToolOverLanTest, ShowsOneEventWithEveryField) {
    const ToolRun run = tool("--format jsonl show 0x16");
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(lines(run.out), 1u);
    EXPECT_NE(run.out.find("\"auxLog\":\"Type: ERROR_CODE Sev: ORV_ERROR_FATAL"),
              std::string::npos);
    const ToolRun absent = tool("show 999");
    EXPECT_EQ(absent.status, 15);
    EXPECT_NE(absent.err.find("has no SEL record with that ID"), std::string::npos);
}

TEST_F(ToolOverLanTest, ReadsRawEntries) {
    const ToolRun raw = tool("raw");
    EXPECT_EQ(lines(raw.out), 35u);
    EXPECT_EQ(raw.out.rfind("0x0001  01 00 02 00 00 00 55 20 00 04 10 74 6f 02 ff ff\n", 0), 0u);
    EXPECT_EQ(tool("get 4").out, "0x0004  04 00 02 e8 03 00 55 20 00 04 01 30 01 57 56 55\n");
    EXPECT_EQ(tool("--format jsonl get 0x0004").out,
              "{\"host\":\"" + hostOf(*bmc) +
                  "\",\"recordId\":4,\"bytes\":\"040002e8030055200004013001575655\",\"complete\":"
                  "true}\n");
    const ToolRun absent = tool("get 0x999");
    EXPECT_EQ(absent.status, 16);
    EXPECT_EQ(absent.out, "");
    EXPECT_EQ(absent.err, "ipmi-event-log: the request to " + hostOf(*bmc) +
                              " failed: the BMC answered CBh (requested sensor, data or record not "
                              "present)\n");
}

TEST_F(ToolOverLanTest, AddsDeletesAndClears) {
    EXPECT_EQ(tool("add '00 00 02 00 00 00 56 20 00 04 01 30 01 57 56 55'").status, 0);
    EXPECT_EQ(lines(tool("raw").out), 36u);
    const ToolRun deleted = tool("delete 1 0x2");
    EXPECT_EQ(deleted.status, 0) << deleted.err;
    EXPECT_EQ(lines(tool("raw").out), 34u);
    EXPECT_EQ(tool("delete 1").status, 16);  // already gone
    EXPECT_EQ(tool("clear").status, 0);
    EXPECT_EQ(tool("raw").out, "");
}

TEST_F(ToolOverLanTest, ReportsStatusAndRefusals) {
    const ToolRun ok = tool("status");
    EXPECT_EQ(ok.status, 0);
    EXPECT_EQ(ok.out, hostOf(*bmc) + ": connected\n");
    const ToolRun refused = shell(TOOL_PATH " -H " + hostOf(*bmc) + " -U nobody -P wrong status");
    EXPECT_EQ(refused.status, 14);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err,
              "ipmi-event-log: authentication refused by " + hostOf(*bmc) +
                  ": RAKP message 1 refused: RMCP+ status 0Dh (unauthorized name); check the user "
                  "name; the BMC does not know it (some Intel BMCs know it only padded to 16 "
                  "bytes: workaround intel20)\n");
}

TEST_F(ToolOverLanTest, EachConnectFailureSaysWhatFailedAndWhatToCheck) {
    struct Case {
        const char* arguments;
        int status;
        const char* failure;  // after "ipmi-event-log: "
        const char* reason;   // after the host
    };
    const Case cases[] = {
        {"-P wrong-password status", 14, "authentication refused by ",
         ": the BMC's RAKP message 2 does not match this password; check the password"},
        {"-C 7 status", 13, "cannot connect to ",
         ": this client speaks cipher suites 0-3, 6 and 15-17; choose a cipher suite this client "
         "speaks: 0-3, 6 or 15-17 (17 and 3 are the common ones)"},
        {"-C 17 status", 13, "cannot connect to ",
         ": Open Session refused: RMCP+ status 04h (invalid authentication algorithm); the BMC "
         "does not offer this cipher suite; choose one it offers (17 and 3 are the common ones; "
         "this client speaks 0-3, 6 and 15-17)"},
    };
    for (const Case& c : cases) {
        const ToolRun run = tool(c.arguments);
        EXPECT_EQ(run.status, c.status) << c.arguments;
        EXPECT_EQ(run.err,
                  "ipmi-event-log: " + std::string(c.failure) + hostOf(*bmc) + c.reason + "\n");
    }
}

TEST_F(ToolOverLanTest, NoLocalBmcSaysWhatToCheck) {
    // This machine has no BMC of its own: the in-band interface is not found.
    const ToolRun run = shell(TOOL_PATH " status");
    EXPECT_EQ(run.status, 13);
    EXPECT_EQ(run.out, "");
    const std::string& text = run.err;
    EXPECT_EQ(text.rfind("ipmi-event-log: cannot connect to the local BMC: no local IPMI interface "
                         "could be opened (",
                         0),
              0u)
        << text;
    EXPECT_NE(text.find("); check that this machine has a BMC, that the ipmi_si and ipmi_devintf "
                        "kernel modules are loaded so that /dev/ipmi0 exists, and that this "
                        "process may open it (usually root)\n"),
              std::string::npos);
}

TEST_F(ToolOverLanTest, CipherSuiteZeroNeedsItsInsecureOptionAndOthersWithoutIntegrityWarn) {
    expectUsageError("-C 0 -P wrong-password status",
                     "cipher suite 0 authenticates nobody: the BMC accepts any password and "
                     "answers cannot be trusted; --insecure-cipher-suite-0 allows it all the same");
    EXPECT_EQ(tool("-C 0 --insecure-cipher-suite-0 status").status, 0);

    const ToolRun unsigned_ = tool("-C 1 --format jsonl raw");
    EXPECT_EQ(unsigned_.status, 0);
    EXPECT_EQ(lines(unsigned_.out), 35u);
    EXPECT_EQ(unsigned_.err,
              "ipmi-event-log: warning: cipher suite 1 has no integrity check: "
              "answers from " +
                  hostOf(*bmc) +
                  " can be forged or replayed by anyone on the network path; 17 "
                  "and 3 have one\n");
}

TEST_F(ToolOverLanTest, CredentialsLongerThanIpmiAllowsAreACommandLineError) {
    expectUsageError("-P 123456789012345678901 status",
                     "the password is 21 bytes long; IPMI v2.0 allows at most 20");
    expectUsageError("-U abcdefghijklmnopq status",
                     "the user name is 17 bytes long; IPMI v2.0 allows at most 16");
}

TEST_F(ToolOverLanTest, APasswordFileWithCrLfLinesIsRead) {
    const std::string file = scratch.file("password");
    std::ofstream(file) << bmcsim::kAdministrator.password << "\r\n";
    EXPECT_EQ(tool("-f " + file + " status").status, 0);
}

TEST_F(ToolOverLanTest, ThePasswordAndBmcKeyAreErasedFromTheProcessArguments) {
    // A tool that waits a minute for a BMC that does not answer: long enough to be looked at once
    // it has started; stopped then.
    bmc->stop();
    const std::string host = hostOf(*bmc);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        setenv("TOLMAR_IPMI_SESSION_TIMEOUT_MS", "60000", 1);
        execl(TOOL_PATH, TOOL_PATH, "-H", host.c_str(), "-U", "admin", "-P", "Secret-Pass1", "-k",
              "Kg-Secret", "-y", "0x4b67", "status", static_cast<char*>(nullptr));
        _exit(127);
    }
    const auto arguments = [child] {
        std::ifstream in("/proc/" + std::to_string(child) + "/cmdline", std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    };
    // The tool running, its secrets gone from its arguments.
    std::string seen;
    bmcsim::waitUntil(
        [&] {
            seen = arguments();
            return seen.rfind(TOOL_PATH, 0) == 0 && seen.find("Secret") == std::string::npos &&
                   seen.find("4b67") == std::string::npos;
        },
        std::chrono::seconds(30));
    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(seen.rfind(TOOL_PATH, 0), 0u) << seen;
    for (const char* option : {"-P", "-k", "-y"})
        EXPECT_NE(seen.find(option + std::string("\0\0", 2)), std::string::npos) << seen;
    EXPECT_EQ(seen.find("Secret"), std::string::npos);
    EXPECT_EQ(seen.find("4b67"), std::string::npos);
}

TEST_F(ToolOverLanTest, TheToolIsNotDumpableSoThatNoCoreHoldsItsSecrets) {
    // A tool that waits for a BMC that does not answer, as another user than root where the test
    // runs as root: the kernel gives the files of /proc/PID of a process that is not dumpable to
    // root.
    bmc->stop();
    const std::string host = hostOf(*bmc);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        constexpr uid_t nobody = 65534;
        if (getuid() == 0 && (setgid(nobody) != 0 || setuid(nobody) != 0)) _exit(126);
        execl(TOOL_PATH, TOOL_PATH, "-H", host.c_str(), "-U", "admin", "-P", "Secret-Pass1",
              "--interval", "3600", "follow", static_cast<char*>(nullptr));
        _exit(127);
    }
    const std::string proc = "/proc/" + std::to_string(child);
    const auto ownerIsRoot = [&proc] {
        struct stat status {};
        return stat((proc + "/fd").c_str(), &status) == 0 && status.st_uid == 0;
    };
    const auto running = [&proc] {
        std::ifstream in(proc + "/cmdline", std::ios::binary);
        const std::string seen((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
        return seen.rfind(TOOL_PATH, 0) == 0;
    };
    const bool undumpable =
        bmcsim::waitUntil([&] { return running() && ownerIsRoot(); }, std::chrono::seconds(30));
    kill(child, SIGKILL);  // a poll under way would be finished first
    waitpid(child, nullptr, 0);
    EXPECT_TRUE(undumpable);
}

TEST_F(ToolOverLanTest, BadCommandLinesExitWithTwo) {
    EXPECT_EQ(tool("frobnicate").status, 2);
    EXPECT_EQ(tool("get").status, 2);
    EXPECT_EQ(tool("--format xml list").status, 2);
    EXPECT_EQ(tool("add 'zz'").status, 2);
}

TEST_F(ToolOverLanTest, ReadsAFleetInParallelAndReportsTheHostThatIsDown) {
    const auto second = sampleBmc();
    auto down = std::make_unique<bmcsim::BmcSimulator>();
    const std::string hosts = hostOf(*bmc) + "," + hostOf(*down) + "," + hostOf(*second);
    down->stop();
    const ToolRun run = tool("--fanout 3 --format csv list", hosts);
    EXPECT_EQ(run.status, 13);  // the worst: cannot connect
    EXPECT_EQ(lines(run.out), 1u + 70u);
    EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 71);
    EXPECT_NE(run.out.find("\r\n" + hostOf(*second) + ",0x0023,"), std::string::npos);
    EXPECT_EQ(run.err, "ipmi-event-log: cannot connect to " + hostOf(*down) +
                           ": no answer from the BMC; check the address and port, that the BMC is "
                           "powered and that IPMI over LAN is enabled on it\n");
    const ToolRun table = tool("list", hosts);
    EXPECT_EQ(table.out.rfind("HOST", 0), 0u);
}

TEST_F(ToolOverLanTest, AFailedReadPrintsNoHeader) {
    bmc->stop();
    for (const char* format : {"table", "csv", "json"}) {
        const ToolRun run = tool(std::string("--format ") + format + " list");
        EXPECT_EQ(run.status, 13);
        EXPECT_EQ(run.out, "") << format;
    }
}

TEST_F(ToolOverLanTest, ADeleteRefusedForPrivilegeSaysSo) {
    const ToolRun run = tool("-L user delete 1");
    EXPECT_EQ(run.status, 16);
    EXPECT_EQ(run.err, "ipmi-event-log: the request to " + hostOf(*bmc) +
                           " failed: the BMC answered D4h (insufficient privilege level): the "
                           "session's level does not allow it (changing the SEL needs operator; "
                           "see -L)\n");
}

TEST_F(ToolOverLanTest, ABmcThatStopsAnsweringPartWayGivesWhatWasReadAndSaysSo) {
    // Datagram 30 of the tool's session is in the middle of the SEL; the BMC is gone before it.
    for (const char* command : {"list", "raw"}) {
        bmcsim::LossyLink link(bmc->port(), 0.0, std::chrono::microseconds(0));
        link.afterClientDatagrams(30, [this] { bmc->stop(); });
        const std::string host =
            std::string(bmcsim::BmcSimulator::host()) + ":" + std::to_string(link.port());
        const ToolRun run = tool(std::string("--format jsonl ") + command, host);
        EXPECT_EQ(run.status, 3) << command;
        const std::size_t read = lines(run.out);
        EXPECT_GT(read, 0u);
        EXPECT_LT(read, 35u);
        // Raw entries end with it; events have the record's keys after it.
        EXPECT_EQ(countOf(run.out, ",\"complete\":false"), read);
        std::string expected = "ipmi-event-log: " + host +
                               ": incomplete: BMC stopped answering after " + std::to_string(read) +
                               " SEL entries";
        if (std::string(command) == "list")
            expected += "; severities, sensor names and auxiliary details may be missing";
        EXPECT_EQ(run.err, expected + "\n");
        bmc = sampleBmc();
    }
}

TEST_F(ToolOverLanTest, ShowOfARecordNotReadBeforeTheBmcStoppedIsIncompleteNotAbsent) {
    bmcsim::LossyLink link(bmc->port(), 0.0, std::chrono::microseconds(0));
    link.afterClientDatagrams(30, [this] { bmc->stop(); });
    const std::string host =
        std::string(bmcsim::BmcSimulator::host()) + ":" + std::to_string(link.port());
    const ToolRun run = tool("--format jsonl show 0x23", host);  // the last record of the SEL
    EXPECT_EQ(run.status, 3);
    // No row of the record: one that marks the host's read incomplete.
    EXPECT_EQ(run.out, "{\"host\":\"" + host + "\",\"complete\":false}\n");
    const std::string start =
        "ipmi-event-log: " + host + ": incomplete: BMC stopped answering after ";
    const std::string end =
        " SEL entries; severities, sensor names and auxiliary details may be missing\n";
    EXPECT_EQ(run.err.rfind(start, 0), 0u) << run.err;
    EXPECT_EQ(run.err.find(end), run.err.size() - end.size()) << run.err;
}

// The lines of a text, each with its "\n".
std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> all;
    for (std::string line; std::getline(in, line);) all.push_back(line + "\n");
    return all;
}

// The last line of a text.
std::string lastLine(const std::string& text) {
    const std::size_t end = text.size() - (text.empty() || text.back() != '\n' ? 0 : 1);
    const std::size_t start = text.rfind('\n', end - 1);
    return text.substr(start == std::string::npos ? 0 : start + 1, end - start - 1);
}

TEST_F(ToolOverLanTest, ListWithAStateFilePrintsOnlyWhatWasAddedSinceTheLastRun) {
    const std::string state = scratch.file("bmc.state");
    const ToolRun first = tool("--state " + state + " --format jsonl list");
    EXPECT_EQ(first.status, 0) << first.err;
    EXPECT_EQ(first.out, tool("--format jsonl list").out);
    const ToolRun idle = tool("--state " + state + " list");
    EXPECT_EQ(idle.status, 0);
    EXPECT_EQ(idle.out, "");
    EXPECT_EQ(idle.err, "");
    bmc->addSelRecords({bmcsim::sampleEventLog()[21]});
    const ToolRun added = tool("--state " + state + " --format jsonl list");
    EXPECT_EQ(lines(added.out), 1u);
    EXPECT_EQ(added.out, lastLine(tool("--format jsonl list").out) + "\n");
    // A file that is not a state is said, and the whole SEL read.
    std::ofstream(state) << "something else\n";
    const ToolRun damaged = tool("--state " + state + " --format jsonl list");
    EXPECT_EQ(lines(damaged.out), 36u);
    EXPECT_EQ(damaged.err, "ipmi-event-log: warning: " + hostOf(*bmc) + ": " + state +
                               ": not a follower state of this version (its first line is not "
                               "\"ipmi-event-log follower state 3\"); reading the whole SEL\n");
    expectUsageError("--state " + state + " raw", "--state goes with list");
}

TEST_F(ToolOverLanTest, ListWithAStateFilePrintsEachRecordOnceWhateverIsDeletedOrCleared) {
    const std::string state = scratch.file("bmc.state");
    const auto listNew = [&] { return tool("--state " + state + " --format jsonl list"); };
    const auto change = [&](const std::string& arguments) {
        const ToolRun run = tool(arguments);
        ASSERT_EQ(run.status, 0) << arguments << ": " << run.err;
    };
    const auto expectNothing = [&](const std::string& after) {
        const ToolRun run = listNew();
        EXPECT_EQ(run.status, 0) << after << ": " << run.err;
        EXPECT_EQ(run.out, "") << after;
        EXPECT_EQ(run.err, "") << after;
    };
    EXPECT_EQ(lines(listNew().out), 35u);
    change("delete 35");  // the newest, the one read last
    expectNothing("the newest deleted");
    change("delete 17");
    expectNothing("a middle one deleted");
    change("delete 20 21 22 23 24 25 26 27 28 29 30 31 32 33 34");
    expectNothing("many deleted");
    bmc->addSelRecords({bmcsim::sampleEventLog()[21]});
    EXPECT_EQ(lines(listNew().out), 1u);
    change("clear");
    const ToolRun cleared = listNew();
    EXPECT_EQ(cleared.status, 0) << cleared.err;
    EXPECT_EQ(cleared.out, "");
    EXPECT_EQ(cleared.err, "ipmi-event-log: " + hostOf(*bmc) + ": the SEL was cleared\n");
    expectNothing("the clear said");
    bmc->addSelRecords({bmcsim::sampleEventLog()[0], bmcsim::sampleEventLog()[1]});
    EXPECT_EQ(lines(listNew().out), 2u);
    expectNothing("the records added after the clear");
}

TEST_F(ToolOverLanTest, FollowPrintsTheEventsThereAreThenNewOnesDecodedAsListDecodesThem) {
    // Two polls two seconds apart; a record is added in between.
    const ToolRun run = followAdding("--format jsonl --interval 2 --polls 2 --last 3", 3,
                                     {bmcsim::sampleEventLog()[21]});
    EXPECT_EQ(run.status, 0) << run.err;
    const std::vector<std::string> all = linesOf(tool("--format jsonl list").out);
    ASSERT_EQ(all.size(), 36u);
    EXPECT_EQ(run.out, all[32] + all[33] + all[34] + all[35]);
}

TEST_F(ToolOverLanTest, FollowOfAThreeThousandRecordSelPrintsRecordsAddedByTheNextPoll) {
    const auto log = bmcsim::repeatedEventLog(3002);
    bmc = bmcsim::sampleServerBmc({log.begin(), log.begin() + 3000});
    // Two polls three seconds apart; two records are added in between.
    const ToolRun run =
        followAdding("--format jsonl --interval 3 --polls 2", 3000, {log[3000], log[3001]});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(lines(run.out), 3002u);
    EXPECT_EQ(run.out, tool("--format jsonl list").out);
}

TEST_F(ToolOverLanTest, FollowPrintsTheHeaderOnceWhenALaterPollHasEvents) {
    const ToolRun run = followAdding("--format csv --interval 2 --polls 2 --last 1", 2,
                                     {bmcsim::sampleEventLog()[21]});
    EXPECT_EQ(run.status, 0) << run.err;
    const std::vector<std::string> all = linesOf(tool("--format csv list").out);
    ASSERT_EQ(all.size(), 1u + 36u);
    EXPECT_EQ(run.out, all[0] + all[35] + all[36]);
}

TEST_F(ToolOverLanTest, FollowWithNewOnlyPrintsOnlyTheRecordsAddedAfterItStarted) {
    const ToolRun run = followAdding("--format jsonl --interval 2 --polls 2 --new-only", 1,
                                     {bmcsim::sampleEventLog()[21]}, true);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "ipmi-event-log: " + hostOf(*bmc) +
                           ": new events only: the 35 in the SEL now are not shown\n");
    const std::vector<std::string> all = linesOf(tool("--format jsonl list").out);
    ASSERT_EQ(all.size(), 36u);
    EXPECT_EQ(run.out, all[35]);
    expectUsageError("--new-only list", "--new-only goes with follow");
    expectUsageError("--new-only --last 3 follow",
                     "--new-only shows none of the events there are; --last N some");
}

TEST_F(ToolOverLanTest, FollowWarnsAsTheSelFillsAndClearsItFullOnceEveryRecordIsRead) {
    // ipmi_sim's SEL of 40 records, 35 of them taken: 87.5%, 80 bytes free.
    bmc = bmcsim::sampleServerBmc(bmcsim::sampleEventLog(), bmcsim::Interfaces::Lan, 40);
    const auto log = bmcsim::repeatedEventLog(5);
    const std::string host = "ipmi-event-log: " + hostOf(*bmc) + ": ";
    const ToolRun filling = followAdding("--format jsonl --interval 2 --polls 2", 35, log);
    EXPECT_EQ(filling.status, 0) << filling.err;
    EXPECT_EQ(lines(filling.out), 40u);
    EXPECT_EQ(filling.err, host + "the SEL is 87% full: 35 entries, 80 bytes free\n" + host +
                               "the SEL is full: 40 entries, no space left\n");
    // ipmi_sim refuses an addition to its full SEL (C4h, out of space).
    EXPECT_EQ(tool("add 0000020000000020000408606f01ffff").status, 16);

    // A follower of its own reads the 40 records, then clears the SEL.
    const std::string listed = tool("--format jsonl list").out;
    const ToolRun clearing = tool("--format jsonl --clear-when-full 95 --polls 1 follow");
    EXPECT_EQ(clearing.status, 0) << clearing.err;
    EXPECT_EQ(lines(clearing.out), 40u);
    EXPECT_EQ(clearing.out, listed);
    EXPECT_EQ(clearing.err, host + "cleared the SEL, every record in it read first\n");
    EXPECT_EQ(tool("raw").out, "");
    expectUsageError("--clear-when-full 90 list",
                     "--clear-when-full goes with follow, serve or list --state");
}

TEST_F(ToolOverLanTest, FollowWithAStateDirectoryGoesOnWhereTheLastRunStopped) {
    const std::string states = scratch.file("states");
    ASSERT_EQ(mkdir(states.c_str(), 0700), 0);
    const std::string follow = "--format jsonl --polls 1 --state-dir " + states + " follow";
    EXPECT_EQ(lines(tool(follow).out), 35u);
    bmc->addSelRecords({bmcsim::sampleEventLog()[21]});
    const ToolRun again = tool(follow);
    EXPECT_EQ(again.status, 0) << again.err;
    const std::vector<std::string> all = linesOf(tool("--format jsonl list").out);
    ASSERT_EQ(all.size(), 36u);
    EXPECT_EQ(again.out, all[35]);
    expectUsageError("--state-dir " + states + " list", "--state-dir goes with serve or follow");
}

TEST_F(ToolOverLanTest, FollowSaysOnceThatAHostIsDownAndKeepsTheOthers) {
    auto down = std::make_unique<bmcsim::BmcSimulator>();
    const std::string hosts = hostOf(*bmc) + "," + hostOf(*down);
    down->stop();
    const ToolRun run = tool("--format csv --interval 1 --polls 3 follow", hosts);
    EXPECT_EQ(run.status, 13);
    EXPECT_EQ(lines(run.out), 1u + 35u);  // the header once, the events there are
    EXPECT_EQ(run.err, "ipmi-event-log: cannot connect to " + hostOf(*down) +
                           ": no answer from the BMC; check the address and port, that the BMC is "
                           "powered and that IPMI over LAN is enabled on it; trying again every "
                           "1 s\n");
    expectUsageError("follow 3", "follow takes 0 argument(s)");
    expectUsageError("--interval 0 follow", "--interval must be at least 1 second");
}

// The value of one sample of a Prometheus text exposition ("" when absent).
std::string sample(const std::string& metrics, const std::string& name) {
    const std::size_t at = metrics.find("\n" + name + " ");
    if (at == std::string::npos) return "";
    const std::size_t start = at + name.size() + 2;
    return metrics.substr(start, metrics.find('\n', start) - start);
}

TEST_F(ToolOverLanTest, ServeAnswersMetricsThatAgreeWithTheSimulatorsEvents) {
    bmcsim::ScopedEnvironment password{"IPMI_PASSWORD", bmcsim::kAdministrator.password};
    bmcsim::ServerProcess server({TOOL_PATH, "-H", hostOf(*bmc), "-U", bmcsim::kAdministrator.name,
                                  "-E", "--interval", "1", "--listen", "127.0.0.1:0", "serve"},
                                 scratch.file("serve.out"), bmcsim::kServeSaysItsAddress);
    const std::string host = "{host=\"" + hostOf(*bmc) + "\"";
    const std::string critical = "ipmi_event_log_events_total" + host + ",severity=\"critical\"}";
    // /metrics once `series` is there and `done` holds for it.
    const auto metricsOnce = [&](const std::function<bool(const std::string&)>& done) {
        std::string metrics;
        bmcsim::waitUntil(
            [&] {
                metrics = shell(CURL " --silent --show-error --max-time 10 http://" +
                                server.address() + "/metrics")
                              .out;
                return !sample(metrics, critical).empty() && done(sample(metrics, critical));
            },
            std::chrono::seconds(60));
        return metrics;
    };
    // Ready once the first poll has set the host's series.
    std::string metrics = metricsOnce([](const std::string&) { return true; });
    // What list says of the same BMC: events by severity, the newest critical one's time.
    const std::string listed = tool("--format csv list").out;
    EXPECT_EQ(sample(metrics, "ipmi_event_log_up" + host + "}"), "1") << metrics;
    EXPECT_EQ(sample(metrics, "ipmi_event_log_incomplete" + host + "}"), "0");
    for (const char* severity : {"info", "warning", "critical"}) {
        EXPECT_EQ(sample(metrics,
                         "ipmi_event_log_events_total" + host + ",severity=\"" + severity + "\"}"),
                  std::to_string(countOf(listed, std::string(",") + severity + ",")))
            << severity;
    }
    EXPECT_EQ(sample(metrics, "ipmi_event_log_sel_entries_read_total" + host + "}"), "35");
    // ipmi_sim's SEL holds 4,035 records here: 35 taken, 64,000 bytes free.
    EXPECT_EQ(sample(metrics, "ipmi_event_log_sel_entries" + host + "}"), "35");
    EXPECT_EQ(sample(metrics, "ipmi_event_log_sel_free_bytes" + host + "}"), "64000");
    EXPECT_EQ(sample(metrics, "ipmi_event_log_sel_fill_ratio" + host + "}"), "0.0086741");
    EXPECT_EQ(sample(metrics, "ipmi_event_log_sel_overflow" + host + "}"), "0");
    // The newest critical event of the sample server: record 0x001d, 03/12/2015 16:58:14 UTC.
    EXPECT_EQ(
        sample(metrics, "ipmi_event_log_newest_critical_event_timestamp_seconds" + host + "}"),
        "1426179494");

    // A critical event added is counted at a later poll, with the SEL's new size.
    const std::string after = std::to_string(std::stoul(sample(metrics, critical)) + 1);
    bmc->addSelRecords({bmcsim::sampleEventLog()[21]});
    metrics = metricsOnce([&](const std::string& value) { return value == after; });
    EXPECT_EQ(sample(metrics, critical), after) << metrics;
    EXPECT_EQ(sample(metrics, "ipmi_event_log_sel_entries" + host + "}"), "36");
    EXPECT_EQ(sample(metrics, "ipmi_event_log_sel_free_bytes" + host + "}"), "63984");

    EXPECT_EQ(server.stop(), 0) << server.output();
    EXPECT_EQ(server.output(), "ipmi-event-log: serving /metrics on " + server.address() + "\n");
    EXPECT_NE(server.address(), "127.0.0.1:0");
}

}  // namespace
