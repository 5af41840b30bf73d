#include "follow/SyslogMessage.h"

#include <unistd.h>

#include <climits>
#include <cstdio>
#include <map>

#include "base/HostPort.h"
#include "base/TimeText.h"
#include "output/Journal.h"

namespace tool {

namespace {

constexpr const char* kDefaultPort = "514";

// RFC 5424's NILVALUE stands for a header field there is nothing for.
std::string orNil(const std::string& field) { return field.empty() ? "-" : field; }

// A header field is printable ASCII without spaces: anything else becomes '_'.
std::string headerField(const std::string& text) {
    std::string out = text;
    for (char& c : out) {
        if (c <= ' ' || c > '~') c = '_';
    }
    return orNil(out);
}

std::string sdParam(const std::string& name, const std::string& value) {
    return " " + name + "=\"" + sdParamValue(displayText(value)) + "\"";
}

// A fact as an SD-PARAM value: numbers in decimal, as JSON has them.
std::optional<std::string> paramText(const EventField::Value& value) {
    if (const auto* number = std::get_if<unsigned long>(&value)) return std::to_string(*number);
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    return std::nullopt;
}

// The facts of the event its source names for syslog (for a SEL record: its type and, for a
// system event, its sensor), those it has.
std::string factParams(const SourceEvent& event, const EventColumns& columns) {
    std::string data;
    for (const std::string& key : columns.syslogFacts) {
        for (const EventField& field : event.fields) {
            const std::optional<std::string> text = paramText(field.value);
            if (field.key == key && text) data += sdParam(key, *text);
        }
    }
    return data;
}

std::string structuredData(const EventRow& row, const EventColumns& columns) {
    const SourceEvent& event = row.event;
    std::string data =
        std::string("[") + kSyslogSdId + sdParam("host", row.host) +
        sdParam(columns.idKey,
                columns.numberedIds && event.number ? std::to_string(*event.number) : event.id) +
        sdParam("severity", severityWord(event.severity));
    // The moment the event happened, as its source stamped it.
    if (event.time)
        data += sdParam("eventTime", isoUtcText(std::chrono::system_clock::to_time_t(*event.time)));
    if (!event.source.empty()) data += sdParam("source", event.source);
    data += factParams(event, columns);
    if (!row.complete) data += sdParam("complete", "false");
    return data + "]";
}

// "HOST[:PORT]" or "[IPV6][:PORT]" into `address`.
void parseHostAndPort(const std::string& rest, SyslogAddress& address) {
    try {
        const HostPort parsed = parseHostPort(rest);
        address.host = parsed.host;
        address.port = parsed.port ? std::to_string(*parsed.port) : kDefaultPort;
    } catch (const HostPortError& e) {
        throw SyslogSettingError("syslog address \"" + address.text + "\": " + e.what());
    }
}

}  // namespace

SyslogAddress parseSyslogAddress(const std::string& text) {
    SyslogAddress address;
    address.text = text;
    if (text.rfind("unix:", 0) == 0) {
        address.transport = SyslogTransport::Unix;
        address.path = text.substr(5);
        if (address.path.empty())
            throw SyslogSettingError("syslog address \"" + text + "\" names no socket");
        return address;
    }
    if (text.rfind("udp://", 0) == 0) {
        address.transport = SyslogTransport::Udp;
    } else if (text.rfind("tcp://", 0) == 0) {
        address.transport = SyslogTransport::Tcp;
    } else {
        throw SyslogSettingError("syslog address \"" + text +
                                 "\" is not udp://HOST:PORT, tcp://HOST:PORT or unix:PATH");
    }
    parseHostAndPort(text.substr(6), address);
    return address;
}

int parseSyslogFacility(const std::string& name) {
    // Codes 12 to 15 have no name the syslog daemons agree on.
    static const std::map<std::string, int> codes = {
        {"kern", 0},      {"user", 1},    {"mail", 2},    {"daemon", 3},  {"auth", 4},
        {"syslog", 5},    {"lpr", 6},     {"news", 7},    {"uucp", 8},    {"cron", 9},
        {"authpriv", 10}, {"ftp", 11},    {"local0", 16}, {"local1", 17}, {"local2", 18},
        {"local3", 19},   {"local4", 20}, {"local5", 21}, {"local6", 22}, {"local7", 23}};
    const auto found = codes.find(name);
    if (found != codes.end()) return found->second;
    throw SyslogSettingError(
        "syslog facility \"" + name + "\" is not one of kern, user, mail, daemon, " +
        "auth, syslog, lpr, news, uucp, cron, authpriv, ftp, local0 to local7");
}

SyslogOrigin localSyslogOrigin(int facility) {
    SyslogOrigin origin;
    origin.facility = facility;
    char name[HOST_NAME_MAX + 1] = {};
    if (gethostname(name, sizeof name - 1) == 0) origin.hostname = name;
    origin.processId = std::to_string(getpid());
    return origin;
}

std::string syslogTimestamp(std::chrono::system_clock::time_point moment) {
    const auto sinceEpoch = moment.time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(sinceEpoch);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch - seconds).count();
    std::string text = isoUtcText(static_cast<std::time_t>(seconds.count()));
    char fraction[8];
    std::snprintf(fraction, sizeof fraction, ".%03d", static_cast<int>(milliseconds));
    return text.insert(text.size() - 1, fraction);
}

std::string sdParamValue(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '"' || c == '\\' || c == ']') out += '\\';
        out += c;
    }
    return out;
}

std::string syslogMessage(const EventRow& row, const EventColumns& columns,
                          const SyslogOrigin& origin, std::chrono::system_clock::time_point read) {
    const int priority = origin.facility * 8 + syslogSeverity(row.event.severity);
    return "<" + std::to_string(priority) + ">1 " + syslogTimestamp(read) + " " +
           headerField(origin.hostname) + " ipmi-event-log " + headerField(origin.processId) +
           " sel " + structuredData(row, columns) + " " + displayText(row.event.message);
}

std::string octetCountedFrame(const std::string& message) {
    return std::to_string(message.size()) + " " + message;
}

}  // namespace tool
