// Sessions opened to ipmi_sim over a slow and a lossy path: every answer later than the resend
// interval, a lost RAKP message 4, late answers to a resent Open Session, and refused credentials.
// The log is read in full where the path allows it, and no session is left open on the BMC.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>

#include "EventAssertions.h"
#include "IpmiClient.h"
#include "IpmiEventLog.h"
#include "LanFixture.h"
#include "LossyLink.h"

namespace {

using Tolmar::IpmiEventLog;
using Tolmar::TolmarAgentless::IPMIEVENT;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr unsigned char kOpenSessionAnswer = 0x11;
constexpr unsigned char kRakp4 = 0x15;

// Holds back every answer from the BMC of one RMCP+ payload type by `delay`.
bmcsim::LinkFaults delayed(std::optional<unsigned char> payloadType,
                           std::chrono::microseconds delay) {
    bmcsim::LinkFaults faults;
    faults.answerDelay = [=](const std::vector<unsigned char>& datagram) {
        return !payloadType || bmcsim::rmcpPlusPayloadType(datagram) == payloadType
                   ? delay
                   : std::chrono::microseconds(0);
    };
    return faults;
}

class HandshakeOverLanTest : public bmcsim::LanTest {
protected:
    void SetUp() override {
        LanTest::SetUp();
        const auto sel = bmcsim::sampleEventLog();
        bmc->addSelRecords({sel.begin(), sel.begin() + 3});
        std::vector<IPMIEVENT> events;
        ASSERT_EQ(IpmiEventLog(connection()).GetAllIpmiEventLog(events), 0);
        directRead = events;
        sessionsBefore = bmcsim::activeSessions(bmc->port());
        ASSERT_GT(sessionsBefore, 0);
    }

    std::vector<IPMIEVENT> readThrough(const bmcsim::LossyLink& link) const {
        Tolmar::TolmarConnection::ConnectionInfo info = connection();
        info.port = link.port();
        std::vector<IPMIEVENT> events;
        EXPECT_EQ(IpmiEventLog(info).GetAllIpmiEventLog(events), 0);
        return events;
    }

    IpmiClient clientThrough(const bmcsim::LossyLink& link,
                             const bmcsim::LanUser& user = bmcsim::kAdministrator) const {
        return IpmiClient(bmcsim::BmcSimulator::host(), user.name, user.password,
                          std::to_string(link.port()), 3);
    }

    int sessionsNow() const { return bmcsim::activeSessions(bmc->port()); }

    std::vector<IPMIEVENT> directRead;
    int sessionsBefore = 0;
};

TEST_F(HandshakeOverLanTest, EveryAnswerLateByMoreThanTheResendIntervalStillConnects) {
    // The defaults: a 10 s session timeout, 1 s between resends. Answers take 1.2 s.
    bmcsim::LossyLink link(bmc->port(), delayed(std::nullopt, 1200ms));
    const Clock::time_point start = Clock::now();
    IpmiClient client = clientThrough(link);
    ASSERT_EQ(client.connect(), 0);
    // Get Channel Authentication Capabilities, Open Session, RAKP 1 and 3, Set Session Privilege
    // Level: one round trip each, once the first answer showed how long a round trip takes.
    EXPECT_LT(Clock::now() - start, 10s);
    std::vector<unsigned char> response;
    unsigned char completionCode = 0xFF;
    EXPECT_EQ(client.sendCommand({0x01, {}, 0x06}, response, completionCode), 0);
    EXPECT_EQ(completionCode, 0x00);
    client.disconnect();
    EXPECT_EQ(sessionsNow(), sessionsBefore);
}

TEST_F(HandshakeOverLanTest, EveryAnswerLateByMoreThanTheResendIntervalStillReadsTheLog) {
    // The case above a tenth as long, for the dozens of requests of a whole read: 100 ms between
    // resends, answers 120 ms late; a 3 s session timeout leaves a loaded machine room.
    bmcsim::ScopedEnvironment timeout{"TOLMAR_IPMI_SESSION_TIMEOUT_MS", "3000"};
    bmcsim::ScopedEnvironment retransmission{"TOLMAR_IPMI_RETRANSMISSION_TIMEOUT_MS", "100"};
    bmcsim::LossyLink link(bmc->port(), delayed(std::nullopt, 120ms));
    sim::expectSameEvents(readThrough(link), directRead);
    EXPECT_EQ(sessionsNow(), sessionsBefore);
}

TEST_F(HandshakeOverLanTest, ALostRakp4StillReadsTheLog) {
    std::atomic<bool> dropped{false};
    bmcsim::LinkFaults faults;
    faults.answerDelay = [&dropped](const std::vector<unsigned char>& datagram) {
        const bool drop =
            bmcsim::rmcpPlusPayloadType(datagram) == kRakp4 && !dropped.exchange(true);
        return drop ? std::nullopt : std::optional<std::chrono::microseconds>(0);
    };
    bmcsim::LossyLink link(bmc->port(), faults);
    sim::expectSameEvents(readThrough(link), directRead);
    EXPECT_TRUE(dropped);
    EXPECT_EQ(sessionsNow(), sessionsBefore);
}

TEST_F(HandshakeOverLanTest, SessionsOpenedForAResentOpenSessionAreEnded) {
    // ipmi_sim opens a session for each Open Session it receives. Its answers take 1.5 s here,
    // so the request is sent again after 1 s: the second session's answer comes while the first
    // is in use, and the request after it finds it waiting. (A minute bounds a BMC that never
    // sends it.)
    bmcsim::LossyLink link(bmc->port(), delayed(kOpenSessionAnswer, 1500ms));
    IpmiClient client = clientThrough(link);
    const Clock::time_point start = Clock::now();
    ASSERT_EQ(client.connect(), 0);
    std::vector<unsigned char> response;
    unsigned char completionCode = 0xFF;
    while (link.passedToClient(kOpenSessionAnswer) < 2 && Clock::now() - start < 60s) {
        ASSERT_EQ(client.sendCommand({0x01, {}, 0x06}, response, completionCode), 0);
    }
    EXPECT_EQ(link.passedToClient(kOpenSessionAnswer), 2u);
    ASSERT_EQ(client.sendCommand({0x01, {}, 0x06}, response, completionCode), 0);
    EXPECT_EQ(completionCode, 0x00);
    client.disconnect();
    EXPECT_EQ(sessionsNow(), sessionsBefore);
}

TEST_F(HandshakeOverLanTest, RefusedCredentialsLeaveNoSessionOpen) {
    bmcsim::LossyLink link(bmc->port(), bmcsim::LinkFaults{});
    const bmcsim::LanUser wrongPassword{bmcsim::kAdministrator.name, "not-the-password", "admin"};
    const bmcsim::LanUser unknownUser{"nobody-here", bmcsim::kAdministrator.password, "admin"};
    for (const bmcsim::LanUser& user : {wrongPassword, unknownUser}) {
        IpmiClient client = clientThrough(link, user);
        EXPECT_EQ(client.connect(), 2) << user.name;
    }
    EXPECT_EQ(sessionsNow(), sessionsBefore);
}

}  // namespace
