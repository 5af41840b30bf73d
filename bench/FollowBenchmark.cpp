// What a poll of IpmiEventFollower costs, against reading the whole log again: for one ipmi_sim
// BMC with the sample server's sensors, filters and auxiliary log and SELs of several sizes, the
// requests and wall time of a first poll, an idle one and ones that find 1 and 100 new records,
// beside a full read by ipmi-event-log list, ipmitool sel elist and ipmi-sel through the same
// forwarder; then a fleet of ipmi_sim BMCs polled by followers in this process (16 at a time), CPU
// and wall time a poll, against ipmi-sel reading the same host list with its own fan-out.
// Prints Markdown tables.
//   follow_benchmark TOOL [FLEET]     (FLEET BMCs, 50 by default)
#include <sys/resource.h>

#include <IpmiEventFollower.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"
#include "BmcSimulator.h"
#include "LossyLink.h"
#include "SampleServer.h"
#include "ScratchDirectory.h"

namespace {

using Clock = std::chrono::steady_clock;
using Tolmar::IpmiEventFollower;
using Tolmar::TolmarAgentless::IPMIEVENT;

struct Cost {
    unsigned long requests;  // datagrams the client sent
    double seconds;
};

template <typename Work>
Cost through(bmcsim::LossyLink& link, Work work) {
    const unsigned long before = link.clientDatagrams();
    const auto start = Clock::now();
    work();
    return {link.clientDatagrams() - before,
            std::chrono::duration<double>(Clock::now() - start).count()};
}

double processCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return bench::cpuSecondsOf(usage);
}

std::string ipmiSel(const std::string& hosts, const std::string& cache) {
    return IPMI_SEL " -h " + hosts + " -u " + bmcsim::kAdministrator.name + " -p '" +
           bmcsim::kAdministrator.password +
           "' -D LAN_2_0 -W opensesspriv --sdr-cache-directory=" + cache;
}

void printCost(std::size_t records, const char* what, const Cost& cost) {
    std::printf("| %zu | %s | %lu | %.3f |\n", records, what, cost.requests, cost.seconds);
}

void pollCosts(const std::string& tool, std::size_t records) {
    const auto log = bmcsim::repeatedEventLog(records + 101);
    const auto bmc =
        bmcsim::sampleServerBmc({log.begin(), log.begin() + static_cast<long>(records)});
    bmcsim::LossyLink link(bmc->port(), bmcsim::LinkFaults{});
    const std::string port = std::to_string(link.port());
    IpmiEventFollower follower(bmcsim::administratorConnection(link.port()));
    std::vector<IPMIEVENT> events;
    const auto poll = [&] { follower.Poll(events); };
    printCost(records, "follower: first poll (every record)", through(link, poll));
    printCost(records, "follower: poll, nothing new", through(link, poll));
    bmc->addSelRecords({log[records]});
    printCost(records, "follower: poll, 1 new record", through(link, poll));
    bmc->addSelRecords({log.begin() + static_cast<long>(records) + 1, log.end()});
    printCost(records, "follower: poll, 100 new records", through(link, poll));
    const std::string user = bmcsim::kAdministrator.name;
    printCost(
        records, "ipmi-event-log list", through(link, [&] {
            bench::runCommand(tool + " -H 127.0.0.1:" + port + " -U " + user + " -E -L admin list");
        }));
    printCost(records, "ipmitool sel elist", through(link, [&] {
                  bench::runCommand(IPMITOOL " -I lanplus -H 127.0.0.1 -p " + port + " -U " + user +
                                    " -E -C 3 sel elist");
              }));
    bmcsim::ScratchDirectory cache;
    bench::runCommand(ipmiSel("127.0.0.1:" + port, cache.path()));  // its SDR cache, warm
    printCost(records, "ipmi-sel (warm SDR cache)", through(link, [&] {
                  bench::runCommand(ipmiSel("127.0.0.1:" + port, cache.path()));
              }));
}

// Polls every follower, 16 at a time.
void pollFleet(std::vector<std::unique_ptr<IpmiEventFollower>>& followers) {
    std::atomic<std::size_t> next{0};
    const auto worker = [&] {
        std::vector<IPMIEVENT> events;
        for (std::size_t i = next++; i < followers.size(); i = next++) followers[i]->Poll(events);
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 16; ++i) threads.emplace_back(worker);
    for (std::thread& t : threads) t.join();
}

struct Usage {
    double cpuSeconds;
    double wallSeconds;
};

template <typename Work>
Usage measured(Work work) {
    const double cpu = processCpuSeconds();
    const auto start = Clock::now();
    work();
    return {processCpuSeconds() - cpu, std::chrono::duration<double>(Clock::now() - start).count()};
}

void fleet(std::size_t size) {
    std::vector<std::unique_ptr<bmcsim::BmcSimulator>> bmcs;
    std::string hosts;
    for (std::size_t i = 0; i < size; ++i) {
        bmcs.push_back(bmcsim::sampleServerBmc(bmcsim::sampleEventLog()));
        hosts += (i ? "," : "") + std::string("127.0.0.1:") + std::to_string(bmcs.back()->port());
    }
    std::vector<std::unique_ptr<IpmiEventFollower>> followers;
    for (const auto& bmc : bmcs)
        followers.push_back(
            std::make_unique<IpmiEventFollower>(bmcsim::administratorConnection(bmc->port())));
    const auto row = [&](const char* what, const Usage& u) {
        std::printf("| %zu | %s | %.3f | %.3f |\n", size, what, u.cpuSeconds, u.wallSeconds);
    };
    row("followers: first poll (every record)", measured([&] { pollFleet(followers); }));
    constexpr int idlePolls = 5;
    const Usage idle = measured([&] {
        for (int i = 0; i < idlePolls; ++i) pollFleet(followers);
    });
    row("followers: poll, nothing new (mean of 5)",
        {idle.cpuSeconds / idlePolls, idle.wallSeconds / idlePolls});
    const auto extra = bmcsim::repeatedEventLog(1);
    for (const auto& bmc : bmcs) bmc->addSelRecords(extra);
    row("followers: poll, 1 new record a BMC", measured([&] { pollFleet(followers); }));
    bmcsim::ScratchDirectory cache;
    const std::string command = ipmiSel(hosts, cache.path()) + " --fanout 16";
    for (const char* what :
         {"ipmi-sel --fanout 16 (cold SDR cache)", "ipmi-sel --fanout 16 (warm SDR cache)"}) {
        const auto start = Clock::now();
        const bench::ProcessUsage usage = bench::runCommand(command);
        row(what, {usage.cpuSeconds, std::chrono::duration<double>(Clock::now() - start).count()});
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: follow_benchmark TOOL [FLEET]\n");
        return 2;
    }
    const std::string tool = argv[1];
    // The password of -E, for ipmi-event-log and ipmitool.
    setenv("IPMI_PASSWORD", bmcsim::kAdministrator.password, 1);
    const std::size_t fleetSize = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 50;
    std::printf("| SEL records | what | requests sent | wall s |\n|---|---|---|---|\n");
    for (std::size_t records : {100, 3000}) pollCosts(tool, records);
    std::printf("\n| BMCs | what | CPU s | wall s |\n|---|---|---|---|\n");
    fleet(fleetSize);
    return 0;
}
