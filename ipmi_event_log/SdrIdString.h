// The ID string of a sensor data record: a type/length byte, then the string (IPMI v2.0 section
// 43.15, the same encoding as FRU type/length fields).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Tolmar {

// The string whose type/length byte is at `at` in `record`. It ends at the length that byte
// gives, whatever follows in the record; a record shorter than that gives what it holds.
std::string sdrIdString(const std::vector<std::uint8_t>& record, std::size_t at);

}  // namespace Tolmar
