// What the library adds beyond its three platform classes, on a framework that offers none of it
// (no PlatformExtensions): each addition says so, and nothing is done with settings it cannot give.
#include <gtest/gtest.h>

#include <vector>

#include "BmcTest.h"
#include "IpmiConnectionSettings.h"
#include "IpmiEventFollower.h"
#include "IpmiEventLog.h"
#include "SmallBmc.h"

namespace {

using Tolmar::ConnectionScope;
using Tolmar::ConnectionSettings;
using Tolmar::IpmiEventLog;

const char* const kNoSettings =
    "the framework's IPMI client takes no connection settings: connect without them";

ConnectionSettings operatorLevel() {
    ConnectionSettings settings;
    settings.privilege = ConnectionSettings::Privilege::Operator;
    return settings;
}

class AdditionsUnavailableTest : public sim::BmcTest {
protected:
    void SetUp() override {
        BmcTest::SetUp();
        sim::stockSmallBmc(bmc);
    }
};

TEST_F(AdditionsUnavailableTest, CountsWorkaroundsAndTheLogLevelSayTheyAreNotAvailable) {
    const Tolmar::ClientActivity activity = Tolmar::GetClientActivity();
    EXPECT_FALSE(activity.available);
    EXPECT_EQ(activity.requestsSent, 0u);
    EXPECT_EQ(activity.selEntriesRead, 0u);
    EXPECT_TRUE(Tolmar::WorkaroundNames().empty());
    EXPECT_FALSE(Tolmar::SetLogLevel(4));
    EXPECT_EQ(Log::GetMinLogLevel(), 1);
}

TEST_F(AdditionsUnavailableTest, AScopeWithoutSettingsReadsAsDescribedAndReportsNothing) {
    const ConnectionScope scope({});
    std::vector<Tolmar::IPMISELENTRY> entries;
    EXPECT_EQ(IpmiEventLog(sim::lanConnection()).GetAllIpmiSelEntry(entries), 0);
    EXPECT_EQ(entries.size(), 3u);
    EXPECT_FALSE(scope.LastCall().available);
    EXPECT_EQ(scope.LastCall().selEntriesRead, 0u);
    EXPECT_EQ(scope.LastCall().connectFailure, "");
}

TEST_F(AdditionsUnavailableTest, SettingsThatCannotBeGivenFailTheConnectionWithoutAClient) {
    const ConnectionScope scope(operatorLevel());
    IpmiEventLog log(sim::lanConnection());
    EXPECT_EQ(log.DeleteEventLog(0x0001), IpmiEventLog::EL_CONNECTION_FAIL);
    EXPECT_EQ(scope.LastCall().connectFailure, kNoSettings);
    EXPECT_FALSE(scope.LastCall().available);
    std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
    EXPECT_EQ(log.GetAllIpmiEventLog(events), IpmiEventLog::EL_CONNECTION_FAIL);
    EXPECT_EQ(logText(),
              "[1] ipmi_event_log/IpmiEventLogImp:224 GetAllIpmiEventLog "
              "IpmiEventLog::EL_CONNECTION_FAIL\n");
    EXPECT_EQ(log.GetConnectStatus(), 1);
    EXPECT_TRUE(bench.constructions().empty());
    EXPECT_EQ(bmc.selRecords().size(), 3u);
}

TEST_F(AdditionsUnavailableTest, AFollowerReadsWithoutSettingsAndRefusesThoseItCannotGive) {
    std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
    Tolmar::IpmiEventFollower follower(sim::lanConnection());
    const Tolmar::PollResult first = follower.Poll(events);
    EXPECT_EQ(first.result, IpmiEventLog::EL_SUCCESS);
    EXPECT_TRUE(first.complete);
    EXPECT_EQ(events.size(), 3u);
    EXPECT_FALSE(first.call.available);

    follower.SetSettings(operatorLevel());
    const Tolmar::PollResult refused = follower.Poll(events);
    EXPECT_EQ(refused.result, IpmiEventLog::EL_CONNECTION_FAIL);
    EXPECT_EQ(refused.failure, kNoSettings);
    EXPECT_EQ(events.size(), 3u);
}

TEST_F(AdditionsUnavailableTest, AFollowersFailureCountsTheRecordsItReadItself) {
    // Get SEL Info, the first record, then the second refused.
    bench.injectFault(3, sim::Fault::completion(0xC0));
    std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
    Tolmar::IpmiEventFollower follower(sim::lanConnection());
    const Tolmar::PollResult poll = follower.Poll(events);
    EXPECT_FALSE(poll.complete);
    EXPECT_EQ(poll.failure,
              "the BMC answered Get SEL Entry with C0h (node busy) after 1 SEL entries");
    EXPECT_EQ(events.size(), 1u);
}

}  // namespace
