// Prints a BMC's System Event Log through Tolmar::IpmiEventLog, one raw record a line.
//
//   print_sel                        the local BMC, through the in-band interface
//   print_sel HOST [PORT [USER]]     a BMC over the LAN (IPMI v2.0, RMCP+); the password comes
//                                    from the environment variable IPMI_PASSWORD
#include <IpmiEventLog.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

namespace {

const char* resultText(int result) {
    switch (result) {
        case Tolmar::IpmiEventLog::EL_NOT_SUPPORTED:
            return "the BMC does not support the request";
        case Tolmar::IpmiEventLog::EL_BUSY:
            return "the SEL is busy (an erase is in progress)";
        case Tolmar::IpmiEventLog::EL_CONNECTION_FAIL:
            return "cannot connect to the BMC";
        case Tolmar::IpmiEventLog::EL_AUTHTICATION_FAIL:
            return "the BMC refused the user name or password";
        default:
            return "the request failed";
    }
}

// SEL time stamps count seconds since 1970 (UTC); values up to 0x20000000 are relative to the BMC's
// initialization and 0xFFFFFFFF means unspecified (IPMI v2.0 section 37).
std::string timeText(const Tolmar::IPMISELENTRY& entry) {
    const unsigned long seconds = entry.timestamp[0] | entry.timestamp[1] << 8 |
                                  entry.timestamp[2] << 16 |
                                  static_cast<unsigned long>(entry.timestamp[3]) << 24;
    if (seconds <= 0x20000000ul || seconds == 0xFFFFFFFFul) return "-";
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm utc{};
    gmtime_r(&time, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &utc);
    return text;
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
    std::vector<Tolmar::IPMISELENTRY> entries;
    const int result = log.GetAllIpmiSelEntry(entries);
    if (result != Tolmar::IpmiEventLog::EL_SUCCESS) {
        std::fprintf(stderr, "print_sel: %s (result %d)\n", resultText(result), result);
        return 1;
    }
    std::printf("%-6s  %-19s  %s\n", "ID", "TIME (UTC)", "RECORD");
    for (const Tolmar::IPMISELENTRY& entry : entries) {
        std::printf("0x%04x  %-19s ", entry.recordId[0] | entry.recordId[1] << 8,
                    timeText(entry).c_str());
        const auto* bytes = reinterpret_cast<const unsigned char*>(&entry);
        for (std::size_t i = 0; i < sizeof entry; ++i) std::printf(" %02x", bytes[i]);
        std::printf("\n");
    }
    std::printf("%zu SEL entries\n", entries.size());
    return 0;
}
