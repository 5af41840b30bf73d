// One entry of the PEF event filter table (IPMI v2.0 table 17-2, 20 bytes).
#pragma once

#include <vector>

struct RawPETEntry {
    unsigned char filterConfiguration;  // bit 7: filter enabled
    unsigned char eventFilterAction;    // bit 0: alert
    unsigned char alertPolicyNumber;
    unsigned char eventSeverity;
    unsigned char generatorId[2];           // 0xFF: any
    unsigned char sensorType;               // 0xFF: any
    unsigned char sensorNumber;             // 0xFF: any
    unsigned char eventTrigger;             // event/reading type; 0xFF: any
    unsigned char eventData1OffsetMask[2];  // low byte: offsets 0-7, high byte: offsets 8-15
    unsigned char eventData1AndMask;
    unsigned char eventData1Compare1;
    unsigned char eventData1Compare2;
    unsigned char eventData2AndMask;
    unsigned char eventData2Compare1;
    unsigned char eventData2Compare2;
    unsigned char eventData3AndMask;
    unsigned char eventData3Compare1;
    unsigned char eventData3Compare2;

    // Fills the entry from a Get PEF Configuration Parameters response for parameter 6: byte 0 is
    // the parameter revision, byte 1 the set selector, the entry follows. A short response fills
    // only the fields it holds.
    void setValues(const std::vector<unsigned char>& response);
};
static_assert(sizeof(RawPETEntry) == 20, "RawPETEntry is the 20-byte event filter table entry");
