#include "fleet/RedfishEntries.h"

#include <IpmiSelDecoding.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "base/TimeText.h"
#include "fleet/IpmiEventSource.h"

namespace tool {

using nlohmann::json;

// A whole number of zero or more, as JSON's parser or a literal gives it; none for anything else.
std::optional<unsigned long> redfishWholeNumber(const json& value) {
    if (value.is_number_unsigned()) return value.get<unsigned long>();
    if (value.is_number_integer() && value.get<long long>() >= 0)
        return static_cast<unsigned long>(value.get<long long>());
    return std::nullopt;
}

std::string redfishText(const json& object, const char* key, const std::string& otherwise) {
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : otherwise;
}

// The "@odata.id" of a link member ({"@odata.id": "/redfish/v1/..."}); empty where there is none.
std::string redfishLink(const json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end() || !it->is_object()) return "";
    const auto id = it->find("@odata.id");
    if (id == it->end() || !id->is_string()) return "";
    return id->get<std::string>();
}

// "%N" placeholders (N from 1, at most two digits) replaced by `args`; one naming no argument is
// kept as it is.
std::string substitutedArgs(const std::string& text, const std::vector<std::string>& args) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%') {
            std::size_t end = i + 1;
            while (end < text.size() && end - i <= 2 &&
                   std::isdigit(static_cast<unsigned char>(text[end])))
                ++end;
            if (end > i + 1) {
                const unsigned long n = std::stoul(text.substr(i + 1, end - i - 1));
                if (n >= 1 && n <= args.size()) {
                    out += args[n - 1];
                    i = end - 1;
                    continue;
                }
            }
        }
        out += text[i];
    }
    return out;
}

std::optional<unsigned long> redfishIdNumber(const std::string& id) {
    const bool digits =
        !id.empty() && id.size() <= 18 && std::all_of(id.begin(), id.end(), [](char c) {
            return std::isdigit(static_cast<unsigned char>(c));
        });
    if (!digits) return std::nullopt;
    return std::stoul(id);
}

namespace {

// The key of a MessageId ("Base.1.8.ResourceCreated": ResourceCreated), its last part.
std::string messageKey(const std::string& messageId) {
    return messageId.substr(messageId.rfind('.') + 1);
}

// The member `key` of an entry where it is text; none where it is absent or null. Throws for
// another type.
std::optional<std::string> textMember(const json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::nullopt;
    if (!it->is_string()) throw RedfishEntryError(std::string("its ") + key + " is not text");
    return it->get<std::string>();
}

std::optional<unsigned long> numberMember(const json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::nullopt;
    const std::optional<unsigned long> number = redfishWholeNumber(*it);
    if (!number) throw RedfishEntryError(std::string("its ") + key + " is not a whole number");
    return number;
}

struct KnownMessage {
    const char* registry;
    const char* key;
    const char* text;
};

// The messages of the registries this source words itself where an entry carries only the ID:
// OpenBMC's, as its BMCs log them in their event log.
constexpr KnownMessage kKnownMessages[] = {
    {"OpenBMC", "DCPowerOn", "Host system DC power is on"},
    {"OpenBMC", "DCPowerOff", "Host system DC power is off"},
    {"OpenBMC", "ResetButtonPressed", "Reset Button Pressed."},
    {"OpenBMC", "SELEntryAdded", "SEL Entry Added: %1"},
    {"OpenBMC", "PowerSupplyFanFailed", "Power supply %1 fan %2 failed."},
    {"OpenBMC", "SensorThresholdCriticalHighGoingHigh",
     "%1 sensor crossed a critical high threshold going high. Reading=%2 Threshold=%3."},
};

// "0x2c" and the like as the number it is.
std::optional<unsigned long> hexNumber(const std::string& text) {
    if (text.size() < 3 || text.size() > 10 || text[0] != '0' || (text[1] != 'x' && text[1] != 'X'))
        return std::nullopt;
    unsigned long value = 0;
    for (std::size_t i = 2; i < text.size(); ++i) {
        const int digit = std::isdigit(static_cast<unsigned char>(text[i])) ? text[i] - '0'
                          : std::isxdigit(static_cast<unsigned char>(text[i]))
                              ? std::tolower(static_cast<unsigned char>(text[i])) - 'a' + 10
                              : -1;
        if (digit < 0) return std::nullopt;
        value = value * 16 + static_cast<unsigned long>(digit);
    }
    return value;
}

std::optional<std::vector<std::uint8_t>> hexBytes(const std::string& text) {
    if (text.size() % 2 != 0) return std::nullopt;
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const std::optional<unsigned long> byte = hexNumber("0x" + text.substr(i, 2));
        if (!byte) return std::nullopt;
        bytes.push_back(static_cast<std::uint8_t>(*byte));
    }
    return bytes;
}

std::vector<std::string> messageArgs(const json& entry) {
    std::vector<std::string> args;
    const auto it = entry.find("MessageArgs");
    if (it == entry.end() || it->is_null()) return args;
    if (!it->is_array()) throw RedfishEntryError("its MessageArgs is not a list");
    for (const json& arg : *it) {
        if (!arg.is_string()) throw RedfishEntryError("its MessageArgs holds other than text");
        args.push_back(arg.get<std::string>());
    }
    return args;
}

// The IPMI SEL record an entry carries, where it carries one. OpenBMC logs each record added
// through IPMI (Add SEL Entry, Platform Event) as the message OpenBMC.0.1.SELEntryAdded, whose
// argument is the record in hexadecimal: the whole 16 bytes, or the 8 bytes of a platform event
// (generator, event message revision, sensor type and number, event direction and type, event
// data 1-3), which are put into a system event record (IPMI v2.0 table 32-1) with the entry's
// number as record ID and its time as time stamp.
std::optional<std::array<std::uint8_t, 16>> selRecordOf(const std::string& messageId,
                                                        const std::vector<std::string>& args,
                                                        std::optional<unsigned long> number,
                                                        std::optional<std::time_t> moment) {
    if (messageKey(messageId) != "SELEntryAdded" || messageId.find('.') == std::string::npos ||
        args.size() != 1)
        return std::nullopt;
    const std::optional<std::vector<std::uint8_t>> bytes = hexBytes(args[0]);
    if (!bytes) return std::nullopt;
    std::array<std::uint8_t, 16> record{};
    if (bytes->size() == record.size()) {
        std::copy(bytes->begin(), bytes->end(), record.begin());
        return record;
    }
    constexpr std::size_t kPlatformEvent = 8;
    if (bytes->size() != kPlatformEvent) return std::nullopt;
    const unsigned long id = number.value_or(0) & 0xFFFF;
    const std::uint32_t stamp = moment && *moment >= 0 && *moment < 0xFFFFFFFF
                                    ? static_cast<std::uint32_t>(*moment)
                                    : 0xFFFFFFFF;
    const std::vector<std::uint8_t>& b = *bytes;
    record = {static_cast<std::uint8_t>(id & 0xFF),
              static_cast<std::uint8_t>(id >> 8),
              0x02,  // system event record
              static_cast<std::uint8_t>(stamp & 0xFF),
              static_cast<std::uint8_t>((stamp >> 8) & 0xFF),
              static_cast<std::uint8_t>((stamp >> 16) & 0xFF),
              static_cast<std::uint8_t>(stamp >> 24),
              b[0],  // generator ID: the requester's address, on channel 0 LUN 0
              0x00,
              b[1],
              b[2],
              b[3],
              b[4],
              b[5],
              b[6],
              b[7]};
    return record;
}

// An IPMI record as the IPMI source words it (its Ipmi rendering, without filters or auxiliary
// log, which Redfish does not give).
SourceEvent ipmiWorded(const std::array<std::uint8_t, 16>& bytes) {
    Tolmar::FollowedEvent followed;
    static_assert(sizeof followed.entry == 16, "a SEL record is 16 bytes");
    std::memcpy(&followed.entry, bytes.data(), bytes.size());
    followed.record = Tolmar::SelDecoder({}).decode(bytes);
    followed.event.recordId = followed.record.recordId;
    followed.event.timeStamp = Tolmar::selTimeText(followed.record);
    followed.event.message = followed.record.description;
    followed.event.source = followed.record.source;
    return ipmiEvent(followed, Rendering::Ipmi);
}

Severity severityOf(const std::optional<std::string>& text) {
    if (!text) return Severity::Info;
    if (*text == "Critical") return Severity::Critical;
    if (*text == "Warning") return Severity::Warning;
    return Severity::Info;
}

// The fields in the order of the source's columns.
void orderFields(std::vector<EventField>& fields) {
    const std::vector<std::string>& order = redfishEventColumns().facts;
    const auto rank = [&order](const EventField& field) {
        return std::find(order.begin(), order.end(), field.key) - order.begin();
    };
    std::stable_sort(fields.begin(), fields.end(),
                     [&](const EventField& a, const EventField& b) { return rank(a) < rank(b); });
}

}  // namespace

// An IPMI SEL record as a service serves it as a file: its 16 bytes, or its 32 hexadecimal
// digits as text (white space around them allowed); none for anything else.
std::optional<std::array<std::uint8_t, 16>> selRecordOfData(const std::string& data) {
    std::array<std::uint8_t, 16> record{};
    if (data.size() == record.size()) {
        std::copy(data.begin(), data.end(), record.begin());
        return record;
    }
    const auto first = data.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return std::nullopt;
    const std::string digits = data.substr(first, data.find_last_not_of(" \t\r\n") - first + 1);
    if (digits.size() != 2 * record.size()) return std::nullopt;
    const std::optional<std::vector<std::uint8_t>> bytes = hexBytes(digits);
    if (!bytes) return std::nullopt;
    std::copy(bytes->begin(), bytes->end(), record.begin());
    return record;
}

std::optional<std::time_t> parseRedfishTime(const std::string& text) {
    // YYYY-MM-DDThh:mm:ss, then fractions, then Z or +hh:mm / -hh:mm.
    const auto digitsAt = [&text](std::size_t at, std::size_t count) -> std::optional<int> {
        if (at + count > text.size()) return std::nullopt;
        int value = 0;
        for (std::size_t i = at; i < at + count; ++i) {
            if (!std::isdigit(static_cast<unsigned char>(text[i]))) return std::nullopt;
            value = value * 10 + (text[i] - '0');
        }
        return value;
    };
    const auto charAt = [&text](std::size_t at, char c) {
        return at < text.size() && text[at] == c;
    };
    const auto year = digitsAt(0, 4), month = digitsAt(5, 2), day = digitsAt(8, 2),
               hour = digitsAt(11, 2), minute = digitsAt(14, 2), second = digitsAt(17, 2);
    if (!year || !month || !day || !hour || !minute || !second || !charAt(4, '-') ||
        !charAt(7, '-') || !(charAt(10, 'T') || charAt(10, ' ')) || !charAt(13, ':') ||
        !charAt(16, ':'))
        return std::nullopt;
    // Years a clock can name to the nanosecond, as the events' times are kept.
    if (*year < 1900 || *year > 2199 || *month < 1 || *month > 12 || *day < 1 || *day > 31 ||
        *hour > 23 || *minute > 59 || *second > 60)
        return std::nullopt;
    std::size_t at = 19;
    if (charAt(at, '.')) {
        ++at;
        const std::size_t digits = at;
        while (at < text.size() && std::isdigit(static_cast<unsigned char>(text[at]))) ++at;
        if (at == digits) return std::nullopt;
    }
    long offset = 0;
    if (charAt(at, 'Z') || charAt(at, 'z')) {
        ++at;
    } else if (charAt(at, '+') || charAt(at, '-')) {
        const auto hours = digitsAt(at + 1, 2), minutes = digitsAt(at + 4, 2);
        if (!hours || !minutes || !charAt(at + 3, ':') || *hours > 23 || *minutes > 59)
            return std::nullopt;
        offset = (*hours * 60L + *minutes) * 60L * (text[at] == '-' ? -1 : 1);
        at += 6;
    }
    if (at != text.size()) return std::nullopt;
    std::tm fields{};
    fields.tm_year = *year - 1900;
    fields.tm_mon = *month - 1;
    fields.tm_mday = *day;
    fields.tm_hour = *hour;
    fields.tm_min = *minute;
    fields.tm_sec = *second;
    // The wall time at that offset from UTC: UTC is that much earlier.
    return timegm(&fields) - offset;
}

std::string redfishMessageText(const std::string& messageId, const std::vector<std::string>& args) {
    const std::string registry = messageId.substr(0, messageId.find('.'));
    const std::string key = messageKey(messageId);
    for (const KnownMessage& known : kKnownMessages)
        if (registry == known.registry && key == known.key)
            return substitutedArgs(known.text, args);
    std::string text = messageId;
    for (std::size_t i = 0; i < args.size(); ++i) text += (i == 0 ? ": " : ", ") + args[i];
    return text;
}

SourceEvent redfishEvent(const json& entry, const std::string& log, const RedfishLookups& lookups) {
    if (!entry.is_object()) throw RedfishEntryError("an entry is not a JSON object");
    SourceEvent event;
    const auto id = entry.find("Id");
    if (id == entry.end()) throw RedfishEntryError("an entry has no Id");
    if (id->is_string()) {
        event.id = id->get<std::string>();
    } else if (const std::optional<unsigned long> number = redfishWholeNumber(*id)) {
        event.id = std::to_string(*number);
    } else {
        throw RedfishEntryError("an entry's Id is neither text nor a whole number");
    }
    if (event.id.empty()) throw RedfishEntryError("an entry's Id is empty");
    event.number = redfishIdNumber(event.id);

    const std::optional<std::string> created = textMember(entry, "Created");
    const std::optional<std::string> stamp = textMember(entry, "EventTimestamp");
    std::optional<std::time_t> moment;
    if (created) moment = parseRedfishTime(*created);
    if (!moment && stamp) moment = parseRedfishTime(*stamp);
    const std::optional<std::string> severity = textMember(entry, "Severity");
    const std::optional<std::string> messageSeverity = textMember(entry, "MessageSeverity");
    const std::optional<std::string> message = textMember(entry, "Message");
    const std::optional<std::string> messageId = textMember(entry, "MessageId");
    const std::vector<std::string> args = messageArgs(entry);
    const std::optional<std::string> entryType = textMember(entry, "EntryType");
    const std::optional<std::string> entryCode = textMember(entry, "EntryCode");
    const std::optional<std::string> sensorType = textMember(entry, "SensorType");
    const std::optional<unsigned long> sensorNumber = numberMember(entry, "SensorNumber");
    const std::optional<std::string> generator = textMember(entry, "GeneratorId");
    const std::string origin = redfishLink(entry, "OriginOfCondition");
    // Where the entry keeps more than it says; taken only as text, anything else ignored.
    const auto additionalData = entry.find("AdditionalDataURI");

    event.severity = severityOf(severity ? severity : messageSeverity);
    std::vector<EventField> fields{{"log", log}};
    if (entryType) fields.push_back({"entryType", *entryType});
    if (messageId) fields.push_back({"messageId", *messageId});
    if (created) fields.push_back({"created", *created});
    if (entryCode) fields.push_back({"entryCode", *entryCode});
    if (!origin.empty()) fields.push_back({"originOfCondition", origin});

    std::optional<std::array<std::uint8_t, 16>> record =
        messageId ? selRecordOf(*messageId, args, event.number, moment) : std::nullopt;
    // A SEL entry without the record in its arguments may keep it as its additional data.
    if (!record && lookups.selRecord && entryType == std::string("SEL") &&
        additionalData != entry.end() && additionalData->is_string())
        record = lookups.selRecord(additionalData->get<std::string>());
    if (record) {
        // The same record reads the same over IPMI and over Redfish.
        SourceEvent ipmi = ipmiWorded(*record);
        event.time = ipmi.time;
        event.timeText = ipmi.timeText;
        event.localTimeText = ipmi.localTimeText;
        event.message = ipmi.message;
        event.source = ipmi.source;
        for (EventField& field : ipmi.fields) fields.push_back(std::move(field));
        orderFields(fields);
        event.fields = std::move(fields);
        return event;
    }

    if (moment) {
        event.time = std::chrono::system_clock::from_time_t(*moment);
        // As the IPMI source words a record's moment.
        event.timeText = utcTimeText(*moment);
        event.localTimeText = zonedLocalTimeText(*moment);
    } else {
        event.timeText = "Unspecified";
        event.localTimeText = "Unspecified";
    }
    if (message && !message->empty()) {
        event.message = *message;
    } else if (messageId) {
        // The service's own registry first; the texts this source knows, else the bare ID.
        std::optional<std::string> registered;
        if (lookups.message) registered = lookups.message(*messageId, args);
        event.message = registered ? *registered : redfishMessageText(*messageId, args);
    }
    if (sensorType) {
        event.source = *sensorType;
        if (sensorNumber) {
            char number[16];
            std::snprintf(number, sizeof number, " #0x%02lx", *sensorNumber);
            event.source += number;
        }
    } else if (!origin.empty()) {
        event.source = origin;
    } else if (generator) {
        event.source = *generator;
    } else if (entryCode) {
        event.source = *entryCode;
    }
    fields.push_back({"time", moment ? EventField::Value(isoUtcText(*moment)) : nullptr});
    if (generator) {
        if (const std::optional<unsigned long> number = hexNumber(*generator))
            fields.push_back({"generatorId", *number});
    }
    if (sensorType) fields.push_back({"sensorTypeName", *sensorType});
    if (sensorNumber) fields.push_back({"sensorNumber", *sensorNumber});
    orderFields(fields);
    event.fields = std::move(fields);
    return event;
}

const EventColumns& redfishEventColumns() {
    static const EventColumns columns{
        "id",
        false,
        {"log",
         "entryType",
         "messageId",
         "created",
         "recordType",
         "time",
         "preInitSeconds",
         "generatorId",
         "sensorType",
         "sensorTypeName",
         "sensorNumber",
         "sensorName",
         "eventType",
         "direction",
         "offset",
         "eventData",
         "reading",
         "readingUnits",
         "threshold",
         "thresholdUnits",
         "manufacturerId",
         "manufacturer",
         "oemData",
         "entryCode",
         "originOfCondition"},
        {"log", "messageId", "entryType", "sensorType", "sensorTypeName", "sensorNumber"}};
    return columns;
}

}  // namespace tool
