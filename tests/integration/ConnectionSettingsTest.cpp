// Settings that travel with each connection: threads of one process reading different BMCs at the
// same time, each with its own user, privilege level, cipher suite and BMC key, get their own; a
// thread that gives none gets the process's defaults (the environment's).
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "BmcSimulator.h"
#include "CraftedBmc.h"
#include "IpmiConnectionSettings.h"
#include "IpmiEventFollower.h"
#include "IpmiEventLog.h"
#include "LanFixture.h"

namespace {

using bmcsim::BmcSimulator;
using bmcsim::CraftedBehaviour;
using bmcsim::CraftedBmc;
using bmcsim::LanUser;
using bmcsim::ScopedEnvironment;
using Tolmar::CallReport;
using Tolmar::ConnectionScope;
using Tolmar::ConnectionSettings;
using Tolmar::IpmiEventLog;
using Tolmar::TolmarConnection::ConnectionInfo;
using Privilege = ConnectionSettings::Privilege;

constexpr int kRounds = 3;  // each thread's request, repeated while the others run theirs

ConnectionInfo lan(unsigned short port, const std::string& user, const std::string& password) {
    ConnectionInfo info;
    info.ip = BmcSimulator::host();
    info.port = port;
    info.user = user;
    info.password = password;
    info.connectionType = 1;
    return info;  // cipher suite 3, as ConnectionInfo has it by default
}

ConnectionInfo lan(const BmcSimulator& bmc, const LanUser& user) {
    return lan(bmc.port(), user.name, user.password);
}

ConnectionInfo lan(const CraftedBmc& bmc, const CraftedBehaviour& behaviour) {
    return lan(bmc.port(), behaviour.user, behaviour.password);
}

Tolmar::IPMISELENTRY sampleEntry() {
    Tolmar::IPMISELENTRY entry;
    std::memcpy(&entry, bmcsim::sampleEventLog().front().data(), sizeof entry);
    return entry;
}

// What one thread's rounds gave: each round's result and report.
struct Rounds {
    std::vector<int> results;
    std::vector<CallReport> reports;
};

// Runs `request` kRounds times on a thread of its own, inside a scope of `settings` when given.
std::thread inThread(Rounds& out, const std::optional<ConnectionSettings>& settings,
                     std::function<int()> request) {
    return std::thread([&out, settings, request] {
        std::optional<ConnectionScope> scope;
        if (settings) scope.emplace(*settings);
        for (int round = 0; round < kRounds; ++round) {
            out.results.push_back(request());
            if (scope) out.reports.push_back(scope->LastCall());
        }
    });
}

TEST(ConnectionSettingsTest, ThreadsReadingDifferentBmcsAtOnceEachUseTheirOwnSettings) {
    BmcSimulator first;
    // A SEL that is never empty while the follower reads it: an empty one reads as incomplete.
    BmcSimulator second("", {}, {bmcsim::sampleEventLog().front()});
    CraftedBehaviour keyed;
    keyed.bmcKey = "the-bmc-key";
    CraftedBmc keyedBmc(keyed);
    CraftedBmc keyedBmcWithoutSettings(keyed);
    // The process's defaults: the user privilege level, for threads that give no settings.
    const ScopedEnvironment privilege("TOLMAR_IPMI_PRIVILEGE", "user");
    const ScopedEnvironment timeout("TOLMAR_IPMI_SESSION_TIMEOUT_MS", "3000");
    const Tolmar::IPMISELENTRY entry = sampleEntry();

    ConnectionSettings operatorWithSuite1;
    operatorWithSuite1.privilege = Privilege::Operator;
    operatorWithSuite1.cipherSuite = 1;
    ConnectionSettings suite17;
    suite17.cipherSuite = 17;
    ConnectionSettings withKey;
    withKey.bmcKey = keyed.bmcKey;
    ConnectionSettings viewer;
    viewer.privilege = Privilege::User;

    Rounds defaults, operators, refusedSuite, keyedRounds, unkeyed, followed;
    std::vector<std::thread> threads;
    // No settings: the environment's user level, which may not add to the SEL.
    threads.push_back(inThread(defaults, std::nullopt, [&] {
        return IpmiEventLog(lan(first, bmcsim::kOperator)).AddSelEntry(entry);
    }));
    threads.push_back(inThread(operators, operatorWithSuite1, [&] {
        return IpmiEventLog(lan(second, bmcsim::kOperator)).AddSelEntry(entry);
    }));
    threads.push_back(inThread(refusedSuite, suite17, [&] {
        std::vector<Tolmar::IPMISELENTRY> entries;
        return IpmiEventLog(lan(first, bmcsim::kAdministrator)).GetAllIpmiSelEntry(entries);
    }));
    threads.push_back(inThread(keyedRounds, withKey, [&] {
        return IpmiEventLog(lan(keyedBmc, keyed)).AddSelEntry(entry);
    }));
    threads.push_back(inThread(unkeyed, std::nullopt, [&] {
        return IpmiEventLog(lan(keyedBmcWithoutSettings, keyed)).AddSelEntry(entry);
    }));
    // A follower takes its settings beside its connection, whatever the thread's scope says.
    Tolmar::IpmiEventFollower follower(lan(second, bmcsim::kViewer), viewer);
    std::vector<Tolmar::PollResult> polls;
    threads.push_back(inThread(followed, suite17, [&] {
        std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
        polls.push_back(follower.Poll(events));
        return polls.back().result;
    }));
    for (std::thread& thread : threads) thread.join();

    for (int round = 0; round < kRounds; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        // The user level refuses Add SEL Entry with D4h (insufficient privilege).
        EXPECT_EQ(defaults.results[round], IpmiEventLog::EL_INTERNAL_FAIL);
        EXPECT_EQ(operators.results[round], IpmiEventLog::EL_SUCCESS);
        EXPECT_EQ(
            operators.reports[round].warning,
            "cipher suite 1 has no integrity check: answers from 127.0.0.1:" +
                std::to_string(second.port()) +
                " can be forged or replayed by anyone on the network path; 17 and 3 have one");
        // ipmi_sim offers no cipher suite 17.
        EXPECT_EQ(refusedSuite.results[round], IpmiEventLog::EL_CONNECTION_FAIL);
        EXPECT_NE(refusedSuite.reports[round].connectFailure.find(
                      "the BMC does not offer this cipher suite"),
                  std::string::npos)
            << refusedSuite.reports[round].connectFailure;
        // Keyed, the session opens; the crafted BMC refuses the command itself with C1h.
        EXPECT_EQ(keyedRounds.results[round], IpmiEventLog::EL_INTERNAL_FAIL);
        EXPECT_EQ(keyedRounds.reports[round].connectFailure, "");
        EXPECT_EQ(keyedRounds.reports[round].refusal, "the BMC answered C1h (invalid command)");
        EXPECT_EQ(unkeyed.results[round], IpmiEventLog::EL_AUTHTICATION_FAIL);
        EXPECT_EQ(followed.results[round], IpmiEventLog::EL_SUCCESS);
        EXPECT_TRUE(polls[round].complete);
        EXPECT_EQ(polls[round].failure, "");
        EXPECT_EQ(polls[round].call.warning, "");
    }
    // What the keyed thread's settings left unset came from the environment: the user level.
    EXPECT_EQ(keyedBmc.grantedPrivilege(), 2);
    // What the BMCs hold: the operator's additions, on the second BMC only.
    ConnectionSettings administrator;
    administrator.privilege = Privilege::Administrator;
    const ConnectionScope scope(administrator);
    std::vector<Tolmar::IPMISELENTRY> entries;
    EXPECT_EQ(IpmiEventLog(lan(first, bmcsim::kAdministrator)).GetAllIpmiSelEntry(entries), 0);
    EXPECT_TRUE(entries.empty());
    EXPECT_EQ(IpmiEventLog(lan(second, bmcsim::kAdministrator)).GetAllIpmiSelEntry(entries), 0);
    EXPECT_EQ(entries.size(), static_cast<std::size_t>(1 + kRounds));
}

TEST(ConnectionSettingsTest, SettingsThatCannotBeUsedFailTheConnectionWithTheReason) {
    BmcSimulator bmc;
    ConnectionSettings settings;
    settings.bmcKey = std::string(21, 'k');
    const ConnectionScope scope(settings);
    std::vector<Tolmar::IPMISELENTRY> entries;
    EXPECT_EQ(IpmiEventLog(lan(bmc, bmcsim::kAdministrator)).GetAllIpmiSelEntry(entries),
              IpmiEventLog::EL_CONNECTION_FAIL);
    EXPECT_EQ(scope.LastCall().connectFailure,
              "the BMC key is longer than 20 bytes; check the user name, the password, the BMC "
              "key and the workarounds");
}

TEST(ConnectionSettingsTest, AProgramChoosesTheCipherSuiteByAskingAndNamesWorkarounds) {
    CraftedBehaviour behaviour;
    behaviour.user = "asking";
    behaviour.listedCipherSuites = {17};
    behaviour.acceptedCipherSuites = {17};
    CraftedBmc bmc(behaviour);
    ScopedEnvironment timeout{"TOLMAR_IPMI_SESSION_TIMEOUT_MS", "2000"};
    ScopedEnvironment retransmission{"TOLMAR_IPMI_RETRANSMISSION_TIMEOUT_MS", "200"};
    // ConnectionInfo's cipher suite, 3, is not offered.
    EXPECT_EQ(IpmiEventLog(lan(bmc, behaviour)).GetConnectStatus(), 1);

    ConnectionSettings settings;
    settings.cipherSuite = ConnectionSettings::AutoCipherSuite;
    settings.workarounds = {"opensesspriv"};
    const ConnectionScope scope(settings);
    EXPECT_EQ(IpmiEventLog(lan(bmc, behaviour)).GetConnectStatus(), 0)
        << scope.LastCall().connectFailure;
    const Tolmar::SessionReport& session = scope.LastCall().session;
    EXPECT_EQ(session.ipmiVersion, "2.0");
    EXPECT_EQ(session.offeredCipherSuites, std::vector<std::uint16_t>({17}));
    EXPECT_EQ(session.cipherSuite, std::optional<std::uint16_t>(17));
    EXPECT_EQ(session.privilege, std::optional<Privilege>(Privilege::Administrator));
    EXPECT_EQ(session.workarounds, std::vector<std::string>({"opensesspriv"}));
    EXPECT_EQ(bmc.openSessionPrivilege(), 4);

    // A workaround of no name fails the connection with the names there are.
    settings.workarounds = {"intel21"};
    const ConnectionScope misnamed(settings);
    EXPECT_EQ(IpmiEventLog(lan(bmc, behaviour)).GetConnectStatus(), 1);
    EXPECT_EQ(misnamed.LastCall().connectFailure,
              "no workaround is named \"intel21\"; there are authcap, nochecksumcheck, intel20, "
              "supermicro20, sun20, opensesspriv and integritycheckvalue; check the user name, the "
              "password, the BMC key and the workarounds");
}

TEST(ConnectionSettingsTest, AFollowersSettingsChangedBetweenPollsOpenItsNextSession) {
    BmcSimulator bmc;
    ConnectionSettings suite17;
    suite17.cipherSuite = 17;  // which ipmi_sim does not offer
    Tolmar::IpmiEventFollower follower(lan(bmc, bmcsim::kAdministrator), suite17);
    std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
    EXPECT_EQ(follower.Poll(events).result, IpmiEventLog::EL_CONNECTION_FAIL);
    ConnectionSettings suite3;
    suite3.cipherSuite = 3;
    follower.SetSettings(suite3);
    EXPECT_EQ(follower.Poll(events).result, IpmiEventLog::EL_SUCCESS);
}

}  // namespace
