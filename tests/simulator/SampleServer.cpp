#include "SampleServer.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace bmcsim {

namespace {

// IPMI v2.0 section 43 record types.
constexpr unsigned char kFullSensor = 0x01;
constexpr unsigned char kCompactSensor = 0x02;
constexpr unsigned char kEventOnly = 0x03;
constexpr unsigned char kFruLocator = 0x11;
constexpr unsigned char kControllerLocator = 0x12;
constexpr unsigned char kOem = 0xC0;

constexpr unsigned char kSdrVersion = 0x51;
constexpr unsigned char kBmcAddress = 0x20;
constexpr unsigned char kAsciiId = 0xC0;  // ID string type 8-bit ASCII; OR the length in

// Record header (ID, version, type, length of what follows) around the body.
SdrRecord record(std::uint16_t id, unsigned char type, const SdrRecord& body) {
    constexpr std::size_t headerLength = 5;
    SdrRecord bytes(headerLength + body.size());
    bytes[0] = id & 0xFF;
    bytes[1] = id >> 8;
    bytes[2] = kSdrVersion;
    bytes[3] = type;
    bytes[4] = static_cast<unsigned char>(body.size());
    std::copy(body.begin(), body.end(), bytes.begin() + headerLength);
    return bytes;
}

void appendId(SdrRecord& body, const std::string& name) {
    body.push_back(static_cast<unsigned char>(kAsciiId | name.size()));
    body.insert(body.end(), name.begin(), name.end());
    body.push_back(0x00);
}

// A linear analog sensor: value = M x raw x 10^R.
struct Analog {
    unsigned char number, entity, instance, type, baseUnit, m, exponents;
    unsigned char nominal, upperCritical, upperNonCritical, lowerNonCritical, lowerCritical;
    const char* name;
};

SdrRecord fullSensor(std::uint16_t id, const Analog& s) {
    SdrRecord body = {
        kBmcAddress,
        0x00,
        s.number,
        s.entity,
        s.instance,
        0x7F,  // sensor initialization: scanning, events, thresholds, hysteresis enabled
        0x68,  // capabilities: auto re-arm, readable thresholds, per-threshold events
        s.type,
        0x01,  // threshold event/reading type
        0x95,
        0x0A,  // assertion mask: lower critical/non-critical going low, upper going high
        0x95,
        0x0A,  // deassertion mask
        0x3F,
        0x3F,  // readable and settable thresholds
        0x00,  // units 1: unsigned, no rate, no modifier, not a percentage
        s.baseUnit,
        0x00,
        0x00,  // linearization: linear
        s.m,
        0x00,  // M, tolerance
        0x00,
        0x00,         // B, accuracy
        0x00,         // accuracy, direction
        s.exponents,  // R exponent (high nibble), B exponent (low nibble)
        0x07,         // nominal, normal maximum and minimum given
        s.nominal,
        static_cast<unsigned char>(s.upperNonCritical - 1),
        s.lowerNonCritical,
        0xFF,
        0x00,  // sensor maximum and minimum reading
        0xFF,
        s.upperCritical,
        s.upperNonCritical,
        0x00,
        s.lowerCritical,
        s.lowerNonCritical,
        0x02,
        0x02,  // hysteresis
        0x00,
        0x00,  // reserved
        0x00,  // OEM
    };
    appendId(body, s.name);
    return record(id, kFullSensor, body);
}

// A discrete sensor with sensor-specific offsets (event/reading type 6Fh).
struct Discrete {
    unsigned char number, entity, instance, type;
    const char* name;
};

SdrRecord compactSensor(std::uint16_t id, const Discrete& s) {
    SdrRecord body = {
        kBmcAddress, 0x00, s.number, s.entity, s.instance,
        0x63,  // sensor initialization: scanning and events enabled
        0x40,  // capabilities: auto re-arm, per-state events
        s.type,      0x6F, 0xFF,     0x7F,     0xFF,
        0x7F,        0xFF, 0x7F,  // every offset asserts, deasserts and reads
        0x00,        0x00, 0x00,  // no units
        0x01,        0x00,        // one sensor, no sharing
        0x00,        0x00,        // hysteresis
        0x00,        0x00, 0x00,  // reserved
        0x00,                     // OEM
    };
    appendId(body, s.name);
    return record(id, kCompactSensor, body);
}

SdrRecord eventOnlySensor(std::uint16_t id, const Discrete& s) {
    SdrRecord body = {kBmcAddress, 0x00, s.number, s.entity, s.instance, s.type,
                      0x6F,        0x01, 0x00,     0x00,     0x00};
    appendId(body, s.name);
    return record(id, kEventOnly, body);
}

SdrRecord controllerLocator(std::uint16_t id) {
    SdrRecord body = {kBmcAddress, 0x00, 0x00,
                      0xBF,  // device support: chassis, bridge, event generator and receiver,
                             // FRU, SEL, SDR repository, sensor device
                      0x00, 0x00, 0x00, 0x2E, 0x01, 0x00};  // entity: BMC, instance 1
    appendId(body, "BMC");
    return record(id, kControllerLocator, body);
}

SdrRecord fruLocator(std::uint16_t id) {
    SdrRecord body = {kBmcAddress, 0x00, 0x80, 0x00, 0x00, 0x10, 0x00, 0x07, 0x01, 0x00};
    appendId(body, "System FRU");
    return record(id, kFruLocator, body);
}

SdrRecord oemRecord(std::uint16_t id) {
    return record(id, kOem, {0x57, 0x01, 0x00, 0x01, 0x02, 0x03});  // manufacturer 0x000157
}

// A system event record; the generator is the BMC unless given.
SelRecord event(std::uint16_t id, std::uint32_t time, unsigned char sensorType,
                unsigned char sensor, unsigned char direction, unsigned char data1,
                unsigned char data2, unsigned char data3, unsigned char generator = kBmcAddress) {
    return {static_cast<unsigned char>(id & 0xFF),
            static_cast<unsigned char>(id >> 8),
            0x02,
            static_cast<unsigned char>(time),
            static_cast<unsigned char>(time >> 8),
            static_cast<unsigned char>(time >> 16),
            static_cast<unsigned char>(time >> 24),
            generator,
            0x00,
            0x04,
            sensorType,
            sensor,
            direction,
            data1,
            data2,
            data3};
}

std::string hexByte(unsigned char byte) {
    char text[8];
    std::snprintf(text, sizeof text, " 0x%02x", byte);
    return text;
}

}  // namespace

std::vector<SdrRecord> sampleSdrRepository() {
    // Degrees C = 1, volts = 4, RPM = 18 (IPMI v2.0 table 43-15).
    return {
        controllerLocator(1),
        fullSensor(2, {0x30, 0x03, 0x01, 0x01, 1, 1, 0x00, 45, 95, 85, 5, 0, "CPU1 Temp"}),
        fullSensor(3, {0x31, 0x03, 0x02, 0x01, 1, 1, 0x00, 45, 95, 85, 5, 0, "CPU2 Temp"}),
        fullSensor(4, {0x32, 0x37, 0x01, 0x01, 1, 1, 0x00, 24, 42, 38, 5, 0, "Inlet Temp"}),
        fullSensor(5, {0x40, 0x07, 0x01, 0x02, 4, 6, 0xE0, 200, 220, 213, 187, 180, "12V"}),
        fullSensor(6, {0x41, 0x07, 0x01, 0x02, 4, 2, 0xE0, 165, 182, 174, 156, 148, "3.3V"}),
        fruLocator(7),
        fullSensor(8, {0x50, 0x1D, 0x01, 0x04, 18, 64, 0x00, 100, 250, 240, 20, 10, "FAN1"}),
        fullSensor(9, {0x51, 0x1D, 0x02, 0x04, 18, 64, 0x00, 100, 250, 240, 20, 10, "FAN2"}),
        compactSensor(10, {0x60, 0x0A, 0x01, 0x08, "PS1 Status"}),
        compactSensor(11, {0x61, 0x0A, 0x02, 0x08, "PS2 Status"}),
        compactSensor(12, {0x70, 0x20, 0x01, 0x0C, "DIMM Status"}),
        compactSensor(13, {0x71, 0x03, 0x01, 0x07, "CPU1 Status"}),
        compactSensor(14, {0x72, 0x07, 0x01, 0x23, "Watchdog"}),
        compactSensor(15, {0x73, 0x07, 0x01, 0x1D, "Sys Boot"}),
        compactSensor(16, {0x74, 0x07, 0x01, 0x10, "Event Log"}),
        eventOnlySensor(17, {0x90, 0x22, 0x01, 0x20, "OS Stop"}),
        oemRecord(18),
    };
}

std::vector<SelRecord> sampleEventLog() {
    constexpr std::uint32_t start = 0x55000000;  // 2015-03-11 08:42:40 UTC
    std::uint16_t id = 0;
    std::uint32_t time = start;
    std::vector<SelRecord> log;
    const auto add = [&](std::uint32_t after, unsigned char type, unsigned char sensor,
                         unsigned char direction, unsigned char d1, unsigned char d2,
                         unsigned char d3, unsigned char generator = kBmcAddress) {
        time += after;
        log.push_back(event(++id, time, type, sensor, direction, d1, d2, d3, generator));
    };
    add(0, 0x10, 0x74, 0x6F, 0x02, 0xFF, 0xFF);         // SEL cleared
    add(60, 0x1D, 0x73, 0x6F, 0x00, 0xFF, 0xFF);        // system boot: initiated by power up
    add(40, 0x12, 0x00, 0x6F, 0x45, 0x00, 0x00, 0x01);  // BIOS: system event, OEM boot event
    add(900, 0x01, 0x30, 0x01, 0x57, 0x56, 0x55);       // CPU1 upper non-critical going high
    add(30, 0x01, 0x30, 0x01, 0x59, 0x60, 0x5F);        // CPU1 upper critical going high
    add(120, 0x01, 0x30, 0x81, 0x59, 0x5A, 0x5F);       // ... deasserted
    add(5, 0x01, 0x30, 0x81, 0x57, 0x50, 0x55);         // ... non-critical deasserted
    add(3600, 0x01, 0x32, 0x01, 0x57, 0x27, 0x26);      // inlet upper non-critical
    add(300, 0x01, 0x32, 0x81, 0x57, 0x24, 0x26);
    add(7200, 0x02, 0x40, 0x01, 0x52, 0xB2, 0xB4);  // 12V lower critical going low
    add(2, 0x02, 0x40, 0x81, 0x52, 0xC8, 0xB4);
    add(60, 0x02, 0x41, 0x01, 0x50, 0x9B, 0x9C);  // 3.3V lower non-critical going low
    add(60, 0x02, 0x41, 0x81, 0x50, 0xA5, 0x9C);
    add(9000, 0x04, 0x50, 0x01, 0x52, 0x09, 0x0A);  // FAN1 lower critical going low
    add(20, 0x04, 0x50, 0x81, 0x52, 0x60, 0x0A);
    add(86400, 0x08, 0x60, 0x6F, 0x01, 0xFF, 0xFF);  // PS1 failure detected
    add(1, 0x08, 0x61, 0x6F, 0x03, 0xFF, 0xFF);      // PS2 input lost
    add(300, 0x08, 0x61, 0xEF, 0x03, 0xFF, 0xFF);    // ... input back
    add(60, 0x08, 0x60, 0xEF, 0x01, 0xFF, 0xFF);     // PS1 failure cleared
    add(3600, 0x0C, 0x70, 0x6F, 0xA0, 0x00, 0x03);   // correctable ECC, DIMM 3
    add(600, 0x0C, 0x70, 0x6F, 0xA0, 0x00, 0x03);
    add(60, 0x0C, 0x70, 0x6F, 0xA1, 0x00, 0x03);          // uncorrectable ECC
    add(5, 0x0C, 0x70, 0x6F, 0x05, 0xFF, 0xFF);           // correctable ECC logging limit
    add(30, 0x07, 0x71, 0x6F, 0x00, 0xFF, 0xFF);          // CPU1 IERR
    add(1, 0x07, 0x71, 0x6F, 0x01, 0xFF, 0xFF);           // CPU1 thermal trip
    add(10, 0x23, 0x72, 0x6F, 0xC1, 0x00, 0x00);          // watchdog hard reset
    add(50, 0x1D, 0x73, 0x6F, 0x07, 0xFF, 0xFF);          // system restart
    add(3600, 0x20, 0x90, 0x6F, 0x01, 0x00, 0x00, 0x41);  // OS stop: run-time critical stop
    add(20, 0x20, 0x90, 0x6F, 0x00, 0x00, 0x00, 0x41);    // OS stop: stop during OS load
    add(90, 0x1D, 0x73, 0x6F, 0x01, 0xFF, 0xFF);          // boot initiated by hard reset
    add(5, 0x01, 0x31, 0x01, 0x50, 0x04, 0x05);           // CPU2 lower non-critical going low
    add(5, 0x01, 0x31, 0x81, 0x50, 0x2D, 0x05);
    add(600, 0x04, 0x51, 0x01, 0x59, 0xFB, 0xFA);  // FAN2 upper critical going high
    add(60, 0x04, 0x51, 0x81, 0x59, 0x64, 0xFA);
    add(30, 0x10, 0x74, 0x6F, 0x05, 0xFF, 0xFF);  // SEL almost full
    return log;
}

std::vector<SelRecord> repeatedEventLog(std::size_t count) {
    const std::vector<SelRecord> sample = sampleEventLog();
    std::vector<SelRecord> log;
    std::uint32_t time = 0x55000000;
    for (std::size_t i = 0; i < count; ++i) {
        SelRecord record = sample[i % sample.size()];
        time += 60;
        for (int b = 0; b < 4; ++b) record[3 + b] = static_cast<unsigned char>(time >> (8 * b));
        log.push_back(record);
    }
    return log;
}

std::vector<unsigned char> auxLogRecord(const AuxRecord& r) {
    // Record bytes 0-1 size, 2-3 SEL record ID, 7 type, 10 severity, 11-12 operation, 13
    // sub-class, 14 class, 15-18 FRU instance, 19-34 GUID, then the extended data.
    constexpr std::size_t header = 35;
    constexpr std::size_t sizeField = 28;  // the size counts the extended data from here
    std::vector<unsigned char> bytes(header + r.extendedData.size(), 0x00);
    const std::size_t size = sizeField + r.extendedData.size();
    bytes[0] = size & 0xFF;
    bytes[1] = size >> 8;
    bytes[2] = r.selRecordId & 0xFF;
    bytes[3] = r.selRecordId >> 8;
    bytes[7] = r.type;
    bytes[10] = r.severity;
    bytes[11] = r.operation[0];
    bytes[12] = r.operation[1];
    bytes[13] = r.subclass;
    bytes[14] = r.entryClass;
    std::copy(r.fruInstance.begin(), r.fruInstance.end(), bytes.begin() + 15);
    std::copy(r.guid.begin(), r.guid.end(), bytes.begin() + 19);
    std::copy(r.extendedData.begin(), r.extendedData.end(), bytes.begin() + header);
    return bytes;
}

std::vector<AuxRecord> sampleAuxiliaryLog() {
    const std::array<unsigned char, 16> guid = {0x4F, 0x2B, 0x61, 0xA8, 0x03, 0x11, 0x9C, 0x4E,
                                                0xB2, 0x5D, 0x00, 0x15, 0x5D, 0x01, 0x0A, 0x22};
    return {
        // Uncorrectable ECC (record 0x16): memory error from the DXE runtime, DIMM 3.
        {0x16,
         0x02,
         0x90,
         {0x00, 0x03},
         5,
         0,
         {0x00, 0x00, 0x00, 0x03},
         guid,
         {0x01, 0x0C, 0x00, 0x03, 0x00, 0x00, 0x7F, 0x3A, 0x40, 0x00}},
        // Processor IERR (record 0x18): host processor error, CPU 1.
        {0x18,
         0x02,
         0xA0,
         {0x00, 0x01},
         1,
         0,
         {0x00, 0x00, 0x00, 0x01},
         guid,
         {0xBE, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80}},
        // Boot progress after the restart (record 0x1E): PEI core, no extended data.
        {0x1E, 0x01, 0x40, {0x10, 0x00}, 2, 3, {0x00, 0x00, 0x00, 0x00}, guid, {}},
    };
}

std::vector<EventFilter> sampleEventFilters() {
    // Enabled, alert action, policy number, severity, any generator, a sensor type or any, any
    // sensor, any trigger, every offset, event data don't-care. Policy numbers: the lowest wins.
    const auto filter = [](unsigned char policy, unsigned char severity, unsigned char sensorType,
                           unsigned char configuration = 0x80,
                           unsigned char action = 0x01) -> EventFilter {
        return {configuration, action, policy, severity, 0xFF, 0xFF, sensorType, 0xFF, 0xFF, 0xFF,
                0xFF,          0x00,   0x00,   0x00,     0x00, 0x00, 0x00,       0x00, 0x00, 0x00};
    };
    return {
        // Two filters that take no part in matching, though their policy number is the lowest:
        // one disabled, one enabled that only powers the server off.
        filter(0x01, 0x10, 0x01, 0x00, 0x01),
        filter(0x01, 0x10, 0x01, 0x80, 0x02),
        filter(0x11, 0x10, 0x08),  // power supply: critical
        filter(0x12, 0x10, 0x0C),  // memory: critical
        filter(0x13, 0x10, 0x07),  // processor: critical
        filter(0x14, 0x20, 0x20),  // OS stop: non-recoverable
        filter(0x21, 0x08, 0x01),  // temperature: non-critical
        filter(0x22, 0x08, 0x02),  // voltage: non-critical
        filter(0x23, 0x08, 0x04),  // fan: non-critical
        filter(0x7F, 0x02, 0xFF),  // anything else: information
    };
}

std::string sdrCommands(const std::vector<SdrRecord>& records) {
    std::string commands;
    for (const SdrRecord& r : records) {
        commands += "main_sdr_add 0x20";
        for (unsigned char byte : r) commands += hexByte(byte);
        commands += "\n";
    }
    return commands;
}

}  // namespace bmcsim
