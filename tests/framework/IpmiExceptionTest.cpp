#include "IpmiException.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(IpmiException, KeepsCodeAndType) {
    const IpmiException e(0xCB, IPMI_EXCEPTION_COMMAND_FAILED);
    EXPECT_EQ(e.code(), 0xCB);
    EXPECT_EQ(e.type(), IPMI_EXCEPTION_COMMAND_FAILED);
}

TEST(IpmiException, TypesHaveTheFrameworkValues) {
    EXPECT_EQ(IPMI_EXCEPTION_UNKNOWN, 0);
    EXPECT_EQ(IPMI_EXCEPTION_CONNECTION, 1);
    EXPECT_EQ(IPMI_EXCEPTION_AUTHENTICATION, 2);
    EXPECT_EQ(IPMI_EXCEPTION_TIMEOUT, 3);
    EXPECT_EQ(IPMI_EXCEPTION_TRANSPORT, 4);
    EXPECT_EQ(IPMI_EXCEPTION_COMMAND_FAILED, 5);
}

TEST(IpmiException, SaysWhatFailedAndTheCodeInHex) {
    EXPECT_EQ(std::string(IpmiException(0xCB, IPMI_EXCEPTION_COMMAND_FAILED).what()),
              "IPMI command failed (code 203, 0xCB)");
    EXPECT_EQ(std::string(IpmiException(0, IPMI_EXCEPTION_TIMEOUT).what()),
              "IPMI timed out (code 0, 0x00)");
}

TEST(IpmiException, IsCaughtAsAStandardException) {
    try {
        throw IpmiException(1, IPMI_EXCEPTION_CONNECTION);
    } catch (const std::exception& e) {
        EXPECT_EQ(std::string(e.what()), "IPMI connection failed (code 1, 0x01)");
    }
}

}  // namespace
