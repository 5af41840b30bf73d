// What the tool writes of a record's IPMI v2.0 meaning (DecodedSelRecord), as the IPMI source
// gives it: the keys JSON and JSON lines add, the columns CSV adds, and the time stamp the IPMI
// rendering's table shows, from records made by hand, one of each kind.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <sstream>

#include "base/TimeText.h"
#include "fleet/IpmiEventSource.h"
#include "output/Output.h"

namespace {

using Kind = Tolmar::DecodedSelRecord::Kind;
using Time = Tolmar::DecodedSelRecord::Time;
using tool::EventRow;
using tool::Format;
using tool::Rendering;

// 2022-12-14 13:40:44 UTC.
constexpr std::uint32_t kStamped = 0x6399D25C;

// The record as the follower gives it: an event of `id` worded as the record's `source` and
// `description`, severity info, its time stamp the library's text `timeStamp`.
Tolmar::FollowedEvent followed(std::uint16_t id, const Tolmar::DecodedSelRecord& record,
                               const std::string& timeStamp = "") {
    Tolmar::FollowedEvent f;
    f.record = record;
    f.event.recordId = id;
    f.event.timeStamp = timeStamp;
    f.event.severity = 0;
    f.event.source = record.source;
    f.event.message = record.description;
    f.event.auxLog = "";
    return f;
}

// The row of bmc1 the IPMI source makes of `f` in `rendering`. Its local time texts are this
// machine's time zone's when it is made.
EventRow row(const Tolmar::FollowedEvent& f, Rendering rendering = Rendering::Ipmi) {
    EventRow r;
    r.host = "bmc1";
    r.event = tool::ipmiEvent(f, rendering);
    return r;
}

EventRow row(std::uint16_t id, const Tolmar::DecodedSelRecord& record,
             Rendering rendering = Rendering::Ipmi) {
    return row(followed(id, record), rendering);
}

// A threshold event of a sensor the SDR repository describes: voltage SYS_12V went above its
// upper critical threshold, event data 1 saying that bytes 2 and 3 hold the trigger reading and
// threshold.
Tolmar::DecodedSelRecord voltageAboveCritical() {
    Tolmar::DecodedSelRecord r;
    r.recordId = 0x0030;
    r.recordType = 0x02;  // system event
    r.kind = Kind::SystemEvent;
    r.time = Time::Absolute;
    r.timestamp = kStamped;
    r.generatorId = 0x0020;  // the BMC, IPMB address 20h, LUN 0, channel 0
    r.sensorType = 0x02;     // voltage
    r.sensorTypeName = "Voltage";
    r.sensorNumber = 0x30;
    r.sensorName = "SYS_12V";
    r.eventType = 0x01;  // threshold
    r.assertion = true;
    r.offset = 0x09;  // upper critical going high
    // Event data 1: bits 7:6 01b trigger reading in byte 2, bits 5:4 01b trigger threshold in
    // byte 3, bits 3:0 the offset; bytes 2 and 3 the raw reading and threshold.
    r.eventData = {0x59, 0x7F, 0x7E};
    r.event = "Upper Critical going high";
    r.reading = Tolmar::SensorValue{127 * 0.08, "Volts"};  // rounding noise of the conversion
    r.threshold = Tolmar::SensorValue{126 * 0.08, "Volts"};
    r.source = "Voltage SYS_12V";
    r.description =
        "Upper Critical going high | Asserted | Trigger reading = 10.16 Volts ; "
        "Trigger threshold = 10.08 Volts";
    return r;
}

// A sensor-specific event of a sensor no SDR describes: processor 0x05, IERR deasserted.
Tolmar::DecodedSelRecord processorWithoutSdr() {
    Tolmar::DecodedSelRecord r;
    r.recordId = 0x0031;
    r.recordType = 0x02;
    r.kind = Kind::SystemEvent;
    r.time = Time::Absolute;
    r.timestamp = kStamped;
    r.generatorId = 0x0041;  // system software ID 20h (bit 0 set: a software ID)
    r.sensorType = 0x07;     // processor
    r.sensorTypeName = "Processor";
    r.sensorNumber = 0x05;
    r.eventType = 0x6F;  // sensor-specific
    r.assertion = false;
    r.offset = 0x00;  // IERR
    r.eventData = {0x00, 0xFF, 0xFF};
    r.event = "IERR";
    r.source = "Processor #0x05";
    r.description = "IERR | Deasserted";
    return r;
}

// A timestamped OEM record (C1h): manufacturer ID 000157h (Intel), six bytes of its own.
Tolmar::DecodedSelRecord timestampedOem() {
    Tolmar::DecodedSelRecord r;
    r.recordId = 0x0032;
    r.recordType = 0xC1;
    r.kind = Kind::TimestampedOem;
    r.time = Time::Absolute;
    r.timestamp = kStamped;
    r.manufacturerId = 0x000157;
    r.manufacturer = "Intel Corporation";
    r.oemData = {0x01, 0x02, 0xAB, 0xCD, 0xEF, 0x00};
    r.source = "OEM record C1h";
    r.description = "Intel Corporation | 01 02 ab cd ef 00";
    return r;
}

// A non-timestamped OEM record (E0h), or a record of type `type` unknown to IPMI v2.0: thirteen
// bytes after the type, no time stamp, no manufacturer.
Tolmar::DecodedSelRecord untimed(std::uint8_t type) {
    Tolmar::DecodedSelRecord r;
    r.recordId = 0x0033;
    r.recordType = type;
    r.kind = type >= 0xE0 ? Kind::NonTimestampedOem : Kind::Unknown;
    r.time = Time::Unspecified;
    r.timestamp = 0xFFFFFFFF;
    r.oemData = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xFF};
    r.source = type >= 0xE0 ? "OEM record E0h" : "Unknown record type 05h";
    r.description = "00 11 22 33 44 55 66 77 88 99 aa bb ff";
    return r;
}

// The processor's event, stamped 5 s after the BMC's initialisation, or with FFFFFFFFh, no time.
Tolmar::DecodedSelRecord processorAt(Time time, std::uint32_t timestamp) {
    Tolmar::DecodedSelRecord r = processorWithoutSdr();
    r.time = time;
    r.timestamp = timestamp;
    return r;
}

std::string written(const std::vector<EventRow>& rows, Format format, bool localTime = false) {
    tool::Style style;
    style.format = format;
    style.columns = tool::ipmiEventColumns();
    style.localTime = localTime;
    std::ostringstream out;
    tool::writeEvents(out, rows, style);
    return out.str();
}

// What a JSON line holds after the keys every event has.
std::string recordKeys(const std::string& line) {
    const std::string complete = "\"complete\":true";
    const std::size_t at = line.find(complete);
    return at == std::string::npos ? "" : line.substr(at + complete.size());
}

// The CSV cells after `complete`'s, of the first row.
std::string recordCells(const std::string& csv) {
    const std::size_t row = csv.find("\r\n") + 2;
    const std::size_t at = csv.find(",true,", row);
    return at == std::string::npos ? "" : csv.substr(at + 6, csv.find("\r\n", row) - at - 6);
}

TEST(EventRecordJson, ThresholdEventWithItsSdrCarriesSensorReadingAndThreshold) {
    EXPECT_EQ(recordKeys(written({row(0x30, voltageAboveCritical())}, Format::Jsonl)),
              ",\"recordType\":2,\"time\":\"2022-12-14T13:40:44Z\",\"generatorId\":32,"
              "\"sensorType\":2,\"sensorTypeName\":\"Voltage\",\"sensorNumber\":48,"
              "\"sensorName\":\"SYS_12V\",\"eventType\":1,\"direction\":\"assertion\","
              "\"offset\":9,\"eventData\":[89,127,126],"
              "\"reading\":{\"value\":10.16,\"units\":\"Volts\"},"
              "\"threshold\":{\"value\":10.08,\"units\":\"Volts\"}}\n");
}

TEST(EventRecordJson, SystemEventWithoutAnSdrHasANullSensorNameAndNoReading) {
    EXPECT_EQ(recordKeys(written({row(0x31, processorWithoutSdr())}, Format::Jsonl)),
              ",\"recordType\":2,\"time\":\"2022-12-14T13:40:44Z\",\"generatorId\":65,"
              "\"sensorType\":7,\"sensorTypeName\":\"Processor\",\"sensorNumber\":5,"
              "\"sensorName\":null,\"eventType\":111,\"direction\":\"deassertion\","
              "\"offset\":0,\"eventData\":[0,255,255]}\n");
}

TEST(EventRecordJson, ReadingsThatAreNotFiniteNumbersAreLeftOut) {
    Tolmar::DecodedSelRecord record = voltageAboveCritical();
    record.reading->value = std::numeric_limits<double>::infinity();
    record.threshold->value = std::nan("");
    const std::string line = written({row(0x30, record)}, Format::Jsonl);
    EXPECT_EQ(line.find("\"reading\""), std::string::npos) << line;
    EXPECT_EQ(line.find("\"threshold\""), std::string::npos) << line;
    EXPECT_NE(line.find(",\"eventData\":[89,127,126]}\n"), std::string::npos) << line;
    // Only the one that is finite, when one is.
    record.threshold->value = -1.5e-7;
    EXPECT_NE(written({row(0x30, record)}, Format::Jsonl)
                  .find(",\"eventData\":[89,127,126],\"threshold\":{\"value\":-1.5e-07,"
                        "\"units\":\"Volts\"}}\n"),
              std::string::npos);
}

TEST(EventRecordJson, TimestampedOemRecordCarriesItsManufacturerAndBytes) {
    EXPECT_EQ(recordKeys(written({row(0x32, timestampedOem())}, Format::Jsonl)),
              ",\"recordType\":193,\"time\":\"2022-12-14T13:40:44Z\",\"manufacturerId\":343,"
              "\"manufacturer\":\"Intel Corporation\",\"oemData\":\"0102abcdef00\"}\n");
    Tolmar::DecodedSelRecord unnamed = timestampedOem();
    unnamed.manufacturerId = 0x0ABCDE;
    unnamed.manufacturer.reset();
    EXPECT_EQ(recordKeys(written({row(0x32, unnamed)}, Format::Jsonl)),
              ",\"recordType\":193,\"time\":\"2022-12-14T13:40:44Z\",\"manufacturerId\":703710,"
              "\"manufacturer\":null,\"oemData\":\"0102abcdef00\"}\n");
}

TEST(EventRecordJson, UntimedOemAndUnknownRecordsHaveNoTimeNorManufacturerId) {
    EXPECT_EQ(recordKeys(written({row(0x33, untimed(0xE0))}, Format::Jsonl)),
              ",\"recordType\":224,\"time\":null,\"manufacturer\":null,"
              "\"oemData\":\"00112233445566778899aabbff\"}\n");
    EXPECT_EQ(recordKeys(written({row(0x33, untimed(0x05))}, Format::Jsonl)),
              ",\"recordType\":5,\"time\":null,\"manufacturer\":null,"
              "\"oemData\":\"00112233445566778899aabbff\"}\n");
}

TEST(EventRecordJson, PreInitStampsGiveTheirSecondsAndNoTime) {
    const std::string preInit = written({row(0x31, processorAt(Time::PreInit, 5))}, Format::Jsonl);
    EXPECT_NE(preInit.find(",\"recordType\":2,\"time\":null,\"preInitSeconds\":5,"
                           "\"generatorId\":65,"),
              std::string::npos)
        << preInit;
    const std::string unspecified =
        written({row(0x31, processorAt(Time::Unspecified, 0xFFFFFFFF))}, Format::Jsonl);
    EXPECT_NE(unspecified.find(",\"recordType\":2,\"time\":null,\"generatorId\":65,"),
              std::string::npos)
        << unspecified;
    EXPECT_EQ(unspecified.find("preInitSeconds"), std::string::npos);
}

TEST(EventRecordJson, TheArrayHoldsTheSameObjectsAsTheLines) {
    const std::vector<EventRow> rows = {row(0x30, voltageAboveCritical()),
                                        row(0x32, timestampedOem())};
    const std::string lines = written(rows, Format::Jsonl);
    const std::string first = lines.substr(0, lines.find('\n'));
    const std::string second = lines.substr(first.size() + 1, lines.size() - first.size() - 2);
    EXPECT_EQ(written(rows, Format::Json), "[\n " + first + ",\n " + second + "\n]\n");
}

TEST(EventRecordJson, KeysAreFactsOfTheBytesInEitherRendering) {
    EXPECT_EQ(recordKeys(written({row(0x30, voltageAboveCritical(), Rendering::Described)},
                                 Format::Jsonl)),
              recordKeys(written({row(0x30, voltageAboveCritical())}, Format::Jsonl)));
}

TEST(EventRecordCsv, AddsTheRecordsColumnsAfterComplete) {
    EXPECT_EQ(written({}, Format::Csv),
              "host,recordId,timeStamp,severity,message,source,auxLog,complete,recordType,time,"
              "preInitSeconds,generatorId,sensorType,sensorTypeName,sensorNumber,sensorName,"
              "eventType,direction,offset,eventData,reading,readingUnits,threshold,"
              "thresholdUnits,manufacturerId,manufacturer,oemData\r\n");
}

TEST(EventRecordCsv, CellsOfEachKindOfRecordAreEmptyWhereTheyDoNotApply) {
    const auto cells = [](const Tolmar::DecodedSelRecord& record) {
        return recordCells(written({row(record.recordId, record)}, Format::Csv));
    };
    EXPECT_EQ(cells(voltageAboveCritical()),
              "2,2022-12-14T13:40:44Z,,32,2,Voltage,48,SYS_12V,1,assertion,9,89 127 126,10.16,"
              "Volts,10.08,Volts,,,");
    EXPECT_EQ(cells(processorWithoutSdr()),
              "2,2022-12-14T13:40:44Z,,65,7,Processor,5,,111,deassertion,0,0 255 255,,,,,,,");
    EXPECT_EQ(cells(processorAt(Time::PreInit, 5)),
              "2,,5,65,7,Processor,5,,111,deassertion,0,0 255 255,,,,,,,");
    EXPECT_EQ(cells(processorAt(Time::Unspecified, 0xFFFFFFFF)),
              "2,,,65,7,Processor,5,,111,deassertion,0,0 255 255,,,,,,,");
    EXPECT_EQ(cells(timestampedOem()),
              "193,2022-12-14T13:40:44Z,,,,,,,,,,,,,,,343,Intel Corporation,0102abcdef00");
    EXPECT_EQ(cells(untimed(0xE0)), "224,,,,,,,,,,,,,,,,,,00112233445566778899aabbff");
    EXPECT_EQ(cells(untimed(0x05)), "5,,,,,,,,,,,,,,,,,,00112233445566778899aabbff");
}

TEST(EventRecordCsv, TextsAreQuotedAndEscapedAsTheOtherColumns) {
    Tolmar::DecodedSelRecord record = voltageAboveCritical();
    record.sensorName = std::string("P1,\"V\"\x01", 7);
    record.reading->units = "% Volts";
    EXPECT_EQ(recordCells(written({row(0x30, record)}, Format::Csv)),
              "2,2022-12-14T13:40:44Z,,32,2,Voltage,48,\"P1,\"\"V\"\"\\x01\",1,assertion,9,"
              "89 127 126,10.16,% Volts,10.08,Volts,,,");
}

TEST(EventRecordTable, TheIpmiRenderingShowsTheRecordsTimeSourceAndMessage) {
    // The event's own time stamp text is not what the IPMI rendering's table shows.
    const std::string stamp = "01/01/1970 00:00:00";
    std::vector<EventRow> rows = {row(followed(0x30, voltageAboveCritical(), stamp)),
                                  row(followed(0x31, processorAt(Time::PreInit, 5), stamp)),
                                  row(followed(0x33, untimed(0xE0), stamp))};
    rows[0].event.severity = tool::Severity::Critical;
    tool::Style style;
    style.columns = tool::ipmiEventColumns();
    style.wide = true;
    std::ostringstream out;
    tool::writeEvents(out, rows, style);
    const std::string longest = voltageAboveCritical().description;
    EXPECT_EQ(out.str(),
              "ID      TIME                     SEVERITY  SOURCE           MESSAGE" +
                  std::string(longest.size() - 5, ' ') + "AUXILIARY LOG\n" +
                  "0x0030  2022-12-14 13:40:44 UTC  critical  Voltage SYS_12V  " + longest +
                  "\n"
                  "0x0031  PreInit +5s              info      Processor #0x05  IERR | Deasserted\n"
                  "0x0033  Unspecified              info      OEM record E0h   00 11 22 33 44 55 "
                  "66 77 88 99 aa bb ff\n");
}

TEST(EventRecordTable, LocalTimeAppliesToAbsoluteStampsOnly) {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    const std::vector<EventRow> rows = {row(0x30, voltageAboveCritical()),
                                        row(0x31, processorAt(Time::PreInit, 5)),
                                        row(0x31, processorAt(Time::Unspecified, 0xFFFFFFFF))};
    const std::string csv = written(rows, Format::Csv, /*localTime=*/true);
    EXPECT_NE(csv.find("\r\nbmc1,0x0030,2022-12-14 14:40:44 CET,info,"), std::string::npos) << csv;
    EXPECT_NE(csv.find("\r\nbmc1,0x0031,PreInit +5s,"), std::string::npos) << csv;
    EXPECT_NE(csv.find("\r\nbmc1,0x0031,Unspecified,"), std::string::npos) << csv;
    // JSON's timeStamp is the table's; its time, UTC.
    const std::string line = written({rows[0]}, Format::Jsonl, true);
    EXPECT_NE(line.find("\"timeStamp\":\"2022-12-14 14:40:44 CET\","), std::string::npos) << line;
    EXPECT_NE(line.find(",\"time\":\"2022-12-14T13:40:44Z\","), std::string::npos) << line;
    setenv("TZ", "UTC", 1);
    tzset();
}

TEST(EventRecordTable, TheDescribedRenderingShowsTheEventsOwnTimeStamp) {
    const Tolmar::FollowedEvent described =
        followed(0x30, voltageAboveCritical(), "12/14/2022 13:40:44");
    EXPECT_NE(written({row(described, Rendering::Described)}, Format::Csv)
                  .find("\r\nbmc1,0x0030,12/14/2022 13:40:44,info,"),
              std::string::npos);
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    EXPECT_NE(written({row(described, Rendering::Described)}, Format::Csv, true)
                  .find("\r\nbmc1,0x0030,12/14/2022 14:40:44,info,"),
              std::string::npos);
    setenv("TZ", "UTC", 1);
    tzset();
}

TEST(EventRecordTime, TextsOfEachKindOfTimeStamp) {
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_EQ(tool::recordTimeText(voltageAboveCritical(), false), "2022-12-14 13:40:44 UTC");
    EXPECT_EQ(tool::recordTimeText(voltageAboveCritical(), true), "2022-12-14 13:40:44 UTC");
    EXPECT_EQ(tool::recordTimeText(processorAt(Time::PreInit, 0x20000000), false),
              "PreInit +536870912s");
    EXPECT_EQ(tool::recordTimeText(untimed(0xE0), true), "Unspecified");
    // The moment of an absolute stamp only.
    EXPECT_EQ(row(0x30, voltageAboveCritical()).event.time,
              std::optional<tool::EventTime>(std::chrono::system_clock::from_time_t(kStamped)));
    EXPECT_EQ(row(0x31, processorAt(Time::PreInit, 5)).event.time, std::nullopt);
    EXPECT_EQ(tool::isoUtcText(0), "1970-01-01T00:00:00Z");
    // The last absolute stamp a record can hold, beyond 2038.
    EXPECT_EQ(tool::isoUtcText(0xFFFFFFFE), "2106-02-07T06:28:14Z");
}

TEST(EventRecordNumbers, ValuesAreShortValidJsonNumbers) {
    EXPECT_EQ(tool::valueNumber(127 * 0.08), "10.16");
    EXPECT_EQ(tool::valueNumber(0), "0");
    EXPECT_EQ(tool::valueNumber(-40), "-40");
    EXPECT_EQ(tool::valueNumber(7650), "7650");
    EXPECT_EQ(tool::valueNumber(1e20), "1e+20");
}

}  // namespace
