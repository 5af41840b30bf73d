// A soak run of the exporter: `ipmi-event-log serve --state-dir` scraped once a second, as
// Prometheus scrapes a target, while records are added to the sample server's SEL, deleted and the
// SEL cleared now and then, for MINUTES minutes. Checks that every record is counted once: the
// events counted at the end are the sample's plus those added (records are deleted and the SEL
// cleared only once the exporter has seen them, so that each was counted). Prints a Markdown table
// of the exporter's resident memory, threads and open descriptors over time, and the counts.
//   soak_benchmark TOOL [MINUTES]   (10 minutes)
#include <dirent.h>
#include <httplib.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"
#include "BmcSimulator.h"
#include "SampleServer.h"
#include "ScratchDirectory.h"
#include "ServerProcess.h"
#include "ToolRun.h"

namespace {

using Clock = std::chrono::steady_clock;

// The events a /ipmi answer counted, all severities together; -1 without an answer.
long eventsCounted(const std::string& answer) {
    if (answer.empty()) return -1;
    long events = 0;
    for (const char* severity : {"info", "warning", "critical"}) {
        const std::string value = bmcsim::seriesValue(
            answer, "ipmi_event_log_events_total{severity=\"" + std::string(severity) + "\"}");
        if (!value.empty()) events += std::stol(value);
    }
    return events;
}

long openDescriptors(pid_t pid) {
    DIR* fds = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
    if (fds == nullptr) return 0;
    long count = 0;
    while (const dirent* entry = readdir(fds)) count += entry->d_name[0] != '.';
    closedir(fds);
    return count;
}

// Runs the tool against the BMC; false (said on standard error) when it fails.
bool runTool(const std::string& tool, const bmcsim::BmcSimulator& bmc, const std::string& what) {
    const std::string command = tool + " -H " + bmcsim::targetOf(bmc) + " -U " +
                                bmcsim::kAdministrator.name + " -E " + what + " >/dev/null";
    const bool ran = std::system(command.c_str()) == 0;
    if (!ran) std::fprintf(stderr, "failed: %s\n", command.c_str());
    return ran;
}

// The IDs of the records the BMC's SEL holds, as `raw` lists them ("0x0004  04 00 02 ...").
std::vector<unsigned> recordIdsOf(const std::string& tool, const bmcsim::BmcSimulator& bmc,
                                  const bmcsim::ScratchDirectory& scratch) {
    const bmcsim::ToolRun raw = bmcsim::runShell(
        tool + " -H " + bmcsim::targetOf(bmc) + " -U " + bmcsim::kAdministrator.name + " -E raw",
        scratch);
    std::vector<unsigned> ids;
    for (std::size_t at = 0; (at = raw.out.find("0x", at)) != std::string::npos; ++at)
        ids.push_back(std::stoul(raw.out.substr(at, 6), nullptr, 16));
    return ids;
}

// One row of the table: the exporter's resident memory, threads and descriptors now.
void printSample(double minutes, pid_t exporter, long counted, long expected) {
    std::printf("| %.1f | %ld | %ld | %ld | %ld | %ld |\n", minutes,
                bench::residentKilobytes(exporter), bench::statusField(exporter, "Threads:"),
                openDescriptors(exporter), counted, expected);
    std::fflush(stdout);
}

// A system event record to add: a temperature upper critical on CPU1 Temp, numbered `n`.
std::string addedRecord(unsigned n) {
    char hex[40];
    std::snprintf(hex, sizeof hex, "0000020000000020000401300159%02x50", 0x5A + n % 0x20);
    return hex;
}

// What the run did to the SEL, and the events the exporter should have counted.
struct SelChanges {
    unsigned added = 0;
    unsigned deleted = 0;
    unsigned clears = 0;
    long expected = 0;
};

// One second's change: a record added with a chance of one in two; one the exporter has seen
// (`seenIds`) deleted one in five; the SEL cleared every two minutes, after a scrape has counted
// what it holds.
void changeTheSel(const std::string& tool, const bmcsim::BmcSimulator& bmc, unsigned second,
                  const std::vector<unsigned>& seenIds, std::mt19937& random, SelChanges& changes) {
    const unsigned dice = random() % 10;
    if (second % 120 == 119) {
        changes.clears += runTool(tool, bmc, "clear");
    } else if (dice < 5) {
        if (runTool(tool, bmc, "add " + addedRecord(changes.added))) {
            ++changes.added;
            ++changes.expected;
        }
    } else if (dice < 7 && !seenIds.empty()) {
        const unsigned id = seenIds[random() % seenIds.size()];
        changes.deleted += runTool(tool, bmc, "delete " + std::to_string(id));
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: soak_benchmark TOOL [MINUTES]\n");
        return 2;
    }
    const std::string tool = argv[1];
    const double minutes = argc > 2 ? std::strtod(argv[2], nullptr) : 10;
    setenv("IPMI_PASSWORD", bmcsim::kAdministrator.password, 1);

    const auto sample = bmcsim::sampleEventLog();
    const auto bmc = bmcsim::sampleServerBmc(sample);
    bmcsim::ScratchDirectory scratch;
    const std::string states = scratch.file("states");
    mkdir(states.c_str(), 0700);
    const std::string address = bmcsim::freeLoopbackTcpAddress();
    const bmcsim::ServerProcess exporter({tool, "-U", bmcsim::kAdministrator.name, "-E", "--listen",
                                          address, "--state-dir", states, "serve"},
                                         address, scratch.file("serve.out"));
    const std::size_t colon = address.rfind(':');
    httplib::Client client(address.substr(0, colon), std::stoi(address.substr(colon + 1)));
    client.set_read_timeout(30, 0);
    const auto scrape = [&] {
        const auto result =
            client.Get("/ipmi?target=" + bmcsim::targetOf(*bmc) + "&module=default");
        return result && result->status == 200 ? result->body : std::string();
    };

    std::printf("| minute | resident KB | threads | descriptors | events counted | expected |\n");
    std::printf("|---|---|---|---|---|---|\n");
    std::mt19937 random(1);
    SelChanges changes;
    changes.expected = static_cast<long>(sample.size());
    std::vector<unsigned> seenIds;  // records the exporter has counted: safe to delete
    long failures = 0;
    const auto started = Clock::now();
    const auto end = started + std::chrono::duration<double>(minutes * 60);
    auto nextRow = started;
    for (unsigned second = 0; Clock::now() < end; ++second) {
        const auto due = started + std::chrono::seconds(second + 1);
        const std::string answer = scrape();
        if (answer.empty()) ++failures;
        if (Clock::now() >= nextRow) {
            printSample(std::chrono::duration<double>(Clock::now() - started).count() / 60,
                        exporter.pid(), eventsCounted(answer), changes.expected);
            nextRow += std::chrono::minutes(1);
        }
        changeTheSel(tool, *bmc, second, seenIds, random, changes);
        // What the next scrape will have counted: the records the SEL holds now.
        const std::vector<unsigned> ids = recordIdsOf(tool, *bmc, scratch);
        std::this_thread::sleep_until(due);
        // Deleting only after a scrape has seen the record: one the exporter never saw would
        // never be counted.
        seenIds = ids;
    }
    const long counted = eventsCounted(scrape());
    std::printf(
        "\n%u records added, %u deleted, %u clears; %ld events expected, %ld counted, %ld scrapes "
        "failed: %s\n",
        changes.added, changes.deleted, changes.clears, changes.expected, counted, failures,
        counted == changes.expected ? "ok" : "MISMATCH");
    return counted == changes.expected ? 0 : 1;
}
