// One SEL record exactly as the BMC stores it (IPMI v2.0 section 32.1, 16 bytes).
#pragma once

#include <type_traits>
#include <vector>

#include "IpmiEventLog.h"

struct RawSelEntry {
    unsigned char recordId[2];  // least significant byte first
    unsigned char recordType;   // 0x02 system event, 0xC0-0xFF OEM
    unsigned char timestamp[4];
    unsigned char generatorId[2];
    unsigned char evMRev;
    unsigned char sensorType;
    unsigned char sensorNum;
    unsigned char eventDirType;  // bit 7 deassertion, bits 6:0 event/reading type code
    unsigned char eventData1;
    unsigned char eventData2;
    unsigned char eventData3;

    // Fills the record from a Get SEL Entry response: bytes 0-1 are the next record ID, the
    // record follows. A short response fills only the fields it holds; the rest keep their value.
    void setValues(const std::vector<unsigned char>& response);

    // The same 16 bytes as the public record.
    Tolmar::IPMISELENTRY toIpmiSelEntry() const;

    // The record ID, 0 to 65535.
    unsigned long id() const { return recordId[0] | recordId[1] << 8; }
};
static_assert(sizeof(RawSelEntry) == 16, "RawSelEntry is the 16-byte IPMI SEL record");
static_assert(std::is_standard_layout_v<RawSelEntry>, "RawSelEntry is a byte image");
