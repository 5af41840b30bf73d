// What reading OpenBMC-style Redfish event logs costs: the tool against the tests' Redfish BMC
// (tests/simulator/RedfishBmc, layout OpenBmc: each SEL record an OpenBMC.0.1.SELEntryAdded entry
// of the event log, 1,000 members a page, $skip and $top honoured), in this process, each service
// on a loopback port of its own; DMTF's redfishtool reading the same logs beside it.
// - One service with 1,000 entries (the sample server's events, repeated a minute apart):
//   `ipmi-event-log -H URL -U root -E --format jsonl list`, a first read; `list --state FILE`,
//   a first read that saves its place (its file removed before each run); the same again with
//   nothing new, an idle poll.
// - A fleet of 200 services, 100 entries each, read by one `list --state DIR` run over the
//   comma-separated URLs (the tool's default fan-out, 256 hosts at once), then an idle poll.
// - redfishtool (`Systems -1 Logs -i EventLog -E`, basic authentication, its default): the
//   1,000-entry log, and the fleet's logs one service after another as a script would run it.
//   It keeps no place, so each of its polls is a whole read.
// For each: the requests the services answered (their own counters), wall time, and the CPU time
// (user and system) of the program's process, from wait4; the median of ROUNDS runs for the
// single service, of FLEET_ROUNDS for the fleet (redfishtool over the fleet: one run a service,
// their sum). No peak memory: a child forked from this process, whose 200 services hold hundreds
// of megabytes, is given this process's peak as its own. Prints a Markdown table, then the
// requests of a first read and an idle poll of the tool's, and of a read of redfishtool's, by
// method and path.
//   redfish_benchmark TOOL [ROUNDS] [FLEET_ROUNDS] [REDFISHTOOL_SERVICES]   (5 3 200)
#include <sys/resource.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "BenchSupport.h"
#include "RedfishBmc.h"
#include "SampleServer.h"
#include "ScratchDirectory.h"

namespace {

using Clock = std::chrono::steady_clock;
using Services = std::vector<std::unique_ptr<bmcsim::RedfishBmc>>;

// The simulated services' account (RedfishBmcOptions' default).
constexpr const char* kUser = "root";
constexpr const char* kPassword = "0penBmc";

constexpr std::size_t kSingleEntries = 1000;
constexpr std::size_t kFleetServices = 200;
constexpr std::size_t kFleetEntries = 100;

struct Figures {
    std::size_t requests = 0;
    double wallSeconds = 0;
    double cpuSeconds = 0;
};

using RequestCounts = std::map<std::pair<std::string, std::string>, std::size_t>;

RequestCounts requestCountsOf(const Services& services) {
    RequestCounts all;
    for (const auto& service : services)
        for (const auto& [request, count] : service->requestCounts()) all[request] += count;
    return all;
}

std::size_t totalOf(const RequestCounts& counts) {
    std::size_t total = 0;
    for (const auto& counted : counts) total += counted.second;
    return total;
}

// What `after` counts beyond `before`, by method and path.
RequestCounts countsBetween(const RequestCounts& before, const RequestCounts& after) {
    RequestCounts made;
    for (const auto& [request, count] : after) {
        const auto earlier = before.find(request);
        const std::size_t already = earlier == before.end() ? 0 : earlier->second;
        if (count > already) made[request] = count - already;
    }
    return made;
}

// One run of `command`, its output discarded: the requests `services` answered meanwhile, its
// wall time and its process's CPU time.
Figures measuredRun(const std::string& command, const Services& services) {
    const std::size_t before = totalOf(requestCountsOf(services));
    const auto start = Clock::now();
    const bench::ProcessUsage usage = bench::runCommand(command);
    Figures figures;
    figures.wallSeconds = std::chrono::duration<double>(Clock::now() - start).count();
    figures.cpuSeconds = usage.cpuSeconds;
    figures.requests = totalOf(requestCountsOf(services)) - before;
    return figures;
}

template <typename T>
T medianOf(std::vector<T> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// Each figure's median over `rounds` runs; `beforeEach`, where given, runs ahead of each run,
// unmeasured.
Figures medianRun(const std::string& command, const Services& services, std::size_t rounds,
                  const std::function<void()>& beforeEach = {}) {
    std::vector<std::size_t> requests;
    std::vector<double> wall, cpu;
    for (std::size_t round = 0; round < rounds; ++round) {
        if (beforeEach) beforeEach();
        const Figures run = measuredRun(command, services);
        requests.push_back(run.requests);
        wall.push_back(run.wallSeconds);
        cpu.push_back(run.cpuSeconds);
    }
    return {medianOf(requests), medianOf(wall), medianOf(cpu)};
}

// `count` started services, each holding the same `entries` SEL records.
Services startedServices(std::size_t count, std::size_t entries) {
    const std::vector<bmcsim::SelRecord> records = bmcsim::repeatedEventLog(entries);
    Services services;
    for (std::size_t i = 0; i < count; ++i) {
        auto service = std::make_unique<bmcsim::RedfishBmc>();
        for (const bmcsim::SelRecord& record : records)
            service->addSelRecord(service->mainLog(), record);
        service->start();
        services.push_back(std::move(service));
    }
    return services;
}

std::string urlsOf(const Services& services) {
    std::string urls;
    for (const auto& service : services) urls += (urls.empty() ? "" : ",") + service->url();
    return urls;
}

std::string toolCommand(const std::string& tool, const Services& services) {
    return tool + " -H " + urlsOf(services) + " -U " + kUser + " -E --format jsonl list";
}

std::string redfishtoolCommand(const bmcsim::RedfishBmc& service) {
    return std::string(REDFISHTOOL) + " -r 127.0.0.1:" + std::to_string(service.port()) + " -u " +
           kUser + " -p " + kPassword + " -S Never Systems -1 Logs -i EventLog -E";
}

// The lines `command` writes on standard output (its events, one a line), said on standard
// error where they are not `expected`: a run that read otherwise than the figures assume.
void checkLines(const std::string& command, std::size_t expected) {
    FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
    if (pipe == nullptr) {
        std::fprintf(stderr, "cannot run: %s\n", command.c_str());
        return;
    }
    std::size_t lines = 0;
    for (int c; (c = std::fgetc(pipe)) != EOF;) lines += c == '\n';
    pclose(pipe);
    if (lines != expected)
        std::fprintf(stderr, "%zu lines, not %zu: %s\n", lines, expected, command.c_str());
}

// The entries a state file of the tool's has taken (its logs' counts), or those of every state
// file in a directory; said on standard error where they are not `expected`.
void checkState(const std::string& path, std::size_t expected) {
    std::vector<std::string> files;
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) {
        for (const auto& entry : std::filesystem::directory_iterator(path, error))
            if (entry.is_regular_file()) files.push_back(entry.path().string());
    } else {
        files.push_back(path);
    }
    std::size_t taken = 0;
    for (const std::string& file : files) {
        std::ifstream in(file);
        const nlohmann::json state = nlohmann::json::parse(in, nullptr, false);
        if (!state.is_object() || !state.contains("logs")) continue;  // a lock file
        for (const nlohmann::json& log : state["logs"]) taken += log.value("count", 0UL);
    }
    if (taken != expected)
        std::fprintf(stderr, "the state at %s took %zu entries, not %zu\n", path.c_str(), taken,
                     expected);
}

void row(std::size_t services, std::size_t entries, const std::string& what,
         const Figures& figures) {
    std::printf("| %zu | %zu | %s | %zu | %.1f | %.3f | %.3f |\n", services, entries, what.c_str(),
                figures.requests,
                static_cast<double>(figures.requests) / static_cast<double>(services),
                figures.wallSeconds, figures.cpuSeconds);
    std::fflush(stdout);
}

void removeAll(const std::string& path) {
    std::error_code error;
    std::filesystem::remove_all(path, error);
}

// The requests one run of `command` makes, by method and path, summed over `services`.
RequestCounts requestsOfOneRun(const std::string& command, const Services& services) {
    const RequestCounts before = requestCountsOf(services);
    bench::runCommand(command);
    return countsBetween(before, requestCountsOf(services));
}

// What one first read with a state and one idle poll ask of the services.
struct ToolRequests {
    RequestCounts firstRead;
    RequestCounts idlePoll;
};

// The tool's first read, first read with a state, and idle poll of `services`; then the requests
// of one more idle poll and of one more first read, by method and path.
ToolRequests measureTool(const std::string& tool, const Services& services, std::size_t entriesEach,
                         std::size_t rounds, bool plainList,
                         const bmcsim::ScratchDirectory& scratch) {
    const std::size_t count = services.size();
    const std::string list = toolCommand(tool, services);
    if (plainList) {
        checkLines(list, count * entriesEach);
        row(count, entriesEach, "ipmi-event-log list: first read",
            medianRun(list, services, rounds));
    }
    // One file for one host, a directory of them for several.
    const std::string state = scratch.file(count == 1 ? "list.state" : "states");
    const std::string withState = list + " --state " + state;
    const auto fresh = [&] {
        removeAll(state);
        if (count > 1) std::filesystem::create_directory(state);
    };
    row(count, entriesEach, "ipmi-event-log list --state: first read",
        medianRun(withState, services, rounds, fresh));
    checkState(state, count * entriesEach);
    checkLines(withState, 0);
    row(count, entriesEach, "ipmi-event-log list --state: idle poll (nothing new)",
        medianRun(withState, services, rounds));
    ToolRequests requests;
    requests.idlePoll = requestsOfOneRun(withState, services);
    fresh();
    requests.firstRead = requestsOfOneRun(withState, services);
    return requests;
}

// redfishtool over each of `services` in turn, measured once each; the sums.
Figures redfishtoolOver(const Services& services, std::size_t count) {
    Figures sum;
    for (std::size_t i = 0; i < count && i < services.size(); ++i) {
        const Figures run = measuredRun(redfishtoolCommand(*services[i]), services);
        sum.requests += run.requests;
        sum.wallSeconds += run.wallSeconds;
        sum.cpuSeconds += run.cpuSeconds;
    }
    return sum;
}

void printRequests(const std::string& what, const RequestCounts& counts) {
    std::printf("\n%s:\n", what.c_str());
    for (const auto& [request, count] : counts)
        std::printf("  %zu x %s %s\n", count, request.first.c_str(), request.second.c_str());
}

std::size_t argumentOr(int argc, char** argv, int index, std::size_t fallback) {
    return argc > index ? std::strtoul(argv[index], nullptr, 10) : fallback;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr,
                     "usage: redfish_benchmark TOOL [ROUNDS] [FLEET_ROUNDS] "
                     "[REDFISHTOOL_SERVICES]\n");
        return 2;
    }
    const std::string tool = argv[1];
    const std::size_t rounds = std::max<std::size_t>(1, argumentOr(argc, argv, 2, 5));
    const std::size_t fleetRounds = std::max<std::size_t>(1, argumentOr(argc, argv, 3, 3));
    const std::size_t redfishtoolServices = argumentOr(argc, argv, 4, kFleetServices);
    // The password of -E, for ipmi-event-log.
    setenv("IPMI_PASSWORD", kPassword, 1);
    // 200 services keep a socket or more each, in this process and in the tool's.
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    const bmcsim::ScratchDirectory scratch;
    const bool withRedfishtool = std::string(REDFISHTOOL).size() > 0;

    std::printf(
        "| services | entries each | what | requests | requests a service | wall s | CPU s |\n"
        "|---|---|---|---|---|---|---|\n");
    ToolRequests single;
    RequestCounts redfishtoolRead;
    {
        const Services one = startedServices(1, kSingleEntries);
        single = measureTool(tool, one, kSingleEntries, rounds, true, scratch);
        if (withRedfishtool) {
            const std::string read = redfishtoolCommand(*one.front());
            row(1, kSingleEntries, "redfishtool Systems -1 Logs -i EventLog -E: a read",
                medianRun(read, one, rounds));
            redfishtoolRead = requestsOfOneRun(read, one);
        }
    }
    const auto start = Clock::now();
    const Services fleet = startedServices(kFleetServices, kFleetEntries);
    std::fprintf(stderr, "%zu services started in %.1f s\n", fleet.size(),
                 std::chrono::duration<double>(Clock::now() - start).count());
    const ToolRequests fleetRequests =
        measureTool(tool, fleet, kFleetEntries, fleetRounds, false, scratch);
    if (withRedfishtool && redfishtoolServices > 0) {
        const std::size_t read = std::min(redfishtoolServices, fleet.size());
        row(read, kFleetEntries,
            "redfishtool Systems -1 Logs -i EventLog -E: each service in turn (sum)",
            redfishtoolOver(fleet, read));
    }
    printRequests("ipmi-event-log list --state, first read of the 1,000-entry service",
                  single.firstRead);
    printRequests("ipmi-event-log list --state, idle poll of the 1,000-entry service",
                  single.idlePoll);
    printRequests("redfishtool, a read of the 1,000-entry service", redfishtoolRead);
    printRequests("ipmi-event-log list --state, idle poll of the fleet (summed over the services)",
                  fleetRequests.idlePoll);
    return 0;
}
