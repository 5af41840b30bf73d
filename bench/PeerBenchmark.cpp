// Reads the decoded event log of one ipmi_sim BMC with ipmi-event-log, ipmitool and FreeIPMI's
// ipmi-sel, for SELs of several sizes, on loopback and through a forwarder that adds about 1 ms of
// round trip; prints a Markdown table of the median wall time and its difference from ipmitool's in
// the same round, CPU time, peak memory, the datagrams each sends, the time each takes for itself
// between an answer and its next request, and how far its wall time is above the chain of round
// trips its requests need.
//   peer_benchmark TOOL [RUNS]
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "BmcSimulator.h"
#include "IpmiClient.h"
#include "LossyLink.h"
#include "SampleServer.h"

namespace {

using namespace std::chrono_literals;

struct Measure {
    double wallSeconds = 0;
    unsigned long datagrams = 0;
    std::vector<double> turnarounds;             // the program's own time for each exchange
    std::optional<bench::ProcessUsage> process;  // none for work done in this process
};

// Times `work` through the link: its wall time, the datagrams it sent and its own time for each
// exchange; `work` gives the usage of its process, if it had one.
template <typename Work>
Measure throughLink(bmcsim::LossyLink& link, Work work) {
    const unsigned long datagramsBefore = link.clientDatagrams();
    link.takeClientTurnarounds();
    const auto start = std::chrono::steady_clock::now();
    Measure measure;
    measure.process = work();
    measure.wallSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    measure.datagrams = link.clientDatagrams() - datagramsBefore;
    measure.turnarounds = link.takeClientTurnarounds();
    return measure;
}

Measure runOnce(const std::string& command, bmcsim::LossyLink& link) {
    return throughLink(
        link, [&] { return std::optional<bench::ProcessUsage>(bench::runCommand(command)); });
}

std::string format(const char* pattern, double value) {
    char text[32];
    std::snprintf(text, sizeof text, pattern, value);
    return text;
}

double median(std::vector<double> values) {
    if (values.empty()) return std::nan("");
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// A session of the framework client through the link, as the administrator, cipher suite 3.
std::unique_ptr<IpmiClient> connectedClient(unsigned short port) {
    auto client =
        std::make_unique<IpmiClient>(bmcsim::BmcSimulator::host(), bmcsim::kAdministrator.name,
                                     bmcsim::kAdministrator.password, std::to_string(port), 3);
    client->connect();
    return client;
}

// Times of `count` exchanges of one request through the link, over one session.
std::vector<double> roundTrips(unsigned short port, const IpmiCommandRequest& request, int count) {
    const std::unique_ptr<IpmiClient> client = connectedClient(port);
    std::vector<double> times;
    for (int i = 0; i < count; ++i) {
        std::vector<unsigned char> response;
        unsigned char completionCode = 0;
        const auto start = std::chrono::steady_clock::now();
        client->sendCommand(request, response, completionCode);
        times.push_back(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    return times;
}

// Get SEL Entry of the record with this ID, whole record, no reservation.
IpmiCommandRequest getSelEntry(unsigned recordId) {
    return {0x43,
            {0x00, 0x00, static_cast<unsigned char>(recordId & 0xFF),
             static_cast<unsigned char>(recordId >> 8), 0x00, 0xFF},
            0x0A};
}

// The framework client alone following the SEL's next-record chain, as a decoded log starts, with
// nothing else read or decoded: what the transport itself costs. Runs in this process.
Measure walkSelChain(bmcsim::LossyLink& link) {
    return throughLink(link, [&] {
        const std::unique_ptr<IpmiClient> client = connectedClient(link.port());
        constexpr unsigned lastRecord = 0xFFFF;
        for (unsigned recordId = 0; recordId != lastRecord;) {
            std::vector<unsigned char> response;  // next record ID, then the record
            unsigned char completionCode = 0;
            if (client->sendCommand(getSelEntry(recordId), response, completionCode) != 0 ||
                completionCode != 0 || response.size() < 2) {
                std::fprintf(stderr, "the SEL walk stopped at record %u\n", recordId);
                break;
            }
            recordId = response[0] | response[1] << 8;
        }
        return std::optional<bench::ProcessUsage>();  // the session closes as the client goes
    });
}

// One row of the table: medians over the runs, the highest peak. `reference` holds ipmitool's runs,
// one a round: the difference from it is taken round by round, which cancels the machine's drift
// between rounds.
void printRow(std::size_t records, const std::string& path, const std::string& name,
              const std::vector<Measure>& measures, const std::vector<Measure>& reference,
              double selRoundTrip) {
    std::vector<double> wall, cpu, own, fromReference;
    long peak = 0;
    for (std::size_t run = 0; run < measures.size(); ++run) {
        const Measure& m = measures[run];
        fromReference.push_back(m.wallSeconds - reference[run].wallSeconds);
        wall.push_back(m.wallSeconds);
        own.insert(own.end(), m.turnarounds.begin(), m.turnarounds.end());
        if (m.process) {
            cpu.push_back(m.process->cpuSeconds);
            peak = std::max(peak, m.process->peakKilobytes);
        }
    }
    const unsigned long datagrams = measures.front().datagrams;
    const std::string cpuText = cpu.empty() ? "" : format("%.3f", median(cpu));
    const std::string peakText = cpu.empty() ? "" : format("%.1f", peak / 1024.0);
    std::printf("| %zu | %s | %s | %.3f | %+.0f | %s | %s | %lu | %.0f | %+.1f%% |\n", records,
                path.c_str(), name.c_str(), median(wall), median(fromReference) * 1e3,
                cpuText.c_str(), peakText.c_str(), datagrams, median(own) * 1e6,
                100.0 * (median(wall) / (datagrams * selRoundTrip) - 1.0));
}

struct Program {
    std::string name;
    std::string command;
    bool coldCache;  // ipmi-sel's SDR cache is emptied before it runs
};

constexpr std::size_t kIpmitool = 1;  // the others are compared with it, round by round

// The programs measured, reaching the BMC through the forwarder's port.
std::vector<Program> peerPrograms(const std::string& tool, const std::string& port,
                                  const std::string& cache) {
    const std::string user = bmcsim::kAdministrator.name;
    const std::string ipmiSel = IPMI_SEL " -h 127.0.0.1:" + port + " -u " + user + " -p '" +
                                bmcsim::kAdministrator.password + "' -D LAN_2_0 -W opensesspriv " +
                                "--sdr-cache-directory=" + cache;
    return {
        {"ipmi-event-log list",
         tool + " -H 127.0.0.1:" + port + " -U " + user + " -E -L admin -C 3 list", false},
        {"ipmitool sel elist",
         IPMITOOL " -I lanplus -H 127.0.0.1 -p " + port + " -U " + user + " -E -C 3 sel elist",
         false},
        {"ipmi-sel (cold SDR cache)", ipmiSel, true},
        {"ipmi-sel (warm SDR cache)", ipmiSel, false},
    };
}

// One request whose round trip is measured in every round, beside the programs.
struct Probe {
    std::string name;
    IpmiCommandRequest request;
    std::vector<double> times;
};

// Get SEL Entry last: it is what a decoded log mostly sends, and the bound uses it.
std::vector<Probe> roundTripProbes(std::size_t records) {
    return {
        {"round trip of Get Device ID", {0x01, {}, 0x06}, {}},
        {"round trip of Get SEL Entry", getSelEntry(static_cast<unsigned>(records / 2)), {}},
    };
}

// Runs every program `runs` times in alternation through the link, with the framework client's
// SEL walk and the round-trip probes in every round, and prints their rows.
void measurePath(std::size_t records, const std::string& path, bmcsim::LossyLink& link,
                 const std::string& tool, int runs) {
    const std::string cache = std::filesystem::temp_directory_path() / "peer-benchmark-sdr-cache";
    const std::vector<Program> programs = peerPrograms(tool, std::to_string(link.port()), cache);
    const std::string& ipmiSel = programs.back().command;  // cold and warm run the same command
    std::vector<Probe> probes = roundTripProbes(records);
    std::filesystem::remove_all(cache);
    std::filesystem::create_directories(cache);
    runOnce(ipmiSel, link);  // fills the cache for the warm runs
    std::vector<std::vector<Measure>> measures(programs.size());
    std::vector<Measure> walks;
    for (int run = 0; run < runs; ++run) {
        for (std::size_t p = 0; p < programs.size(); ++p) {  // in alternation
            if (programs[p].coldCache) std::filesystem::remove_all(cache + "/.freeipmi");
            measures[p].push_back(runOnce(programs[p].command, link));
            if (programs[p].coldCache) runOnce(ipmiSel, link);  // warm again
        }
        walks.push_back(walkSelChain(link));
        for (Probe& probe : probes) {
            const std::vector<double> times = roundTrips(link.port(), probe.request, 20);
            probe.times.insert(probe.times.end(), times.begin(), times.end());
        }
    }
    std::filesystem::remove_all(cache);

    const double selRoundTrip = median(probes.back().times);
    for (std::size_t p = 0; p < programs.size(); ++p) {
        printRow(records, path, programs[p].name, measures[p], measures[kIpmitool], selRoundTrip);
    }
    printRow(records, path, "framework client alone: the SEL chain only", walks,
             measures[kIpmitool], selRoundTrip);
    for (const Probe& probe : probes) {
        std::printf("| %zu | %s | median %s | %.6f | | | | | | |\n", records, path.c_str(),
                    probe.name.c_str(), median(probe.times));
    }
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: peer_benchmark TOOL [RUNS]\n");
        return 2;
    }
    const std::string tool = argv[1];
    const int runs = argc > 2 ? std::atoi(argv[2]) : 5;
    setenv("IPMI_PASSWORD", bmcsim::kAdministrator.password, 1);

    std::printf(
        "| SEL records | path | program | wall s (median) | ms from ipmitool in the same round "
        "(median) | CPU s | peak MB | datagrams sent | µs of its own per exchange | wall over "
        "datagrams × round trip |\n");
    std::printf("|---|---|---|---|---|---|---|---|---|---|\n");
    for (std::size_t records : {100, 1000, 3000}) {
        bmcsim::BmcSimulator bmc(bmcsim::sdrCommands(bmcsim::sampleSdrRepository()));
        bmc.setEventFilters(bmcsim::sampleEventFilters());
        bmc.addSelRecords(bmcsim::repeatedEventLog(records));
        for (const auto delay : {0us, 500us}) {
            bmcsim::LossyLink link(bmc.port(), 0.0, delay);
            measurePath(records, delay == 0us ? "loopback" : "~1 ms", link, tool, runs);
        }
    }
    return 0;
}
