// 1,000 consecutive calls of each public operation against ipmi_sim: resident memory and open file
// descriptors do not grow, and no session stays open on the BMC. The connection probe is the
// exception by design: it keeps its client and session, so it is checked for exactly that.
#include <gtest/gtest.h>

#include <dirent.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <functional>

#include "IpmiEventLog.h"
#include "LanFixture.h"

namespace {

using Tolmar::IpmiEventLog;
using Tolmar::IPMISELENTRY;
using Tolmar::TolmarAgentless::IPMIEVENT;

constexpr int kCalls = 1000;

long residentKilobytes() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    }
    return -1;
}

int openDescriptors() {
    int count = 0;
    DIR* fds = opendir("/proc/self/fd");
    while (readdir(fds) != nullptr) ++count;
    closedir(fds);
    return count;
}

class LongRunTest : public bmcsim::LanTest {
protected:
    void SetUp() override {
        LanTest::SetUp();
        const auto sel = bmcsim::sampleEventLog();
        bmc->addSelRecords({sel.begin(), sel.begin() + 3});
    }

    int activeSessions() const { return bmcsim::activeSessions(bmc->port()); }

    // Runs `call` kCalls times after a warm-up; memory may grow by allocator noise only.
    void expectSteady(const std::function<int(IpmiEventLog&)>& call, int expectedResult = 0) {
        IpmiEventLog log(connection());
        for (int i = 0; i < 20; ++i) call(log);
        const long memoryBefore = residentKilobytes();
        const int descriptorsBefore = openDescriptors();
        const int sessionsBefore = activeSessions();
        for (int i = 0; i < kCalls; ++i) ASSERT_EQ(call(log), expectedResult) << "call " << i;
        EXPECT_LE(residentKilobytes() - memoryBefore, 1024) << "kilobytes resident";
        EXPECT_EQ(openDescriptors(), descriptorsBefore);
        EXPECT_EQ(activeSessions(), sessionsBefore);
    }
};

TEST_F(LongRunTest, GetAllIpmiEventLog) {
    expectSteady([](IpmiEventLog& log) {
        std::vector<IPMIEVENT> events;
        return log.GetAllIpmiEventLog(events);
    });
}

TEST_F(LongRunTest, GetIpmiEventLogByRecordId) {
    expectSteady([](IpmiEventLog& log) {
        IPMIEVENT event;
        return log.GetIpmiEventLogByRecordId(2, event);
    });
}

TEST_F(LongRunTest, GetAllIpmiSelEntry) {
    expectSteady([](IpmiEventLog& log) {
        std::vector<IPMISELENTRY> entries;
        return log.GetAllIpmiSelEntry(entries);
    });
}

TEST_F(LongRunTest, GetIpmiSelEntryByRecordId) {
    expectSteady([](IpmiEventLog& log) {
        IPMISELENTRY entry;
        return log.GetIpmiSelEntryByRecordId(1, entry);
    });
}

TEST_F(LongRunTest, AddThenDeleteSelEntry) {
    // Each call adds a record and deletes the one it added, so the SEL keeps its size.
    expectSteady([](IpmiEventLog& log) {
        IPMISELENTRY entry{};
        entry.recordType = 0x02;
        const int added = log.AddSelEntry(entry);
        std::vector<IPMISELENTRY> entries;
        log.GetAllIpmiSelEntry(entries);
        const IPMISELENTRY& last = entries.back();
        return added + log.DeleteEventLog(last.recordId[0] | last.recordId[1] << 8);
    });
}

TEST_F(LongRunTest, DeleteAllEventLog) {
    expectSteady([](IpmiEventLog& log) { return log.DeleteAllEventLog(); });
}

TEST_F(LongRunTest, ConnectionProbeKeepsOneSessionAndClientPerCall) {
    // By design the probe neither disconnects nor deletes its client: each call keeps a session
    // (and its socket) open, until the BMC runs out of sessions for the user.
    IpmiEventLog log(connection());
    const int descriptorsBefore = openDescriptors();
    const int sessionsBefore = activeSessions();
    for (int i = 0; i < 5; ++i) ASSERT_EQ(log.GetConnectStatus(), 0);
    EXPECT_EQ(openDescriptors(), descriptorsBefore + 5);
    EXPECT_EQ(activeSessions(), sessionsBefore + 5);
}

}  // namespace
