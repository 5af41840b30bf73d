#include "RawAlertPolicyTableEntry.h"

#include "ipmi/ByteReader.h"

void RawAlertPolicyTableEntry::setValues(const std::vector<unsigned char>& response) {
    constexpr std::size_t entryStart = 2;  // after parameter revision and set selector
    ByteReader(response, entryStart).upTo(reinterpret_cast<unsigned char*>(this), sizeof *this);
}
