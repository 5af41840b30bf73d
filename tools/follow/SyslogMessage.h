// follow --syslog: where the events go (udp://, tcp://, unix:) and each event as an RFC 5424
// message, with its frame for a stream.
#pragma once

#include <chrono>
#include <stdexcept>
#include <string>

#include "output/Output.h"

namespace tool {

enum class SyslogTransport { Udp, Tcp, Unix };

struct SyslogAddress {
    SyslogTransport transport = SyslogTransport::Udp;
    std::string host;  // udp, tcp: a name or address (IPv6 without its brackets)
    std::string port;  // udp, tcp: 514 when the address names none
    std::string path;  // unix: the socket's path
    std::string text;  // as given, for the tool's notes
};

// A syslog setting that cannot be used; the text says why, naming it.
struct SyslogSettingError : std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

// "udp://HOST[:PORT]", "tcp://HOST[:PORT]" (an IPv6 address in brackets) or "unix:PATH". Throws
// SyslogSettingError.
SyslogAddress parseSyslogAddress(const std::string& text);

// Where events go when no facility is asked for.
constexpr int kDaemonFacility = 3;

// The facility's code for its usual name: kern 0, user 1, ... daemon 3, ... local0 16 to local7
// 23. Throws SyslogSettingError for another name.
int parseSyslogFacility(const std::string& name);

// The private enterprise number of the structured data's SD-ID "ipmi@32473": RFC 5612's number
// for documentation and examples, as the project has none registered of its own.
constexpr const char* kSyslogSdId = "ipmi@32473";

// What every message of a run shares.
struct SyslogOrigin {
    int facility = kDaemonFacility;
    std::string hostname;   // this machine's name; "-" (none) when empty
    std::string processId;  // "-" when empty
};

// This machine's name and the process's ID, with `facility`.
SyslogOrigin localSyslogOrigin(int facility);

// "2024-01-02T03:04:05.678Z": UTC, to the millisecond.
std::string syslogTimestamp(std::chrono::system_clock::time_point moment);

// An SD-PARAM value: `"`, `\` and `]` escaped with a backslash.
std::string sdParamValue(const std::string& text);

// `<PRI>1 TIMESTAMP HOSTNAME ipmi-event-log PROCID sel [ipmi@32473 host="..." recordId="..."
// severity="..." eventTime="..." source="..." recordType="..." sensorType="..."
// sensorTypeName="..." sensorNumber="..." sensorName="..."] MESSAGE`. PRI is the facility's code
// times 8 plus the severity's; TIMESTAMP is `read`, when the tool read the event; eventTime, the
// moment the event happened in RFC 3339 (left out when its source does not know it: a SEL record
// whose time stamp is unspecified or counts from the BMC's initialisation). The ID is named by
// `columns` (a number where the source numbers its records), and the facts after source are
// those `columns` names for syslog that the event has: for a SEL record its type (decimal), and
// for a system event the sensor's type (decimal and its name), number (decimal) and name (where
// the SDR gives one). Texts are as the table shows them, bytes outside printable ASCII escaped,
// so the message is ASCII: valid UTF-8 with no BOM needed.
std::string syslogMessage(const EventRow& row, const EventColumns& columns,
                          const SyslogOrigin& origin, std::chrono::system_clock::time_point read);

// "LENGTH MESSAGE": the octet-counted frame of a message on a stream.
std::string octetCountedFrame(const std::string& message);

}  // namespace tool
