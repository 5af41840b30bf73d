// The text of an event's offset (event data 1 bits 3:0), by its event/reading type code (IPMI
// v2.0 table 42-1): threshold crossings, generic states (table 42-2) and sensor-specific states
// (table 42-3).
#pragma once

#include <cstdint>
#include <string>

namespace Tolmar {

// Never empty: offsets the tables leave undefined read "Reserved offset 0Dh", OEM ones
// "OEM offset 02h".
std::string eventOffsetText(std::uint8_t eventType, std::uint8_t sensorType, std::uint8_t offset);

}  // namespace Tolmar
