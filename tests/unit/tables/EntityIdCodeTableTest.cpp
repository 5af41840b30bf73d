#include "tables/EntityIdCodeTable.h"

#include <gtest/gtest.h>

namespace {

std::string name(unsigned char id) {
    return EntityIdCodeTable::getEntityIdCodeTable()->getEntityName(id);
}

TEST(EntityIdCodeTable, IsOneInstance) {
    EXPECT_EQ(EntityIdCodeTable::getEntityIdCodeTable(), &EntityIdCodeTable::table);
}

TEST(EntityIdCodeTable, NamesSixtySevenIdsWithoutGaps) {
    const auto& names = EntityIdCodeTable::table.names();
    EXPECT_EQ(names.size(), 67u);
    EXPECT_EQ(names.begin()->first, 0x00);
    EXPECT_EQ(names.rbegin()->first, 0x42);
}

TEST(EntityIdCodeTable, NamesTheStandardIds) {
    EXPECT_EQ(name(0x00), "Unspecified");
    EXPECT_EQ(name(0x02), "Unknown (Unspecified)");
    EXPECT_EQ(name(0x03), "Processor");
    EXPECT_EQ(name(0x13), "Power Unit / Power Domain");
    EXPECT_EQ(name(0x1D), "Fan / Cooling Device");
    EXPECT_EQ(name(0x42), "Baseboard / Main System Board");
}

TEST(EntityIdCodeTable, KeepsItsDuplicatesAndOddSpacing) {
    EXPECT_EQ(name(0x05), "Peripheral Bay");
    EXPECT_EQ(name(0x1B), "Peripheral Bay");
    EXPECT_EQ(name(0x37), "Air Inlet");
    EXPECT_EQ(name(0x40), "Air Inlet");
    EXPECT_EQ(name(0x2D), "Processor/ IO Module");
    EXPECT_EQ(name(0x36), "Reserved");
    for (unsigned char id = 0x38; id <= 0x3F; ++id) EXPECT_EQ(name(id), "Reserved") << int{id};
}

TEST(EntityIdCodeTable, NamesTheRangesAboveTheTable) {
    for (int id = 0x43; id <= 0x8F; ++id) EXPECT_EQ(name(static_cast<unsigned char>(id)), "") << id;
    EXPECT_EQ(name(0x90), "Chassis-Specific Entities");
    EXPECT_EQ(name(0xAF), "Chassis-Specific Entities");
    EXPECT_EQ(name(0xB0), "Board-Set Specific Entities");
    EXPECT_EQ(name(0xCF), "Board-Set Specific Entities");
    EXPECT_EQ(name(0xD0), "OEM System Integrator Defined");
    EXPECT_EQ(name(0xFF), "OEM System Integrator Defined");
}

TEST(EntityIdCodeTable, LookupsLeaveTheTableAsItWas) {
    name(0x50);
    name(0xFF);
    EXPECT_EQ(EntityIdCodeTable::table.names().size(), 67u);
}

}  // namespace
