// Whole decoded events, worked out by hand from the code tables, each with its derivation.
// Time stamps: 0x55000000 is 03/11/2015 08:42:40 UTC; later ones add their difference in seconds.
#include <gtest/gtest.h>

#include <optional>

#include "EventRecords.h"
#include "IpmiEventBuilder.h"

namespace {

using sim::filterWithSeverity;
using sim::sdrImage;
using sim::selEntry;
using Tolmar::IpmiEventBuilder;
using Tolmar::IPMIExtendedSELDataEntry;
using Tolmar::TolmarAgentless::IPMIEVENT;
using Aux = std::vector<IPMIExtendedSELDataEntry>;

// "CPU1 Temp": full record, sensor 0x30, entity 0x03 Processor, instance 1; unsigned readings,
// degrees C (unit code 1, key 9); M = 1, B = 0, exponents 0.
const RawSDR kCpuTemp = sdrImage(
    {{3, 0x01}, {7, 0x30}, {8, 0x03}, {9, 0x01}, {20, 0x00}, {21, 0x01}, {24, 0x01}}, "CPU1 Temp");
// "12V": sensor 0x40, entity 0x07 System Board; Volts (code 4, key 12); M = 6 with R exponent
// nibble 0xE, which scales by 10^(0xE0 - 16) = 10^224.
const RawSDR k12V = sdrImage(
    {{3, 0x01}, {7, 0x40}, {8, 0x07}, {9, 0x01}, {21, 0x04}, {24, 0x06}, {29, 0xE0}}, "12V");
// "FAN1": sensor 0x50, entity 0x1D Fan / Cooling Device; RPM (code 18, key 26); M = 64 with R
// exponent nibble 1, which scales by 10^(0x10 - 16) = 1.
const RawSDR kFan1 = sdrImage(
    {{3, 0x01}, {7, 0x50}, {8, 0x1D}, {9, 0x01}, {21, 0x12}, {24, 0x40}, {29, 0x10}}, "FAN1");
// "Inlet Temp": sensor 0x32, entity 0x37 Air Inlet; degrees F (code 2, key 10); M = 2, B = 5
// with B exponent -1 (nibble 0xF): value = 2 x raw + 0.5.
const RawSDR kInlet = sdrImage(
    {{3, 0x01}, {7, 0x32}, {8, 0x37}, {9, 0x01}, {21, 0x02}, {24, 0x02}, {26, 0x05}, {29, 0x0F}},
    "Inlet Temp");
// "PS1 Status" and "PS2 Status": compact records, sensors 0x60 and 0x61, entity 0x0A Power
// Supply, instances 1 and 2.
const RawSDR kPs1 =
    sdrImage({{3, 0x02}, {7, 0x60}, {8, 0x0A}, {9, 0x01}, {47, 0xCA}}, "PS1 Status");
const RawSDR kPs2 =
    sdrImage({{3, 0x02}, {7, 0x61}, {8, 0x0A}, {9, 0x02}, {47, 0xCA}}, "PS2 Status");

struct Golden {
    const char* name;
    std::array<unsigned char, 16> sel;
    std::optional<RawSDR> sdr;
    unsigned char pefSeverity;
    Aux aux;
    IPMIEVENT expected;
};

IPMIExtendedSELDataEntry auxEntry(unsigned char id, const char* data) {
    IPMIExtendedSELDataEntry entry;
    entry.SetSELRecordId(id, 0x00);
    entry.SetType(0x02);      // "ERROR_CODE"
    entry.SetSeverity(0x90);  // "ORV_ERROR_FATAL"
    unsigned char operation[2] = {0x01, 0x0A};
    entry.SetOperation(operation);
    entry.SetSubclass(1);
    entry.SetClass(0);  // "Computing", sub-class 1 "Host Processor"
    unsigned char instance[4] = {0x00, 0x00, 0x00, 0x01};
    entry.SetFRUInstance(instance);  // "0x00000001"
    unsigned char guid[16];
    for (unsigned char i = 0; i < 16; ++i) guid[i] = i;
    entry.SetGUID(guid);  // "0x000102030405060708090A0B0C0D0E0F"
    entry.SetExtendedData(data);
    return entry;
}

std::string auxText(const char* data) {
    return std::string(
               "Type: ERROR_CODE Sev: ORV_ERROR_FATAL Class: Computing Sub-Class: Host Processor "
               "Instance: 0x00000001 GUID: 0x000102030405060708090A0B0C0D0E0F Extended Data: ") +
           data;
}

const char* const kBmc = "16 (address). IPMB device LUN 0. Channel 0. ";  // generator 0x20

const Golden kGoldens[] = {
    // Upper critical going high (offset 9) on CPU1 Temp. Event data 1 0x59: bits 7:6 = 01, the
    // reading is in event data 2 (0x5A = 90); bits 5:4 = 01, the threshold in event data 3
    // (0x50 = 80). Trigger text: " Trigger threshold value: 80.00 degrees C." + six blanks +
    // "Trigger reading: 90.00 degrees C."; the message puts two blanks before it. PEF severity
    // 0x10 (critical) gives 2.
    {"ThresholdWithReadingAndThreshold",
     {0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x01, 0x30, 0x01, 0x59, 0x5A,
      0x50},
     kCpuTemp,
     0x10,
     {},
     {1, "03/11/2015 08:42:40",
      "Processor 1 (Temperature - CPU1 Temp): Assertion: Upper Critical - going high   Trigger "
      "threshold value: 80.00 degrees C.      Trigger reading: 90.00 degrees C.",
      2, kBmc, "No Extended Data"}},
    // The same record without its SDR: the message keeps the shape with the entity, instance and
    // sensor ID left out, and no trigger text.
    {"ThresholdWithoutSdr",
     {0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x01, 0x30, 0x01, 0x59, 0x5A,
      0x50},
     std::nullopt,
     0x10,
     {},
     {1, "03/11/2015 08:42:40", " (Temperature - ): Assertion: Upper Critical - going high", 2,
      kBmc, "No Extended Data"}},
    // Deassertion (0x81) of upper non-critical going high (offset 7), looked up as type 0x01;
    // threshold 0x55 = 85, reading 0x50 = 80; time 0x5500003C = +60 s. Severity 0x08 gives 1.
    {"ThresholdDeassertion",
     {0x02, 0x00, 0x02, 0x3C, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x01, 0x30, 0x81, 0x57, 0x50,
      0x55},
     kCpuTemp,
     0x08,
     {},
     {2, "03/11/2015 08:43:40",
      "Processor 1 (Temperature - CPU1 Temp): Deassertion: Upper Non-critical - going high   "
      "Trigger threshold value: 85.00 degrees C.      Trigger reading: 80.00 degrees C.",
      1, kBmc, "No Extended Data"}},
    // Lower critical going low (offset 2) on 12V: 6 x 0xB4 (180) x 10^224 overflows single
    // precision and prints "inf", and so does the reading 0xB2. Time 0x55002FDF.
    {"RExponentNibbleEOverflows",
     {0x0A, 0x00, 0x02, 0xDF, 0x2F, 0x00, 0x55, 0x20, 0x00, 0x04, 0x02, 0x40, 0x01, 0x52, 0xB2,
      0xB4},
     k12V,
     0x10,
     {},
     {10, "03/11/2015 12:06:55",
      "System Board 1 (Voltage - 12V): Assertion: Lower Critical - going low   Trigger threshold "
      "value: inf Volts.      Trigger reading: inf Volts.",
      2, kBmc, "No Extended Data"}},
    // FAN1 lower critical going low: threshold 0x0A x 64 = 640, reading 0x09 x 64 = 576; the R
    // exponent nibble 1 scales by 1, not 10. Time 0x55005381.
    {"RExponentNibbleOneIsOne",
     {0x0E, 0x00, 0x02, 0x81, 0x53, 0x00, 0x55, 0x20, 0x00, 0x04, 0x04, 0x50, 0x01, 0x52, 0x09,
      0x0A},
     kFan1,
     0x10,
     {},
     {14, "03/11/2015 14:38:57",
      "Fan / Cooling Device 1 (Fan - FAN1): Assertion: Lower Critical - going low   Trigger "
      "threshold value: 640.00 RPM.      Trigger reading: 576.00 RPM.",
      2, kBmc, "No Extended Data"}},
    // Inlet upper non-critical going high: threshold 2 x 0x26 (38) + 0.5 = 76.50, reading
    // 2 x 0x27 (39) + 0.5 = 78.50 degrees F. Time 0x55001293.
    {"OffsetBWithNegativeExponent",
     {0x08, 0x00, 0x02, 0x93, 0x12, 0x00, 0x55, 0x20, 0x00, 0x04, 0x01, 0x32, 0x01, 0x57, 0x27,
      0x26},
     kInlet,
     0x08,
     {},
     {8, "03/11/2015 10:01:55",
      "Air Inlet 1 (Temperature - Inlet Temp): Assertion: Upper Non-critical - going high   "
      "Trigger threshold value: 76.50 degrees F.      Trigger reading: 78.50 degrees F.",
      1, kBmc, "No Extended Data"}},
    // 2's complement readings (units 1 = 0x80): event data 3 0xF6 prints -10 whatever M is.
    // Event data 1 0x10 gives a threshold but no reading, so the unreset scratch repeats the
    // threshold text after the six blanks. Time 0x5501C605; severity 0x02 gives 0.
    {"TwosComplementThresholdTwice",
     {0x1F, 0x00, 0x02, 0x05, 0xC6, 0x01, 0x55, 0x20, 0x00, 0x04, 0x01, 0x31, 0x01, 0x10, 0xFF,
      0xF6},
     sdrImage({{3, 0x01}, {7, 0x31}, {8, 0x03}, {9, 0x02}, {20, 0x80}, {21, 0x01}, {24, 0x05}},
              "CPU2 Temp"),
     0x02,
     {},
     {31, "03/12/2015 16:59:49",
      "Processor 2 (Temperature - CPU2 Temp): Assertion: Lower Non-critical - going low   "
      "Trigger threshold value: -10 degrees C.       Trigger threshold value: -10 degrees C.",
      0, kBmc, "No Extended Data"}},
    // 1's complement readings (units 1 = 0x40): 0xFE prints "-1"; Amps is code 5, key 13. Event
    // data 1 0x47: reading only, offset 7. Entity 0x14; severity 0x04 gives 0.
    {"OnesComplementReadingOnly",
     {0x21, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x03, 0x33, 0x01, 0x47, 0xFE,
      0x00},
     sdrImage({{3, 0x01}, {7, 0x33}, {8, 0x14}, {9, 0x01}, {20, 0x40}, {21, 0x05}}, "VRM Current"),
     0x04,
     {},
     {33, "03/11/2015 08:42:40",
      "Power Module / DC-to-DC Converter 1 (Current - VRM Current): Assertion: Upper "
      "Non-critical - going high        Trigger reading: -1 Amps.",
      0, kBmc, "No Extended Data"}},
    // A percentage (units 1 bit 0) with R exponent nibble 2: 1 x 10^16 in single precision is
    // 10000000272564224; unit code 0 reads "unspecified". Sensor type 0x0B. Severity 0x20: 2.
    {"PercentageWithRExponentTwo",
     {0x22, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x0B, 0x34, 0x01, 0x40, 0x01,
      0xFF},
     sdrImage({{3, 0x01}, {7, 0x34}, {8, 0x07}, {9, 0x01}, {20, 0x01}, {24, 0x01}, {29, 0x20}},
              "Fan Duty"),
     0x20,
     {},
     {34, "03/11/2015 08:42:40",
      "System Board 1 (Other Units-based Sensor - Fan Duty): Assertion: Lower Non-critical - "
      "going low        Trigger reading: 10000000272564224.00% unspecified.",
      2, kBmc, "No Extended Data"}},
    // Units 1 = 0x1A: rate 3 "per s" (bits 5:3), then base/modifier (bits 2:1 = 01): Watts
    // (code 6) per hour (code 24). Threshold only: 2 x 0x64 = 200, twice. Sensor type 0x09.
    {"RateThenBaseOverModifier",
     {0x23, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x09, 0x35, 0x01, 0x19, 0xFF,
      0x64},
     sdrImage({{3, 0x01},
               {7, 0x35},
               {8, 0x13},
               {9, 0x01},
               {20, 0x1A},
               {21, 0x06},
               {22, 0x18},
               {24, 0x02}},
              "PSU Energy"),
     0x10,
     {},
     {35, "03/11/2015 08:42:40",
      "Power Unit / Power Domain 1 (Power Unit - PSU Energy): Assertion: Upper Critical - going "
      "high   Trigger threshold value: 200.00 per s Watts/hour.       Trigger threshold value: "
      "200.00 per s Watts/hour.",
      2, kBmc, "No Extended Data"}},
    // Units 1 = 0x0E: rate 1 "per uS", then modifier bits 11: " reserved units" instead of a unit.
    {"ReservedUnitsAfterTheRate",
     {0x24, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x03, 0x36, 0x01, 0x40, 0x14,
      0xFF},
     sdrImage({{3, 0x01}, {7, 0x36}, {8, 0x07}, {9, 0x01}, {20, 0x0E}, {21, 0x05}, {24, 0x01}},
              "Odd Units"),
     0x00,
     {},
     {36, "03/11/2015 08:42:40",
      "System Board 1 (Current - Odd Units): Assertion: Lower Non-critical - going low        "
      "Trigger reading: 20.00 per uS reserved units.",
      0, kBmc, "No Extended Data"}},
    // A threshold event whose event data 1 says neither reading nor threshold: six blanks.
    {"ThresholdWithoutTriggerBytes",
     {0x40, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x01, 0x30, 0x01, 0x09, 0xFF,
      0xFF},
     kCpuTemp,
     0x10,
     {},
     {64, "03/11/2015 08:42:40",
      "Processor 1 (Temperature - CPU1 Temp): Assertion: Upper Critical - going high        ", 2,
      kBmc, "No Extended Data"}},
    // Sensor-specific (0x6F) power supply offset 1 with its compact SDR; no trigger text, so the
    // message ends in two blanks. Time 0x5501A515.
    {"SensorSpecificWithCompactSdr",
     {0x10, 0x00, 0x02, 0x15, 0xA5, 0x01, 0x55, 0x20, 0x00, 0x04, 0x08, 0x60, 0x6F, 0x01, 0xFF,
      0xFF},
     kPs1,
     0x10,
     {},
     {16, "03/12/2015 14:39:17",
      "Power Supply 1 (Power Supply - PS1 Status): Assertion: Power Supply Failure detected  ", 2,
      kBmc, "No Extended Data"}},
    // Its deassertion (0xEF) of offset 3 on PS2. Time 0x5501A642.
    {"SensorSpecificDeassertion",
     {0x12, 0x00, 0x02, 0x42, 0xA6, 0x01, 0x55, 0x20, 0x00, 0x04, 0x08, 0x61, 0xEF, 0x03, 0xFF,
      0xFF},
     kPs2,
     0x08,
     {},
     {18, "03/12/2015 14:44:18",
      "Power Supply 2 (Power Supply - PS2 Status): Deassertion: Power Supply input lost (AC/DC)  ",
      1, kBmc, "No Extended Data"}},
    // Memory ECC (sensor type 0x0C, offset 0 of event data 1 0xA0) without an SDR.
    {"SensorSpecificWithoutSdr",
     {0x14, 0x00, 0x02, 0x8E, 0xB4, 0x01, 0x55, 0x20, 0x00, 0x04, 0x0C, 0x70, 0x6F, 0xA0, 0x00,
      0x03},
     std::nullopt,
     0x08,
     {},
     {20, "03/12/2015 15:45:18",
      " (Memory - ): Assertion: Correctable ECC / other correctable memory error", 1, kBmc,
      "No Extended Data"}},
    // Generic severity type 0x07, offset 2, on a "Module / Board" sensor of entity 0x15.
    {"GenericDiscreteWithSdr",
     {0x25, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x15, 0x75, 0x07, 0x02, 0xFF,
      0xFF},
     sdrImage({{3, 0x02}, {7, 0x75}, {8, 0x15}, {9, 0x01}}, "Health"),
     0x10,
     {},
     {37, "03/11/2015 08:42:40",
      "Power Management 1 (Module / Board - Health): Assertion: transition to Critical from less "
      "severe  ",
      2, kBmc, "No Extended Data"}},
    // OEM event type 0x72 on OEM sensor type 0xC1: the bare prefix, two blanks, empty trigger.
    // Entity 0x90 is chassis-specific; instance byte 0xE3 shows as 3; a 16-character ID string
    // has no terminating zero.
    {"OemEventTypeWithSdr",
     {0x26, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0xC1, 0x77, 0x72, 0x05, 0x00,
      0x00},
     sdrImage({{3, 0x01}, {7, 0x77}, {8, 0x90}, {9, 0xE3}}, "ABCDEFGHIJKLMNOP"),
     0x00,
     {},
     {38, "03/11/2015 08:42:40",
      "Chassis-Specific Entities 3 (OEM RESERVED - ABCDEFGHIJKLMNOP): Assertion:   ", 0, kBmc,
      "No Extended Data"}},
    // OS stop (sensor type 0x20): the sensor number 0x4B 'K', event data 2 0x00 and event data 3
    // 0x21 '!' stand in the message as raw characters, the zero byte included, whatever the SDR.
    // Generator 0x41: software ID 0x20, system management software. Time 0x5501C592.
    {"OsStopWithAZeroByte",
     {0x1C, 0x00, 0x02, 0x92, 0xC5, 0x01, 0x55, 0x41, 0x00, 0x04, 0x20, 0x4B, 0x6F, 0x01, 0x00,
      0x21},
     kCpuTemp,
     0x20,
     {},
     {28, "03/12/2015 16:57:54",
      std::string("(OS Stop / Shutdown - K") + '\0' +
          "!): Assertion: Run-time Critical Stop (a.k.a. 'core dump', 'blue screen')  ",
      2, "System Mgt Software. Channel 0. ", "No Extended Data"}},
    // Sensor type 0x50 reads "Reserved": with an SDR the type name and " - " are dropped.
    {"ReservedSensorTypeWithSdr",
     {0x27, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x50, 0x30, 0x03, 0x01, 0xFF,
      0xFF},
     kCpuTemp,
     0x00,
     {},
     {39, "03/11/2015 08:42:40", "Processor 1 (CPU1 Temp): Assertion: State Asserted  ", 0, kBmc,
      "No Extended Data"}},
    // ... and without one, empty parentheses.
    {"ReservedSensorTypeWithoutSdr",
     {0x27, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, 0x50, 0x30, 0x03, 0x01, 0xFF,
      0xFF},
     std::nullopt,
     0x00,
     {},
     {39, "03/11/2015 08:42:40", " (): Assertion: State Asserted", 0, kBmc, "No Extended Data"}},
    // Time stamp 0x20000000 is the last "Unspecified" one; generator 0x01 is the BIOS.
    {"BiosAtTheLastUnspecifiedTime",
     {0x03, 0x00, 0x02, 0x00, 0x00, 0x00, 0x20, 0x01, 0x00, 0x04, 0x12, 0x00, 0x6F, 0x01, 0xFF,
      0xFF},
     std::nullopt,
     0x01,
     {},
     {3, "Unspecified", " (System Event - ): Assertion: OEM System Boot Event", 0,
      "BIOS. Channel 0. ", "No Extended Data"}},
    // 0x20000001 is the first time shown as a date. Generator 0x8F is software ID 0x47, the
    // terminal mode remote console, on channel 2 (generator byte 2 0x20). Severity 0x05: 1.
    {"TerminalModeConsoleAtTheFirstDate",
     {0x04, 0x00, 0x02, 0x01, 0x00, 0x00, 0x20, 0x8F, 0x20, 0x04, 0x2A, 0x00, 0x6F, 0x02, 0xFF,
      0xFF},
     std::nullopt,
     0x05,
     {},
     {4, "01/05/1987 18:48:33", " (Session Audit - ): Assertion: Invalid Username or Password", 1,
      "Terminal Mode Remote Console software. Channel 2. ", "No Extended Data"}},
    // Generator 0x2C (address 22) on channel 1, LUN 3 (byte 2 0x13); its auxiliary entry.
    {"IpmbDeviceWithAnAuxiliaryEntry",
     {0x05, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x2C, 0x13, 0x04, 0x07, 0x71, 0x6F, 0x00, 0xFF,
      0xFF},
     std::nullopt,
     0x09,
     {auxEntry(0x04, "04 "), auxEntry(0x05, "0A 1B FF ")},
     {5, "03/11/2015 08:42:40", " (Processor - ): Assertion: IERR", 2,
      "22 (address). IPMB device LUN 3. Channel 1. ", auxText("0A 1B FF ")}},
    // Two entries for the same record: the earlier one is rendered. Generator 0x21 is software
    // ID 0x10, the SMI handler.
    {"DuplicateAuxiliaryEntriesTheEarlierWins",
     {0x06, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x21, 0x00, 0x04, 0x23, 0x72, 0x6F, 0x01, 0xFF,
      0xFF},
     std::nullopt,
     0x08,
     {auxEntry(0x07, "07 "), auxEntry(0x06, "first "), auxEntry(0x06, "second ")},
     {6, "03/11/2015 08:42:40", " (Watchdog 2 - ): Assertion: Hard Reset", 1,
      "SMI Handler. Channel 0. ", auxText("first ")}},
};

void PrintTo(const Golden& golden, std::ostream* out) { *out << golden.name; }

class EventRenderingTest : public ::testing::TestWithParam<Golden> {};

TEST_P(EventRenderingTest, RendersEveryFieldExactly) {
    const Golden& golden = GetParam();
    IpmiEventBuilder& builder = *IpmiEventBuilder::getIpmiEventBuilder();
    const RawSelEntry sel = selEntry(golden.sel);
    const RawPETEntry pet = filterWithSeverity(golden.pefSeverity);
    const IPMIEVENT event = golden.sdr ? builder.build(sel, *golden.sdr, pet, golden.aux)
                                       : builder.build(sel, pet, golden.aux);
    EXPECT_EQ(event.recordId, golden.expected.recordId);
    EXPECT_EQ(event.timeStamp, golden.expected.timeStamp);
    EXPECT_EQ(event.message, golden.expected.message);
    EXPECT_EQ(event.severity, golden.expected.severity);
    EXPECT_EQ(event.source, golden.expected.source);
    EXPECT_EQ(event.auxLog, golden.expected.auxLog);
}

INSTANTIATE_TEST_SUITE_P(Goldens, EventRenderingTest, ::testing::ValuesIn(kGoldens),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
