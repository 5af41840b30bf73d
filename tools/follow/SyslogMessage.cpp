#include "follow/SyslogMessage.h"

#include <unistd.h>

#include <climits>
#include <cstdio>
#include <map>

#include "cli/Options.h"
#include "output/TimeStamps.h"

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

// The record's facts, whatever the rendering: its type and, for a system event, its sensor (the
// name only where the BMC's SDR gives one). Numbers in decimal, as JSON has them.
std::string recordParams(const Tolmar::DecodedSelRecord& record) {
    std::string data = sdParam("recordType", std::to_string(record.recordType));
    if (record.kind != Tolmar::DecodedSelRecord::Kind::SystemEvent) return data;
    data += sdParam("sensorType", std::to_string(record.sensorType)) +
            sdParam("sensorTypeName", record.sensorTypeName) +
            sdParam("sensorNumber", std::to_string(record.sensorNumber));
    if (record.sensorName) data += sdParam("sensorName", *record.sensorName);
    return data;
}

std::string structuredData(const EventRow& row) {
    const auto& event = row.event;
    std::string data = std::string("[") + kSyslogSdId + sdParam("host", row.host) +
                       sdParam("recordId", std::to_string(event.recordId)) +
                       sdParam("severity", severityWord(event.severity));
    // The BMC's own time stamp, from the record's bytes: the same in either rendering.
    if (const std::optional<std::time_t> stamped = absoluteTime(row.record))
        data += sdParam("eventTime", isoUtcText(*stamped));
    if (!event.source.empty()) data += sdParam("source", event.source);
    data += recordParams(row.record);
    if (!row.complete) data += sdParam("complete", "false");
    return data + "]";
}

// "HOST[:PORT]" or "[IPV6][:PORT]" into `address`.
void parseHostAndPort(const std::string& rest, SyslogAddress& address) {
    std::string portText;
    bool portGiven = false;
    if (!rest.empty() && rest[0] == '[') {
        const std::size_t close = rest.find(']');
        if (close == std::string::npos)
            throw UsageError("syslog address \"" + address.text +
                             "\" opens a bracket it does not close");
        address.host = rest.substr(1, close - 1);
        if (close + 1 < rest.size()) {
            if (rest[close + 1] != ':')
                throw UsageError("syslog address \"" + address.text + "\" is not udp://HOST:PORT");
            portText = rest.substr(close + 2);
            portGiven = true;
        }
    } else {
        const std::size_t colon = rest.find(':');
        address.host = rest.substr(0, colon);
        portGiven = colon != std::string::npos;
        if (portGiven) portText = rest.substr(colon + 1);
    }
    if (address.host.empty())
        throw UsageError("syslog address \"" + address.text + "\" names no host");
    address.port =
        portGiven ? std::to_string(parseNumber(portText, 65535, "syslog port")) : kDefaultPort;
}

}  // namespace

SyslogAddress parseSyslogAddress(const std::string& text) {
    SyslogAddress address;
    address.text = text;
    if (text.rfind("unix:", 0) == 0) {
        address.transport = SyslogTransport::Unix;
        address.path = text.substr(5);
        if (address.path.empty())
            throw UsageError("syslog address \"" + text + "\" names no socket");
        return address;
    }
    if (text.rfind("udp://", 0) == 0) {
        address.transport = SyslogTransport::Udp;
    } else if (text.rfind("tcp://", 0) == 0) {
        address.transport = SyslogTransport::Tcp;
    } else {
        throw UsageError("syslog address \"" + text +
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
    throw UsageError("syslog facility \"" + name + "\" is not one of kern, user, mail, daemon, " +
                     "auth, syslog, lpr, news, uucp, cron, authpriv, ftp, local0 to local7");
}

int syslogSeverity(int eventSeverity) {
    switch (eventSeverity) {
        case 2:
            return 2;
        case 1:
            return 4;
        default:
            return 6;
    }
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

std::string syslogMessage(const EventRow& row, const SyslogOrigin& origin,
                          std::chrono::system_clock::time_point read) {
    const int priority = origin.facility * 8 + syslogSeverity(row.event.severity);
    return "<" + std::to_string(priority) + ">1 " + syslogTimestamp(read) + " " +
           headerField(origin.hostname) + " ipmi-event-log " + headerField(origin.processId) +
           " sel " + structuredData(row) + " " + displayText(row.event.message);
}

std::string octetCountedFrame(const std::string& message) {
    return std::to_string(message.size()) + " " + message;
}

}  // namespace tool
