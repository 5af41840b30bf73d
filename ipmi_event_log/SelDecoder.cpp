#include <cstdio>
#include <ctime>
#include <utility>

#include "IpmiSelDecoding.h"
#include "SensorDirectory.h"
#include "ipmi/ByteReader.h"
#include "tables/EventDataDetails.h"
#include "tables/EventOffsetTexts.h"
#include "tables/ManufacturerNames.h"
#include "tables/OemRecordDetails.h"
#include "tables/SensorTypeCodeTable.h"

namespace Tolmar {

namespace {

using Kind = DecodedSelRecord::Kind;
using Time = DecodedSelRecord::Time;

constexpr std::size_t kRecordSize = 16;
// Record types (IPMI v2.0 section 32).
constexpr std::uint8_t kSystemEventRecord = 0x02;
constexpr std::uint8_t kFirstTimestampedOem = 0xC0;
constexpr std::uint8_t kFirstNonTimestampedOem = 0xE0;
// Time stamps (section 37): FFFFFFFFh unspecified; 20000000h and below count from the BMC's
// initialisation, not from 1970.
constexpr std::uint32_t kUnspecifiedTime = 0xFFFFFFFF;
constexpr std::uint32_t kLastPreInitTime = 0x20000000;
// System event record, byte 12: bit 7 set for a deassertion, bits 6:0 the event/reading type.
constexpr std::uint8_t kDeassertion = 0x80;
constexpr std::uint8_t kEventTypeMask = 0x7F;
constexpr std::uint8_t kOffsetMask = 0x0F;
constexpr std::uint8_t kThresholdType = 0x01;
// Event data 1 bits 7:6 and 5:4 of a threshold event: 01b, the trigger reading in byte 2 and the
// trigger threshold in byte 3 (table 29-6).
constexpr std::uint8_t kTriggerInByte = 0x01;
constexpr std::size_t kTimestampedOemBytes = 6;
constexpr std::size_t kUntimedBytes = 13;

Kind kindOf(std::uint8_t recordType) {
    if (recordType == kSystemEventRecord) return Kind::SystemEvent;
    if (recordType >= kFirstNonTimestampedOem) return Kind::NonTimestampedOem;
    if (recordType >= kFirstTimestampedOem) return Kind::TimestampedOem;
    return Kind::Unknown;
}

Time timeOf(std::uint32_t timestamp) {
    if (timestamp == kUnspecifiedTime) return Time::Unspecified;
    return timestamp <= kLastPreInitTime ? Time::PreInit : Time::Absolute;
}

std::string hexBytes(const std::vector<std::uint8_t>& bytes) {
    std::string text;
    char digits[4];
    for (std::uint8_t byte : bytes) {
        std::snprintf(digits, sizeof digits, text.empty() ? "%02x" : " %02x", byte);
        text += digits;
    }
    return text;
}

std::string valueText(const SensorValue& value) {
    char number[32];
    std::snprintf(number, sizeof number, "%.2f", value.value);
    return value.units.empty() ? number : std::string(number) + " " + value.units;
}

// The trigger reading (byte 2) or threshold (byte 3) a threshold event carries, converted when
// the sensor's SDR gives readings, as raw hexadecimal otherwise.
void addTrigger(DecodedSelRecord& record, const std::optional<SensorIdentity>& sensor,
                std::size_t byte, std::optional<SensorValue>& value, const char* what) {
    const std::uint8_t use = byte == 1 ? record.eventData[0] >> 6 : (record.eventData[0] >> 4) & 3;
    if (record.eventType != kThresholdType || use != kTriggerInByte) return;
    const std::uint8_t raw = record.eventData[byte];
    if (sensor && sensor->conversion) value = sensor->conversion->convert(raw);
    char text[64];
    if (value) {
        std::snprintf(text, sizeof text, "%s = %s", what, valueText(*value).c_str());
    } else {
        std::snprintf(text, sizeof text, "%s = %02Xh", what, raw);
    }
    record.details.push_back(text);
}

std::string sensorText(const DecodedSelRecord& record) {
    char number[16];
    std::snprintf(number, sizeof number, "#0x%02X", record.sensorNumber);
    return record.sensorTypeName + " " + (record.sensorName ? *record.sensorName : number);
}

// Details as one text: "a ; b ; c".
std::string joined(const std::vector<std::string>& texts) {
    std::string text;
    for (const std::string& part : texts) text += (text.empty() ? "" : " ; ") + part;
    return text;
}

std::string systemEventDescription(const DecodedSelRecord& record) {
    const std::string description =
        record.event + " | " + (record.assertion ? "Asserted" : "Deasserted");
    return record.details.empty() ? description : description + " | " + joined(record.details);
}

std::string oemSource(const DecodedSelRecord& record) {
    char type[40];
    const char* format =
        record.kind == Kind::Unknown ? "Unknown record type %02Xh" : "OEM record %02Xh";
    std::snprintf(type, sizeof type, format, record.recordType);
    return type;
}

std::string oemDescription(const DecodedSelRecord& record) {
    std::string description = hexBytes(record.oemData);
    if (record.kind == Kind::TimestampedOem) {
        const std::string number = std::to_string(record.manufacturerId);
        description = (record.manufacturer ? *record.manufacturer + " (" + number + ")"
                                           : "Manufacturer ID " + number) +
                      " | " + description;
    }
    return record.details.empty() ? description : description + " | " + joined(record.details);
}

void decodeSystemEvent(ByteReader& reader, DecodedSelRecord& record, const SensorDirectory& sensors,
                       const std::optional<BmcIdentity>& bmc) {
    record.generatorId = reader.u16();
    reader.skip(1);  // event message format revision
    record.sensorType = reader.u8();
    record.sensorNumber = reader.u8();
    const std::uint8_t directionAndType = reader.u8();
    reader.bytes(record.eventData.data(), record.eventData.size());
    record.eventType = directionAndType & kEventTypeMask;
    record.assertion = !(directionAndType & kDeassertion);
    record.offset = record.eventData[0] & kOffsetMask;
    record.sensorTypeName = SensorTypeCodeTable::table.getSensorTypeName(record.sensorType);
    record.event = eventOffsetText(record.eventType, record.sensorType, record.offset);

    const std::optional<SensorIdentity> sensor =
        sensors.find(record.generatorId, record.sensorNumber);
    if (sensor) record.sensorName = sensor->name;
    addTrigger(record, sensor, 1, record.reading, "Trigger reading");
    addTrigger(record, sensor, 2, record.threshold, "Trigger threshold");
    const EventDataFields fields{static_cast<std::uint8_t>(record.generatorId & 0xFF),
                                 record.sensorType, record.sensorNumber, record.eventType,
                                 record.eventData};
    for (std::string& text : eventDataDetails(fields, bmc)) {
        record.details.push_back(std::move(text));
    }
    record.source = sensorText(record);
    record.description = systemEventDescription(record);
}

}  // namespace

std::string selTimeText(const DecodedSelRecord& record) {
    char text[40] = "Unspecified";
    if (record.time == Time::PreInit) {
        std::snprintf(text, sizeof text, "PreInit +%lus",
                      static_cast<unsigned long>(record.timestamp));
    } else if (record.time == Time::Absolute) {
        const std::time_t seconds = record.timestamp;
        std::tm utc{};
        gmtime_r(&seconds, &utc);
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &utc);
    }
    return text;
}

SelDecoder::SelDecoder(std::vector<std::vector<std::uint8_t>> sdrs)
    : sensors_(std::make_shared<const SensorDirectory>(sdrs)) {}

SelDecoder::SelDecoder(std::vector<std::vector<std::uint8_t>> sdrs, BmcIdentity bmc)
    : sensors_(std::make_shared<const SensorDirectory>(sdrs)), bmc_(bmc) {}

DecodedSelRecord SelDecoder::decode(const std::array<std::uint8_t, 16>& bytes) const {
    static_assert(sizeof bytes == kRecordSize, "a SEL record is 16 bytes");
    ByteReader reader(bytes.data(), bytes.size());
    DecodedSelRecord record;
    record.recordId = reader.u16();
    record.recordType = reader.u8();
    record.kind = kindOf(record.recordType);
    if (record.kind == Kind::SystemEvent || record.kind == Kind::TimestampedOem) {
        record.timestamp = reader.u32();
        record.time = timeOf(record.timestamp);
    }
    switch (record.kind) {
        case Kind::SystemEvent:
            decodeSystemEvent(reader, record, *sensors_, bmc_);
            break;
        case Kind::TimestampedOem:
            record.manufacturerId = reader.u24();
            record.manufacturer = manufacturerName(record.manufacturerId);
            reader.bytes(record.oemData, kTimestampedOemBytes);
            break;
        default:
            reader.bytes(record.oemData, kUntimedBytes);
    }
    if (record.kind == Kind::TimestampedOem || record.kind == Kind::NonTimestampedOem) {
        record.details = oemRecordDetails(record.recordType, record.oemData);
    }
    if (record.kind != Kind::SystemEvent) {
        record.source = oemSource(record);
        record.description = oemDescription(record);
    }
    record.message = selTimeText(record) + " | " + record.source + " | " + record.description;
    return record;
}

}  // namespace Tolmar
