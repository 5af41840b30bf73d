// The tool reading a Redfish service's event log as it reads a BMC's SEL: every entry once, with
// its ID, time in UTC, severity and message, before and after entries are added and the log is
// cleared; clear, status and show on its logs; messages worded by the service's registries; a SEL
// record kept as an entry's additional data read as the same record in the entry; and the
// requests that only IPMI has refused with the reason.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
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
    bmcsim::ToolRun tool(const std::string& arguments) { return toolAt(*bmc, arguments); }
    bmcsim::ToolRun toolAt(const bmcsim::RedfishBmc& at, const std::string& arguments) {
        return bmcsim::runShell(
            "IPMI_PASSWORD=s3cret " TOOL_PATH " -H " + at.url() + " -U monitor -E " + arguments,
            scratch);
    }

    // Another service of `layout`, started, with the same credentials.
    static std::unique_ptr<bmcsim::RedfishBmc> another(bmcsim::RedfishLayout layout,
                                                       bool selAsAdditionalData = false) {
        bmcsim::RedfishBmcOptions options;
        options.user = "monitor";
        options.password = "s3cret";
        options.layout = layout;
        options.selAsAdditionalData = selAsAdditionalData;
        auto made = std::make_unique<bmcsim::RedfishBmc>(options);
        made->start();
        return made;
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
    bmc->addEntry(log, {{"Id", "1"}});
    bmcsim::ToolRun run = tool("delete 1");
    EXPECT_EQ(run.status, 11);
    EXPECT_EQ(run.err, "ipmi-event-log: " + bmc->url() +
                           ": Redfish has no operation that deletes a log entry: clear empties a "
                           "whole log\n");
    run = tool("add 0100020000000000200004010259ffff");
    EXPECT_EQ(run.status, 11);
    EXPECT_EQ(run.err, "ipmi-event-log: " + bmc->url() +
                           ": Redfish has no operation that adds a log entry\n");
    run = tool("get 1");
    EXPECT_EQ(run.status, 11);
    EXPECT_EQ(run.err, "ipmi-event-log: " + bmc->url() +
                           ": a Redfish service has no get here: list, show, clear and status "
                           "reach its logs, follow and serve follow them\n");
    EXPECT_EQ(bmc->entries(log).size(), 1u);
}

TEST_F(ToolRedfishTest, AWrongPasswordIsAnAuthenticationFailure) {
    const bmcsim::ToolRun run = bmcsim::runShell(
        "IPMI_PASSWORD=wrong " TOOL_PATH " -H " + bmc->url() + " -U monitor -E list", scratch);
    EXPECT_EQ(run.status, 14) << run.err;
    EXPECT_EQ(run.out, "");
}

}  // namespace

namespace {

// --- clear ---------------------------------------------------------------------------------

TEST_F(ToolRedfishTest, ClearEmptiesEachLogReadByItsActionAndSaysSo) {
    const std::string journal = bmc->logServices().at(1);
    bmc->addEntry(log, {{"Message", "first"}});
    bmc->addEntry(log, {{"Message", "second"}});
    bmc->addEntry(journal, {{"Message", "kept"}});
    const bmcsim::ToolRun run = tool("clear");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, bmc->url() + ": Event Log Service cleared\n");
    EXPECT_EQ(run.err, "");
    EXPECT_TRUE(bmc->entries(log).empty());
    EXPECT_EQ(bmc->entries(journal).size(), 1u);  // not a log the tool reads
    EXPECT_EQ(bmc->requests("POST", log + "/Actions/LogService.ClearLog"), 1u);
}

TEST_F(ToolRedfishTest, ClearClearsTheLogsNamedAndNamesThoseWithoutTheAction) {
    const auto legacy = another(bmcsim::RedfishLayout::IdracLegacy);
    const std::string sel = legacy->logServices().at(0);
    const std::string lifecycle = legacy->logServices().at(1);
    legacy->addSelRecord(sel, {0x01, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x20, 0x00, 0x04, 0x01,
                               0x30, 0x01, 0x09, 0x5A, 0x55});
    legacy->addEntry(lifecycle);
    bmcsim::ToolRun run = toolAt(*legacy, "--log Sel --log Lclog clear");
    EXPECT_EQ(run.status, 11);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "ipmi-event-log: " + legacy->url() +
                           ": Lifecycle Controller Log Service cannot be cleared: the service "
                           "offers no ClearLog action for it (cleared: SEL Log Service)\n");
    EXPECT_TRUE(legacy->entries(sel).empty());
    EXPECT_EQ(legacy->entries(lifecycle).size(), 1u);

    run = toolAt(*legacy, "--log Lclog clear");
    EXPECT_EQ(run.status, 11);
    EXPECT_EQ(run.err, "ipmi-event-log: " + legacy->url() +
                           ": Lifecycle Controller Log Service cannot be cleared: the service "
                           "offers no ClearLog action for it\n");
}

TEST_F(ToolRedfishTest, ClearWithAWrongPasswordIsAnAuthenticationFailure) {
    bmc->addEntry(log);
    const bmcsim::ToolRun run = bmcsim::runShell(
        "IPMI_PASSWORD=wrong " TOOL_PATH " -H " + bmc->url() + " -U monitor -E clear", scratch);
    EXPECT_EQ(run.status, 14) << run.err;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(bmc->entries(log).size(), 1u);
}

// --- status --------------------------------------------------------------------------------

TEST_F(ToolRedfishTest, StatusLogsInAndSaysSo) {
    bmcsim::ToolRun run = tool("status");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, bmc->url() + ": connected\n");
    EXPECT_EQ(bmc->requests("POST", bmc->sessionsPath()), 1u);

    run = bmcsim::runShell(
        "IPMI_PASSWORD=wrong " TOOL_PATH " -H " + bmc->url() + " -U monitor -E status", scratch);
    EXPECT_EQ(run.status, 14);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "ipmi-event-log: authentication refused by " + bmc->url() +
                           " (HTTP 401): check user and password\n");
}

TEST_F(ToolRedfishTest, StatusVerboseListsEachLogReadWithItsCountAndRoom) {
    bmc->addEntry(log);
    bmc->addEntry(log);
    bmcsim::ToolRun run = tool("-v status");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out,
              bmc->url() +
                  ": connected\n"
                  "  authentication: Redfish session\n"
                  "  log /redfish/v1/Systems/system/LogServices/EventLog: Event Log "
                  "Service (Id EventLog), hardware event log, 2 entries of at most 1000\n");

    run = tool("-v --log EventLog --log Journal status");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, bmc->url() +
                           ": connected\n"
                           "  authentication: Redfish session\n"
                           "  log /redfish/v1/Systems/system/LogServices/EventLog: Event Log "
                           "Service (Id EventLog), chosen with --log, 2 entries of at most 1000\n"
                           "  log /redfish/v1/Managers/bmc/LogServices/Journal: Open BMC Journal "
                           "Log Service (Id Journal), chosen with --log, 0 entries of at most "
                           "1000\n");

    const auto legacy = another(bmcsim::RedfishLayout::IdracLegacy);
    legacy->refuseSessions();
    run = toolAt(*legacy, "-v --log Lclog status");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, legacy->url() +
                           ": connected\n"
                           "  authentication: basic authentication\n"
                           "  log /redfish/v1/Managers/iDRAC.Embedded.1/LogServices/Lclog: "
                           "Lifecycle Controller Log Service (Id Lclog), chosen with --log, 0 "
                           "entries of at most 500000, not clearable\n");
}

// --- show ----------------------------------------------------------------------------------

TEST_F(ToolRedfishTest, ShowGivesTheEntryWhoseIdIsExactlyTheOneAsked) {
    bmc->addEntry(log, {{"Created", "2024-01-02T03:04:05+00:00"}, {"Message", "first"}});
    const std::string second =
        bmc->addEntry(log, {{"Created", "2024-01-02T03:04:05+00:00"}, {"Message", "second"}});
    ASSERT_EQ(second, "1704164645_1");
    bmcsim::ToolRun run = tool("--format jsonl show 1704164645_1");
    ASSERT_EQ(run.status, 0) << run.err;
    const std::vector<json> events = eventsOf(run.out);
    ASSERT_EQ(events.size(), 1u) << run.out;
    EXPECT_EQ(events[0].at("id"), "1704164645_1");
    EXPECT_EQ(events[0].at("message"), "second");

    run = tool("show 1704164645_2");
    EXPECT_EQ(run.status, 15);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "ipmi-event-log: " + bmc->url() +
                           " has no entry with Id 1704164645_2 in Event Log Service\n");
}

// --- messages of the service's registries --------------------------------------------------

TEST_F(ToolRedfishTest, WordsAnEntryWithoutMessageByTheServicesRegistryFetchedOnce) {
    const json none = nullptr;
    bmc->addEntry(log, {{"MessageId", "OpenBMC.0.1.PowerSupplyFailed"},
                        {"MessageArgs", {"PSU0"}},
                        {"Message", none}});
    bmc->addEntry(log, {{"MessageId", "OpenBMC.0.1.PowerSupplyFanRecovered"},
                        {"MessageArgs", {"PSU0", "2"}},
                        {"Message", none}});
    bmc->addEntry(log, {{"MessageId", "Base.1.8.PropertyValueNotInList"},
                        {"MessageArgs", {"Fast", "FanMode"}},
                        {"Message", ""}});
    bmc->addEntry(
        log,
        {{"MessageId", "OpenBMC.0.1.NotInTheRegistry"}, {"MessageArgs", {"x"}}, {"Message", none}});
    const bmcsim::ToolRun run = tool("--format jsonl list");
    ASSERT_EQ(run.status, 0) << run.err;
    const std::vector<json> events = eventsOf(run.out);
    ASSERT_EQ(events.size(), 4u) << run.out;
    EXPECT_EQ(events[0].at("message"), "Power supply PSU0 failed.");
    EXPECT_EQ(events[1].at("message"), "Power supply PSU0 fan 2 recovered.");
    EXPECT_EQ(events[2].at("message"),
              "The value Fast for the property FanMode is not in the list of acceptable values.");
    EXPECT_EQ(events[3].at("message"), "OpenBMC.0.1.NotInTheRegistry: x");
    EXPECT_EQ(bmc->requests("GET", "/redfish/v1/Registries"), 1u);
    EXPECT_EQ(bmc->requests("GET", "/redfish/v1/Registries/OpenBMC/OpenBMC"), 1u);
    EXPECT_EQ(bmc->requests("GET", "/redfish/v1/Registries/Base/Base"), 1u);
}

TEST_F(ToolRedfishTest, AMalformedRegistryLeavesTheTextsTheToolKnows) {
    bmc->setFault("/redfish/v1/Registries/OpenBMC/OpenBMC", bmcsim::RedfishFault::MalformedJson);
    const json none = nullptr;
    bmc->addEntry(log, {{"MessageId", "OpenBMC.0.1.DCPowerOn"},
                        {"MessageArgs", json::array()},
                        {"Message", none}});
    bmc->addEntry(log, {{"MessageId", "OpenBMC.0.1.PowerSupplyFailed"},
                        {"MessageArgs", {"PSU0"}},
                        {"Message", none}});
    bmc->addEntry(log, {{"MessageId", "Base.1.8.ResourceCreated"},
                        {"MessageArgs", json::array()},
                        {"Message", none}});
    const bmcsim::ToolRun run = tool("--format jsonl list");
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    const std::vector<json> events = eventsOf(run.out);
    ASSERT_EQ(events.size(), 3u) << run.out;
    EXPECT_EQ(events[0].at("message"), "Host system DC power is on");
    EXPECT_EQ(events[1].at("message"), "OpenBMC.0.1.PowerSupplyFailed: PSU0");
    EXPECT_EQ(events[2].at("message"), "The resource has been created successfully.");
    EXPECT_EQ(bmc->requests("GET", "/redfish/v1/Registries/OpenBMC/OpenBMC"), 1u);
}

// --- a SEL record as an entry's additional data --------------------------------------------

TEST_F(ToolRedfishTest, ASelRecordReadsTheSameInTheEntryAndAsItsAdditionalData) {
    // Temperature sensor 0x30, upper critical going high (reading 0x5A, threshold 0x55).
    const std::array<std::uint8_t, 16> record = {0x07, 0x00, 0x02, 0x00, 0x5E, 0x93, 0x65, 0x20,
                                                 0x00, 0x04, 0x01, 0x30, 0x01, 0x59, 0x5A, 0x55};
    bmc->addSelRecord(log, record);
    const auto idrac = another(bmcsim::RedfishLayout::Idrac, true);
    const std::string sel = idrac->mainLog();
    const std::string id = idrac->addSelRecord(sel, record);

    const bmcsim::ToolRun inEntry = tool("--format jsonl list");
    const bmcsim::ToolRun asData = toolAt(*idrac, "--format jsonl list");
    ASSERT_EQ(inEntry.status, 0) << inEntry.err;
    ASSERT_EQ(asData.status, 0) << asData.err;
    const std::vector<json> expected = eventsOf(inEntry.out);
    const std::vector<json> got = eventsOf(asData.out);
    ASSERT_EQ(expected.size(), 1u) << inEntry.out;
    ASSERT_EQ(got.size(), 1u) << asData.out;
    EXPECT_NE(got[0].at("message"), idrac->entries(sel).at(0).at("Message"));  // not the entry's
    for (const char* key : {"message", "source", "timeStamp", "sensorType", "sensorNumber",
                            "eventType", "offset", "eventData", "recordType"})
        EXPECT_EQ(got[0].value(key, json()), expected[0].value(key, json())) << key;
    EXPECT_EQ(idrac->requests("GET", idrac->entriesPath(sel) + "/" + id + "/Attachment"), 1u);
}

}  // namespace
