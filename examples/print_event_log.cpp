// Prints a BMC's event log through Tolmar::IpmiEventLog: decoded, or with --raw as the 16 bytes of
// each SEL record.
//
//   print_event_log [--raw]                        the local BMC, through the in-band interface
//   print_event_log [--raw] HOST [PORT [USER]]     a BMC over the LAN (IPMI v2.0, RMCP+); the
//                                                  password comes from IPMI_PASSWORD
#include <IpmiEventLog.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Tolmar::IpmiEventLog;

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

int printDecoded(IpmiEventLog& log) {
    std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
    const int result = log.GetAllIpmiEventLog(events);
    if (result != IpmiEventLog::EL_SUCCESS) return result;
    for (const auto& event : events) {
        std::printf("0x%04lx  %-19s  %-8s  %s\n", event.recordId, event.timeStamp.c_str(),
                    severityWord(event.severity), printable(event.source).c_str());
        std::printf("        %s\n", printable(event.message).c_str());
        if (event.auxLog != "No Extended Data") {
            std::printf("        %s\n", printable(event.auxLog).c_str());
        }
    }
    std::printf("%zu events\n", events.size());
    return result;
}

int printRaw(IpmiEventLog& log) {
    std::vector<Tolmar::IPMISELENTRY> entries;
    const int result = log.GetAllIpmiSelEntry(entries);
    if (result != IpmiEventLog::EL_SUCCESS) return result;
    for (const Tolmar::IPMISELENTRY& entry : entries) {
        const auto* bytes = reinterpret_cast<const unsigned char*>(&entry);
        std::printf("0x%04x ", entry.recordId[0] | entry.recordId[1] << 8);
        for (std::size_t i = 0; i < sizeof entry; ++i) std::printf(" %02x", bytes[i]);
        std::printf("\n");
    }
    std::printf("%zu SEL entries\n", entries.size());
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    const bool raw = argc > 1 && std::strcmp(argv[1], "--raw") == 0;
    const int first = raw ? 2 : 1;
    Tolmar::TolmarConnection::ConnectionInfo info;
    if (argc > first) {
        info.connectionType = 1;
        info.ip = argv[first];
        info.port = static_cast<std::uint16_t>(argc > first + 1 ? std::atoi(argv[first + 1]) : 623);
        info.user = argc > first + 2 ? argv[first + 2] : "admin";
        if (const char* password = std::getenv("IPMI_PASSWORD")) info.password = password;
    }
    IpmiEventLog log(info);
    const int result = raw ? printRaw(log) : printDecoded(log);
    if (result != IpmiEventLog::EL_SUCCESS) {
        std::fprintf(stderr, "print_event_log: cannot read the event log (result %d)\n", result);
        return 1;
    }
    return 0;
}
