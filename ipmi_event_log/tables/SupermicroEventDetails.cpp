#include "SupermicroEventDetails.h"

#include <cstdio>

namespace Tolmar {

namespace {

constexpr std::uint8_t kSensorSpecificType = 0x6F;
constexpr std::uint8_t kOemGenericType = 0x70;  // the OEM event/reading type of C0h's events
constexpr std::uint8_t kMemory = 0x0C;
constexpr std::uint8_t kCpuTemperature = 0xC0;  // OEM: the CPU's temperature state
constexpr std::uint8_t kBmcStatus = 0xD0;       // OEM: the BMC's own resets
// C0h's offset 02h in the SEL is the CPU overheat.
constexpr std::uint8_t kOverheatOffset = 0x02;
// D0h's reset events: offset 00h, an OEM code in event data 2 and nothing in event data 3.
constexpr std::uint8_t kResetEventData1 = 0x80;
constexpr std::uint8_t kUnused = 0xFF;

VendorWords bmcResetWords(const EventDataFields& event) {
    static const char* const kResets[] = {"BMC unexpected reset", "BMC cold reset",
                                          "BMC warm reset"};
    if (event.eventType != kSensorSpecificType || event.data[0] != kResetEventData1 ||
        event.data[2] != kUnused || event.data[1] > 0x02) {
        return {};
    }
    return {{kResets[event.data[1]]}, true, false};
}

// Correctable (00h) and uncorrectable (01h) memory errors with OEM codes in both bytes: event
// data 2 bits 7:4 the DIMM pair (from 1), bits 3:0 the DIMM in it plus 9 (Ah the first); event
// data 3 bits 1:0 the CPU (0 = CPU 1). Which letter a pair has on the board depends on the board
// family, so the numbers are given.
VendorWords memoryWords(const EventDataFields& event) {
    if (event.eventType != kSensorSpecificType || offsetOf(event) > 0x01 ||
        byte2Use(event) != ByteUse::Oem || byte3Use(event) != ByteUse::Oem) {
        return {};
    }
    const unsigned pair = event.data[1] >> 4;
    const unsigned slot = event.data[1] & 0x0F;
    if (pair == 0 || slot < 0x0A) return {};
    return {
        {formatted("CPU %u, DIMM pair %u, DIMM %u", (event.data[2] & 0x03u) + 1, pair, slot - 9)},
        true,
        true};
}

}  // namespace

VendorWords supermicroEventWords(const EventDataFields& event) {
    switch (event.sensorType) {
        case kBmcStatus:
            return bmcResetWords(event);
        case kCpuTemperature:
            if (event.eventType == kOemGenericType && offsetOf(event) == kOverheatOffset) {
                return {{"CPU overheat"}};
            }
            return {};
        case kMemory:
            return memoryWords(event);
    }
    return {};
}

}  // namespace Tolmar
