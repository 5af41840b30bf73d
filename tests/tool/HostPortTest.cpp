// HOST[:PORT] as every address of the tool is written: names, IPv4 and IPv6 addresses, ports, and
// the texts that are none.
#include <gtest/gtest.h>

#include "base/HostPort.h"

namespace {

using tool::HostPort;
using tool::parseHostPort;
using tool::PortZero;

std::string refusal(const std::string& text, PortZero zero = PortZero::Refused) {
    try {
        const HostPort address = parseHostPort(text, zero);
        return "taken: " + tool::joinHostPort(address);
    } catch (const tool::HostPortError& e) {
        return e.what();
    }
}

TEST(HostPort, TakesANameOrAnIpv4AddressWithOrWithoutAPort) {
    HostPort a = parseHostPort("bmc1.example");
    EXPECT_EQ(a.host, "bmc1.example");
    EXPECT_FALSE(a.port);
    EXPECT_FALSE(a.ipv6);
    a = parseHostPort("bmc1.example:623");
    EXPECT_EQ(a.host, "bmc1.example");
    EXPECT_EQ(a.port, 623);
    a = parseHostPort("10.0.0.7:65535");
    EXPECT_EQ(a.host, "10.0.0.7");
    EXPECT_EQ(a.port, 65535);
    EXPECT_EQ(parseHostPort("h:1").port, 1);
    EXPECT_EQ(parseHostPort("h:00623").port, 623);
}

TEST(HostPort, TakesAnIpv6AddressInBracketsWithOrWithoutAPort) {
    HostPort a = parseHostPort("[::1]:9290");
    EXPECT_EQ(a.host, "::1");
    EXPECT_EQ(a.port, 9290);
    EXPECT_TRUE(a.ipv6);
    a = parseHostPort("[fd00::7]");
    EXPECT_EQ(a.host, "fd00::7");
    EXPECT_FALSE(a.port);
    EXPECT_TRUE(a.ipv6);
    // A link-local address names its interface.
    a = parseHostPort("[fe80::1%eth0]:623");
    EXPECT_EQ(a.host, "fe80::1%eth0");
    EXPECT_EQ(a.port, 623);
}

TEST(HostPort, ABareIpv6AddressIsTheWholeTextWithNoPort) {
    for (const char* bare :
         {"::1", "fd00::7", "2001:db8::623", "::ffff:10.0.0.7", "fe80::1%eth0"}) {
        const HostPort a = parseHostPort(bare);
        EXPECT_EQ(a.host, bare);
        EXPECT_FALSE(a.port) << bare;
        EXPECT_TRUE(a.ipv6) << bare;
    }
}

TEST(HostPort, PortZeroOnlyWhereTheCallerAllowsIt) {
    EXPECT_EQ(refusal("127.0.0.1:0"), "\"0\" is not a port from 1 to 65535");
    EXPECT_EQ(refusal("127.0.0.1:0", PortZero::Allowed), "taken: 127.0.0.1:0");
    EXPECT_EQ(refusal("[::]:0", PortZero::Allowed), "taken: [::]:0");
    EXPECT_EQ(refusal("[::]:65536", PortZero::Allowed), "\"65536\" is not a port from 0 to 65535");
}

TEST(HostPort, TextsThatAreNoHostAndPortAreRefusedSayingWhy) {
    const char* const kNotIpv6 =
        "is not an IPv6 address; a port follows an IPv6 address in brackets: [ADDRESS]:PORT";
    const struct {
        const char* text;
        const char* reason;
    } cases[] = {
        {"", "no host"},
        {":623", "no host before the port"},
        {"bmc1:", "no port after \":\""},
        {"bmc1:65536", "\"65536\" is not a port from 1 to 65535"},
        {"bmc1:123456", "\"123456\" is not a port from 1 to 65535"},
        {"bmc1:0x26f", "\"0x26f\" is not a port from 1 to 65535"},
        {"bmc1:-1", "\"-1\" is not a port from 1 to 65535"},
        {"bmc1:+623", "\"+623\" is not a port from 1 to 65535"},
        {"bmc1: 623", "\" 623\" is not a port from 1 to 65535"},
        {"[::1", "no \"]\" after the IPv6 address"},
        {"[", "no \"]\" after the IPv6 address"},
        {"[]:623", "no address between \"[\" and \"]\""},
        {"[::1]x", "only \":PORT\" may follow \"]\""},
        {"[::1]623", "only \":PORT\" may follow \"]\""},
        {"[::1]:", "no port after \":\""},
        {"[::1]:0", "\"0\" is not a port from 1 to 65535"},
        {"[bmc1]:623", "\"bmc1\" is not an IPv6 address"},
        {"[10.0.0.7]", "\"10.0.0.7\" is not an IPv6 address"},
        {"[fe80::1%]", "\"fe80::1%\" is not an IPv6 address"},
        {"bmc1:623:1", kNotIpv6},
        {"::1:", kNotIpv6},
        // Bytes that are not printable are not echoed raw.
        {"bmc1:\x1b[2J", "\"\\x1B[2J\" is not a port from 1 to 65535"},
    };
    for (const auto& c : cases) EXPECT_EQ(refusal(c.text), c.reason) << c.text;
}

TEST(HostPort, JoiningBracketsAnIpv6AddressOnlyBeforeAPort) {
    EXPECT_EQ(tool::joinHostPort({"::1", 623, true}), "[::1]:623");
    EXPECT_EQ(tool::joinHostPort({"::1", std::nullopt, true}), "::1");
    EXPECT_EQ(tool::joinHostPort({"bmc1", 623, false}), "bmc1:623");
    EXPECT_EQ(tool::joinHostPort({"bmc1", std::nullopt, false}), "bmc1");
    for (const char* text : {"[fd00::7]:9", "fd00::7", "bmc1:623", "bmc1", "10.0.0.7:1"})
        EXPECT_EQ(tool::joinHostPort(parseHostPort(text)), text);
}

}  // namespace
