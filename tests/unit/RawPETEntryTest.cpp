#include "RawPETEntry.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "RecordBytes.h"

namespace {

using sim::bytesOf;
using sim::filledWith;

// Get PEF Configuration Parameters, parameter 6 (event filter table), set selector 3.
const std::vector<unsigned char> kResponse = {
    0x11,              // parameter revision
    0x03,              // set selector: filter 3
    0x80,              // filter configuration: enabled, software configurable
    0x01,              // event filter action: alert
    0x11,              // alert policy number: policy 1, group control off
    0x10,              // event severity: critical
    0xFF, 0xFF,        // generator ID: any
    0x01,              // sensor type: temperature
    0xFF,              // sensor number: any
    0x01,              // event trigger: threshold
    0x00, 0x02,        // event data 1 offset mask: offset 9 (high byte bit 1)
    0x00, 0x00, 0x00,  // event data 1 AND mask, compare 1, compare 2
    0x00, 0x00, 0x00,  // event data 2 AND mask, compare 1, compare 2
    0x00, 0x00, 0x00,  // event data 3 AND mask, compare 1, compare 2
};

TEST(RawPETEntry, FillsTwentyFieldsFromResponseBytesTwoOn) {
    RawPETEntry entry{};
    entry.setValues(kResponse);
    EXPECT_EQ(entry.filterConfiguration, 0x80);
    EXPECT_EQ(entry.eventFilterAction, 0x01);
    EXPECT_EQ(entry.alertPolicyNumber, 0x11);
    EXPECT_EQ(entry.eventSeverity, 0x10);
    EXPECT_EQ(entry.generatorId[0], 0xFF);
    EXPECT_EQ(entry.sensorType, 0x01);
    EXPECT_EQ(entry.sensorNumber, 0xFF);
    EXPECT_EQ(entry.eventTrigger, 0x01);
    EXPECT_EQ(entry.eventData1OffsetMask[0], 0x00);
    EXPECT_EQ(entry.eventData1OffsetMask[1], 0x02);
    EXPECT_EQ(bytesOf(entry), std::vector<unsigned char>(kResponse.begin() + 2, kResponse.end()));
}

TEST(RawPETEntry, IgnoresRevisionAndSetSelector) {
    std::vector<unsigned char> other = kResponse;
    other[0] = 0x00;
    other[1] = 0x7F;
    RawPETEntry a{};
    RawPETEntry b{};
    a.setValues(kResponse);
    b.setValues(other);
    EXPECT_EQ(bytesOf(a), bytesOf(b));
}

TEST(RawPETEntry, ShortResponseFillsOnlyTheBytesItHolds) {
    RawPETEntry entry = filledWith<RawPETEntry>(0xEE);
    entry.setValues({0x11, 0x01, 0x80, 0x01});
    std::vector<unsigned char> expected(20, 0xEE);
    expected[0] = 0x80;
    expected[1] = 0x01;
    EXPECT_EQ(bytesOf(entry), expected);
}

}  // namespace
