#include "fleet/RedfishEventSource.h"

#include <IpmiSelDecoding.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>

#include "base/BoundedFile.h"
#include "base/TimeText.h"
#include "fleet/IpmiEventSource.h"

namespace tool {

using nlohmann::json;

namespace {

bool endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::string lowered(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

bool allDigits(const std::string& text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
        return std::isdigit(static_cast<unsigned char>(c));
    });
}

// The member `key` of an entry where it is text; none where it is absent or null. Throws for
// another type.
std::optional<std::string> textMember(const json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::nullopt;
    if (!it->is_string()) throw RedfishEntryError(std::string("its ") + key + " is not text");
    return it->get<std::string>();
}

// A whole number of zero or more, as JSON's parser or a literal gives it; none for anything else.
std::optional<unsigned long> wholeNumber(const json& value) {
    if (value.is_number_unsigned()) return value.get<unsigned long>();
    if (value.is_number_integer() && value.get<long long>() >= 0)
        return static_cast<unsigned long>(value.get<long long>());
    return std::nullopt;
}

std::optional<unsigned long> numberMember(const json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::nullopt;
    const std::optional<unsigned long> number = wholeNumber(*it);
    if (!number) throw RedfishEntryError(std::string("its ") + key + " is not a whole number");
    return number;
}

// The "@odata.id" of a link member ({"@odata.id": "/redfish/v1/..."}); empty where there is none.
std::string linkMember(const json& object, const char* key) {
    const auto it = object.find(key);
    if (it == object.end() || !it->is_object()) return "";
    const auto id = it->find("@odata.id");
    if (id == it->end() || !id->is_string()) return "";
    return id->get<std::string>();
}

// "%N" placeholders (N from 1, at most two digits) replaced by `args`; one naming no argument is
// kept as it is.
std::string substituted(const std::string& text, const std::vector<std::string>& args) {
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
    if (!endsWith(messageId, ".SELEntryAdded") || args.size() != 1) return std::nullopt;
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
    const std::string key = messageId.substr(messageId.rfind('.') + 1);
    for (const KnownMessage& known : kKnownMessages)
        if (registry == known.registry && key == known.key) return substituted(known.text, args);
    std::string text = messageId;
    for (std::size_t i = 0; i < args.size(); ++i) text += (i == 0 ? ": " : ", ") + args[i];
    return text;
}

SourceEvent redfishEvent(const json& entry, const std::string& log) {
    if (!entry.is_object()) throw RedfishEntryError("an entry is not a JSON object");
    SourceEvent event;
    const auto id = entry.find("Id");
    if (id == entry.end()) throw RedfishEntryError("an entry has no Id");
    if (id->is_string()) {
        event.id = id->get<std::string>();
    } else if (const std::optional<unsigned long> number = wholeNumber(*id)) {
        event.id = std::to_string(*number);
    } else {
        throw RedfishEntryError("an entry's Id is neither text nor a whole number");
    }
    if (event.id.empty()) throw RedfishEntryError("an entry's Id is empty");
    if (allDigits(event.id) && event.id.size() <= 18) event.number = std::stoul(event.id);

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
    const std::string origin = linkMember(entry, "OriginOfCondition");

    event.severity = severityOf(severity ? severity : messageSeverity);
    std::vector<EventField> fields{{"log", log}};
    if (entryType) fields.push_back({"entryType", *entryType});
    if (messageId) fields.push_back({"messageId", *messageId});
    if (created) fields.push_back({"created", *created});
    if (entryCode) fields.push_back({"entryCode", *entryCode});
    if (!origin.empty()) fields.push_back({"originOfCondition", origin});

    const std::optional<std::array<std::uint8_t, 16>> record =
        messageId ? selRecordOf(*messageId, args, event.number, moment) : std::nullopt;
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
        event.message = redfishMessageText(*messageId, args);
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

namespace {

// How many pages one read of a log follows at most: a service whose links never end is an error.
constexpr std::size_t kPageLimit = 10000;
constexpr const char* kServiceRoot = "/redfish/v1";

// The log services known by their makers' paths, whatever type they give their entries.
constexpr const char* kKnownLogs[] = {
    "/Managers/iDRAC.Embedded.1/LogServices/Sel",  // Dell
    "/Systems/1/LogServices/IML",                  // HPE's Integrated Management Log
    "/Systems/1/LogServices/PlatformLog",          // Lenovo XClarity Controller
    "/Systems/1/LogServices/Log1",                 // Supermicro
    "/Systems/system/LogServices/EventLog",        // OpenBMC
};

std::string withQuery(const std::string& path, const std::string& query) {
    return path + (path.find('?') == std::string::npos ? "?" : "&") + query;
}

std::vector<std::string> memberLinks(const json& collection) {
    std::vector<std::string> links;
    const auto members = collection.find("Members");
    if (members == collection.end() || !members->is_array()) return links;
    for (const json& member : *members) {
        if (!member.is_object()) continue;
        const auto id = member.find("@odata.id");
        if (id != member.end() && id->is_string()) links.push_back(id->get<std::string>());
    }
    return links;
}

bool isHardwareLog(const json& service, const std::string& path) {
    const auto type = service.find("LogEntryType");
    if (type != service.end() && type->is_string() && (*type == "SEL" || *type == "Event"))
        return true;
    std::string bare = path;
    while (!bare.empty() && bare.back() == '/') bare.pop_back();
    return std::any_of(std::begin(kKnownLogs), std::end(kKnownLogs),
                       [&bare](const char* known) { return endsWith(bare, known); });
}

std::string textOr(const json& object, const char* key, const std::string& otherwise) {
    const auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : otherwise;
}

bool chosenByName(const json& service, const std::vector<std::string>& names) {
    const std::string id = lowered(textOr(service, "Id", "")),
                      name = lowered(textOr(service, "Name", ""));
    return std::any_of(names.begin(), names.end(), [&](const std::string& wanted) {
        const std::string w = lowered(wanted);
        return (!id.empty() && w == id) || (!name.empty() && w == name);
    });
}

}  // namespace

RedfishEventSource::RedfishEventSource(const ConnectionProfile& profile, const ReadSettings&,
                                       TransportFactory make)
    : host_(profile.host), profile_(profile), make_(std::move(make)) {
    session_ = std::make_unique<RedfishSession>(
        make_(profile_), tool::hostName(host_), profile_.user, profile_.password,
        profile_.sessionTimeout.value_or(kRedfishDefaultTimeout));
}

RedfishEventSource::~RedfishEventSource() = default;

std::string RedfishEventSource::hostName() const { return tool::hostName(host_); }

void RedfishEventSource::logout() { session_->logout(); }

void RedfishEventSource::reconfigure(const ConnectionProfile& profile, const ReadSettings&) {
    if (profile.logs != profile_.logs) place_.discovered = false;  // other logs chosen
    profile_ = profile;
    host_ = profile.host;
    session_ = std::make_unique<RedfishSession>(
        make_(profile_), tool::hostName(host_), profile_.user, profile_.password,
        profile_.sessionTimeout.value_or(kRedfishDefaultTimeout));
}

void RedfishEventSource::discover(Place& place) {
    const json root = session_->get(kServiceRoot);
    const auto features = root.find("ProtocolFeaturesSupported");
    place.skipQuery = false;
    if (features != root.end() && features->is_object()) {
        const auto skip = features->find("TopSkipQuery");
        place.skipQuery = skip != features->end() && skip->is_boolean() && skip->get<bool>();
    }
    std::vector<LogPlace> found;
    std::vector<std::string> seen;  // every log service's name, for a refusal
    const auto add = [&](LogPlace log) {
        for (const LogPlace& kept : found)
            if (kept.entries == log.entries) return;
        found.push_back(std::move(log));
    };
    // A resource listed but gone since (or never there) is passed over.
    const auto lookUp = [this](const std::string& path) -> std::optional<json> {
        try {
            return session_->get(path);
        } catch (const RedfishError& error) {
            if (error.failure() == Failure::NotFound) return std::nullopt;
            throw;
        }
    };
    // A log of entries of several types is a hardware event log when its first entry is one.
    const auto firstEntryIsEvent = [&](const std::string& entries) {
        if (!place.skipQuery) return false;  // not without reading it whole
        const std::optional<json> page = lookUp(withQuery(entries, "$top=1"));
        if (!page) return false;
        const auto members = page->find("Members");
        if (members == page->end() || !members->is_array() || members->empty()) return false;
        const std::string type = textOr(members->front(), "EntryType", "");
        return type == "SEL" || type == "Event";
    };
    for (const char* kind : {"Systems", "Managers", "Chassis"}) {
        const std::string collection = linkMember(root, kind);
        if (collection.empty()) continue;
        const std::optional<json> members = lookUp(collection);
        if (!members) continue;
        for (const std::string& memberPath : memberLinks(*members)) {
            const std::optional<json> member = lookUp(memberPath);
            if (!member) continue;
            const std::string services = linkMember(*member, "LogServices");
            if (services.empty()) {
                // Older iDRACs keep their SEL outside LogServices.
                if (endsWith(memberPath, "/Managers/iDRAC.Embedded.1") && profile_.logs.empty())
                    add({memberPath + "/Logs/Sel", "Sel", std::nullopt, 0, "", ""});
                continue;
            }
            const std::optional<json> serviceList = lookUp(services);
            if (!serviceList) continue;
            for (const std::string& servicePath : memberLinks(*serviceList)) {
                const std::optional<json> service = lookUp(servicePath);
                if (!service) continue;
                const std::string name =
                    textOr(*service, "Name", textOr(*service, "Id", servicePath));
                seen.push_back(name);
                LogPlace log;
                log.entries = linkMember(*service, "Entries");
                if (log.entries.empty()) log.entries = servicePath + "/Entries";
                const bool chosen = profile_.logs.empty()
                                        ? isHardwareLog(*service, servicePath) ||
                                              (textOr(*service, "LogEntryType", "") == "Multiple" &&
                                               firstEntryIsEvent(log.entries))
                                        : chosenByName(*service, profile_.logs);
                if (!chosen) continue;
                log.name = name;
                const auto most = service->find("MaxNumberOfRecords");
                if (most != service->end()) log.maxRecords = wholeNumber(*most);
                add(std::move(log));
            }
        }
    }
    if (found.empty()) {
        std::string logs;
        for (const std::string& name : seen) logs += (logs.empty() ? "" : ", ") + name;
        const std::string has = logs.empty() ? "it has none" : "it has " + logs;
        throw RedfishError(Failure::NotFound,
                           hostName() + ": " +
                               (profile_.logs.empty() ? "no hardware event log found"
                                                      : "none of the logs asked for found") +
                               " (" + has + ")");
    }
    // The places of logs already followed are kept.
    for (LogPlace& log : found) {
        for (const LogPlace& old : place.logs) {
            if (old.entries == log.entries) {
                log.count = old.count;
                log.newestId = old.newestId;
                log.newestCreated = old.newestCreated;
            }
        }
    }
    place.logs = std::move(found);
    place.discovered = true;
}

namespace {

// The entries of a page, each a whole LogEntry: a member given as a link only is fetched.
std::vector<json> pageEntries(RedfishSession& session, const json& page, const std::string& host,
                              const std::string& path) {
    const auto members = page.find("Members");
    if (members == page.end() || !members->is_array())
        throw RedfishError(Failure::Internal, host + ": " + path + " has no Members list");
    std::vector<json> entries;
    for (const json& member : *members) {
        if (member.is_object() && member.find("Id") == member.end()) {
            const std::string link = textOr(member, "@odata.id", "");
            if (!link.empty()) {
                entries.push_back(session.get(link));
                continue;
            }
        }
        entries.push_back(member);
    }
    return entries;
}

std::string nextLinkOf(const json& page, const std::string& host, const std::string& path) {
    const auto next = page.find("Members@odata.nextLink");
    if (next == page.end() || next->is_null()) return "";
    if (!next->is_string())
        throw RedfishError(Failure::Internal, host + ": " + path + ": its nextLink is not text");
    return next->get<std::string>();
}

std::optional<unsigned long> countOf(const json& page) {
    const auto count = page.find("Members@odata.count");
    if (count == page.end()) return std::nullopt;
    return wholeNumber(*count);
}

std::string entryId(const json& entry) {
    if (!entry.is_object()) return "";
    const auto id = entry.find("Id");
    if (id == entry.end()) return "";
    if (id->is_string()) return id->get<std::string>();
    if (const std::optional<unsigned long> number = wholeNumber(*id))
        return std::to_string(*number);
    return "";
}

// Whether a list of entries runs from the newest to the oldest, as its first and last entries'
// times tell, or else their numbers; false where neither tells.
bool isNewestFirst(const std::vector<json>& entries) {
    if (entries.size() < 2) return false;
    const json& first = entries.front();
    const json& last = entries.back();
    const std::optional<std::time_t> firstTime = parseRedfishTime(textOr(first, "Created", ""));
    const std::optional<std::time_t> lastTime = parseRedfishTime(textOr(last, "Created", ""));
    if (firstTime && lastTime && *firstTime != *lastTime) return *firstTime > *lastTime;
    const std::string firstId = entryId(first), lastId = entryId(last);
    if (allDigits(firstId) && allDigits(lastId) && firstId.size() <= 18 && lastId.size() <= 18)
        return std::stoul(firstId) > std::stoul(lastId);
    return false;
}

}  // namespace

void RedfishEventSource::readLog(LogPlace& log, bool useSkip, bool makeEvents, SourcePoll& out,
                                 bool& cleared) {
    const std::string name = hostName();
    std::optional<unsigned long> total;
    // Takes one entry as read: an event of the poll, the place moved on to it.
    const auto take = [&](const json& entry) {
        const std::string id = entryId(entry);
        if (id.empty()) {
            throw RedfishError(Failure::Internal,
                               name + ": " + log.name + ": an entry has no usable Id");
        }
        if (makeEvents) {
            try {
                out.events.push_back(redfishEvent(entry, log.name));
            } catch (const RedfishEntryError& error) {
                throw RedfishError(Failure::Internal,
                                   name + ": " + log.name + ": entry " + id + ": " + error.what());
            }
        }
        ++log.count;
        log.newestId = id;
        log.newestCreated = textOr(entry, "Created", "");
        ++out.entriesRead;
    };
    const auto isNewest = [&log](const json& entry) {
        return entryId(entry) == log.newestId &&
               (log.newestCreated.empty() || textOr(entry, "Created", "") == log.newestCreated);
    };
    // Follows the pages from `next`, handing each page's entries to `each` until it returns
    // false.
    std::set<std::string> visited;
    const auto pages = [&](std::string next, const auto& each) {
        while (!next.empty()) {
            if (!visited.insert(next).second || visited.size() > kPageLimit) {
                throw RedfishError(Failure::Internal,
                                   name + ": " + log.name + ": its pages lead back to " + next);
            }
            const json page = session_->get(next);
            if (const auto count = countOf(page)) total = count;
            const std::vector<json> entries = pageEntries(*session_, page, name, next);
            if (!each(entries)) return;
            next = nextLinkOf(page, name, next);
        }
    };
    const auto forget = [&log, &cleared] {
        cleared = true;
        log.count = 0;
        log.newestId.clear();
        log.newestCreated.clear();
    };

    const bool known = log.count > 0 && !log.newestId.empty();
    if (known && useSkip && !log.newestFirst) {
        // The page from the newest entry read: unchanged, that entry comes first and what
        // follows it is new; anything else is a log that changed, read whole below.
        const std::string first = withQuery(log.entries, "$skip=" + std::to_string(log.count - 1));
        json page;
        try {
            page = session_->get(first);
        } catch (const RedfishError& error) {
            // A service that refuses to skip past a log's end (a cleared one): read it whole.
            if (error.status() != 400) throw;
            page = json{{"Members", json::array()}};
        }
        visited.insert(first);
        const std::optional<unsigned long> count = countOf(page);
        const std::vector<json> entries = pageEntries(*session_, page, name, first);
        if (!entries.empty() && isNewest(entries.front()) && (!count || *count >= log.count)) {
            total = count;
            for (std::size_t i = 1; i < entries.size(); ++i) take(entries[i]);
            pages(nextLinkOf(page, name, first), [&](const std::vector<json>& more) {
                for (const json& entry : more) take(entry);
                return true;
            });
            return health(log, total, out);
        }
        visited.clear();
    }
    if (known && log.newestFirst) {
        // Newest first: the pages from the start down to the newest entry read; what comes
        // before it is new. Without it, the log was cleared, and all of it is new.
        std::vector<json> newer;
        bool found = false;
        pages(log.entries, [&](const std::vector<json>& entries) {
            for (const json& entry : entries) {
                if (isNewest(entry)) {
                    found = true;
                    return false;
                }
                newer.push_back(entry);
            }
            return true;
        });
        if (!found) forget();
        for (auto entry = newer.rbegin(); entry != newer.rend(); ++entry) take(*entry);
        return health(log, total, out);
    }
    if (!known) {
        // The first read. Once two entries tell which end is the newest, an oldest-first log is
        // taken page after page as it comes; a newest-first one is read whole, then taken from
        // its end.
        std::vector<json> held;
        bool decided = false;
        bool newestFirst = false;
        pages(log.entries, [&](const std::vector<json>& entries) {
            for (const json& entry : entries) {
                if (decided && !newestFirst) {
                    take(entry);
                    continue;
                }
                held.push_back(entry);
                if (!decided && held.size() >= 2) {
                    decided = true;
                    newestFirst = isNewestFirst(held);
                    if (!newestFirst) {
                        for (const json& early : held) take(early);
                        held.clear();
                    }
                }
            }
            return true;
        });
        log.newestFirst = newestFirst;
        if (newestFirst) std::reverse(held.begin(), held.end());
        for (const json& entry : held) take(entry);
        return health(log, total, out);
    }
    // A changed log: all of it, then what is newer than the newest entry read (on the side the
    // log keeps its newest); without it, a cleared log, all of it new.
    std::vector<json> all;
    pages(log.entries, [&](const std::vector<json>& entries) {
        all.insert(all.end(), entries.begin(), entries.end());
        return true;
    });
    const auto newest = std::find_if(all.begin(), all.end(), isNewest);
    const std::size_t at = static_cast<std::size_t>(newest - all.begin());
    if (newest == all.end()) {
        forget();
        log.newestFirst = isNewestFirst(all);
        if (log.newestFirst) std::reverse(all.begin(), all.end());
        for (const json& entry : all) take(entry);
    } else if (at > 0 && isNewestFirst(all)) {
        log.newestFirst = true;
        log.count = all.size() - at;
        for (std::size_t i = at; i-- > 0;) take(all[i]);
    } else {
        log.count = at + 1;
        for (std::size_t i = at + 1; i < all.size(); ++i) take(all[i]);
    }
    health(log, total, out);
}

void RedfishEventSource::health(const LogPlace& log, std::optional<unsigned long> total,
                                SourcePoll& out) {
    LogHealth& sum = out.health;
    sum.name += (sum.name.empty() ? "" : ", ") + log.name;
    sum.entries += total.value_or(log.count);
    if (log.maxRecords && *log.maxRecords != 0) {
        sum.used += total.value_or(log.count);
        sum.room += *log.maxRecords;
    }
}

SourcePoll RedfishEventSource::run(Place& place, bool makeEvents, bool whole) {
    SourcePoll out;
    try {
        if (!place.discovered) discover(place);
    } catch (const RedfishError& error) {
        out.failure = error.failure();
        out.failureText = error.what();
        return out;
    }
    bool read = false;  // a log read to its end
    bool allRoom = true;
    for (LogPlace& log : place.logs) {
        bool cleared = false;
        const LogPlace before = log;
        const unsigned long readBefore = out.entriesRead;
        try {
            readLog(log, place.skipQuery && !whole, makeEvents, out, cleared);
        } catch (const RedfishError& error) {
            // Nothing of this log taken: its place stays where it was, a clear found said at the
            // next poll. Some taken: the place is theirs, and so is the clear.
            if (out.entriesRead == readBefore) {
                log = before;
                cleared = false;
            }
            out.cleared = out.cleared || cleared;
            // A log moved (new firmware): found again at the next poll, its place kept.
            if (error.failure() == Failure::NotFound) place.discovered = false;
            if (!read && out.entriesRead == 0) {
                SourcePoll failed;
                failed.failure = error.failure();
                failed.failureText = error.what();
                return failed;
            }
            out.complete = false;
            out.incompleteText = hostName() + ": incomplete: " + error.what();
            return out;
        }
        read = true;
        out.cleared = out.cleared || cleared;
        allRoom = allRoom && log.maxRecords && *log.maxRecords != 0;
    }
    out.health.known = true;
    if (!allRoom) out.health.used = out.health.room = 0;  // room only where every log says it
    return out;
}

SourcePoll RedfishEventSource::poll(bool skipping) {
    SourcePoll out = run(place_, !skipping, false);
    if (skipping && out.failure == Failure::None && out.complete) out.skipped = out.entriesRead;
    return out;
}

SourcePoll RedfishEventSource::readWhole() {
    Place whole = place_;
    for (LogPlace& log : whole.logs) {
        log.count = 0;
        log.newestId.clear();
        log.newestCreated.clear();
    }
    SourcePoll out = run(whole, true, true);
    // What was found is kept; the place is not moved.
    if (!place_.discovered && whole.discovered) {
        place_.discovered = true;
        place_.skipQuery = whole.skipQuery;
        place_.logs = whole.logs;
        for (LogPlace& log : place_.logs) {
            log.count = 0;
            log.newestId.clear();
            log.newestCreated.clear();
        }
    }
    return out;
}

std::string RedfishEventSource::stateText() const {
    json logs = json::array();
    for (const LogPlace& log : place_.logs) {
        json entry = {{"entries", log.entries},
                      {"name", log.name},
                      {"count", log.count},
                      {"newestId", log.newestId},
                      {"newestCreated", log.newestCreated}};
        if (log.maxRecords) entry["maxRecords"] = *log.maxRecords;
        if (log.newestFirst) entry["newestFirst"] = true;
        logs.push_back(std::move(entry));
    }
    const json state = {{"redfishState", 1},
                        {"discovered", place_.discovered},
                        {"skipQuery", place_.skipQuery},
                        {"asked", profile_.logs},
                        {"logs", std::move(logs)}};
    return state.dump() + "\n";
}

bool RedfishEventSource::loadStateText(const std::string& text) {
    const json state = json::parse(text, nullptr, false);
    if (!state.is_object() || state.value("redfishState", json()) != json(1)) return false;
    const auto flag = [&state](const char* key) -> std::optional<bool> {
        const auto it = state.find(key);
        if (it == state.end() || !it->is_boolean()) return std::nullopt;
        return it->get<bool>();
    };
    const std::optional<bool> discovered = flag("discovered"), skipQuery = flag("skipQuery");
    const auto logs = state.find("logs");
    if (!discovered || !skipQuery || logs == state.end() || !logs->is_array()) return false;
    Place place;
    place.discovered = *discovered;
    place.skipQuery = *skipQuery;
    for (const json& entry : *logs) {
        if (!entry.is_object()) return false;
        LogPlace log;
        try {
            log.entries = entry.at("entries").get<std::string>();
            log.name = entry.at("name").get<std::string>();
            const std::optional<unsigned long> count = wholeNumber(entry.at("count"));
            if (!count) return false;
            log.count = *count;
            log.newestId = entry.at("newestId").get<std::string>();
            log.newestCreated = entry.at("newestCreated").get<std::string>();
            if (entry.contains("newestFirst"))
                log.newestFirst = entry.at("newestFirst").get<bool>();
            if (entry.contains("maxRecords")) {
                log.maxRecords = wholeNumber(entry.at("maxRecords"));
                if (!log.maxRecords) return false;
            }
        } catch (const json::exception&) {
            return false;
        }
        if (log.entries.empty() || log.entries[0] != '/') return false;
        place.logs.push_back(std::move(log));
    }
    if (place.discovered && place.logs.empty()) return false;
    // Other logs asked for than those found: found again, their places kept.
    if (state.value("asked", json::array()) != json(profile_.logs)) place.discovered = false;
    place_ = std::move(place);
    return true;
}

std::string RedfishEventSource::loadState(const std::string& path) {
    if (access(path.c_str(), F_OK) != 0) return "";  // the first run
    try {
        if (loadStateText(readBoundedFile(path).text)) return "";
        return hostName() + ": " + path + ": not a Redfish state; reading the whole logs";
    } catch (const FileError& error) {
        return hostName() + ": " + error.what() + "; reading the whole logs";
    }
}

std::string RedfishEventSource::saveState(const std::string& path) const {
    // A file beside it, then renamed over it: the state is the old one or the new one, whole.
    const std::string temporary = path + ".tmp" + std::to_string(getpid());
    const std::string text = stateText();
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const auto failed = [&](const std::string& what) {
        const std::string why = std::strerror(errno);
        if (fd >= 0) close(fd);
        unlink(temporary.c_str());
        return hostName() + ": the state was not saved: " + what + ": " + why;
    };
    if (fd < 0) return failed(temporary);
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        return failed(temporary);
    if (fsync(fd) != 0) return failed(temporary);
    if (close(fd) != 0) {
        unlink(temporary.c_str());
        return hostName() + ": the state was not saved: " + temporary + ": " + std::strerror(errno);
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        const std::string why = std::strerror(errno);
        unlink(temporary.c_str());
        return hostName() + ": the state was not saved: " + path + ": " + why;
    }
    return "";
}

}  // namespace tool
