// What a round of Prometheus scrapes costs the exporter: a fleet of ipmi_sim BMCs of the sample
// server, each SEL of RECORDS events, every BMC scraped at once (a thread and a connection each,
// as Prometheus scrapes its targets) through `ipmi-event-log serve`'s /ipmi and through the
// community's ipmi_exporter with its sel collector (which runs FreeIPMI's ipmi-sel --info for each
// scrape and reports the SEL's entry count and free space only). For each exporter: the CPU time
// of its process (user and system, with the processes it started and waited for, ipmi-sel's), read
// from /proc before and after each round, and each round's wall time, from the first request sent
// to the last answer. Rounds of the two exporters alternate; in the rounds "1 new record a BMC"
// each BMC gained a record before the pair of rounds. Prints a Markdown table.
//   exporter_benchmark TOOL [BMCS] [RECORDS] [ROUNDS]   (20 BMCs, 300 records, 10 rounds)
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"
#include "BmcSimulator.h"
#include "SampleServer.h"
#include "Scrapes.h"
#include "ScratchDirectory.h"
#include "ServerProcess.h"

namespace {

using Clock = std::chrono::steady_clock;

struct Rounds {
    bench::CpuSeconds cpu;            // all rounds together
    std::vector<double> wallSeconds;  // each round's
    std::vector<std::string> lastAnswers;
};

void measureRound(const bmcsim::ServerProcess& exporter, const std::vector<std::string>& targets,
                  Rounds& rounds) {
    const bench::CpuSeconds before = bench::processCpuSeconds(exporter.pid());
    const auto start = Clock::now();
    rounds.lastAnswers = bench::scrapeAll(exporter.address(), targets);
    rounds.wallSeconds.push_back(std::chrono::duration<double>(Clock::now() - start).count());
    const bench::CpuSeconds after = bench::processCpuSeconds(exporter.pid());
    rounds.cpu.own += after.own - before.own;
    rounds.cpu.children += after.children - before.children;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// The sum of `series` over the answers, and how many answers lacked it.
std::pair<double, std::size_t> sumOf(const std::vector<std::string>& answers,
                                     const std::string& series) {
    double sum = 0;
    std::size_t missing = 0;
    for (const std::string& answer : answers) {
        const std::string value = bmcsim::seriesValue(answer, series);
        if (value.empty()) ++missing;
        sum += value.empty() ? 0 : std::stod(value);
    }
    return {sum, missing};
}

// What the rounds' last answers said, for the reader to check against the BMCs.
std::string reported(const Rounds& rounds, bool ours) {
    char text[200];
    const auto up = sumOf(rounds.lastAnswers, "ipmi_up{collector=\"sel\"}");
    const auto entries = sumOf(rounds.lastAnswers, "ipmi_sel_logs_count");
    if (!ours) {
        std::snprintf(text, sizeof text, "up %.0f, SEL entries %.0f", up.first, entries.first);
        return text;
    }
    double events = 0;
    for (const char* severity : {"info", "warning", "critical"})
        events += sumOf(rounds.lastAnswers,
                        "ipmi_event_log_events_total{severity=\"" + std::string(severity) + "\"}")
                      .first;
    std::snprintf(text, sizeof text, "up %.0f, SEL entries %.0f, events counted %.0f", up.first,
                  entries.first, events);
    return text;
}

void row(const char* exporter, const char* what, const Rounds& rounds, bool ours) {
    const double count = static_cast<double>(rounds.wallSeconds.size());
    std::printf("| %s | %s | %zu | %.4f | %.4f | %.4f | %.4f | %s |\n", exporter, what,
                rounds.wallSeconds.size(), (rounds.cpu.own + rounds.cpu.children) / count,
                rounds.cpu.children / count, median(rounds.wallSeconds),
                *std::max_element(rounds.wallSeconds.begin(), rounds.wallSeconds.end()),
                reported(rounds, ours).c_str());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: exporter_benchmark TOOL [BMCS] [RECORDS] [ROUNDS]\n");
        return 2;
    }
    const std::string tool = argv[1];
    const std::size_t fleetSize = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 20;
    const std::size_t records = argc > 3 ? std::strtoul(argv[3], nullptr, 10) : 300;
    const int roundCount = argc > 4 ? std::atoi(argv[4]) : 10;
    // The password of -E, for our exporter.
    setenv("IPMI_PASSWORD", bmcsim::kAdministrator.password, 1);

    std::vector<std::unique_ptr<bmcsim::BmcSimulator>> bmcs;
    std::vector<std::string> targets;
    const auto log = bmcsim::repeatedEventLog(records + roundCount);
    for (std::size_t i = 0; i < fleetSize; ++i) {
        bmcs.push_back(
            bmcsim::sampleServerBmc({log.begin(), log.begin() + static_cast<long>(records)}));
        targets.push_back(bmcsim::targetOf(*bmcs.back()));
    }
    bmcsim::ScratchDirectory scratch;
    const std::string ourAddress = bmcsim::freeLoopbackTcpAddress();
    const bmcsim::ServerProcess ours(bmcsim::ourExporterCommand(tool, ourAddress), ourAddress,
                                     scratch.file("serve.out"));
    scratch.write("ipmi_exporter.yml", bmcsim::ipmiExporterConfiguration(bmcsim::kAdministrator));
    const std::string theirAddress = bmcsim::freeLoopbackTcpAddress();
    const bmcsim::ServerProcess theirs(
        bmcsim::ipmiExporterCommand(IPMI_EXPORTER, scratch.file("ipmi_exporter.yml"), theirAddress),
        theirAddress, scratch.file("ipmi_exporter.out"));

    std::printf(
        "| exporter | round | rounds | CPU s a round (mean) | of which its child processes | wall "
        "s "
        "a round (median) | wall s (longest) | the last round's answers, summed over the BMCs |\n"
        "|---|---|---|---|---|---|---|---|\n");
    Rounds first;
    measureRound(ours, targets, first);
    row("ipmi-event-log serve", "first scrape (every record read)", first, true);

    Rounds ourIdle, theirIdle;
    for (int i = 0; i < roundCount; ++i) {
        measureRound(ours, targets, ourIdle);
        measureRound(theirs, targets, theirIdle);
    }
    Rounds ourNew, theirNew;
    for (int i = 0; i < roundCount; ++i) {
        for (const auto& bmc : bmcs) bmc->addSelRecords({log[records + i]});
        measureRound(ours, targets, ourNew);
        measureRound(theirs, targets, theirNew);
    }
    row("ipmi-event-log serve", "nothing new", ourIdle, true);
    row("ipmi_exporter (sel)", "nothing new", theirIdle, false);
    row("ipmi-event-log serve", "1 new record a BMC", ourNew, true);
    row("ipmi_exporter (sel)", "1 new record a BMC", theirNew, false);
    return 0;
}
