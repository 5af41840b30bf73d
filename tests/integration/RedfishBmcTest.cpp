// The tests' Redfish BMC, read as Redfish clients read a BMC: from the service root down to each
// layout's logs, page by page with nextLink and with $skip/$top, through sessions and basic
// authentication; ClearLog; the faults it is told to make; HTTPS against its own certificate; and
// DMTF's redfishtool reading it, as a client of others'.
#include <gtest/gtest.h>
#include <httplib.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "RedfishBmc.h"
#include "ScratchDirectory.h"

namespace {

using bmcsim::RedfishBmc;
using bmcsim::RedfishFault;
using bmcsim::RedfishLayout;
using json = nlohmann::json;

const char* const kUser = "root";
const char* const kPassword = "0penBmc";

// A started BMC of `layout` with `entries` entries in its main log.
std::unique_ptr<RedfishBmc> startedBmc(RedfishLayout layout, unsigned entries = 0,
                                       bool https = false) {
    bmcsim::RedfishBmcOptions options;
    options.layout = layout;
    options.user = kUser;
    options.password = kPassword;
    options.https = https;
    auto bmc = std::make_unique<RedfishBmc>(options);
    for (unsigned i = 0; i < entries; ++i)
        bmc->addEntry(bmc->mainLog(), {{"Message", "entry " + std::to_string(i)}});
    bmc->start();
    return bmc;
}

std::unique_ptr<httplib::Client> clientOf(const RedfishBmc& bmc, bool basic = true) {
    auto client = std::make_unique<httplib::Client>("127.0.0.1", bmc.port());
    if (basic) client->set_basic_auth(kUser, kPassword);
    client->set_read_timeout(30, 0);
    return client;
}

// The JSON of a GET answered 200; a test failure otherwise.
json getJson(httplib::Client& client, const std::string& path) {
    const auto result = client.Get(path);
    if (!result) {
        ADD_FAILURE() << "GET " << path << ": no answer";
        return json();
    }
    EXPECT_EQ(result->status, 200) << "GET " << path << ": " << result->body;
    return json::parse(result->body, nullptr, false);
}

int statusOf(const httplib::Result& result) { return result ? result->status : -1; }

std::string withoutSlash(std::string path) {
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

// The LogServices found from the service root through Systems, Managers and Chassis.
std::set<std::string> logServicesFromTheRoot(httplib::Client& client) {
    std::set<std::string> found;
    const json root = getJson(client, "/redfish/v1");
    for (const char* kind : {"Systems", "Managers", "Chassis"}) {
        const json collection = getJson(client, root[kind]["@odata.id"].get<std::string>());
        for (const json& member : collection["Members"]) {
            const json resource = getJson(client, member["@odata.id"].get<std::string>());
            if (!resource.contains("LogServices")) continue;
            const json services =
                getJson(client, resource["LogServices"]["@odata.id"].get<std::string>());
            EXPECT_EQ(services["Members@odata.count"], services["Members"].size());
            for (const json& service : services["Members"])
                found.insert(withoutSlash(service["@odata.id"].get<std::string>()));
        }
    }
    return found;
}

// Every entry of a collection, following Members@odata.nextLink; members given as links read
// on their own.
std::vector<json> readAll(httplib::Client& client, std::string path, std::size_t* pages = nullptr) {
    std::vector<json> entries;
    for (std::size_t page = 0; !path.empty(); ++page) {
        const json collection = getJson(client, path);
        for (const json& member : collection["Members"]) {
            entries.push_back(member.contains("Id")
                                  ? member
                                  : getJson(client, member["@odata.id"].get<std::string>()));
        }
        path = collection.value("Members@odata.nextLink", "");
        if (pages) *pages = page + 1;
        if (page > 1000) break;
    }
    return entries;
}

std::vector<std::string> idsOf(const std::vector<json>& entries) {
    std::vector<std::string> ids;
    for (const json& entry : entries) ids.push_back(entry["Id"].get<std::string>());
    return ids;
}

std::vector<std::string> numbers(unsigned from, unsigned to) {
    std::vector<std::string> all;
    for (unsigned n = from; n <= to; ++n) all.push_back(std::to_string(n));
    return all;
}

// A system event record: record 0x0102, 2023-11-14 22:13:20 UTC, from the BMC, a temperature
// sensor 0x30 going over its upper critical threshold.
const std::array<std::uint8_t, 16> kRecord = {
    0x02, 0x01,              // record ID 0x0102, least significant byte first
    0x02,                    // a system event record
    0x00, 0xF1, 0x53, 0x65,  // time stamp 0x6553F100
    0x20, 0x00,              // generator: the BMC
    0x04,                    // event message format revision
    0x01,                    // sensor type: temperature
    0x30,                    // sensor number
    0x01,                    // threshold event, assertion
    0x59, 0x5A, 0x50};       // upper critical going high, reading, threshold

class EachLayout : public ::testing::TestWithParam<RedfishLayout> {};

TEST_P(EachLayout, LogsAreReachableFromTheServiceRoot) {
    const auto bmc = startedBmc(GetParam());
    for (const std::string& log : bmc->logServices()) bmc->addEntry(log);
    const auto client = clientOf(*bmc);
    const std::set<std::string> found = logServicesFromTheRoot(*client);
    const std::vector<std::string> expected = bmc->logServices();
    EXPECT_EQ(found, std::set<std::string>(expected.begin(), expected.end()));
    for (const std::string& path : expected) {
        const json service = getJson(*client, path);
        for (const char* field : {"@odata.id", "@odata.type", "Id", "Name", "LogEntryType",
                                  "MaxNumberOfRecords", "OverWritePolicy", "Entries"})
            EXPECT_TRUE(service.contains(field)) << path << " has no " << field;
        // iDRAC's Lifecycle log of older firmware cannot be cleared.
        if (GetParam() != RedfishLayout::IdracLegacy || service["Id"] != "Lclog") {
            EXPECT_TRUE(service["Actions"]["#LogService.ClearLog"]["target"].is_string());
        }
        const std::vector<json> entries =
            readAll(*client, service["Entries"]["@odata.id"].get<std::string>());
        ASSERT_EQ(entries.size(), 1u) << path;
        for (const char* field :
             {"@odata.id", "@odata.type", "Id", "Created", "EntryType", "Message", "Severity"})
            EXPECT_TRUE(entries[0].contains(field)) << path << "'s entry has no " << field;
    }
}

INSTANTIATE_TEST_SUITE_P(RedfishBmc, EachLayout,
                         ::testing::Values(RedfishLayout::OpenBmc, RedfishLayout::Idrac,
                                           RedfishLayout::IdracLegacy, RedfishLayout::Ilo,
                                           RedfishLayout::Xcc, RedfishLayout::Supermicro),
                         [](const auto& info) {
                             std::string name = bmcsim::redfishLayoutName(info.param);
                             name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                             return name;
                         });

TEST(RedfishBmc, OpenBmcShowsASelRecordAsSelEntryAddedWithItsSixteenBytes) {
    const auto bmc = startedBmc(RedfishLayout::OpenBmc);
    EXPECT_EQ(bmc->addSelRecord(bmc->mainLog(), kRecord), "1700000000");
    // A second entry of the same second, as bmcweb numbers it.
    EXPECT_EQ(bmc->addSelRecord(bmc->mainLog(), kRecord), "1700000000_1");
    const auto client = clientOf(*bmc);
    const json entries = getJson(*client, bmc->entriesPath(bmc->mainLog()));
    ASSERT_EQ(entries["Members"].size(), 2u);
    const json& entry = entries["Members"][0];
    EXPECT_EQ(entry["MessageId"], "OpenBMC.0.1.SELEntryAdded");
    // The record's bytes in their order, two upper-case digits each.
    const std::string hex = "02010200F15365200004013001595A50";
    EXPECT_EQ(entry["MessageArgs"], json::array({hex}));
    EXPECT_EQ(entry["Message"], "SEL Entry Added: " + hex);
    EXPECT_EQ(entry["EntryType"], "Event");
    EXPECT_EQ(entry["Severity"], "OK");
    EXPECT_EQ(entry["Created"], "2023-11-14T22:13:20+00:00");
    EXPECT_EQ(entry["@odata.id"],
              "/redfish/v1/Systems/system/LogServices/EventLog/Entries/1700000000");
}

TEST(RedfishBmc, IdracShowsASelRecordWithItsSensor) {
    const auto bmc = startedBmc(RedfishLayout::Idrac);
    ASSERT_EQ(bmc->mainLog(), "/redfish/v1/Managers/iDRAC.Embedded.1/LogServices/Sel");
    EXPECT_EQ(bmc->addSelRecord(bmc->mainLog(), kRecord), "1");
    const auto client = clientOf(*bmc);
    const json entry = getJson(*client, bmc->entriesPath(bmc->mainLog()) + "/1");
    EXPECT_EQ(entry["EntryType"], "SEL");
    EXPECT_EQ(entry["SensorType"], "Temperature");
    EXPECT_EQ(entry["SensorNumber"], 0x30);
    EXPECT_EQ(entry["EntryCode"], "Assert");
    EXPECT_EQ(entry["GeneratorId"], "0x0020");
    EXPECT_EQ(entry["Created"], "2023-11-14T22:13:20+00:00");
    EXPECT_THROW(bmc->addSelRecord(bmc->logServices()[1], kRecord), std::logic_error);
}

TEST(RedfishBmc, SupermicroNamesTheThresholdAndGivesTheEventData) {
    const auto bmc = startedBmc(RedfishLayout::Supermicro);
    ASSERT_EQ(bmc->mainLog(), "/redfish/v1/Systems/1/LogServices/Log1");
    bmc->addSelRecord(bmc->mainLog(), kRecord);
    const json entry = getJson(*clientOf(*bmc), bmc->entriesPath(bmc->mainLog()) + "/1");
    EXPECT_EQ(entry["EntryType"], "SEL");
    EXPECT_EQ(entry["SensorType"], "Temperature");
    EXPECT_EQ(entry["SensorNumber"], 0x30);
    EXPECT_EQ(entry["EntryCode"], "Upper Critical - going high");
    EXPECT_EQ(entry["MessageId"], "0x595A50");
}

TEST(RedfishBmc, OlderIdracKeepsItsEntriesUnderLogs) {
    const auto bmc = startedBmc(RedfishLayout::IdracLegacy);
    const std::string sel = bmc->mainLog();
    EXPECT_EQ(bmc->entriesPath(sel), "/redfish/v1/Managers/iDRAC.Embedded.1/Logs/Sel");
    bmc->addSelRecord(sel, kRecord);
    const auto client = clientOf(*bmc);
    const json service = getJson(*client, sel);
    EXPECT_EQ(service["Entries"]["@odata.id"], "/redfish/v1/Managers/iDRAC.Embedded.1/Logs/Sel");
    const json entries = getJson(*client, "/redfish/v1/Managers/iDRAC.Embedded.1/Logs/Sel");
    ASSERT_EQ(entries["Members"].size(), 1u);
    EXPECT_EQ(entries["Members"][0]["EntryCode"], json::parse(R"([{"Member": "Assert"}])"));
    EXPECT_EQ(entries["Members"][0]["@odata.id"],
              "/redfish/v1/Managers/iDRAC.Embedded.1/Logs/Sel/1");
    EXPECT_EQ(statusOf(client->Get(sel + "/Entries")), 404);
    // Sessions are made where the service root's Links.Sessions says.
    EXPECT_EQ(getJson(*client, "/redfish/v1")["Links"]["Sessions"]["@odata.id"],
              "/redfish/v1/Sessions");
    EXPECT_EQ(
        statusOf(clientOf(*bmc, false)
                     ->Post("/redfish/v1/Sessions",
                            R"({"UserName": "root", "Password": "0penBmc"})", "application/json")),
        201);
    // The Lifecycle log cannot be cleared.
    const std::string lifecycle = bmc->logServices()[1];
    EXPECT_FALSE(getJson(*client, lifecycle).contains("Actions"));
    EXPECT_EQ(statusOf(client->Post(lifecycle + "/Actions/LogService.ClearLog", "{}",
                                    "application/json")),
              404);
}

TEST(RedfishBmc, PagesFollowTheNextLink) {
    const auto bmc = startedBmc(RedfishLayout::Idrac, 120);
    const auto client = clientOf(*bmc);
    const json first = getJson(*client, bmc->entriesPath(bmc->mainLog()));
    EXPECT_EQ(first["Members@odata.count"], 120);
    EXPECT_EQ(first["Members"].size(), 50u);
    EXPECT_EQ(first["Members@odata.nextLink"],
              "/redfish/v1/Managers/iDRAC.Embedded.1/LogServices/Sel/Entries?$skip=50");
    std::size_t pages = 0;
    EXPECT_EQ(idsOf(readAll(*client, bmc->entriesPath(bmc->mainLog()), &pages)), numbers(1, 120));
    EXPECT_EQ(pages, 3u);
}

TEST(RedfishBmc, SkipAndTopChooseTheMembers) {
    const auto bmc = startedBmc(RedfishLayout::Xcc, 10);
    const auto client = clientOf(*bmc);
    const std::string entries = bmc->entriesPath(bmc->mainLog());
    const json page = getJson(*client, entries + "?$skip=5&$top=3");
    EXPECT_EQ(idsOf(page["Members"].get<std::vector<json>>()), numbers(6, 8));
    EXPECT_EQ(page["Members@odata.count"], 10);
    EXPECT_EQ(page["Members@odata.nextLink"], entries + "?$skip=8&$top=3");
    EXPECT_EQ(idsOf(readAll(*client, entries + "?$top=3")), numbers(1, 10));
    EXPECT_EQ(statusOf(client->Get(entries + "?$top=many")), 400);
    EXPECT_EQ(statusOf(client->Get(entries + "?$top=0")), 400);
    // Where the layout takes no query options, the log comes whole.
    bmc->setQueryOptions(bmc->mainLog(), false);
    EXPECT_EQ(getJson(*client, entries + "?$skip=5&$top=3")["Members"].size(), 10u);
}

TEST(RedfishBmc, EntriesAddedWhileAClientPagesComeInLaterPages) {
    const auto bmc = startedBmc(RedfishLayout::OpenBmc);
    for (int i = 0; i < 7; ++i) bmc->addEntry(bmc->mainLog(), {{"Id", std::to_string(100 + i)}});
    bmc->setPageSize(bmc->mainLog(), 3);
    std::vector<std::size_t> pagesServed;
    bmc->afterPage([&](const std::string& log, std::size_t page) {
        pagesServed.push_back(page);
        if (page == 0) bmc->addEntry(log, {{"Id", "200"}});
    });
    const auto client = clientOf(*bmc);
    const std::vector<json> entries = readAll(*client, bmc->entriesPath(bmc->mainLog()));
    EXPECT_EQ(idsOf(entries),
              (std::vector<std::string>{"100", "101", "102", "103", "104", "105", "106", "200"}));
    EXPECT_EQ(pagesServed, (std::vector<std::size_t>{0, 1, 2}));
}

TEST(RedfishBmc, SessionsGiveATokenUntilDeleted) {
    const auto bmc = startedBmc(RedfishLayout::OpenBmc, 1);
    const auto anonymous = clientOf(*bmc, false);
    const std::string entries = bmc->entriesPath(bmc->mainLog());
    EXPECT_EQ(statusOf(anonymous->Get(entries)), 401);
    EXPECT_EQ(statusOf(anonymous->Get("/redfish/v1")), 200);
    const auto refused =
        anonymous->Post("/redfish/v1/SessionService/Sessions",
                        R"({"UserName": "root", "Password": "wrong"})", "application/json");
    EXPECT_EQ(statusOf(refused), 401);
    const auto login =
        anonymous->Post("/redfish/v1/SessionService/Sessions",
                        R"({"UserName": "root", "Password": "0penBmc"})", "application/json");
    ASSERT_EQ(statusOf(login), 201);
    const std::string token = login->get_header_value("X-Auth-Token");
    const std::string location = login->get_header_value("Location");
    EXPECT_EQ(location, "/redfish/v1/SessionService/Sessions/1");
    ASSERT_EQ(bmc->sessions().size(), 1u);
    EXPECT_EQ(bmc->sessions()[0].token, token);
    const httplib::Headers withToken = {{"X-Auth-Token", token}};
    EXPECT_EQ(statusOf(anonymous->Get(entries, withToken)), 200);
    EXPECT_EQ(statusOf(anonymous->Delete(location, withToken)), 204);
    EXPECT_TRUE(bmc->sessions().empty());
    EXPECT_EQ(statusOf(anonymous->Get(entries, withToken)), 401);
    // Basic authentication on every resource.
    EXPECT_EQ(statusOf(clientOf(*bmc)->Get(entries)), 200);
}

TEST(RedfishBmc, TokensExpireWhenTold) {
    const auto bmc = startedBmc(RedfishLayout::Idrac);
    const auto client = clientOf(*bmc, false);
    const auto login = [&] {
        const auto answer =
            client->Post("/redfish/v1/SessionService/Sessions",
                         R"({"UserName": "root", "Password": "0penBmc"})", "application/json");
        return httplib::Headers{
            {"X-Auth-Token", answer ? answer->get_header_value("X-Auth-Token") : std::string()}};
    };
    const std::string path = bmc->mainLog();
    const auto first = login();
    EXPECT_EQ(statusOf(client->Get(path, first)), 200);
    bmc->expireSessions();
    EXPECT_EQ(statusOf(client->Get(path, first)), 401);
    bmc->expireSessionsAfter(2);
    const auto second = login();
    EXPECT_EQ(statusOf(client->Get(path, second)), 200);
    EXPECT_EQ(statusOf(client->Get(path, second)), 200);
    EXPECT_EQ(statusOf(client->Get(path, second)), 401);
}

TEST(RedfishBmc, RefusedSessionsLeaveBasicAuthentication) {
    const auto bmc = startedBmc(RedfishLayout::Supermicro);
    bmc->refuseSessions(405);
    const auto client = clientOf(*bmc);
    EXPECT_EQ(statusOf(client->Post("/redfish/v1/SessionService/Sessions",
                                    R"({"UserName": "root", "Password": "0penBmc"})",
                                    "application/json")),
              405);
    bmc->refuseSessions(501);
    EXPECT_EQ(statusOf(client->Post("/redfish/v1/SessionService/Sessions",
                                    R"({"UserName": "root", "Password": "0penBmc"})",
                                    "application/json")),
              501);
    EXPECT_EQ(statusOf(client->Get(bmc->mainLog())), 200);
}

TEST(RedfishBmc, ClearLogEmptiesTheLogAndNumbersAsTheMakerDoes) {
    const auto bmc = startedBmc(RedfishLayout::Idrac, 3);
    const std::string lifecycle = bmc->logServices()[1];
    bmc->addEntry(lifecycle);
    bmc->addEntry(lifecycle);
    const auto client = clientOf(*bmc);
    for (const std::string& log : bmc->logServices()) {
        const json service = getJson(*client, log);
        const auto cleared =
            client->Post(service["Actions"]["#LogService.ClearLog"]["target"].get<std::string>(),
                         "{}", "application/json");
        EXPECT_EQ(statusOf(cleared), 204) << log;
        EXPECT_EQ(getJson(*client, bmc->entriesPath(log))["Members@odata.count"], 0) << log;
    }
    // The SEL starts again at 1, the Lifecycle log goes on.
    EXPECT_EQ(bmc->addEntry(bmc->mainLog()), "1");
    EXPECT_EQ(bmc->addEntry(lifecycle), "3");
    EXPECT_EQ(bmc->requests("POST", bmc->mainLog() + "/Actions/LogService.ClearLog"), 1u);
}

TEST(RedfishBmc, FaultsAnswerWhatTheySay) {
    const auto bmc = startedBmc(RedfishLayout::OpenBmc, 2);
    const auto client = clientOf(*bmc);
    const std::string entries = bmc->entriesPath(bmc->mainLog());
    const auto bodyWith = [&](RedfishFault fault) {
        bmc->setFault(entries, fault);
        const auto answer = client->Get(entries);
        return answer ? answer->body : std::string();
    };
    EXPECT_TRUE(json::parse(bodyWith(RedfishFault::MalformedJson), nullptr, false).is_discarded());
    EXPECT_TRUE(json::parse(bodyWith(RedfishFault::WrongTypes))["Members"].is_string());
    EXPECT_FALSE(json::parse(bodyWith(RedfishFault::MissingFields)).contains("Members"));
    const std::string huge = bodyWith(RedfishFault::HugeBody);
    EXPECT_GE(huge.size(), 10u * 1024 * 1024);
    EXPECT_FALSE(json::parse(huge, nullptr, false).is_discarded());

    bmc->setFault(entries, RedfishFault::RedirectLoop);
    const auto redirect = client->Get(entries);
    ASSERT_EQ(statusOf(redirect), 302);
    EXPECT_EQ(redirect->get_header_value("Location"), entries);
    bmc->setFault(entries, RedfishFault::Unavailable);
    const auto unavailable = client->Get(entries);
    ASSERT_EQ(statusOf(unavailable), 503);
    EXPECT_EQ(unavailable->get_header_value("Retry-After"), "1");
    bmc->setFault(bmc->mainLog(), RedfishFault::NotFound);
    EXPECT_EQ(statusOf(client->Get(bmc->mainLog())), 404);
    bmc->setFault(entries, RedfishFault::None);
    EXPECT_EQ(getJson(*client, entries)["Members@odata.count"], 2);
    EXPECT_EQ(bmc->requests("GET", entries), 7u);
}

TEST(RedfishBmc, FaultsCanLastSomeRequestsAndCoverEveryPath) {
    const auto bmc = startedBmc(RedfishLayout::Xcc, 1);
    const auto client = clientOf(*bmc);
    const std::string entries = bmc->entriesPath(bmc->mainLog());
    bmc->setFault(entries, RedfishFault::Unavailable, 2);
    EXPECT_EQ(statusOf(client->Get(entries)), 503);
    EXPECT_EQ(statusOf(client->Get(entries)), 503);
    EXPECT_EQ(statusOf(client->Get(entries)), 200);
    bmc->setFault("*", RedfishFault::NotFound);
    EXPECT_EQ(statusOf(client->Get("/redfish/v1")), 404);
    EXPECT_EQ(statusOf(client->Get(bmc->mainLog())), 404);
    // A path's own fault comes first.
    bmc->setFault(entries, RedfishFault::MissingFields);
    EXPECT_FALSE(getJson(*client, entries).contains("Members"));
    bmc->setFault("*", RedfishFault::None);
    EXPECT_EQ(statusOf(client->Get("/redfish/v1")), 200);
}

TEST(RedfishBmc, SlowAnswersWaitAsLongAsTold) {
    const auto bmc = startedBmc(RedfishLayout::Ilo);
    const auto client = clientOf(*bmc);
    bmc->setDelay(std::chrono::milliseconds(300));
    const auto began = std::chrono::steady_clock::now();
    EXPECT_EQ(statusOf(client->Get("/redfish/v1")), 200);
    EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(300));
}

TEST(RedfishBmc, HttpsIsVerifiedWithItsOwnCertificate) {
    const auto bmc = startedBmc(RedfishLayout::Xcc, 1, true);
    EXPECT_EQ(bmc->url().rfind("https://127.0.0.1:", 0), 0u);
    httplib::SSLClient client("127.0.0.1", bmc->port());
    client.set_ca_cert_path(bmc->certificateFile());
    client.enable_server_certificate_verification(true);
    client.set_basic_auth(kUser, kPassword);
    const auto answer = client.Get(bmc->entriesPath(bmc->mainLog()));
    ASSERT_EQ(statusOf(answer), 200);
    EXPECT_EQ(json::parse(answer->body)["Members@odata.count"], 1);
}

// DMTF's redfishtool, a client of others', reads the same BMC: the system, then the log's
// entries with a raw GET, over a session of its own that it ends.
TEST(RedfishBmc, RedfishtoolReadsTheLogs) {
    if (std::string(REDFISHTOOL).empty())
        GTEST_SKIP() << "redfishtool is not installed (apt-get install redfishtool)";
    const auto bmc = startedBmc(RedfishLayout::OpenBmc);
    bmc->addSelRecord(bmc->mainLog(), kRecord);
    bmcsim::ScratchDirectory scratch;
    const auto run = [&](const std::string& arguments) {
        const std::string command = std::string(REDFISHTOOL) +
                                    " -r 127.0.0.1:" + std::to_string(bmc->port()) + " -u " +
                                    kUser + " -p " + kPassword + " -S Never " + arguments + " 2>" +
                                    scratch.file("stderr") + " </dev/null";
        std::string out;
        FILE* pipe = popen(command.c_str(), "r");
        char buffer[4096];
        for (std::size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
        EXPECT_EQ(pclose(pipe), 0) << command << "\n" << scratch.read("stderr");
        return json::parse(out, nullptr, false);
    };
    const json system = run("Systems -1");
    EXPECT_EQ(system["@odata.id"], "/redfish/v1/Systems/system");
    const json entries = run("-A Session raw GET " + bmc->entriesPath(bmc->mainLog()));
    ASSERT_EQ(entries["Members"].size(), 1u);
    EXPECT_EQ(entries["Members"][0]["MessageId"], "OpenBMC.0.1.SELEntryAdded");
    EXPECT_EQ(bmc->requests("POST", "/redfish/v1/SessionService/Sessions"), 1u);
    EXPECT_TRUE(bmc->sessions().empty());
}

}  // namespace
