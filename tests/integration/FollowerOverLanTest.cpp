// IpmiEventFollower against ipmi_sim over RMCP+: its polls give what the whole log gives, an idle
// poll and one with a new record cost the datagrams they should (counted on the wire by the
// forwarder), and a cleared SEL and a changed SDR repository are noticed.
#include <gtest/gtest.h>

#include <algorithm>

#include "EventAssertions.h"
#include "IpmiEventFollower.h"
#include "IpmiEventLog.h"
#include "LanFixture.h"
#include "LossyLink.h"

namespace {

using Tolmar::IpmiEventFollower;
using Tolmar::IpmiEventLog;
using Tolmar::PollResult;
using Tolmar::TolmarAgentless::IPMIEVENT;

class FollowerOverLanTest : public bmcsim::LanTest {
protected:
    void SetUp() override {
        LanTest::SetUp();
        bmc->setEventFilters(bmcsim::sampleEventFilters());
        bmc->addSelRecords(bmcsim::sampleEventLog());
        link = std::make_unique<bmcsim::LossyLink>(bmc->port(), bmcsim::LinkFaults{});
    }

    Tolmar::TolmarConnection::ConnectionInfo throughLink() const {
        Tolmar::TolmarConnection::ConnectionInfo info = connection();
        info.port = link->port();
        return info;
    }

    std::vector<IPMIEVENT> wholeLog() const {
        std::vector<IPMIEVENT> events;
        EXPECT_EQ(IpmiEventLog(connection()).GetAllIpmiEventLog(events), 0);
        return events;
    }

    // One poll; the datagrams the client sent for it.
    unsigned long poll(IpmiEventFollower& follower, std::vector<IPMIEVENT>& events) {
        const unsigned long before = link->clientDatagrams();
        last = follower.Poll(events);
        EXPECT_EQ(last.result, 0);
        return link->clientDatagrams() - before;
    }

    std::unique_ptr<bmcsim::LossyLink> link;  // the client's path to the BMC, counted
    PollResult last;                          // of the last poll
};

TEST_F(FollowerOverLanTest, PollsGiveTheWholeLogThenOnlyWhatIsNewForFewDatagrams) {
    IpmiEventFollower follower(throughLink());
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    const std::vector<IPMIEVENT> all = wholeLog();
    sim::expectSameEvents(events, all);

    // Open Session, RAKP 1 and 3, Set Session Privilege Level, Get SEL Info, Close Session (Get
    // Channel Authentication Capabilities went with the first session to this BMC).
    events.clear();
    EXPECT_EQ(poll(follower, events), 6ul);
    EXPECT_TRUE(events.empty());

    const auto sample = bmcsim::sampleEventLog();
    bmc->addSelRecords({sample[21]});
    const unsigned long datagrams = poll(follower, events);
    EXPECT_LE(datagrams, 1ul + 25ul);
    const std::vector<IPMIEVENT> now = wholeLog();
    ASSERT_EQ(now.size(), all.size() + 1);
    sim::expectSameEvents(events, {now.back()});
}

TEST_F(FollowerOverLanTest, AClearedSelIsNoticed) {
    IpmiEventFollower follower(throughLink());
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    ASSERT_EQ(IpmiEventLog(connection()).DeleteAllEventLog(), 0);
    const auto sample = bmcsim::sampleEventLog();
    bmc->addSelRecords({sample[0], sample[1]});
    events.clear();
    poll(follower, events);
    EXPECT_TRUE(last.restarted);
    sim::expectSameEvents(events, wholeLog());
}

TEST_F(FollowerOverLanTest, AChangedSdrRepositoryIsReadAgainToDecodeNewRecords) {
    IpmiEventFollower follower(throughLink());
    std::vector<IPMIEVENT> events;
    poll(follower, events);
    // The BMC comes back from a firmware update with CPU 1's temperature sensor renamed and its
    // OEM record gone; its SEL is as it was.
    std::vector<bmcsim::SdrRecord> sdrs = bmcsim::sampleSdrRepository();
    const std::string before = "CPU1 Temp";
    auto name = std::search(sdrs[1].begin(), sdrs[1].end(), before.begin(), before.end());
    ASSERT_NE(name, sdrs[1].end());
    std::copy_n("CPU1 Core", before.size(), name);
    sdrs.pop_back();
    bmc->restart(bmcsim::sdrCommands(sdrs));
    constexpr unsigned char cpu1Temperature = 0x30;
    const auto sample = bmcsim::sampleEventLog();
    const auto event = std::find_if(sample.begin(), sample.end(), [](const bmcsim::SelRecord& r) {
        return r[11] == cpu1Temperature;
    });
    ASSERT_NE(event, sample.end());
    bmc->addSelRecords({*event});
    events.clear();
    poll(follower, events);
    const std::vector<IPMIEVENT> all = wholeLog();
    ASSERT_EQ(events.size(), 1u);
    sim::expectSameEvents(events, {all.back()});
    EXPECT_NE(events[0].message.find("CPU1 Core"), std::string::npos) << events[0].message;
}

}  // namespace
