#include "EventDataCodeTexts.h"

#include <cstddef>

namespace Tolmar {

namespace {

// The text of `code` in a list indexed by code; nullptr past its end and for the list's gaps.
template <std::size_t N>
const char* listed(const char* const (&texts)[N], std::uint8_t code) {
    return code < N ? texts[code] : nullptr;
}

// Table 42-3, system firmware progress, offset 00h: 00h unspecified, 0Eh-FFh reserved.
const char* const kFirmwareErrors[] = {
    nullptr,
    "no system memory is physically installed",
    "no usable system memory: all installed memory has failed",
    "unrecoverable hard-disk / ATAPI / IDE device failure",
    "unrecoverable system-board failure",
    "unrecoverable diskette subsystem failure",
    "unrecoverable hard-disk controller failure",
    "unrecoverable PS/2 or USB keyboard failure",
    "removable boot media not found",
    "unrecoverable video controller failure",
    "no video device detected",
    "firmware (BIOS) ROM corruption detected",
    "CPU voltage mismatch: processors on one supply need different voltages",
    "CPU speed matching failure",
};

// Table 42-3, system firmware progress, offsets 01h and 02h: 00h unspecified, 15h and
// 1Ah-FFh reserved.
const char* const kFirmwareSteps[] = {
    nullptr,
    "memory initialization",
    "hard-disk initialization",
    "secondary processor initialization",
    "user authentication",
    "user-initiated system setup",
    "USB resource configuration",
    "PCI resource configuration",
    "option ROM initialization",
    "video initialization",
    "cache initialization",
    "SM Bus initialization",
    "keyboard controller initialization",
    "embedded controller / management controller initialization",
    "docking station attachment",
    "enabling docking station",
    "docking station ejection",
    "disabling docking station",
    "calling the operating system wake-up vector",
    "starting the operating system boot process (e.g. calling Int 19h)",
    "baseboard or motherboard initialization",
    nullptr,
    "floppy initialization",
    "keyboard test",
    "pointing device test",
    "primary processor initialization",
};

// Table 42-3, system event, offset 03h.
const char* const kAuxiliaryLogActions[] = {
    "entry added",
    "entry added because the event did not map to a standard IPMI event",
    "entry added with one or more matching SEL entries",
    "log cleared",
    "log disabled",
    "log enabled",
};
const char* const kAuxiliaryLogTypes[] = {"MCA log", "OEM 1", "OEM 2"};

// Table 42-3, system event, offset 05h.
const char* const kClockTypes[] = {"SEL time stamp clock updated", "SDR time stamp clock updated"};

// Table 28-11, as system boot / restart offset 07h carries it.
const char* const kRestartCauses[] = {
    "unknown",
    "Chassis Control command",
    "reset via pushbutton",
    "power-up via power pushbutton",
    "watchdog expiration",
    "OEM",
    "automatic power-up on AC being applied, power restore policy 'always restore'",
    "automatic power-up on AC being applied, power restore policy 'restore previous state'",
    "reset via PEF",
    "power-cycle via PEF",
    "soft reset (e.g. CTRL-ALT-DEL)",
    "power-up via RTC (system real time clock) wakeup",
};

// Table 42-3, slot / connector.
const char* const kSlotConnectorTypes[] = {
    "PCI",
    "drive array",
    "external peripheral connector",
    "docking",
    "other standard internal expansion slot",
    "slot of the entity named by the sensor's Entity ID",
    "AdvancedTCA",
    "DIMM / memory device",
    "fan",
    "PCI Express",
    "SCSI (parallel)",
    "SATA / SAS",
};

// Table 42-3, watchdog 2; Fh is unspecified in both nibbles.
const char* const kWatchdogInterrupts[] = {"none", "SMI", "NMI", "messaging interrupt"};
const char* const kWatchdogTimerUses[] = {nullptr,   "BIOS FRB2", "BIOS / POST",
                                          "OS load", "SMS / OS",  "OEM"};

// Table 42-3, version change: 00h unspecified.
const char* const kVersionChanges[] = {
    nullptr,
    "management controller device ID (device ID or firmware revision fields)",
    "management controller firmware revision",
    "management controller device revision",
    "management controller manufacturer ID",
    "management controller IPMI version",
    "management controller auxiliary firmware ID",
    "management controller firmware boot block",
    "other management controller firmware",
    "system firmware (EFI / BIOS)",
    "SMBIOS",
    "operating system",
    "operating system loader",
    "service or diagnostic partition",
    "management software agent",
    "management software application",
    "management software middleware",
    "programmable hardware (e.g. FPGA)",
    "board / FRU module (a module plugged into the entity)",
    "board / FRU component (a replaceable part not tracked as a FRU)",
    "board / FRU replaced with an equivalent version",
    "board / FRU replaced with a newer version",
    "board / FRU replaced with an older version",
    "board / FRU hardware configuration (strap, jumper, cable, ...)",
};

// Table 42-3, FRU state; Bh-Eh reserved, Fh: cause unknown.
const char* const kFruStateCauses[] = {
    "normal state change",
    "commanded by software outside the FRU",
    "operator changed a handle latch",
    "operator pressed the hot swap push button",
    "FRU programmatic action",
    "communication lost",
    "communication lost through a local failure",
    "unexpected extraction",
    "operator intervention / update",
    "unable to compute the IPMB address",
    "unexpected deactivation",
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    "cause unknown",
};

// Table 42-3, power supply, offset 06h.
const char* const kPowerSupplyErrors[] = {"vendor mismatch", "revision mismatch",
                                          "processor missing", "power supply rating mismatch",
                                          "voltage rating mismatch"};

}  // namespace

const char* firmwareErrorText(std::uint8_t code) { return listed(kFirmwareErrors, code); }
const char* firmwareStepText(std::uint8_t code) { return listed(kFirmwareSteps, code); }
const char* auxiliaryLogActionText(std::uint8_t code) { return listed(kAuxiliaryLogActions, code); }
const char* auxiliaryLogTypeText(std::uint8_t code) { return listed(kAuxiliaryLogTypes, code); }
const char* clockTypeText(std::uint8_t code) { return listed(kClockTypes, code); }
const char* restartCauseText(std::uint8_t code) { return listed(kRestartCauses, code); }
const char* slotConnectorTypeText(std::uint8_t code) { return listed(kSlotConnectorTypes, code); }
const char* watchdogInterruptText(std::uint8_t code) { return listed(kWatchdogInterrupts, code); }
const char* watchdogTimerUseText(std::uint8_t code) { return listed(kWatchdogTimerUses, code); }
const char* versionChangeText(std::uint8_t code) { return listed(kVersionChanges, code); }
const char* fruStateCauseText(std::uint8_t code) { return listed(kFruStateCauses, code); }
const char* powerSupplyErrorText(std::uint8_t code) { return listed(kPowerSupplyErrors, code); }

}  // namespace Tolmar
