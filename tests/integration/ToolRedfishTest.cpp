// The tool reading a Redfish service's event log as it reads a BMC's SEL: every entry once, with
// its ID, time in UTC, severity and message, before and after entries are added and the log is
// cleared; and the requests that only IPMI has refused with the reason.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <memory>
#include <string>
#include <vector>

#include "RedfishBmc.h"
#include "ScratchDirectory.h"
#include "ToolRun.h"

namespace {

using nlohmann::json;

class ToolRedfishTest : public ::testing::Test {
protected:
    void SetUp() override {
        bmcsim::RedfishBmcOptions options;
        options.user = "monitor";
        options.password = "s3cret";
        bmc = std::make_unique<bmcsim::RedfishBmc>(options);
        bmc->start();
        log = bmc->mainLog();
    }

    // The tool with `arguments` against the simulated service, its password from the environment.
    bmcsim::ToolRun tool(const std::string& arguments) {
        return bmcsim::runShell(
            "IPMI_PASSWORD=s3cret " TOOL_PATH " -H " + bmc->url() + " -U monitor -E " + arguments,
            scratch);
    }

    // The events of JSON lines, one object each.
    static std::vector<json> eventsOf(const std::string& lines) {
        std::vector<json> events;
        std::size_t start = 0;
        for (std::size_t end = lines.find('\n'); end != std::string::npos;
             start = end + 1, end = lines.find('\n', start)) {
            events.push_back(json::parse(lines.substr(start, end - start)));
        }
        return events;
    }

    static std::vector<std::string> idsOf(const std::vector<json>& events) {
        std::vector<std::string> ids;
        for (const json& event : events) ids.push_back(event.at("id").get<std::string>());
        return ids;
    }

    bmcsim::ScratchDirectory scratch;
    std::unique_ptr<bmcsim::RedfishBmc> bmc;
    std::string log;
};

TEST_F(ToolRedfishTest, ListGivesEveryEntryWithItsIdTimeSeverityAndMessage) {
    const std::string first = bmc->addEntry(log, {{"Id", "1700000000"},
                                                  {"Created", "2024-01-02T03:04:05+01:00"},
                                                  {"Severity", "Critical"},
                                                  {"Message", "Power supply 1 failed"}});
    const std::string second = bmc->addEntry(log, {{"Id", "1700000100"},
                                                   {"Created", "2024-01-02T04:00:00Z"},
                                                   {"Severity", "OK"},
                                                   {"Message", "Power supply 1 restored"}});
    const bmcsim::ToolRun run = tool("--format jsonl list");
    ASSERT_EQ(run.status, 0) << run.err;
    const std::vector<json> events = eventsOf(run.out);
    ASSERT_EQ(events.size(), 2u) << run.out << run.err;
    EXPECT_EQ(events[0].at("id"), first);
    EXPECT_EQ(events[0].at("timeStamp"), "2024-01-02 02:04:05 UTC");
    EXPECT_EQ(events[0].at("severity"), "critical");
    EXPECT_EQ(events[0].at("message"), "Power supply 1 failed");
    EXPECT_EQ(events[0].at("complete"), true);
    EXPECT_EQ(events[1].at("id"), second);
    EXPECT_EQ(events[1].at("timeStamp"), "2024-01-02 04:00:00 UTC");
    EXPECT_EQ(events[1].at("severity"), "info");
}

TEST_F(ToolRedfishTest, ListStateGivesEachEntryOnceAndSaysAClearOnce) {
    bmc->addEntry(log, {{"Id", "1"}, {"Message", "first"}});
    bmc->addEntry(log, {{"Id", "2"}, {"Message", "second"}});
    const std::string state = "--state " + scratch.file("redfish.state") + " --format jsonl list";
    bmcsim::ToolRun run = tool(state);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(idsOf(eventsOf(run.out)), (std::vector<std::string>{"1", "2"}));

    run = tool(state);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "");

    bmc->addEntry(log, {{"Id", "3"}, {"Message", "third"}});
    run = tool(state);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(idsOf(eventsOf(run.out)), (std::vector<std::string>{"3"}));

    bmc->clearLog(log);
    bmc->addEntry(log, {{"Id", "4"}, {"Message", "after the clear"}});
    run = tool(state);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(idsOf(eventsOf(run.out)), (std::vector<std::string>{"4"}));
    EXPECT_EQ(bmcsim::countOf(run.err, " was cleared\n"), 1u) << run.err;

    run = tool(state);
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(bmcsim::countOf(run.err, "cleared"), 0u) << run.err;
}

TEST_F(ToolRedfishTest, RequestsOfTheSelAloneAreRefusedWithTheReason) {
    const bmcsim::ToolRun run = tool("delete 1");
    EXPECT_EQ(run.status, 11);
    EXPECT_EQ(run.err, "ipmi-event-log: " + bmc->url() +
                           ": a Redfish service has no delete here: list and show read its logs, "
                           "follow and serve follow them\n");
}

TEST_F(ToolRedfishTest, AWrongPasswordIsAnAuthenticationFailure) {
    const bmcsim::ToolRun run = bmcsim::runShell(
        "IPMI_PASSWORD=wrong " TOOL_PATH " -H " + bmc->url() + " -U monitor -E list", scratch);
    EXPECT_EQ(run.status, 14) << run.err;
    EXPECT_EQ(run.out, "");
}

}  // namespace
