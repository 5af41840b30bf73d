// The framework client against a BMC of the tests' own that does what ipmi_sim does not: a BMC
// key (K_g) right, wrong or missing, a resent RAKP message 3 refused after RAKP message 4 was lost,
// session ID 0 and forged refusals. Each failure is named, and no session is left open.
#include <gtest/gtest.h>

#include <string>

#include "CraftedBmc.h"
#include "Hex.h"
#include "IpmiClient.h"
#include "IpmiClientActivity.h"
#include "LanFixture.h"
#include "ToolRun.h"

namespace {

using bmcsim::CraftedBehaviour;
using bmcsim::CraftedBmc;
using bmcsim::ScopedEnvironment;

std::string hex(const std::string& text) {
    return hexText(reinterpret_cast<const unsigned char*>(text.data()), text.size(), "");
}

class CraftedHandshakeTest : public ::testing::Test {
protected:
    IpmiClient clientOf(const CraftedBmc& bmc, const CraftedBehaviour& behaviour = {}) const {
        return IpmiClient("127.0.0.1", behaviour.user, behaviour.password,
                          std::to_string(bmc.port()), 3);
    }

    // Connects as the crafted BMC's user; the call's record tells why a connection failed.
    int connect(IpmiClient& client) const {
        startIpmiCallRecord();
        return client.connect();
    }

    static void expectDeviceIdAnswered(IpmiClient& client) {
        std::vector<unsigned char> response;
        unsigned char completionCode = 0xFF;
        EXPECT_EQ(client.sendCommand({0x01, {}, 0x06}, response, completionCode), 0);
        EXPECT_EQ(completionCode, 0x00);
        EXPECT_EQ(response.size(), 11u);
    }

    ScopedEnvironment timeout{"TOLMAR_IPMI_SESSION_TIMEOUT_MS", "2000"};
    ScopedEnvironment retransmission{"TOLMAR_IPMI_RETRANSMISSION_TIMEOUT_MS", "200"};
};

TEST_F(CraftedHandshakeTest, TheBmcKeyGivenInHexKeysTheSession) {
    CraftedBehaviour behaviour;
    behaviour.bmcKey = "the-bmc-key";
    CraftedBmc bmc(behaviour);
    ScopedEnvironment key{"TOLMAR_IPMI_BMC_KEY", ("0x" + hex(behaviour.bmcKey)).c_str()};
    IpmiClient client = clientOf(bmc);
    ASSERT_EQ(connect(client), 0) << ipmiCallRecord().connectFailure;
    expectDeviceIdAnswered(client);
    EXPECT_EQ(bmc.openSessions(), 1);
    client.disconnect();
    EXPECT_TRUE(bmc.settlesAt(0));
}

TEST_F(CraftedHandshakeTest, EachBmcKeyMismatchIsNamedAndEndsTheSession) {
    const std::string advice =
        "; give the BMC key (K_g) the BMC is set up with (-k or -y; TOLMAR_IPMI_BMC_KEY in "
        "hexadecimal), or none where it has none";
    const struct {
        const char* bmcKey;
        std::string given;
        std::string failure;
    } cases[] = {
        {"the-bmc-key", "", "RAKP message 4 is signed with a BMC key (K_g) and none was given"},
        {"the-bmc-key", hex("another-key"),
         "RAKP message 4 is signed with another BMC key (K_g) than the one given"},
        {"", hex("the-bmc-key"),
         "RAKP message 4 is signed without a BMC key (K_g), but one was given"},
    };
    for (const auto& c : cases) {
        CraftedBehaviour behaviour;
        behaviour.bmcKey = c.bmcKey;
        CraftedBmc bmc(behaviour);
        ScopedEnvironment key{"TOLMAR_IPMI_BMC_KEY", c.given.c_str()};
        IpmiClient client = clientOf(bmc);
        EXPECT_EQ(connect(client), 2) << c.failure;
        EXPECT_EQ(ipmiCallRecord().connectFailure, c.failure + advice);
        EXPECT_TRUE(bmc.settlesAt(0)) << c.failure;
    }
}

TEST_F(CraftedHandshakeTest, ABmcKeyThatIsNotHexIsRefusedBeforeAnythingIsSent) {
    CraftedBmc bmc({});
    for (const char* unreadable : {"xyz", "abc", "00112233445566778899aabbccddeeff0011223344"}) {
        ScopedEnvironment key{"TOLMAR_IPMI_BMC_KEY", unreadable};
        IpmiClient client = clientOf(bmc);
        EXPECT_EQ(connect(client), 1) << unreadable;
        EXPECT_EQ(ipmiCallRecord().connectFailure,
                  "TOLMAR_IPMI_BMC_KEY is not a BMC key: up to 40 hexadecimal digits; check the "
                  "user name, the password, the BMC key and the workarounds");
    }
    EXPECT_TRUE(bmc.settlesAt(0));
}

TEST_F(CraftedHandshakeTest, AResentRakp3RefusedAfterItsRakp4WasLostStillOpensTheSession) {
    CraftedBehaviour behaviour;
    behaviour.rakp4Lost = 1;
    behaviour.refuseResentRakp3 = true;
    CraftedBmc bmc(behaviour);
    IpmiClient client = clientOf(bmc);
    ASSERT_EQ(connect(client), 0) << ipmiCallRecord().connectFailure;
    // Set Session Privilege Level, sent beside the resent RAKP message 3, was answered in the
    // session: no second handshake.
    EXPECT_EQ(bmc.openSessionRequests(), 1);
    expectDeviceIdAnswered(client);
    EXPECT_EQ(bmc.openSessions(), 1);
    client.disconnect();
    EXPECT_TRUE(bmc.settlesAt(0));
}

TEST_F(CraftedHandshakeTest, AHandshakeLeftInDoubtStartsAgainOnceAndEndsTheFirstSession) {
    // The refused resend of RAKP message 3 is all the client hears: the request beside it goes
    // unanswered while RAKP message 4 is lost. The client ends that session and starts again.
    CraftedBehaviour behaviour;
    behaviour.rakp4Lost = 1;
    behaviour.refuseResentRakp3 = true;
    behaviour.ignoreSessionRequestsUntilRakp4 = true;
    CraftedBmc bmc(behaviour);
    IpmiClient client = clientOf(bmc);
    ASSERT_EQ(connect(client), 0) << ipmiCallRecord().connectFailure;
    EXPECT_EQ(bmc.openSessionRequests(), 2);
    EXPECT_EQ(bmc.openSessions(), 1);
    client.disconnect();
    EXPECT_TRUE(bmc.settlesAt(0));
}

TEST_F(CraftedHandshakeTest, SessionIdZeroIsRefused) {
    CraftedBehaviour behaviour;
    behaviour.sessionIdZero = true;
    CraftedBmc bmc(behaviour);
    IpmiClient client = clientOf(bmc);
    EXPECT_EQ(connect(client), 1);
    EXPECT_EQ(ipmiCallRecord().connectFailure.rfind(
                  "the BMC answered Open Session with session ID 0; ", 0),
              0u)
        << ipmiCallRecord().connectFailure;
}

TEST_F(CraftedHandshakeTest, RefusalsWithoutTheConsoleSessionIdAreIgnored) {
    CraftedBehaviour behaviour;
    behaviour.forgeRefusals = true;
    CraftedBmc bmc(behaviour);
    IpmiClient client = clientOf(bmc);
    ASSERT_EQ(connect(client), 0) << ipmiCallRecord().connectFailure;
    // Believed, the forged 0Ah would have sent the client down to operator level.
    EXPECT_EQ(bmc.grantedPrivilege(), 4);
    expectDeviceIdAnswered(client);
}

TEST_F(CraftedHandshakeTest, TheToolTakesTheBmcKeyAsTextOrHexAndNamesAMismatch) {
    CraftedBehaviour behaviour;
    behaviour.bmcKey = "the-bmc-key";
    CraftedBmc bmc(behaviour);
    const std::string host = "127.0.0.1:" + std::to_string(bmc.port());
    bmcsim::ScratchDirectory scratch;
    const auto tool = [&](const std::string& arguments) {
        return bmcsim::runShell("IPMI_PASSWORD=" + behaviour.password + " " TOOL_PATH " -H " +
                                    host + " -U " + behaviour.user + " -E " + arguments,
                                scratch);
    };
    for (const std::string& key : {std::string("-k the-bmc-key"), "-y 0x" + hex("the-bmc-key")}) {
        const bmcsim::ToolRun run = tool(key + " status");
        EXPECT_EQ(run.status, 0) << key << ": " << run.err;
        EXPECT_EQ(run.err, "") << key;
    }
    const bmcsim::ToolRun without = tool("status");
    EXPECT_EQ(without.status, 14);
    EXPECT_EQ(without.err,
              "ipmi-event-log: authentication refused by " + host +
                  ": RAKP message 4 is signed with a BMC key (K_g) and none was given; give the "
                  "BMC key (K_g) the BMC is set up with (-k or -y; TOLMAR_IPMI_BMC_KEY in "
                  "hexadecimal), or none where it has none\n");
    const struct {
        std::string arguments;
        std::string message;
    } refused[] = {
        {"-y 0xzz status", "-y takes the BMC key as 2 to 40 hexadecimal digits, an even number"},
        {"-y abc status", "-y takes the BMC key as 2 to 40 hexadecimal digits, an even number"},
        {"-k 123456789012345678901 status",
         "the BMC key is 21 bytes long; IPMI v2.0 allows at most 20"},
    };
    for (const auto& r : refused) {
        const bmcsim::ToolRun run = tool(r.arguments);
        EXPECT_EQ(run.status, 2) << r.arguments;
        EXPECT_EQ(run.err.rfind("ipmi-event-log: " + r.message + "\n", 0), 0u) << run.err;
    }
}

}  // namespace
