#include "EventOffsetTexts.h"

#include <cstdio>

#include "EventReadingTypeCodeOffsetTable.h"
#include "SensorTypeCodeOffsetTable.h"

namespace Tolmar {

namespace {

// Event/reading type codes (table 42-1).
constexpr std::uint8_t kUnspecifiedType = 0x00;
constexpr std::uint8_t kThresholdType = 0x01;
constexpr std::uint8_t kLastGenericType = 0x0C;
constexpr std::uint8_t kSensorSpecificType = 0x6F;
constexpr std::uint8_t kFirstOemType = 0x70;
constexpr std::uint8_t kLastOemType = 0x7F;
// Sensor types 01h-04h (temperature, voltage, current, fan) are threshold-based and have no
// sensor-specific offsets; C0h-FFh are OEM (table 42-3).
constexpr std::uint8_t kLastThresholdSensorType = 0x04;
constexpr std::uint8_t kFirstOemSensorType = 0xC0;

// Threshold offsets, in ipmitool's words.
const char* const kThresholdTexts[] = {
    "Lower Non-critical going low",    "Lower Non-critical going high",
    "Lower Critical going low",        "Lower Critical going high",
    "Lower Non-recoverable going low", "Lower Non-recoverable going high",
    "Upper Non-critical going low",    "Upper Non-critical going high",
    "Upper Critical going low",        "Upper Critical going high",
    "Upper Non-recoverable going low", "Upper Non-recoverable going high"};

std::string withOffset(const char* what, std::uint8_t offset) {
    char text[48];
    std::snprintf(text, sizeof text, "%s offset %02Xh", what, offset);
    return text;
}

std::string orReserved(std::string text, std::uint8_t offset) {
    return text.empty() ? withOffset("Reserved", offset) : text;
}

std::string sensorSpecificText(std::uint8_t sensorType, std::uint8_t offset) {
    if (sensorType >= kFirstOemSensorType) return withOffset("OEM", offset);
    if (sensorType <= kLastThresholdSensorType) return withOffset("Reserved", offset);
    return orReserved(SensorTypeCodeOffsetTable::table.getEventDescription(sensorType, offset),
                      offset);
}

std::string genericOffsetText(std::uint8_t eventType, std::uint8_t offset) {
    return EventReadingTypeCodeOffsetTable::table.getEventDescription(eventType, offset);
}

}  // namespace

std::string eventOffsetText(std::uint8_t eventType, std::uint8_t sensorType, std::uint8_t offset) {
    constexpr std::size_t thresholdCount = sizeof kThresholdTexts / sizeof kThresholdTexts[0];
    if (eventType == kUnspecifiedType) return "Unspecified event";
    if (eventType == kThresholdType) {
        return offset < thresholdCount ? kThresholdTexts[offset] : withOffset("Reserved", offset);
    }
    if (eventType <= kLastGenericType)
        return orReserved(genericOffsetText(eventType, offset), offset);
    if (eventType == kSensorSpecificType) return sensorSpecificText(sensorType, offset);
    if (eventType >= kFirstOemType && eventType <= kLastOemType) return withOffset("OEM", offset);
    return withOffset("Reserved event type", offset);
}

}  // namespace Tolmar
