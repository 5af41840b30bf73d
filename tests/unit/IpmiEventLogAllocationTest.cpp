// What the event log does when it cannot allocate its implementation or a client. Both are made
// with the non-throwing operator new, which this test program replaces so that a test can make
// the next such allocation fail.
#include <gtest/gtest.h>

#include <functional>
#include <new>

#include "BmcTest.h"
#include "IpmiEventLog.h"

namespace {

bool failNextNothrowNew = false;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (failNextNothrowNew) {
        failNextNothrowNew = false;
        return nullptr;
    }
    try {
        return ::operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

namespace {

using Tolmar::IpmiEventLog;
using Tolmar::IPMISELENTRY;
using Tolmar::TolmarConnection::ConnectionInfo;

class AllocationTest : public sim::BmcTest {};

TEST_F(AllocationTest, WithoutImplementationProbesGiveMinusOneAndRequestsInternalFailure) {
    failNextNothrowNew = true;
    IpmiEventLog log(ConnectionInfo{});
    ASSERT_FALSE(failNextNothrowNew);
    std::vector<IPMISELENTRY> entries;
    IPMISELENTRY entry{};
    EXPECT_EQ(log.GetConnectStatus(), -1);
    EXPECT_EQ(log.ResetConn(ConnectionInfo{}), -1);
    EXPECT_EQ(log.GetAllIpmiSelEntry(entries), 6);
    EXPECT_EQ(log.GetIpmiSelEntryByRecordId(1, entry), 6);
    EXPECT_EQ(log.DeleteEventLog(1), 6);
    EXPECT_EQ(log.DeleteAllEventLog(), 6);
    EXPECT_EQ(log.AddSelEntry(entry), 6);
    EXPECT_TRUE(bench.constructions().empty());
}

TEST_F(AllocationTest, AClientThatCannotBeAllocatedGivesInternalFailure) {
    IpmiEventLog log(ConnectionInfo{});
    std::vector<IPMISELENTRY> entries;
    IPMISELENTRY entry{};
    const std::function<int()> operations[] = {
        [&] { return log.GetConnectStatus(); },
        [&] { return log.GetAllIpmiSelEntry(entries); },
        [&] { return log.GetIpmiSelEntryByRecordId(1, entry); },
        [&] { return log.DeleteEventLog(1); },
        [&] { return log.DeleteAllEventLog(); },
        [&] { return log.AddSelEntry(entry); },
    };
    for (const auto& operation : operations) {
        failNextNothrowNew = true;
        EXPECT_EQ(operation(), 6);
        EXPECT_FALSE(failNextNothrowNew);
    }
    EXPECT_TRUE(bench.constructions().empty());
    EXPECT_TRUE(bench.events().empty());
}

}  // namespace
