// Event data 2 and 3 of a system event in words: what event data 1 bits 7:4 say the bytes hold
// (IPMI v2.0 table 29-6), the sensor-specific meanings of table 42-3, and the OEM codes of the
// manufacturers whose layouts are public, for a BMC of theirs.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "IpmiSelDecoding.h"

namespace Tolmar {

struct EventDataFields {
    std::uint8_t generator;  // byte 7: an IPMB slave address, or a software ID with bit 0 set
    std::uint8_t sensorType;
    std::uint8_t sensorNumber;
    std::uint8_t eventType;            // event/reading type code
    std::array<std::uint8_t, 3> data;  // event data 1-3
};

// What event data 1 says a byte holds: bits 7:6 for byte 2, bits 5:4 for byte 3 (table 29-6).
enum class ByteUse : std::uint8_t {
    Unspecified = 0,
    TriggerOrState = 1,  // threshold: trigger reading / threshold; discrete byte 2: previous state
    Oem = 2,
    SensorSpecific = 3  // sensor-specific event extension code
};
inline ByteUse byte2Use(const EventDataFields& event) {
    return static_cast<ByteUse>(event.data[0] >> 6);
}
inline ByteUse byte3Use(const EventDataFields& event) {
    return static_cast<ByteUse>((event.data[0] >> 4) & 0x03);
}
inline std::uint8_t offsetOf(const EventDataFields& event) { return event.data[0] & 0x0F; }

// What a manufacturer's own layout says of a system event: its words, and which of event data 2
// and 3 they account for (those then get no generic words).
struct VendorWords {
    std::vector<std::string> words;
    bool byte2 = false;
    bool byte3 = false;
};

// One text or more for each byte that has a meaning; bytes event data 1 calls unspecified, codes
// of FFh and unspecified previous states and severities (Fh) give none. A threshold event's
// trigger reading and threshold are left out: their values need the sensor's SDR. `bmc`, when
// known, lets OEM codes be read in its manufacturer's layout.
std::vector<std::string> eventDataDetails(const EventDataFields& event,
                                          const std::optional<BmcIdentity>& bmc = std::nullopt);

// `format` filled in with `values`, as snprintf does: the tables' short texts.
template <typename... Values>
std::string formatted(const char* format, Values... values) {
    char text[160];
    std::snprintf(text, sizeof text, format, values...);
    return text;
}

// A PCI function as the OEM layouts give it: "PCI bus 05h, device 1Ch, function 2".
std::string pciFunctionText(unsigned bus, unsigned device, unsigned function);

}  // namespace Tolmar
