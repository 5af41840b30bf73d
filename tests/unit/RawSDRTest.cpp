#include "RawSDR.h"

#include <gtest/gtest.h>

#include <vector>

#include "RecordBytes.h"

namespace {

using sim::bytesOf;

// Get SDR response for the first part (offset 0, 10 bytes) of a full sensor record.
const std::vector<unsigned char> kFirstPart = {
    0x05, 0x00,  // next record ID
    0x04, 0x00,  // record ID 0x0004
    0x51,        // SDR version 1.5
    0x01,        // record type: full sensor record
    0x3F,        // record length
    0x20,        // sensor owner ID: BMC
    0x00,        // sensor owner LUN
    0x30,        // sensor number
    0x03,        // entity ID: processor
    0x01,        // entity instance
};

// Get SDR response for the second part (offset 20, 10 bytes).
const std::vector<unsigned char> kSecondPart = {
    0x05, 0x00,  // next record ID
    0x00,        // sensor units 1: unsigned, no rate, no modifier
    0x01,        // base unit: degrees C
    0x00,        // modifier unit
    0x00,        // linearization: linear
    0x01,        // M
    0x00,        // M tolerance
    0x00,        // B
    0x00,        // B accuracy
    0x00,        // accuracy, direction
    0x00,        // R and B exponents
};

TEST(RawSDR, NeverFilledIsSixtyFourZeroBytes) {
    EXPECT_EQ(bytesOf(RawSDR()), std::vector<unsigned char>(64, 0));
}

TEST(RawSDR, FirstPartFillsPositionsZeroToNineOnly) {
    RawSDR sdr;
    sdr.setFirstPartValues(kFirstPart);
    const std::vector<unsigned char> bytes = bytesOf(sdr);
    EXPECT_EQ(std::vector<unsigned char>(bytes.begin(), bytes.begin() + 10),
              std::vector<unsigned char>(kFirstPart.begin() + 2, kFirstPart.end()));
    EXPECT_EQ(std::vector<unsigned char>(bytes.begin() + 10, bytes.end()),
              std::vector<unsigned char>(54, 0));
}

TEST(RawSDR, SecondPartFillsPositionsTwentyToTwentyNine) {
    RawSDR sdr;
    sdr.setSecondPartValues(kSecondPart);
    std::vector<unsigned char> expected(64, 0);
    std::copy(kSecondPart.begin() + 2, kSecondPart.end(), expected.begin() + 20);
    EXPECT_EQ(bytesOf(sdr), expected);
}

TEST(RawSDR, ThirdPartPutsTypeLengthAtFortySevenAndIdStringFromFortyEight) {
    RawSDR sdr;
    sdr.setThirdPartValues({0x05, 0x00, 0xC9, 'C', 'P', 'U', '1', ' ', 'T', 'e', 'm', 'p'});
    std::vector<unsigned char> expected(64, 0);
    expected[47] = 0xC9;  // 8-bit ASCII, 9 characters
    const char text[] = "CPU1 Temp";
    std::copy(text, text + 9, expected.begin() + 48);
    EXPECT_EQ(bytesOf(sdr), expected);
}

TEST(RawSDR, ThirdPartOfThreeBytesFillsPositionFortySevenOnly) {
    RawSDR sdr;
    sdr.setThirdPartValues({0x05, 0x00, 0xC0});
    std::vector<unsigned char> expected(64, 0);
    expected[47] = 0xC0;
    EXPECT_EQ(bytesOf(sdr), expected);
}

TEST(RawSDR, ThirdPartWithSixteenCharactersFillsUpToPositionSixtyThree) {
    std::vector<unsigned char> response = {0x05, 0x00, 0xD0};
    for (unsigned char c = 'a'; c < 'a' + 16; ++c) response.push_back(c);
    RawSDR sdr;
    sdr.setThirdPartValues(response);
    EXPECT_EQ(sdr.bytes[47], 0xD0);
    EXPECT_EQ(sdr.bytes[48], 'a');
    EXPECT_EQ(sdr.bytes[63], 'p');
}

TEST(RawSDR, ThirdPartLongerThanTheRecordIsCutAtPositionSixtyThree) {
    std::vector<unsigned char> response = {0x05, 0x00, 0xD8};
    for (int i = 0; i < 24; ++i) response.push_back(static_cast<unsigned char>('A' + i));
    struct {
        RawSDR sdr;
        unsigned char guard[8];
    } framed{};
    framed.sdr.setThirdPartValues(response);
    EXPECT_EQ(framed.sdr.bytes[63], 'A' + 15);
    EXPECT_EQ(std::vector<unsigned char>(framed.guard, framed.guard + 8),
              std::vector<unsigned char>(8, 0));
}

TEST(RawSDR, FillsIgnoreResponseBytesZeroAndOne) {
    std::vector<unsigned char> other = kFirstPart;
    other[0] = 0xFF;
    other[1] = 0xFF;
    RawSDR a;
    RawSDR b;
    a.setFirstPartValues(kFirstPart);
    b.setFirstPartValues(other);
    EXPECT_EQ(bytesOf(a), bytesOf(b));
}

TEST(RawSDR, ShortResponsesFillOnlyWhatTheyHold) {
    RawSDR sdr;
    sdr.setFirstPartValues({0x05, 0x00, 0x04, 0x00, 0x51});
    sdr.setSecondPartValues({0x05});
    sdr.setThirdPartValues({0x05, 0x00});
    std::vector<unsigned char> expected(64, 0);
    expected[0] = 0x04;
    expected[2] = 0x51;
    EXPECT_EQ(bytesOf(sdr), expected);
}

}  // namespace
