#include "IntelEventDetails.h"

#include <cstdio>

namespace Tolmar {

namespace {

constexpr std::uint8_t kUnused = 0xFF;

// Generator IDs (byte 7): system software IDs 00h (BIOS POST) and 19h (the BIOS's SMI handler),
// bit 0 set (IPMI v2.0 section 5.5).
constexpr std::uint8_t kBiosPost = 0x01;
constexpr std::uint8_t kBiosSmiHandler = 0x33;

// Products FreeIPMI decodes by layouts of their own.
constexpr std::uint16_t kS5500wb = 62;
constexpr std::uint16_t kQuantaQsscS4r = 64;
constexpr std::uint16_t kWindmill = 2818;

// Sensor and event/reading types (IPMI v2.0 tables 42-1 and 42-3).
constexpr std::uint8_t kMemory = 0x0C;
constexpr std::uint8_t kFirmwareProgress = 0x0F;
constexpr std::uint8_t kCriticalInterrupt = 0x13;
constexpr std::uint8_t kRedundancyType = 0x0B;
constexpr std::uint8_t kSensorSpecificType = 0x6F;

// The BIOS's sensor numbers.
constexpr std::uint8_t kMirroringRedundancy = 0x01;
constexpr std::uint8_t kMemoryEccError = 0x02;
constexpr std::uint8_t kLegacyPciError = 0x03;
constexpr std::uint8_t kPcieFatalError = 0x04;
constexpr std::uint8_t kPcieCorrectableError = 0x05;
constexpr std::uint8_t kPostError = 0x06;
constexpr std::uint8_t kSparingRedundancy = 0x11;
constexpr std::uint8_t kPcieFatalError2 = 0x14;

bool oemCode(ByteUse use, std::uint8_t value) { return use == ByteUse::Oem && value != kUnused; }

// Event data 3 of memory events: bits 7:5 the socket (0 = CPU 1), 4:3 the socket's channel,
// 2:0 the DIMM on it (0 = DIMM 1). The boards letter channels A-D on CPU 1, E-H on CPU 2, J-M on
// CPU 3 and N, P, R, T on CPU 4.
std::string dimmLocation(std::uint8_t data) {
    static const char* const kChannelLetters[] = {"ABCD", "EFGH", "JKLM", "NPRT"};
    const unsigned socket = data >> 5;
    const unsigned channel = (data >> 3) & 0x03;
    const unsigned dimm = (data & 0x07) + 1;
    if (socket < 4) {
        return formatted("CPU %u, channel %c, DIMM %u", socket + 1,
                         kChannelLetters[socket][channel], dimm);
    }
    return formatted("CPU %u, channel %u, DIMM %u", socket + 1, channel, dimm);
}

// Correctable and uncorrectable ECC errors: event data 2 bits 1:0 the rank on the DIMM.
VendorWords memoryEccWords(const EventDataFields& event) {
    if (event.eventType != kSensorSpecificType || offsetOf(event) > 0x01) return {};
    VendorWords words;
    words.byte2 = oemCode(byte2Use(event), event.data[1]);
    words.byte3 = oemCode(byte3Use(event), event.data[2]);
    if (words.byte2) words.words.push_back(formatted("Rank = %u", event.data[1] & 0x03u));
    if (words.byte3) words.words.push_back(dimmLocation(event.data[2]));
    return words;
}

// Mirroring and sparing redundancy, fully redundant (00h) or degraded (02h): event data 2 bits
// 7:4 the domain (mirroring 0-1, sparing A-D), 1:0 the rank.
VendorWords redundancyWords(const EventDataFields& event) {
    if (event.eventType != kRedundancyType ||
        (offsetOf(event) != 0x00 && offsetOf(event) != 0x02)) {
        return {};
    }
    VendorWords words;
    words.byte2 = oemCode(byte2Use(event), event.data[1]);
    words.byte3 = oemCode(byte3Use(event), event.data[2]);
    if (words.byte2) {
        const unsigned domain = event.data[1] >> 4;
        if (event.sensorNumber == kMirroringRedundancy) {
            words.words.push_back(formatted("Mirroring domain = %u", domain));
        } else if (domain < 4) {
            words.words.push_back(formatted("Sparing domain = %c", 'A' + domain));
        } else {
            words.words.push_back(formatted("Sparing domain code = %Xh", domain));
        }
        words.words.push_back(formatted("Rank = %u", event.data[1] & 0x03u));
    }
    if (words.byte3) words.words.push_back(dimmLocation(event.data[2]));
    return words;
}

// PCI and PCIe errors: event data 2 the bus, event data 3 bits 7:3 the device and 2:0 the
// function.
VendorWords pciWords(const EventDataFields& event) {
    if (event.sensorNumber == kLegacyPciError &&
        (event.eventType != kSensorSpecificType || offsetOf(event) < 0x04 ||
         offsetOf(event) > 0x05)) {
        return {};  // only PERR (04h) and SERR (05h)
    }
    VendorWords words;
    words.byte2 = oemCode(byte2Use(event), event.data[1]);
    words.byte3 = oemCode(byte3Use(event), event.data[2]);
    const std::uint8_t bus = event.data[1];
    const std::uint8_t device = event.data[2] >> 3;
    const std::uint8_t function = event.data[2] & 0x07;
    if (words.byte2 && words.byte3) {
        words.words.push_back(pciFunctionText(bus, device, function));
    } else if (words.byte2) {
        words.words.push_back(formatted("PCI bus %02Xh", bus));
    } else if (words.byte3) {
        words.words.push_back(formatted("PCI device %02Xh, function %u", device, function));
    }
    return words;
}

// POST errors (firmware progress offset 00h): a 16-bit code, event data 2 its low byte.
VendorWords postErrorWords(const EventDataFields& event) {
    if (event.eventType != kSensorSpecificType || offsetOf(event) != 0x00 ||
        byte2Use(event) != ByteUse::Oem || byte3Use(event) != ByteUse::Oem) {
        return {};
    }
    const unsigned code = event.data[1] | event.data[2] << 8;
    return {{formatted("POST error code = %04Xh", code)}, true, true};
}

}  // namespace

VendorWords intelEventWords(std::uint16_t productId, const EventDataFields& event) {
    if (productId == kS5500wb || productId == kQuantaQsscS4r || productId == kWindmill) return {};
    if (event.generator == kBiosPost && event.sensorType == kFirmwareProgress &&
        event.sensorNumber == kPostError) {
        return postErrorWords(event);
    }
    if (event.generator != kBiosSmiHandler) return {};
    if (event.sensorType == kMemory && event.sensorNumber == kMemoryEccError) {
        return memoryEccWords(event);
    }
    if (event.sensorType == kMemory &&
        (event.sensorNumber == kMirroringRedundancy || event.sensorNumber == kSparingRedundancy)) {
        return redundancyWords(event);
    }
    if (event.sensorType == kCriticalInterrupt &&
        (event.sensorNumber == kLegacyPciError || event.sensorNumber == kPcieFatalError ||
         event.sensorNumber == kPcieCorrectableError || event.sensorNumber == kPcieFatalError2)) {
        return pciWords(event);
    }
    return {};
}

}  // namespace Tolmar
