// The framework's hexadecimal text: its traces' form, and the BMC key read back from it.
#include "Hex.h"

#include <gtest/gtest.h>

namespace {

TEST(HexTest, WritesUpperCaseDigitsWithTheSeparatorBetweenBytes) {
    const unsigned char bytes[] = {0x0A, 0x43, 0xFF, 0x00};
    EXPECT_EQ(hexText(bytes, sizeof bytes), "0A 43 FF 00");
    EXPECT_EQ(hexText(bytes, sizeof bytes, ""), "0A43FF00");
    EXPECT_EQ(hexText(bytes, 1), "0A");
    EXPECT_EQ(hexText(bytes, 0), "");
}

TEST(HexTest, ReadsDigitsOfEitherCaseAfterAnOptionalPrefix) {
    std::string out;
    EXPECT_TRUE(bytesFromHex("4b67", out));
    EXPECT_EQ(out, "Kg");
    EXPECT_TRUE(bytesFromHex("0x4B67", out));
    EXPECT_EQ(out, "Kg");
    EXPECT_TRUE(bytesFromHex("0X00fF", out));
    EXPECT_EQ(out, std::string("\x00\xFF", 2));
    EXPECT_TRUE(bytesFromHex("", out));
    EXPECT_EQ(out, "");
    EXPECT_TRUE(bytesFromHex("0x", out));
    EXPECT_EQ(out, "");
}

TEST(HexTest, RefusesAnOddNumberOfDigitsAndOtherCharactersLeavingNothing) {
    for (const char* text : {"abc", "0xzz", "4b 67", "x4b", "0x0x4b", "4g"}) {
        std::string out = "kept?";
        EXPECT_FALSE(bytesFromHex(text, out)) << text;
        EXPECT_EQ(out, "") << text;
    }
}

TEST(HexTest, ReadsBackWhatItWrites) {
    const unsigned char bytes[] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
    std::string out;
    ASSERT_TRUE(bytesFromHex(hexText(bytes, sizeof bytes, ""), out));
    EXPECT_EQ(out, std::string(reinterpret_cast<const char*>(bytes), sizeof bytes));
}

}  // namespace
