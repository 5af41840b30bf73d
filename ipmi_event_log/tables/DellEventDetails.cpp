#include "DellEventDetails.h"

#include <cstdio>

namespace Tolmar {

namespace {

constexpr std::uint8_t kSensorSpecificType = 0x6F;
constexpr std::uint8_t kUnused = 0xFF;

// IPMI sensor types (table 42-3) Dell fills with OEM codes, and Dell's own.
constexpr std::uint8_t kProcessor = 0x07;
constexpr std::uint8_t kMemory = 0x0C;
constexpr std::uint8_t kFirmwareProgress = 0x0F;
constexpr std::uint8_t kEventLoggingDisabled = 0x10;
constexpr std::uint8_t kCriticalInterrupt = 0x13;
constexpr std::uint8_t kTxtError = 0x20;  // Dell's TXT errors, on IPMI's OS critical stop type
constexpr std::uint8_t kVersionChange = 0x2B;
constexpr std::uint8_t kLinkTuning = 0xC1;     // link tuning / flex address
constexpr std::uint8_t kNonFatalError = 0xC2;  // non-fatal PCIe errors
constexpr std::uint8_t kFatalIoError = 0xC3;

// Sensor numbers whose events Dell lays out otherwise.
constexpr std::uint8_t kFrontSideBusSensor = 0x0A;  // processor offset 06h: a bus, not a CPU
constexpr std::uint8_t kQpiLinkSensor = 0x29;       // QPI link errors: not decoded here
constexpr std::uint8_t kVirtualMacSensor = 0x25;

// Processor offset 06h is Dell's CPU protocol error; firmware progress offset 0Fh, beyond IPMI's
// three, Dell's POST fatal error.
constexpr std::uint8_t kProtocolErrorOffset = 0x06;
constexpr std::uint8_t kPostFatalErrorOffset = 0x0F;
// Critical interrupt offset 02h, I/O channel check NMI, names no device.
constexpr std::uint8_t kIoChannelCheckOffset = 0x02;

bool isOem(ByteUse use) { return use == ByteUse::Oem; }

// Processor: event data 2 one bit per CPU, the lowest set naming it; event data 3 its APIC ID.
VendorWords processorWords(const EventDataFields& event) {
    const std::uint8_t cpus = event.data[1];
    if (!isOem(byte2Use(event)) || cpus == 0) return {};
    unsigned number = 1;
    while (!(cpus & (1u << (number - 1)))) ++number;
    VendorWords words;
    words.byte2 = true;
    if (offsetOf(event) == kProtocolErrorOffset && event.sensorNumber == kFrontSideBusSensor) {
        words.words.push_back(formatted("Front side bus %u", number));
        return words;
    }
    words.words.push_back(formatted("CPU %u", number));
    if (isOem(byte3Use(event)) && event.data[2] != kUnused) {
        words.words.push_back(formatted("APIC ID = %u", event.data[2]));
        words.byte3 = true;
    }
    return words;
}

// Memory boards whose event data 2 high nibble is 8h-Eh number their DIMMs per node: this many
// to a node, nodes lettered from A.
unsigned dimmsPerNode(std::uint8_t board) {
    switch (board) {
        case 0x08:
            return 4;
        case 0x09:
            return 6;
        case 0x0A:
            return 8;
        case 0x0B:
            return 9;
        case 0x0C:
            return 12;
        case 0x0D:
            return 24;
        case 0x0E:
            return 3;
    }
    return 0;
}

// Memory and event logging disabled, for a BMC of IPMI v2.0: event data 2 bits 7:4 the memory
// card (0h-7h, A-H) or the node layout (8h-Eh), bits 3:0 the bank, whose DIMMs are counted in
// eights (Fh: none); event data 3 one bit per DIMM of the bank.
VendorWords memoryWords(const EventDataFields& event) {
    const bool card = isOem(byte2Use(event)) && event.data[1] != kUnused;
    const bool dimms = isOem(byte3Use(event)) && event.data[2] != kUnused;
    if (!card && !dimms) return {};
    VendorWords words;
    words.byte2 = card;
    words.byte3 = dimms;
    const std::uint8_t board = card ? event.data[1] >> 4 : 0x0F;
    const std::uint8_t bank = card ? event.data[1] & 0x0F : 0x0F;
    if (board < 0x08) words.words.push_back(formatted("Card %c", 'A' + board));
    if (!dimms) return words;
    const unsigned first = bank == 0x0F ? 0 : bank * 8u;
    const unsigned perNode = dimmsPerNode(board);
    std::string names;
    unsigned count = 0;
    for (unsigned bit = 0; bit < 8; ++bit) {
        if (!(event.data[2] & (1u << bit))) continue;
        const unsigned dimm = first + bit;
        names += count++ ? ", " : "";
        names += perNode ? formatted("%c%u", 'A' + dimm / perNode, dimm % perNode + 1)
                         : formatted("%u", dimm + 1);
    }
    if (count != 0) words.words.push_back((count == 1 ? "DIMM " : "DIMMs ") + names);
    return words;
}

// Critical interrupt and Dell's PCIe error types: event data 3 bit 7 set, bits 6:0 a slot;
// clear, bits 6:0 the PCI bus, with event data 2 bits 7:3 the device and 2:0 the function.
VendorWords pciErrorWords(const EventDataFields& event) {
    if (event.sensorNumber == kQpiLinkSensor || offsetOf(event) == kIoChannelCheckOffset) return {};
    const std::uint8_t location = event.data[2];
    if (!isOem(byte3Use(event)) || location == kUnused) return {};
    if (location & 0x80) return {{formatted("Slot %u", location & 0x7F)}, false, true};
    if (!isOem(byte2Use(event))) return {};
    const std::uint8_t deviceFunction = event.data[1];
    return {
        {pciFunctionText(location & 0x7F, deviceFunction >> 3, deviceFunction & 0x07)}, true, true};
}

struct FatalError {
    std::uint8_t code;
    const char* text;
};

// Dell's POST fatal error codes (firmware progress offset 0Fh, event data 2).
const FatalError kPostFatalErrors[] = {
    {0x80, "no memory detected"},
    {0x81, "memory detected but not configurable"},
    {0x82, "memory configured but not usable"},
    {0x83, "system BIOS shadow failed"},
    {0x84, "CMOS failed"},
    {0x85, "DMA controller failed"},
    {0x86, "interrupt controller failed"},
    {0x87, "timer refresh failed"},
    {0x88, "programmable interval timer error"},
    {0x89, "parity error"},
    {0x8A, "SIO failed"},
    {0x8B, "keyboard controller failed"},
    {0x8C, "system management interrupt initialization failed"},
    {0x8D, "TXT-SX error"},
    {0xC0, "shutdown test failed"},
    {0xC1, "BIOS POST memory test failed"},
    {0xC2, "RAC configuration failed"},
    {0xC3, "CPU configuration failed"},
    {0xC4, "incorrect memory configuration"},
    {0xFE, "general failure after video"},
};

VendorWords postFatalErrorWords(const EventDataFields& event) {
    if (offsetOf(event) != kPostFatalErrorOffset || !isOem(byte2Use(event))) return {};
    for (const FatalError& error : kPostFatalErrors) {
        if (error.code == event.data[1]) {
            return {{std::string("POST fatal error = ") + error.text}, true, false};
        }
    }
    return {{formatted("POST fatal error code = %02Xh", event.data[1])}, true, false};
}

// Version change offset 02h (hardware incompatibility), event data 2 02h: event data 3 says with
// what the BMC's firmware is incompatible.
VendorWords versionChangeWords(const EventDataFields& event) {
    if (offsetOf(event) != 0x02 || !isOem(byte2Use(event)) || !isOem(byte3Use(event)) ||
        event.data[1] != 0x02) {
        return {};
    }
    if (event.data[2] == 0x00) {
        return {{"Incompatibility between BMC/iDRAC firmware and other hardware"}, true, true};
    }
    if (event.data[2] == 0x01) {
        return {{"Incompatibility between BMC/iDRAC firmware and CPU"}, true, true};
    }
    return {};
}

// TXT errors, offset 00h: event data 3 names the failing part.
VendorWords txtErrorWords(const EventDataFields& event) {
    if (offsetOf(event) != 0x00 || !isOem(byte2Use(event)) || !isOem(byte3Use(event))) return {};
    static const char* const kParts[] = {nullptr, "BIOS", "processor / FIT", "BIOS ACM",
                                         "SINIT ACM"};
    const std::uint8_t part = event.data[2];
    if (part == 0xFF) return {{"Unrecognized TXT error"}, false, true};
    if (part == 0 || part > 4) return {};
    return {{std::string("TXT error in ") + kParts[part]}, false, true};
}

// Link tuning / flex address (C1h) of the virtual MAC address sensor.
VendorWords linkTuningWords(const EventDataFields& event) {
    if (event.sensorNumber != kVirtualMacSensor) return {};
    switch (offsetOf(event)) {
        case 0x01: {
            VendorWords words{{"Failed to program virtual MAC address"}, false, false};
            if (isOem(byte2Use(event)) && isOem(byte3Use(event))) {
                words.words.push_back(pciFunctionText(event.data[2] & 0x7F, event.data[1] >> 3,
                                                      event.data[1] & 0x07));
                words.byte2 = words.byte3 = true;
            }
            return words;
        }
        case 0x02:
            return {{"Device option ROM failed to support link tuning or flex address"}};
        case 0x03:
            return {{"Failed to get link tuning or flex address data from BMC/iDRAC"}};
    }
    return {};
}

}  // namespace

VendorWords dellEventWords(const EventDataFields& event) {
    if (event.eventType != kSensorSpecificType) return {};
    switch (event.sensorType) {
        case kProcessor:
            return processorWords(event);
        case kMemory:
        case kEventLoggingDisabled:
            return memoryWords(event);
        case kCriticalInterrupt:
        case kNonFatalError:
        case kFatalIoError:
            return pciErrorWords(event);
        case kFirmwareProgress:
            return postFatalErrorWords(event);
        case kVersionChange:
            return versionChangeWords(event);
        case kTxtError:
            return txtErrorWords(event);
        case kLinkTuning:
            return linkTuningWords(event);
    }
    return {};
}

}  // namespace Tolmar
