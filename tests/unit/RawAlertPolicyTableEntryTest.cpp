#include "RawAlertPolicyTableEntry.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(RawAlertPolicyTableEntry, FillsFromResponseBytesTwoToFour) {
    RawAlertPolicyTableEntry entry{};
    entry.setValues({
        0x11,  // parameter revision
        0x01,  // set selector: entry 1
        0x18,  // policy number 1, enabled, policy 0 (always send)
        0x12,  // channel 1, destination selector 2
        0x00,  // alert string key
        0x99,  // beyond the entry: ignored
    });
    EXPECT_EQ(entry.policy, 0x18);
    EXPECT_EQ(entry.channelDestination, 0x12);
    EXPECT_EQ(entry.alertStringKey, 0x00);
}

TEST(RawAlertPolicyTableEntry, ShortResponseFillsOnlyTheBytesItHolds) {
    RawAlertPolicyTableEntry entry{0xEE, 0xEE, 0xEE};
    entry.setValues({0x11, 0x01, 0x18});
    EXPECT_EQ(entry.policy, 0x18);
    EXPECT_EQ(entry.channelDestination, 0xEE);
    EXPECT_EQ(entry.alertStringKey, 0xEE);
}

}  // namespace
