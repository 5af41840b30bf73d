// The bounds-checked reader of message fields: numbers least significant byte first, and a read
// past the end that reads nothing and fails every later read.
#include "ipmi/ByteReader.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

TEST(ByteReaderTest, ReadsNumbersLeastSignificantByteFirst) {
    const Bytes bytes = {0x01, 0x34, 0x12, 0x56, 0x34, 0x12, 0xEF, 0xCD, 0xAB, 0x89, 0xFF};
    ByteReader reader(bytes);
    EXPECT_EQ(reader.u8(), 0x01u);
    EXPECT_EQ(reader.u16(), 0x1234u);
    EXPECT_EQ(reader.u24(), 0x123456u);
    EXPECT_EQ(reader.u32(), 0x89ABCDEFu);
    EXPECT_EQ(reader.remaining(), 1u);
    EXPECT_EQ(reader.u8(), 0xFFu);
    EXPECT_EQ(reader.remaining(), 0u);
    EXPECT_TRUE(reader.ok());
}

TEST(ByteReaderTest, StartsAtAnOffsetAndSkips) {
    const unsigned char bytes[] = {0xAA, 0xBB, 0x10, 0x20, 0x30, 0x40};
    ByteReader reader(bytes, sizeof bytes, 2);
    EXPECT_EQ(reader.remaining(), 4u);
    reader.skip(2);
    EXPECT_EQ(reader.u16(), 0x4030u);
    EXPECT_TRUE(reader.ok());
    EXPECT_TRUE(ByteReader(bytes, sizeof bytes, sizeof bytes).ok());
}

TEST(ByteReaderTest, ReadsExactlyToTheEnd) {
    const Bytes bytes = {1, 2, 3, 4, 5};
    ByteReader reader(bytes);
    unsigned char out[5] = {};
    reader.bytes(out, 5);
    EXPECT_TRUE(reader.ok());
    EXPECT_EQ(Bytes(out, out + 5), bytes);
    reader.bytes(out, 0);
    EXPECT_TRUE(reader.ok());
}

TEST(ByteReaderTest, AReadPastTheEndReadsNothingAndEveryLaterReadFails) {
    const Bytes bytes = {0x11, 0x22, 0x33};
    ByteReader reader(bytes);
    EXPECT_EQ(reader.u32(), 0u);
    EXPECT_FALSE(reader.ok());
    EXPECT_EQ(reader.remaining(), 0u);
    // The three bytes that were there are not read by anything after.
    EXPECT_EQ(reader.u8(), 0u);
    EXPECT_EQ(reader.u16(), 0u);
    unsigned char out[2] = {0xEE, 0xEE};
    reader.bytes(out, 1);
    EXPECT_EQ(out[0], 0xEE);
    Bytes vector = {0x99};
    reader.bytes(vector, 0);
    EXPECT_EQ(vector, Bytes{0x99});
    EXPECT_EQ(reader.upTo(out, 2), 0u);
    EXPECT_FALSE(reader.ok());
}

TEST(ByteReaderTest, BytesAreAllOrNothing) {
    const Bytes bytes = {1, 2, 3};
    ByteReader reader(bytes, 1);
    Bytes out = {9};
    reader.bytes(out, 3);
    EXPECT_FALSE(reader.ok());
    EXPECT_EQ(out, Bytes{9});
    ByteReader whole(bytes, 1);
    whole.bytes(out, 2);
    EXPECT_EQ(out, (Bytes{2, 3}));
}

TEST(ByteReaderTest, UpToCopiesWhatRemainsWithoutFailing) {
    const Bytes bytes = {1, 2, 3, 4};
    unsigned char out[6] = {};
    ByteReader reader(bytes, 1);
    EXPECT_EQ(reader.upTo(out, 2), 2u);
    EXPECT_EQ(reader.upTo(out + 2, 4), 1u);
    EXPECT_TRUE(reader.ok());
    EXPECT_EQ(Bytes(out, out + 6), (Bytes{2, 3, 4, 0, 0, 0}));
    EXPECT_EQ(reader.upTo(out, 4), 0u);
    EXPECT_TRUE(reader.ok());
}

TEST(ByteReaderTest, AnOffsetPastTheEndFailsAtOnce) {
    const Bytes empty;
    ByteReader reader(empty, 1);
    EXPECT_FALSE(reader.ok());
    EXPECT_EQ(reader.remaining(), 0u);
    EXPECT_EQ(reader.u8(), 0u);
    ByteReader nothing(empty);
    EXPECT_TRUE(nothing.ok());
    EXPECT_EQ(nothing.u8(), 0u);
    EXPECT_FALSE(nothing.ok());
}

}  // namespace
