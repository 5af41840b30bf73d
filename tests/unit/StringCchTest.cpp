#include "StringCch.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

std::string bytes(const char* buffer, std::size_t length) { return std::string(buffer, length); }

TEST(StringCchCopy, CutsALongSourceToCapacityMinusOne) {
    char buffer[10];
    std::memset(buffer, 'x', sizeof buffer);
    StringCchCopy(buffer, 8, "ABCDEFGHIJ");
    EXPECT_EQ(bytes(buffer, 10), std::string("ABCDEFG\0xx", 10));
}

TEST(StringCchCopy, ZeroFillsTheRestOfTheCapacity) {
    char buffer[10];
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(StringCchCopy(buffer, 8, "AB"), buffer);
    EXPECT_EQ(bytes(buffer, 10), std::string("AB\0\0\0\0\0\0xx", 10));
}

TEST(StringCchCat, AppendsAtMostCapacityMinusOneIntoAnEmptyBuffer) {
    char buffer[8] = {};
    EXPECT_EQ(StringCchCat(buffer, 8, "ABCDEFGHIJ"), buffer);
    EXPECT_STREQ(buffer, "ABCDEFG");
}

TEST(StringCchCat, NeverWritesPastTheCapacity) {
    char buffer[12];
    std::memset(buffer, 'x', sizeof buffer);
    std::memcpy(buffer, "ABCDE", 6);
    StringCchCat(buffer, 8, "1234567");  // five there, seven more: only two fit
    EXPECT_EQ(bytes(buffer, 12), std::string("ABCDE12\0xxxx", 12));
}

TEST(StringCchCat, UnterminatedTextIsCutAtTheLastPosition) {
    char buffer[12];
    std::memset(buffer, 'x', sizeof buffer);
    StringCchCat(buffer, 8, "AB");
    EXPECT_EQ(bytes(buffer, 12), std::string("xxxxxxx\0xxxx", 12));
}

TEST(StringCchCat, AppendsToTheTextAlreadyThere) {
    char buffer[16] = "XY";
    StringCchCat(buffer, 16, "ABC");
    EXPECT_STREQ(buffer, "XYABC");
}

TEST(StringCchPrintf, CutsAndReturnsTheFullLength) {
    char buffer[4];
    EXPECT_EQ(StringCchPrintf(buffer, 4, "%d", 12345), 5);
    EXPECT_STREQ(buffer, "123");
}

TEST(StringCchPrintf, FormatsWhenItFits) {
    char buffer[32];
    EXPECT_EQ(StringCchPrintf(buffer, sizeof buffer, "%02X-%s", 0x0A, "ok"), 5);
    EXPECT_STREQ(buffer, "0A-ok");
}

TEST(StringCchCatN, AppendsAtMostNCharacters) {
    char buffer[16] = "XY";
    EXPECT_EQ(StringCchCatN(buffer, 16, "ABCDEF", 3), buffer);
    EXPECT_STREQ(buffer, "XYABC");
}

TEST(StringCchCatN, IsBoundedByTheCapacityWhenNIsLarger) {
    char buffer[8] = {};
    StringCchCatN(buffer, 8, "ABCDEFGHIJ", 100);
    EXPECT_STREQ(buffer, "ABCDEFG");
}

}  // namespace
