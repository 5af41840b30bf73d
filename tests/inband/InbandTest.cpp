// The in-band path read for real: a Linux guest in QEMU, whose KCS system interface reaches an
// ipmi_sim on this machine through QEMU's external BMC device, runs the tool and the example
// program through the kernel's IPMI driver (no -H). What it reads and changes equals what this
// machine reads and changes over RMCP+ in a twin simulator; a BMC killed part way through an
// in-band read gives what was read, reported as on the LAN, within the session timeout.
#include <gtest/gtest.h>

#include <signal.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <regex>

#include "BmcSimulator.h"
#include "GuestMachine.h"
#include "SampleServer.h"
#include "ToolRun.h"

namespace {

using bmcsim::BmcSimulator;
using bmcsim::GuestMachine;
using namespace std::chrono_literals;

// The guest boots in seconds with KVM, in tens of seconds without.
constexpr auto kGuestTimeout = 600s;

std::unique_ptr<BmcSimulator> sampleBmc(const std::vector<bmcsim::SelRecord>& events) {
    return bmcsim::sampleServerBmc(events, bmcsim::Interfaces::LanAndVm);
}

// Each step: its name, then the tool's arguments ("" runs the example program instead).
struct Step {
    const char* name;
    const char* arguments;
};

// Reads, then every change, each followed by a read that shows it. The added records are OEM
// records without a time stamp (types E0h-FFh), which the BMC keeps as given: the twin
// simulators hold the same bytes.
const Step kSteps[] = {
    {"status", "status"},
    {"list", "--format jsonl list"},
    {"raw", "raw"},
    {"get", "get 4"},
    {"show", "--format jsonl show 22"},
    {"example", ""},
    {"add", "add 'e0 00 e0 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d'"},
    {"rawAfterAdd", "raw"},
    {"delete", "delete 4"},
    {"rawAfterDelete", "raw"},
    {"getDeleted", "get 4"},
    {"clear", "clear"},
    {"rawAfterClear", "raw"},
    {"addAfterClear", "add '00 00 f1 aa bb cc dd ee ff 00 11 22 33 44 55 66'"},
    {"rawAtTheEnd", "raw"},
};

// The first match of `pattern` in `text`, or an empty match.
std::smatch match(const std::string& text, const std::string& pattern) {
    std::smatch found;
    std::regex_search(text, found, std::regex(pattern));
    return found;
}

class InbandTest : public ::testing::Test {
protected:
    static std::string guestCommand(const Step& step) {
        return step.arguments[0] == '\0' ? "print_event_log"
                                         : std::string("ipmi-event-log ") + step.arguments;
    }

    // The same step from this machine over RMCP+.
    bmcsim::ToolRun overLan(const BmcSimulator& bmc, const Step& step) const {
        const std::string host = BmcSimulator::host();
        const std::string port = std::to_string(bmc.port());
        const std::string command =
            step.arguments[0] == '\0' ? std::string(EXAMPLE_PATH) + " " + host + " " + port + " " +
                                            bmcsim::kAdministrator.name
                                      : std::string(TOOL_PATH " -H ") + host + ":" + port + " -U " +
                                            bmcsim::kAdministrator.name + " -E " + step.arguments;
        return bmcsim::runShell(
            "IPMI_PASSWORD='" + std::string(bmcsim::kAdministrator.password) + "' " + command,
            scratch);
    }

    // Over the LAN the tool names its host ("127.0.0.1:PORT") where in band it names the local
    // BMC: "the local BMC" in messages, "" in JSON.
    static std::string asInBand(const std::string& text, const BmcSimulator& bmc) {
        const std::string host =
            std::string(BmcSimulator::host()) + ":" + std::to_string(bmc.port());
        std::string result;
        for (std::size_t at = 0;;) {
            const std::size_t found = text.find(host, at);
            result += text.substr(at, found - at);
            if (found == std::string::npos) return result;
            const bool inJson = found >= 8 && text.compare(found - 8, 8, "\"host\":\"") == 0;
            result += inJson ? "" : "the local BMC";
            at = found + host.size();
        }
    }

    bmcsim::ScratchDirectory scratch;
};

TEST_F(InbandTest, TheGuestReadsAndChangesInBandWhatThisMachineDoesOverTheLan) {
    const auto inband = sampleBmc(bmcsim::sampleEventLog());
    std::string commands;
    for (const Step& step : kSteps)
        commands += "run " + std::string(step.name) + " " + guestCommand(step) + "\n";
    GuestMachine guest(inband->vmPort(), commands, {TOOL_PATH, EXAMPLE_PATH});
    ASSERT_TRUE(guest.finish(kGuestTimeout)) << guest.log() << guest.console();
    const auto results = guest.results();
    std::printf("%s", guest.log().c_str());

    const auto lan = sampleBmc(bmcsim::sampleEventLog());
    for (const Step& step : kSteps) {
        SCOPED_TRACE(step.name);
        const auto found = results.find(step.name);
        ASSERT_NE(found, results.end()) << guest.log();
        const GuestMachine::Result& guestRun = found->second;
        const bmcsim::ToolRun lanRun = overLan(*lan, step);
        EXPECT_EQ(guestRun.status, lanRun.status);
        EXPECT_EQ(guestRun.out, asInBand(lanRun.out, *lan));
        EXPECT_EQ(guestRun.err, asInBand(lanRun.err, *lan));
    }
    // What the steps amount to, read in band.
    const auto lines = [](const std::string& text) {
        return std::count(text.begin(), text.end(), '\n');
    };
    EXPECT_EQ(results.at("status").out, "the local BMC: connected\n");
    EXPECT_EQ(lines(results.at("list").out), 35);
    EXPECT_EQ(lines(results.at("rawAfterAdd").out), 36);
    EXPECT_EQ(lines(results.at("rawAfterDelete").out), 35);
    EXPECT_EQ(results.at("getDeleted").status, 16);
    EXPECT_NE(results.at("getDeleted").err.find("CBh"), std::string::npos)
        << results.at("getDeleted").err;
    EXPECT_EQ(results.at("rawAfterClear").out, "");
    EXPECT_EQ(lines(results.at("rawAtTheEnd").out), 1);
    EXPECT_NE(results.at("rawAtTheEnd").out.find("f1 aa bb cc dd ee ff 00 11 22 33 44 55 66"),
              std::string::npos);
    // The guest's changes were made on its BMC: this machine reads the same SEL there.
    EXPECT_EQ(results.at("rawAtTheEnd").out,
              asInBand(overLan(*inband, {"raw", "raw"}).out, *inband));
}

// A BMC that goes away part way through an in-band read of 3,900 records (ipmi_sim's SEL holds
// up to 4,000), once the guest has made 100 transactions with it: a few open the read (device,
// SEL info, reservation), the rest are Get SEL Entry, one a record. The records read before are
// printed, the read is reported incomplete as on the LAN, and the call ends within the session
// timeout.
void expectAnIncompleteReadWhenTheBmcGoes(const std::function<void(BmcSimulator&)>& goAway) {
    const auto bmc = sampleBmc(bmcsim::repeatedEventLog(3900));
    GuestMachine guest(bmc->vmPort(), "run list ipmi-event-log --format jsonl list\n", {TOOL_PATH});
    ASSERT_TRUE(guest.waitForTransactions("list", 100, kGuestTimeout))
        << guest.log() << guest.console();
    goAway(*bmc);
    ASSERT_TRUE(guest.finish(kGuestTimeout)) << guest.log() << guest.console();
    std::printf("%s", guest.log().c_str());

    const GuestMachine::Result list = guest.results().at("list");
    EXPECT_EQ(list.status, 3);
    // No answer (C3h, D2h, or the driver giving up late), or FFh, which the guest's KCS driver
    // also answers for a transaction that ended with a response too short to hold a completion
    // code (after its error recovery): in band, not to be told from the BMC's own.
    const std::smatch said =
        match(list.err,
              "ipmi-event-log: the local BMC: incomplete: (?:BMC stopped answering|the BMC "
              "answered Get SEL Entry with FFh \\(unspecified error\\)) after ([0-9]+) SEL "
              "entries; severities, sensor names and auxiliary details may be missing\n");
    ASSERT_FALSE(said.empty()) << list.err;
    const long read = std::stol(said[1]);
    EXPECT_GT(read, 0);
    EXPECT_LT(read, 3900);
    EXPECT_EQ(std::count(list.out.begin(), list.out.end(), '\n'), read);
    EXPECT_EQ(bmcsim::countOf(list.out, "\"complete\":false"), static_cast<std::size_t>(read));
    // Whichever gave up first answered for the BMC: QEMU's device 4 s after the BMC went away
    // (C3h), or the guest's KCS driver after its own retries (FFh, "hosed"). Either way the call
    // ends within the default session timeout after that, asking the interface nothing more.
    const std::smatch hosed = match(guest.log(), "(?:^|\n)list hosed after ([0-9.]+) s\n");
    const double wentAwayAfter = guest.transactionsReachedAfter("list", 100).value_or(0.0);
    const double answeredAfter = hosed.empty() ? wentAwayAfter : std::stod(hosed[1]);
    const std::smatch took = match(guest.log(), "(?:^|\n)list took ([0-9.]+) s\n");
    ASSERT_FALSE(took.empty()) << guest.log();
    EXPECT_LT(std::stod(took[1]), answeredAfter + 10.0) << guest.log();
}

TEST_F(InbandTest, ABmcKilledPartWayThroughAnInBandReadIsReportedAsOnTheLan) {
    // QEMU's external BMC device answers D2h for a BMC whose connection closed.
    expectAnIncompleteReadWhenTheBmcGoes([](BmcSimulator& bmc) { bmc.stop(); });
}

TEST_F(InbandTest, ABmcThatFreezesPartWayThroughAnInBandReadIsReportedAsOnTheLan) {
    // Nothing answers: QEMU's device answers C3h in the BMC's place, or, when the guest's KCS
    // driver times out first, the driver answers FFh.
    expectAnIncompleteReadWhenTheBmcGoes([](BmcSimulator& bmc) { kill(bmc.pid(), SIGSTOP); });
}

}  // namespace
