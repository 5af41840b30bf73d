// A client choosing its cipher suite: it asks the BMC with Get Channel Cipher Suites outside a
// session and takes the strongest suite offered among those it speaks, remembering the choice for
// later sessions; a BMC that does not answer gets 17, then 3. Against the tests' own BMC, which
// lists what it is told, misreads its records' tags or refuses Open Session with the wrong status,
// and against ipmi_sim, through the framework client and the tool.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "CraftedBmc.h"
#include "IpmiClient.h"
#include "IpmiClientActivity.h"
#include "IpmiClientSettings.h"
#include "LanFixture.h"
#include "ToolRun.h"

namespace {

using bmcsim::CraftedBehaviour;
using bmcsim::CraftedBmc;
using bmcsim::ScopedEnvironment;
using bmcsim::ToolRun;
using Suites = std::vector<unsigned char>;

class CipherSuiteChoiceTest : public ::testing::Test {
protected:
    // A BMC whose user is named after the case: the process remembers what opened a session per
    // BMC and user, and a port may come round again.
    static CraftedBehaviour behaviourFor(const std::string& user, const Suites& listed,
                                         const Suites& accepted) {
        CraftedBehaviour behaviour;
        behaviour.user = user;
        behaviour.listedCipherSuites = listed;
        behaviour.acceptedCipherSuites = accepted;
        return behaviour;
    }

    // Connects as the BMC's user with `cipherSuite`; the call's record tells what came of it.
    static int connect(IpmiClient& client) {
        startIpmiCallRecord();
        return client.connect();
    }

    static IpmiClient clientOf(const CraftedBmc& bmc, const CraftedBehaviour& behaviour,
                               unsigned long cipherSuite = kChooseCipherSuite) {
        return IpmiClient("127.0.0.1", behaviour.user, behaviour.password,
                          std::to_string(bmc.port()), cipherSuite);
    }

    // Connects choosing the suite, and expects a session with `suite`.
    static void expectChosen(const CraftedBmc& bmc, const CraftedBehaviour& behaviour, int suite) {
        IpmiClient client = clientOf(bmc, behaviour);
        ASSERT_EQ(connect(client), 0) << ipmiCallRecord().connectFailure;
        EXPECT_EQ(ipmiCallRecord().session.cipherSuite, suite);
        EXPECT_EQ(ipmiCallRecord().session.ipmiVersion, "2.0");
        EXPECT_EQ(ipmiCallRecord().session.privilegeLevel, 4);
    }

    // The tool, as the BMC's user, with `arguments`.
    ToolRun tool(const CraftedBmc& bmc, const CraftedBehaviour& behaviour,
                 const std::string& arguments) const {
        return bmcsim::runShell("IPMI_PASSWORD='" + behaviour.password +
                                    "' TOLMAR_IPMI_SESSION_TIMEOUT_MS=2000 "
                                    "TOLMAR_IPMI_RETRANSMISSION_TIMEOUT_MS=200 " TOOL_PATH " -H " +
                                    host(bmc) + " -U " + behaviour.user + " -E " + arguments,
                                scratch);
    }

    static std::string host(const CraftedBmc& bmc) {
        return "127.0.0.1:" + std::to_string(bmc.port());
    }

    ScopedEnvironment timeout{"TOLMAR_IPMI_SESSION_TIMEOUT_MS", "2000"};
    ScopedEnvironment retransmission{"TOLMAR_IPMI_RETRANSMISSION_TIMEOUT_MS", "200"};
    bmcsim::ScratchDirectory scratch;
};

TEST_F(CipherSuiteChoiceTest, ABmcOfferingOnly17GetsItAfterOneGetChannelCipherSuites) {
    const CraftedBehaviour behaviour = behaviourFor("only17", {17}, {17});
    CraftedBmc bmc(behaviour);
    expectChosen(bmc, behaviour, 17);
    EXPECT_EQ(ipmiCallRecord().session.offeredCipherSuites, Suites({17}));
    EXPECT_EQ(bmc.cipherSuiteRequests(), 1);
    EXPECT_EQ(bmc.proposedCipherSuites(), std::vector<int>({17}));
}

TEST_F(CipherSuiteChoiceTest, ABmcOfferingOnly3GetsIt) {
    const CraftedBehaviour behaviour = behaviourFor("only3", {3}, {3});
    CraftedBmc bmc(behaviour);
    expectChosen(bmc, behaviour, 3);
    EXPECT_EQ(ipmiCallRecord().session.offeredCipherSuites, Suites({3}));
    EXPECT_EQ(bmc.proposedCipherSuites(), std::vector<int>({3}));
}

TEST_F(CipherSuiteChoiceTest, OfTheSuitesOfferedTheStrongestTheClientSpeaksIsTaken) {
    const struct {
        const char* user;
        Suites listed;
        int chosen;
    } cases[] = {
        {"of3and17", {3, 17}, 17},
        {"of1and2and16", {1, 2, 16}, 16},
        {"of0and1and6", {0, 1, 6}, 1},
        {"of15and2", {15, 2}, 2},
    };
    for (const auto& c : cases) {
        const CraftedBehaviour behaviour = behaviourFor(c.user, c.listed, {});
        CraftedBmc bmc(behaviour);
        expectChosen(bmc, behaviour, c.chosen);
        EXPECT_EQ(ipmiCallRecord().session.offeredCipherSuites, c.listed) << c.user;
        EXPECT_EQ(bmc.proposedCipherSuites(), std::vector<int>({c.chosen})) << c.user;
    }
}

TEST_F(CipherSuiteChoiceTest, ABmcIgnoringGetChannelCipherSuitesGets17Then3WithoutLongWait) {
    CraftedBehaviour behaviour = behaviourFor("silent", {}, {3});
    behaviour.answersCipherSuites = false;
    CraftedBmc bmc(behaviour);
    // Get Channel Cipher Suites is given two resend intervals (400 ms here), not the session's
    // timeout: the whole connection takes less than one timeout, a long one that leaves a loaded
    // machine room.
    const std::chrono::milliseconds sessionTimeout(20000);
    IpmiClientSettings settings;
    settings.sessionTimeout = sessionTimeout;
    const IpmiClientSettingsScope scope(settings);
    const auto start = std::chrono::steady_clock::now();
    expectChosen(bmc, behaviour, 3);
    EXPECT_LT(std::chrono::steady_clock::now() - start, sessionTimeout);
    EXPECT_EQ(bmc.cipherSuiteRequests(), 2);
    EXPECT_TRUE(ipmiCallRecord().session.offeredCipherSuites.empty());
    EXPECT_EQ(bmc.proposedCipherSuites(), std::vector<int>({17, 3}));
}

TEST_F(CipherSuiteChoiceTest, OpenSessionLeftUnansweredForASuiteNotListedGoesOnToTheNext) {
    CraftedBehaviour behaviour = behaviourFor("mute17", {}, {3});
    behaviour.answersCipherSuites = false;
    behaviour.ignoreUnacceptedSuites = true;
    CraftedBmc bmc(behaviour);
    expectChosen(bmc, behaviour, 3);
    const std::vector<int> proposed = bmc.proposedCipherSuites();
    ASSERT_GE(proposed.size(), 2u);
    EXPECT_EQ(std::count(proposed.begin(), proposed.end(), 17), proposed.size() - 1);
    EXPECT_EQ(proposed.back(), 3);

    // Silence for a suite the BMC listed: it is taken as gone, and nothing more is tried.
    CraftedBehaviour listing = behaviourFor("mutelisted", {17, 3}, {3});
    listing.ignoreUnacceptedSuites = true;
    CraftedBmc gone(listing);
    IpmiClient client = clientOf(gone, listing);
    EXPECT_EQ(connect(client), 1);
    EXPECT_EQ(ipmiCallRecord().connectFailure,
              "no answer to Open Session; check the address and port, that the BMC is powered and "
              "that IPMI over LAN is enabled on it");
    const std::vector<int> tried = gone.proposedCipherSuites();
    EXPECT_EQ(std::count(tried.begin(), tried.end(), 17), tried.size());
}

TEST_F(CipherSuiteChoiceTest, AnExplicitSuiteTheBmcDoesNotOfferFailsAsBefore) {
    const CraftedBehaviour behaviour = behaviourFor("explicit3", {17}, {17});
    CraftedBmc bmc(behaviour);
    IpmiClient client = clientOf(bmc, behaviour, 3);
    EXPECT_EQ(connect(client), 1);
    EXPECT_EQ(ipmiCallRecord().connectFailure,
              "Open Session refused: RMCP+ status 11h (no cipher suite match with proposed "
              "security algorithms); the BMC does not offer this cipher suite; choose one it "
              "offers (17 and 3 are the common ones; this client speaks 0-3, 6 and 15-17)");
    EXPECT_EQ(bmc.cipherSuiteRequests(), 0);
    EXPECT_EQ(bmc.proposedCipherSuites(), std::vector<int>({3}));
}

TEST_F(CipherSuiteChoiceTest, TheChoiceIsRememberedAndLaterSessionsAskNothingBeforeOpenSession) {
    const CraftedBehaviour behaviour = behaviourFor("remembered", {3, 17}, {});
    CraftedBmc bmc(behaviour);
    for (int session = 0; session < 3; ++session) {
        expectChosen(bmc, behaviour, 17);
        // What the first session learnt, the later ones report.
        EXPECT_EQ(ipmiCallRecord().session.offeredCipherSuites, Suites({3, 17}));
    }
    EXPECT_EQ(bmc.cipherSuiteRequests(), 1);
    EXPECT_EQ(bmc.proposedCipherSuites(), std::vector<int>({17, 17, 17}));
    EXPECT_TRUE(bmc.settlesAt(0));
}

// Records in three parts of 16 bytes, an OEM one among them: each suite is found whatever its
// algorithm bytes' tag bits say.
TEST_F(CipherSuiteChoiceTest, CipherSuiteRecordsWithWrongTagBitsAreReadByPosition) {
    const Suites listed = {1, 2, 0x80, 3, 6, 15, 16};
    for (bool wrongTags : {false, true}) {
        CraftedBehaviour behaviour =
            behaviourFor(wrongTags ? "wrongtags" : "righttags", listed, {});
        behaviour.wrongCipherSuiteTags = wrongTags;
        CraftedBmc bmc(behaviour);
        expectChosen(bmc, behaviour, 3);
        EXPECT_EQ(ipmiCallRecord().session.offeredCipherSuites, listed) << wrongTags;
        EXPECT_EQ(bmc.cipherSuiteRequests(), 3) << wrongTags;
        EXPECT_EQ(bmc.proposedCipherSuites(), std::vector<int>({3})) << wrongTags;
    }
}

// A BMC that lists 3 but refuses Open Session for every suite but 17, with "insufficient
// resources" or another wrong status for a suite it does not offer.
TEST_F(CipherSuiteChoiceTest, OpenSessionRefusedForAnUnofferedSuiteWithAWrongStatusGoesOnTo17) {
    for (unsigned char status : {0x01, 0x0A, 0x12}) {
        CraftedBehaviour behaviour = behaviourFor("refused" + std::to_string(status), {3}, {17});
        behaviour.cipherSuiteRefusal = status;
        CraftedBmc bmc(behaviour);
        expectChosen(bmc, behaviour, 17);
        EXPECT_EQ(bmc.proposedCipherSuites(), std::vector<int>({3, 17})) << int{status};
        // No session was left behind by the suite refused.
        EXPECT_TRUE(bmc.settlesAt(0));
    }
}

TEST_F(CipherSuiteChoiceTest, ABmcRefusingEverySuiteTriedSaysWhichWereTried) {
    CraftedBehaviour behaviour = behaviourFor("noneaccepted", {3}, {16});
    CraftedBmc bmc(behaviour);
    IpmiClient client = clientOf(bmc, behaviour);
    EXPECT_EQ(connect(client), 1);
    EXPECT_EQ(ipmiCallRecord().connectFailure,
              "Open Session refused: RMCP+ status 11h (no cipher suite match with proposed "
              "security algorithms) (cipher suites tried in turn: 3 and 17); the BMC does not "
              "offer this cipher suite; choose one it offers (17 and 3 are the common ones; this "
              "client speaks 0-3, 6 and 15-17)");
    EXPECT_EQ(bmc.proposedCipherSuites(), std::vector<int>({3, 17}));
}

TEST_F(CipherSuiteChoiceTest, TheToolWithoutCipherSuiteReachesABmcOfferingOnly17) {
    const CraftedBehaviour behaviour = behaviourFor("tool17", {17}, {17});
    CraftedBmc bmc(behaviour);
    const ToolRun run = tool(bmc, behaviour, "status");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, host(bmc) + ": connected\n");
    EXPECT_EQ(run.err, "");

    const ToolRun explicit3 = tool(bmc, behaviour, "-C 3 status");
    EXPECT_EQ(explicit3.status, 13);
    EXPECT_EQ(explicit3.err,
              "ipmi-event-log: cannot connect to " + host(bmc) +
                  ": Open Session refused: RMCP+ status 11h (no cipher suite match with proposed "
                  "security algorithms); the BMC does not offer this cipher suite; choose one it "
                  "offers (17 and 3 are the common ones; this client speaks 0-3, 6 and 15-17)\n");
    EXPECT_EQ(tool(bmc, behaviour, "-C auto status").status, 0);
}

TEST_F(CipherSuiteChoiceTest, StatusVerboseSaysWhatTheClientLearnt) {
    const CraftedBehaviour behaviour = behaviourFor("verbose", {3, 17}, {});
    CraftedBmc bmc(behaviour);
    const ToolRun run = tool(bmc, behaviour, "status -v");
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, host(bmc) +
                           ": connected\n"
                           "  IPMI version: 2.0\n"
                           "  cipher suites offered: 3 17\n"
                           "  cipher suite: 17\n"
                           "  privilege level: administrator\n"
                           "  workarounds: none\n");
    // -v still traces the exchange.
    EXPECT_NE(run.err.find("request: netFn 06h command 3Dh"), std::string::npos) << run.err;

    const ToolRun given = tool(bmc, behaviour, "-C 3 -L operator status -v");
    EXPECT_EQ(given.status, 0) << given.err;
    EXPECT_EQ(given.out, host(bmc) +
                             ": connected\n"
                             "  IPMI version: 2.0\n"
                             "  cipher suites offered: not asked\n"
                             "  cipher suite: 3\n"
                             "  privilege level: operator\n"
                             "  workarounds: none\n");
    // A departure recognised, and a workaround given.
    CraftedBehaviour bending = behaviourFor("bending", {17}, {});
    bending.keysOfOpenSessionPrivilege = true;
    CraftedBmc bent(bending);
    const ToolRun met = tool(bent, bending, "--workaround nochecksumcheck,sun20 status -v");
    EXPECT_EQ(met.status, 0) << met.err;
    EXPECT_EQ(met.out, host(bent) +
                           ": connected\n"
                           "  IPMI version: 2.0\n"
                           "  cipher suites offered: 17\n"
                           "  cipher suite: 17\n"
                           "  privilege level: administrator\n"
                           "  workarounds: keys derived from Open Session's privilege level "
                           "(recognised)\n");
}

class CipherSuiteChoiceOverIpmiSimTest : public bmcsim::LanTest {};

TEST_F(CipherSuiteChoiceOverIpmiSimTest, TheToolWithoutCipherSuiteReachesIpmiSim) {
    bmcsim::ScratchDirectory scratch;
    const ToolRun run = bmcsim::runShell(
        "IPMI_PASSWORD='" + std::string(bmcsim::kAdministrator.password) +
            "' TOLMAR_IPMI_SESSION_TIMEOUT_MS=2000 "
            "TOLMAR_IPMI_RETRANSMISSION_TIMEOUT_MS=200 " TOOL_PATH " -H 127.0.0.1:" +
            std::to_string(bmc->port()) + " -U " + bmcsim::kAdministrator.name + " -E status -v",
        scratch);
    EXPECT_EQ(run.status, 0) << run.err;
    // ipmi_sim lists suites 0 to 14 and speaks none with SHA-256: 3 is the strongest of them.
    EXPECT_EQ(run.out, "127.0.0.1:" + std::to_string(bmc->port()) +
                           ": connected\n"
                           "  IPMI version: 2.0\n"
                           "  cipher suites offered: 0 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"
                           "  cipher suite: 3\n"
                           "  privilege level: administrator\n"
                           "  workarounds: none\n")
        << run.err;
}

}  // namespace
