// Event data 2 and 3 of a system event in words: what event data 1 bits 7:4 say the bytes hold
// (IPMI v2.0 table 29-6), and the sensor-specific meanings of table 42-3.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace Tolmar {

struct EventDataFields {
    std::uint8_t sensorType;
    std::uint8_t eventType;            // event/reading type code
    std::array<std::uint8_t, 3> data;  // event data 1-3
};

// One text or more a byte that has a meaning; bytes event data 1 calls unspecified, and
// unspecified previous states and severities (Fh), give none. A threshold event's trigger reading
// and threshold are left out: their values need the sensor's SDR.
std::vector<std::string> eventDataDetails(const EventDataFields& event);

}  // namespace Tolmar
