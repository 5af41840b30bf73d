#include "RawSelEntry.h"

#include <cstring>

#include "ipmi/ByteReader.h"

void RawSelEntry::setValues(const std::vector<unsigned char>& response) {
    constexpr std::size_t recordStart = 2;  // after the next record ID
    ByteReader(response, recordStart).upTo(reinterpret_cast<unsigned char*>(this), sizeof *this);
}

Tolmar::IPMISELENTRY RawSelEntry::toIpmiSelEntry() const {
    Tolmar::IPMISELENTRY entry;
    std::memcpy(&entry, this, sizeof entry);
    return entry;
}
