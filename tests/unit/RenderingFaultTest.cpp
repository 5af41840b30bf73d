// IpmiExceptions raised where GetAllIpmiEventLog reports and renders, through a Log that fails on
// request: the events appended before the failure stay and the result says where it arose.
#include <gtest/gtest.h>

#include "BmcTest.h"
#include "IpmiEventLog.h"
#include "ScriptedLog.h"

namespace {

using sim::ClientCall;
using sim::ClientEvent;
using sim::selRecord;
using Tolmar::IpmiEventLog;
using Tolmar::TolmarAgentless::IPMIEVENT;
using Tolmar::TolmarConnection::ConnectionInfo;

const char* const kBuilder = "ipmi_event_log/IpmiEventBuilder";
const char* const kEventLog = "ipmi_event_log/IpmiEventLogImp";

std::vector<ClientEvent> session(std::initializer_list<ClientCall> calls) {
    std::vector<ClientEvent> events;
    for (ClientCall call : calls) events.push_back({call, 1});
    return events;
}

class RenderingFaultTest : public sim::BmcTest {
protected:
    void SetUp() override {
        BmcTest::SetUp();
        // Three processor events, none with an SDR: each is built by the variant without one.
        for (unsigned id = 1; id <= 3; ++id) {
            bmc.storeSelRecord(
                selRecord(id, {0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x07, 0x71, 0x6F,
                               static_cast<unsigned char>(id), 0xFF, 0xFF}));
        }
        Log::SetMinLogLevel(4);  // the lines that fail are traces
    }

    int readAll(std::vector<IPMIEVENT>& events) {
        IpmiEventLog log(sim::lanConnection());
        return log.GetAllIpmiEventLog(events);
    }
};

TEST_F(RenderingFaultTest, ExceptionInsideTheSecondBuildKeepsTheFirstEvent) {
    sim::throwFromLog(kBuilder, 89, 2);
    std::vector<IPMIEVENT> events;
    EXPECT_EQ(readAll(events), 0);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].recordId, 1ul);
    // Disconnected after the reads, and again by the handler.
    EXPECT_EQ(bench.events(),
              session({ClientCall::Construct, ClientCall::Connect, ClientCall::Disconnect,
                       ClientCall::Disconnect, ClientCall::Delete}));
}

TEST_F(RenderingFaultTest, ExceptionBeforeTheThirdBuildKeepsTwoEvents) {
    sim::throwFromLog(kEventLog, 200, 3);
    std::vector<IPMIEVENT> events;
    EXPECT_EQ(readAll(events), 0);
    EXPECT_EQ(events.size(), 2u);
}

TEST_F(RenderingFaultTest, ExceptionWhileTracingTheReadsGivesSuccessWithoutEvents) {
    sim::throwFromLog(kEventLog, 134, 2);
    std::vector<IPMIEVENT> events;
    EXPECT_EQ(readAll(events), 0);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(bench.events(), session({ClientCall::Construct, ClientCall::Connect,
                                       ClientCall::Disconnect, ClientCall::Delete}));
}

TEST_F(RenderingFaultTest, ExceptionWhileReportingAFailedConnectGivesThatConnectsResult) {
    for (const auto& [status, result, line] : {std::tuple{2, 4, 221}, std::tuple{9, 3, 224}}) {
        bench.reset(bmc);
        bench.setConnectStatus(status);
        sim::throwFromLog(kEventLog, line, 1);
        std::vector<IPMIEVENT> events;
        EXPECT_EQ(readAll(events), result);
        EXPECT_EQ(bench.events(), session({ClientCall::Construct, ClientCall::Connect,
                                           ClientCall::Disconnect, ClientCall::Delete}));
    }
}

TEST_F(RenderingFaultTest, ExceptionWhileTracingTheClientReachesTheCaller) {
    // The trace of the LAN parameters comes before the call's exception handling begins.
    sim::throwFromLog(kEventLog, 81, 1);
    std::vector<IPMIEVENT> events;
    EXPECT_THROW(readAll(events), IpmiException);
    EXPECT_EQ(bench.liveClients(), 1u);
}

}  // namespace
