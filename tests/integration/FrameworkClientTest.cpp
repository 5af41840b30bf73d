// The framework's IPMI client against ipmi_sim over RMCP+, and against no BMC at all.
#include <gtest/gtest.h>

#include <chrono>

#include "IpmiClient.h"
#include "IpmiClientActivity.h"
#include "LanFixture.h"
#include "Log.h"
#include "LogCapture.h"
#include "LossyLink.h"

namespace {

using bmcsim::kAdministrator;
using bmcsim::kViewer;
using bmcsim::LanUser;
using bmcsim::ScopedEnvironment;
using Bytes = std::vector<unsigned char>;

class FrameworkClientTest : public bmcsim::LanTest {
protected:
    IpmiClient client(const LanUser& user = kAdministrator, unsigned long cipherSuite = 3) const {
        return IpmiClient(bmcsim::BmcSimulator::host(), user.name, user.password,
                          std::to_string(bmc->port()), cipherSuite);
    }

    // Sends one request; returns the client's status.
    static int send(IpmiClient& c, unsigned char netFn, unsigned char command, Bytes data,
                    Bytes& response, unsigned char& completionCode) {
        return c.sendCommand({command, std::move(data), netFn}, response, completionCode);
    }
};

TEST_F(FrameworkClientTest, AnswersWithTheCompletionCodeAndTheDataAfterIt) {
    IpmiClient c = client();
    ASSERT_EQ(c.connect(), 0);
    Bytes response;
    unsigned char completionCode = 0xEE;
    // Get Device ID (App network function 0x06, command 0x01).
    ASSERT_EQ(send(c, 0x06, 0x01, {}, response, completionCode), 0);
    EXPECT_EQ(completionCode, 0x00);
    ASSERT_GE(response.size(), 11u);
    EXPECT_EQ(response[0], 0x00);  // device ID, as the simulator was set up
    EXPECT_EQ(response[6], 0x91);  // manufacturer ID 0x001291, least significant byte first
    EXPECT_EQ(response[7], 0x12);
    EXPECT_EQ(response[8], 0x00);
}

TEST_F(FrameworkClientTest, CountsRequestsAndSelEntriesForProgress) {
    IpmiClient c = client();
    ASSERT_EQ(c.connect(), 0);
    const IpmiClientActivity before = ipmiClientActivity();
    Bytes response;
    unsigned char completionCode = 0;
    send(c, 0x06, 0x01, {}, response, completionCode);                     // Get Device ID
    send(c, 0x0A, 0x43, {0, 0, 0, 0, 0, 0xFF}, response, completionCode);  // Get SEL Entry
    const IpmiClientActivity after = ipmiClientActivity();
    EXPECT_EQ(after.requests - before.requests, 2ul);
    EXPECT_EQ(after.selEntries - before.selEntries, 1ul);
}

TEST_F(FrameworkClientTest, RecordsTheCallsOfItsThread) {
    IpmiClient c = client();
    ASSERT_EQ(c.connect(), 0);
    startIpmiCallRecord();
    Bytes response;
    unsigned char completionCode = 0;
    send(c, 0x0A, 0x43, {0, 0, 0x34, 0x12, 0, 0xFF}, response, completionCode);  // absent: CBh
    send(c, 0x06, 0x01, {}, response, completionCode);                           // Get Device ID
    const IpmiCallRecord record = ipmiCallRecord();
    EXPECT_EQ(record.selEntries, 0ul);
    EXPECT_EQ(record.transportFailures, 0ul);
    EXPECT_EQ(record.lastCompletionCode, 0xCB);
    EXPECT_EQ(record.lastRefusedNetFn, 0x0A);
    EXPECT_EQ(record.lastRefusedCommand, 0x43);

    c.disconnect();
    send(c, 0x06, 0x01, {}, response, completionCode);
    EXPECT_EQ(ipmiCallRecord().transportFailures, 1ul);
    startIpmiCallRecord();
    EXPECT_EQ(ipmiCallRecord().lastCompletionCode, 0x00);
}

TEST_F(FrameworkClientTest, TracesEachRequestAndAnswerAtLevelFour) {
    IpmiClient c = client();
    ASSERT_EQ(c.connect(), 0);
    LogCapture capture;
    Log::SetMinLogLevel(4);
    Bytes response;
    unsigned char completionCode = 0;
    send(c, 0x0A, 0x43, {0, 0, 0x34, 0x12, 0, 0xFF}, response, completionCode);
    send(c, 0x06, 0x47, {0x0A, 0x02, 's', 'e', 'c', 'r', 'e', 't'}, response, completionCode);
    Log::SetMinLogLevel(1);
    const std::string target = "127.0.0.1:" + std::to_string(bmc->port());
    const std::string text = capture.text();
    EXPECT_NE(
        text.find("to " + target + ": request: netFn 0Ah command 43h data [00 00 34 12 00 FF]"),
        std::string::npos)
        << text;
    EXPECT_NE(text.find("from " + target +
                        ": answer: netFn 0Bh command 43h completion code CBh (requested sensor, "
                        "data or record not present) data []"),
              std::string::npos)
        << text;
    // Set User Password: its data is never shown.
    EXPECT_NE(text.find("request: netFn 06h command 47h data (8 bytes, not shown)"),
              std::string::npos);
    EXPECT_EQ(text.find("secret"), std::string::npos);
}

TEST_F(FrameworkClientTest, PassesNonZeroCompletionCodesOnAsAnsweredRequests) {
    IpmiClient c = client();
    ASSERT_EQ(c.connect(), 0);
    Bytes response = {0x01};
    unsigned char completionCode = 0;
    // Get SEL Entry of a record the empty SEL does not have.
    ASSERT_EQ(send(c, 0x0A, 0x43, {0, 0, 0x34, 0x12, 0, 0xFF}, response, completionCode), 0);
    EXPECT_EQ(completionCode, 0xCB);
    EXPECT_TRUE(response.empty());
}

TEST_F(FrameworkClientTest, EveryCipherSuiteTheSimulatorOffersOpensASession) {
    const ScopedEnvironment allowZero("TOLMAR_IPMI_ALLOW_CIPHER_SUITE_0", "1");
    for (unsigned long suite : {0ul, 1ul, 2ul, 3ul, 6ul}) {
        IpmiClient c = client(kAdministrator, suite);
        EXPECT_EQ(c.connect(), 0) << "cipher suite " << suite;
    }
}

TEST_F(FrameworkClientTest, CipherSuiteZeroIsRefusedUnlessAllowedForItAcceptsAnyPassword) {
    const LanUser wrongPassword{kAdministrator.name, "not-the-password", "admin"};
    LogCapture log;
    startIpmiCallRecord();
    IpmiClient refused = client(wrongPassword, 0);
    EXPECT_EQ(refused.connect(), 1);
    EXPECT_EQ(ipmiCallRecord().connectFailure,
              "cipher suite 0 authenticates nobody: the BMC accepts any password; choose cipher "
              "suite 17 or 3, or set TOLMAR_IPMI_ALLOW_CIPHER_SUITE_0=1 to allow suite 0 all the "
              "same");
    const ScopedEnvironment allowZero("TOLMAR_IPMI_ALLOW_CIPHER_SUITE_0", "1");
    IpmiClient allowed = client(wrongPassword, 0);
    EXPECT_EQ(allowed.connect(), 0);  // what the setting's name warns of
}

TEST_F(FrameworkClientTest, SuitesWithoutIntegrityWarnOnEveryConnect) {
    const std::string warning =
        "cipher suite 1 has no integrity check: answers from 127.0.0.1:" +
        std::to_string(bmc->port()) +
        " can be forged or replayed by anyone on the network path; 17 and 3 have one";
    for (int connect = 0; connect < 2; ++connect) {
        LogCapture log;
        startIpmiCallRecord();
        IpmiClient c = client(kAdministrator, 1);
        ASSERT_EQ(c.connect(), 0);
        EXPECT_EQ(ipmiCallRecord().warning, warning);
        EXPECT_NE(log.text().find("warning: " + warning), std::string::npos) << log.text();
    }
    startIpmiCallRecord();
    IpmiClient signing = client(kAdministrator, 3);
    ASSERT_EQ(signing.connect(), 0);
    EXPECT_EQ(ipmiCallRecord().warning, "");
}

TEST_F(FrameworkClientTest, CipherSuiteTheBmcDoesNotOfferIsAConnectionFailure) {
    // ipmi_sim has no HMAC-SHA256, so no cipher suite 17.
    LogCapture log;
    IpmiClient c = client(kAdministrator, 17);
    const int status = c.connect();
    EXPECT_NE(status, 0);
    EXPECT_NE(status, 2);
    EXPECT_NE(log.text().find("with cipher suite 17"), std::string::npos) << log.text();
    EXPECT_NE(log.text().find("the BMC does not offer this cipher suite; choose one it offers (17 "
                              "and 3 are the common ones; this client speaks 0-3, 6 and 15-17)"),
              std::string::npos)
        << log.text();
}

TEST_F(FrameworkClientTest, FallsBackToTheHighestPrivilegeTheUserHas) {
    IpmiClient c = client(kViewer);
    ASSERT_EQ(c.connect(), 0);
    Bytes response;
    unsigned char completionCode = 0;
    ASSERT_EQ(send(c, 0x0A, 0x40, {}, response, completionCode), 0);  // Get SEL Info
    EXPECT_EQ(completionCode, 0x00);
    // Clear SEL needs operator privilege.
    ASSERT_EQ(send(c, 0x0A, 0x47, {0, 0, 'C', 'L', 'R', 0xAA}, response, completionCode), 0);
    EXPECT_EQ(completionCode, 0xD4);  // insufficient privilege
}

TEST_F(FrameworkClientTest, ChosenPrivilegeOpensASessionInOneAttempt) {
    // Through a link of its own each client is a new BMC to the process: nothing remembered.
    const auto datagramsToConnect = [this](const LanUser& user) {
        bmcsim::LossyLink link(bmc->port(), 0.0, std::chrono::microseconds(0));
        IpmiClient c(bmcsim::BmcSimulator::host(), user.name, user.password,
                     std::to_string(link.port()), 3);
        EXPECT_EQ(c.connect(), 0);
        return link.clientDatagrams();
    };
    const unsigned long searching = datagramsToConnect(kAdministrator);
    ScopedEnvironment privilege("TOLMAR_IPMI_PRIVILEGE", "user");
    EXPECT_LT(datagramsToConnect(kAdministrator), searching);

    IpmiClient c = client(kAdministrator);
    ASSERT_EQ(c.connect(), 0);
    Bytes response;
    unsigned char completionCode = 0;
    ASSERT_EQ(send(c, 0x0A, 0x47, {0, 0, 'C', 'L', 'R', 0xAA}, response, completionCode), 0);
    EXPECT_EQ(completionCode, 0xD4);  // a user-level session may not clear the SEL
}

TEST_F(FrameworkClientTest, UnknownUserIsRefusedCredentials) {
    LogCapture log;
    IpmiClient c(bmcsim::BmcSimulator::host(), "nobody", "whatever", std::to_string(bmc->port()),
                 3);
    EXPECT_EQ(c.connect(), 2);
    EXPECT_NE(log.text().find("user name"), std::string::npos) << log.text();
}

TEST_F(FrameworkClientTest, WrongPasswordIsRefusedCredentialsAndNeverLogged) {
    ScopedEnvironment timeout("TOLMAR_IPMI_SESSION_TIMEOUT_MS", "2000");
    LogCapture log;
    IpmiClient c(bmcsim::BmcSimulator::host(), kAdministrator.name, "Wr0ng-secret-77",
                 std::to_string(bmc->port()), 3);
    EXPECT_EQ(c.connect(), 2);
    EXPECT_NE(log.text().find("check the password"), std::string::npos) << log.text();
    EXPECT_EQ(log.text().find("Wr0ng-secret-77"), std::string::npos);
}

TEST_F(FrameworkClientTest, NothingListeningFailsWithinTheSessionTimeout) {
    ScopedEnvironment timeout("TOLMAR_IPMI_SESSION_TIMEOUT_MS", "1500");
    bmc->stop();
    LogCapture log;
    IpmiClient c = client();
    const auto start = std::chrono::steady_clock::now();
    const int status = c.connect();
    const auto elapsed = std::chrono::steady_clock::now() - start;
    EXPECT_NE(status, 0);
    EXPECT_NE(status, 2);
    EXPECT_LT(elapsed, std::chrono::seconds(5));
    EXPECT_NE(log.text().find("check the address and port"), std::string::npos) << log.text();
    EXPECT_EQ(log.text().find(kAdministrator.password), std::string::npos);
}

TEST_F(FrameworkClientTest, SessionTimeoutsOfOneSecondOrLessWork) {
    // The retransmission interval (1 s by default) is kept below the session timeout.
    for (const char* timeout : {"1000", "400"}) {
        ScopedEnvironment environment("TOLMAR_IPMI_SESSION_TIMEOUT_MS", timeout);
        IpmiClient c = client();
        EXPECT_EQ(c.connect(), 0) << timeout;
    }
}

TEST_F(FrameworkClientTest, PortThatIsNotANumberFailsAtOnce) {
    LogCapture log;
    IpmiClient c(bmcsim::BmcSimulator::host(), "admin", "pw", "62x3", 3);
    const int status = c.connect();
    EXPECT_NE(status, 0);
    EXPECT_NE(status, 2);
    EXPECT_NE(log.text().find("\"62x3\" is not a UDP port number"), std::string::npos);
}

TEST_F(FrameworkClientTest, SendingWithoutASessionFailsWithoutTouchingTheOutputs) {
    LogCapture log;
    IpmiClient never = client();
    Bytes response = {0x01};
    unsigned char completionCode = 0x00;
    EXPECT_NE(send(never, 0x06, 0x01, {}, response, completionCode), 0);
    IpmiClient closed = client();
    ASSERT_EQ(closed.connect(), 0);
    closed.disconnect();
    closed.disconnect();  // a second disconnect does nothing
    EXPECT_NE(send(closed, 0x06, 0x01, {}, response, completionCode), 0);
    EXPECT_EQ(response, Bytes{0x01});
    EXPECT_EQ(completionCode, 0x00);
}

TEST_F(FrameworkClientTest, ReconnectsAfterDisconnect) {
    IpmiClient c = client();
    ASSERT_EQ(c.connect(), 0);
    c.disconnect();
    ASSERT_EQ(c.connect(), 0);
    Bytes response;
    unsigned char completionCode = 0xEE;
    EXPECT_EQ(send(c, 0x06, 0x01, {}, response, completionCode), 0);
    EXPECT_EQ(completionCode, 0x00);
}

TEST_F(FrameworkClientTest, LostSessionIsATransportFailure) {
    ScopedEnvironment timeout("TOLMAR_IPMI_SESSION_TIMEOUT_MS", "1500");
    LogCapture log;
    IpmiClient c = client();
    ASSERT_EQ(c.connect(), 0);
    bmc->stop();
    Bytes response;
    unsigned char completionCode = 0;
    EXPECT_NE(send(c, 0x06, 0x01, {}, response, completionCode), 0);
}

TEST(FrameworkLocalClient, MachineWithoutBmcFailsWithAdvice) {
    LogCapture log;
    IpmiClient c(0ul);
    const int status = c.connect();
    EXPECT_NE(status, 0);
    EXPECT_NE(status, 2);
    EXPECT_NE(log.text().find("no local IPMI interface"), std::string::npos) << log.text();
    EXPECT_NE(log.text().find("ipmi_devintf"), std::string::npos);
    Bytes response;
    unsigned char completionCode = 0;
    EXPECT_NE(c.sendCommand({0x01, {}, 0x06}, response, completionCode), 0);
}

}  // namespace
