#include "tables/SensorTypeCodeOffsetTable.h"

#include <gtest/gtest.h>

namespace {

std::string text(unsigned char type, unsigned char offset) {
    return SensorTypeCodeOffsetTable::getSensorTypeCodeOffsetTable()->getEventDescription(type,
                                                                                          offset);
}

TEST(SensorTypeCodeOffsetTable, IsOneInstance) {
    EXPECT_EQ(SensorTypeCodeOffsetTable::getSensorTypeCodeOffsetTable(),
              &SensorTypeCodeOffsetTable::table);
}

TEST(SensorTypeCodeOffsetTable, HoldsTwoHundredNineteenTextsForEverySensorType) {
    const auto& types = SensorTypeCodeOffsetTable::table.descriptions();
    EXPECT_EQ(types.size(), 45u);
    EXPECT_EQ(types.begin()->first, 0x00);
    EXPECT_EQ(types.rbegin()->first, 0x2C);
    std::size_t count = 0;
    for (const auto& [type, offsets] : types) {
        EXPECT_FALSE(offsets.empty()) << int{type};
        count += offsets.size();
    }
    EXPECT_EQ(count, 219u);
}

TEST(SensorTypeCodeOffsetTable, NamesSensorSpecificOffsets) {
    EXPECT_EQ(text(0x07, 0x00), "IERR");
    EXPECT_EQ(text(0x07, 0x06), "SM BIOS 'Uncorrectable CPU-complex Error'");
    EXPECT_EQ(text(0x07, 0x0C), "Correctable Machine Check Error");
    EXPECT_EQ(text(0x07, 0x0D), "");
    EXPECT_EQ(text(0x2C, 0x07), "FRU Communication Lost");
    EXPECT_EQ(text(0x20, 0x01), "Run-time Critical Stop (a.k.a. 'core dump', 'blue screen')");
    EXPECT_EQ(text(0x21, 0x04), "Slot/Connector Ready for Device Removal");
}

TEST(SensorTypeCodeOffsetTable, ThresholdTypesAnswerEveryOffsetWithTheirName) {
    EXPECT_EQ(text(0x01, 0x05), "Temperature");
    EXPECT_EQ(text(0x02, 0x0F), "Voltage");
    EXPECT_EQ(text(0x03, 0x00), "Current");
    EXPECT_EQ(text(0x04, 0x09), "Fan");
    EXPECT_EQ(text(0x00, 0x09), "Reserved");
}

TEST(SensorTypeCodeOffsetTable, TypesWithoutOffsetsAnswerEmpty) {
    for (unsigned char type : {0x0A, 0x0B, 0x0E, 0x15, 0x16, 0x17, 0x18, 0x1A, 0x1C, 0x26}) {
        EXPECT_EQ(text(type, 0x00), "") << int{type};
        EXPECT_EQ(text(type, 0x03), "") << int{type};
    }
}

TEST(SensorTypeCodeOffsetTable, TypesAboveTheTableAnswerEmptyForEveryOffset) {
    for (unsigned char offset = 0; offset <= 0x0F; ++offset) {
        EXPECT_EQ(text(0x2D, offset), "");
        EXPECT_EQ(text(0xC0, offset), "");
    }
}

TEST(SensorTypeCodeOffsetTable, AcpiTextsCarryTheirOwnQuotationMarks) {
    EXPECT_EQ(text(0x22, 0x00), "S0 / G0 \"working\"");
    EXPECT_EQ(text(0x22, 0x03), "S3 \"sleeping, processor & h/w context lost, memory retained.\"");
    EXPECT_EQ(text(0x22, 0x0D), "Unknown");
    EXPECT_EQ(text(0x22, 0x0E), "Unknown");
}

TEST(SensorTypeCodeOffsetTable, WatchdogTwoKeepsItsReservedOffsets) {
    EXPECT_EQ(text(0x23, 0x04), "Reserved");
    EXPECT_EQ(text(0x23, 0x07), "Reserved");
    EXPECT_EQ(text(0x23, 0x08), "Timer interrupt");
}

TEST(SensorTypeCodeOffsetTable, AbsentOffsetsStayAbsent) {
    // Asked twice: a lookup that inserted would leave an eighth offset behind.
    EXPECT_EQ(text(0x08, 0x0F), "");
    EXPECT_EQ(text(0x08, 0x0F), "");
    EXPECT_EQ(SensorTypeCodeOffsetTable::table.descriptions().at(0x08).size(), 7u);
}

}  // namespace
