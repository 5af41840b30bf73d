// A connection profile as the library takes it: the host's own port or the profile's, IPv6 in
// brackets or bare, the local in-band interface, and the session's settings.
#include <gtest/gtest.h>

#include "fleet/IpmiEventSource.h"

namespace {

using tool::ConnectionProfile;

ConnectionProfile profileOf(const std::string& host) {
    ConnectionProfile profile;
    profile.host = host;
    profile.port = 6230;
    profile.user = "monitor";
    profile.password = "secret";
    return profile;
}

TEST(IpmiConnection, TheHostNamesItsPortOrTakesTheProfiles) {
    const auto named = tool::ipmiConnection(profileOf("[::1]:9"));
    EXPECT_EQ(named.connectionType, 1);
    EXPECT_EQ(named.ip, "::1");
    EXPECT_EQ(named.port, 9);
    EXPECT_EQ(named.user, "monitor");
    EXPECT_EQ(named.password, "secret");
    const auto bare = tool::ipmiConnection(profileOf("fe80::1"));
    EXPECT_EQ(bare.ip, "fe80::1");
    EXPECT_EQ(bare.port, 6230);
    const auto name = tool::ipmiConnection(profileOf("bmc1.example:700"));
    EXPECT_EQ(name.ip, "bmc1.example");
    EXPECT_EQ(name.port, 700);
    // No host: this machine's BMC, in band.
    EXPECT_EQ(tool::ipmiConnection(profileOf("")).connectionType, 0);
}

TEST(IpmiConnection, SettingsTravelWithTheProfile) {
    ConnectionProfile profile = profileOf("bmc1");
    profile.privilege = "operator";
    profile.cipherSuite = 3;
    profile.workarounds = {"intel20"};
    profile.sessionTimeout = std::chrono::milliseconds(2500);
    const Tolmar::ConnectionSettings settings = tool::ipmiSettings(profile);
    EXPECT_EQ(settings.privilege, Tolmar::ConnectionSettings::Privilege::Operator);
    EXPECT_EQ(tool::ipmiConnection(profile).cipherSuite, 3);
    EXPECT_FALSE(settings.cipherSuite.has_value());
    EXPECT_EQ(settings.workarounds, (std::vector<std::string>{"intel20"}));
    EXPECT_EQ(settings.sessionTimeout, std::chrono::milliseconds(2500));
    // No suite given: the strongest the BMC offers.
    EXPECT_EQ(tool::ipmiSettings(profileOf("bmc1")).cipherSuite,
              Tolmar::ConnectionSettings::AutoCipherSuite);
}

TEST(PrivilegeNames, AsIpmitoolAndFreeIpmiNameThem) {
    EXPECT_EQ(tool::privilegeName("ADMINISTRATOR"), "admin");
    EXPECT_EQ(tool::privilegeName("Operator"), "operator");
    EXPECT_EQ(tool::privilegeName("user"), "user");
    EXPECT_EQ(tool::privilegeName("callback"), std::nullopt);
}

}  // namespace
