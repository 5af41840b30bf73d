#include "IPMIAuxiliaryLog.h"

#include <gtest/gtest.h>

namespace {

using Tolmar::IPMIAuxiliaryLog;
using Tolmar::IPMIExtendedSELDataEntry;

IPMIExtendedSELDataEntry entryFor(unsigned id, const char* data) {
    IPMIExtendedSELDataEntry entry;
    entry.SetSELRecordId(id & 0xFF, id >> 8);
    entry.SetExtendedData(data);
    return entry;
}

TEST(IPMIAuxiliaryLog, FindsAndRemovesTheFirstEntryOfTheRecord) {
    std::vector<IPMIExtendedSELDataEntry> entries = {entryFor(7, "a"), entryFor(0x1234, "b"),
                                                     entryFor(9, "c"), entryFor(0x1234, "d")};
    IPMIExtendedSELDataEntry found;
    EXPECT_EQ(IPMIAuxiliaryLog().GetExtendedSELEntry(0x1234, &entries, &found), 0);
    EXPECT_EQ(found.GetExtendedDataString(), "b");
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[1].GetExtendedDataString(), "c");  // later entries moved up, in order
    EXPECT_EQ(IPMIAuxiliaryLog().GetExtendedSELEntry(0x1234, &entries, &found), 0);
    EXPECT_EQ(found.GetExtendedDataString(), "d");
    EXPECT_EQ(IPMIAuxiliaryLog().GetExtendedSELEntry(0x1234, &entries, &found), 1);
    EXPECT_EQ(entries.size(), 2u);
}

TEST(IPMIAuxiliaryLog, NothingFoundLeavesBothAlone) {
    std::vector<IPMIExtendedSELDataEntry> entries = {entryFor(7, "a")};
    IPMIExtendedSELDataEntry out = entryFor(1, "untouched");
    EXPECT_EQ(IPMIAuxiliaryLog().GetExtendedSELEntry(8, &entries, &out), 1);
    EXPECT_EQ(out.GetExtendedDataString(), "untouched");
    EXPECT_EQ(entries.size(), 1u);
    std::vector<IPMIExtendedSELDataEntry> none;
    EXPECT_EQ(IPMIAuxiliaryLog().GetExtendedSELEntry(7, &none, &out), 1);
}

TEST(IPMIAuxiliaryLog, AuxiliaryEntryIsSixHundredBytes) {
    EXPECT_EQ(sizeof(Tolmar::s_AuxLog_entry), 600u);
}

}  // namespace
