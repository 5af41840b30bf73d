// What a poll of IpmiEventFollower costs, against reading the whole log again: for one ipmi_sim
// BMC with the sample server's sensors, filters and auxiliary log and SELs of several sizes, the
// requests and wall time of a first poll, an idle one and ones that find 1 and 100 new records,
// beside a full read by ipmi-event-log list, ipmitool sel elist and ipmi-sel through the same
// forwarder; polls that find records deleted or the SEL cleared; then a fleet of ipmi_sim BMCs
// polled by followers in this process (16 at a time), CPU and wall time a poll, against ipmi-sel
// reading the same host list with its own fan-out, and followed by ipmi-event-log follow in a
// process of its own. Prints Markdown tables.
//   follow_benchmark TOOL [FLEET]     (FLEET BMCs, 50 by default)
#include <sys/resource.h>

#include <IpmiEventFollower.h>
#include <IpmiEventLog.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "BenchSupport.h"
#include "BmcSimulator.h"
#include "LossyLink.h"
#include "SampleServer.h"
#include "ScratchDirectory.h"
#include "fleet/FanOut.h"

namespace {

using Clock = std::chrono::steady_clock;
using Tolmar::IpmiEventFollower;
using Tolmar::IpmiEventLog;
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

// Each row gives the records the SEL held when it was measured: the follower's polls as the SEL
// grows by 1 and then 100 records, and the full reads of the SEL grown.
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
    printCost(records + 1, "follower: poll, 1 new record", through(link, poll));
    bmc->addSelRecords({log.begin() + static_cast<long>(records) + 1, log.end()});
    printCost(log.size(), "follower: poll, 100 new records", through(link, poll));
    const std::string user = bmcsim::kAdministrator.name;
    printCost(log.size(), "ipmi-event-log list", through(link, [&] {
                  bench::runCommand(tool + " -H 127.0.0.1:" + port + " -U " + user +
                                    " -E -L admin -C 3 list");
              }));
    printCost(log.size(), "ipmitool sel elist", through(link, [&] {
                  bench::runCommand(IPMITOOL " -I lanplus -H 127.0.0.1 -p " + port + " -U " + user +
                                    " -E -C 3 sel elist");
              }));
    bmcsim::ScratchDirectory cache;
    bench::runCommand(ipmiSel("127.0.0.1:" + port, cache.path()));  // its SDR cache, warm
    printCost(log.size(), "ipmi-sel (warm SDR cache)", through(link, [&] {
                  bench::runCommand(ipmiSel("127.0.0.1:" + port, cache.path()));
              }));
}

// Polls that find the SEL changed by other than additions: its newest record deleted, a middle one,
// the 100 newest (more than a follower remembers), and the SEL cleared with a record added.
void changeCosts(std::size_t records) {
    const auto log = bmcsim::repeatedEventLog(records + 1);
    const auto bmc =
        bmcsim::sampleServerBmc({log.begin(), log.begin() + static_cast<long>(records)});
    bmcsim::LossyLink link(bmc->port(), bmcsim::LinkFaults{});
    IpmiEventFollower follower(bmcsim::administratorConnection(link.port()));
    IpmiEventLog administrator(bmcsim::administratorConnection(bmc->port()));
    std::vector<IPMIEVENT> events;
    const auto poll = [&] { follower.Poll(events); };
    poll();
    // The SEL's records have IDs from 1.
    administrator.DeleteEventLog(records);
    printCost(records - 1, "follower: poll, the newest record deleted", through(link, poll));
    administrator.DeleteEventLog(records / 2);
    printCost(records - 2, "follower: poll, a middle record deleted", through(link, poll));
    for (std::size_t id = records - 100; id < records; ++id) administrator.DeleteEventLog(id);
    printCost(records - 102, "follower: poll, the 100 newest records deleted", through(link, poll));
    administrator.DeleteAllEventLog();
    bmc->addSelRecords({log[records]});
    printCost(1, "follower: poll, the SEL cleared and 1 record added", through(link, poll));
}

// Polls every follower, 16 at a time, as the tool's --fanout 16 does.
void pollFleet(std::vector<IpmiEventFollower>& followers) {
    tool::fanOut(followers.size(), 16, [&](std::size_t i) {
        std::vector<IPMIEVENT> events;
        followers[i].Poll(events);
    });
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

// A run of the tool's `follow` in a process of its own: its CPU time (the children's usage taken
// around it) and wall time, and the lines it printed. `afterFirstPoll` runs once the first poll's
// `firstPollLines` lines were printed, while the tool waits for its next poll.
struct FollowRun {
    Usage usage;
    std::size_t lines;
};

FollowRun followRun(const std::string& command, std::size_t firstPollLines,
                    const std::function<void()>& afterFirstPoll) {
    rusage before{};
    getrusage(RUSAGE_CHILDREN, &before);
    const auto start = Clock::now();
    FILE* output = popen(("exec " + command + " 2>/dev/null").c_str(), "r");
    if (output == nullptr) return {{0, 0}, 0};
    std::size_t lines = 0;
    char buffer[4096];
    while (std::fgets(buffer, sizeof buffer, output) != nullptr) {
        if (std::strchr(buffer, '\n') != nullptr && ++lines == firstPollLines) afterFirstPoll();
    }
    pclose(output);
    rusage after{};
    getrusage(RUSAGE_CHILDREN, &after);
    return {{bench::cpuSecondsOf(after) - bench::cpuSecondsOf(before),
             std::chrono::duration<double>(Clock::now() - start).count()},
            lines};
}

// The tool following the fleet, 16 hosts at a time: a first poll alone; then 6 polls 1 s apart;
// then 2 polls 5 s apart with a record added to each BMC in between. A later poll's CPU time is
// the difference from the first run; its wall time the run's less its intervals, so the process's
// start and end are in it.
void followFleetWithTheTool(const std::string& tool, const std::string& hosts,
                            const std::vector<std::unique_ptr<bmcsim::BmcSimulator>>& bmcs,
                            const std::function<void(const char*, const Usage&)>& row) {
    const std::string follow = tool + " -H " + hosts + " -U " + bmcsim::kAdministrator.name +
                               " -E -L admin --fanout 16 --format jsonl follow";
    std::vector<IPMIEVENT> oneBmc;
    IpmiEventLog(bmcsim::administratorConnection(bmcs.front()->port())).GetAllIpmiEventLog(oneBmc);
    const std::size_t firstPoll = oneBmc.size() * bmcs.size();  // lines: the BMCs are alike
    const FollowRun once = followRun(follow + " --polls 1", firstPoll, [] {});
    row("ipmi-event-log follow: first poll (every record), process start included", once.usage);
    const auto later = [&](const FollowRun& run, int polls, int interval) {
        return Usage{(run.usage.cpuSeconds - once.usage.cpuSeconds) / polls,
                     run.usage.wallSeconds - polls * interval};
    };
    const FollowRun idle = followRun(follow + " --polls 6 --interval 1", firstPoll, [] {});
    row("ipmi-event-log follow: poll, nothing new (CPU: mean of 5; wall: the last, process start "
        "included)",
        later(idle, 5, 1));
    const auto extra = bmcsim::repeatedEventLog(1);
    const FollowRun grown = followRun(follow + " --polls 2 --interval 5", firstPoll, [&] {
        for (const auto& bmc : bmcs) bmc->addSelRecords(extra);
    });
    if (grown.lines != firstPoll + bmcs.size())
        std::fprintf(stderr, "follow printed %zu lines, not %zu\n", grown.lines,
                     firstPoll + bmcs.size());
    row("ipmi-event-log follow: poll, 1 new record a BMC (process start included in wall)",
        later(grown, 1, 5));
}

void fleet(const std::string& tool, std::size_t size) {
    std::vector<std::unique_ptr<bmcsim::BmcSimulator>> bmcs;
    std::string hosts;
    for (std::size_t i = 0; i < size; ++i) {
        bmcs.push_back(bmcsim::sampleServerBmc(bmcsim::sampleEventLog()));
        hosts += (i ? "," : "") + std::string("127.0.0.1:") + std::to_string(bmcs.back()->port());
    }
    std::vector<IpmiEventFollower> followers;
    for (const auto& bmc : bmcs)
        followers.emplace_back(bmcsim::administratorConnection(bmc->port()));
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
    followFleetWithTheTool(tool, hosts, bmcs, row);
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
    for (std::size_t records : {100, 3000, 65000}) pollCosts(tool, records);
    for (std::size_t records : {300, 3000}) changeCosts(records);
    std::printf("\n| BMCs | what | CPU s | wall s |\n|---|---|---|---|\n");
    fleet(tool, fleetSize);
    return 0;
}
