// Prometheus' scrape job as shipped in tools/exporter/prometheus, run by Debian's Prometheus
// against `ipmi-event-log serve` and ipmi_sim BMCs: every event found, a new one within three
// scrapes, a dead BMC seen; two replicas behind the hashmod job, each BMC scraped by one of them;
// and the community's ipmi_exporter counting the same SEL entries and free space as ours.
#include <gtest/gtest.h>
#include <yaml-cpp/yaml.h>

#include <chrono>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <utility>

#include "BmcSimulator.h"
#include "SampleServer.h"
#include "ScopedEnvironment.h"
#include "ScratchDirectory.h"
#include "ServerProcess.h"
#include "ToolRun.h"

namespace {

using std::chrono::seconds;

// The shipped files, and the exporter addresses they name.
const std::string kScrapeJob = SOURCE_DIR "/tools/exporter/prometheus/scrape-ipmi.yml";
const std::string kReplicasJob = SOURCE_DIR "/tools/exporter/prometheus/scrape-ipmi-replicas.yml";
const std::string kShippedExporter = "127.0.0.1:9290";
const std::string kShippedReplicas[] = {"exporter-0.example.net:9290",
                                        "exporter-1.example.net:9290"};

std::string fileText(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// A server of the test, `program` started as ServerProcess takes `arguments`, whose output is
// shown when the test has failed.
class TestServer : public bmcsim::ServerProcess {
public:
    template <typename... Arguments>
    explicit TestServer(std::string program, Arguments&&... arguments)
        : ServerProcess(std::forward<Arguments>(arguments)...), program_(std::move(program)) {}
    ~TestServer() {
        if (!::testing::Test::HasFailure()) return;
        const std::string text = output();
        constexpr std::size_t kShown = 6000;
        std::cerr << "--- the end of " << program_ << "'s output:\n"
                  << text.substr(text.size() > kShown ? text.size() - kShown : 0) << "---\n";
    }

private:
    std::string program_;
};

// A shipped job made to scrape `targets` every second through the exporters of `exporters`, in
// place of the addresses the file names.
std::string scrapeConfiguration(const std::string& shippedFile,
                                const std::vector<std::string>& targets,
                                const std::map<std::string, std::string>& exporters) {
    YAML::Node configuration = YAML::LoadFile(shippedFile);
    YAML::Node job = configuration["scrape_configs"][0];
    job["scrape_interval"] = "1s";
    job["scrape_timeout"] = "1s";
    job["static_configs"][0]["targets"] = targets;
    for (YAML::Node rule : job["relabel_configs"]) {
        if (rule["target_label"].as<std::string>() == "__address__")
            rule["replacement"] = exporters.at(rule["replacement"].as<std::string>());
    }
    YAML::Emitter out;
    out << configuration;
    return out.c_str();
}

// The selector of the series `name` of `instance`, with more `labels` (",name=\"value\"").
std::string ofInstance(const std::string& name, const std::string& instance,
                       const std::string& labels = "") {
    return name + "{instance=\"" + instance + "\"" + labels + "}";
}

// The text of the JSON string that starts after `key` at or after `at`; `at` moves past it.
std::string stringAfter(const std::string& json, const std::string& key, std::size_t& at) {
    at = json.find(key, at);
    if (at == std::string::npos) return "";
    const std::size_t start = at + key.size();
    at = json.find('"', start);
    return json.substr(start, at - start);
}

// Prometheus started on a free loopback port with `configuration` and a scratch database; asked
// through its HTTP API with curl.
class Prometheus {
public:
    Prometheus(const std::string& configuration, const bmcsim::ScratchDirectory& scratch)
        : scratch_(scratch),
          server_(
              PROMETHEUS,
              [&](const std::string& address) { return command(configuration, address, scratch); },
              scratch.file("prometheus.out")) {
        const bool ready = bmcsim::waitUntil(
            [&] {
                return get("/-/ready", "--output /dev/null --write-out '%{http_code}'") == "200";
            },
            seconds(60));
        if (!ready) throw std::runtime_error("Prometheus is not ready:\n" + server_.output());
    }

    // The value of every series of the instant query `expression`, by instance.
    std::map<std::string, std::string> byInstance(const std::string& expression) const {
        const std::string json = query(expression);
        std::map<std::string, std::string> values;
        for (std::size_t at = 0; (at = json.find("\"metric\":", at)) != std::string::npos;) {
            const std::string instance = stringAfter(json, "\"instance\":\"", at);
            at = json.find("\"value\":[", at);
            values[instance] = stringAfter(json, ",\"", at);
        }
        return values;
    }
    // The samples of the one series of a range selector ("name{...}[1m]"), by time stamp.
    std::map<std::string, std::string> samples(const std::string& rangeSelector) const {
        const std::string json = query(rangeSelector);
        std::map<std::string, std::string> values;
        // [[TIME,"VALUE"],[TIME,"VALUE"],...]
        const std::size_t list = json.find("\"values\":[[");
        const std::size_t end = json.find("]]", list);
        if (list == std::string::npos || end == std::string::npos) return values;
        for (std::size_t at = json.find("[[", list) + 1; at < end; at = json.find('[', at)) {
            const std::size_t comma = json.find(',', at);
            const std::string time = json.substr(at + 1, comma - at - 1);
            values[time] = stringAfter(json, ",\"", at);
        }
        return values;
    }
    // The scrape URL of every active target.
    std::vector<std::string> scrapeUrls() const {
        const std::string json = get("/api/v1/targets?state=active");
        std::vector<std::string> urls;
        for (std::size_t at = 0; at < json.size();) {
            const std::string url = stringAfter(json, "\"scrapeUrl\":\"", at);
            if (!url.empty()) urls.push_back(url);
        }
        return urls;
    }

private:
    static std::vector<std::string> command(const std::string& configuration,
                                            const std::string& address,
                                            const bmcsim::ScratchDirectory& scratch) {
        scratch.write("prometheus.yml", configuration);
        return {PROMETHEUS, "--config.file=" + scratch.file("prometheus.yml"),
                "--storage.tsdb.path=" + scratch.file("tsdb"), "--web.listen-address=" + address};
    }
    std::string query(const std::string& expression) const {
        return get("/api/v1/query", "--get --data-urlencode 'query=" + expression + "'");
    }
    std::string get(const std::string& path, const std::string& options = "") const {
        return bmcsim::runShell(CURL " --silent --max-time 5 " + options + " 'http://" +
                                    server_.address() + path + "'",
                                scratch_)
            .out;
    }

    const bmcsim::ScratchDirectory& scratch_;
    TestServer server_;
};

std::string scrape(const bmcsim::ServerProcess& exporter, const std::string& target,
                   const bmcsim::ScratchDirectory& scratch) {
    return bmcsim::runShell(CURL " --silent --max-time 5 'http://" + exporter.address() +
                                "/ipmi?target=" + target + "&module=default'",
                            scratch)
        .out;
}

class PrometheusTest : public ::testing::Test {
protected:
    void startBmcs(std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            bmcs.push_back(bmcsim::sampleServerBmc(bmcsim::sampleEventLog()));
            targets.push_back(bmcsim::targetOf(*bmcs.back()));
        }
    }
    std::unique_ptr<TestServer> startOurExporter(const std::string& name) const {
        return std::make_unique<TestServer>(
            TOOL_PATH, bmcsim::ourExporterCommand(TOOL_PATH, "127.0.0.1:0"),
            scratch.file(name + ".out"), bmcsim::kServeSaysItsAddress);
    }
    // The events `ipmi-event-log list` reads from the BMC at `target`: all of them, and the
    // critical ones.
    std::pair<std::size_t, std::size_t> listedEvents(const std::string& target) const {
        const bmcsim::ToolRun list =
            bmcsim::runShell(std::string(TOOL_PATH) + " -H " + target + " -U " +
                                 bmcsim::kAdministrator.name + " -E --format jsonl list",
                             scratch);
        EXPECT_EQ(list.status, 0) << list.err;
        return {bmcsim::countOf(list.out, "\n"),
                bmcsim::countOf(list.out, "\"severity\":\"critical\"")};
    }

    bmcsim::ScratchDirectory scratch;
    bmcsim::ScopedEnvironment password{"IPMI_PASSWORD", bmcsim::kAdministrator.password};
    std::vector<std::unique_ptr<bmcsim::BmcSimulator>> bmcs;
    std::vector<std::string> targets;
};

TEST_F(PrometheusTest, TheShippedConfigurationsPassPromtool) {
    const bmcsim::ToolRun check =
        bmcsim::runShell(PROMTOOL " check config " + kScrapeJob + " " + kReplicasJob, scratch);
    EXPECT_EQ(check.status, 0) << check.out << check.err;
    EXPECT_EQ(bmcsim::countOf(check.out, " is valid prometheus config file syntax"), 2)
        << check.out;
}

TEST_F(PrometheusTest, TheReadmeShowsTheShippedScrapeJobAsItIs) {
    const std::string job = fileText(kScrapeJob);
    ASSERT_FALSE(job.empty());
    EXPECT_NE(fileText(SOURCE_DIR "/README.md").find("```yaml\n" + job + "```\n"),
              std::string::npos)
        << "README.md does not show tools/exporter/prometheus/scrape-ipmi.yml as it is";
}

TEST_F(PrometheusTest, FindsEveryEventThenANewOneWithinThreeScrapesThenADeadBmc) {
    startBmcs(3);
    std::map<std::string, std::pair<std::size_t, std::size_t>> listed;
    for (const std::string& target : targets) listed[target] = listedEvents(target);
    EXPECT_EQ(listed[targets[0]], std::make_pair(std::size_t{35}, std::size_t{12}));
    const auto exporter = startOurExporter("serve");
    const Prometheus prometheus(
        scrapeConfiguration(kScrapeJob, targets, {{kShippedExporter, exporter->address()}}),
        scratch);

    const std::string events = "sum by (instance) (ipmi_event_log_events_total)";
    ASSERT_TRUE(
        bmcsim::waitUntil([&] { return prometheus.byInstance(events).size() == 3; }, seconds(60)));
    const auto totals = prometheus.byInstance(events);
    const auto critical =
        prometheus.byInstance("ipmi_event_log_events_total{severity=\"critical\"}");
    for (const std::string& target : targets) {
        EXPECT_EQ(totals.at(target), std::to_string(listed[target].first)) << target;
        EXPECT_EQ(critical.at(target), std::to_string(listed[target].second)) << target;
    }

    // A critical record added: counted by the third scrape after it at the latest. Series of
    // one scrape share its time stamp.
    const std::string first = targets[0];
    const std::string polls = ofInstance("ipmi_event_log_polls_total", first);
    const long before = std::stol(prometheus.byInstance(polls).at(first));
    bmcs[0]->addSelRecords({bmcsim::sampleEventLog()[21]});
    ASSERT_TRUE(bmcsim::waitUntil(
        [&] { return std::stol(prometheus.byInstance(polls).at(first)) >= before + 3; },
        seconds(60)));
    std::string third;
    for (const auto& sample : prometheus.samples(polls + "[1m]"))
        if (sample.second == std::to_string(before + 3)) third = sample.first;
    ASSERT_FALSE(third.empty());
    EXPECT_EQ(
        prometheus
            .samples(ofInstance("ipmi_event_log_events_total", first, ",severity=\"critical\"") +
                     "[1m]")
            .at(third),
        std::to_string(listed[first].second + 1));
    EXPECT_EQ(prometheus.samples(ofInstance("ipmi_sel_entries_count", first) + "[1m]").at(third),
              std::to_string(listed[first].first + 1));

    // A BMC that died: the exporter still answers, with ipmi_up 0 for it alone.
    bmcs[2]->stop();
    const std::string ipmiUp = "ipmi_up{collector=\"sel\"}";
    EXPECT_TRUE(bmcsim::waitUntil([&] { return prometheus.byInstance(ipmiUp)[targets[2]] == "0"; },
                                  seconds(60)));
    const auto up = prometheus.byInstance(ipmiUp);
    EXPECT_EQ(up.at(targets[0]), "1");
    EXPECT_EQ(up.at(targets[1]), "1");
    EXPECT_EQ(prometheus.byInstance("up").at(targets[2]), "1");
}

TEST_F(PrometheusTest, TwoReplicasBehindTheHashmodJobScrapeEachBmcThroughOneOfThem) {
    startBmcs(3);
    const auto replica0 = startOurExporter("replica-0");
    const auto replica1 = startOurExporter("replica-1");
    const std::map<std::string, std::string> replicas{{kShippedReplicas[0], replica0->address()},
                                                      {kShippedReplicas[1], replica1->address()}};
    const Prometheus prometheus(scrapeConfiguration(kReplicasJob, targets, replicas), scratch);
    ASSERT_TRUE(bmcsim::waitUntil(
        [&] { return prometheus.byInstance("ipmi_event_log_polls_total >= 2").size() == 3; },
        seconds(60)));

    // One active target a BMC, through either replica.
    std::map<std::string, std::vector<std::string>> exportersOf;
    for (const std::string& url : prometheus.scrapeUrls()) {
        const std::size_t path = url.find("/ipmi?");
        const std::size_t target = url.find("target=");
        ASSERT_NE(target, std::string::npos) << url;
        std::string bmc = url.substr(target + 7, url.find('&', target) - target - 7);
        bmc.replace(bmc.find("%3A"), 3, ":");
        exportersOf[bmc].push_back(url.substr(7, path - 7));  // after "http://"
    }
    ASSERT_EQ(exportersOf.size(), 3u);
    for (const std::string& target : targets) {
        ASSERT_EQ(exportersOf[target].size(), 1u) << target;
        const std::string& scraper = exportersOf[target].front();
        ASSERT_TRUE(scraper == replica0->address() || scraper == replica1->address()) << scraper;
        // The other replica never polled it: its first scrape makes a follower, its first poll.
        const TestServer& other = scraper == replica0->address() ? *replica1 : *replica0;
        EXPECT_EQ(bmcsim::seriesValue(scrape(other, target, scratch), "ipmi_event_log_polls_total"),
                  "1")
            << target;
    }
    for (const auto& total :
         prometheus.byInstance("sum by (instance) (ipmi_event_log_events_total)"))
        EXPECT_EQ(total.second, "35") << total.first;
}

TEST_F(PrometheusTest, IpmiExporterCountsTheSameSelEntriesAndFreeSpaceAsOurs) {
    startBmcs(1);
    const auto ours = startOurExporter("serve");
    scratch.write("ipmi_exporter.yml", bmcsim::ipmiExporterConfiguration(bmcsim::kAdministrator));
    const TestServer theirs(
        IPMI_EXPORTER,
        [&](const std::string& address) {
            return bmcsim::ipmiExporterCommand(IPMI_EXPORTER, scratch.file("ipmi_exporter.yml"),
                                               address);
        },
        scratch.file("ipmi_exporter.out"));
    // ipmi_exporter 1.6.1 names the count ipmi_sel_logs_count, though its documentation says
    // ipmi_sel_entries_count: ours gives both.
    const auto expectAlike = [&](const char* entries, const char* freeBytes) {
        const std::string our = scrape(*ours, targets[0], scratch);
        const std::string their = scrape(theirs, targets[0], scratch);
        EXPECT_EQ(bmcsim::seriesValue(their, "ipmi_up{collector=\"sel\"}"), "1") << their;
        EXPECT_EQ(bmcsim::seriesValue(our, "ipmi_up{collector=\"sel\"}"), "1") << our;
        EXPECT_EQ(bmcsim::seriesValue(their, "ipmi_sel_logs_count"), entries);
        EXPECT_EQ(bmcsim::seriesValue(our, "ipmi_sel_logs_count"), entries);
        EXPECT_EQ(bmcsim::seriesValue(our, "ipmi_sel_entries_count"), entries);
        EXPECT_EQ(bmcsim::seriesValue(their, "ipmi_sel_free_space_bytes"), freeBytes);
        EXPECT_EQ(bmcsim::seriesValue(our, "ipmi_sel_free_space_bytes"), freeBytes);
    };
    expectAlike("35", "64000");
    bmcs[0]->addSelRecords({bmcsim::sampleEventLog()[21]});
    expectAlike("36", "63984");
}

}  // namespace
