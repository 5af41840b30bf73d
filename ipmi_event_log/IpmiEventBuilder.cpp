#include "IpmiEventBuilder.h"

#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "IPMIAuxiliaryLog.h"
#include "Log.h"
#include "StringCch.h"
#include "ipmi/ByteReader.h"
#include "tables/EntityIdCodeTable.h"
#include "tables/EventReadingTypeCodeOffsetTable.h"
#include "tables/EventReadingTypeCodeTable.h"
#include "tables/SensorTypeCodeOffsetTable.h"
#include "tables/SensorTypeCodeTable.h"
#include "tables/ThresholdOffsetTable.h"

namespace Tolmar {

IpmiEventBuilder IpmiEventBuilder::builder;

namespace {

const char* const kLogSource = "ipmi_event_log/IpmiEventBuilder";
constexpr int kBuildWithSdrLogLine = 61;
constexpr int kBuildWithoutSdrLogLine = 89;
constexpr int kOsStopLogLine = 121;

constexpr unsigned char kOsStopSensorType = 0x20;
constexpr unsigned char kThresholdEventType = 0x01;
constexpr unsigned char kEventTypeMask = 0x7F;
constexpr unsigned char kDeassertion = 0x80;
constexpr unsigned char kOffsetMask = 0x0F;
constexpr std::int32_t kLastUnspecifiedTime = 0x20000000;  // up to here: relative to BMC start

// Full sensor record positions (IPMI v2.0 table 43-1).
constexpr int kRecordType = 3;
constexpr int kEntityId = 8;
constexpr int kEntityInstance = 9;
constexpr int kSensorUnits1 = 20;
constexpr int kBaseUnit = 21;
constexpr int kModifierUnit = 22;
constexpr int kLinearization = 23;
constexpr int kMLow = 24;
constexpr int kMHigh = 25;
constexpr int kBLow = 26;
constexpr int kBHigh = 27;
constexpr int kExponents = 29;
constexpr int kIdString = 48;
constexpr int kIdStringLength = 16;

constexpr int kUnitKeyOffset = 8;  // unit type codes follow the eight rate units in one key space

bool logsTraces() { return Log::GetMinLogLevel() > 3; }

// The value rounded to single precision, as readings are printed. Beyond float's range IEEE
// rounding gives infinity (from FLT_MAX plus half its last place on) or FLT_MAX; a plain
// conversion would be undefined there.
double singlePrecision(double value) {
    constexpr double firstInfinite = 0x1.ffffffp127;
    const double magnitude = std::fabs(value);
    if (magnitude >= firstInfinite) return std::copysign(HUGE_VAL, value);
    if (magnitude > FLT_MAX) return std::copysign(static_cast<double>(FLT_MAX), value);
    return static_cast<float>(value);
}

std::string softwareIdName(unsigned id) {
    if (id <= 0x0F) return "BIOS. ";
    if (id <= 0x1F) return "SMI Handler. ";
    if (id <= 0x2F) return "System Mgt Software. ";
    if (id <= 0x3F) return "OEM. ";
    if (id <= 0x46) return "Remote Console software 1-7. ";
    if (id == 0x47) return "Terminal Mode Remote Console software. ";
    return "reserved. ";
}

// A 10-bit two's complement value: low 8 bits, and the top 2 bits in bits 7:6 of `high`.
int tenBitSigned(unsigned char low, unsigned char high) {
    const int value = low | ((high & 0xC0) << 2);
    return value > 511 ? value - 1024 : value;
}

}  // namespace

IpmiEventBuilder* IpmiEventBuilder::getIpmiEventBuilder() { return &builder; }

// --- names looked up in the code tables ---

std::string IpmiEventBuilder::buildSensorTypeName(const RawSelEntry& sel) {
    return SensorTypeCodeTable::getSensorTypeCodeTable()->getSensorTypeName(sel.sensorType);
}

std::string IpmiEventBuilder::buildEntityName(const RawSDR& sdr) {
    return EntityIdCodeTable::getEntityIdCodeTable()->getEntityName(sdr.bytes[kEntityId]);
}

std::string IpmiEventBuilder::buildGenericOffsetDescription(const RawSelEntry& sel) {
    return EventReadingTypeCodeOffsetTable::getEventReadingTypeCodeOffsetTable()
        ->getEventDescription(sel.eventDirType & kEventTypeMask, sel.eventData1 & kOffsetMask);
}

std::string IpmiEventBuilder::buildSpecificOffsetDescription(const RawSelEntry& sel) {
    // Keyed by the sensor type, not the event type.
    return SensorTypeCodeOffsetTable::getSensorTypeCodeOffsetTable()->getEventDescription(
        sel.sensorType, sel.eventData1 & kOffsetMask);
}

int IpmiEventBuilder::buildEntityInstanceNumber(const RawSDR& sdr) {
    // Bit 7 is the logical/physical flag. Device-relative instances 0x60-0x7F show as 0-31, the
    // same numbers as system-relative ones.
    constexpr int firstDeviceRelative = 0x60;
    const int instance = sdr.bytes[kEntityInstance] & 0x7F;
    return instance < firstDeviceRelative ? instance : instance - firstDeviceRelative;
}

std::string IpmiEventBuilder::buildSensorIdString(const RawSDR& sdr) {
    // The type/length byte is not consulted: the text ends at the first zero byte, at most 16.
    char text[kIdStringLength + 1] = {};
    std::memcpy(text, sdr.bytes + kIdString, kIdStringLength);
    return text;
}

// --- message ---

std::string IpmiEventBuilder::buildEventReadingTypeCodeDescription(const RawSelEntry& sel) {
    const std::string prefix = sel.eventDirType & kDeassertion ? "Deassertion: " : "Assertion: ";
    const unsigned char code = sel.eventDirType & kEventTypeMask;
    const EventReadingTypeCodeTable* types =
        EventReadingTypeCodeTable::getEventReadingTypeCodeTable();
    if (types->getEventReadingTypeCodeCategory(code) == EventReadingTypeCodeTable::oem) {
        return prefix;
    }
    const std::string description = types->isEventReadingTypeCodeGeneric(code)
                                        ? buildGenericOffsetDescription(sel)
                                        : buildSpecificOffsetDescription(sel);
    if (description.empty() || description == "Reserved") return prefix;
    return prefix + description;
}

std::string IpmiEventBuilder::buildMessage(const RawSelEntry& sel) {
    // Shaped like the message with sensor data, with entity, instance and sensor ID left out.
    const std::string typeName = buildSensorTypeName(sel);
    const std::string description = buildEventReadingTypeCodeDescription(sel);
    if (typeName != "Reserved" && !typeName.empty()) {
        return " (" + typeName + " - " + "): " + description;
    }
    return " (): " + description;
}

std::string IpmiEventBuilder::buildMessage(const RawSelEntry& sel, const RawSDR& sdr) {
    const std::string entity = buildEntityName(sdr);
    char instance[16] = {};
    StringCchPrintf(instance, sizeof instance, "%d", buildEntityInstanceNumber(sdr));
    const std::string typeName = buildSensorTypeName(sel);
    const std::string sensorId = buildSensorIdString(sdr);
    const std::string description = buildEventReadingTypeCodeDescription(sel);
    const std::string trigger = buildTriggerThreshold(sel, sdr);

    if (sel.sensorType == kOsStopSensorType) {
        // An OS stop record carries three characters of its own in the sensor number and event
        // data 2 and 3; they are shown as they are stored, a zero byte included.
        const char raw[] = {static_cast<char>(sel.sensorNum), static_cast<char>(sel.eventData2),
                            static_cast<char>(sel.eventData3)};
        const std::string ascii(raw, sizeof raw);
        if (logsTraces()) {
            Log(4, kLogSource, kOsStopLogLine).Stream()
                << "sensorType = " << typeName
                << " ASCII code from sensor number, Event Data2, Event Data3 = " << ascii;
        }
        return "(" + typeName + " - " + ascii + "): " + description + "  " + trigger;
    }
    if (typeName == "Reserved") {
        return entity + " " + instance + " (" + sensorId + "): " + description + "  " + trigger;
    }
    return entity + " " + instance + " (" + typeName + " - " + sensorId + "): " + description +
           "  " + trigger;
}

// --- source, time stamp, severity ---

char* IpmiEventBuilder::buildSource(const RawSelEntry& sel, char* out, unsigned int outLen) {
    char text[128] = {};
    char scratch[256] = {};
    const unsigned char generator = sel.generatorId[0];
    const unsigned char channelAndLun = sel.generatorId[1];
    const unsigned id = generator >> 1;
    if (generator & 0x01) {
        // A software ID; no LUN is shown for these.
        StringCchCat(scratch, sizeof scratch, softwareIdName(id).c_str());
        StringCchCopy(text, sizeof text, scratch);
    } else {
        // An IPMB slave address, in 7-bit form.
        StringCchPrintf(text, sizeof text, "%d (address). ", id);
        StringCchPrintf(scratch, sizeof scratch, "IPMB device LUN %d. ", channelAndLun & 0x03);
        StringCchCat(text, sizeof text, scratch);
    }
    StringCchPrintf(scratch, sizeof scratch, "Channel %d. ", channelAndLun >> 4);
    StringCchCat(text, sizeof text, scratch);
    return std::strncpy(out, text, outLen);
}

std::string IpmiEventBuilder::buildTimeStamp(const RawSelEntry& sel) {
    const std::uint32_t bits = ByteReader(sel.timestamp, sizeof sel.timestamp).u32();
    // Taken as signed, so 0x80000000-0xFFFFFFFF (0xFFFFFFFF: "unspecified") count as unspecified
    // too, like every time before the BMC's clock was set.
    const std::int32_t seconds = static_cast<std::int32_t>(bits);
    if (seconds <= kLastUnspecifiedTime) return "Unspecified";
    const std::time_t time = seconds;
    std::tm utc{};
    gmtime_r(&time, &utc);
    char text[32] = {};
    StringCchPrintf(text, sizeof text, "%02d/%02d/%d %02d:%02d:%02d", utc.tm_mon + 1, utc.tm_mday,
                    utc.tm_year + 1900, utc.tm_hour, utc.tm_min, utc.tm_sec);
    return text;
}

int IpmiEventBuilder::buildSeverity(const RawPETEntry& pet) {
    // PEF severities (IPMI v2.0 table 17-2): unspecified, monitor, information and OK give 0,
    // non-critical 1, critical and non-recoverable 2.
    if (pet.eventSeverity <= 4) return 0;
    if (pet.eventSeverity <= 8) return 1;
    return 2;
}

// --- the event ---

IpmiEventBuilder::IPMIEVENT IpmiEventBuilder::build(const RawSelEntry& sel, const RawPETEntry& pet,
                                                    std::vector<IPMIExtendedSELDataEntry> aux) {
    return buildEvent(sel, buildMessage(sel), pet, aux, "2", kBuildWithoutSdrLogLine);
}

IpmiEventBuilder::IPMIEVENT IpmiEventBuilder::build(const RawSelEntry& sel, const RawSDR& sdr,
                                                    const RawPETEntry& pet,
                                                    std::vector<IPMIExtendedSELDataEntry> aux) {
    return buildEvent(sel, buildMessage(sel, sdr), pet, aux, "1", kBuildWithSdrLogLine);
}

IpmiEventBuilder::IPMIEVENT IpmiEventBuilder::buildEvent(const RawSelEntry& sel,
                                                         std::string message,
                                                         const RawPETEntry& pet,
                                                         std::vector<IPMIExtendedSELDataEntry>& aux,
                                                         const char* variant, int logLine) {
    IPMIEVENT event;
    event.recordId = sel.id();
    event.timeStamp = buildTimeStamp(sel);
    event.message = std::move(message);
    event.severity = buildSeverity(pet);
    char source[512] = {};
    event.source = buildSource(sel, source, sizeof source);
    event.auxLog = buildAuxiliaryLog(sel, aux);
    if (logsTraces()) {
        // The raw PEF severity byte, not the 0/1/2 of the event.
        Log(4, kLogSource, logLine).Stream()
            << "Plover_IpmiEventBuilder::build#" << variant << ": recordId: " << event.recordId
            << ", timeStamp: " << event.timeStamp << ", message: " << event.message
            << ", sev: " << unsigned{pet.eventSeverity};
    }
    return event;
}

// --- trigger readings and units ---

std::string IpmiEventBuilder::buildTriggerThreshold(const RawSelEntry& sel, const RawSDR& sdr) {
    if ((sel.eventDirType & kEventTypeMask) != kThresholdEventType) return "";
    char text[256] = {};
    BuildThresholdValue(sel.eventData1, sel.eventData2, sel.eventData3, text, sizeof text, sdr);
    return text;
}

int IpmiEventBuilder::BuildThresholdValue(unsigned char eventData1, unsigned char eventData2,
                                          unsigned char eventData3, char* out, unsigned int outLen,
                                          const RawSDR& sdr) {
    // Event data 1 bits 5:4 = 01: event data 3 holds the trigger threshold; bits 7:6 = 01: event
    // data 2 holds the trigger reading (IPMI v2.0 table 29-6).
    std::memset(out, 0, outLen);
    char value[128] = {};
    char scratch[256] = {};
    if ((eventData1 & 0x30) == 0x10) {
        GetSensorUnits(&sdr, eventData3, value, sizeof value);
        StringCchPrintf(scratch, sizeof scratch, " Trigger threshold value: %s.", value);
    }
    StringCchCat(out, outLen, scratch);
    StringCchCat(out, outLen, "      ");
    if ((eventData1 & 0xC0) == 0x40) {
        GetSensorUnits(&sdr, eventData2, value, sizeof value);
        StringCchPrintf(scratch, sizeof scratch, "Trigger reading: %s.", value);
    }
    // The scratch is not cleared in between: without a reading the threshold text comes twice.
    // Kept exactly so.
    StringCchCat(out, outLen, scratch);
    return 0;
}

int IpmiEventBuilder::GetSensorUnits(const RawSDR* sdr, int raw, char* out, unsigned int outLen) {
    const unsigned char* record = sdr->bytes;
    double value = 0.0;
    // The linear formula y = (M x raw + B x 10^K1) x 10^K2 (IPMI v2.0 section 36.3), applied to
    // full sensor records with linear readings only.
    if (record[kRecordType] == 0x01 && record[kLinearization] == 0x00) {
        const int m = tenBitSigned(record[kMLow], record[kMHigh]);
        const int b = tenBitSigned(record[kBLow], record[kBHigh]);
        const int bExponent = (record[kExponents] & 0x0F) > 7 ? (record[kExponents] & 0x0F) - 16
                                                              : record[kExponents] & 0x0F;
        // The R exponent nibble is neither shifted down nor sign-extended: nibble 1 gives 0,
        // 2 gives 16, 0xF gives 224. This changes every value of an SDR whose R exponent is not
        // 0 or 1, and is kept exactly so.
        const int highNibble = record[kExponents] & 0xF0;
        const int rExponent = highNibble != 0 ? highNibble - 16 : 0;
        const double offset =
            bExponent > 0 ? b * std::pow(10.0, bExponent) : b / std::pow(10.0, -bExponent);
        const double scale =
            rExponent > 0 ? std::pow(10.0, rExponent) : 1.0 / std::pow(10.0, -rExponent);
        value = (static_cast<double>(m * raw) + offset) * scale;
    }

    const unsigned char units1 = record[kSensorUnits1];
    switch (units1 & 0xC0) {
        case 0x40: {  // 1's complement: the raw byte, unconverted
            char text[16] = {};
            GetOnesComplement(static_cast<char>(raw), text, sizeof text);
            StringCchPrintf(out, outLen, "%s", text);
            break;
        }
        case 0x80:  // 2's complement: the raw byte, unconverted
            StringCchPrintf(out, outLen, "%d", static_cast<signed char>(raw));
            break;
        default:  // unsigned, or no analog reading: the converted value in single precision
            StringCchPrintf(out, outLen, "%.2f", singlePrecision(value));
            break;
    }
    if (units1 & 0x01) StringCchCat(out, outLen, "%");

    char unit[64] = {};
    char text[64] = {};
    if (units1 & 0x38) {
        // The rate unit stands before the base unit.
        GetString((units1 & 0x38) >> 3, unit, sizeof unit);
        StringCchPrintf(text, sizeof text, " %s", unit);
        StringCchCat(out, outLen, text);
    }
    switch (units1 & 0x06) {
        case 0x00:
            GetString(record[kBaseUnit] + kUnitKeyOffset, unit, sizeof unit);
            StringCchPrintf(text, sizeof text, " %s", unit);
            StringCchCat(out, outLen, text);
            break;
        case 0x02:
        case 0x04: {
            char modifier[64] = {};
            char combined[128] = {};
            GetString(record[kBaseUnit] + kUnitKeyOffset, unit, sizeof unit);
            GetString(record[kModifierUnit] + kUnitKeyOffset, modifier, sizeof modifier);
            StringCchPrintf(combined, sizeof combined,
                            (units1 & 0x06) == 0x02 ? " %s/%s" : " %s*%s", unit, modifier);
            StringCchCat(out, outLen, combined);
            break;
        }
        default:
            StringCchCat(out, outLen, " reserved units");
            break;
    }
    return 0;
}

int IpmiEventBuilder::GetOnesComplement(char value, char* out, unsigned int outLen) {
    // 0xFE prints "-1" and 0xFF "-0".
    const signed char v = static_cast<signed char>(value);
    if (v < 0) {
        StringCchPrintf(out, outLen, "-%d", ~v);
    } else {
        StringCchPrintf(out, outLen, "%d", v);
    }
    return 0;
}

int IpmiEventBuilder::GetString(int key, char* out, unsigned int outLen) {
    constexpr int found = 0;
    constexpr int empty = 6;
    std::memset(out, 0, outLen);
    const std::string text =
        ThresholdOffsetTable::getThresholdOffsetTable()->getThresholdOffset(key);
    if (text.empty()) return empty;
    // Every unit text is far shorter than the buffers callers pass; the bound only guards them.
    std::strncpy(out, text.c_str(), std::min<std::size_t>(text.length(), outLen - 1));
    return found;
}

// --- auxiliary log ---

std::string IpmiEventBuilder::buildAuxiliaryLog(const RawSelEntry& sel,
                                                std::vector<IPMIExtendedSELDataEntry>& entries) {
    // The record ID takes a detour through its decimal text, kept as it is.
    const unsigned id = sel.id();
    char number[128] = {};
    StringCchPrintf(number, sizeof number, "%d", id);
    char copy[512] = {};
    std::strncpy(copy, number, sizeof copy);
    const int selRecordId = static_cast<int>(std::strtol(copy, nullptr, 10));

    IPMIExtendedSELDataEntry entry;
    if (IPMIAuxiliaryLog().GetExtendedSELEntry(selRecordId, &entries, &entry) != 0) {
        return "No Extended Data";
    }
    const std::string text =
        "Type: " + entry.GetTypeString() + " Sev: " + entry.GetSeverityString() +
        " Class: " + entry.GetClassString() + " Sub-Class: " + entry.GetSubclassString() +
        " Instance: " + entry.GetFRUInstanceString() + " GUID: " + entry.GetGUIDString() +
        " Extended Data: " + entry.GetExtendedDataString();
    return text.c_str();  // a zero byte in any piece ends the text there
}

}  // namespace Tolmar
