#include "tables/ThresholdOffsetTable.h"

#include <gtest/gtest.h>

namespace {

std::string unit(int key) {
    return ThresholdOffsetTable::getThresholdOffsetTable()->getThresholdOffset(key);
}

TEST(ThresholdOffsetTable, IsOneInstance) {
    EXPECT_EQ(ThresholdOffsetTable::getThresholdOffsetTable(), &ThresholdOffsetTable::table);
}

TEST(ThresholdOffsetTable, HoldsNinetyNineKeysWithoutGaps) {
    const auto& units = ThresholdOffsetTable::table.units();
    EXPECT_EQ(units.size(), 99u);
    EXPECT_EQ(units.begin()->first, 0);
    EXPECT_EQ(units.rbegin()->first, 98);
}

TEST(ThresholdOffsetTable, RateUnitsComeFirst) {
    EXPECT_EQ(unit(0), "none");
    EXPECT_EQ(unit(1), "per uS");
    EXPECT_EQ(unit(4), "per minute");
    EXPECT_EQ(unit(7), "reserved");
}

TEST(ThresholdOffsetTable, UnitTypesFollowAtTheirCodePlusEight) {
    EXPECT_EQ(unit(8), "unspecified");
    EXPECT_EQ(unit(9), "degrees C");
    EXPECT_EQ(unit(12), "Volts");
    EXPECT_EQ(unit(26), "RPM");
    EXPECT_EQ(unit(66), "PPM (parts/million)");
    EXPECT_EQ(unit(67), "reserved");
    EXPECT_EQ(unit(69), "DbA");
    EXPECT_EQ(unit(85), "line (re. mem. Line)");
    EXPECT_EQ(unit(98), "uncorrectable error");
}

TEST(ThresholdOffsetTable, KeysOutsideTheTableHaveNoText) {
    EXPECT_EQ(unit(99), "");
    EXPECT_EQ(unit(-1), "");
    EXPECT_EQ(unit(263), "");
    EXPECT_EQ(ThresholdOffsetTable::table.units().size(), 99u);
}

}  // namespace
