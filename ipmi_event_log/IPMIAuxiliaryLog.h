// The OEM auxiliary (extended SEL) log: its raw entries and the lookup of the decoded entry that
// belongs to a SEL record.
#pragma once

#include <vector>

#include "IPMIExtendedSELDataEntry.h"

namespace Tolmar {

// One raw auxiliary-log entry as read from the BMC: the echoed enterprise number (3 bytes), then
// the record.
struct s_AuxLog_entry {
    unsigned char data[600];
};
static_assert(sizeof(s_AuxLog_entry) == 600, "an auxiliary entry is a 600-byte buffer");

class IPMIAuxiliaryLog {
public:
    // Moves the first entry of `entries` that belongs to SEL record `selRecordId` into `*out`
    // (later entries move up, keeping their order) and returns 0; returns 1 when there is none.
    int GetExtendedSELEntry(int selRecordId, std::vector<IPMIExtendedSELDataEntry>* entries,
                            IPMIExtendedSELDataEntry* out);
};

}  // namespace Tolmar
