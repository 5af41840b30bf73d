#include "EventDataDetails.h"

#include <cstdio>
#include <utility>

#include "DellEventDetails.h"
#include "EventDataCodeTexts.h"
#include "EventOffsetTexts.h"
#include "IntelEventDetails.h"
#include "ManufacturerNames.h"
#include "SupermicroEventDetails.h"

namespace Tolmar {

namespace {

constexpr std::uint8_t kThresholdType = 0x01;
constexpr std::uint8_t kSeverityType = 0x07;
constexpr std::uint8_t kSensorSpecificType = 0x6F;
constexpr std::uint8_t kUnspecifiedNibble = 0x0F;
// A sensor-specific or OEM code of FFh says nothing (the value an unused byte is filled with).
constexpr std::uint8_t kUnspecifiedCode = 0xFF;

// Sensor types whose offsets give event data 2 or 3 a meaning (table 42-3).
constexpr std::uint8_t kPhysicalSecurity = 0x05;
constexpr std::uint8_t kPowerSupply = 0x08;
constexpr std::uint8_t kMemory = 0x0C;
constexpr std::uint8_t kFirmwareProgress = 0x0F;
constexpr std::uint8_t kEventLoggingDisabled = 0x10;
constexpr std::uint8_t kSystemEvent = 0x12;
constexpr std::uint8_t kChipSet = 0x19;
constexpr std::uint8_t kSystemRestart = 0x1D;
constexpr std::uint8_t kSlotConnector = 0x21;
constexpr std::uint8_t kAcpiPowerState = 0x22;
constexpr std::uint8_t kWatchdog2 = 0x23;
constexpr std::uint8_t kManagementHealth = 0x28;
constexpr std::uint8_t kSessionAudit = 0x2A;
constexpr std::uint8_t kVersionChange = 0x2B;
constexpr std::uint8_t kFruState = 0x2C;

// "Label = text", or the code when the table leaves it reserved.
std::string named(const char* label, const char* text, unsigned code) {
    return text ? std::string(label) + " = " + text
                : formatted("%s = reserved code %02Xh", label, code);
}

// An ACPI power state as chip set offset 00h gives it: the offsets of sensor type 22h.
std::string acpiStateText(std::uint8_t code) {
    return eventOffsetText(kSensorSpecificType, kAcpiPowerState, code & 0x0F);
}

// Byte 2, 01b, discrete: bits 7:4 the severity (type 07h offsets), bits 3:0 the previous state
// (offsets of the event's own type).
void addStateAndSeverity(const EventDataFields& event, std::vector<std::string>& details) {
    const std::uint8_t severity = event.data[1] >> 4;
    const std::uint8_t previous = event.data[1] & 0x0F;
    if (previous != kUnspecifiedNibble) {
        details.push_back("Previous state = " +
                          eventOffsetText(event.eventType, event.sensorType, previous));
    }
    if (severity != kUnspecifiedNibble) {
        details.push_back("Severity = " + eventOffsetText(kSeverityType, 0, severity));
    }
}

std::vector<std::string> firmwareProgressByte2(std::uint8_t offset, std::uint8_t data) {
    if (data == 0x00) return {};  // unspecified
    if (offset == 0x00) return {named("POST error", firmwareErrorText(data), data)};
    if (offset == 0x01) return {named("Hang in", firmwareStepText(data), data)};
    if (offset == 0x02) return {named("Progress", firmwareStepText(data), data)};
    return {formatted("Event Data 2 sensor-specific code = %02Xh", data)};
}

// System event offset 04h: bit 0 alert, 1 power off, 2 reset, 3 power cycle, 4 OEM action,
// 5 diagnostic interrupt (NMI).
std::string pefActionsText(std::uint8_t data) {
    static const char* const kActions[] = {
        "alert", "power off", "reset", "power cycle", "OEM action", "diagnostic interrupt (NMI)"};
    std::string text;
    for (unsigned bit = 0; bit < 6; ++bit) {
        if (!(data & (1u << bit))) continue;
        text += (text.empty() ? "" : ", ") + std::string(kActions[bit]);
    }
    return "PEF actions = " + (text.empty() ? std::string("none") : text);
}

std::vector<std::string> systemEventByte2(std::uint8_t offset, std::uint8_t data) {
    switch (offset) {
        case 0x03:  // entry added to auxiliary log
            return {named("Log entry action", auxiliaryLogActionText(data >> 4), data >> 4),
                    named("Log type", auxiliaryLogTypeText(data & 0x0F), data & 0x0F)};
        case 0x04:
            return {pefActionsText(data)};
        case 0x05:  // time stamp clock synch: a pair of events, before and after the change
            return {named("Clock", clockTypeText(data & 0x0F), data & 0x0F),
                    data & 0x80 ? "Second of pair (after the change)"
                                : "First of pair (before the change)"};
    }
    return {formatted("Event Data 2 sensor-specific code = %02Xh", data)};
}

std::vector<std::string> watchdogByte2(std::uint8_t data) {
    // The timer's use first, as ipmi-sel says them.
    std::vector<std::string> details;
    const std::uint8_t interrupt = data >> 4;
    const std::uint8_t timerUse = data & 0x0F;
    if (timerUse != kUnspecifiedNibble) {
        details.push_back(
            named("Timer use at expiration", watchdogTimerUseText(timerUse), timerUse));
    }
    if (interrupt != kUnspecifiedNibble) {
        details.push_back(named("Interrupt type", watchdogInterruptText(interrupt), interrupt));
    }
    return details;
}

// Management subsystem health offset 05h: bit 7 a logical FRU device (reached by FRU commands to
// the controller), bits 4:3 the LUN, bits 2:0 the private bus of a non-logical one.
std::vector<std::string> fruFailureByte2(std::uint8_t data) {
    const bool logical = data & 0x80;
    std::vector<std::string> details{logical ? "Logical FRU device" : "Non-logical FRU device",
                                     formatted("LUN = %u", (data >> 3) & 0x03u)};
    if (!logical) details.push_back(formatted("Private bus = %u", data & 0x07u));
    return details;
}

std::vector<std::string> fruStateByte2(const EventDataFields& event) {
    const std::uint8_t cause = event.data[1] >> 4;
    return {
        "Previous state = " + eventOffsetText(kSensorSpecificType, kFruState, event.data[1] & 0x0F),
        named("Cause", fruStateCauseText(cause), cause)};
}

std::vector<std::string> sensorSpecificByte2(const EventDataFields& event) {
    const std::uint8_t offset = offsetOf(event);
    const std::uint8_t data = event.data[1];
    switch (event.sensorType) {
        case kPhysicalSecurity:
            if (offset == 0x04) return {formatted("Network controller = %u", data)};
            break;
        case kFirmwareProgress:
            return firmwareProgressByte2(offset, data);
        case kEventLoggingDisabled:
            if (offset == 0x00) return {formatted("Memory module = %u", data)};
            if (offset == 0x01) return {formatted("Event/reading type = %02Xh", data)};
            if (offset == 0x06) {
                // Byte 3 says what kind of number this is, and then says it.
                const bool withKind =
                    byte3Use(event) == ByteUse::SensorSpecific && event.data[2] != kUnspecifiedCode;
                if (withKind) return {};
                return {formatted("Processor = %u", data)};
            }
            break;
        case kSystemEvent:
            return systemEventByte2(offset, data);
        case kChipSet:
            if (offset == 0x00) return {"Requested power state = " + acpiStateText(data)};
            break;
        case kSystemRestart:
            if (offset == 0x07)
                return {named("Restart cause", restartCauseText(data & 0x0F), data & 0x0F)};
            break;
        case kSlotConnector:
            return {named("Slot/connector type", slotConnectorTypeText(data & 0x7F), data & 0x7F)};
        case kWatchdog2:
            return watchdogByte2(data);
        case kManagementHealth:
            if (offset == 0x00 || offset == 0x04) return {formatted("Sensor number = %02Xh", data)};
            if (offset == 0x05) return fruFailureByte2(data);
            break;
        case kSessionAudit:
            // Bits 5:0: the user ID, 0 unspecified.
            if ((data & 0x3F) != 0) return {formatted("User ID = %u", data & 0x3F)};
            return {};
        case kVersionChange:
            if (data == 0x00) return {};  // unspecified
            return {named("Change type", versionChangeText(data), data)};
        case kFruState:
            return fruStateByte2(event);
    }
    return {formatted("Event Data 2 sensor-specific code = %02Xh", data)};
}

// Event logging disabled offset 01h: bit 5 all events of the type, bit 4 assertion, bits 3:0 the
// offset.
std::vector<std::string> loggingDisabledByte3(std::uint8_t data) {
    std::vector<std::string> details{formatted("Event offset = %02Xh", data & 0x0Fu),
                                     data & 0x10 ? "Assertion event" : "Deassertion event"};
    if (data & 0x20) details.push_back("Logging disabled for all events of the type");
    return details;
}

std::vector<std::string> sensorSpecificByte3(const EventDataFields& event) {
    const std::uint8_t offset = offsetOf(event);
    const std::uint8_t data = event.data[2];
    switch (event.sensorType) {
        case kPowerSupply:
            if (offset == 0x06) {
                return {named("Error type", powerSupplyErrorText(data & 0x0F), data & 0x0F)};
            }
            break;
        case kMemory:
            // Relative to the entity the sensor belongs to.
            return {formatted("Memory module/DIMM = %u", data)};
        case kEventLoggingDisabled:
            if (offset == 0x01) return loggingDisabledByte3(data);
            if (offset == 0x05) return {formatted("SEL %u%% full", data)};
            if (offset == 0x06) {
                // Bit 7: 0b byte 2 is the processor's entity instance, 1b a vendor's number.
                const unsigned number = event.data[1];
                return {data & 0x80 ? formatted("Vendor processor number = %u", number)
                                    : formatted("Processor entity instance = %u", number)};
            }
            break;
        case kChipSet:
            if (offset == 0x00) return {"Power state at the request = " + acpiStateText(data)};
            break;
        case kSystemRestart:
            if (offset == 0x07) return {formatted("Channel = %u", data & 0x0Fu)};
            break;
        case kSlotConnector:
            return {formatted("Slot/connector number = %u", data)};
        case kManagementHealth:
            if (offset == 0x05) {
                // A logical device's FRU device ID, else the 7-bit slave address in bits 7:1.
                if (byte2Use(event) != ByteUse::SensorSpecific) {
                    return {formatted("FRU device = %02Xh", data)};
                }
                if (event.data[1] & 0x80) return {formatted("FRU device ID = %u", data)};
                return {formatted("FRU slave address = %02Xh", data & 0xFEu)};
            }
            break;
        case kSessionAudit: {
            static const char* const kDeactivationCauses[] = {
                "Session deactivation cause unspecified",
                "Session deactivated by Close Session command", "Session deactivated by timeout",
                "Session deactivated by configuration change"};
            std::vector<std::string> details{formatted("Channel = %u", data & 0x0Fu)};
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
    const ByteUse use = byte2Use(event);
    const std::uint8_t data = event.data[1];
    if (use == ByteUse::TriggerOrState && event.eventType != kThresholdType) {
        addStateAndSeverity(event, details);
    } else if (data == kUnspecifiedCode) {
        return;
    } else if (use == ByteUse::Oem) {
        details.push_back(formatted("Event Data 2 OEM code = %02Xh", data));
    } else if (use == ByteUse::SensorSpecific && event.eventType == kSensorSpecificType) {
        append(details, sensorSpecificByte2(event));
    } else if (use == ByteUse::SensorSpecific) {
        details.push_back(formatted("Event Data 2 sensor-specific code = %02Xh", data));
    }
}

void addByte3(const EventDataFields& event, std::vector<std::string>& details) {
    const ByteUse use = byte3Use(event);
    const std::uint8_t data = event.data[2];
    if (data == kUnspecifiedCode) return;
    if (use == ByteUse::Oem) {
        details.push_back(formatted("Event Data 3 OEM code = %02Xh", data));
    } else if (use == ByteUse::SensorSpecific && event.eventType == kSensorSpecificType) {
        append(details, sensorSpecificByte3(event));
    } else if (use == ByteUse::SensorSpecific) {
        details.push_back(formatted("Event Data 3 sensor-specific code = %02Xh", data));
    }
}

// The words of the BMC's manufacturer, for the makers whose layouts are public.
VendorWords vendorWords(const BmcIdentity& bmc, const EventDataFields& event) {
    switch (bmc.manufacturerId) {
        case kDellEnterprise:
            return dellEventWords(event);
        case kIntelEnterprise:
            return intelEventWords(bmc.productId, event);
        case kSupermicroEnterprise:
        case kSupermicroAlternateEnterprise:
        case kPepperconEnterprise:
        case kMagnumTechnologiesEnterprise:
            return supermicroEventWords(event);
    }
    return {};
}

}  // namespace

std::vector<std::string> eventDataDetails(const EventDataFields& event,
                                          const std::optional<BmcIdentity>& bmc) {
    VendorWords vendor = bmc ? vendorWords(*bmc, event) : VendorWords{};
    std::vector<std::string> details;
    if (!vendor.byte2) addByte2(event, details);
    if (!vendor.byte3) addByte3(event, details);
    append(details, std::move(vendor.words));
    return details;
}

std::string pciFunctionText(unsigned bus, unsigned device, unsigned function) {
    return formatted("PCI bus %02Xh, device %02Xh, function %u", bus, device, function);
}

}  // namespace Tolmar
