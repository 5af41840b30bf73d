// The framework's client as shipped, before a transport is built in: it must refuse to connect,
// say why, and never pretend to reach a BMC.
#include "IpmiClient.h"

#include <gtest/gtest.h>

#include "Log.h"
#include "LogCapture.h"

namespace {

TEST(FrameworkIpmiClient, LanConnectFailsWithoutClaimingAuthenticationAndSaysWhy) {
    LogCapture capture;
    IpmiClient client("bmc.example.test", "admin", "pw-77", "623", 3);
    const int status = client.connect();
    EXPECT_NE(status, 0);
    EXPECT_NE(status, 2);
    EXPECT_NE(capture.text().find("bmc.example.test:623"), std::string::npos) << capture.text();
    EXPECT_NE(capture.text().find("no IPMI transport"), std::string::npos);
    EXPECT_EQ(capture.text().find("pw-77"), std::string::npos);
}

TEST(FrameworkIpmiClient, LocalConnectFails) {
    LogCapture capture;
    IpmiClient client(0ul);
    const int status = client.connect();
    EXPECT_NE(status, 0);
    EXPECT_NE(status, 2);
    EXPECT_NE(capture.text().find("local interface"), std::string::npos);
}

TEST(FrameworkIpmiClient, SendingWithoutASessionFailsHarmlessly) {
    LogCapture capture;
    IpmiClient client(0ul);
    client.connect();
    std::vector<unsigned char> response = {0x01};
    unsigned char completionCode = 0x00;
    EXPECT_NE(client.sendCommand({0x42, {}, 0x0A}, response, completionCode), 0);
    EXPECT_EQ(response, std::vector<unsigned char>{0x01});
    EXPECT_EQ(completionCode, 0x00);
}

TEST(FrameworkIpmiClient, DisconnectIsHarmlessTwiceAndWithoutConnect) {
    IpmiClient client(0ul);
    client.disconnect();
    client.disconnect();
}

}  // namespace
