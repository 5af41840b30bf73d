// Prints a BMC's decoded event log through Tolmar::IpmiEventLog.
//
//   print_event_log                        the local BMC, through the in-band interface
//   print_event_log HOST [PORT [USER]]     a BMC over the LAN (IPMI v2.0, RMCP+); the password
//                                          comes from the environment variable IPMI_PASSWORD
#include <IpmiEventLog.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

const char* severityWord(int severity) {
    switch (severity) {
        case 1:
            return "warning";
        case 2:
            return "critical";
        default:
            return "info";
    }
}

// The text with control bytes (an OS stop message can carry a zero byte) shown as \xNN.
std::string printable(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        if (c < 0x20 || c == 0x7F) {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02X", c);
            out += escaped;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    Tolmar::TolmarConnection::ConnectionInfo info;
    if (argc > 1) {
        info.connectionType = 1;
        info.ip = argv[1];
        info.port = static_cast<std::uint16_t>(argc > 2 ? std::atoi(argv[2]) : 623);
        info.user = argc > 3 ? argv[3] : "admin";
        if (const char* password = std::getenv("IPMI_PASSWORD")) info.password = password;
    }
    Tolmar::IpmiEventLog log(info);
    std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
    const int result = log.GetAllIpmiEventLog(events);
    if (result != Tolmar::IpmiEventLog::EL_SUCCESS) {
        std::fprintf(stderr, "print_event_log: cannot read the event log (result %d)\n", result);
        return 1;
    }
    for (const auto& event : events) {
        std::printf("0x%04lx  %-19s  %-8s  %s\n", event.recordId, event.timeStamp.c_str(),
                    severityWord(event.severity), printable(event.source).c_str());
        std::printf("        %s\n", printable(event.message).c_str());
        if (event.auxLog != "No Extended Data") {
            std::printf("        %s\n", printable(event.auxLog).c_str());
        }
    }
    std::printf("%zu events\n", events.size());
    return 0;
}
