#include "fleet/IpmiEventSource.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <ctime>

#include "base/HexBytes.h"
#include "base/HostPort.h"
#include "base/TimeText.h"

namespace tool {

using Tolmar::IpmiEventLog;
using Kind = Tolmar::DecodedSelRecord::Kind;
using Time = Tolmar::DecodedSelRecord::Time;

Tolmar::TolmarConnection::ConnectionInfo ipmiConnection(const ConnectionProfile& profile) {
    Tolmar::TolmarConnection::ConnectionInfo info;
    if (profile.host.empty()) return info;  // the local in-band interface
    // The host may name its own port; the command line and modules checked it already.
    const HostPort address = parseHostPort(profile.host);
    info.connectionType = 1;
    info.ip = address.host;
    info.port = address.port.value_or(profile.port);
    info.user = profile.user;
    info.password = profile.password;
    info.cipherSuite = profile.cipherSuite.value_or(Tolmar::ConnectionSettings::AutoCipherSuite);
    return info;
}

namespace {

std::optional<Tolmar::ConnectionSettings::Privilege> privilegeSetting(const std::string& name) {
    using Privilege = Tolmar::ConnectionSettings::Privilege;
    if (name == "admin") return Privilege::Administrator;
    if (name == "operator") return Privilege::Operator;
    if (name == "user") return Privilege::User;
    return std::nullopt;
}

}  // namespace

Tolmar::ConnectionSettings ipmiSettings(const ConnectionProfile& profile) {
    Tolmar::ConnectionSettings settings;
    settings.privilege = privilegeSetting(profile.privilege);
    if (profile.allowCipherSuiteZero) settings.allowCipherSuiteZero = true;
    settings.bmcKey = profile.bmcKey;
    if (!profile.cipherSuite) settings.cipherSuite = Tolmar::ConnectionSettings::AutoCipherSuite;
    settings.workarounds = profile.workarounds;
    settings.sessionTimeout = profile.sessionTimeout;
    return settings;
}

Failure failureOf(int result) {
    switch (result) {
        case IpmiEventLog::EL_SUCCESS:
            return Failure::None;
        case IpmiEventLog::EL_NOT_SUPPORTED:
            return Failure::NotSupported;
        case IpmiEventLog::EL_BUSY:
            return Failure::Busy;
        case IpmiEventLog::EL_CONNECTION_FAIL:
            return Failure::Connection;
        case IpmiEventLog::EL_AUTHTICATION_FAIL:
            return Failure::Authentication;
        case IpmiEventLog::EL_NOT_FOUND:
            return Failure::NotFound;
        default:
            return Failure::Internal;
    }
}

namespace {

// What a BMC answers a request the session's privilege level does not allow.
constexpr unsigned char kInsufficientPrivilege = 0xD4;

// A request that failed, by the BMC's last refusal in the call.
std::string refusalText(const std::string& name, const Tolmar::CallReport& call) {
    if (call.refusedCompletionCode == 0x00) {
        return "the request to " + name +
               " failed: a lost session or an answer that makes no sense (run with -v for "
               "the exchange)";
    }
    if (call.refusedCompletionCode == kInsufficientPrivilege) {
        return "the request to " + name + " failed: " + call.refusal +
               ": the session's level does not allow it (changing the SEL needs operator; "
               "see -L)";
    }
    return "the request to " + name + " failed: " + call.refusal;
}

}  // namespace

std::string ipmiFailureText(const std::string& host, int result, const Tolmar::CallReport& call) {
    const std::string name = hostName(host);
    switch (result) {
        case IpmiEventLog::EL_NOT_SUPPORTED:
            return name + " does not support this request";
        case IpmiEventLog::EL_BUSY:
            // Some BMCs refuse Reserve SEL below the operator level: not a busy BMC.
            if (call.refusedCompletionCode == kInsufficientPrivilege)
                return refusalText(name, call);
            return name + " is busy (the SEL could not be reserved or is being erased): try again";
        case IpmiEventLog::EL_CONNECTION_FAIL:
            // The framework says what failed and what to check, where it could tell.
            if (!call.connectFailure.empty())
                return "cannot connect to " + name + ": " + call.connectFailure;
            return host.empty() ? "no local BMC interface: check the ipmi_si and ipmi_devintf "
                                  "kernel modules and /dev/ipmi0 (run with -v for details)"
                                : "cannot connect to " + name +
                                      ": check the address, the port and that IPMI over LAN is "
                                      "enabled";
        case IpmiEventLog::EL_AUTHTICATION_FAIL:
            if (!call.connectFailure.empty())
                return "authentication refused by " + name + ": " + call.connectFailure;
            return "authentication refused by " + name + ": check user, password and privilege";
        case IpmiEventLog::EL_NOT_FOUND:
            return name + " has no SEL record with that ID";
        default:
            return refusalText(name, call);
    }
}

namespace {

std::string recordIdText(unsigned long id) {
    char text[8];
    std::snprintf(text, sizeof text, "0x%04lx", id);
    return text;
}

std::optional<std::time_t> absoluteTime(const Tolmar::DecodedSelRecord& record) {
    if (record.time != Time::Absolute) return std::nullopt;
    return static_cast<std::time_t>(record.timestamp);
}

// The described rendering's time stamp, "MM/DD/YYYY hh:mm:ss" in UTC, in local time; as it is
// when it names no moment ("Unspecified").
std::string describedLocalTime(const std::string& timeStamp) {
    const std::optional<std::time_t> moment = parseMonthDayYear(timeStamp);
    return moment ? monthDayYearLocalText(*moment) : timeStamp;
}

// A reading or threshold that can be written: one the SDR converted to a finite number.
void addMeasurement(std::vector<EventField>& fields, const char* key,
                    const std::optional<Tolmar::SensorValue>& value) {
    if (value && std::isfinite(value->value))
        fields.push_back({key, Measurement{value->value, value->units}});
}

EventField::Value textOrNull(const std::optional<std::string>& text) {
    if (text) return *text;
    return nullptr;
}

// What the record's bytes say, in ipmiEventColumns' order; a fact that does not apply to the
// record's kind is left out.
std::vector<EventField> recordFields(const Tolmar::DecodedSelRecord& r) {
    std::vector<EventField> fields;
    const auto number = [&fields](const char* key, unsigned long value) {
        fields.push_back({key, value});
    };
    const std::optional<std::time_t> moment = absoluteTime(r);
    number("recordType", r.recordType);
    fields.push_back({"time", moment ? EventField::Value(isoUtcText(*moment)) : nullptr});
    if (r.time == Time::PreInit) number("preInitSeconds", r.timestamp);
    if (r.kind == Kind::SystemEvent) {
        number("generatorId", r.generatorId);
        number("sensorType", r.sensorType);
        fields.push_back({"sensorTypeName", r.sensorTypeName});
        number("sensorNumber", r.sensorNumber);
        fields.push_back({"sensorName", textOrNull(r.sensorName)});
        number("eventType", r.eventType);
        fields.push_back({"direction", std::string(r.assertion ? "assertion" : "deassertion")});
        number("offset", r.offset);
        fields.push_back(
            {"eventData", std::vector<unsigned>(r.eventData.begin(), r.eventData.end())});
        addMeasurement(fields, "reading", r.reading);
        addMeasurement(fields, "threshold", r.threshold);
        return fields;
    }
    if (r.kind == Kind::TimestampedOem) number("manufacturerId", r.manufacturerId);
    fields.push_back({"manufacturer", textOrNull(r.manufacturer)});
    fields.push_back({"oemData", hexText(r.oemData.data(), r.oemData.size())});
    return fields;
}

Severity severityOf(int severity) {
    return severity == 2 ? Severity::Critical : severity == 1 ? Severity::Warning : Severity::Info;
}

}  // namespace

std::string recordTimeText(const Tolmar::DecodedSelRecord& record, bool localTime) {
    const std::optional<std::time_t> moment = absoluteTime(record);
    if (!localTime || !moment) return Tolmar::selTimeText(record);
    return zonedLocalTimeText(*moment);
}

SourceEvent ipmiEvent(const Tolmar::FollowedEvent& followed, Rendering rendering) {
    const Tolmar::TolmarAgentless::IPMIEVENT& e = followed.event;
    SourceEvent event;
    event.id = recordIdText(e.recordId);
    event.number = e.recordId;
    // The record's own time stamp, whatever the rendering: one that counts from the BMC's
    // initialisation names no moment.
    if (const std::optional<std::time_t> moment = absoluteTime(followed.record))
        event.time = std::chrono::system_clock::from_time_t(*moment);
    if (rendering == Rendering::Ipmi) {
        event.timeText = recordTimeText(followed.record, false);
        event.localTimeText = recordTimeText(followed.record, true);
    } else {
        event.timeText = e.timeStamp;
        event.localTimeText = describedLocalTime(e.timeStamp);
    }
    event.severity = severityOf(e.severity);
    event.message = e.message;
    event.source = e.source;
    event.details = e.auxLog;
    event.fields = recordFields(followed.record);
    return event;
}

const EventColumns& ipmiEventColumns() {
    static const EventColumns columns{
        "recordId",
        true,
        {"recordType", "time", "preInitSeconds", "generatorId", "sensorType", "sensorTypeName",
         "sensorNumber", "sensorName", "eventType", "direction", "offset", "eventData", "reading",
         "readingUnits", "threshold", "thresholdUnits", "manufacturerId", "manufacturer",
         "oemData"},
        {"recordType", "sensorType", "sensorTypeName", "sensorNumber", "sensorName"}};
    return columns;
}

namespace {

Tolmar::EventRendering libraryRendering(Rendering rendering) {
    return rendering == Rendering::Ipmi ? Tolmar::EventRendering::Ipmi
                                        : Tolmar::EventRendering::Described;
}

LogHealth healthOf(const Tolmar::SelHealth& sel) {
    LogHealth health;
    health.name = "SEL";
    health.known = sel.known;
    health.entries = sel.entries;
    health.freeBytes = sel.freeBytes;
    // Each SEL record takes 16 bytes.
    health.used = static_cast<unsigned long>(sel.entries) * 16;
    health.room = health.used + sel.freeBytes;
    health.overflow = sel.overflow;
    return health;
}

std::string incompleteText(const std::string& host, const Tolmar::PollResult& poll,
                           bool eventsMayLack) {
    std::string text =
        hostName(host) + ": incomplete: " +
        (poll.failure.empty() ? "BMC stopped answering after " +
                                    std::to_string(poll.call.selEntriesRead) + " SEL entries"
                              : poll.failure);
    // Raw entries have nothing else to miss.
    if (eventsMayLack) text += "; severities, sensor names and auxiliary details may be missing";
    return text;
}

}  // namespace

IpmiEventSource::IpmiEventSource(const ConnectionProfile& profile, const ReadSettings& settings)
    : host_(profile.host),
      connection_(ipmiConnection(profile)),
      rendering_(settings.rendering),
      follower_(connection_, ipmiSettings(profile)) {
    follower_.SetRendering(libraryRendering(rendering_));
    follower_.ClearWhenFull(settings.clearWhenFull);
}

namespace {

bool sameConnection(const Tolmar::TolmarConnection::ConnectionInfo& a,
                    const Tolmar::TolmarConnection::ConnectionInfo& b) {
    return a.ip == b.ip && a.port == b.port && a.user == b.user && a.password == b.password &&
           a.cipherSuite == b.cipherSuite && a.connectionType == b.connectionType;
}

}  // namespace

void IpmiEventSource::reconfigure(const ConnectionProfile& profile, const ReadSettings& settings) {
    const Tolmar::TolmarConnection::ConnectionInfo connection = ipmiConnection(profile);
    if (!sameConnection(connection, connection_)) {
        // Other credentials: the same BMC, its place kept.
        Tolmar::IpmiEventFollower renewed(connection, ipmiSettings(profile));
        std::string error;
        renewed.LoadStateText(follower_.StateText(), error);
        follower_ = std::move(renewed);
        connection_ = connection;
    }
    follower_.SetSettings(ipmiSettings(profile));
    rendering_ = settings.rendering;
    follower_.SetRendering(libraryRendering(rendering_));
    follower_.ClearWhenFull(settings.clearWhenFull);
}

std::string IpmiEventSource::hostName() const { return tool::hostName(host_); }

SourcePoll IpmiEventSource::outcome(const Tolmar::PollResult& poll,
                                    std::vector<Tolmar::FollowedEvent> events, bool raw) {
    SourcePoll out;
    out.failure = failureOf(poll.result);
    out.warning = poll.call.warning;
    if (out.failure != Failure::None) {
        out.failureText = ipmiFailureText(host_, poll.result, poll.call);
        return out;
    }
    out.complete = poll.complete;
    // A complete poll's failure is a clear that could not be made.
    if (poll.complete) {
        out.clearFailure = poll.failure;
    } else {
        out.incompleteText = incompleteText(host_, poll, !raw);
    }
    out.cleared = poll.cleared;
    out.emptied = poll.emptied;
    out.health = healthOf(poll.sel);
    out.entriesRead = poll.call.selEntriesRead;
    out.events.reserve(events.size());
    for (const Tolmar::FollowedEvent& followed : events)
        out.events.push_back(ipmiEvent(followed, rendering_));
    return out;
}

SourcePoll IpmiEventSource::poll(bool skipping) {
    std::vector<Tolmar::FollowedEvent> events;
    const Tolmar::PollResult poll = skipping ? follower_.SkipToEnd() : follower_.Poll(events);
    SourcePoll out = outcome(poll, std::move(events), false);
    if (skipping && out.failure == Failure::None && poll.complete) out.skipped = poll.entriesRead;
    return out;
}

SourcePoll IpmiEventSource::wholeRead(const Tolmar::PollResult& poll,
                                      std::vector<Tolmar::FollowedEvent> events, bool raw) {
    SourcePoll out = outcome(poll, std::move(events), raw);
    // An erase begun after the first records were read: the rest were not. An empty SEL, or one
    // being erased from its first record, is a complete read of nothing.
    if (out.failure == Failure::None && out.complete && !follower_.ReadToEnd() &&
        poll.entriesRead != 0) {
        out.complete = false;
        out.clearFailure.clear();
        out.incompleteText = incompleteText(host_, poll, !raw);
    }
    return out;
}

SourcePoll IpmiEventSource::readWhole() {
    std::vector<Tolmar::FollowedEvent> events;
    const Tolmar::PollResult poll = follower_.Poll(events);
    return wholeRead(poll, std::move(events), false);
}

SourcePoll IpmiEventSource::readWholeRaw(std::vector<Tolmar::IPMISELENTRY>& entries) {
    return wholeRead(follower_.PollRaw(entries), {}, true);
}

std::string IpmiEventSource::loadState(const std::string& path) {
    std::string error;
    // No file yet is the first run.
    if (follower_.LoadState(path, error) || access(path.c_str(), F_OK) != 0) return "";
    return hostName() + ": " + error + "; reading the whole SEL";
}

std::string IpmiEventSource::saveState(const std::string& path) const {
    std::string error;
    return follower_.SaveState(path, error) ? ""
                                            : hostName() + ": the state was not saved: " + error;
}

}  // namespace tool
