#include "RawPETEntry.h"

#include "ResponseBytes.h"

void RawPETEntry::setValues(const std::vector<unsigned char>& response) {
    constexpr std::size_t entryStart = 2;  // after parameter revision and set selector
    copyResponseBytes(response, entryStart, reinterpret_cast<unsigned char*>(this), sizeof *this);
}
