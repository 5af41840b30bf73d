// One entry of the PEF alert policy table (IPMI v2.0 table 17-3, 3 bytes).
#pragma once

#include <vector>

struct RawAlertPolicyTableEntry {
    unsigned char policy;              // policy number (7:4), enabled (3), policy (2:0)
    unsigned char channelDestination;  // channel (7:4), destination selector (3:0)
    unsigned char alertStringKey;

    // Fills the entry from a Get PEF Configuration Parameters response for parameter 9: byte 0 is
    // the parameter revision, byte 1 the set selector, the entry follows. A short response fills
    // only the fields it holds.
    void setValues(const std::vector<unsigned char>& response);
};
static_assert(sizeof(RawAlertPolicyTableEntry) == 3, "the alert policy entry is 3 bytes");
