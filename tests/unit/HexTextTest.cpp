// The library's hexadecimal text: the forms its traces, auxiliary entries and state file take.
#include "HexText.h"

#include <gtest/gtest.h>

namespace {

using Tolmar::HexCase;

TEST(HexTextTest, WritesEachByteInTheCaseAskedForFollowedByTheSuffix) {
    const unsigned char bytes[] = {0x0A, 0x1B, 0xFF};
    EXPECT_EQ(Tolmar::hexText(bytes, sizeof bytes, HexCase::Lower), "0a1bff");
    EXPECT_EQ(Tolmar::hexText(bytes, sizeof bytes, HexCase::Upper, " "), "0A 1B FF ");
    EXPECT_EQ(Tolmar::hexText(bytes, 0, HexCase::Upper, " "), "");
}

TEST(HexTextTest, ReadsBackExactlyTheTextItWrites) {
    unsigned char bytes[2] = {0x11, 0x22};
    EXPECT_TRUE(Tolmar::bytesFromHex("0aff", HexCase::Lower, bytes, 2));
    EXPECT_EQ(bytes[0], 0x0A);
    EXPECT_EQ(bytes[1], 0xFF);
    EXPECT_TRUE(Tolmar::bytesFromHex("1B2C", HexCase::Upper, bytes, 2));
    EXPECT_EQ(bytes[0], 0x1B);
    EXPECT_EQ(bytes[1], 0x2C);
}

TEST(HexTextTest, RefusesOtherLengthsCasesAndCharactersWritingNothing) {
    for (const char* text : {"0aF0", "0a", "0a0b0c", "0a g", "0x0a"}) {
        unsigned char bytes[2] = {0x11, 0x22};
        EXPECT_FALSE(Tolmar::bytesFromHex(text, HexCase::Lower, bytes, 2)) << text;
        EXPECT_EQ(bytes[0], 0x11) << text;
        EXPECT_EQ(bytes[1], 0x22) << text;
    }
}

}  // namespace
