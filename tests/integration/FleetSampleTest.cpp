// One BMC of the simulated fleet against ipmi_sim, both holding the sample server's SEL, SDRs, PEF
// filters and auxiliary log: the tool reads the same from each, byte for byte. What is compared is
// what does not depend on when the BMC was started or where it listens: the decoded events (their
// time stamps are the records' own; the host each line names is left out), the raw SEL entries, and
// Get SEL Info's record count, free space and overflow flag (its addition and erase stamps are each
// BMC's clock). A silent BMC of the fleet fails as a BMC that is down does.
#include <gtest/gtest.h>

#include <IpmiEventFollower.h>

#include <string>
#include <vector>

#include "BmcFleet.h"
#include "BmcSimulator.h"
#include "ToolRun.h"

namespace {

class FleetSampleTest : public ::testing::Test {
protected:
    static std::string hostOf(unsigned short port) { return "127.0.0.1:" + std::to_string(port); }

    // The tool as the administrator of `host`, a second the session timeout.
    bmcsim::ToolRun tool(const std::string& host, const std::string& arguments) const {
        return bmcsim::runShell("IPMI_PASSWORD='" + std::string(bmcsim::kAdministrator.password) +
                                    "' TOLMAR_IPMI_SESSION_TIMEOUT_MS=1000 " TOOL_PATH " -H " +
                                    host + " -U " + bmcsim::kAdministrator.name + " -E " +
                                    arguments,
                                scratch);
    }

    // The tool's output with `host`, which JSON lines name, as "HOST".
    static std::string withoutHost(std::string output, const std::string& host) {
        for (std::size_t at = output.find(host); at != std::string::npos;
             at = output.find(host, at))
            output.replace(at, host.size(), "HOST");
        return output;
    }

    static Tolmar::SelHealth selInfoOf(unsigned short port) {
        Tolmar::IpmiEventFollower follower(bmcsim::administratorConnection(port));
        std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
        return follower.Poll(events).sel;
    }

    bmcsim::ScratchDirectory scratch;
    std::unique_ptr<bmcsim::BmcSimulator> ipmiSim =
        bmcsim::sampleServerBmc(bmcsim::sampleEventLog());
    bmcsim::BmcFleet fleet{bmcsim::FleetSettings{2, 1, 0, 1}};
    std::string ipmiSimHost = hostOf(ipmiSim->port());
    std::string fleetHost = hostOf(fleet.port(0));
};

TEST_F(FleetSampleTest, ReadsTheSameEventsAsFromIpmiSim) {
    for (const char* command : {"raw", "--format jsonl list", "--format jsonl --wide list"}) {
        const bmcsim::ToolRun expected = tool(ipmiSimHost, command);
        ASSERT_EQ(expected.status, 0) << command << ": " << expected.err;
        EXPECT_EQ(bmcsim::countOf(expected.out, "\n"), 35u) << command;
        const bmcsim::ToolRun fromFleet = tool(fleetHost, command);
        EXPECT_EQ(fromFleet.status, 0) << command << ": " << fromFleet.err;
        EXPECT_EQ(withoutHost(fromFleet.out, fleetHost), withoutHost(expected.out, ipmiSimHost))
            << command;
    }
}

TEST_F(FleetSampleTest, TellsTheSameSelInfoAsIpmiSim) {
    const Tolmar::SelHealth expected = selInfoOf(ipmiSim->port());
    const Tolmar::SelHealth fromFleet = selInfoOf(fleet.port(0));
    ASSERT_TRUE(expected.known);
    EXPECT_TRUE(fromFleet.known);
    EXPECT_EQ(fromFleet.entries, expected.entries);
    EXPECT_EQ(fromFleet.freeBytes, expected.freeBytes);
    EXPECT_EQ(fromFleet.overflow, expected.overflow);
}

TEST_F(FleetSampleTest, ASilentBmcFailsAsOneThatIsDown) {
    const bmcsim::ToolRun run = tool(hostOf(fleet.port(1)), "raw");
    EXPECT_NE(run.status, 0);
    EXPECT_EQ(run.out, "");
}

}  // namespace
