// Byte-level views of the plain IPMI records, for comparing and presetting them in tests.
#pragma once

#include <cstring>
#include <type_traits>
#include <vector>

namespace sim {

template <typename Record>
std::vector<unsigned char> bytesOf(const Record& record) {
    static_assert(std::is_trivially_copyable_v<Record>);
    std::vector<unsigned char> bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

// A record with every byte set to `value`: what a test expects to find untouched.
template <typename Record>
Record filledWith(unsigned char value) {
    static_assert(std::is_trivially_copyable_v<Record>);
    Record record;
    std::memset(&record, value, sizeof record);
    return record;
}

}  // namespace sim
