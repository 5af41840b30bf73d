#include "CommandExchange.h"

#include <gtest/gtest.h>

#include "IpmiEventLog.h"
#include "IpmiException.h"

namespace {

using Tolmar::CommandResponse;
using Tolmar::IpmiEventLog;

CommandResponse answered(unsigned char completionCode, std::size_t length = 0) {
    return {0, completionCode, std::vector<unsigned char>(length, 0x00)};
}

TEST(CommandResponse, MapsCompletionCodesToResultCodes) {
    for (int code = 0; code <= 0xFF; ++code) {
        const int expected = code == 0x00   ? IpmiEventLog::EL_SUCCESS
                             : code == 0x80 ? IpmiEventLog::EL_NOT_SUPPORTED
                             : code == 0x81 ? IpmiEventLog::EL_BUSY
                                            : IpmiEventLog::EL_INTERNAL_FAIL;
        EXPECT_EQ(answered(static_cast<unsigned char>(code)).resultCode(), expected)
            << "completion code " << code;
    }
}

TEST(CommandResponse, TransportFailureIsInternalFailureWhateverTheCompletionCode) {
    EXPECT_EQ((CommandResponse{1, 0x00, {}}.resultCode()), IpmiEventLog::EL_INTERNAL_FAIL);
    EXPECT_EQ((CommandResponse{-1, 0x81, {}}.resultCode()), IpmiEventLog::EL_INTERNAL_FAIL);
}

TEST(CommandResponse, SucceedsOnlyWithCompletionCodeZeroAndEnoughBytes) {
    EXPECT_TRUE(answered(0x00, 2).succeeded(2));
    EXPECT_FALSE(answered(0x00, 1).succeeded(2));
    EXPECT_FALSE(answered(0xC1, 2).succeeded(2));
    EXPECT_FALSE((CommandResponse{1, 0x00, {0x01, 0x02}}.succeeded(2)));
}

TEST(CommandResponse, TruncatedOnlyWhenASuccessLacksBytes) {
    EXPECT_TRUE(answered(0x00, 1).truncated(2));
    EXPECT_FALSE(answered(0x00, 2).truncated(2));
    EXPECT_FALSE(answered(0xCB, 0).truncated(2));
    EXPECT_FALSE((CommandResponse{1, 0x00, {}}.truncated(2)));
}

TEST(CommandResponse, RaisesACommandFailureCarryingTheCompletionCode) {
    try {
        answered(0xCB).raise();
        FAIL() << "no exception";
    } catch (const IpmiException& e) {
        EXPECT_EQ(e.code(), 0xCB);
        EXPECT_EQ(e.type(), IPMI_EXCEPTION_COMMAND_FAILED);
        EXPECT_EQ(static_cast<int>(e.type()), 5);
    }
}

}  // namespace
