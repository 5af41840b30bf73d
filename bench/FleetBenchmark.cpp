// What following a fleet of 100 and 1,000 BMCs costs, a tenth of them down: the BMCs are
// fleet_bmcs's (the sample server's 35 events each, the last tenth silent), in a process of their
// own. For each size:
// - `ipmi-event-log follow` over the host list at its default fan-out: the wall and CPU time of a
//   first poll (a run of 1 poll, process start included) and of an idle poll (a run of 2 polls
//   less the run of 1), and its peak resident memory per followed BMC (less a run following 1 BMC);
// - `ipmi-event-log serve -H` (fleet mode, --interval 1): the first and the second poll, told by
//   /metrics' poll counter, with the process's CPU time from /proc and its resident memory after
//   the second poll, per BMC less the same server polling 1 BMC;
// - `ipmi-event-log serve` and the community's ipmi_exporter, every BMC scraped at once through
//   /ipmi?target= (two rounds: the first and an idle one for ours), CPU from /proc, resident memory
//   after the rounds;
// - FreeIPMI's ipmi-sel over the same host list with --fanout 64 (its default) and one as large as
//   the fleet (at most 1,024, its limit).
// Prints a Markdown table.
//   fleet_benchmark TOOL [SIZE...]   (100 1000)
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"
#include "BmcSimulator.h"
#include "ChildProcess.h"
#include "Scrapes.h"
#include "ScratchDirectory.h"
#include "ServerProcess.h"

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// A fleet_bmcs process: `size` BMCs, the last `silent` of them down.
class FleetProcess {
public:
    FleetProcess(std::size_t size, std::size_t silent) {
        pid_ = bmcsim::startChild({FLEET_BMCS, std::to_string(size), std::to_string(silent)},
                                  scratch_.file("fleet.out"), "fleet_bmcs");
        const bool listed = bmcsim::waitUntil(
            [&] { return scratch_.read("fleet.out").find('\n') != std::string::npos; },
            std::chrono::seconds(60));
        hosts_ = scratch_.read("fleet.out");
        if (!listed || hosts_.rfind("127.0.0.1:", 0) != 0)
            throw std::runtime_error("fleet_bmcs did not start: " + hosts_);
        hosts_.erase(hosts_.find('\n'));
    }
    ~FleetProcess() {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
    FleetProcess(const FleetProcess&) = delete;
    FleetProcess& operator=(const FleetProcess&) = delete;

    const std::string& hosts() const { return hosts_; }
    std::vector<std::string> targets() const {
        std::vector<std::string> list;
        for (std::size_t at = 0; at < hosts_.size();) {
            const std::size_t comma = std::min(hosts_.find(',', at), hosts_.size());
            list.push_back(hosts_.substr(at, comma - at));
            at = comma + 1;
        }
        return list;
    }

private:
    bmcsim::ScratchDirectory scratch_;
    pid_t pid_ = -1;
    std::string hosts_;
};

struct Figures {
    double wallSeconds = 0;
    double cpuSeconds = 0;
    long residentKilobytes = 0;
};

// Resident memory is "-" where it was not measured (0).
void row(std::size_t bmcs, const std::string& what, const Figures& f, long baselineKilobytes) {
    std::string memory = "- | -";
    if (f.residentKilobytes > 0) {
        char text[64];
        std::snprintf(text, sizeof text, "%.1f | %.1f", f.residentKilobytes / 1024.0,
                      static_cast<double>(f.residentKilobytes - baselineKilobytes) /
                          static_cast<double>(bmcs));
        memory = text;
    }
    std::printf("| %zu | %s | %.2f | %.2f | %s |\n", bmcs, what.c_str(), f.wallSeconds,
                f.cpuSeconds, memory.c_str());
    std::fflush(stdout);
}

std::string toolCommand(const std::string& tool, const std::string& hosts) {
    return tool + " -H " + hosts + " -U " + bmcsim::kAdministrator.name + " -E -L admin ";
}

Figures timedRun(const std::string& command) {
    const auto start = Clock::now();
    const bench::ProcessUsage usage = bench::runCommand(command);
    return {secondsSince(start), usage.cpuSeconds, usage.peakKilobytes};
}

// follow's first poll alone, then its idle poll as the difference of a run of two polls.
std::pair<Figures, Figures> followPolls(const std::string& tool, const std::string& hosts) {
    const std::string follow = toolCommand(tool, hosts) + "--format jsonl follow --interval 1";
    const Figures first = timedRun(follow + " --polls 1");
    const Figures both = timedRun(follow + " --polls 2");
    return {first,
            {both.wallSeconds - first.wallSeconds, both.cpuSeconds - first.cpuSeconds,
             both.residentKilobytes}};
}

long counterOf(const std::string& address, const std::string& series) {
    const std::size_t colon = address.rfind(':');
    httplib::Client client(address.substr(0, colon), std::stoi(address.substr(colon + 1)));
    const auto result = client.Get("/metrics");
    if (!result || result->status != 200) return -1;
    const std::string value = bmcsim::seriesValue(result->body, series);
    return value.empty() ? -1 : std::stol(value);
}

// serve -H's first two polls: each one's wall time as /metrics tells its end (the first from the
// moment the server listens), CPU time from /proc; its resident memory after the second.
std::pair<Figures, Figures> servePolls(const std::string& tool, const std::string& hosts,
                                       const bmcsim::ScratchDirectory& scratch) {
    const std::string address = bmcsim::freeLoopbackTcpAddress();
    const bmcsim::ServerProcess serve(
        {tool, "-H", hosts, "-U", bmcsim::kAdministrator.name, "-E", "-L", "admin", "--listen",
         address, "--interval", "1", "serve"},
        address, scratch.file("serve-fleet.out"));
    const auto cpu = [&] {
        const bench::CpuSeconds now = bench::processCpuSeconds(serve.pid());
        return now.own + now.children;
    };
    // /metrics renders every BMC's series: asked twice a second, its cost stays out of the poll's.
    const auto pollEnd = [&](long polls) {
        const auto deadline = Clock::now() + std::chrono::minutes(5);
        while (counterOf(address, "ipmi_event_log_polls_total") < polls && Clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(500));
        return Clock::now();
    };
    const auto start = Clock::now();
    const auto firstEnd = pollEnd(1);
    const double firstCpu = cpu();
    const auto secondEnd = pollEnd(2);
    const Figures first{std::chrono::duration<double>(firstEnd - start).count(), firstCpu, 0};
    const Figures second{std::chrono::duration<double>(secondEnd - firstEnd).count(),
                         cpu() - firstCpu, bench::residentKilobytes(serve.pid())};
    return {first, second};
}

// A round of /ipmi scrapes of every target: its wall time, the exporter's CPU time (with its
// children's) and resident memory after it.
Figures scrapeRound(const bmcsim::ServerProcess& exporter,
                    const std::vector<std::string>& targets) {
    const bench::CpuSeconds before = bench::processCpuSeconds(exporter.pid());
    const auto start = Clock::now();
    bench::scrapeAll(exporter.address(), targets);
    const double wall = secondsSince(start);
    const bench::CpuSeconds after = bench::processCpuSeconds(exporter.pid());
    return {wall, after.own + after.children - before.own - before.children,
            bench::residentKilobytes(exporter.pid())};
}

std::string ipmiSel(const std::string& hosts, const std::string& cache, std::size_t fanout) {
    return IPMI_SEL " -h " + hosts + " -u " + bmcsim::kAdministrator.name + " -p '" +
           bmcsim::kAdministrator.password +
           "' -D LAN_2_0 -W opensesspriv --sdr-cache-directory=" + cache + " --fanout " +
           std::to_string(fanout);
}

// What each program takes with 1 BMC, that the rows per BMC leave out.
struct Baselines {
    long follow = 0;
    long serveFleet = 0;
    long serveTargets = 0;
    long ipmiExporter = 0;
    long ipmiSel = 0;
};

void measureFleet(const std::string& tool, std::size_t size, const Baselines& baselines,
                  const bmcsim::ScratchDirectory& scratch) {
    const FleetProcess fleet(size, size / 10);
    const auto follow = followPolls(tool, fleet.hosts());
    row(size, "ipmi-event-log follow: first poll (process start included)", follow.first,
        baselines.follow);
    row(size, "ipmi-event-log follow: idle poll", follow.second, baselines.follow);
    const auto serve = servePolls(tool, fleet.hosts(), scratch);
    row(size, "ipmi-event-log serve -H: first poll", serve.first, baselines.serveFleet);
    row(size, "ipmi-event-log serve -H: idle poll", serve.second, baselines.serveFleet);

    const std::vector<std::string> targets = fleet.targets();
    const std::string ourAddress = bmcsim::freeLoopbackTcpAddress();
    const bmcsim::ServerProcess ours(bmcsim::ourExporterCommand(tool, ourAddress), ourAddress,
                                     scratch.file("serve.out"));
    row(size, "ipmi-event-log serve, /ipmi?target= each: first round", scrapeRound(ours, targets),
        baselines.serveTargets);
    row(size, "ipmi-event-log serve, /ipmi?target= each: idle round", scrapeRound(ours, targets),
        baselines.serveTargets);
    const std::string theirAddress = bmcsim::freeLoopbackTcpAddress();
    const bmcsim::ServerProcess theirs(
        bmcsim::ipmiExporterCommand(IPMI_EXPORTER, scratch.file("ipmi_exporter.yml"), theirAddress),
        theirAddress, scratch.file("ipmi_exporter.out"));
    row(size, "ipmi_exporter (sel), /ipmi?target= each: a round", scrapeRound(theirs, targets),
        baselines.ipmiExporter);

    bmcsim::ScratchDirectory cache;
    for (std::size_t fanout : {std::size_t{64}, std::min<std::size_t>(size, 1024)}) {
        row(size, "ipmi-sel --fanout " + std::to_string(fanout),
            timedRun(ipmiSel(fleet.hosts(), cache.path(), fanout)), baselines.ipmiSel);
    }
}

// Each program's resident memory with 1 BMC of the fleet.
Baselines measureBaselines(const std::string& tool, const bmcsim::ScratchDirectory& scratch) {
    const FleetProcess one(1, 0);
    Baselines baselines;
    baselines.follow = followPolls(tool, one.hosts()).second.residentKilobytes;
    baselines.serveFleet = servePolls(tool, one.hosts(), scratch).second.residentKilobytes;
    const std::string ourAddress = bmcsim::freeLoopbackTcpAddress();
    const bmcsim::ServerProcess ours(bmcsim::ourExporterCommand(tool, ourAddress), ourAddress,
                                     scratch.file("serve.out"));
    baselines.serveTargets = scrapeRound(ours, one.targets()).residentKilobytes;
    const std::string theirAddress = bmcsim::freeLoopbackTcpAddress();
    const bmcsim::ServerProcess theirs(
        bmcsim::ipmiExporterCommand(IPMI_EXPORTER, scratch.file("ipmi_exporter.yml"), theirAddress),
        theirAddress, scratch.file("ipmi_exporter.out"));
    baselines.ipmiExporter = scrapeRound(theirs, one.targets()).residentKilobytes;
    const bmcsim::ScratchDirectory cache;
    baselines.ipmiSel = timedRun(ipmiSel(one.hosts(), cache.path(), 1)).residentKilobytes;
    return baselines;
}

// The tool, ipmi-sel and the exporters keep a socket or more a BMC.
void allowEveryDescriptor() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: fleet_benchmark TOOL [SIZE...]\n");
        return 2;
    }
    const std::string tool = argv[1];
    std::vector<std::size_t> sizes;
    for (int i = 2; i < argc; ++i) sizes.push_back(std::strtoul(argv[i], nullptr, 10));
    if (sizes.empty()) sizes = {100, 1000};
    // The password of -E, for ipmi-event-log.
    setenv("IPMI_PASSWORD", bmcsim::kAdministrator.password, 1);
    allowEveryDescriptor();
    bmcsim::ScratchDirectory scratch;
    scratch.write("ipmi_exporter.yml", bmcsim::ipmiExporterConfiguration(bmcsim::kAdministrator));
    const Baselines baselines = measureBaselines(tool, scratch);
    std::printf(
        "baselines (1 BMC), resident KB: follow %ld, serve -H %ld, serve /ipmi %ld, "
        "ipmi_exporter %ld, ipmi-sel %ld\n\n",
        baselines.follow, baselines.serveFleet, baselines.serveTargets, baselines.ipmiExporter,
        baselines.ipmiSel);
    std::printf(
        "| BMCs | what | wall s | CPU s | resident MB | KB a BMC over 1 BMC's |\n"
        "|---|---|---|---|---|---|\n");
    for (std::size_t size : sizes) measureFleet(tool, size, baselines, scratch);
    return 0;
}
