// The parts of a decoded event, one rule at a time.
#include "IpmiEventBuilder.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <optional>

#include "EventRecords.h"
#include "Log.h"
#include "LogCapture.h"

namespace {

using sim::filterWithSeverity;
using sim::sdrImage;
using sim::selEntry;
using Tolmar::IpmiEventBuilder;
using Tolmar::IPMIExtendedSELDataEntry;

IpmiEventBuilder& builder() { return *IpmiEventBuilder::getIpmiEventBuilder(); }

// A SEL record of the BMC with the given sensor type, number, event type and event data.
RawSelEntry event(unsigned char sensorType, unsigned char eventType, unsigned char data1,
                  unsigned char data2 = 0xFF, unsigned char data3 = 0xFF,
                  unsigned char sensorNumber = 0x30) {
    return selEntry({0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x55, 0x20, 0x00, 0x04, sensorType,
                     sensorNumber, eventType, data1, data2, data3});
}

// A linear full sensor record: M, B and the exponents byte, sensor units 1 and 2 and 3.
RawSDR linearSdr(unsigned char m, unsigned char b, unsigned char exponents, unsigned char units1,
                 unsigned char baseUnit, unsigned char modifierUnit = 0x00) {
    return sdrImage({{3, 0x01},
                     {7, 0x30},
                     {8, 0x03},
                     {9, 0x01},
                     {20, units1},
                     {21, baseUnit},
                     {22, modifierUnit},
                     {24, m},
                     {26, b},
                     {29, exponents}},
                    "CPU1 Temp");
}

std::string units(const RawSDR& sdr, int raw) {
    char text[128] = {};
    builder().GetSensorUnits(&sdr, raw, text, sizeof text);
    return text;
}

// --- event description ---

TEST(IpmiEventBuilder, DeassertionOfAThresholdEventIsLookedUpAsAThresholdEvent) {
    EXPECT_EQ(builder().buildEventReadingTypeCodeDescription(event(0x01, 0x81, 0x59)),
              "Deassertion: Upper Critical - going high");
    EXPECT_EQ(builder().buildEventReadingTypeCodeDescription(event(0x01, 0x01, 0x59)),
              "Assertion: Upper Critical - going high");
}

TEST(IpmiEventBuilder, OemEventTypesGiveTheBarePrefix) {
    for (unsigned char type = 0x70; type <= 0x7F; ++type) {
        EXPECT_EQ(builder().buildEventReadingTypeCodeDescription(event(0x07, type, 0x01)),
                  "Assertion: ");
        EXPECT_EQ(builder().buildEventReadingTypeCodeDescription(event(0x07, type | 0x80, 0x01)),
                  "Deassertion: ");
    }
    const RawSelEntry oem = event(0xC1, 0x72, 0x00);
    EXPECT_EQ(builder().buildMessage(oem), " (OEM RESERVED - ): Assertion: ");
    EXPECT_EQ(builder().buildMessage(oem, linearSdr(1, 0, 0, 0, 1)),
              "Processor 1 (OEM RESERVED - CPU1 Temp): Assertion:   ");
}

TEST(IpmiEventBuilder, EmptyOrReservedOffsetTextGivesThePrefixOnly) {
    EXPECT_EQ(builder().buildEventReadingTypeCodeDescription(event(0x15, 0x02, 0x05)),
              "Assertion: ");  // generic type 0x02 has no offset 5
    EXPECT_EQ(builder().buildEventReadingTypeCodeDescription(event(0x23, 0x6F, 0x04)),
              "Assertion: ");  // watchdog 2 offset 4 reads "Reserved"
    EXPECT_EQ(builder().buildEventReadingTypeCodeDescription(event(0x00, 0x6F, 0x00)),
              "Assertion: ");  // sensor type 0x00 reads "Reserved"
    EXPECT_EQ(builder().buildEventReadingTypeCodeDescription(event(0x07, 0x00, 0x00)),
              "Assertion: ");  // unspecified event type
    EXPECT_EQ(builder().buildEventReadingTypeCodeDescription(event(0x07, 0x20, 0x00)),
              "Assertion: ");  // an undefined event type
}

TEST(IpmiEventBuilder, SensorSpecificOffsetsAreKeyedByTheSensorType) {
    EXPECT_EQ(builder().buildEventReadingTypeCodeDescription(event(0x07, 0x6F, 0xA1)),
              "Assertion: Thermal Trip");
    EXPECT_EQ(builder().buildSpecificOffsetDescription(event(0x01, 0x6F, 0x05)), "Temperature");
}

// --- message ---

TEST(IpmiEventBuilder, OsStopShowsTheRecordsRawBytesWhateverTheSdr) {
    const RawSelEntry stop = event(0x20, 0x6F, 0x01, 0x42, 0x43, 0x41);
    EXPECT_EQ(builder().buildMessage(stop, linearSdr(1, 0, 0, 0, 1)),
              "(OS Stop / Shutdown - ABC): Assertion: Run-time Critical Stop (a.k.a. 'core "
              "dump', 'blue screen')  ");
    EXPECT_EQ(builder().buildMessage(stop, RawSDR()),
              "(OS Stop / Shutdown - ABC): Assertion: Run-time Critical Stop (a.k.a. 'core "
              "dump', 'blue screen')  ");
}

TEST(IpmiEventBuilder, OsStopKeepsAZeroByteInTheMessage) {
    const RawSelEntry stop = event(0x20, 0x6F, 0x00, 0x00, 0x21, 0x4B);
    const std::string message = builder().buildMessage(stop, RawSDR());
    EXPECT_EQ(message, std::string("(OS Stop / Shutdown - K") + '\0' +
                           "!): Assertion: Critical stop during OS load / initialization  ");
}

TEST(IpmiEventBuilder, ReservedSensorTypeWithSdrDropsTheTypeName) {
    EXPECT_EQ(builder().buildMessage(event(0x50, 0x03, 0x01), linearSdr(1, 0, 0, 0, 1)),
              "Processor 1 (CPU1 Temp): Assertion: State Asserted  ");
}

TEST(IpmiEventBuilder, ReservedSensorTypeWithoutSdrLeavesEmptyParentheses) {
    EXPECT_EQ(builder().buildMessage(event(0x2D, 0x03, 0x01)), " (): Assertion: State Asserted");
    EXPECT_EQ(builder().buildMessage(event(0x00, 0x03, 0x00)), " (): Assertion: State Deasserted");
}

TEST(IpmiEventBuilder, EntityInstanceMasksTheLogicalFlagAndFoldsDeviceRelative) {
    EXPECT_EQ(builder().buildEntityInstanceNumber(sdrImage({{9, 0xE3}}, "")), 3);
    EXPECT_EQ(builder().buildEntityInstanceNumber(sdrImage({{9, 0x5F}}, "")), 95);
    EXPECT_EQ(builder().buildEntityInstanceNumber(sdrImage({{9, 0x60}}, "")), 0);
    EXPECT_EQ(builder().buildEntityInstanceNumber(sdrImage({{9, 0x81}}, "")), 1);
}

TEST(IpmiEventBuilder, SensorIdIsAtMostSixteenCharactersAndEndsAtAZero) {
    EXPECT_EQ(builder().buildSensorIdString(sdrImage({}, "ABCDEFGHIJKLMNOP")), "ABCDEFGHIJKLMNOP");
    EXPECT_EQ(builder().buildSensorIdString(sdrImage({}, std::string("AB\0CD", 5))), "AB");
    EXPECT_EQ(builder().buildSensorIdString(RawSDR()), "");
}

// --- source ---

std::string source(unsigned char generator, unsigned char channelAndLun) {
    RawSelEntry sel = event(0x01, 0x01, 0x00);
    sel.generatorId[0] = generator;
    sel.generatorId[1] = channelAndLun;
    char text[512] = {};
    builder().buildSource(sel, text, sizeof text);
    return text;
}

TEST(IpmiEventBuilder, SourceOfAnIpmbDeviceShowsAddressLunAndChannel) {
    EXPECT_EQ(source(0x20, 0x00), "16 (address). IPMB device LUN 0. Channel 0. ");
    EXPECT_EQ(source(0x2C, 0x73), "22 (address). IPMB device LUN 3. Channel 7. ");
}

TEST(IpmiEventBuilder, SourceOfSoftwareNamesItsClass) {
    EXPECT_EQ(source(0x01, 0x00), "BIOS. Channel 0. ");
    EXPECT_EQ(source(0x1F, 0x00), "BIOS. Channel 0. ");
    EXPECT_EQ(source(0x21, 0x10), "SMI Handler. Channel 1. ");
    EXPECT_EQ(source(0x41, 0x03), "System Mgt Software. Channel 0. ");  // no LUN for software
    EXPECT_EQ(source(0x61, 0x00), "OEM. Channel 0. ");
    EXPECT_EQ(source(0x81, 0x00), "Remote Console software 1-7. Channel 0. ");
    EXPECT_EQ(source(0x8D, 0x00), "Remote Console software 1-7. Channel 0. ");
    EXPECT_EQ(source(0x8F, 0xF0), "Terminal Mode Remote Console software. Channel 15. ");
    EXPECT_EQ(source(0x91, 0x20), "reserved. Channel 2. ");
    EXPECT_EQ(source(0xFF, 0x00), "reserved. Channel 0. ");
}

TEST(IpmiEventBuilder, SourceIsCopiedWithStrncpy) {
    char text[8];
    std::memset(text, 'x', sizeof text);
    EXPECT_EQ(builder().buildSource(event(0x01, 0x01, 0x00), text, 5), text);
    EXPECT_EQ(std::string(text, 8), "16 (axxx");  // cut without a terminator, as strncpy does
}

// --- time stamp and severity ---

std::string timeStamp(unsigned char b0, unsigned char b1, unsigned char b2, unsigned char b3) {
    RawSelEntry sel = event(0x01, 0x01, 0x00);
    sel.timestamp[0] = b0;
    sel.timestamp[1] = b1;
    sel.timestamp[2] = b2;
    sel.timestamp[3] = b3;
    return builder().buildTimeStamp(sel);
}

TEST(IpmiEventBuilder, TimeStampsUpToTheInitializationBoundaryAreUnspecified) {
    EXPECT_EQ(timeStamp(0xFF, 0xFF, 0xFF, 0xFF), "Unspecified");
    EXPECT_EQ(timeStamp(0x00, 0x00, 0x00, 0x20), "Unspecified");
    EXPECT_EQ(timeStamp(0x00, 0x00, 0x00, 0x00), "Unspecified");
    EXPECT_EQ(timeStamp(0x00, 0x00, 0x00, 0x80), "Unspecified");
    EXPECT_EQ(timeStamp(0x01, 0x00, 0x00, 0x20), "01/05/1987 18:48:33");
    EXPECT_EQ(timeStamp(0x00, 0x00, 0x00, 0x55), "03/11/2015 08:42:40");
    EXPECT_EQ(timeStamp(0xFF, 0xFF, 0xFF, 0x7F), "01/19/2038 03:14:07");
}

TEST(IpmiEventBuilder, SeverityBandsOfThePefSeverity) {
    const std::pair<unsigned char, int> cases[] = {{0x00, 0}, {0x02, 0}, {0x04, 0},
                                                   {0x05, 1}, {0x08, 1}, {0x09, 2},
                                                   {0x10, 2}, {0x20, 2}, {0xFF, 2}};
    for (const auto& [pef, severity] : cases) {
        EXPECT_EQ(builder().buildSeverity(filterWithSeverity(pef)), severity) << int{pef};
    }
}

// --- trigger readings and units ---

TEST(IpmiEventBuilder, TriggerTextOnlyForThresholdEvents) {
    const RawSDR sdr = linearSdr(1, 0, 0x00, 0x00, 0x01);
    EXPECT_EQ(builder().buildTriggerThreshold(event(0x01, 0x81, 0x50, 0x20, 0x30), sdr),
              " Trigger threshold value: 48.00 degrees C.      Trigger reading: 32.00 degrees C.");
    EXPECT_EQ(builder().buildTriggerThreshold(event(0x01, 0x02, 0x50, 0x20, 0x30), sdr), "");
    EXPECT_EQ(builder().buildTriggerThreshold(event(0x01, 0x6F, 0x50, 0x20, 0x30), sdr), "");
}

TEST(IpmiEventBuilder, ThresholdWithoutReadingComesTwice) {
    const RawSDR sdr = linearSdr(1, 0, 0x00, 0x00, 0x01);
    EXPECT_EQ(builder().buildTriggerThreshold(event(0x01, 0x01, 0x10, 0x20, 0x30), sdr),
              " Trigger threshold value: 48.00 degrees C.       Trigger threshold value: 48.00 "
              "degrees C.");
    EXPECT_EQ(builder().buildTriggerThreshold(event(0x01, 0x01, 0x40, 0x20, 0x30), sdr),
              "      Trigger reading: 32.00 degrees C.");
    EXPECT_EQ(builder().buildTriggerThreshold(event(0x01, 0x01, 0x00, 0x20, 0x30), sdr), "      ");
    // Bits 5:4 = 10 or bits 7:6 = 10 mean OEM codes, not readings.
    EXPECT_EQ(builder().buildTriggerThreshold(event(0x01, 0x01, 0xA0, 0x20, 0x30), sdr), "      ");
}

TEST(IpmiEventBuilder, LinearConversionWithMOneAndNoOffset) {
    EXPECT_EQ(units(linearSdr(1, 0, 0x00, 0x00, 0x01), 0x2D), "45.00 degrees C");
}

TEST(IpmiEventBuilder, RExponentIsTakenUnshifted) {
    // Nibble 1 gives 10^0, nibble 2 gives 10^16 in single precision.
    EXPECT_EQ(units(linearSdr(3, 0, 0x10, 0x00, 0x01), 7), "21.00 degrees C");
    EXPECT_EQ(units(linearSdr(1, 0, 0x20, 0x00, 0x01), 1), "10000000272564224.00 degrees C");
    // A negative exponent in the standard's sense (0xE: -2) scales by 10^224 and overflows
    // single precision.
    EXPECT_EQ(units(linearSdr(6, 0, 0xE0, 0x00, 0x04), 200), "inf Volts");
}

TEST(IpmiEventBuilder, OffsetBWithItsExponentAndSignedMAndB) {
    // B = 5 with B exponent -1 (nibble 0xF): 0.5; M = 2: 2 x 16 + 0.5.
    EXPECT_EQ(units(linearSdr(2, 5, 0x0F, 0x00, 0x02), 16), "32.50 degrees F");
    // B = 3 with exponent 2: 300.
    EXPECT_EQ(units(linearSdr(1, 3, 0x02, 0x00, 0x01), 10), "310.00 degrees C");
    // M = -2 (10 bits: 0x3FE), B = -5 (0x3FB).
    RawSDR negative = linearSdr(0xFE, 0xFB, 0x00, 0x00, 0x01);
    negative.bytes[25] = 0xC0;
    negative.bytes[27] = 0xC0;
    EXPECT_EQ(units(negative, 10), "-25.00 degrees C");
}

TEST(IpmiEventBuilder, NoConversionForNonLinearOrNonFullRecords) {
    RawSDR nonLinear = linearSdr(1, 0, 0x00, 0x00, 0x01);
    nonLinear.bytes[23] = 0x01;
    EXPECT_EQ(units(nonLinear, 0x2D), "0.00 degrees C");
    RawSDR compact = linearSdr(1, 0, 0x00, 0x00, 0x01);
    compact.bytes[3] = 0x02;
    EXPECT_EQ(units(compact, 0x2D), "0.00 degrees C");
    EXPECT_EQ(units(linearSdr(1, 0, 0x00, 0xC0, 0x01), 0x2D), "45.00 degrees C");
}

TEST(IpmiEventBuilder, SignedFormatsPrintTheRawByte) {
    EXPECT_EQ(units(linearSdr(9, 9, 0x00, 0x80, 0x01), 0xF6), "-10 degrees C");
    EXPECT_EQ(units(linearSdr(9, 9, 0x00, 0x40, 0x05), 0xFE), "-1 Amps");
    EXPECT_EQ(units(linearSdr(9, 9, 0x00, 0x40, 0x05), 0xFF), "-0 Amps");
    EXPECT_EQ(units(linearSdr(9, 9, 0x00, 0x40, 0x05), 0x05), "5 Amps");
}

TEST(IpmiEventBuilder, PercentageRateAndModifierUnits) {
    EXPECT_EQ(units(linearSdr(1, 0, 0x00, 0x01, 0x00), 50), "50.00% unspecified");
    EXPECT_EQ(units(linearSdr(1, 0, 0x00, 0x20, 0x29), 32), "32.00 per minute revolutions");
    EXPECT_EQ(units(linearSdr(1, 0, 0x00, 0x02, 0x06, 0x18), 20), "20.00 Watts/hour");
    EXPECT_EQ(units(linearSdr(1, 0, 0x00, 0x04, 0x05, 0x16), 20), "20.00 Amps*second");
    EXPECT_EQ(units(linearSdr(1, 0, 0x00, 0x06, 0x05), 20), "20.00 reserved units");
    EXPECT_EQ(units(linearSdr(1, 0, 0x00, 0x0E, 0x05), 20), "20.00 per uS reserved units");
}

TEST(IpmiEventBuilder, UnitCodesWithoutTextLeaveTheBlank) {
    EXPECT_EQ(units(linearSdr(1, 0, 0x00, 0x00, 91), 1), "1.00 ");  // key 99: no text
    EXPECT_EQ(units(linearSdr(1, 0, 0x00, 0x02, 0x06, 200), 1), "1.00 Watts/");
}

TEST(IpmiEventBuilder, GetStringReportsEmptyTexts) {
    char text[64];
    EXPECT_EQ(builder().GetString(9, text, sizeof text), 0);
    EXPECT_STREQ(text, "degrees C");
    EXPECT_EQ(builder().GetString(99, text, sizeof text), 6);
    EXPECT_STREQ(text, "");
    EXPECT_EQ(builder().GetString(-1, text, sizeof text), 6);
}

TEST(IpmiEventBuilder, OnesComplementOfNegativeValues) {
    char text[16];
    builder().GetOnesComplement(static_cast<char>(0x80), text, sizeof text);
    EXPECT_STREQ(text, "-127");
    builder().GetOnesComplement(0x7F, text, sizeof text);
    EXPECT_STREQ(text, "127");
}

// --- auxiliary log ---

IPMIExtendedSELDataEntry auxEntry(unsigned id, const std::string& data) {
    IPMIExtendedSELDataEntry entry;
    entry.SetSELRecordId(id & 0xFF, id >> 8);
    entry.SetType(0x01);
    entry.SetSeverity(0x40);
    entry.SetExtendedData(data);
    return entry;
}

TEST(IpmiEventBuilder, NoEntriesMeansNoExtendedData) {
    std::vector<IPMIExtendedSELDataEntry> none;
    EXPECT_EQ(builder().buildAuxiliaryLog(event(0x01, 0x01, 0x00), none), "No Extended Data");
}

TEST(IpmiEventBuilder, DefaultEntryRendersItsNotSetTexts) {
    std::vector<IPMIExtendedSELDataEntry> entries(1);  // SEL record ID 0
    RawSelEntry sel = event(0x01, 0x01, 0x00);
    sel.recordId[0] = 0x00;
    EXPECT_EQ(builder().buildAuxiliaryLog(sel, entries),
              "Type: Not set Sev: Not set Class: Not set Sub-Class: Not set Instance: Not set "
              "GUID: Not set Extended Data: ");
    EXPECT_TRUE(entries.empty());
}

TEST(IpmiEventBuilder, RecordIdBytesLookUpTheSixteenBitId) {
    std::vector<IPMIExtendedSELDataEntry> entries = {auxEntry(0x0034, "x"), auxEntry(0x1234, "y")};
    RawSelEntry sel = event(0x01, 0x01, 0x00);
    sel.recordId[0] = 0x34;
    sel.recordId[1] = 0x12;
    EXPECT_EQ(builder().buildAuxiliaryLog(sel, entries),
              "Type: PROGRESS_CODE Sev: ORV_ERROR_INFO Class: Not set Sub-Class: Not set "
              "Instance: Not set GUID: Not set Extended Data: y");
}

TEST(IpmiEventBuilder, DuplicatesAreConsumedInOrder) {
    std::vector<IPMIExtendedSELDataEntry> entries = {auxEntry(1, "first"), auxEntry(2, "other"),
                                                     auxEntry(1, "second")};
    const RawSelEntry sel = event(0x01, 0x01, 0x00);  // record ID 1
    const std::string prefix =
        "Type: PROGRESS_CODE Sev: ORV_ERROR_INFO Class: Not set Sub-Class: Not set Instance: "
        "Not set GUID: Not set Extended Data: ";
    EXPECT_EQ(builder().buildAuxiliaryLog(sel, entries), prefix + "first");
    EXPECT_EQ(builder().buildAuxiliaryLog(sel, entries), prefix + "second");
    EXPECT_EQ(builder().buildAuxiliaryLog(sel, entries), "No Extended Data");
    EXPECT_EQ(entries.size(), 1u);
}

TEST(IpmiEventBuilder, AZeroByteInAnEntryEndsTheText) {
    std::vector<IPMIExtendedSELDataEntry> entries = {auxEntry(1, std::string("0A\0 1B", 6))};
    EXPECT_EQ(builder().buildAuxiliaryLog(event(0x01, 0x01, 0x00), entries),
              "Type: PROGRESS_CODE Sev: ORV_ERROR_INFO Class: Not set Sub-Class: Not set "
              "Instance: Not set GUID: Not set Extended Data: 0A");
}

TEST(IpmiEventBuilder, BuildTakesTheEntriesByValue) {
    const std::vector<IPMIExtendedSELDataEntry> entries = {auxEntry(1, "only")};
    const RawSelEntry sel = event(0x01, 0x01, 0x00);
    const auto first = builder().build(sel, filterWithSeverity(0), entries);
    const auto second = builder().build(sel, filterWithSeverity(0), entries);
    EXPECT_EQ(first.auxLog, second.auxLog);
    EXPECT_NE(first.auxLog.find("Extended Data: only"), std::string::npos);
    EXPECT_EQ(entries.size(), 1u);
}

// --- trace lines ---

class BuilderLogTest : public ::testing::Test {
protected:
    void SetUp() override { Log::SetMinLogLevel(4); }
    void TearDown() override { Log::SetMinLogLevel(1); }
    LogCapture log;
};

TEST_F(BuilderLogTest, EachBuildTracesItsVariantWithTheRawPefSeverity) {
    const RawSelEntry sel = event(0x01, 0x01, 0x59, 0x5A, 0x50);
    builder().build(sel, filterWithSeverity(0x10), {});
    builder().build(sel, linearSdr(1, 0, 0, 0, 1), filterWithSeverity(0x08), {});
    EXPECT_EQ(log.text(),
              "[4] ipmi_event_log/IpmiEventBuilder:89 Plover_IpmiEventBuilder::build#2: recordId: "
              "1, timeStamp: 03/11/2015 08:42:40, message:  (Temperature - ): Assertion: Upper "
              "Critical - going high, sev: 16\n"
              "[4] ipmi_event_log/IpmiEventBuilder:61 Plover_IpmiEventBuilder::build#1: recordId: "
              "1, timeStamp: 03/11/2015 08:42:40, message: Processor 1 (Temperature - CPU1 Temp): "
              "Assertion: Upper Critical - going high   Trigger threshold value: 80.00 degrees "
              "C.      Trigger reading: 90.00 degrees C., sev: 8\n");
}

TEST_F(BuilderLogTest, OsStopTracesItsRawBytes) {
    builder().buildMessage(event(0x20, 0x6F, 0x01, 0x00, 0x43, 0x41), RawSDR());
    EXPECT_EQ(log.text(),
              "[4] ipmi_event_log/IpmiEventBuilder:121 sensorType = OS Stop / Shutdown "
              "ASCII code from sensor number, Event Data2, Event Data3 = A" +
                  loggedByte(0x00) + "C\n");
}

TEST_F(BuilderLogTest, NothingIsTracedBelowLevelFour) {
    Log::SetMinLogLevel(3);
    builder().build(event(0x20, 0x6F, 0x01), RawSDR(), filterWithSeverity(0), {});
    EXPECT_EQ(log.text(), "");
}

}  // namespace
