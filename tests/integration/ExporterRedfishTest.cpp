// ipmi-event-log serve reading Redfish BMCs for Prometheus: a module of transport: redfish scraped
// as /ipmi?target=127.0.0.1:PORT&module=rf against the Redfish simulator, its events counted under
// the names an IPMI target's are, one Redfish session kept for all its scrapes and ended when the
// configuration is read again and when serve stops; over HTTP, and over HTTPS checked against the
// module's ca_file; a slow service and bad answers are a target down within the scrape, its place
// kept.
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ExporterProcess.h"
#include "RedfishBmc.h"
#include "ScratchDirectory.h"
#include "ServerProcess.h"

namespace {

using bmcsim::seriesValue;

const char* const kUp = "ipmi_up{collector=\"sel\"}";
const char* const kInfo = "ipmi_event_log_events_total{severity=\"info\"}";
const char* const kWarning = "ipmi_event_log_events_total{severity=\"warning\"}";
const char* const kCritical = "ipmi_event_log_events_total{severity=\"critical\"}";

class ExporterRedfishTest : public ::testing::Test {
protected:
    // The simulator, an OpenBMC with three events in its log, one of each severity.
    void startBmc(bool https) {
        bmcsim::RedfishBmcOptions options;
        options.user = "monitor";
        options.password = "s3cret";
        options.https = https;
        bmc = std::make_unique<bmcsim::RedfishBmc>(options);
        bmc->start();
        addEntry("Critical", "Power supply 1 failed");
        addEntry("Warning", "Fan 2 slow");
        addEntry("OK", "Power supply 1 restored");
    }

    void addEntry(const std::string& severity, const std::string& message) {
        bmc->addEntry(bmc->mainLog(), {{"Severity", severity}, {"Message", message}});
    }

    // The configuration: module rf of transport redfish, reaching 127.0.0.1 as the simulator's
    // user, with `more` (keys of rf's, further modules) after it.
    void configure(const std::string& more) {
        scratch.write("ipmi.yml",
                      "modules:\n"
                      "  rf:\n"
                      "    transport: redfish\n"
                      "    user: monitor\n"
                      "    pass: s3cret\n"
                      "    hosts: [\"127.0.0.1\"]\n" +
                          more);
        ASSERT_EQ(chmod(scratch.file("ipmi.yml").c_str(), 0600), 0);
    }

    std::string target() const { return "127.0.0.1:" + std::to_string(bmc->port()); }
    // A scrape of the simulator with `module`, as Prometheus sends it (with its scrape timeout,
    // which bounds the session's requests).
    std::string scrape(const bmcsim::ExporterProcess& exporter, const std::string& module,
                       int timeoutSeconds = 10) const {
        return exporter
            .get("/ipmi?target=" + target() + "&module=" + module,
                 "--header 'X-Prometheus-Scrape-Timeout-Seconds: " +
                     std::to_string(timeoutSeconds) + "'")
            .out;
    }
    // serve with the simulator over HTTP as module rf, its targets' places kept in "states".
    std::unique_ptr<bmcsim::ExporterProcess> serveOverHttpWithStates() {
        startBmc(false);
        configure("    scheme: http\n");
        const std::string states = scratch.file("states");
        EXPECT_EQ(mkdir(states.c_str(), 0700), 0);
        return std::make_unique<bmcsim::ExporterProcess>(
            std::vector<std::string>{"--config", scratch.file("ipmi.yml"), "--state-dir", states},
            scratch);
    }
    // The sessions made so far.
    std::size_t logins() const { return bmc->requests("POST", bmc->sessionsPath()); }

    bmcsim::ScratchDirectory scratch;
    std::unique_ptr<bmcsim::RedfishBmc> bmc;
};

TEST_F(ExporterRedfishTest, ScrapesShareOneSessionThatAReloadAndTheEndOfServeEnd) {
    const std::unique_ptr<bmcsim::ExporterProcess> exporter = serveOverHttpWithStates();
    for (int polls = 1; polls <= 3; ++polls) {
        const std::string metrics = scrape(*exporter, "rf");
        EXPECT_EQ(seriesValue(metrics, kUp), "1") << metrics;
        EXPECT_EQ(seriesValue(metrics, "ipmi_event_log_up"), "1");
        // Read once: the later scrapes find nothing new.
        EXPECT_EQ(seriesValue(metrics, kCritical), "1");
        EXPECT_EQ(seriesValue(metrics, kWarning), "1");
        EXPECT_EQ(seriesValue(metrics, kInfo), "1");
        EXPECT_EQ(seriesValue(metrics, "ipmi_event_log_polls_total"), std::to_string(polls));
    }
    EXPECT_EQ(logins(), 1u);
    EXPECT_EQ(bmc->sessions().size(), 1u);
    // The target's place, apart from an IPMI module's.
    EXPECT_EQ(access(scratch.file("states/" + target() + "@rf.redfish.state").c_str(), F_OK), 0);

    addEntry("Critical", "Power supply 2 failed");
    const std::string added = scrape(*exporter, "rf");
    EXPECT_EQ(seriesValue(added, kCritical), "2") << added;
    EXPECT_EQ(seriesValue(added, kInfo), "1");
    EXPECT_EQ(logins(), 1u);

    // A reload ends the session; the next scrape makes one, and goes on from its place.
    exporter->signal(SIGHUP);
    EXPECT_TRUE(
        bmcsim::waitUntil([&] { return bmc->sessions().empty(); }, std::chrono::seconds(60)));
    const std::string reloaded = scrape(*exporter, "rf");
    EXPECT_EQ(seriesValue(reloaded, kUp), "1") << reloaded;
    EXPECT_EQ(seriesValue(reloaded, kCritical), "2");
    EXPECT_EQ(logins(), 2u);
    EXPECT_EQ(bmc->sessions().size(), 1u);

    // SIGTERM: serve logs out before it exits.
    EXPECT_EQ(exporter->stop(), 0);
    EXPECT_TRUE(bmc->sessions().empty());
    EXPECT_EQ(logins(), 2u);
}

TEST_F(ExporterRedfishTest, ASlowServiceAndBadAnswersAreDownWithinTheScrapeAndKeepThePlace) {
    const std::unique_ptr<bmcsim::ExporterProcess> exporter = serveOverHttpWithStates();
    ASSERT_EQ(seriesValue(scrape(*exporter, "rf"), kUp), "1");
    const std::string stateFile = "states/" + target() + "@rf.redfish.state";
    const std::string place = scratch.read(stateFile);
    addEntry("Critical", "Power supply 2 failed");

    const std::string entries = bmc->entriesPath(bmc->mainLog());
    const std::vector<std::pair<bmcsim::RedfishFault, const char*>> faults = {
        {bmcsim::RedfishFault::MalformedJson, "malformed JSON"},
        {bmcsim::RedfishFault::WrongTypes, "members of the wrong type"},
        {bmcsim::RedfishFault::MissingFields, "members missing"},
        {bmcsim::RedfishFault::HugeBody, "a 10 MB body"},
        {bmcsim::RedfishFault::RedirectLoop, "a redirect loop"},
        {bmcsim::RedfishFault::Unavailable, "503 after Retry-After"}};
    for (const auto& [fault, what] : faults) {
        bmc->setFault(entries, fault);
        const std::string metrics = scrape(*exporter, "rf");
        EXPECT_EQ(seriesValue(metrics, kUp), "0") << what << "\n" << metrics;
        EXPECT_EQ(seriesValue(metrics, kCritical), "1") << what;
        EXPECT_EQ(scratch.read(stateFile), place) << what;
    }
    bmc->setFault(entries, bmcsim::RedfishFault::None);

    // Slower than a 2 s scrape allows: the session's requests time out within it.
    bmc->setDelay(std::chrono::seconds(3));
    const auto began = std::chrono::steady_clock::now();
    const std::string slow = scrape(*exporter, "rf", 2);
    EXPECT_EQ(seriesValue(slow, kUp), "0") << slow;
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(10));
    EXPECT_EQ(scratch.read(stateFile), place);
    bmc->setDelay(std::chrono::milliseconds(0));

    // Once the service answers again, the entry added is read, once.
    std::string healed;
    EXPECT_TRUE(bmcsim::waitUntil(
        [&] {
            healed = scrape(*exporter, "rf");
            return seriesValue(healed, kUp) == "1";
        },
        std::chrono::seconds(60)))
        << healed;
    EXPECT_EQ(seriesValue(healed, kCritical), "2");
    EXPECT_NE(scratch.read(stateFile), place);
    EXPECT_EQ(exporter->stop(), 0);
}

TEST_F(ExporterRedfishTest, HttpsIsCheckedAgainstTheModulesAuthorities) {
    startBmc(true);
    configure("    ca_file: " + bmc->certificateFile() +
              "\n"
              "  untrusted:\n"
              "    transport: redfish\n"
              "    user: monitor\n"
              "    pass: s3cret\n"
              "    hosts: any\n");
    bmcsim::ExporterProcess exporter({"--config", scratch.file("ipmi.yml")}, scratch);
    const std::string metrics = scrape(exporter, "rf");
    EXPECT_EQ(seriesValue(metrics, kUp), "1") << metrics;
    EXPECT_EQ(seriesValue(metrics, kCritical), "1");
    EXPECT_EQ(seriesValue(metrics, kWarning), "1");
    EXPECT_EQ(seriesValue(metrics, kInfo), "1");
    EXPECT_EQ(logins(), 1u);
    // The system's authorities do not know the simulator's certificate: nothing is sent to it.
    const std::string untrusted = scrape(exporter, "untrusted");
    EXPECT_EQ(seriesValue(untrusted, kUp), "0") << untrusted;
    EXPECT_EQ(logins(), 1u);
    EXPECT_EQ(exporter.stop(), 0);
    EXPECT_TRUE(bmc->sessions().empty());
}

}  // namespace
