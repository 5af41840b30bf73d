// The settings an IpmiClient opens its session with: the thread's innermost scope, and for what it
// leaves unset, the process's defaults from the environment or built in.
#include "IpmiClientSettings.h"

#include <gtest/gtest.h>

#include <thread>

#include "ScopedEnvironment.h"

namespace {

using bmcsim::ScopedEnvironment;
using std::chrono::milliseconds;

TEST(IpmiClientSettingsTest, WithNothingSetTheBuiltInDefaultsHold) {
    const EffectiveIpmiClientSettings settings = effectiveSettings({});
    EXPECT_EQ(settings.privilegeLevel, 0);  // the highest granted
    EXPECT_EQ(settings.bmcKey, "");
    EXPECT_FALSE(settings.allowCipherSuiteZero);
    EXPECT_EQ(settings.sessionTimeout, milliseconds(10000));
    EXPECT_EQ(settings.retransmissionTimeout, milliseconds(1000));
    EXPECT_EQ(settings.unusable, "");
}

TEST(IpmiClientSettingsTest, TheEnvironmentGivesTheDefaultsOfWhatIsLeftUnset) {
    const ScopedEnvironment privilege("TOLMAR_IPMI_PRIVILEGE", "operator");
    const ScopedEnvironment key("TOLMAR_IPMI_BMC_KEY", "0x6B6579");
    const ScopedEnvironment zero("TOLMAR_IPMI_ALLOW_CIPHER_SUITE_0", "1");
    const ScopedEnvironment timeout("TOLMAR_IPMI_SESSION_TIMEOUT_MS", "2500");
    const ScopedEnvironment resend("TOLMAR_IPMI_RETRANSMISSION_TIMEOUT_MS", "250");
    const EffectiveIpmiClientSettings defaults = effectiveSettings({});
    EXPECT_EQ(defaults.privilegeLevel, 3);
    EXPECT_EQ(defaults.bmcKey, "key");
    EXPECT_TRUE(defaults.allowCipherSuiteZero);
    EXPECT_EQ(defaults.sessionTimeout, milliseconds(2500));
    EXPECT_EQ(defaults.retransmissionTimeout, milliseconds(250));

    IpmiClientSettings given;
    given.privilegeLevel = 2;
    given.bmcKey = "";
    given.allowCipherSuiteZero = false;
    given.sessionTimeout = milliseconds(700);
    const EffectiveIpmiClientSettings chosen = effectiveSettings(given);
    EXPECT_EQ(chosen.privilegeLevel, 2);
    EXPECT_EQ(chosen.bmcKey, "");
    EXPECT_FALSE(chosen.allowCipherSuiteZero);
    EXPECT_EQ(chosen.sessionTimeout, milliseconds(700));
    EXPECT_EQ(chosen.retransmissionTimeout, milliseconds(250));
}

TEST(IpmiClientSettingsTest, UnreadableDefaultsAreIgnoredButABmcKeyMakesThemUnusable) {
    const ScopedEnvironment privilege("TOLMAR_IPMI_PRIVILEGE", "root");
    const ScopedEnvironment timeout("TOLMAR_IPMI_SESSION_TIMEOUT_MS", "soon");
    EXPECT_EQ(effectiveSettings({}).privilegeLevel, 0);
    EXPECT_EQ(effectiveSettings({}).sessionTimeout, milliseconds(10000));
    const ScopedEnvironment key("TOLMAR_IPMI_BMC_KEY", "0xzz");
    EXPECT_EQ(effectiveSettings({}).unusable,
              "TOLMAR_IPMI_BMC_KEY is not a BMC key: up to 40 hexadecimal digits");
    IpmiClientSettings given;
    given.bmcKey = "key";  // the environment's is not read
    EXPECT_EQ(effectiveSettings(given).unusable, "");
}

TEST(IpmiClientSettingsTest, SettingsGivenOutOfRangeAreUnusableWithTheReason) {
    IpmiClientSettings badLevel;
    badLevel.privilegeLevel = 5;
    EXPECT_EQ(effectiveSettings(badLevel).unusable,
              "the privilege level is not user, operator or administrator");
    IpmiClientSettings longKey;
    longKey.bmcKey = std::string(21, 'k');
    EXPECT_EQ(effectiveSettings(longKey).unusable, "the BMC key is longer than 20 bytes");
    IpmiClientSettings noTime;
    noTime.retransmissionTimeout = milliseconds(0);
    EXPECT_EQ(effectiveSettings(noTime).unusable, "a timeout is not between 1 ms and 1 hour");
}

TEST(IpmiClientSettingsTest, ScopesNestOnTheirOwnThreadOnly) {
    EXPECT_FALSE(IpmiClientSettingsScope::current().cipherSuite);
    IpmiClientSettings suite17;
    suite17.cipherSuite = 17;
    const IpmiClientSettingsScope outer(suite17);
    {
        IpmiClientSettings suite3;
        suite3.cipherSuite = 3;
        const IpmiClientSettingsScope inner(suite3);
        EXPECT_EQ(IpmiClientSettingsScope::current().cipherSuite, 3ul);
    }
    EXPECT_EQ(IpmiClientSettingsScope::current().cipherSuite, 17ul);
    bool elsewhere = true;
    std::thread([&] {
        elsewhere = IpmiClientSettingsScope::current().cipherSuite.has_value();
    }).join();
    EXPECT_FALSE(elsewhere);
}

TEST(IpmiClientSettingsTest, WorkaroundNamesAreFlagsKnownWithoutEffectOrUnknown) {
    EXPECT_EQ(ipmiWorkaroundNamed("intel20"), kWorkaroundIntel20);
    EXPECT_EQ(ipmiWorkaroundNamed("nochecksumcheck"), kWorkaroundNoChecksumCheck);
    EXPECT_EQ(ipmiWorkaroundNamed("opensesspriv"), kWorkaroundOpenSessionPrivilege);
    for (const char* handled : {"authcap", "sun20", "supermicro20", "integritycheckvalue"}) {
        EXPECT_EQ(ipmiWorkaroundNamed(handled), kWorkaroundHandledAnyway) << handled;
    }
    EXPECT_EQ(ipmiWorkaroundNamed("idzero"), std::nullopt);

    IpmiClientSettings given;
    given.workarounds = {"sun20", "intel20", "authcap"};
    EffectiveIpmiClientSettings settings = effectiveSettings(given);
    EXPECT_EQ(settings.workarounds, unsigned{kWorkaroundIntel20});
    EXPECT_EQ(settings.unusable, "");
    given.workarounds = {"sun20", "idzero"};
    settings = effectiveSettings(given);
    EXPECT_EQ(settings.unusable,
              "no workaround is named \"idzero\"; there are authcap, nochecksumcheck, intel20, "
              "supermicro20, sun20, opensesspriv and integritycheckvalue");
}

}  // namespace
