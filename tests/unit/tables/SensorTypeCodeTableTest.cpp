#include "tables/SensorTypeCodeTable.h"

#include <gtest/gtest.h>

namespace {

std::string name(unsigned char type) {
    return SensorTypeCodeTable::getSensorTypeCodeTable()->getSensorTypeName(type);
}

TEST(SensorTypeCodeTable, IsOneInstance) {
    EXPECT_EQ(SensorTypeCodeTable::getSensorTypeCodeTable(), &SensorTypeCodeTable::table);
}

TEST(SensorTypeCodeTable, NamesFortyFiveCodesWithoutGaps) {
    const auto& names = SensorTypeCodeTable::table.names();
    EXPECT_EQ(names.size(), 45u);
    EXPECT_EQ(names.begin()->first, 0x00);
    EXPECT_EQ(names.rbegin()->first, 0x2C);
}

TEST(SensorTypeCodeTable, NamesTheStandardCodes) {
    EXPECT_EQ(name(0x00), "Reserved");
    EXPECT_EQ(name(0x01), "Temperature");
    EXPECT_EQ(name(0x05), "Physical Security (Chassis Intrusion)");
    EXPECT_EQ(name(0x11), "Watchdog 1");
    EXPECT_EQ(name(0x20), "OS Stop / Shutdown");
    EXPECT_EQ(name(0x23), "Watchdog 2");
    EXPECT_EQ(name(0x2C), "FRU State");
}

TEST(SensorTypeCodeTable, NamesTheReservedAndOemRanges) {
    EXPECT_EQ(name(0x2D), "Reserved");
    EXPECT_EQ(name(0xBF), "Reserved");
    EXPECT_EQ(name(0xC0), "OEM RESERVED");
    EXPECT_EQ(name(0xFF), "OEM RESERVED");
}

}  // namespace
