#include "tables/EventReadingTypeCodeTable.h"

#include <gtest/gtest.h>

namespace {

const EventReadingTypeCodeTable& table() {
    return *EventReadingTypeCodeTable::getEventReadingTypeCodeTable();
}

TEST(EventReadingTypeCodeTable, IsOneInstance) {
    EXPECT_EQ(EventReadingTypeCodeTable::getEventReadingTypeCodeTable(),
              &EventReadingTypeCodeTable::table);
}

TEST(EventReadingTypeCodeTable, StaticTextsKeepTheirCase) {
    EXPECT_EQ(EventReadingTypeCodeTable::unspecified, "unspecified");
    EXPECT_EQ(EventReadingTypeCodeTable::threshold, "Threshold");
    EXPECT_EQ(EventReadingTypeCodeTable::generic, "Generic");
    EXPECT_EQ(EventReadingTypeCodeTable::sensorSpecific, "Sensor-specific");
    EXPECT_EQ(EventReadingTypeCodeTable::oem, "OEM");
    EXPECT_EQ(EventReadingTypeCodeTable::na, "n/a");
    EXPECT_EQ(EventReadingTypeCodeTable::discrete, "Discrete");
    EXPECT_EQ(EventReadingTypeCodeTable::digitalDiscrete, "'digital' Discrete");
}

TEST(EventReadingTypeCodeTable, CategoryByRange) {
    const std::pair<unsigned char, const std::string*> cases[] = {
        {0x00, &EventReadingTypeCodeTable::unspecified},
        {0x01, &EventReadingTypeCodeTable::threshold},
        {0x02, &EventReadingTypeCodeTable::generic},
        {0x0C, &EventReadingTypeCodeTable::generic},
        {0x0D, &EventReadingTypeCodeTable::na},
        {0x6E, &EventReadingTypeCodeTable::na},
        {0x6F, &EventReadingTypeCodeTable::sensorSpecific},
        {0x70, &EventReadingTypeCodeTable::oem},
        {0x7F, &EventReadingTypeCodeTable::oem},
        {0x80, &EventReadingTypeCodeTable::na},
        {0x81, &EventReadingTypeCodeTable::na},  // bit 7 is not masked here
        {0xFF, &EventReadingTypeCodeTable::na},
    };
    for (const auto& [code, category] : cases) {
        // The very static string, not a copy.
        EXPECT_EQ(&table().getEventReadingTypeCodeCategory(code), category) << int{code};
    }
    EXPECT_EQ(table().getEventReadingTypeCodeCategory(0x01), "Threshold");
}

TEST(EventReadingTypeCodeTable, SensorClassByRange) {
    EXPECT_EQ(table().getSensorClass(0x00), "n/a");
    EXPECT_EQ(table().getSensorClass(0x01), "Threshold");
    EXPECT_EQ(table().getSensorClass(0x02), "Discrete");
    EXPECT_EQ(table().getSensorClass(0x0C), "Discrete");
    EXPECT_EQ(table().getSensorClass(0x0D), "n/a");
    EXPECT_EQ(table().getSensorClass(0x6F), "Discrete");
    EXPECT_EQ(table().getSensorClass(0x75), "OEM");
    EXPECT_EQ(&table().getSensorClass(0x80), &EventReadingTypeCodeTable::na);
}

TEST(EventReadingTypeCodeTable, OnlySensorSpecificIsNotGeneric) {
    for (int code = 0; code <= 0xFF; ++code) {
        EXPECT_EQ(table().isEventReadingTypeCodeGeneric(static_cast<unsigned char>(code)),
                  code != 0x6F)
            << code;
    }
}

TEST(EventReadingTypeCodeTable, ReadingClassOfTheGenericTypes) {
    EXPECT_EQ(table().getEventReadingClass(0x01), "Threshold");
    EXPECT_EQ(table().getEventReadingClass(0x02), "Discrete");
    EXPECT_EQ(table().getEventReadingClass(0x03), "'digital' Discrete");
    EXPECT_EQ(table().getEventReadingClass(0x07), "Discrete");
    EXPECT_EQ(table().getEventReadingClass(0x08), "'digital' Discrete");
    EXPECT_EQ(table().getEventReadingClass(0x0C), "Discrete");
    EXPECT_EQ(table().getEventReadingClass(0x00), "n/a");
    EXPECT_EQ(table().getEventReadingClass(0x0D), "n/a");
    EXPECT_EQ(&table().getEventReadingClass(0x6F), &EventReadingTypeCodeTable::na);
    EXPECT_EQ(table().readingClasses().size(), 12u);
}

}  // namespace
