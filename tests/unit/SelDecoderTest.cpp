// SelDecoder: SEL records and SDRs to their IPMI v2.0 meaning. Values are worked out by hand from
// the IPMI tables; real records come from tests/data/realdata (see each folder's PROVENANCE.txt).
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "IpmiSelDecoding.h"

namespace Tolmar {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Record = std::array<std::uint8_t, 16>;

Bytes fromHex(const std::string& hex) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

Record recordFromHex(const std::string& hex) {
    const Bytes bytes = fromHex(hex);
    Record record{};
    std::copy(bytes.begin(), bytes.end(), record.begin());
    return record;
}

// The conversion fields of a full sensor record (IPMI v2.0 table 43-1).
struct Analog {
    std::uint8_t units1 = 0x00;  // bits 7:6 analog format, 5:3 rate, 2:1 modifier use, 0 percent
    std::uint8_t baseUnit = 4;   // Volts
    std::uint8_t modifierUnit = 0;
    std::uint8_t linearization = 0;
    int m = 1;
    int b = 0;
    int bExponent = 0;
    int rExponent = 0;
};

// A full sensor record (type 01h) of voltage sensor `number` owned by `owner` on `lunChannel`,
// its ID string (type/length byte first) at byte 47.
Bytes fullRecord(std::uint8_t owner, std::uint8_t lunChannel, std::uint8_t number,
                 const Analog& analog, const Bytes& idString) {
    Bytes sdr(47, 0x00);
    sdr[0] = 0x01;  // record ID 0001h
    sdr[2] = 0x51;  // SDR version 1.5
    sdr[3] = 0x01;  // full sensor record
    sdr[5] = owner;
    sdr[6] = lunChannel;
    sdr[7] = number;
    sdr[12] = 0x02;  // sensor type: voltage
    sdr[13] = 0x01;  // event/reading type: threshold
    sdr[20] = analog.units1;
    sdr[21] = analog.baseUnit;
    sdr[22] = analog.modifierUnit;
    sdr[23] = analog.linearization;
    sdr[24] = analog.m & 0xFF;                // M, low 8 bits
    sdr[25] = ((analog.m >> 8) & 0x03) << 6;  // M, bits 9:8 in bits 7:6
    sdr[26] = analog.b & 0xFF;                // B, low 8 bits
    sdr[27] = ((analog.b >> 8) & 0x03) << 6;  // B, bits 9:8 in bits 7:6
    sdr[29] = (analog.rExponent & 0x0F) << 4 | (analog.bExponent & 0x0F);
    sdr.insert(sdr.end(), idString.begin(), idString.end());
    sdr[4] = static_cast<std::uint8_t>(sdr.size() - 5);  // bytes after the header
    return sdr;
}

Bytes latin1(const std::string& text) {
    Bytes bytes{static_cast<std::uint8_t>(0xC0 | text.size())};  // 8-bit ASCII + Latin-1
    for (char c : text) bytes.push_back(static_cast<std::uint8_t>(c));
    return bytes;
}

// A threshold event of voltage sensor `number` from the BMC (generator 0020h), Upper Critical
// going high, event data 1 59h: byte 2 the trigger reading, byte 3 the trigger threshold.
Record thresholdEvent(std::uint8_t number, std::uint8_t reading, std::uint8_t threshold) {
    return {0x01, 0x00,                     // record ID 0001h
            0x02,                           // system event record
            0x00, 0x00,    0x00,     0x60,  // time stamp 60000000h
            0x20, 0x00,                     // generator: IPMB slave address 20h, channel 0, LUN 0
            0x04,                           // event message format revision
            0x02, number,                   // sensor type voltage, sensor number
            0x01,                           // assertion, threshold event/reading type
            0x59, reading, threshold};
}

std::optional<SensorValue> readingOf(const Analog& analog, std::uint8_t raw) {
    const SelDecoder decoder({fullRecord(0x20, 0x00, 0x30, analog, latin1("V"))});
    return decoder.decode(thresholdEvent(0x30, raw, raw)).reading;
}

double valueOf(const Analog& analog, std::uint8_t raw) {
    const std::optional<SensorValue> value = readingOf(analog, raw);
    EXPECT_TRUE(value.has_value());
    return value ? value->value : 0.0;
}

TEST(SelDecoderTest, ConvertsUnsignedReadingsWithNegativeResultExponent) {
    Analog analog;
    analog.m = 8;
    analog.rExponent = -2;
    const SelDecoder decoder({fullRecord(0x20, 0x00, 0x30, analog, latin1("P12V"))});

    const DecodedSelRecord event = decoder.decode(thresholdEvent(0x30, 0xB3, 0x7F));

    ASSERT_TRUE(event.reading && event.threshold);
    EXPECT_DOUBLE_EQ(event.reading->value, 14.32);    // 179 * 8 / 100
    EXPECT_DOUBLE_EQ(event.threshold->value, 10.16);  // 127 * 8 / 100
    EXPECT_EQ(event.reading->units, "Volts");
    EXPECT_EQ(event.sensorName, "P12V");
    EXPECT_EQ(event.event, "Upper Critical going high");
    EXPECT_EQ(event.sensorTypeName, "Voltage");
    EXPECT_TRUE(event.assertion);
    EXPECT_EQ(event.eventType, 0x01);
    EXPECT_EQ(event.offset, 0x09);
    EXPECT_EQ(event.message,
              "2021-01-14 08:25:36 UTC | Voltage P12V | Upper Critical going high | Asserted | "
              "Trigger reading = 14.32 Volts ; Trigger threshold = 10.16 Volts");
}

TEST(SelDecoderTest, ConvertsOnesComplementReadings) {
    Analog analog;
    analog.units1 = 0x40;                             // 1's complement
    EXPECT_DOUBLE_EQ(valueOf(analog, 0xFE), -1.0);    // ~FEh = 01h
    EXPECT_DOUBLE_EQ(valueOf(analog, 0x80), -127.0);  // ~80h = 7Fh
    EXPECT_DOUBLE_EQ(valueOf(analog, 0x05), 5.0);
}

TEST(SelDecoderTest, ConvertsTwosComplementReadingsWithNegativeM) {
    Analog analog;
    analog.units1 = 0x80;                            // 2's complement
    analog.m = -3;                                   // 3FDh in 10 bits
    EXPECT_DOUBLE_EQ(valueOf(analog, 0xFE), 6.0);    // -2 * -3
    EXPECT_DOUBLE_EQ(valueOf(analog, 0x04), -12.0);  // 4 * -3
}

TEST(SelDecoderTest, AppliesNegativeBWithItsExponent) {
    Analog analog;
    analog.b = -5;  // 3FBh in 10 bits
    analog.bExponent = 1;
    EXPECT_DOUBLE_EQ(valueOf(analog, 100), 50.0);  // 100 - 5 * 10
}

TEST(SelDecoderTest, AppliesPositiveExponents) {
    Analog analog;
    analog.m = 2;
    analog.b = 3;
    analog.bExponent = 2;
    analog.rExponent = 1;
    EXPECT_DOUBLE_EQ(valueOf(analog, 5), 3100.0);  // (2 * 5 + 3 * 100) * 10
}

TEST(SelDecoderTest, AppliesEachLinearization) {
    struct Case {
        std::uint8_t function;
        std::uint8_t raw;
        double expected;
    };
    const Case cases[] = {{0x00, 7, 7.0},
                          {0x01, 100, 4.605170185988092},
                          {0x02, 100, 2.0},
                          {0x03, 64, 6.0},
                          {0x04, 2, 7.38905609893065},
                          {0x05, 2, 100.0},
                          {0x06, 10, 1024.0},
                          {0x07, 4, 0.25},
                          {0x08, 12, 144.0},
                          {0x09, 3, 27.0},
                          {0x0A, 81, 9.0},
                          {0x0B, 27, 3.0}};
    for (const Case& c : cases) {
        Analog analog;
        analog.linearization = c.function;
        EXPECT_NEAR(valueOf(analog, c.raw), c.expected, 1e-9) << int(c.function);
    }
}

TEST(SelDecoderTest, GivesNoValueForOemOrReservedLinearizationOrOutsideTheDomain) {
    Analog analog;
    analog.linearization = 0x70;  // OEM non-linear
    EXPECT_FALSE(readingOf(analog, 10));
    analog.linearization = 0x0C;  // reserved
    EXPECT_FALSE(readingOf(analog, 10));
    analog.linearization = 0x07;  // 1/x of 0
    EXPECT_FALSE(readingOf(analog, 0));
}

TEST(SelDecoderTest, GivesRawTriggerBytesWhenTheSensorHasNoAnalogReading) {
    Analog analog;
    analog.units1 = 0xC0;  // no analog reading
    const SelDecoder decoder({fullRecord(0x20, 0x00, 0x30, analog, latin1("V"))});

    const DecodedSelRecord event = decoder.decode(thresholdEvent(0x30, 0xB3, 0x7F));

    EXPECT_FALSE(event.reading);
    EXPECT_EQ(event.details,
              (std::vector<std::string>{"Trigger reading = B3h", "Trigger threshold = 7Fh"}));
}

TEST(SelDecoderTest, NamesUnitsWithPercentageModifierAndRate) {
    Analog analog;
    analog.units1 = 0x01 | 0x04 | (5 << 3);  // percentage, base * modifier, rate per hour
    analog.baseUnit = 5;                     // Amps
    analog.modifierUnit = 4;                 // Volts
    EXPECT_EQ(readingOf(analog, 1)->units, "% Amps * Volts per hour");
    analog.units1 = 0x02;      // base per modifier
    analog.baseUnit = 6;       // Watts
    analog.modifierUnit = 24;  // hour
    EXPECT_EQ(readingOf(analog, 1)->units, "Watts per hour");
}

std::optional<std::string> nameFrom(const Bytes& idString) {
    const SelDecoder decoder({fullRecord(0x20, 0x00, 0x30, Analog{}, idString)});
    return decoder.decode(thresholdEvent(0x30, 0, 0)).sensorName;
}

TEST(SelDecoderTest, EndsAnIdStringAtItsLengthEvenWhenMoreBytesFollow) {
    EXPECT_EQ(nameFrom({0xC3, 'A', 'B', 'C', 'D', 'E'}), "ABC");
}

TEST(SelDecoderTest, DecodesSixBitPackedAscii) {
    // "ABCD": 21h 22h 23h 24h in 6 bits each, least significant first: A1h 38h 92h.
    EXPECT_EQ(nameFrom({0x83, 0xA1, 0x38, 0x92}), "ABCD");
}

TEST(SelDecoderTest, DecodesBcdPlus) {
    // 1, 2, Ch (period), 5.
    EXPECT_EQ(nameFrom({0x42, 0x12, 0xC5}), "12.5");
}

TEST(SelDecoderTest, FindsTheSensorOfTheGeneratingController) {
    const SelDecoder decoder({fullRecord(0x20, 0x00, 0x30, Analog{}, latin1("BMC_P5V")),
                              fullRecord(0x2C, 0x00, 0x30, Analog{}, latin1("ME_P5V")),
                              fullRecord(0x20, 0x01, 0x31, Analog{}, latin1("LUN1_P3V"))});
    Record event = thresholdEvent(0x30, 0, 0);

    EXPECT_EQ(decoder.decode(event).sensorName, "BMC_P5V");
    event[7] = 0x2C;  // generator: the controller at slave address 2Ch
    EXPECT_EQ(decoder.decode(event).sensorName, "ME_P5V");
    event[7] = 0x41;  // system software ID 41h (BIOS): no SDR
    EXPECT_FALSE(decoder.decode(event).sensorName);
    event = thresholdEvent(0x31, 0, 0);
    EXPECT_FALSE(decoder.decode(event).sensorName);  // sensor 31h is on LUN 1
    event[8] = 0x01;                                 // LUN 1
    EXPECT_EQ(decoder.decode(event).sensorName, "LUN1_P3V");
}

// An event-only record (type 03h) of memory sensors from number 40h, shared as `sharing` says.
Bytes eventOnlyRecord(std::uint8_t sharing, std::uint8_t modifierOffset, const Bytes& idString) {
    Bytes sdr{0x02,    0x00,
              0x51,    0x03,
              0x00,
              0x20,                     // owner: slave address 20h
              0x00,                     // channel 0, LUN 0
              0x40,                     // first sensor number
              0x20,    0x01,            // entity: memory device, instance 1
              0x0C,    0x6F,            // memory, sensor-specific
              sharing, modifierOffset,  // share count and modifier type, modifier offset
              0x00,    0x00};           // reserved, OEM
    sdr.insert(sdr.end(), idString.begin(), idString.end());
    sdr[4] = static_cast<std::uint8_t>(sdr.size() - 5);
    return sdr;
}

// A correctable ECC event of memory sensor `number`: event data 1 30h, byte 3 the DIMM.
Record memoryEvent(std::uint8_t number) {
    char hex[33];
    std::snprintf(hex, sizeof hex, "020002000000602000040c%02x6f300003", number);
    return recordFromHex(hex);
}

TEST(SelDecoderTest, NamesSensorsOfAnEventOnlyRecordWithSharedNumbers) {
    const SelDecoder decoder({eventOnlyRecord(0x03, 0x01, latin1("DIMM"))});
    Record event = memoryEvent(0);
    const char* const expected[] = {"DIMM1", "DIMM2", "DIMM3"};
    for (std::uint8_t i = 0; i < 3; ++i) {
        event[11] = static_cast<std::uint8_t>(0x40 + i);
        EXPECT_EQ(decoder.decode(event).sensorName, expected[i]);
    }
    event[11] = 0x43;
    EXPECT_FALSE(decoder.decode(event).sensorName);
}

TEST(SelDecoderTest, NamesSharedSensorsWithLetters) {
    const SelDecoder decoder({eventOnlyRecord(0x12, 0x00, latin1("CPU"))});  // alpha, 2 sensors
    Record event = memoryEvent(0);
    event[11] = 0x41;
    EXPECT_EQ(decoder.decode(event).sensorName, "CPUB");
}

TEST(SelDecoderTest, DescribesSensorSpecificMemoryEvents) {
    Record event = memoryEvent(0);
    event[11] = 0x40;
    const DecodedSelRecord decoded = SelDecoder({}).decode(event);
    EXPECT_EQ(decoded.sensorTypeName, "Memory");
    EXPECT_EQ(decoded.event, "Correctable ECC / other correctable memory error");
    EXPECT_EQ(decoded.details, std::vector<std::string>{"Memory module/DIMM = 3"});
    EXPECT_FALSE(decoded.sensorName);
}

TEST(SelDecoderTest, DescribesPreviousStateAndSeverity) {
    // Power supply 20h, severity event/reading type 07h, deasserted; event data 1 42h: offset 02h,
    // byte 2 (10h) the severity (1) and previous state (0).
    const DecodedSelRecord decoded =
        SelDecoder({}).decode(recordFromHex("050002000000602000040820874210ff"));
    EXPECT_FALSE(decoded.assertion);
    EXPECT_EQ(decoded.event, "transition to Critical from less severe");
    EXPECT_EQ(decoded.details,
              (std::vector<std::string>{"Previous state = transition to OK",
                                        "Severity = transition to Non-Critical from OK"}));
}

// A system event from the BMC (generator 0020h) at 60000000h, sensor 01h of `sensorType`.
Record discreteEvent(std::uint8_t sensorType, std::uint8_t eventType, std::uint8_t data1,
                     std::uint8_t data2, std::uint8_t data3) {
    return {0x10, 0x00, 0x02,       0x00, 0x00,      0x00,  0x60,  0x20,
            0x00, 0x04, sensorType, 0x01, eventType, data1, data2, data3};
}

using Words = std::vector<std::string>;

// The details of a sensor-specific (6Fh) event; event data 1 bits 7:6 and 5:4 say what bytes 2
// and 3 hold (table 29-6): 11b a sensor-specific extension code, 00b unspecified.
Words sensorSpecificDetails(std::uint8_t sensorType, std::uint8_t data1, std::uint8_t data2,
                            std::uint8_t data3 = 0xFF) {
    return SelDecoder({}).decode(discreteEvent(sensorType, 0x6F, data1, data2, data3)).details;
}

// Table 42-3, physical security (05h) offset 04h, LAN leash lost: byte 2 the network controller.
TEST(SelDecoderTest, NamesTheNetworkControllerOfALanLeashLost) {
    EXPECT_EQ(sensorSpecificDetails(0x05, 0xC4, 0x02), Words{"Network controller = 2"});
}

// Table 42-3, system firmware progress (0Fh): byte 2 the POST error (offset 00h), the step the
// firmware hung in (01h) or reached (02h); 00h unspecified, 0Eh (errors) and 15h (steps) reserved.
TEST(SelDecoderTest, NamesSystemFirmwareErrorsHangsAndProgress) {
    EXPECT_EQ(sensorSpecificDetails(0x0F, 0xC0, 0x01),
              Words{"POST error = no system memory is physically installed"});
    EXPECT_EQ(sensorSpecificDetails(0x0F, 0xC0, 0x0E), Words{"POST error = reserved code 0Eh"});
    EXPECT_TRUE(sensorSpecificDetails(0x0F, 0xC0, 0x00).empty());
    EXPECT_EQ(sensorSpecificDetails(0x0F, 0xC1, 0x13),
              Words{"Hang in = starting the operating system boot process (e.g. calling Int 19h)"});
    EXPECT_EQ(sensorSpecificDetails(0x0F, 0xC2, 0x19),
              Words{"Progress = primary processor initialization"});
    EXPECT_EQ(sensorSpecificDetails(0x0F, 0xC2, 0x15), Words{"Progress = reserved code 15h"});
}

// Table 42-3, event logging disabled (10h): offset 00h byte 2 the memory module; 01h byte 2 the
// event/reading type, byte 3 bit 5 all of its events, bit 4 assertions, bits 3:0 the offset; 05h
// byte 3 how full the SEL is; 06h byte 2 a processor's number, byte 3 bit 7 whose (1b: the
// vendor's, 0b: the entity instance).
TEST(SelDecoderTest, DescribesWhatEventLoggingWasDisabledFor) {
    EXPECT_EQ(sensorSpecificDetails(0x10, 0xC0, 0x05), Words{"Memory module = 5"});
    EXPECT_EQ(sensorSpecificDetails(0x10, 0xF1, 0x6F, 0x31),
              (Words{"Event/reading type = 6Fh", "Event offset = 01h", "Assertion event",
                     "Logging disabled for all events of the type"}));
    EXPECT_EQ(sensorSpecificDetails(0x10, 0x35, 0x00, 0x5A), Words{"SEL 90% full"});
    EXPECT_EQ(sensorSpecificDetails(0x10, 0xF6, 0x02, 0x80), Words{"Vendor processor number = 2"});
    EXPECT_EQ(sensorSpecificDetails(0x10, 0xF6, 0x02, 0x00),
              Words{"Processor entity instance = 2"});
    EXPECT_TRUE(sensorSpecificDetails(0x10, 0x04, 0xFF).empty());  // SEL full: nothing more
}

// Table 42-3, system event (12h): offset 03h byte 2 bits 7:4 the auxiliary log action (2h: added
// with SEL entries), 3:0 the log (1h: OEM 1); 04h one bit per PEF action (0 alert, 2 reset,
// 5 diagnostic interrupt); 05h bit 7 which of the pair, bits 3:0 the clock.
TEST(SelDecoderTest, DescribesSystemEvents) {
    EXPECT_EQ(sensorSpecificDetails(0x12, 0xC3, 0x21),
              (Words{"Log entry action = entry added with one or more matching SEL entries",
                     "Log type = OEM 1"}));
    EXPECT_EQ(sensorSpecificDetails(0x12, 0xC4, 0x25),
              Words{"PEF actions = alert, reset, diagnostic interrupt (NMI)"});
    EXPECT_EQ(sensorSpecificDetails(0x12, 0xC4, 0x00), Words{"PEF actions = none"});
    EXPECT_EQ(sensorSpecificDetails(0x12, 0xC5, 0x80),
              (Words{"Clock = SEL time stamp clock updated", "Second of pair (after the change)"}));
    EXPECT_EQ(sensorSpecificDetails(0x12, 0xC5, 0x01),
              (Words{"Clock = SDR time stamp clock updated", "First of pair (before the change)"}));
}

// Table 42-3, chip set (19h) offset 00h: the requested power state and the one at the request,
// in the offsets of ACPI power state (22h): 05h S5 / G2, 00h S0 / G0.
TEST(SelDecoderTest, NamesThePowerStatesOfASoftPowerControlFailure) {
    EXPECT_EQ(sensorSpecificDetails(0x19, 0xF0, 0x05, 0x00),
              (Words{"Requested power state = S5 / G2 \"soft-off\"",
                     "Power state at the request = S0 / G0 \"working\""}));
}

// Table 42-3, system boot / restart (1Dh) offset 07h: byte 2 bits 3:0 the restart cause (table
// 28-11, 1h: Chassis Control command), byte 3 the channel of the command.
TEST(SelDecoderTest, NamesTheRestartCauseAndChannel) {
    EXPECT_EQ(sensorSpecificDetails(0x1D, 0xF7, 0x01, 0x01),
              (Words{"Restart cause = Chassis Control command", "Channel = 1"}));
}

// Table 42-3, slot / connector (21h): byte 2 bits 6:0 the type (09h: PCI Express), byte 3 the
// slot's number.
TEST(SelDecoderTest, NamesTheSlotOrConnector) {
    EXPECT_EQ(sensorSpecificDetails(0x21, 0xF2, 0x09, 0x03),
              (Words{"Slot/connector type = PCI Express", "Slot/connector number = 3"}));
}

// Table 42-3, watchdog 2 (23h): byte 2 bits 3:0 the timer's use (4h SMS / OS, 3h OS load), 7:4
// the interrupt (2h NMI, Fh unspecified).
TEST(SelDecoderTest, NamesTheWatchdogsInterruptAndTimerUse) {
    EXPECT_EQ(sensorSpecificDetails(0x23, 0xC1, 0x24),
              (Words{"Timer use at expiration = SMS / OS", "Interrupt type = NMI"}));
    EXPECT_EQ(sensorSpecificDetails(0x23, 0xC1, 0xF3), Words{"Timer use at expiration = OS load"});
}

// Table 42-3, management subsystem health (28h) offset 05h, FRU failure: byte 2 bit 7 a logical
// FRU device, bits 4:3 the LUN, 2:0 the private bus; byte 3 the logical device's FRU device ID,
// or the other's slave address in bits 7:1.
TEST(SelDecoderTest, NamesTheFailedFru) {
    EXPECT_EQ(sensorSpecificDetails(0x28, 0xF5, 0x98, 0x02),
              (Words{"Logical FRU device", "LUN = 3", "FRU device ID = 2"}));
    EXPECT_EQ(
        sensorSpecificDetails(0x28, 0xF5, 0x0A, 0xA4),
        (Words{"Non-logical FRU device", "LUN = 1", "Private bus = 2", "FRU slave address = A4h"}));
}

// Table 42-3, session audit (2Ah) offset 01h: byte 2 bits 5:0 the user ID; byte 3 bits 5:4 the
// deactivation cause (10b timeout), bits 3:0 the channel.
TEST(SelDecoderTest, NamesTheUserChannelAndCauseOfASessionDeactivation) {
    EXPECT_EQ(sensorSpecificDetails(0x2A, 0xF1, 0x03, 0x21),
              (Words{"User ID = 3", "Channel = 1", "Session deactivated by timeout"}));
}

// Table 42-3, version change (2Bh): byte 2 what changed (09h system firmware; 00h unspecified;
// 18h and above reserved).
TEST(SelDecoderTest, NamesWhatVersionChanged) {
    EXPECT_EQ(sensorSpecificDetails(0x2B, 0xC7, 0x09),
              Words{"Change type = system firmware (EFI / BIOS)"});
    EXPECT_TRUE(sensorSpecificDetails(0x2B, 0xC7, 0x00).empty());
    EXPECT_EQ(sensorSpecificDetails(0x2B, 0xC7, 0x18), Words{"Change type = reserved code 18h"});
}

// Table 42-3, FRU state (2Ch): byte 2 bits 7:4 the cause (2h: handle latch), 3:0 the previous
// state (03h: activation in progress).
TEST(SelDecoderTest, NamesTheFrusPreviousStateAndCause) {
    EXPECT_EQ(sensorSpecificDetails(0x2C, 0xC4, 0x23),
              (Words{"Previous state = FRU Activation In Progress",
                     "Cause = operator changed a handle latch"}));
}

// Table 42-3, power supply (08h) offset 06h: byte 3 bits 3:0 the configuration error.
TEST(SelDecoderTest, NamesThePowerSupplyConfigurationError) {
    EXPECT_EQ(sensorSpecificDetails(0x08, 0x36, 0x00, 0x03),
              Words{"Error type = power supply rating mismatch"});
}

// Table 29-6: OEM codes (10b) are numbers without the BMC's manufacturer, FFh none; a
// sensor-specific code of a generic event/reading type has no table to say it.
TEST(SelDecoderTest, GivesOemAndUnknownCodesAsNumbers) {
    EXPECT_EQ(sensorSpecificDetails(0x0C, 0xA1, 0x00, 0x03),
              (Words{"Event Data 2 OEM code = 00h", "Event Data 3 OEM code = 03h"}));
    EXPECT_TRUE(sensorSpecificDetails(0x0C, 0xA1, 0xFF, 0xFF).empty());
    EXPECT_EQ(SelDecoder({}).decode(discreteEvent(0x07, 0x03, 0xC1, 0x12, 0xFF)).details,
              Words{"Event Data 2 sensor-specific code = 12h"});
}

TEST(SelDecoderTest, TellsTheKindOfTime) {
    Record event = thresholdEvent(0x30, 0, 0);
    event[3] = event[4] = event[5] = event[6] = 0xFF;
    EXPECT_EQ(SelDecoder({}).decode(event).time, DecodedSelRecord::Time::Unspecified);
    event[3] = 0x00;
    event[4] = 0x01;
    event[5] = event[6] = 0x00;  // 00000100h
    const DecodedSelRecord preInit = SelDecoder({}).decode(event);
    EXPECT_EQ(preInit.time, DecodedSelRecord::Time::PreInit);
    EXPECT_EQ(preInit.timestamp, 0x100u);
    EXPECT_EQ(preInit.message.substr(0, 13), "PreInit +256s");
    event[6] = 0x60;  // 60000100h
    EXPECT_EQ(SelDecoder({}).decode(event).time, DecodedSelRecord::Time::Absolute);
}

TEST(SelDecoderTest, DecodesTimestampedOemRecord) {
    const DecodedSelRecord decoded =
        SelDecoder({}).decode(recordFromHex("0000df5cd29963370100040000000000"));
    EXPECT_EQ(decoded.kind, DecodedSelRecord::Kind::TimestampedOem);
    EXPECT_EQ(decoded.recordType, 0xDF);
    EXPECT_EQ(decoded.time, DecodedSelRecord::Time::Absolute);
    EXPECT_EQ(decoded.timestamp, 0x6399D25Cu);
    EXPECT_EQ(decoded.manufacturerId, 311u);  // 37h 01h 00h, least significant first
    EXPECT_EQ(decoded.manufacturer, "Microsoft");
    EXPECT_EQ(decoded.oemData, (Bytes{0x04, 0x00, 0x00, 0x00, 0x00, 0x00}));
    EXPECT_FALSE(decoded.sensorName);
    EXPECT_EQ(decoded.message,
              "2022-12-14 13:40:44 UTC | OEM record DFh | Microsoft (311) | 04 00 00 00 00 00");
}

TEST(SelDecoderTest, DecodesNonTimestampedOemRecord) {
    const DecodedSelRecord decoded =
        SelDecoder({}).decode(recordFromHex("0700e00102030405060708090a0b0c0d"));
    EXPECT_EQ(decoded.kind, DecodedSelRecord::Kind::NonTimestampedOem);
    EXPECT_EQ(decoded.recordId, 7);
    EXPECT_EQ(decoded.time, DecodedSelRecord::Time::Unspecified);
    EXPECT_EQ(decoded.oemData.size(), 13u);
    EXPECT_EQ(decoded.oemData.front(), 0x01);
    EXPECT_EQ(decoded.oemData.back(), 0x0D);
    EXPECT_FALSE(decoded.manufacturer);
    EXPECT_EQ(decoded.message,
              "Unspecified | OEM record E0h | 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d");
}

TEST(SelDecoderTest, KeepsTheBytesOfAnUnknownRecordType) {
    const DecodedSelRecord decoded =
        SelDecoder({}).decode(recordFromHex("0800050102030405060708090a0b0c0d"));
    EXPECT_EQ(decoded.kind, DecodedSelRecord::Kind::Unknown);
    EXPECT_EQ(decoded.oemData.size(), 13u);
    EXPECT_EQ(decoded.message.substr(0, 38), "Unspecified | Unknown record type 05h ");
}

// tests/data/realdata/ipmitool_issue384_oem_df_record/sel.hex.
TEST(SelDecoderTest, RealOemRecordFromIpmitoolIssue) {
    const DecodedSelRecord decoded =
        SelDecoder({}).decode(recordFromHex("0200df5cd29963370100040000000000"));
    EXPECT_EQ(decoded.recordId, 2);
    EXPECT_EQ(decoded.manufacturerId, 311u);
}

// tests/data/realdata/rackhd_on_tasks_session_audit/sel.hex, line 1.
TEST(SelDecoderTest, RealSessionAuditRecord) {
    const DecodedSelRecord decoded =
        SelDecoder({}).decode(recordFromHex("010002c5c157542000042aff6ff2ffff"));
    EXPECT_EQ(decoded.generatorId, 0x0020);
    EXPECT_EQ(decoded.sensorTypeName, "Session Audit");
    EXPECT_EQ(decoded.sensorNumber, 0xFF);
    EXPECT_EQ(decoded.event, "Invalid Username or Password");  // offset 2
    // Event data 1 F2h: bytes 2 and 3 sensor-specific, but both FFh, the fill of unused bytes,
    // which says nothing (FreeIPMI's ipmi-sel takes FFh so; ipmitool shows no details either).
    EXPECT_TRUE(decoded.details.empty());
    EXPECT_EQ(decoded.message,
              "2014-11-03 17:56:21 UTC | Session Audit #0xFF | Invalid Username or Password | "
              "Asserted");
}

// tests/data/realdata/microsoft_vc_ipmiutil_sel_example1/sel.hex, records 0001h, 0003h, 0040h.
TEST(SelDecoderTest, RealRecordsOfAMicrosoftServer) {
    const SelDecoder decoder({});
    const DecodedSelRecord cleared =
        decoder.decode(recordFromHex("01000287327a65200004108a6f02ffff"));
    EXPECT_EQ(cleared.sensorTypeName, "Event Logging Disabled");
    EXPECT_EQ(cleared.event, "Log Area Reset/Cleared");
    EXPECT_TRUE(cleared.details.empty());

    const DecodedSelRecord oem = decoder.decode(recordFromHex("0300dd33198165370100000100028000"));
    EXPECT_EQ(oem.kind, DecodedSelRecord::Kind::TimestampedOem);
    EXPECT_EQ(oem.manufacturer, "Microsoft");
    EXPECT_EQ(oem.oemData, (Bytes{0x00, 0x01, 0x00, 0x02, 0x80, 0x00}));

    const DecodedSelRecord health =
        decoder.decode(recordFromHex("4000024319816520000428eeefc435ff"));
    EXPECT_FALSE(health.assertion);
    EXPECT_EQ(health.sensorTypeName, "Management Subsystem Health");
    EXPECT_EQ(health.event, "Sensor failure");
    // Event data 1 C4h: byte 2 sensor-specific, the failed sensor's number (table 42-3).
    EXPECT_EQ(health.details, std::vector<std::string>{"Sensor number = 35h"});
}

// tests/data/realdata/dell_r630_ipmirs_sdr/sdr.hex: Fan2A (sensor 32h, M 120) and Inlet Temp
// (sensor 04h, M 1, B -128), with events made for them.
TEST(SelDecoderTest, RealDellSdrsConvertTriggerValues) {
    const SelDecoder decoder(
        {fromHex(
             "0d0051013020003207017fd40401053005000300001200007802000230000754c58bff00ffffff0005"
             "070101000000c546616e3241"),
         fromHex("120051013520000407017f680101853285321b0900010000010280c230000797c58bff00ffafaa00"
                 "79830101000000ca496e6c65742054656d70")});
    // Fan2A: Lower Critical going low, event data 1 52h, reading 2Ch, threshold 05h.
    const DecodedSelRecord fan =
        decoder.decode(recordFromHex("0900020000006020000404320152"
                                     "2c05"));
    EXPECT_EQ(fan.sensorName, "Fan2A");
    EXPECT_EQ(fan.event, "Lower Critical going low");
    ASSERT_TRUE(fan.reading && fan.threshold);
    EXPECT_DOUBLE_EQ(fan.reading->value, 5280.0);   // 44 * 120
    EXPECT_DOUBLE_EQ(fan.threshold->value, 600.0);  // 5 * 120
    EXPECT_EQ(fan.reading->units, "RPM");
    // Inlet Temp: Upper Critical going high, reading 99h, threshold AAh.
    const DecodedSelRecord inlet =
        decoder.decode(recordFromHex("0a00020000006020000401040159"
                                     "99aa"));
    EXPECT_EQ(inlet.sensorName, "Inlet Temp");
    ASSERT_TRUE(inlet.reading && inlet.threshold);
    EXPECT_DOUBLE_EQ(inlet.reading->value, 25.0);    // 153 - 128
    EXPECT_DOUBLE_EQ(inlet.threshold->value, 42.0);  // 170 - 128
    EXPECT_EQ(inlet.reading->units, "degrees C");
}

// tests/data/realdata/unknown_ocp_board_rawsel_sdrbin/sdr.hex, lines 3, 23 and 59: a full record
// (CPU0_Temp, M 5, R -1), a compact one (CPU0_Status) and an event-only one (PCIE_Alert).
TEST(SelDecoderTest, RealOcpBoardSdrsNameTheirSensors) {
    const SelDecoder decoder(
        {fromHex("030051013420000303007f680101800a807a3838000100000500000000f00797ff00ff007fafaa00"
                 "00000000000000c9435055305f54656d70"),
         fromHex(
             "170051022620007006006740076fab080000ab08c000000000000000000000cb435055305f53746174"
             "7573"),
         fromHex("3b005103162000fe3100136f00000000ca504349455f416c657274")});
    const DecodedSelRecord temp =
        decoder.decode(recordFromHex("0b00020000006020000401030159"
                                     "5a50"));
    EXPECT_EQ(temp.sensorName, "CPU0_Temp");
    ASSERT_TRUE(temp.reading);
    EXPECT_DOUBLE_EQ(temp.reading->value, 45.0);  // 90 * 5 / 10
    // Processor, sensor 70h, IERR (offset 00h).
    const DecodedSelRecord status =
        decoder.decode(recordFromHex("0c000200000060200004077"
                                     "06f00ffff"));
    EXPECT_EQ(status.sensorName, "CPU0_Status");
    EXPECT_EQ(status.event, "IERR");
    // Critical interrupt, sensor FEh, PCI SERR (offset 05h).
    const DecodedSelRecord alert =
        decoder.decode(recordFromHex("0d00020000006020000413fe6f05ffff"));
    EXPECT_EQ(alert.sensorName, "PCIE_Alert");
    EXPECT_EQ(alert.sensorTypeName, "Critical Interrupt");
}

}  // namespace
}  // namespace Tolmar
