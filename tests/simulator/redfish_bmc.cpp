// Serves one Redfish BMC layout with generated log entries until interrupted, for benchmarks,
// manual runs and redfishtool:
//   redfish_bmc [--layout openbmc|idrac|ilo|xcc|supermicro] [--entries N] [--https] [--port P]
//               [--user U] [--password P] [--sel-as-additional-data]
// It prints "listening on URL" (and the certificate's path over HTTPS) once it serves.
#include <pthread.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <string>

#include "RedfishBmc.h"

namespace {

int usage(const std::string& why) {
    std::cerr << "redfish_bmc: " << why
              << "\nusage: redfish_bmc [--layout openbmc|idrac|ilo|xcc|supermicro] [--entries N]"
                 " [--https] [--port P] [--user U] [--password P] [--sel-as-additional-data]\n";
    return 2;
}

// A system event record of the sample kinds in turn: a temperature going high, a power supply
// failing, a memory error, each with a time stamp a minute after the one before.
std::array<std::uint8_t, 16> generatedRecord(unsigned index) {
    static const std::uint8_t kinds[][5] = {
        // sensor type, sensor number, event type, offset, data 2
        {0x01, 0x30, 0x01, 0x59, 0x00},  // Temperature: upper critical going high
        {0x08, 0x41, 0x6F, 0x01, 0xFF},  // Power Supply: failure detected
        {0x0C, 0x70, 0x6F, 0xA1, 0x00},  // Memory: uncorrectable ECC
    };
    const auto& kind = kinds[index % 3];
    const std::uint32_t stamp = 1700000000u + index * 60u;
    const std::uint16_t id = static_cast<std::uint16_t>(index + 1);
    return {static_cast<std::uint8_t>(id),
            static_cast<std::uint8_t>(id >> 8),
            0x02,  // system event record
            static_cast<std::uint8_t>(stamp),
            static_cast<std::uint8_t>(stamp >> 8),
            static_cast<std::uint8_t>(stamp >> 16),
            static_cast<std::uint8_t>(stamp >> 24),
            0x20,  // generator: the BMC
            0x00,
            0x04,  // event message format of IPMI v1.5 and later
            kind[0],
            kind[1],
            kind[2],
            kind[3],
            kind[4],
            0xFF};
}

}  // namespace

int main(int argc, char** argv) {
    bmcsim::RedfishBmcOptions options;
    unsigned long entries = 20;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--https") {
            options.https = true;
            continue;
        }
        if (option == "--sel-as-additional-data") {
            options.selAsAdditionalData = true;
            continue;
        }
        if (i + 1 >= argc) return usage(option + " wants a value");
        const std::string value = argv[++i];
        if (option == "--layout") {
            const auto layout = bmcsim::redfishLayoutNamed(value);
            if (!layout) return usage("unknown layout " + value);
            options.layout = *layout;
        } else if (option == "--entries") {
            char* end = nullptr;
            entries = std::strtoul(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0') return usage("--entries wants a number");
        } else if (option == "--port") {
            char* end = nullptr;
            const long port = std::strtol(value.c_str(), &end, 10);
            if (value.empty() || *end != '\0' || port < 0 || port > 65535)
                return usage("--port wants a port number");
            options.port = static_cast<int>(port);
        } else if (option == "--user") {
            options.user = value;
        } else if (option == "--password") {
            options.password = value;
        } else {
            return usage("unknown option " + option);
        }
    }
    // Blocked before any thread starts, so that every thread leaves them to sigwait below.
    sigset_t stopping;
    sigemptyset(&stopping);
    sigaddset(&stopping, SIGINT);
    sigaddset(&stopping, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopping, nullptr);
    try {
        bmcsim::RedfishBmc bmc(options);
        const std::string log = bmc.mainLog();
        const bool sel = options.layout == bmcsim::RedfishLayout::OpenBmc ||
                         options.layout == bmcsim::RedfishLayout::Idrac ||
                         options.layout == bmcsim::RedfishLayout::Supermicro;
        for (unsigned long i = 0; i < entries; ++i) {
            if (sel) {
                bmc.addSelRecord(log, generatedRecord(static_cast<unsigned>(i)));
            } else {
                bmc.addEntry(log, {{"Created", "2023-11-14T22:13:20+00:00"}});
            }
        }
        bmc.start();
        std::cout << "listening on " << bmc.url() << std::endl;
        if (options.https) std::cout << "certificate " << bmc.certificateFile() << std::endl;
        int signal = 0;
        sigwait(&stopping, &signal);
        bmc.stop();
    } catch (const std::exception& e) {
        std::cerr << "redfish_bmc: " << e.what() << "\n";
        return 1;
    }
    return 0;
}
