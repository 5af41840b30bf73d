// ConnectionScope: the settings of the calls a thread makes while it lives, nested scopes, other
// threads untouched, and what the last call met.
#include <gtest/gtest.h>

#include <optional>
#include <thread>

#include "BmcTest.h"
#include "IpmiConnectionSettings.h"
#include "IpmiEventLog.h"
#include "SmallBmc.h"

namespace {

using Tolmar::ConnectionScope;
using Tolmar::ConnectionSettings;
using Tolmar::IpmiEventLog;

ConnectionSettings withSuite(std::uint16_t suite) {
    ConnectionSettings settings;
    settings.cipherSuite = suite;
    return settings;
}

TEST(ConnectionScopeTest, OutsideEveryScopeNothingIsSet) {
    const ConnectionSettings current = ConnectionScope::Current();
    EXPECT_FALSE(current.cipherSuite || current.privilege || current.bmcKey ||
                 current.allowCipherSuiteZero || current.sessionTimeout ||
                 current.retransmissionTimeout);
}

TEST(ConnectionScopeTest, TheInnermostScopeCountsUntilItEnds) {
    const ConnectionScope outer(withSuite(17));
    {
        const ConnectionScope inner(withSuite(3));
        EXPECT_EQ(ConnectionScope::Current().cipherSuite, 3);
    }
    EXPECT_EQ(ConnectionScope::Current().cipherSuite, 17);
}

TEST(ConnectionScopeTest, AnotherThreadKeepsItsOwn) {
    const ConnectionScope scope(withSuite(17));
    std::optional<std::uint16_t> elsewhere = 0;
    std::thread([&elsewhere] { elsewhere = ConnectionScope::Current().cipherSuite; }).join();
    EXPECT_FALSE(elsewhere.has_value());
}

TEST(ConnectionScopeTest, OurFrameworkOffersTheAdditions) {
    EXPECT_TRUE(Tolmar::GetClientActivity().available);
    EXPECT_FALSE(Tolmar::WorkaroundNames().empty());
    EXPECT_TRUE(Tolmar::SetLogLevel(1));
}

class ConnectionScopeReportTest : public sim::BmcTest {
protected:
    void SetUp() override {
        BmcTest::SetUp();
        sim::stockSmallBmc(bmc);
    }
};

TEST_F(ConnectionScopeReportTest, TheScopeKeepsWhatTheLastCallMet) {
    const ConnectionScope scope({});
    IpmiEventLog log(sim::lanConnection());
    std::vector<Tolmar::IPMISELENTRY> entries;
    ASSERT_EQ(log.GetAllIpmiSelEntry(entries), 0);
    EXPECT_EQ(entries.size(), 3u);
    EXPECT_TRUE(scope.LastCall().available);
    EXPECT_EQ(scope.LastCall().selEntriesRead, 3u);
    EXPECT_EQ(scope.LastCall().requestsUnanswered, 0u);
    EXPECT_EQ(scope.LastCall().refusal, "");
    // Reserve SEL, then Delete SEL Entry, refused.
    bench.injectFault(bench.requests().size() + 2, sim::Fault::completion(0xD4));
    EXPECT_EQ(log.DeleteEventLog(1), IpmiEventLog::EL_INTERNAL_FAIL);
    EXPECT_EQ(scope.LastCall().selEntriesRead, 0u);
    EXPECT_EQ(scope.LastCall().refusedCompletionCode, 0xD4);
    EXPECT_EQ(scope.LastCall().refusal, "the BMC answered D4h (insufficient privilege level)");
}

}  // namespace
