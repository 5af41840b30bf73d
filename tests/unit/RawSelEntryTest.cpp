#include "RawSelEntry.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "RecordBytes.h"

namespace {

using sim::bytesOf;
using sim::filledWith;

// A Get SEL Entry response: next record ID 0x0042, then a threshold event record.
const std::vector<unsigned char> kResponse = {
    0x42, 0x00,              // next record ID
    0x34, 0x12,              // record ID 0x1234
    0x02,                    // record type: system event
    0x00, 0x00, 0x00, 0x55,  // time stamp 0x55000000
    0x20, 0x00,              // generator ID: BMC slave address 0x20, channel 0, LUN 0
    0x04,                    // event message format revision (IPMI v2.0)
    0x01,                    // sensor type: temperature
    0x30,                    // sensor number
    0x01,                    // assertion, threshold event/reading type
    0x59,                    // event data 1: reading and threshold follow, offset 9
    0x5A,                    // event data 2: trigger reading
    0x50,                    // event data 3: trigger threshold
};

TEST(RawSelEntry, FillsEveryFieldFromResponseBytesTwoToSeventeen) {
    RawSelEntry entry{};
    entry.setValues(kResponse);
    EXPECT_EQ(entry.recordId[0], 0x34);
    EXPECT_EQ(entry.recordId[1], 0x12);
    EXPECT_EQ(entry.recordType, 0x02);
    EXPECT_EQ(entry.timestamp[3], 0x55);
    EXPECT_EQ(entry.generatorId[0], 0x20);
    EXPECT_EQ(entry.generatorId[1], 0x00);
    EXPECT_EQ(entry.evMRev, 0x04);
    EXPECT_EQ(entry.sensorType, 0x01);
    EXPECT_EQ(entry.sensorNum, 0x30);
    EXPECT_EQ(entry.eventDirType, 0x01);
    EXPECT_EQ(entry.eventData1, 0x59);
    EXPECT_EQ(entry.eventData2, 0x5A);
    EXPECT_EQ(entry.eventData3, 0x50);
    EXPECT_EQ(bytesOf(entry), std::vector<unsigned char>(kResponse.begin() + 2, kResponse.end()));
}

TEST(RawSelEntry, IgnoresTheNextRecordIdBytes) {
    std::vector<unsigned char> other = kResponse;
    other[0] = 0xFF;
    other[1] = 0xFF;
    RawSelEntry a{};
    RawSelEntry b{};
    a.setValues(kResponse);
    b.setValues(other);
    EXPECT_EQ(bytesOf(a), bytesOf(b));
}

TEST(RawSelEntry, ShortResponseFillsOnlyTheBytesItHolds) {
    RawSelEntry entry = filledWith<RawSelEntry>(0xEE);
    entry.setValues({0xFF, 0xFF, 0x01, 0x02, 0x03});
    EXPECT_EQ(bytesOf(entry),
              (std::vector<unsigned char>{0x01, 0x02, 0x03, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE,
                                          0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
}

TEST(RawSelEntry, EmptyOrTwoByteResponseChangesNothing) {
    RawSelEntry entry = filledWith<RawSelEntry>(0xEE);
    entry.setValues({});
    entry.setValues({0x01, 0x02});
    EXPECT_EQ(bytesOf(entry), std::vector<unsigned char>(16, 0xEE));
}

TEST(RawSelEntry, LongResponseFillsSixteenBytesAndNoMore) {
    std::vector<unsigned char> longer = kResponse;
    longer.insert(longer.end(), {0xAB, 0xCD});
    struct {
        RawSelEntry entry;
        unsigned char guard[4];
    } framed;
    std::memset(&framed, 0x11, sizeof framed);
    framed.entry.setValues(longer);
    EXPECT_EQ(bytesOf(framed.entry),
              std::vector<unsigned char>(kResponse.begin() + 2, kResponse.end()));
    EXPECT_EQ(framed.guard[0], 0x11);
}

TEST(RawSelEntry, ConvertsToTheSameSixteenPublicBytesAndBack) {
    RawSelEntry entry{};
    entry.setValues(kResponse);
    const Tolmar::IPMISELENTRY published = entry.toIpmiSelEntry();
    EXPECT_EQ(published.recordId[0], 0x34);
    EXPECT_EQ(published.sensorNum, 0x30);
    RawSelEntry back;
    std::memcpy(&back, &published, sizeof back);
    EXPECT_EQ(bytesOf(back), bytesOf(entry));
}

TEST(RawSelEntry, ItsIdIsTheRecordIdLeastSignificantByteFirst) {
    RawSelEntry entry{};
    entry.setValues(kResponse);
    EXPECT_EQ(entry.id(), 0x1234u);
    entry.recordId[0] = 0xFF;
    entry.recordId[1] = 0xFF;
    EXPECT_EQ(entry.id(), 0xFFFFu);
}

}  // namespace
