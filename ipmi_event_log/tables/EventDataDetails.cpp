#include "EventDataDetails.h"

#include <cstdio>

#include "EventOffsetTexts.h"

namespace Tolmar {

namespace {

// Event data 1 bits 7:6 (byte 2) and 5:4 (byte 3), table 29-6. For threshold events 01b is the
// trigger reading (byte 2) and threshold (byte 3); for discrete events byte 2's 01b is the
// previous state and severity, byte 3's is reserved.
enum ByteUse : std::uint8_t {
    kUnspecified = 0,
    kTriggerOrState = 1,
    kOemCode = 2,
    kSensorCode = 3
};
constexpr std::uint8_t kOffsetMask = 0x0F;
constexpr std::uint8_t kThresholdType = 0x01;
constexpr std::uint8_t kSensorSpecificType = 0x6F;
constexpr std::uint8_t kSeverityType = 0x07;
constexpr std::uint8_t kUnspecifiedNibble = 0x0F;

// Sensor types with sensor-specific event data (table 42-3).
constexpr std::uint8_t kPowerSupply = 0x08;
constexpr std::uint8_t kMemory = 0x0C;
constexpr std::uint8_t kEventLoggingDisabled = 0x10;
constexpr std::uint8_t kSystemRestart = 0x1D;
constexpr std::uint8_t kManagementHealth = 0x28;
constexpr std::uint8_t kSessionAudit = 0x2A;

std::string formatted(const char* format, unsigned value) {
    char text[96];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

// Power supply offset 06h, configuration error: event data 3 bits 3:0.
const char* const kPowerSupplyErrors[] = {"Vendor mismatch", "Revision mismatch",
                                          "Processor missing", "Power Supply rating mismatch",
                                          "Voltage rating mismatch"};
// System restart offset 07h: event data 2 bits 3:0, the restart cause.
const char* const kRestartCauses[] = {"unknown",
                                      "Chassis Control command",
                                      "reset via pushbutton",
                                      "power-up via power pushbutton",
                                      "Watchdog expiration",
                                      "OEM",
                                      "automatic power-up on AC being applied due to 'always "
                                      "restore' power restore policy",
                                      "automatic power-up on AC being applied due to 'restore "
                                      "previous power state' power restore policy",
                                      "reset via PEF",
                                      "power-cycle via PEF",
                                      "soft reset",
                                      "power-up via RTC (system real time clock) wakeup"};
// Session audit offset 01h, session deactivated: event data 3 bits 5:4.
const char* const kDeactivationCauses[] = {
    "Session deactivation cause unspecified", "Session deactivated by Close Session command",
    "Session deactivated by timeout", "Session deactivated by configuration change"};

template <std::size_t N>
std::string fromList(const char* const (&texts)[N], unsigned index, const char* otherwise) {
    return index < N ? texts[index] : formatted(otherwise, index);
}

// Byte 2, 01b, discrete: bits 7:4 the severity (type 07h offsets), bits 3:0 the previous state
// (offsets of the event's own type).
void addStateAndSeverity(const EventDataFields& event, std::vector<std::string>& details) {
    const std::uint8_t severity = event.data[1] >> 4;
    const std::uint8_t previous = event.data[1] & kOffsetMask;
    if (previous != kUnspecifiedNibble) {
        details.push_back("Previous state = " +
                          eventOffsetText(event.eventType, event.sensorType, previous));
    }
    if (severity != kUnspecifiedNibble) {
        details.push_back("Severity = " + eventOffsetText(kSeverityType, 0, severity));
    }
}

std::vector<std::string> sensorSpecificByte2(const EventDataFields& event, std::uint8_t offset) {
    const std::uint8_t data = event.data[1];
    switch (event.sensorType) {
        case kEventLoggingDisabled:
            if (offset == 0x00) return {formatted("Memory module/device #%u", data)};
            if (offset == 0x01) return {formatted("Event/Reading Type Code #%u", data)};
            if (offset == 0x06) return {formatted("Instance ID #%u", data)};
            break;
        case kSystemRestart:
            if (offset == 0x07) {
                return {"Restart cause = " +
                        fromList(kRestartCauses, data & kOffsetMask, "reserved (%u)")};
            }
            break;
        case kManagementHealth:
            if (offset == 0x00 || offset == 0x04) return {formatted("Sensor Number #%u", data)};
            break;
        case kSessionAudit:
            if ((data & 0x3F) != 0) return {formatted("User ID = %u", data & 0x3F)};
            return {};
    }
    return {formatted("Event Data 2 sensor-specific code = %02Xh", data)};
}

std::vector<std::string> sensorSpecificByte3(const EventDataFields& event, std::uint8_t offset) {
    const std::uint8_t data = event.data[2];
    switch (event.sensorType) {
        case kPowerSupply:
            if (offset == 0x06) {
                return {"Error type = " +
                        fromList(kPowerSupplyErrors, data & kOffsetMask, "reserved (%u)")};
            }
            break;
        case kMemory:
            return {formatted("Memory module/DIMM = %u", data)};
        case kSystemRestart:
            if (offset == 0x07) return {formatted("Channel = %u", data & kOffsetMask)};
            break;
        case kSessionAudit: {
            std::vector<std::string> details{formatted("Channel = %u", data & kOffsetMask)};
            if (offset == 0x01) details.push_back(kDeactivationCauses[(data >> 4) & 0x03]);
            return details;
        }
    }
    return {formatted("Event Data 3 sensor-specific code = %02Xh", data)};
}

void append(std::vector<std::string>& details, std::vector<std::string> more) {
    for (std::string& text : more) details.push_back(std::move(text));
}

void addByte2(const EventDataFields& event, std::vector<std::string>& details) {
    const std::uint8_t use = event.data[0] >> 6;
    const std::uint8_t offset = event.data[0] & kOffsetMask;
    if (use == kTriggerOrState && event.eventType != kThresholdType) {
        addStateAndSeverity(event, details);
    } else if (use == kOemCode) {
        details.push_back(formatted("Event Data 2 OEM code = %02Xh", event.data[1]));
    } else if (use == kSensorCode && event.eventType == kSensorSpecificType) {
        append(details, sensorSpecificByte2(event, offset));
    } else if (use == kSensorCode) {
        details.push_back(formatted("Event Data 2 sensor-specific code = %02Xh", event.data[1]));
    }
}

void addByte3(const EventDataFields& event, std::vector<std::string>& details) {
    const std::uint8_t use = (event.data[0] >> 4) & 0x03;
    const std::uint8_t offset = event.data[0] & kOffsetMask;
    if (use == kOemCode) {
        details.push_back(formatted("Event Data 3 OEM code = %02Xh", event.data[2]));
    } else if (use == kSensorCode && event.eventType == kSensorSpecificType) {
        append(details, sensorSpecificByte3(event, offset));
    } else if (use == kSensorCode) {
        details.push_back(formatted("Event Data 3 sensor-specific code = %02Xh", event.data[2]));
    }
}

}  // namespace

std::vector<std::string> eventDataDetails(const EventDataFields& event) {
    std::vector<std::string> details;
    addByte2(event, details);
    addByte3(event, details);
    return details;
}

}  // namespace Tolmar
