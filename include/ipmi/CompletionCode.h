// IPMI completion codes by name, for messages a person reads. Header-only and dependent on nothing
// but the standard library, so that the event log library and the framework's client below it
// share it.
#pragma once

#include <iterator>
#include <string>

// "invalid command" for C1h, and so on through the generic codes of IPMI v2.0 table 5-2;
// "command-specific" for 80h to BEh, whose meaning depends on the command; "unknown" otherwise.
inline const char* ipmiCompletionCodeName(unsigned char code) {
    // IPMI v2.0 table 5-2, generic completion codes C0h to D6h.
    static const char* const generic[] = {
        "node busy",
        "invalid command",
        "command invalid for the given LUN",
        "timeout while processing the command",
        "out of space",
        "reservation cancelled or invalid reservation ID",
        "request data truncated",
        "request data length invalid",
        "request data field length limit exceeded",
        "parameter out of range",
        "cannot return the number of requested data bytes",
        "requested sensor, data or record not present",
        "invalid data field in request",
        "command illegal for the specified sensor or record type",
        "command response could not be provided",
        "cannot execute a duplicated request",
        "SDR repository in update mode",
        "device in firmware update mode",
        "BMC initialization in progress",
        "destination unavailable",
        "insufficient privilege level",
        "command or parameters not supported in the present state",
        "sub-function disabled or unavailable",
    };
    if (code == 0x00) return "command completed normally";
    if (code == 0xFF) return "unspecified error";
    if (code >= 0x80 && code <= 0xBE) return "command-specific";
    if (code >= 0xC0 && code - 0xC0u < std::size(generic)) return generic[code - 0xC0];
    return "unknown";
}

// The code and its name: "C0h (node busy)".
inline std::string ipmiCompletionCodeText(unsigned char code) {
    static const char digits[] = "0123456789ABCDEF";
    return std::string{digits[code >> 4], digits[code & 0x0F]} + "h (" +
           ipmiCompletionCodeName(code) + ")";
}
