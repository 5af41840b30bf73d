// The decoded event log over a poor network path and from a BMC that dies part way: datagrams lost
// and delayed by a forwarder of the test's own, and the simulator killed in the middle of a read.
#include <gtest/gtest.h>

#include <chrono>

#include "EventAssertions.h"
#include "IpmiClientActivity.h"
#include "IpmiEventLog.h"
#include "LanFixture.h"
#include "LossyLink.h"

namespace {

using Tolmar::IpmiEventLog;
using Tolmar::TolmarAgentless::IPMIEVENT;
using namespace std::chrono_literals;

std::unique_ptr<bmcsim::BmcSimulator> sampleBmc() {
    return bmcsim::sampleServerBmc(bmcsim::sampleEventLog());
}

std::vector<IPMIEVENT> readLog(unsigned short port, int expectedResult = 0) {
    IpmiEventLog log(bmcsim::administratorConnection(port));
    std::vector<IPMIEVENT> events;
    EXPECT_EQ(log.GetAllIpmiEventLog(events), expectedResult);
    return events;
}

class NetworkFaultTest : public ::testing::Test {
protected:
    void SetUp() override {
        bmc = sampleBmc();
        cleanRead = readLog(bmc->port());
        ASSERT_EQ(cleanRead.size(), bmcsim::sampleEventLog().size());
    }

    // Lost datagrams are sent again after the retransmission interval.
    bmcsim::ScopedEnvironment retransmission{"TOLMAR_IPMI_RETRANSMISSION_TIMEOUT_MS", "200"};
    bmcsim::ScopedEnvironment timeout{"TOLMAR_IPMI_SESSION_TIMEOUT_MS", "2000"};
    std::unique_ptr<bmcsim::BmcSimulator> bmc;
    std::vector<IPMIEVENT> cleanRead;
};

TEST_F(NetworkFaultTest, OnePercentLossAndOneMillisecondGiveTheSameEvents) {
    bmcsim::LossyLink link(bmc->port(), 0.01, 1ms);
    const std::vector<IPMIEVENT> events = readLog(link.port());
    sim::expectSameEvents(events, cleanRead);
}

TEST_F(NetworkFaultTest, TenPercentLossGivesTheSameEvents) {
    bmcsim::LossyLink link(bmc->port(), 0.10, 1ms);
    const std::vector<IPMIEVENT> events = readLog(link.port());
    EXPECT_GT(link.dropped(), 0ul);
    sim::expectSameEvents(events, cleanRead);
}

TEST_F(NetworkFaultTest, BmcKilledPartWayKeepsTheEventsReadAndARestartedOneIsReadAgain) {
    bmcsim::LossyLink link(bmc->port(), 0.0, 0us);
    // The session takes its first datagrams; 30 lands in the middle of the SEL.
    constexpr unsigned long killedAt = 30;
    link.afterClientDatagrams(killedAt, [this] { bmc->stop(); });
    startIpmiCallRecord();
    const std::vector<IPMIEVENT> events = readLog(link.port());
    // The link stops the BMC before it forwards datagram 30. That request waits out the 2 s
    // session timeout, sent again every 200 to 500 ms (twice the last round trip where that is
    // longer, at most a quarter of the timeout): at most 9 times, and at least once on a machine
    // too loaded to keep time. The reads after it (the rest of the SEL, filters, SDRs, auxiliary
    // log) fail at once without sending, and Close Session goes once, unanswered.
    link.catchUp();
    const unsigned long after = link.clientDatagrams() - killedAt;
    EXPECT_GE(after, 1u + 1u);
    EXPECT_LE(after, 9u + 1u);
    const IpmiCallRecord record = ipmiCallRecord();
    EXPECT_GT(record.transportFailures, 1u);
    EXPECT_EQ(record.selEntries, events.size());
    EXPECT_GT(events.size(), 0u);
    EXPECT_LT(events.size(), cleanRead.size());
    for (const IPMIEVENT& event : events) EXPECT_EQ(event.severity, 0);  // the filters were lost
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i].recordId, cleanRead[i].recordId);
        EXPECT_EQ(events[i].timeStamp, cleanRead[i].timeStamp);
    }

    bmc = sampleBmc();
    EXPECT_EQ(readLog(bmc->port()).size(), cleanRead.size());
}

}  // namespace
