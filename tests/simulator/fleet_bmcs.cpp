// Serves a fleet of simulated BMCs (BmcFleet) until it is sent SIGTERM or SIGINT:
//   fleet_bmcs BMCS [SILENT [SEL_RECORDS [THREADS]]]
// Once every port is bound it prints one line, the hosts as -H takes them
// ("127.0.0.1:PORT,..."), the silent ones last. The administrator is ipmi_sim's
// (bmcsim::kAdministrator).
#include <signal.h>
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "BmcFleet.h"

namespace {

// A socket a BMC: as many descriptors as the hard limit allows.
void allowEveryDescriptor() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

std::size_t argument(int argc, char** argv, int at, std::size_t otherwise) {
    return argc > at ? std::strtoul(argv[at], nullptr, 10) : otherwise;
}

void waitForAStopSignal() {
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGTERM);
    sigaddset(&stops, SIGINT);
    int signal = 0;
    sigwait(&stops, &signal);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: fleet_bmcs BMCS [SILENT [SEL_RECORDS [THREADS]]]\n");
        return 2;
    }
    // Blocked before the serving threads start, so that sigwait takes the stop signals.
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGTERM);
    sigaddset(&stops, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stops, nullptr);
    allowEveryDescriptor();
    try {
        bmcsim::FleetSettings settings;
        settings.bmcs = argument(argc, argv, 1, 1);
        settings.silent = argument(argc, argv, 2, 0);
        settings.selRecords = argument(argc, argv, 3, 0);
        settings.threads = static_cast<unsigned>(argument(argc, argv, 4, 1));
        const bmcsim::BmcFleet fleet(settings);
        std::printf("%s\n", fleet.hostList().c_str());
        std::fflush(stdout);
        waitForAStopSignal();
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "fleet_bmcs: %s\n", e.what());
        return 1;
    }
}
