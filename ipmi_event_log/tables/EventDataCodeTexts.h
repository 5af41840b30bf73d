// The codes event data 2 and 3 carry for some sensor-specific offsets, in words (IPMI v2.0 table
// 42-3, and table 28-11 for restart causes). Each function answers nullptr for a code the table
// leaves reserved or unspecified.
#pragma once

#include <cstdint>

namespace Tolmar {

// System firmware progress (0Fh), offset 00h: the POST error in event data 2.
const char* firmwareErrorText(std::uint8_t code);
// System firmware progress (0Fh), offsets 01h (hang) and 02h (progress): the step, event data 2.
const char* firmwareStepText(std::uint8_t code);
// System event (12h), offset 03h: event data 2 bits 7:4, what was done to the auxiliary log.
const char* auxiliaryLogActionText(std::uint8_t code);
// System event (12h), offset 03h: event data 2 bits 3:0, which auxiliary log.
const char* auxiliaryLogTypeText(std::uint8_t code);
// System event (12h), offset 05h: event data 2 bits 3:0, the clock that was set.
const char* clockTypeText(std::uint8_t code);
// System boot / restart (1Dh), offset 07h: event data 2 bits 3:0, the restart cause.
const char* restartCauseText(std::uint8_t code);
// Slot / connector (21h): event data 2 bits 6:0, the kind of slot.
const char* slotConnectorTypeText(std::uint8_t code);
// Watchdog 2 (23h): event data 2 bits 7:4, the interrupt the timer was set to raise.
const char* watchdogInterruptText(std::uint8_t code);
// Watchdog 2 (23h): event data 2 bits 3:0, the timer's use when it expired.
const char* watchdogTimerUseText(std::uint8_t code);
// Version change (2Bh): event data 2, what changed.
const char* versionChangeText(std::uint8_t code);
// FRU state (2Ch): event data 2 bits 7:4, why the state changed.
const char* fruStateCauseText(std::uint8_t code);
// Power supply (08h), offset 06h: event data 3 bits 3:0, the configuration error.
const char* powerSupplyErrorText(std::uint8_t code);

}  // namespace Tolmar
