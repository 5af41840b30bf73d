#include "tables/EventReadingTypeCodeOffsetTable.h"

#include <gtest/gtest.h>

namespace {

std::string text(unsigned char type, unsigned char offset) {
    return EventReadingTypeCodeOffsetTable::getEventReadingTypeCodeOffsetTable()
        ->getEventDescription(type, offset);
}

TEST(EventReadingTypeCodeOffsetTable, IsOneInstance) {
    EXPECT_EQ(EventReadingTypeCodeOffsetTable::getEventReadingTypeCodeOffsetTable(),
              &EventReadingTypeCodeOffsetTable::table);
}

TEST(EventReadingTypeCodeOffsetTable, HoldsFiftySevenTextsInTwelveTypes) {
    const auto& types = EventReadingTypeCodeOffsetTable::table.descriptions();
    EXPECT_EQ(types.size(), 12u);
    std::size_t count = 0;
    for (const auto& [type, offsets] : types) count += offsets.size();
    EXPECT_EQ(count, 57u);
    const std::size_t perType[] = {12, 3, 2, 2, 2, 2, 9, 2, 2, 9, 8, 4};
    unsigned char type = 0x01;
    for (std::size_t n : perType) EXPECT_EQ(types.at(type++).size(), n) << int{type};
}

TEST(EventReadingTypeCodeOffsetTable, ThresholdOffsetsLiveUnderTypeOne) {
    EXPECT_EQ(text(0x01, 0x00), "Lower Non-critical - going low");
    EXPECT_EQ(text(0x01, 0x09), "Upper Critical - going high");
    EXPECT_EQ(text(0x01, 0x0B), "Upper Non-recoverable - going high");
    EXPECT_EQ(text(0x01, 0x0C), "");
}

TEST(EventReadingTypeCodeOffsetTable, KeepsTheTextsAsTheyStand) {
    EXPECT_EQ(text(0x02, 0x00), "Transition to Idle");
    EXPECT_EQ(text(0x07, 0x00), "transition to OK");
    EXPECT_EQ(text(0x04, 0x00), "Predictive Failure deasserted");
    EXPECT_EQ(text(0x03, 0x00), "State Deasserted");
    EXPECT_EQ(text(0x0B, 0x03), "Non-redundant:Sufficient Resources from Redundant");
    EXPECT_EQ(text(0x07, 0x08), "Informational");
    EXPECT_EQ(text(0x0A, 0x08), "Install Error");
    EXPECT_EQ(text(0x0C, 0x03), "D3 Power State");
}

TEST(EventReadingTypeCodeOffsetTable, UnknownTypesAndOffsetsHaveNoText) {
    EXPECT_EQ(text(0x0C, 0x04), "");
    EXPECT_EQ(text(0x00, 0x00), "");
    EXPECT_EQ(text(0x0D, 0x00), "");
    EXPECT_EQ(text(0x6F, 0x00), "");
    // Offsets are used as given, not masked; asked twice, and the count below shows that no
    // lookup inserted.
    EXPECT_EQ(text(0x02, 0x15), "");
    EXPECT_EQ(text(0x02, 0x15), "");
    std::size_t count = 0;
    for (const auto& [type, offsets] : EventReadingTypeCodeOffsetTable::table.descriptions()) {
        count += offsets.size();
    }
    EXPECT_EQ(count, 57u);
}

}  // namespace
