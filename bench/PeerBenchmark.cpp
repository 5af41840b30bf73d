// Reads the decoded event log of one ipmi_sim BMC with ipmi-event-log, ipmitool and FreeIPMI's
// ipmi-sel, for SELs of several sizes, on loopback and through a forwarder that adds about 1 ms of
// round trip; prints a Markdown table of the median wall time, CPU time, peak memory and the
// datagrams each sends.
//   peer_benchmark TOOL [RUNS]
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "BmcSimulator.h"
#include "IpmiClient.h"
#include "LossyLink.h"
#include "SampleServer.h"

namespace {

using namespace std::chrono_literals;

struct Measure {
    double wallSeconds;
    double cpuSeconds;
    long peakKilobytes;
    unsigned long datagrams;
};

// Runs a shell command with its output discarded; wall time, the child's CPU time and peak memory.
Measure runOnce(const std::string& command, const bmcsim::LossyLink& link) {
    const unsigned long datagramsBefore = link.clientDatagrams();
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        execl("/bin/sh", "sh", "-c", ("exec " + command + " >/dev/null 2>&1").c_str(),
              static_cast<char*>(nullptr));
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    const double wall =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        std::fprintf(stderr, "failed (%d): %s\n", status, command.c_str());
    }
    const double cpu = usage.ru_utime.tv_sec + usage.ru_stime.tv_sec +
                       (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    return {wall, cpu, usage.ru_maxrss, link.clientDatagrams() - datagramsBefore};
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// A SEL of `count` events: the sample server's, repeated, a minute apart.
std::vector<bmcsim::SelRecord> eventLog(std::size_t count) {
    const std::vector<bmcsim::SelRecord> sample = bmcsim::sampleEventLog();
    std::vector<bmcsim::SelRecord> log;
    std::uint32_t time = 0x55000000;
    for (std::size_t i = 0; i < count; ++i) {
        bmcsim::SelRecord record = sample[i % sample.size()];
        time += 60;
        for (int b = 0; b < 4; ++b) record[3 + b] = static_cast<unsigned char>(time >> (8 * b));
        log.push_back(record);
    }
    return log;
}

// The median time of a Get Device ID exchange through the link.
double medianRoundTrip(unsigned short port) {
    IpmiClient client(bmcsim::BmcSimulator::host(), bmcsim::kAdministrator.name,
                      bmcsim::kAdministrator.password, std::to_string(port), 3);
    client.connect();
    std::vector<double> times;
    for (int i = 0; i < 50; ++i) {
        std::vector<unsigned char> response;
        unsigned char completionCode = 0;
        const auto start = std::chrono::steady_clock::now();
        client.sendCommand({0x01, {}, 0x06}, response, completionCode);
        times.push_back(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return median(times);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: peer_benchmark TOOL [RUNS]\n");
        return 2;
    }
    const std::string tool = argv[1];
    const int runs = argc > 2 ? std::atoi(argv[2]) : 5;
    const std::string user = bmcsim::kAdministrator.name;
    const std::string password = bmcsim::kAdministrator.password;
    setenv("IPMI_PASSWORD", password.c_str(), 1);
    const std::string cache = std::filesystem::temp_directory_path() / "peer-benchmark-sdr-cache";

    std::printf(
        "| SEL records | path | program | wall s (median) | CPU s | peak MB | datagrams sent |\n");
    std::printf("|---|---|---|---|---|---|---|\n");
    for (std::size_t records : {100, 1000, 3000}) {
        bmcsim::BmcSimulator bmc(bmcsim::sdrCommands(bmcsim::sampleSdrRepository()));
        bmc.setEventFilters(bmcsim::sampleEventFilters());
        bmc.addSelRecords(eventLog(records));
        for (const auto delay : {0us, 500us}) {
            bmcsim::LossyLink link(bmc.port(), 0.0, delay);
            const std::string port = std::to_string(link.port());
            const std::string path = delay == 0us ? "loopback" : "~1 ms";
            const std::string ipmiSel = "ipmi-sel -h 127.0.0.1:" + port + " -u " + user + " -p '" +
                                        password + "' -D LAN_2_0 -W opensesspriv " +
                                        "--sdr-cache-directory=" + cache;
            struct Program {
                std::string name;
                std::string command;
                bool coldCache;
            };
            const std::vector<Program> programs = {
                {"ipmi-event-log list",
                 tool + " -H 127.0.0.1:" + port + " -U " + user +
                     " -E -L admin -W opensesspriv list",
                 false},
                {"ipmitool sel elist",
                 "ipmitool -I lanplus -H 127.0.0.1 -p " + port + " -U " + user +
                     " -E -C 3 sel elist",
                 false},
                {"ipmi-sel (cold SDR cache)", ipmiSel, true},
                {"ipmi-sel (warm SDR cache)", ipmiSel, false},
            };
            std::filesystem::remove_all(cache);
            std::filesystem::create_directories(cache);
            runOnce(ipmiSel, link);  // fills the cache for the warm runs
            std::vector<std::vector<Measure>> measures(programs.size());
            for (int run = 0; run < runs; ++run) {
                for (std::size_t p = 0; p < programs.size(); ++p) {  // in alternation
                    if (programs[p].coldCache) std::filesystem::remove_all(cache + "/.freeipmi");
                    measures[p].push_back(runOnce(programs[p].command, link));
                    if (programs[p].coldCache) runOnce(ipmiSel, link);  // warm again
                }
            }
            for (std::size_t p = 0; p < programs.size(); ++p) {
                std::vector<double> wall, cpu;
                long peak = 0;
                for (const Measure& m : measures[p]) {
                    wall.push_back(m.wallSeconds);
                    cpu.push_back(m.cpuSeconds);
                    peak = std::max(peak, m.peakKilobytes);
                }
                std::printf("| %zu | %s | %s | %.3f | %.3f | %.1f | %lu |\n", records, path.c_str(),
                            programs[p].name.c_str(), median(wall), median(cpu), peak / 1024.0,
                            measures[p].front().datagrams);
            }
            std::printf("| %zu | %s | median round trip of one request | %.6f | | | |\n", records,
                        path.c_str(), medianRoundTrip(link.port()));
            std::fflush(stdout);
        }
    }
    std::filesystem::remove_all(cache);
    return 0;
}
