#include "IPMIExtendedSELDataEntry.h"

#include <gtest/gtest.h>

namespace {

using Tolmar::IPMIExtendedSELDataEntry;

TEST(IPMIExtendedSELDataEntry, StartsWithEveryTextNotSet) {
    const IPMIExtendedSELDataEntry entry;
    EXPECT_EQ(entry.GetTypeString(), "Not set");
    EXPECT_EQ(entry.GetSeverityString(), "Not set");
    EXPECT_EQ(entry.GetOperationString(), "Not set");
    EXPECT_EQ(entry.GetSubclassString(), "Not set");
    EXPECT_EQ(entry.GetClassString(), "Not set");
    EXPECT_EQ(entry.GetFRUInstanceString(), "Not set");
    EXPECT_EQ(entry.GetGUIDString(), "Not set");
    EXPECT_EQ(entry.GetExtendedDataString(), "");
    EXPECT_EQ(entry.GetSELRecordId(), 0);
}

TEST(IPMIExtendedSELDataEntry, NamesTypes) {
    IPMIExtendedSELDataEntry entry;
    const std::pair<unsigned char, const char*> cases[] = {
        {0x01, "PROGRESS_CODE"},     {0x02, "ERROR_CODE"}, {0x03, "DEBUG_CODE"},
        {0x80, "PLATFORM_P80_CODE"}, {0x00, "Unknown"},    {0x04, "Unknown"}};
    for (const auto& [type, text] : cases) {
        entry.SetType(type);
        EXPECT_EQ(entry.GetTypeString(), text) << int{type};
    }
}

TEST(IPMIExtendedSELDataEntry, NamesSeverities) {
    IPMIExtendedSELDataEntry entry;
    const std::pair<unsigned char, const char*> cases[] = {
        {0x40, "ORV_ERROR_INFO"},  {0x80, "ORV_ERROR_WARNING"}, {0x90, "ORV_ERROR_FATAL"},
        {0xA0, "ORV_ERROR_FATAL"}, {0xC0, "Unknown"},           {0x00, "Unknown"}};
    for (const auto& [severity, text] : cases) {
        entry.SetSeverity(severity);
        EXPECT_EQ(entry.GetSeverityString(), text) << int{severity};
    }
}

TEST(IPMIExtendedSELDataEntry, FormatsOperationFruInstanceAndGuidInUpperCaseHex) {
    IPMIExtendedSELDataEntry entry;
    unsigned char operation[2] = {0x01, 0x0A};
    entry.SetOperation(operation);
    EXPECT_EQ(entry.GetOperationString(), "0x010A");
    unsigned char instance[4] = {0x00, 0xAB, 0x0C, 0xFF};
    entry.SetFRUInstance(instance);
    EXPECT_EQ(entry.GetFRUInstanceString(), "0x00AB0CFF");
    unsigned char guid[16] = {0x33, 0x22, 0x11, 0x00, 0x55, 0x44, 0x77, 0x66,
                              0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
    entry.SetGUID(guid);
    EXPECT_EQ(entry.GetGUIDString(), "0x33221100554477668899AABBCCDDEEFF");  // stored order
}

TEST(IPMIExtendedSELDataEntry, KeepsExtendedDataAndRecordId) {
    IPMIExtendedSELDataEntry entry;
    entry.SetExtendedData("0A 1B FF ");
    EXPECT_EQ(entry.GetExtendedDataString(), "0A 1B FF ");
    entry.SetSELRecordId(0x34, 0x12);
    EXPECT_EQ(entry.GetSELRecordId(), 0x1234);
    entry.SetSELRecordId(0xFF, 0xFF);
    EXPECT_EQ(entry.GetSELRecordId(), 0xFFFF);
}

TEST(IPMIExtendedSELDataEntry, ClassSetsTheSubclassTextFromTheNumberStoredBefore) {
    IPMIExtendedSELDataEntry entry;
    entry.SetSubclass(5);
    entry.SetClass(0);
    EXPECT_EQ(entry.GetClassString(), "Computing");
    EXPECT_EQ(entry.GetSubclassString(), "Memory");
}

TEST(IPMIExtendedSELDataEntry, SubclassAfterClassChangesNoText) {
    IPMIExtendedSELDataEntry entry;
    entry.SetClass(0);  // sub-class 0: "Undefined"
    entry.SetSubclass(5);
    EXPECT_EQ(entry.GetSubclassString(), "Undefined");
}

TEST(IPMIExtendedSELDataEntry, UnknownClassKeepsThePreviousSubclassText) {
    IPMIExtendedSELDataEntry entry;
    entry.SetClass(4);
    EXPECT_EQ(entry.GetClassString(), "Unknown");
    EXPECT_EQ(entry.GetSubclassString(), "Not set");
    entry.SetSubclass(1);
    entry.SetClass(3);
    entry.SetSubclass(9);
    entry.SetClass(200);
    EXPECT_EQ(entry.GetClassString(), "Unknown");
    EXPECT_EQ(entry.GetSubclassString(), "SEC");
}

struct Subclass {
    unsigned char entryClass;
    unsigned char subclass;
    const char* text;
};

TEST(IPMIExtendedSELDataEntry, NamesSubclassesWithTheirGaps) {
    const Subclass cases[] = {
        {0, 6, "Chipset"},       {0, 7, "Unknown"},
        {1, 0, "Undefined"},     {1, 8, "Removable Media"},
        {1, 9, "Spec Reserved"}, {1, 11, "Spec Reserved"},
        {1, 12, "Network"},      {1, 13, "Unknown"},
        {2, 2, "USB"},           {2, 3, "Unknown"},
        {2, 5, "Unknown"},       {2, 6, "LPC"},
        {2, 9, "Unknown"},       {2, 10, "Unknown"},
        {2, 11, "SMBUS"},        {2, 12, "I2C"},
        {3, 9, "OS Loader"},     {3, 10, "Unknown"},
        {3, 11, "Unknown"},      {3, 13, "X86 Exception"},
        {3, 14, "Unknown"},      {3, 15, "PEI Service"},
        {3, 18, "DXE Service"},  {3, 19, "Unknown"},
    };
    const char* const classes[] = {"Computing", "Peripheral", "I/O BUS", "Software"};
    for (const Subclass& c : cases) {
        IPMIExtendedSELDataEntry entry;
        entry.SetSubclass(c.subclass);
        entry.SetClass(c.entryClass);
        EXPECT_EQ(entry.GetClassString(), classes[c.entryClass]);
        EXPECT_EQ(entry.GetSubclassString(), c.text)
            << "class " << int{c.entryClass} << " sub-class " << int{c.subclass};
    }
}

}  // namespace
