// The OEM auxiliary (extended SEL) log: its raw entries and the lookup of the decoded entry that
// belongs to a SEL record.
#pragma once

#include <cstdint>
#include <vector>

#include "IPMIExtendedSELDataEntry.h"

#ifndef IPMI_AUX_LOG_IANA
#error "IPMI_AUX_LOG_IANA, the BMC maker's IANA enterprise number, must be defined (decimal)"
#endif

namespace Tolmar {

// The IANA enterprise number of the BMC's maker, which its OEM auxiliary-log commands and entries
// carry (least significant byte first). Set at build time.
constexpr std::uint32_t kAuxLogEnterpriseNumber = IPMI_AUX_LOG_IANA;
static_assert(kAuxLogEnterpriseNumber <= 0xFFFFFF, "an enterprise number has three bytes");

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
    // Decodes the raw entries that carry the maker's enterprise number; others are skipped.
    std::vector<IPMIExtendedSELDataEntry> ParseExtendedSELData(s_AuxLog_entry* entries,
                                                               unsigned int count);
};

}  // namespace Tolmar
