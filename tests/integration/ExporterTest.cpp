// ipmi-event-log serve as Prometheus scrapes it: /ipmi?target=HOST&module=NAME against ipmi_sim,
// the community ipmi_exporter's metrics beside ours, the 400 answers, a state kept across a
// restart, and scrapes that half-open connections do not hold up.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>

#include "ExporterProcess.h"
#include "LanFixture.h"
#include "Loopback.h"
#include "LossyLink.h"
#include "ScopedEnvironment.h"
#include "ServerProcess.h"
#include "ToolRun.h"
#include "WebCredentials.h"

namespace {

using bmcsim::seriesValue;
using bmcsim::targetOf;

// The sample server's administrator's password, in the environment of the exporters started
// while it is there (-E).
struct AdministratorPassword {
    bmcsim::ScopedEnvironment password{"IPMI_PASSWORD", bmcsim::kAdministrator.password};
};

std::vector<std::string> asAdministrator(const std::vector<std::string>& arguments) {
    std::vector<std::string> command{"-U", bmcsim::kAdministrator.name, "-E"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
}

// `ipmi-event-log serve` with `arguments`, as the sample server's administrator.
class Exporter : private AdministratorPassword, public bmcsim::ExporterProcess {
public:
    Exporter(const std::vector<std::string>& arguments, const bmcsim::ScratchDirectory& scratch,
             const std::string& url = "http://", const std::string& curlOptions = "")
        : ExporterProcess(asAdministrator(arguments), scratch, url, curlOptions) {}
};

class ExporterTest : public ::testing::Test {
protected:
    std::unique_ptr<bmcsim::BmcSimulator> bmc = bmcsim::sampleServerBmc(bmcsim::sampleEventLog());
    bmcsim::ScratchDirectory scratch;
};

TEST_F(ExporterTest, AScrapeOfATargetAnswersItsNewEventsUnderOurNamesAndIpmiExporters) {
    Exporter exporter({"-H", targetOf(*bmc), "--interval", "3600"}, scratch);
    const std::string path = "/ipmi?target=" + targetOf(*bmc) + "&module=default";
    const std::string first = exporter.get(path).out;
    EXPECT_EQ(seriesValue(first, "ipmi_up{collector=\"sel\"}"), "1") << first;
    EXPECT_EQ(seriesValue(first, "ipmi_sel_entries_count"), "35");
    EXPECT_EQ(seriesValue(first, "ipmi_sel_logs_count"), "35");
    EXPECT_EQ(seriesValue(first, "ipmi_sel_free_space_bytes"), "64000");
    EXPECT_EQ(seriesValue(first, "ipmi_event_log_up"), "1");
    EXPECT_EQ(seriesValue(first, "ipmi_event_log_sel_entries_read_total"), "35");
    EXPECT_EQ(seriesValue(first, "ipmi_event_log_events_total{severity=\"critical\"}"), "12");
    EXPECT_EQ(seriesValue(first, "ipmi_event_log_newest_critical_event_timestamp_seconds"),
              "1426179494");
    EXPECT_FALSE(seriesValue(first, "ipmi_scrape_duration_seconds").empty());
    // The next scrape reads only what is new: the record it read last, and the one added. The
    // fleet's own /metrics is apart.
    bmc->addSelRecords({bmcsim::sampleEventLog()[21]});
    const std::string second = exporter.get(path).out;
    EXPECT_EQ(seriesValue(second, "ipmi_event_log_sel_entries_read_total"), "37");
    EXPECT_EQ(seriesValue(second, "ipmi_event_log_events_total{severity=\"critical\"}"), "13");
    EXPECT_EQ(seriesValue(second, "ipmi_sel_entries_count"), "36");
    EXPECT_EQ(seriesValue(second, "ipmi_event_log_polls_total"), "2");
    // Without a module, the default.
    EXPECT_EQ(seriesValue(exporter.get("/ipmi?target=" + targetOf(*bmc)).out,
                          "ipmi_up{collector=\"sel\"}"),
              "1");
    EXPECT_EQ(exporter.fleetSeries("ipmi_event_log_sel_entries_read_total{host=\"" +
                                   targetOf(*bmc) + "\"}"),
              "35");
    EXPECT_EQ(seriesValue(exporter.get("/metrics").out, "ipmi_event_log_targets"), "1");
    EXPECT_EQ(exporter.stop(), 0);
}

TEST_F(ExporterTest, ScrapesThatCannotBeMadeAreAnsweredWith400AndTheReason) {
    Exporter exporter({"-H", targetOf(*bmc), "--interval", "3600"}, scratch);
    const auto answer = [&](const std::string& path) {
        const bmcsim::ToolRun run = exporter.get(path, "--write-out ' %{http_code}'");
        return run.out;
    };
    EXPECT_EQ(answer("/ipmi"), "no target: scrape /ipmi?target=HOST[:PORT]\n 400");
    EXPECT_EQ(answer("/ipmi?target=" + targetOf(*bmc) + "&module=other"),
              "unknown module \"other\": without --config there is only default\n 400");
    EXPECT_EQ(answer("/ipmi?target=bmc:99999"),
              "target \"bmc:99999\": \"99999\" is not a port from 1 to 65535\n 400");
}

// The target's check comes before anything else: a NUL, a line break or a bad percent encoding
// is answered 400 with the reason, the bytes escaped, and nothing of it reaches standard error.
TEST_F(ExporterTest, TargetsAreCheckedWholeAndNeverShownRaw) {
    const std::string port = targetOf(*bmc).substr(targetOf(*bmc).rfind(':') + 1);
    scratch.write("ipmi.yml", std::string("modules:\n  default:\n    user: \"") +
                                  bmcsim::kAdministrator.name + "\"\n    pass: \"" +
                                  bmcsim::kAdministrator.password +
                                  "\"\n    hosts: [\"127.0.0.1\"]\n");
    ASSERT_EQ(chmod(scratch.file("ipmi.yml").c_str(), 0600), 0);
    Exporter exporter({"--config", scratch.file("ipmi.yml")}, scratch);
    const auto answer = [&](const std::string& target) {
        return exporter.get("/ipmi?target=" + target, "--write-out ' %{http_code}'").out;
    };
    EXPECT_EQ(answer("127.0.0.1%00evil:" + port),
              "target \"127.0.0.1\\x00evil:" + port + "\": holds a control character\n 400");
    EXPECT_EQ(answer("127.0.0.1%0D%0AX-Evil:%201"),
              "target \"127.0.0.1\\x0D\\x0AX-Evil: 1\": holds a control character\n 400");
    EXPECT_EQ(answer("127.0.0.1%zz"),
              "target \"127.0.0.1%zz\": holds \"%\", a percent encoding "
              "that is not one (%zz) or was encoded twice\n 400");
    EXPECT_EQ(answer("admin@127.0.0.1"),
              "target \"admin@127.0.0.1\": a user (USER@) has no place "
              "in a target: the module gives it\n 400");
    EXPECT_EQ(answer("127.0.0.1/x"),
              "target \"127.0.0.1/x\": a path has no place in a target; "
              "give HOST[:PORT]\n 400");
    EXPECT_EQ(answer("127.0.0.1&module=%1B%5B2J"),
              "unknown module \"\\x1B[2J\"; the configuration has default\n 400");
    // The hosts list sees the whole target, and a target whose host it allows is scraped.
    EXPECT_EQ(
        answer("127.0.0.2:" + port),
        "target \"127.0.0.2:" + port + "\" is not among the hosts of module \"default\"\n 400");
    EXPECT_EQ(seriesValue(exporter.get("/ipmi?target=127.0.0.1:" + port).out,
                          "ipmi_up{collector=\"sel\"}"),
              "1");
    EXPECT_EQ(exporter.stop(), 0);
    const std::string said = scratch.read("serve.out");
    EXPECT_EQ(said.find_first_of(std::string("\r\0\x1b", 3)), std::string::npos) << said;
    EXPECT_EQ(said.find("evil"), std::string::npos) << said;
}

// What the configuration bounds: the targets followed at once (503 beyond), and how long a target
// no scrape names is kept. Spellings of one BMC are one target.
TEST_F(ExporterTest, TargetsAreBoundedAndForgottenWhenNoLongerScraped) {
    const std::string port = targetOf(*bmc).substr(targetOf(*bmc).rfind(':') + 1);
    const auto write = [&](const std::string& limits) {
        scratch.write("ipmi.yml", std::string("modules:\n  default:\n    user: \"") +
                                      bmcsim::kAdministrator.name + "\"\n    pass: \"" +
                                      bmcsim::kAdministrator.password + "\"\n    port: " + port +
                                      "\n    hosts: any\n" + limits);
        ASSERT_EQ(chmod(scratch.file("ipmi.yml").c_str(), 0600), 0);
    };
    write("targets:\n  limit: 1\n");
    {
        Exporter exporter({"--config", scratch.file("ipmi.yml")}, scratch);
        const auto answer = [&](const std::string& target) {
            return exporter.get("/ipmi?target=" + target, "--write-out ' %{http_code}'").out;
        };
        EXPECT_EQ(seriesValue(answer("127.0.0.1"), "ipmi_up{collector=\"sel\"}"), "1");
        EXPECT_EQ(seriesValue(answer("127.0.0.1:" + port), "ipmi_up{collector=\"sel\"}"), "1");
        EXPECT_EQ(seriesValue(exporter.get("/metrics").out, "ipmi_event_log_targets"), "1");
        EXPECT_EQ(answer("localhost:" + port),
                  "too many targets: the exporter follows 1, as many as targets.limit allows; a "
                  "target not scraped for 3600 s (targets.forget_after) is forgotten\n 503");
        EXPECT_EQ(exporter.stop(), 0);
    }
    write("targets:\n  forget_after: 1\n");
    Exporter exporter({"--config", scratch.file("ipmi.yml")}, scratch);
    EXPECT_EQ(seriesValue(exporter.get("/ipmi?target=127.0.0.1").out, "ipmi_up{collector=\"sel\"}"),
              "1");
    EXPECT_TRUE(bmcsim::waitUntil(
        [&] { return seriesValue(exporter.get("/metrics").out, "ipmi_event_log_targets") == "0"; },
        std::chrono::seconds(60)));
    // Scraped again, it is followed anew.
    EXPECT_EQ(seriesValue(exporter.get("/ipmi?target=127.0.0.1").out, "ipmi_up{collector=\"sel\"}"),
              "1");
    EXPECT_EQ(exporter.stop(), 0);
}

// A configuration that is not a regular file stops serve with status 2, naming it: a directory
// would otherwise read as empty, a FIFO block, /dev/zero never end.
TEST_F(ExporterTest, ConfigurationsThatAreNotRegularFilesStopIt) {
    ASSERT_EQ(mkdir(scratch.file("directory").c_str(), 0700), 0);
    ASSERT_EQ(mkfifo(scratch.file("fifo").c_str(), 0600), 0);
    ASSERT_EQ(symlink("/dev/zero", scratch.file("zero").c_str()), 0);
    for (const std::string option : {"--config", "--web-config"}) {
        for (const std::string name : {"directory", "fifo", "zero"}) {
            const bmcsim::ToolRun run =
                bmcsim::runShell(std::string(TOOL_PATH) + " --listen 127.0.0.1:0 " + option + " " +
                                     scratch.file(name) + " serve",
                                 scratch);
            EXPECT_EQ(run.status, 2) << option << " " << name;
            EXPECT_EQ(run.err, "ipmi-event-log: cannot read " + scratch.file(name) +
                                   ": not a regular file\n");
        }
    }
    const bmcsim::ToolRun empty = bmcsim::runShell(
        std::string(TOOL_PATH) + " --listen 127.0.0.1:0 --config '' serve", scratch);
    EXPECT_EQ(empty.status, 2);
    EXPECT_EQ(empty.err,
              "ipmi-event-log: --config: the file name is empty\n"
              "(ipmi-event-log --help for the usage)\n");
}

// A configuration in ipmi_exporter's format: `defaultUser` for the module default, which may
// reach 127.0.0.1 only, at the operator privilege level; a module of IPMI 1.5; a module for other
// hosts.
std::string configuration(const bmcsim::LanUser& defaultUser) {
    return std::string(
               "modules:\n"
               "  default:\n"
               "    user: \"") +
           defaultUser.name + "\"\n    pass: \"" + defaultUser.password +
           "\"\n"
           "    driver: LAN_2_0\n"
           "    privilege: operator\n"
           "    collectors: [sel]\n"
           "    hosts: [\"127.0.0.1\"]\n"
           "  old:\n"
           "    user: a\n"
           "    pass: b\n"
           "    driver: LAN\n"
           "    hosts: any\n"
           "  rack7:\n"
           "    user: a\n"
           "    pass: b\n"
           "    hosts: [\"bmc-r7-*\"]\n";
}

TEST_F(ExporterTest, AConfigurationsModulesAreUsedAndReadAgainWithoutLosingAFollowersState) {
    scratch.write("ipmi.yml", configuration(bmcsim::kOperator));
    ASSERT_EQ(chmod(scratch.file("ipmi.yml").c_str(), 0644), 0);
    Exporter exporter({"--config", scratch.file("ipmi.yml")}, scratch);
    const std::string path = "/ipmi?target=" + targetOf(*bmc) + "&module=";
    const auto answer = [&](const std::string& module) {
        return exporter.get(path + module, "--write-out ' %{http_code}'").out;
    };
    const std::string first = exporter.get(path + "default").out;
    EXPECT_EQ(seriesValue(first, "ipmi_up{collector=\"sel\"}"), "1") << first;
    EXPECT_EQ(seriesValue(first, "ipmi_event_log_events_total{severity=\"critical\"}"), "12");
    EXPECT_EQ(answer("old"),
              "module old: driver LAN (IPMI 1.5) is not supported; use LAN_2_0\n 400");
    EXPECT_EQ(answer("rack7"),
              "target \"" + targetOf(*bmc) + "\" is not among the hosts of module \"rack7\"\n 400");
    EXPECT_EQ(answer("other"),
              "unknown module \"other\"; the configuration has default, old, rack7\n 400");
    // Passwords in a file others can read are warned about.
    EXPECT_NE(scratch.read("serve.out").find("others can read this file and the passwords in it"),
              std::string::npos)
        << scratch.read("serve.out");

    // A file that cannot be taken leaves the configuration in use.
    scratch.write("ipmi.yml", "modules:\n  default:\n    timeout: ten\n");
    const bmcsim::ToolRun refused =
        bmcsim::runShell(CURL " --silent --request POST --write-out ' %{http_code}' http://" +
                             exporter.listen() + "/-/reload",
                         scratch);
    EXPECT_EQ(refused.out, scratch.file("ipmi.yml") +
                               ":3: modules.default.timeout: \"ten\" is not a number of "
                               "milliseconds\n 500");
    EXPECT_EQ(seriesValue(exporter.get(path + "default").out, "ipmi_up{collector=\"sel\"}"), "1");

    // Other credentials by SIGHUP: the same follower goes on, counting nothing twice.
    scratch.write("ipmi.yml", configuration(bmcsim::kViewer) +
                                  "  more:\n    user: a\n    pass: b\n    hosts: any\n");
    exporter.signal(SIGHUP);
    const std::string reloaded =
        "unknown module \"other\"; the configuration has default, more, old, rack7\n 400";
    EXPECT_TRUE(
        bmcsim::waitUntil([&] { return answer("other") == reloaded; }, std::chrono::seconds(60)))
        << answer("other");
    bmc->addSelRecords({bmcsim::sampleEventLog()[21]});
    const std::string after = exporter.get(path + "default").out;
    EXPECT_EQ(seriesValue(after, "ipmi_event_log_events_total{severity=\"critical\"}"), "13")
        << after;
    EXPECT_EQ(seriesValue(after, "ipmi_event_log_events_total{severity=\"info\"}"),
              seriesValue(first, "ipmi_event_log_events_total{severity=\"info\"}"));
    EXPECT_EQ(exporter.stop(), 0);
}

TEST_F(ExporterTest, ARestartedExporterWithAStateDirectoryReadsNothingAgain) {
    const std::string states = scratch.file("states");
    ASSERT_EQ(mkdir(states.c_str(), 0700), 0);
    const std::string path = "/ipmi?target=" + targetOf(*bmc);
    const std::string fleetEntries =
        "ipmi_event_log_sel_entries_read_total{host=\"" + targetOf(*bmc) + "\"}";
    {
        Exporter exporter({"-H", targetOf(*bmc), "--interval", "3600", "--state-dir", states},
                          scratch);
        EXPECT_EQ(seriesValue(exporter.get(path).out, "ipmi_event_log_sel_entries_read_total"),
                  "35");
        EXPECT_EQ(exporter.fleetSeries(fleetEntries), "35");
        EXPECT_EQ(exporter.stop(), 0);
    }
    bmc->addSelRecords({bmcsim::sampleEventLog()[21]});
    Exporter restarted({"-H", targetOf(*bmc), "--interval", "3600", "--state-dir", states},
                       scratch);
    const std::string metrics = restarted.get(path).out;
    // The record read last before the restart, and the one added.
    EXPECT_EQ(seriesValue(metrics, "ipmi_event_log_sel_entries_read_total"), "2") << metrics;
    EXPECT_EQ(seriesValue(metrics, "ipmi_event_log_events_total{severity=\"critical\"}"), "1");
    // The fleet's followers went on from their states too.
    EXPECT_EQ(restarted.fleetSeries(fleetEntries), "2");
}

TEST_F(ExporterTest,
       ADeadTargetIsAnsweredWithinTheScrapeTimeoutAndHalfOpenConnectionsHoldNothingUp) {
    Exporter exporter({"-H", targetOf(*bmc), "--interval", "3600"}, scratch);
    const std::string path = "/ipmi?target=" + targetOf(*bmc);
    EXPECT_EQ(seriesValue(exporter.get(path).out, "ipmi_up{collector=\"sel\"}"), "1");
    // Fifty connections that send nothing.
    std::vector<int> idle;
    for (int i = 0; i < 50; ++i) {
        idle.push_back(exporter.connect());
        ASSERT_GE(idle.back(), 0);
    }
    // A scrape is answered while they are all still open: it did not wait for the server to give
    // up on them (after its read timeout of 5 s), which would have closed them first.
    EXPECT_EQ(seriesValue(exporter.get(path).out, "ipmi_up{collector=\"sel\"}"), "1");
    std::size_t closedFirst = 0;
    for (int fd : idle) {
        pollfd connection{fd, POLLRDHUP, 0};
        closedFirst += poll(&connection, 1, 0) != 0;
        close(fd);
    }
    EXPECT_EQ(closedFirst, 0u);
    // A BMC that does not answer: the scrape ends within Prometheus' scrape timeout, before the
    // client gives up as Prometheus does then.
    bmc->stop();
    const std::string dead =
        exporter.get(path, "-H 'X-Prometheus-Scrape-Timeout-Seconds: 4' --max-time 4").out;
    EXPECT_EQ(seriesValue(dead, "ipmi_up{collector=\"sel\"}"), "0") << dead;
    EXPECT_EQ(seriesValue(dead, "ipmi_sel_entries_count"), "");
}

TEST_F(ExporterTest, TlsAndBasicAuthenticationGuardEveryScrape) {
    bmcsim::makeCertificate(OPENSSL, scratch, "ca", "/CN=ipmi-event-log test CA", "");
    bmcsim::makeCertificate(OPENSSL, scratch, "server", "/CN=127.0.0.1",
                            "-addext subjectAltName=IP:127.0.0.1 -CA ca.crt -CAkey ca.key");
    scratch.write("web.yml",
                  "tls_server_config:\n"
                  "  cert_file: server.crt\n"
                  "  key_file: server.key\n"
                  "basic_auth_users:\n"
                  "  prometheus: " +
                      bmcsim::bcryptHash("scrape-me") + "\n");
    Exporter exporter(
        {"-H", targetOf(*bmc), "--interval", "3600", "--web-config", scratch.file("web.yml")},
        scratch, "https://", "--cacert " + scratch.file("ca.crt"));
    const std::string path = "/ipmi?target=" + targetOf(*bmc);
    const auto status = [&](const std::string& credentials) {
        return exporter.get(path, credentials + " --output /dev/null --write-out '%{http_code}'")
            .out;
    };
    EXPECT_EQ(status(""), "401");
    EXPECT_EQ(status("--user prometheus:wrong"), "401");
    EXPECT_EQ(status("--user prometheus:scrape-me"), "200");
    EXPECT_EQ(seriesValue(exporter.get(path, "--user prometheus:scrape-me").out,
                          "ipmi_up{collector=\"sel\"}"),
              "1");
    // Plain HTTP gets no answer from the TLS port.
    const bmcsim::ToolRun plain =
        bmcsim::runShell(CURL " --silent --max-time 5 --user prometheus:scrape-me http://" +
                             exporter.listen() + path,
                         scratch);
    EXPECT_NE(plain.status, 0);
    EXPECT_EQ(plain.out, "");
    EXPECT_EQ(exporter.stop(), 0);
}

// A GET of `path` sent whole on a connection of its own; its answer read to the end.
class SentScrape {
public:
    SentScrape(const Exporter& exporter, const std::string& path) : fd_(exporter.connect()) {
        const std::string request =
            "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
        sent_ = fd_ >= 0 && send(fd_, request.data(), request.size(), MSG_NOSIGNAL) ==
                                static_cast<ssize_t>(request.size());
    }
    ~SentScrape() {
        if (fd_ >= 0) close(fd_);
    }
    SentScrape(const SentScrape&) = delete;
    SentScrape& operator=(const SentScrape&) = delete;

    // Whether the request left: nothing of it waits in this side's send queue.
    bool delivered() const {
        int unsent = 0;
        return sent_ && ioctl(fd_, SIOCOUTQ, &unsent) == 0 && unsent == 0;
    }
    // The whole answer, head and body, once the server closes the connection.
    std::string answer() const {
        std::string text;
        char buffer[4096];
        for (ssize_t got; (got = recv(fd_, buffer, sizeof buffer, 0)) > 0;)
            text.append(buffer, static_cast<std::size_t>(got));
        return text;
    }

private:
    int fd_;
    bool sent_ = false;
};

TEST_F(ExporterTest, ScrapesOfOneTargetThatComeTogetherShareOnePoll) {
    // The BMC's first answer is held until the exporter has read all four scrapes: they all come
    // while the poll they start is under way.
    std::atomic<const Exporter*> exporterOf{nullptr};
    std::atomic<bool> allDelivered{false};
    std::atomic<bool> gateOpen{false};
    const auto allFourRead = [&] {
        return allDelivered && bmcsim::connectionsReadThrough(exporterOf.load()->port()) == 4;
    };
    bmcsim::LinkFaults faults;
    faults.answerDelay = [&](const std::vector<unsigned char>&) {
        if (!gateOpen) gateOpen = bmcsim::waitUntil(allFourRead, std::chrono::seconds(60));
        return std::optional<std::chrono::microseconds>(0);
    };
    bmcsim::LossyLink link(bmc->port(), faults);
    Exporter exporter({"-H", targetOf(*bmc), "--interval", "3600"}, scratch);
    exporterOf = &exporter;
    const std::string path = "/ipmi?target=127.0.0.1:" + std::to_string(link.port());
    std::vector<std::unique_ptr<SentScrape>> scrapes;
    for (int i = 0; i < 4; ++i) scrapes.push_back(std::make_unique<SentScrape>(exporter, path));
    allDelivered = bmcsim::waitUntil(
        [&] {
            return std::all_of(scrapes.begin(), scrapes.end(),
                               [](const auto& scrape) { return scrape->delivered(); });
        },
        std::chrono::seconds(60));
    ASSERT_TRUE(allDelivered);
    for (const auto& scrape : scrapes) {
        const std::string answer = scrape->answer();
        EXPECT_EQ(seriesValue(answer, "ipmi_up{collector=\"sel\"}"), "1") << answer;
        EXPECT_EQ(seriesValue(answer, "ipmi_event_log_polls_total"), "1") << answer;
        EXPECT_EQ(seriesValue(answer, "ipmi_event_log_sel_entries_read_total"), "35");
    }
    EXPECT_TRUE(gateOpen);
}

// Clients that trickle their requests a header line at a time, and clients that connect and say
// nothing, are each cut off at the request deadline (5 s), however steadily they send; scrapes of
// /metrics are answered all along, and the connections they took are all given back (counted in
// the kernel's table: the exporter keeps its descriptors from other processes).
TEST_F(ExporterTest, SlowAndSilentClientsHoldNoScrapeUpAndLeaveNoConnectionBehind) {
    using Clock = std::chrono::steady_clock;
    Exporter exporter({"-H", targetOf(*bmc), "--interval", "3600"}, scratch);
    const std::string entries =
        "ipmi_event_log_sel_entries_read_total{host=\"" + targetOf(*bmc) + "\"}";
    // The fleet's one poll is over: nothing but the clients below opens connections.
    ASSERT_EQ(exporter.fleetSeries(entries), "35");
    const std::size_t before = bmcsim::connectionsHeldAt(exporter.port());
    // Clients that hang up at once are forgotten at once.
    for (int i = 0; i < 300; ++i) close(exporter.connect());
    EXPECT_TRUE(
        bmcsim::waitUntil([&] { return bmcsim::connectionsHeldAt(exporter.port()) <= before; },
                          std::chrono::seconds(60)));

    const std::size_t trickling = 200;
    const std::size_t silent = 250;
    std::vector<int> clients;
    // The server's deadlines count from its accepts, none before this.
    const auto connecting = Clock::now();
    for (std::size_t i = 0; i < trickling + silent; ++i) {
        clients.push_back(exporter.connect());
        ASSERT_GE(clients.back(), 0);
    }
    const auto connected = Clock::now();
    const std::string requestLine = "GET /metrics HTTP/1.1\r\n";
    const std::string headerLine = "X-Trickle: 1\r\n";
    for (std::size_t i = 0; i < trickling; ++i)
        send(clients[i], requestLine.data(), requestLine.size(), MSG_NOSIGNAL);
    // How many the server held at once (the kernel's count includes those it has yet to accept),
    // looked at now and while they are cut off.
    std::size_t most = bmcsim::connectionsHeldAt(exporter.port());

    std::mutex mutex;
    std::atomic<bool> done{false};
    std::size_t scrapes = 0;
    std::size_t failed = 0;
    Clock::duration slowest{};
    std::thread scraper([&] {
        while (!done) {
            const auto start = Clock::now();
            const std::string metrics = exporter.get("/metrics").out;
            const auto took = Clock::now() - start;
            std::lock_guard<std::mutex> lock(mutex);
            ++scrapes;
            failed += seriesValue(metrics, entries) != "35";
            slowest = std::max(slowest, took);
        }
    });
    // A header line to each trickling client every 500 ms, until the server has closed them all.
    std::size_t cutOff = 0;
    std::size_t bytesAnswered = 0;
    auto firstCut = Clock::time_point::max();
    auto lastTrickle = Clock::now();
    while (cutOff < clients.size() && Clock::now() - connected < std::chrono::seconds(60)) {
        most = std::max<std::size_t>(most, bmcsim::connectionsHeldAt(exporter.port()));
        std::vector<pollfd> waiting;
        for (int fd : clients) waiting.push_back({fd, POLLIN | POLLRDHUP, 0});
        poll(waiting.data(), waiting.size(), 100);
        for (std::size_t i = 0; i < clients.size(); ++i) {
            if (clients[i] < 0 || waiting[i].revents == 0) continue;
            char buffer[512];
            const ssize_t got = recv(clients[i], buffer, sizeof buffer, MSG_DONTWAIT);
            if (got > 0) {
                bytesAnswered += static_cast<std::size_t>(got);
                continue;
            }
            close(clients[i]);
            clients[i] = -1;
            ++cutOff;
            firstCut = std::min(firstCut, Clock::now());
        }
        if (Clock::now() - lastTrickle < std::chrono::milliseconds(500)) continue;
        lastTrickle = Clock::now();
        for (std::size_t i = 0; i < trickling; ++i) {
            if (clients[i] >= 0)
                send(clients[i], headerLine.data(), headerLine.size(), MSG_NOSIGNAL);
        }
    }
    const auto lastCut = Clock::now();
    done = true;
    scraper.join();
    for (int fd : clients) {
        if (fd >= 0) close(fd);
    }
    EXPECT_EQ(cutOff, trickling + silent);
    EXPECT_EQ(bytesAnswered, 0u);
    // Cut off by the deadline, not before.
    EXPECT_GE(firstCut - connecting, std::chrono::seconds(4));
    // Held together, not one by one.
    EXPECT_GT(most, before + trickling);
    EXPECT_LT(lastCut - connected, std::chrono::seconds(15));
    EXPECT_GT(scrapes, 0u);
    EXPECT_EQ(failed, 0u);
    EXPECT_LT(slowest, std::chrono::seconds(3));
    std::size_t after = 0;
    EXPECT_TRUE(bmcsim::waitUntil(
        [&] {
            after = bmcsim::connectionsHeldAt(exporter.port());
            return after <= before + 2;
        },
        std::chrono::seconds(60)))
        << after << " connections, " << before << " before";
    RecordProperty("connections_before", std::to_string(before));
    RecordProperty("connections_most", std::to_string(most));
    RecordProperty("connections_after", std::to_string(after));
    RecordProperty("scrapes", std::to_string(scrapes));
    RecordProperty(
        "slowest_scrape_ms",
        std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(slowest).count()));
    EXPECT_EQ(exporter.stop(), 0);
}

}  // namespace
