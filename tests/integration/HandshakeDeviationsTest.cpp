// The framework client against the tests' own BMC bending IPMI v2.0 as real BMCs were seen to
// (FreeIPMI's list of them): each session opens, on the client's own where the BMC's answers show
// the departure and with the named workaround otherwise, and a request goes through in it. The
// call's record names what the client met.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "CraftedBmc.h"
#include "IpmiClient.h"
#include "IpmiClientActivity.h"
#include "IpmiClientSettings.h"

namespace {

using bmcsim::CraftedBehaviour;
using bmcsim::CraftedBmc;
using Texts = std::vector<std::string>;

const std::string kLongerRakp2 = "RAKP message 2 longer than IPMI v2.0's (recognised)";
const std::string kPaddedUserName = "user name padded to 16 bytes in RAKP's codes (recognised)";
const std::string kCutMd5Password = "HMAC-MD5 password cut to 16 bytes (recognised)";
const std::string kRakp4ByIntegrityAlgorithm =
    "RAKP 4 check value by the integrity algorithm (recognised)";
const std::string kKeysOfOpenSessionPrivilege =
    "keys derived from Open Session's privilege level (recognised)";
const std::string kRakp4CheckWithSuiteZero = "RAKP 4 check value with cipher suite 0 (recognised)";
const std::string kChecksumsUnderIntegrityCode =
    "wrong IPMI message checksums under a valid integrity code (recognised)";
const std::string kChecksumsInCapabilities =
    "wrong IPMI message checksums in Get Channel Authentication Capabilities (recognised)";
const std::string kIpmi20Unreported =
    "IPMI v2.0 not reported by Get Channel Authentication Capabilities (recognised)";
const std::string kAnswersFromAnotherPort = "answers from another UDP port (recognised)";

// Ample for a whole handshake on a loaded machine; each BMC below that never answers costs it
// once. Unanswered datagrams are sent again after 100 ms.
constexpr std::chrono::milliseconds kSessionTimeout(3000);
constexpr std::chrono::milliseconds kRetransmissionTimeout(100);

// How a connection to the crafted BMC went.
struct Outcome {
    int status = -1;      // connect()'s
    std::string failure;  // the call record's connectFailure
    Texts workarounds;    // the call record's session.workarounds
    bool deviceIdAnswered = false;
};

class HandshakeDeviationsTest : public ::testing::Test {
protected:
    // Connects to `bmc` as its user with cipher suite `suite` and `workarounds`, at
    // administrator level, and asks Get Device ID in the session.
    static Outcome connect(const CraftedBmc& bmc, const CraftedBehaviour& behaviour,
                           unsigned long suite, const Texts& workarounds = {}) {
        IpmiClientSettings settings;
        settings.privilegeLevel = 4;
        settings.allowCipherSuiteZero = true;
        settings.sessionTimeout = kSessionTimeout;
        settings.retransmissionTimeout = kRetransmissionTimeout;
        settings.workarounds = workarounds;
        const IpmiClientSettingsScope scope(settings);
        IpmiClient client(behaviour.ipv6 ? "::1" : "127.0.0.1", behaviour.user, behaviour.password,
                          std::to_string(bmc.port()), suite);
        startIpmiCallRecord();
        Outcome outcome;
        outcome.status = client.connect();
        outcome.failure = ipmiCallRecord().connectFailure;
        outcome.workarounds = ipmiCallRecord().session.workarounds;
        if (outcome.status == 0) outcome.deviceIdAnswered = deviceIdAnswered(client);
        return outcome;
    }

    static bool deviceIdAnswered(IpmiClient& client) {
        std::vector<unsigned char> response;
        unsigned char completionCode = 0xFF;
        return client.sendCommand({0x01, {}, 0x06}, response, completionCode) == 0 &&
               completionCode == 0x00 && response.size() == 11u;
    }

    // Opens a session to a BMC with `behaviour` and expects it to work, having met `met`.
    static void expectOpens(const CraftedBehaviour& behaviour, unsigned long suite,
                            const Texts& met, const Texts& workarounds = {}) {
        CraftedBmc bmc(behaviour);
        const Outcome outcome = connect(bmc, behaviour, suite, workarounds);
        ASSERT_EQ(outcome.status, 0) << "suite " << suite << ": " << outcome.failure;
        EXPECT_TRUE(outcome.deviceIdAnswered) << "suite " << suite;
        EXPECT_EQ(outcome.workarounds, met) << "suite " << suite;
    }
};

TEST_F(HandshakeDeviationsTest, ARakp2OneByteLongerIsRecognised) {
    CraftedBehaviour behaviour;
    behaviour.rakp2ExtraByte = true;
    for (unsigned long suite : {3ul, 6ul, 17ul}) expectOpens(behaviour, suite, {kLongerRakp2});
}

TEST_F(HandshakeDeviationsTest, AKeyExchangeCodeOf21BytesWithHmacSha1IsRecognised) {
    CraftedBehaviour behaviour;
    behaviour.rakp2Sha1CodeOf21Bytes = true;
    expectOpens(behaviour, 3, {kLongerRakp2});
    expectOpens(behaviour, 17, {});  // HMAC-SHA256: as IPMI v2.0 says
}

TEST_F(HandshakeDeviationsTest, AUserNamePaddedInRakpsCodesIsRecognisedFromRakp2) {
    CraftedBehaviour behaviour;
    behaviour.padUserNames = true;
    CraftedBmc bmc(behaviour);
    const Outcome outcome = connect(bmc, behaviour, 17);
    ASSERT_EQ(outcome.status, 0) << outcome.failure;
    EXPECT_TRUE(outcome.deviceIdAnswered);
    EXPECT_EQ(outcome.workarounds, Texts{kPaddedUserName});
    EXPECT_EQ(bmc.rakp1UserName(), "operator1");  // RAKP 1 as IPMI v2.0 says
}

TEST_F(HandshakeDeviationsTest, ABmcThatKnowsOnlyThePaddedUserNameNeedsIntel20) {
    CraftedBehaviour behaviour;
    behaviour.padUserNames = true;
    behaviour.requirePaddedUserName = true;
    CraftedBmc bmc(behaviour);
    const Outcome refused = connect(bmc, behaviour, 17);
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.failure,
              "RAKP message 1 refused: RMCP+ status 0Dh (unauthorized name); check the user name; "
              "the BMC does not know it (some Intel BMCs know it only padded to 16 bytes: "
              "workaround intel20)");
    EXPECT_TRUE(bmc.settlesAt(0));

    const Outcome outcome = connect(bmc, behaviour, 17, {"intel20"});
    ASSERT_EQ(outcome.status, 0) << outcome.failure;
    EXPECT_TRUE(outcome.deviceIdAnswered);
    EXPECT_EQ(outcome.workarounds, Texts{"intel20"});
    EXPECT_EQ(bmc.rakp1UserName(), std::string("operator1\0\0\0\0\0\0\0", 16));
}

TEST_F(HandshakeDeviationsTest, AnHmacMd5PasswordCutTo16BytesIsRecognisedFromRakp2) {
    CraftedBehaviour behaviour;
    behaviour.password = "a-twenty-byte-secret";
    behaviour.cutMd5Password = true;
    expectOpens(behaviour, 6, {kCutMd5Password});
    expectOpens(behaviour, 3, {});  // HMAC-SHA1 keeps the whole password
    // Both of the Intel BMC's departures at once.
    behaviour.padUserNames = true;
    expectOpens(behaviour, 6, {kPaddedUserName, kCutMd5Password});
}

TEST_F(HandshakeDeviationsTest, ARakp4CheckValueByTheIntegrityAlgorithmIsRecognised) {
    CraftedBehaviour behaviour;
    behaviour.rakp4CheckByIntegrityAlgorithm = true;
    // Suites without integrity: an empty check value.
    for (unsigned long suite : {1ul, 6ul, 15ul}) {
        expectOpens(behaviour, suite, {kRakp4ByIntegrityAlgorithm});
    }
    // With an integrity algorithm of the same hash, the same value as IPMI v2.0's.
    for (unsigned long suite : {2ul, 3ul, 16ul, 17ul}) expectOpens(behaviour, suite, {});
}

TEST_F(HandshakeDeviationsTest, KeysDerivedFromOpenSessionsPrivilegeAreRecognisedAtRakp4) {
    CraftedBehaviour behaviour;
    behaviour.keysOfOpenSessionPrivilege = true;
    CraftedBmc bmc(behaviour);
    const Outcome outcome = connect(bmc, behaviour, 17);
    ASSERT_EQ(outcome.status, 0) << outcome.failure;
    // Get Device ID answered in the session: its keys are the BMC's.
    EXPECT_TRUE(outcome.deviceIdAnswered);
    EXPECT_EQ(outcome.workarounds, Texts{kKeysOfOpenSessionPrivilege});
    EXPECT_EQ(bmc.openSessionPrivilege(), 0);  // "the highest"

    const Outcome asked = connect(bmc, behaviour, 17, {"opensesspriv"});
    ASSERT_EQ(asked.status, 0) << asked.failure;
    EXPECT_TRUE(asked.deviceIdAnswered);
    EXPECT_EQ(asked.workarounds, Texts{"opensesspriv"});
    EXPECT_EQ(bmc.openSessionPrivilege(), 4);  // RAKP 1's level
}

TEST_F(HandshakeDeviationsTest, ARakp4CheckValueWithCipherSuite0IsRecognised) {
    CraftedBehaviour behaviour;
    behaviour.rakp4CheckWithSuiteZero = true;
    expectOpens(behaviour, 0, {kRakp4CheckWithSuiteZero});
}

TEST_F(HandshakeDeviationsTest, WrongChecksumsUnderAnIntegrityCodeAreTaken) {
    CraftedBehaviour behaviour;
    behaviour.wrongChecksums = true;
    for (unsigned long suite : {3ul, 17ul}) {
        expectOpens(behaviour, suite, {kChecksumsInCapabilities, kChecksumsUnderIntegrityCode});
    }
}

TEST_F(HandshakeDeviationsTest, WrongChecksumsWithoutAnIntegrityCodeNeedNoChecksumCheck) {
    CraftedBehaviour behaviour;
    behaviour.wrongChecksums = true;
    CraftedBmc bmc(behaviour);
    const Outcome refused = connect(bmc, behaviour, 1);
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.failure,
              "no answer to Set Session Privilege Level; answers with wrong IPMI message "
              "checksums came and were dropped (the nochecksumcheck workaround takes them); "
              "check the address and port, that the BMC is powered and that IPMI over LAN is "
              "enabled on it");

    const Outcome outcome = connect(bmc, behaviour, 1, {"nochecksumcheck"});
    ASSERT_EQ(outcome.status, 0) << outcome.failure;
    EXPECT_TRUE(outcome.deviceIdAnswered);
    EXPECT_EQ(outcome.workarounds, (Texts{kChecksumsInCapabilities, "nochecksumcheck"}));
}

TEST_F(HandshakeDeviationsTest, IpmiV20UnreportedIsTriedAnyway) {
    CraftedBehaviour behaviour;
    behaviour.reportNoIpmi20 = true;
    expectOpens(behaviour, 17, {kIpmi20Unreported});
    // "authcap" is taken and changes nothing.
    expectOpens(behaviour, 17, {kIpmi20Unreported}, {"authcap"});
    // Also where the cipher suite is chosen by asking, which asks before the session.
    expectOpens(behaviour, kChooseCipherSuite, {kIpmi20Unreported});

    behaviour.ignoreOpenSession = true;
    CraftedBmc bmc(behaviour);
    const Outcome outcome = connect(bmc, behaviour, 17);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.failure,
              "Get Channel Authentication Capabilities reports no IPMI v2.0 sessions, and Open "
              "Session went unanswered; enable IPMI over LAN with IPMI v2.0 (RMCP+) sessions on "
              "the BMC");
    EXPECT_GE(bmc.openSessionRequests(), 1);
}

TEST_F(HandshakeDeviationsTest, SessionSequenceNumbersSteppingByTwoAreTaken) {
    CraftedBehaviour behaviour;
    behaviour.sequenceStepsByTwo = true;
    CraftedBmc bmc(behaviour);
    IpmiClientSettings settings;
    settings.privilegeLevel = 4;
    settings.sessionTimeout = kSessionTimeout;
    settings.retransmissionTimeout = kRetransmissionTimeout;
    const IpmiClientSettingsScope scope(settings);
    IpmiClient client("127.0.0.1", behaviour.user, behaviour.password, std::to_string(bmc.port()),
                      17);
    startIpmiCallRecord();
    ASSERT_EQ(client.connect(), 0) << ipmiCallRecord().connectFailure;
    // Beyond the 32 numbers of the replay window, twice over.
    for (int request = 0; request < 40; ++request) {
        ASSERT_TRUE(deviceIdAnswered(client)) << request;
    }
    EXPECT_EQ(ipmiCallRecord().session.workarounds, Texts{});
    EXPECT_EQ(ipmiCallRecord().transportFailures, 0u);
}

TEST_F(HandshakeDeviationsTest, AnswersFromAnotherPortAreTaken) {
    CraftedBehaviour behaviour;
    behaviour.answerFromAnotherPort = true;
    expectOpens(behaviour, 17, {kAnswersFromAnotherPort});
    behaviour.ipv6 = true;
    expectOpens(behaviour, 17, {kAnswersFromAnotherPort});
    behaviour.answerFromAnotherPort = false;
    expectOpens(behaviour, 17, {});
}

TEST_F(HandshakeDeviationsTest, AnswersFromAnotherAddressAreNot) {
    CraftedBehaviour behaviour;
    behaviour.answerFromAnotherAddress = true;
    CraftedBmc bmc(behaviour);
    const Outcome outcome = connect(bmc, behaviour, 17);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.failure,
              "no answer from the BMC; check the address and port, that the BMC is powered and "
              "that IPMI over LAN is enabled on it");
    EXPECT_EQ(bmc.openSessionRequests(), 0);
}

}  // namespace
