// The Redfish event source against a scripted service: the logs found in each maker's layout,
// entries read page by page and made events, an IPMI record carried in an entry worded as over
// IPMI, following (nothing repeated or missed, a clear said once), sessions and basic
// authentication, and bad answers, each a clear error that leaves the place where it was; the logs
// found as status and clear see them, a log cleared by its action, messages worded by the
// service's registries, and a SEL record read from an entry's additional data.
#include <IpmiSelDecoding.h>
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <thread>

#include "ScopedEnvironment.h"
#include "ScratchDirectory.h"
#include "fleet/IpmiEventSource.h"
#include "fleet/Polling.h"
#include "fleet/RedfishClient.h"
#include "fleet/RedfishEventSource.h"

namespace {

using nlohmann::json;
using tool::ConnectionProfile;
using tool::Failure;
using tool::RedfishEventSource;
using tool::RedfishReply;
using tool::Severity;
using tool::SourceEvent;
using tool::SourcePoll;

RedfishReply answer(long status, const json& body = json::object(),
                    std::vector<std::pair<std::string, std::string>> headers = {}) {
    RedfishReply response;
    response.status = status;
    response.body = body.dump();
    response.headers = std::move(headers);
    return response;
}

// A Redfish service written from the server side: documents by path, logs whose entries are
// served a page at a time ($skip, nextLink), sessions or basic authentication, and answers a test
// puts before any other for a path.
struct Service {
    std::map<std::string, json> documents;
    std::map<std::string, std::vector<json>> logs;  // by the entries collection's path
    std::size_t pageSize = 2;
    bool skipQuery = true;
    bool sessions = true;  // false: POST Sessions answers 405, basic authentication is taken
    std::string user = "admin";
    std::string password = "secret";
    std::set<std::string> tokens;  // valid ones
    unsigned issued = 0;
    std::vector<std::string> requests;  // "GET /redfish/v1", "POST ...", "DELETE ..."
    std::vector<std::string> posted;    // the bodies of POSTs, but the logins'
    std::vector<std::string> authorizations;
    std::map<std::string, std::deque<RedfishReply>> scripted;  // by the whole path asked for
    std::function<void(const std::string& path)> beforeAnswer;

    RedfishReply handle(const std::string& method, const std::string& path, const std::string& body,
                        const std::vector<std::string>& headers) {
        requests.push_back(method + " " + path);
        if (beforeAnswer) beforeAnswer(path);
        if (method == "POST" && path != "/redfish/v1/SessionService/Sessions")
            posted.push_back(body);
        if (auto it = scripted.find(path); it != scripted.end() && !it->second.empty()) {
            RedfishReply next = it->second.front();
            it->second.pop_front();
            return next;
        }
        if (method == "POST" && path == "/redfish/v1/SessionService/Sessions") {
            if (!sessions) return answer(405);
            const json credentials = json::parse(body);
            if (credentials["UserName"] != user || credentials["Password"] != password)
                return answer(401);
            const std::string token = "token" + std::to_string(++issued);
            tokens.insert(token);
            return answer(201, json::object(),
                          {{"X-Auth-Token", token},
                           {"Location", "/redfish/v1/SessionService/Sessions/" + token}});
        }
        std::string credentials;
        for (const std::string& line : headers)
            if (line.rfind("X-Auth-Token: ", 0) == 0 || line.rfind("Authorization: ", 0) == 0)
                credentials = line;
        authorizations.push_back(credentials);
        const bool allowed =
            (credentials.rfind("X-Auth-Token: ", 0) == 0 && tokens.count(credentials.substr(14))) ||
            (!sessions &&
             credentials == "Authorization: " + tool::basicAuthorization(user, password));
        if (!allowed) return answer(401);
        if (method == "DELETE") {
            tokens.erase(path.substr(path.rfind('/') + 1));
            return answer(204);
        }
        const std::string bare = path.substr(0, path.find('?'));
        if (const auto log = logs.find(bare); log != logs.end()) return page(path, log->second);
        if (const auto document = documents.find(path); document != documents.end())
            return answer(200, document->second);
        return answer(404);
    }

    RedfishReply page(const std::string& path, const std::vector<json>& entries) const {
        const std::string bare = path.substr(0, path.find('?'));
        // Without $skip, the whole collection in one page.
        const std::size_t pageSize = skipQuery ? this->pageSize : entries.size();
        std::size_t skip = 0;
        if (const auto at = path.find("$skip="); at != std::string::npos && skipQuery)
            skip = std::stoul(path.substr(at + 6));
        json members = json::array();
        for (std::size_t i = skip; i < entries.size() && i < skip + pageSize; ++i)
            members.push_back(entries[i]);
        json body = {
            {"@odata.id", bare}, {"Members", members}, {"Members@odata.count", entries.size()}};
        if (skip + pageSize < entries.size())
            body["Members@odata.nextLink"] = bare + "?$skip=" + std::to_string(skip + pageSize);
        return answer(200, body);
    }

    // A collection at `path` with `members`, each a document of its own.
    void collection(const std::string& path, const std::vector<std::string>& members) {
        json list = json::array();
        for (const std::string& member : members) list.push_back({{"@odata.id", member}});
        documents[path] = {{"@odata.id", path}, {"Members", list}};
    }

    // The service root with the three collections, each member of which has the log services
    // named (path of the member → the services' ids and LogEntryType, "" for none).
    void layout(
        const std::map<std::string, std::vector<std::pair<std::string, std::string>>>& members) {
        documents["/redfish/v1"] = {{"@odata.id", "/redfish/v1"},
                                    {"Systems", {{"@odata.id", "/redfish/v1/Systems"}}},
                                    {"Managers", {{"@odata.id", "/redfish/v1/Managers"}}},
                                    {"Chassis", {{"@odata.id", "/redfish/v1/Chassis"}}},
                                    {"ProtocolFeaturesSupported", {{"TopSkipQuery", skipQuery}}}};
        std::map<std::string, std::vector<std::string>> kinds;
        for (const auto& [member, services] : members) {
            const std::string kind = member.substr(0, member.find('/', 12));
            kinds[kind].push_back(member);
            documents[member] = {{"@odata.id", member}};
            if (services.empty()) continue;
            documents[member]["LogServices"] = {{"@odata.id", member + "/LogServices"}};
            std::vector<std::string> paths;
            for (const auto& [id, type] : services) {
                const std::string service = member + "/LogServices/" + id;
                paths.push_back(service);
                documents[service] = {{"@odata.id", service},
                                      {"Id", id},
                                      {"Name", id + " log"},
                                      {"MaxNumberOfRecords", 100},
                                      {"Entries", {{"@odata.id", service + "/Entries"}}}};
                if (!type.empty()) documents[service]["LogEntryType"] = type;
                logs[service + "/Entries"];
            }
            collection(member + "/LogServices", paths);
        }
        for (const char* kind :
             {"/redfish/v1/Systems", "/redfish/v1/Managers", "/redfish/v1/Chassis"})
            collection(kind, kinds[kind]);
    }

    void openBmc() {
        layout({{"/redfish/v1/Systems/system", {{"EventLog", "Event"}, {"Dump", "Dump"}}},
                {"/redfish/v1/Managers/bmc", {{"Journal", "Oem"}}},
                {"/redfish/v1/Chassis/chassis", {}}});
    }
};

class ScriptedTransport : public tool::RedfishTransport {
public:
    explicit ScriptedTransport(Service& service) : service_(service) {}
    RedfishReply request(const std::string& method, const std::string& path,
                         const std::string& body,
                         const std::vector<std::string>& headers) override {
        return service_.handle(method, path, body, headers);
    }

private:
    Service& service_;
};

const char* const kEventLog = "/redfish/v1/Systems/system/LogServices/EventLog/Entries";

json entry(unsigned id, const std::string& message = "", const std::string& severity = "OK") {
    json e = {{"@odata.id", std::string(kEventLog) + "/" + std::to_string(id)},
              {"Id", std::to_string(id)},
              {"EntryType", "Event"},
              {"Created", "2024-03-01T10:00:0" + std::to_string(id % 10) + "+00:00"},
              {"Severity", severity},
              {"Message", message.empty() ? "event " + std::to_string(id) : message}};
    return e;
}

std::vector<std::string> idsOf(const std::vector<SourceEvent>& events) {
    std::vector<std::string> ids;
    for (const SourceEvent& event : events) ids.push_back(event.id);
    return ids;
}

const tool::EventField* fieldOf(const SourceEvent& event, const std::string& key) {
    for (const tool::EventField& field : event.fields)
        if (field.key == key) return &field;
    return nullptr;
}

class RedfishSourceTest : public ::testing::Test {
protected:
    RedfishSourceTest() {
        profile.host = "https://bmc1";
        profile.user = "admin";
        profile.password = "secret";
        service.openBmc();
    }

    std::unique_ptr<RedfishEventSource> source() {
        auto made = std::make_unique<RedfishEventSource>(
            profile, tool::ReadSettings{}, [this](const ConnectionProfile&) {
                return std::make_unique<ScriptedTransport>(service);
            });
        made->session().setSleeper(
            [this](std::chrono::milliseconds wait) { waits.push_back(wait); });
        return made;
    }

    void addEntries(unsigned first, unsigned last) {
        for (unsigned id = first; id <= last; ++id) service.logs[kEventLog].push_back(entry(id));
    }

    Service service;
    ConnectionProfile profile;
    std::vector<std::chrono::milliseconds> waits;
};

// --- discovery -------------------------------------------------------------------------------

struct Maker {
    const char* name;
    std::map<std::string, std::vector<std::pair<std::string, std::string>>> members;
    std::string entries;  // the log expected
};

TEST_F(RedfishSourceTest, FindsTheHardwareEventLogOfEachMakersLayout) {
    const std::vector<Maker> makers = {
        {"Dell",
         {{"/redfish/v1/Managers/iDRAC.Embedded.1", {{"Sel", ""}, {"Lclog", "Multiple"}}},
          {"/redfish/v1/Systems/System.Embedded.1", {}}},
         "/redfish/v1/Managers/iDRAC.Embedded.1/LogServices/Sel/Entries"},
        {"HPE",
         {{"/redfish/v1/Systems/1", {{"IML", ""}}}, {"/redfish/v1/Managers/1", {{"IEL", ""}}}},
         "/redfish/v1/Systems/1/LogServices/IML/Entries"},
        {"Lenovo",
         {{"/redfish/v1/Systems/1", {{"PlatformLog", ""}, {"AuditLog", ""}}}},
         "/redfish/v1/Systems/1/LogServices/PlatformLog/Entries"},
        {"Supermicro",
         {{"/redfish/v1/Systems/1", {{"Log1", ""}}}, {"/redfish/v1/Managers/1", {{"Log1x", ""}}}},
         "/redfish/v1/Systems/1/LogServices/Log1/Entries"},
        {"OpenBMC",
         {{"/redfish/v1/Systems/system", {{"EventLog", ""}, {"Dump", ""}}},
          {"/redfish/v1/Managers/bmc", {{"Journal", "Oem"}}}},
         kEventLog},
        {"a SEL by type",
         {{"/redfish/v1/Chassis/A", {{"Records", "SEL"}, {"Other", "Oem"}}}},
         "/redfish/v1/Chassis/A/LogServices/Records/Entries"},
    };
    for (const Maker& maker : makers) {
        SCOPED_TRACE(maker.name);
        service = Service{};
        service.layout(maker.members);
        service.logs[maker.entries].push_back(entry(7));
        const SourcePoll poll = source()->poll(false);
        ASSERT_EQ(poll.failure, Failure::None) << poll.failureText;
        EXPECT_EQ(idsOf(poll.events), std::vector<std::string>{"7"});
        EXPECT_EQ(poll.health.entries, 1u);
        // No other log read than that one, a look at the first entry of one of several types
        // apart.
        for (const std::string& request : service.requests)
            EXPECT_TRUE(request.find("/Entries") == std::string::npos ||
                        request.find(maker.entries) != std::string::npos ||
                        request.find("?$top=1") != std::string::npos)
                << request;
    }
}

TEST_F(RedfishSourceTest, FindsAnOlderIdracsSelOutsideLogServices) {
    service = Service{};
    service.layout({{"/redfish/v1/Managers/iDRAC.Embedded.1", {}}});
    service.logs["/redfish/v1/Managers/iDRAC.Embedded.1/Logs/Sel"].push_back(entry(3));
    const SourcePoll poll = source()->poll(false);
    ASSERT_EQ(poll.failure, Failure::None) << poll.failureText;
    EXPECT_EQ(idsOf(poll.events), std::vector<std::string>{"3"});
}

TEST_F(RedfishSourceTest, TakesALogOfSeveralTypesByItsEntries) {
    service = Service{};
    service.layout({{"/redfish/v1/Systems/1", {{"Mixed", "Multiple"}, {"Audit", "Multiple"}}},
                    {"/redfish/v1/Chassis/gone", {}}});
    service.documents.erase("/redfish/v1/Chassis/gone");  // listed, yet not there
    const std::string mixed = "/redfish/v1/Systems/1/LogServices/Mixed/Entries";
    service.logs[mixed].push_back(entry(1));
    json audit = entry(2);
    audit["EntryType"] = "Oem";
    service.logs["/redfish/v1/Systems/1/LogServices/Audit/Entries"].push_back(audit);
    const SourcePoll poll = source()->poll(false);
    ASSERT_EQ(poll.failure, Failure::None) << poll.failureText;
    EXPECT_EQ(idsOf(poll.events), std::vector<std::string>{"1"});
    EXPECT_EQ(poll.health.name, "Mixed log");
}

TEST_F(RedfishSourceTest, PicksTheLogsAskedForByIdOrName) {
    service.logs["/redfish/v1/Managers/bmc/LogServices/Journal/Entries"].push_back(entry(9));
    addEntries(1, 1);
    profile.logs = {"journal"};
    SourcePoll poll = source()->poll(false);
    ASSERT_EQ(poll.failure, Failure::None) << poll.failureText;
    EXPECT_EQ(idsOf(poll.events), std::vector<std::string>{"9"});
    EXPECT_EQ(poll.health.name, "Journal log");
    profile.logs = {"Nothing"};
    poll = source()->poll(false);
    EXPECT_EQ(poll.failure, Failure::NotFound);
    EXPECT_NE(poll.failureText.find("EventLog log"), std::string::npos) << poll.failureText;
}

TEST_F(RedfishSourceTest, SaysWhenNoHardwareEventLogIsFound) {
    service = Service{};
    service.layout({{"/redfish/v1/Managers/bmc", {{"Journal", "Oem"}}}});
    const SourcePoll poll = source()->poll(false);
    EXPECT_EQ(poll.failure, Failure::NotFound);
    EXPECT_EQ(poll.failureText, "https://bmc1: no hardware event log found (it has Journal log)");
}

// --- entries as events -----------------------------------------------------------------------

TEST_F(RedfishSourceTest, ReadsEveryPageByItsNextLink) {
    addEntries(1, 5);
    const SourcePoll poll = source()->poll(false);
    ASSERT_EQ(poll.failure, Failure::None) << poll.failureText;
    EXPECT_TRUE(poll.complete);
    EXPECT_EQ(idsOf(poll.events), (std::vector<std::string>{"1", "2", "3", "4", "5"}));
    EXPECT_EQ(poll.entriesRead, 5u);
    EXPECT_TRUE(poll.health.known);
    EXPECT_EQ(poll.health.entries, 5u);
    EXPECT_EQ(poll.health.room, 100u);
    EXPECT_FALSE(poll.health.freeBytes);
}

TEST_F(RedfishSourceTest, FetchesEntriesListedAsLinksOnly) {
    const std::string first = std::string(kEventLog) + "/1";
    const std::string second = std::string(kEventLog) + "/2";
    service.documents[first] = entry(1);
    service.documents[second] = entry(2);
    service.scripted[kEventLog].push_back(
        answer(200, {{"Members", {{{"@odata.id", first}}, {{"@odata.id", second}}}},
                     {"Members@odata.count", 2}}));
    const SourcePoll poll = source()->poll(false);
    ASSERT_EQ(poll.failure, Failure::None) << poll.failureText;
    EXPECT_EQ(idsOf(poll.events), (std::vector<std::string>{"1", "2"}));
    EXPECT_EQ(poll.events[1].message, "event 2");
}

TEST_F(RedfishSourceTest, MakesAnEntryAnEventInUtc) {
    const json e = {{"Id", "42"},
                    {"EntryType", "SEL"},
                    {"Created", "2024-02-29T23:30:15.250+02:00"},
                    {"Severity", "Critical"},
                    {"Message", "CPU 1 temperature high"},
                    {"MessageId", "OpenBMC.0.1.SensorThresholdCriticalHighGoingHigh"},
                    {"SensorType", "Temperature"},
                    {"SensorNumber", 48},
                    {"GeneratorId", "0x0020"},
                    {"EntryCode", "Upper Critical - going high"}};
    const SourceEvent event = tool::redfishEvent(e, "SEL");
    EXPECT_EQ(event.id, "42");
    EXPECT_EQ(event.number, 42ul);
    EXPECT_EQ(event.timeText, "2024-02-29 21:30:15 UTC");
    ASSERT_TRUE(event.time);
    EXPECT_EQ(std::chrono::system_clock::to_time_t(*event.time), 1709242215);
    EXPECT_EQ(event.severity, Severity::Critical);
    EXPECT_EQ(event.message, "CPU 1 temperature high");
    EXPECT_EQ(event.source, "Temperature #0x30");
    std::vector<std::string> keys;
    for (const tool::EventField& field : event.fields) keys.push_back(field.key);
    EXPECT_EQ(keys, (std::vector<std::string>{"log", "entryType", "messageId", "created", "time",
                                              "generatorId", "sensorTypeName", "sensorNumber",
                                              "entryCode"}));
    EXPECT_EQ(std::get<std::string>(fieldOf(event, "time")->value), "2024-02-29T21:30:15Z");
    EXPECT_EQ(std::get<unsigned long>(fieldOf(event, "generatorId")->value), 0x20ul);
    EXPECT_EQ(tool::redfishEventColumns().idKey, "id");
}

TEST_F(RedfishSourceTest, WordsAMessageByItsRegistryWhenTheEntryGivesNone) {
    json e = {{"Id", "a1"},
              {"Severity", "Warning"},
              {"MessageId", "OpenBMC.0.1.PowerSupplyFanFailed"},
              {"MessageArgs", {"PSU1", "2"}}};
    SourceEvent event = tool::redfishEvent(e, "EventLog");
    EXPECT_EQ(event.message, "Power supply PSU1 fan 2 failed.");
    EXPECT_EQ(event.severity, Severity::Warning);
    EXPECT_FALSE(event.number);
    EXPECT_EQ(event.timeText, "Unspecified");
    e["MessageId"] = "Contoso.1.0.FanSlow";
    e["MessageArgs"] = {"Fan3", "1200"};
    EXPECT_EQ(tool::redfishEvent(e, "EventLog").message, "Contoso.1.0.FanSlow: Fan3, 1200");
    e["Message"] = "given";
    EXPECT_EQ(tool::redfishEvent(e, "EventLog").message, "given");
    EXPECT_EQ(tool::redfishMessageText("OpenBMC.0.1.DCPowerOn", {}), "Host system DC power is on");
}

TEST_F(RedfishSourceTest, ParsesTimesWithTheirOffsets) {
    EXPECT_EQ(tool::parseRedfishTime("1970-01-01T00:00:00Z"), 0);
    EXPECT_EQ(tool::parseRedfishTime("1970-01-01T00:00:00-05:30"), 19800);
    EXPECT_EQ(tool::parseRedfishTime("2024-01-01T01:00:00+01:00"), 1704067200);
    EXPECT_FALSE(tool::parseRedfishTime("2024-01-01"));
    EXPECT_FALSE(tool::parseRedfishTime("2024-13-01T00:00:00Z"));
    EXPECT_FALSE(tool::parseRedfishTime("2024-01-01T00:00:00+0100"));
    EXPECT_FALSE(tool::parseRedfishTime("2024-01-01T00:00:00Zjunk"));
    EXPECT_FALSE(tool::parseRedfishTime("4048-01-01T00:00:00Z"));  // beyond the clock's reach
}

TEST_F(RedfishSourceTest, RefusesEntriesWithoutIdsOrWithWrongTypes) {
    EXPECT_THROW(tool::redfishEvent(json{{"Message", "m"}}, "L"), tool::RedfishEntryError);
    EXPECT_THROW(tool::redfishEvent(json{{"Id", json::object()}}, "L"), tool::RedfishEntryError);
    EXPECT_THROW(tool::redfishEvent(json{{"Id", "1"}, {"Created", 5}}, "L"),
                 tool::RedfishEntryError);
    EXPECT_THROW(tool::redfishEvent(json{{"Id", "1"}, {"MessageArgs", "x"}}, "L"),
                 tool::RedfishEntryError);
    EXPECT_THROW(tool::redfishEvent(json{{"Id", "1"}, {"SensorNumber", -1}}, "L"),
                 tool::RedfishEntryError);
    EXPECT_THROW(tool::redfishEvent(json::array(), "L"), tool::RedfishEntryError);
}

// A threshold event of a voltage sensor, record 0x0042 (IPMI v2.0 table 32-1).
constexpr std::uint8_t kSelRecord[16] = {
    0x42, 0x00,              // record ID 0x0042
    0x02,                    // system event record
    0x10, 0x32, 0x54, 0x65,  // time stamp 0x65543210 (2023-11-15 02:50:56 UTC)
    0x20, 0x00,              // generator: the BMC (slave address 20h), channel 0
    0x04,                    // event message revision 2.0
    0x02,                    // sensor type: voltage
    0x30,                    // sensor number 30h
    0x01,                    // threshold event, assertion
    0x59,                    // upper critical going high; trigger reading and threshold follow
    0xA0, 0x90};             // trigger reading, threshold

SourceEvent ipmiWordingOf(const std::uint8_t (&bytes)[16]) {
    Tolmar::FollowedEvent followed;
    std::memcpy(&followed.entry, bytes, 16);
    std::array<std::uint8_t, 16> record;
    std::memcpy(record.data(), bytes, 16);
    followed.record = Tolmar::SelDecoder({}).decode(record);
    followed.event.recordId = followed.record.recordId;
    followed.event.timeStamp = Tolmar::selTimeText(followed.record);
    followed.event.message = followed.record.description;
    followed.event.source = followed.record.source;
    return tool::ipmiEvent(followed, tool::Rendering::Ipmi);
}

std::string hexOf(const std::uint8_t* bytes, std::size_t size) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (std::size_t i = 0; i < size; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 0xF];
    }
    return text;
}

TEST_F(RedfishSourceTest, WordsAnOpenBmcSelEntryAsTheIpmiSourceDoes) {
    const json e = {{"Id", "1700016656_1"},
                    {"Created", "2023-11-15T03:50:56+01:00"},
                    {"Severity", "OK"},
                    {"EntryType", "Event"},
                    {"Message", "SEL Entry Added: " + hexOf(kSelRecord, 16)},
                    {"MessageId", "OpenBMC.0.1.SELEntryAdded"},
                    {"MessageArgs", {hexOf(kSelRecord, 16)}}};
    const SourceEvent redfish = tool::redfishEvent(e, "EventLog");
    const SourceEvent ipmi = ipmiWordingOf(kSelRecord);
    EXPECT_EQ(redfish.id, "1700016656_1");
    EXPECT_EQ(redfish.message, ipmi.message);
    EXPECT_EQ(redfish.source, ipmi.source);
    EXPECT_EQ(redfish.timeText, ipmi.timeText);
    EXPECT_EQ(redfish.localTimeText, ipmi.localTimeText);
    EXPECT_EQ(redfish.time, ipmi.time);
    EXPECT_NE(redfish.message.find("Upper Critical going high"), std::string::npos)
        << redfish.message;
    // The record's facts, as the IPMI source gives them, after the entry's own.
    std::vector<std::string> ipmiKeys, redfishKeys;
    for (const tool::EventField& field : ipmi.fields) ipmiKeys.push_back(field.key);
    for (const tool::EventField& field : redfish.fields)
        if (field.key != "log" && field.key != "entryType" && field.key != "messageId" &&
            field.key != "created")
            redfishKeys.push_back(field.key);
    EXPECT_EQ(redfishKeys, ipmiKeys);
    EXPECT_EQ(std::get<std::vector<unsigned>>(fieldOf(redfish, "eventData")->value),
              (std::vector<unsigned>{0x59, 0xA0, 0x90}));
}

TEST_F(RedfishSourceTest, MakesAPlatformEventOfEightBytesASystemEventRecord) {
    // Generator 2Ch, revision 04h, temperature sensor 30h, threshold, data 09h FFh FFh: upper
    // non-critical going high.
    const json e = {{"Id", "5"},
                    {"Created", "2023-11-15T02:50:56Z"},
                    {"MessageId", "OpenBMC.0.1.SELEntryAdded"},
                    {"MessageArgs", {"2C0401300109FFFF"}}};
    const SourceEvent redfish = tool::redfishEvent(e, "EventLog");
    const std::uint8_t record[16] = {0x05, 0x00, 0x02, 0x10, 0x32, 0x54, 0x65, 0x2C,
                                     0x00, 0x04, 0x01, 0x30, 0x01, 0x09, 0xFF, 0xFF};
    const SourceEvent ipmi = ipmiWordingOf(record);
    EXPECT_EQ(redfish.message, ipmi.message);
    EXPECT_EQ(redfish.source, ipmi.source);
    EXPECT_EQ(redfish.timeText, "2023-11-15 02:50:56 UTC");
}

// --- following -------------------------------------------------------------------------------

TEST_F(RedfishSourceTest, AFollowedLogCostsOneRequestWhenNothingIsNew) {
    addEntries(1, 3);
    auto followed = source();
    SourcePoll poll = followed->poll(false);
    ASSERT_EQ(idsOf(poll.events), (std::vector<std::string>{"1", "2", "3"}));
    service.requests.clear();
    poll = followed->poll(false);
    EXPECT_EQ(poll.failure, Failure::None) << poll.failureText;
    EXPECT_TRUE(poll.events.empty());
    EXPECT_EQ(service.requests,
              std::vector<std::string>{std::string("GET ") + kEventLog + "?$skip=2"});
    addEntries(4, 8);
    poll = followed->poll(false);
    EXPECT_EQ(idsOf(poll.events), (std::vector<std::string>{"4", "5", "6", "7", "8"}));
    EXPECT_FALSE(poll.cleared);
    EXPECT_TRUE(followed->poll(false).events.empty());
}

TEST_F(RedfishSourceTest, MissesNothingAddedBetweenPagesAndRepeatsNothing) {
    addEntries(1, 3);
    auto followed = source();
    unsigned next = 4;
    // Each page asked for adds an entry before it is answered.
    service.beforeAnswer = [&](const std::string& path) {
        if (path.rfind(kEventLog, 0) == 0 && next <= 9)
            service.logs[kEventLog].push_back(entry(next++));
    };
    std::vector<std::string> seen;
    for (int i = 0; i < 4; ++i) {
        const SourcePoll poll = followed->poll(false);
        ASSERT_EQ(poll.failure, Failure::None) << poll.failureText;
        for (const std::string& id : idsOf(poll.events)) seen.push_back(id);
    }
    service.beforeAnswer = nullptr;
    for (const std::string& id : idsOf(followed->poll(false).events)) seen.push_back(id);
    EXPECT_EQ(seen, (std::vector<std::string>{"1", "2", "3", "4", "5", "6", "7", "8", "9"}));
}

TEST_F(RedfishSourceTest, SaysAClearOnceAndReadsWhatCameAfter) {
    addEntries(1, 4);
    auto followed = source();
    followed->poll(false);
    service.logs[kEventLog].clear();
    service.logs[kEventLog].push_back(entry(1, "after the clear"));
    service.logs[kEventLog].back()["Created"] = "2024-03-02T00:00:00Z";
    SourcePoll poll = followed->poll(false);
    EXPECT_TRUE(poll.cleared);
    EXPECT_EQ(idsOf(poll.events), std::vector<std::string>{"1"});
    EXPECT_EQ(poll.events.at(0).message, "after the clear");
    EXPECT_EQ(tool::changesText("https://bmc1", poll),
              "ipmi-event-log: https://bmc1: the EventLog log was cleared\n");
    poll = followed->poll(false);
    EXPECT_FALSE(poll.cleared);
    EXPECT_TRUE(poll.events.empty());
}

TEST_F(RedfishSourceTest, ReadsAClearedLogWholeWhereSkippingPastItsEndIsRefused) {
    addEntries(1, 4);
    auto followed = source();
    followed->poll(false);
    service.logs[kEventLog] = {entry(5)};
    service.scripted[std::string(kEventLog) + "?$skip=3"].push_back(answer(400));
    const SourcePoll poll = followed->poll(false);
    EXPECT_EQ(poll.failure, Failure::None) << poll.failureText;
    EXPECT_TRUE(poll.cleared);
    EXPECT_EQ(idsOf(poll.events), std::vector<std::string>{"5"});
}

TEST_F(RedfishSourceTest, SaysAClearFoundByAReadThatEndedEarly) {
    addEntries(1, 4);
    auto followed = source();
    followed->poll(false);
    service.logs[kEventLog] = {entry(5), entry(6), entry(7)};
    const std::string place = followed->stateText();
    // The whole read fails at its second page: nothing taken, the place as it was.
    service.scripted[std::string(kEventLog) + "?$skip=2"].push_back(answer(500));
    SourcePoll poll = followed->poll(false);
    EXPECT_EQ(poll.failure, Failure::Internal);
    EXPECT_FALSE(poll.cleared);
    EXPECT_EQ(followed->stateText(), place);
    // The entry after the first two is refused: those two are taken, and the clear said.
    service.logs[kEventLog][2]["Severity"] = 2;
    poll = followed->poll(false);
    EXPECT_EQ(poll.failure, Failure::None);
    EXPECT_FALSE(poll.complete);
    EXPECT_TRUE(poll.cleared);
    EXPECT_EQ(idsOf(poll.events), (std::vector<std::string>{"5", "6"}));
    service.logs[kEventLog][2]["Severity"] = "OK";
    poll = followed->poll(false);
    EXPECT_FALSE(poll.cleared);
    EXPECT_EQ(idsOf(poll.events), std::vector<std::string>{"7"});
}

TEST_F(RedfishSourceTest, FindsAClearWithoutSkipByTheNewestEntryGone) {
    service = Service{};
    service.skipQuery = false;
    service.openBmc();
    addEntries(1, 3);
    auto followed = source();
    followed->poll(false);
    addEntries(4, 4);
    SourcePoll poll = followed->poll(false);
    EXPECT_FALSE(poll.cleared);
    EXPECT_EQ(idsOf(poll.events), std::vector<std::string>{"4"});
    service.logs[kEventLog] = {entry(7), entry(8)};
    poll = followed->poll(false);
    EXPECT_TRUE(poll.cleared);
    EXPECT_EQ(idsOf(poll.events), (std::vector<std::string>{"7", "8"}));
}

TEST_F(RedfishSourceTest, FollowsALogListedFromItsNewestEntry) {
    std::vector<json>& log = service.logs[kEventLog];
    const auto add = [&log](unsigned first, unsigned last) {
        for (unsigned id = first; id <= last; ++id) log.insert(log.begin(), entry(id));
    };
    add(1, 3);
    auto followed = source();
    SourcePoll poll = followed->poll(false);
    EXPECT_EQ(idsOf(poll.events), (std::vector<std::string>{"1", "2", "3"}));
    service.requests.clear();
    EXPECT_TRUE(followed->poll(false).events.empty());
    EXPECT_EQ(service.requests.size(), 1u);
    add(4, 6);
    EXPECT_EQ(idsOf(followed->poll(false).events), (std::vector<std::string>{"4", "5", "6"}));
    // Kept in the state.
    RedfishEventSource restored(profile, tool::ReadSettings{}, [this](const ConnectionProfile&) {
        return std::make_unique<ScriptedTransport>(service);
    });
    ASSERT_TRUE(restored.loadStateText(followed->stateText()));
    add(7, 7);
    EXPECT_EQ(idsOf(restored.poll(false).events), std::vector<std::string>{"7"});
    log = {entry(9), entry(8)};
    poll = restored.poll(false);
    EXPECT_TRUE(poll.cleared);
    EXPECT_EQ(idsOf(poll.events), (std::vector<std::string>{"8", "9"}));
}

TEST_F(RedfishSourceTest, SkipsWhatThereIsWhenAskedAndKeepsItsPlaceInAFile) {
    addEntries(1, 3);
    bmcsim::ScratchDirectory directory;
    const std::string path = directory.file("bmc1.redfish.state");
    {
        auto first = source();
        const SourcePoll poll = first->poll(true);
        EXPECT_TRUE(poll.events.empty());
        EXPECT_EQ(poll.skipped, 3ul);
        EXPECT_EQ(first->saveState(path), "");
    }
    addEntries(4, 4);
    auto second = source();
    EXPECT_EQ(second->loadState(path), "");
    service.requests.clear();
    EXPECT_EQ(idsOf(second->poll(false).events), std::vector<std::string>{"4"});
    // Found before: no discovery again.
    ASSERT_EQ(service.requests.size(), 2u);
    EXPECT_EQ(service.requests.front(), "POST /redfish/v1/SessionService/Sessions");
    EXPECT_EQ(service.requests.at(1), std::string("GET ") + kEventLog + "?$skip=2");
    directory.write("bad.state", "{\"redfishState\": 2}");
    EXPECT_EQ(second->loadState(directory.file("bad.state")),
              "https://bmc1: " + directory.file("bad.state") +
                  ": not a Redfish state; reading the whole logs");
    EXPECT_EQ(second->loadState(directory.file("none.state")), "");
}

TEST_F(RedfishSourceTest, ReadsTheWholeLogWithoutMovingItsPlace) {
    addEntries(1, 3);
    auto followed = source();
    followed->poll(false);
    const std::string place = followed->stateText();
    const SourcePoll whole = followed->readWhole();
    EXPECT_EQ(idsOf(whole.events), (std::vector<std::string>{"1", "2", "3"}));
    EXPECT_EQ(followed->stateText(), place);
}

TEST_F(RedfishSourceTest, AReadEndedEarlyKeepsWhatWasReadAndGoesOnFromThere) {
    addEntries(1, 5);
    service.scripted[std::string(kEventLog) + "?$skip=2"].push_back(answer(500));
    auto followed = source();
    SourcePoll poll = followed->poll(false);
    EXPECT_EQ(poll.failure, Failure::None);
    EXPECT_FALSE(poll.complete);
    EXPECT_EQ(poll.incompleteText,
              "https://bmc1: incomplete: https://bmc1 answered HTTP 500 for GET " +
                  std::string(kEventLog) + "?$skip=2");
    EXPECT_EQ(idsOf(poll.events), (std::vector<std::string>{"1", "2"}));
    poll = followed->poll(false);
    EXPECT_TRUE(poll.complete);
    EXPECT_EQ(idsOf(poll.events), (std::vector<std::string>{"3", "4", "5"}));
}

// --- sessions --------------------------------------------------------------------------------

TEST_F(RedfishSourceTest, LogsInAgainOnceWhenItsTokenIsRefusedAndLogsOutAtTheEnd) {
    addEntries(1, 1);
    auto followed = source();
    followed->poll(false);
    EXPECT_EQ(service.issued, 1u);
    service.tokens.clear();  // the service restarted
    addEntries(2, 2);
    EXPECT_EQ(idsOf(followed->poll(false).events), std::vector<std::string>{"2"});
    EXPECT_EQ(service.issued, 2u);
    followed.reset();
    EXPECT_EQ(service.requests.back(), "DELETE /redfish/v1/SessionService/Sessions/token2");
    EXPECT_TRUE(service.tokens.empty());
}

TEST_F(RedfishSourceTest, TakesBasicAuthenticationWhereSessionsAreRefused) {
    service.sessions = false;
    addEntries(1, 1);
    auto followed = source();
    const SourcePoll poll = followed->poll(false);
    ASSERT_EQ(poll.failure, Failure::None) << poll.failureText;
    EXPECT_EQ(service.authorizations.back(), "Authorization: Basic YWRtaW46c2VjcmV0");
    followed.reset();
    EXPECT_EQ(service.requests.back().rfind("GET", 0), 0u);  // no session to end
}

TEST_F(RedfishSourceTest, SaysWhenTheCredentialsAreRefused) {
    profile.password = "wrong";
    const SourcePoll poll = source()->poll(false);
    EXPECT_EQ(poll.failure, Failure::Authentication);
    EXPECT_EQ(poll.failureText,
              "authentication refused by https://bmc1 (HTTP 401): check user and password");
}

TEST_F(RedfishSourceTest, TakesNewCredentialsKeepingItsPlace) {
    addEntries(1, 2);
    auto followed = source();
    followed->poll(false);
    service.password = "changed";
    service.tokens.clear();
    addEntries(3, 3);
    EXPECT_EQ(followed->poll(false).failure, Failure::Authentication);
    profile.password = "changed";
    followed->reconfigure(profile, tool::ReadSettings{});
    EXPECT_EQ(idsOf(followed->poll(false).events), std::vector<std::string>{"3"});
}

// --- bad answers -----------------------------------------------------------------------------

class BadAnswerTest : public RedfishSourceTest {
protected:
    // A followed source whose next poll meets `bad` for the log's page; its failure.
    SourcePoll pollMeeting(const RedfishReply& bad, Failure expected) {
        addEntries(1, 3);
        auto followed = source();
        followed->poll(false);
        const std::string place = followed->stateText();
        addEntries(4, 4);
        service.scripted[std::string(kEventLog) + "?$skip=2"].push_back(bad);
        const SourcePoll poll = followed->poll(false);
        EXPECT_EQ(poll.failure, expected);
        EXPECT_EQ(followed->stateText(), place);
        EXPECT_TRUE(poll.events.empty());
        // The next poll reads what is new, once.
        EXPECT_EQ(idsOf(followed->poll(false).events), std::vector<std::string>{"4"});
        return poll;
    }
};

TEST_F(BadAnswerTest, MalformedJson) {
    RedfishReply bad = answer(200);
    bad.body = "{\"Members\": [";
    EXPECT_EQ(pollMeeting(bad, Failure::Internal).failureText,
              "https://bmc1: the answer for " + std::string(kEventLog) + "?$skip=2 is not JSON");
}

TEST_F(BadAnswerTest, NotAnObject) {
    RedfishReply bad = answer(200);
    bad.body = "[1, 2]";
    EXPECT_NE(pollMeeting(bad, Failure::Internal).failureText.find("not a JSON object"),
              std::string::npos);
}

TEST_F(BadAnswerTest, MembersOfTheWrongType) {
    EXPECT_NE(pollMeeting(answer(200, {{"Members", "none"}}), Failure::Internal)
                  .failureText.find("has no Members list"),
              std::string::npos);
}

TEST_F(BadAnswerTest, AnEntryWithoutAnId) {
    const SourcePoll poll = pollMeeting(
        answer(200, {{"Members", {entry(3), {{"Message", "no id"}}}}, {"Members@odata.count", 4}}),
        Failure::Internal);
    EXPECT_EQ(poll.failureText, "https://bmc1: EventLog log: an entry has no usable Id");
}

TEST_F(BadAnswerTest, AnEntryWithAWrongType) {
    json wrong = entry(4);
    wrong["Severity"] = 3;
    const SourcePoll poll =
        pollMeeting(answer(200, {{"Members", {entry(3), wrong}}, {"Members@odata.count", 4}}),
                    Failure::Internal);
    EXPECT_EQ(poll.failureText, "https://bmc1: EventLog log: entry 4: its Severity is not text");
}

TEST_F(RedfishSourceTest, FollowsAFewRedirectsButNotALoop) {
    addEntries(1, 1);
    const std::string systems = "/redfish/v1/Systems";
    service.scripted[systems].push_back(
        answer(301, json::object(), {{"Location", "https://bmc1/redfish/v1/Systems"}}));
    EXPECT_EQ(source()->poll(false).failure, Failure::None);
    for (int i = 0; i < 4; ++i)
        service.scripted[systems].push_back(
            answer(307, json::object(), {{"Location", "/redfish/v1/Systems"}}));
    const SourcePoll poll = source()->poll(false);
    EXPECT_EQ(poll.failure, Failure::Internal);
    EXPECT_EQ(poll.failureText,
              "https://bmc1: /redfish/v1/Systems redirects more than 3 times (a loop?)");
}

TEST_F(RedfishSourceTest, WaitsOnceForABusyServiceWithinItsTimeout) {
    addEntries(1, 1);
    service.scripted["/redfish/v1"].push_back(answer(503, json::object(), {{"Retry-After", "2"}}));
    EXPECT_EQ(source()->poll(false).failure, Failure::None);
    ASSERT_EQ(waits.size(), 1u);
    EXPECT_EQ(waits[0], std::chrono::seconds(2));
    // Beyond the timeout (10 s by default): not waited for.
    service.scripted["/redfish/v1"].push_back(answer(503, json::object(), {{"Retry-After", "60"}}));
    const SourcePoll poll = source()->poll(false);
    EXPECT_EQ(poll.failure, Failure::Internal);
    EXPECT_EQ(poll.failureText, "https://bmc1 answered HTTP 503 for GET /redfish/v1");
    EXPECT_EQ(waits.size(), 1u);
}

TEST_F(RedfishSourceTest, SaysWhatTheTransportCouldNotDo) {
    class Failing : public tool::RedfishTransport {
    public:
        RedfishReply request(const std::string&, const std::string&, const std::string&,
                             const std::vector<std::string>&) override {
            throw tool::RedfishError(Failure::Connection,
                                     "cannot connect to https://bmc1: Connection refused");
        }
    };
    RedfishEventSource failing(profile, tool::ReadSettings{}, [](const ConnectionProfile&) {
        return std::make_unique<Failing>();
    });
    const SourcePoll poll = failing.poll(false);
    EXPECT_EQ(poll.failure, Failure::Connection);
    EXPECT_EQ(poll.failureText, "cannot connect to https://bmc1: Connection refused");
}

TEST(RedfishSource, AUrlSelectsTheRedfishSource) {
    ConnectionProfile profile;
    profile.host = "https://bmc1:8443";
    EXPECT_EQ(tool::makeEventSource(profile, tool::ReadSettings{})->kind(), "redfish");
    profile.host = "http://bmc1";
    EXPECT_EQ(tool::makeEventSource(profile, tool::ReadSettings{})->kind(), "redfish");
    profile.host = "bmc1";
    EXPECT_EQ(tool::makeEventSource(profile, tool::ReadSettings{})->kind(), "ipmi");
}

TEST(RedfishSource, EncodesBasicCredentials) {
    EXPECT_EQ(tool::basicAuthorization("Aladdin", "open sesame"),
              "Basic QWxhZGRpbjpvcGVuIHNlc2FtZQ==");
    EXPECT_EQ(tool::basicAuthorization("a", ""), "Basic YTo=");
}

// --- libcurl's transport ---------------------------------------------------------------------

// An HTTP server on the loopback that answers each connection's request with the next of
// `answers` (raw bytes, written whole as far as the client takes them), and keeps the requests.
class LoopbackServer {
public:
    explicit LoopbackServer(std::vector<std::string> answers) : answers_(std::move(answers)) {
        listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (listener_ < 0 || bind(listener_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            listen(listener_, 4) != 0 ||
            getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            throw std::runtime_error("no loopback listener");
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~LoopbackServer() {
        finish();
        close(listener_);
    }

    // The requests each connection brought, once the server stopped answering.
    const std::vector<std::string>& finish() {
        if (thread_.joinable()) {
            shutdown(listener_, SHUT_RDWR);
            thread_.join();
        }
        return requests_;
    }

    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }

private:
    void serve() {
        for (const std::string& answer : answers_) {
            const int client = accept(listener_, nullptr, nullptr);
            if (client < 0) return;
            std::string request;
            char buffer[4096];
            while (request.find("\r\n\r\n") == std::string::npos) {
                const ssize_t n = recv(client, buffer, sizeof buffer, 0);
                if (n <= 0) break;
                request.append(buffer, static_cast<std::size_t>(n));
            }
            requests_.push_back(request);
            for (std::size_t at = 0; at < answer.size();) {
                const ssize_t n =
                    send(client, answer.data() + at, answer.size() - at, MSG_NOSIGNAL);
                if (n <= 0) break;
                at += static_cast<std::size_t>(n);
            }
            close(client);
        }
    }

    std::vector<std::string> answers_;
    std::vector<std::string> requests_;  // each request's head
    int listener_ = -1;
    unsigned short port_ = 0;
    std::thread thread_;
};

std::string httpAnswer(const std::string& status, const std::string& body,
                       const std::string& headers = "") {
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\nConnection: close\r\n" + headers + "\r\n" + body;
}

TEST(RedfishCurlTransport, AsksTheHostItselfWhateverProxyTheEnvironmentNames) {
    LoopbackServer server(
        {httpAnswer("200 OK", "{\"Id\": \"RootService\"}", "X-Auth-Token: t\r\n")});
    // A proxy that would refuse every connection.
    bmcsim::ScopedEnvironment proxy("http_proxy", "http://127.0.0.1:1");
    bmcsim::ScopedEnvironment all("ALL_PROXY", "http://127.0.0.1:1");
    ConnectionProfile profile;
    profile.host = server.url() + "/";
    const auto transport = tool::makeCurlTransport(profile);
    const RedfishReply response = transport->request("GET", "/redfish/v1", "", {"X-Auth-Token: s"});
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "{\"Id\": \"RootService\"}");
    EXPECT_EQ(response.header("x-auth-token"), "t");
    const std::vector<std::string>& requests = server.finish();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].rfind("GET /redfish/v1 HTTP/1.1\r\n", 0), 0u) << requests[0];
    EXPECT_NE(requests[0].find("X-Auth-Token: s\r\n"), std::string::npos);
    EXPECT_NE(requests[0].find("Accept: application/json\r\n"), std::string::npos);
}

TEST(RedfishCurlTransport, RefusesABodyOverTheLimitWithoutReadingItWhole) {
    LoopbackServer server({httpAnswer("200 OK", std::string(tool::kRedfishBodyLimit + 1, ' '))});
    ConnectionProfile profile;
    profile.host = server.url();
    try {
        tool::makeCurlTransport(profile)->request("GET", "/redfish/v1", "", {});
        ADD_FAILURE() << "no error";
    } catch (const tool::RedfishError& error) {
        EXPECT_EQ(error.failure(), Failure::Internal);
        EXPECT_EQ(std::string(error.what()),
                  server.url() + ": the answer to GET /redfish/v1 is larger than 8 MiB: not read");
    }
}

TEST(RedfishCurlTransport, SaysWhenTheHostCannotBeReachedOrIsTooSlow) {
    int port = 0;
    {
        LoopbackServer closed({});  // a free port, closed again
        port = std::stoi(closed.url().substr(closed.url().rfind(':') + 1));
    }
    ConnectionProfile profile;
    profile.host = "http://127.0.0.1:" + std::to_string(port);
    try {
        tool::makeCurlTransport(profile)->request("GET", "/redfish/v1", "", {});
        ADD_FAILURE() << "no error";
    } catch (const tool::RedfishError& error) {
        EXPECT_EQ(error.failure(), Failure::Connection);
        EXPECT_EQ(std::string(error.what()).rfind("cannot connect to " + profile.host + ": ", 0),
                  0u)
            << error.what();
    }
    // A server that takes the connection and never answers.
    const int silent = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    ASSERT_EQ(bind(silent, reinterpret_cast<sockaddr*>(&address), length), 0);
    ASSERT_EQ(listen(silent, 4), 0);
    ASSERT_EQ(getsockname(silent, reinterpret_cast<sockaddr*>(&address), &length), 0);
    profile.host = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    profile.sessionTimeout = std::chrono::milliseconds(200);
    try {
        tool::makeCurlTransport(profile)->request("GET", "/redfish/v1", "", {});
        ADD_FAILURE() << "no error";
    } catch (const tool::RedfishError& error) {
        EXPECT_EQ(error.failure(), Failure::Connection);
        EXPECT_NE(std::string(error.what()).find("took longer than 200 ms"), std::string::npos)
            << error.what();
    }
    close(silent);
}

// --- the logs as status and clear see them ---------------------------------------------------

const char* const kEventLogService = "/redfish/v1/Systems/system/LogServices/EventLog";
const std::string kClearTarget = std::string(kEventLogService) + "/Actions/LogService.ClearLog";

TEST_F(RedfishSourceTest, FindsTheLogsReadWithTheirCountsAndClearActions) {
    service.documents[kEventLogService]["Actions"] = {
        {"#LogService.ClearLog", {{"target", kClearTarget}}}};
    addEntries(1, 3);
    auto made = source();
    std::vector<tool::RedfishLogService> logs = made->findLogs(true);
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0].path, kEventLogService);
    EXPECT_EQ(logs[0].name, "EventLog log");
    EXPECT_EQ(logs[0].id, "EventLog");
    EXPECT_FALSE(logs[0].chosen);
    EXPECT_EQ(logs[0].entries, 3ul);
    EXPECT_EQ(logs[0].maxRecords, 100ul);
    EXPECT_EQ(logs[0].clearTarget, kClearTarget);
    // One entry asked for the count.
    EXPECT_EQ(service.requests.back(), "GET " + std::string(kEventLog) + "?$top=1");

    service.requests.clear();
    logs = made->findLogs(false);
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_FALSE(logs[0].entries);
    for (const std::string& request : service.requests)
        EXPECT_EQ(request.find("/Entries"), std::string::npos) << request;

    profile.logs = {"Journal"};
    logs = source()->findLogs(false);
    ASSERT_EQ(logs.size(), 1u);
    EXPECT_EQ(logs[0].name, "Journal log");
    EXPECT_TRUE(logs[0].chosen);
    EXPECT_EQ(logs[0].clearTarget, "");
}

TEST_F(RedfishSourceTest, ClearsALogByPostingAnEmptyObjectToItsActionsTarget) {
    service.documents[kEventLogService]["Actions"] = {
        {"#LogService.ClearLog", {{"target", kClearTarget}}}};
    auto made = source();
    const tool::RedfishLogService log = made->findLogs(false).at(0);
    for (const long status : {204L, 200L, 202L}) {
        service.scripted[kClearTarget].push_back(answer(status));
        EXPECT_NO_THROW(made->clearLog(log)) << status;
    }
    EXPECT_EQ(service.posted, (std::vector<std::string>(3, "{}")));
    EXPECT_EQ(service.requests.back(), "POST " + kClearTarget);

    // A token the service forgot: logged in again, once.
    service.scripted[kClearTarget] = {answer(401), answer(204)};
    const unsigned issued = service.issued;
    EXPECT_NO_THROW(made->clearLog(log));
    EXPECT_EQ(service.issued, issued + 1);

    service.scripted[kClearTarget] = {answer(405)};
    try {
        made->clearLog(log);
        ADD_FAILURE() << "no error";
    } catch (const tool::RedfishError& error) {
        EXPECT_EQ(error.failure(), Failure::Internal);
        EXPECT_EQ(std::string(error.what()),
                  "https://bmc1 answered HTTP 405 for POST " + kClearTarget);
    }
    service.scripted[kClearTarget] = {answer(403)};
    try {
        made->clearLog(log);
        ADD_FAILURE() << "no error";
    } catch (const tool::RedfishError& error) {
        EXPECT_EQ(error.failure(), Failure::Authentication);
    }
}

TEST_F(RedfishSourceTest, SaysALogWithoutTheActionCannotBeCleared) {
    // A target on another host is not followed either.
    service.documents[kEventLogService]["Actions"] = {
        {"#LogService.ClearLog", {{"target", "https://elsewhere" + kClearTarget}}}};
    auto made = source();
    const tool::RedfishLogService log = made->findLogs(false).at(0);
    EXPECT_EQ(log.clearTarget, "");
    service.requests.clear();
    try {
        made->clearLog(log);
        ADD_FAILURE() << "no error";
    } catch (const tool::RedfishError& error) {
        EXPECT_EQ(error.failure(), Failure::NotSupported);
        EXPECT_EQ(std::string(error.what()),
                  "https://bmc1: EventLog log cannot be cleared: the service offers no ClearLog "
                  "action for it");
    }
    EXPECT_TRUE(service.requests.empty());
}

// --- messages of the service's registries ----------------------------------------------------

const char* const kContosoCopy = "/redfish/v1/Registries/Contoso/Contoso";

// The service's registries: Contoso's, whose copy says FanSlow with `text`.
void contosoRegistry(Service& service, const json& messages) {
    service.documents["/redfish/v1"]["Registries"] = {{"@odata.id", "/redfish/v1/Registries"}};
    service.collection("/redfish/v1/Registries", {"/redfish/v1/Registries/Contoso"});
    service.documents["/redfish/v1/Registries/Contoso"] = {
        {"Id", "Contoso"},
        {"Registry", "Contoso.1.0"},
        {"Location",
         {{{"Language", "en"},
           {"Uri", kContosoCopy},
           {"PublicationUri", "https://contoso.example/Contoso.1.0.0.json"}}}}};
    service.documents[kContosoCopy] = {{"RegistryPrefix", "Contoso"}, {"Messages", messages}};
}

json fanSlow(unsigned id) {
    json e = entry(id);
    e.erase("Message");
    e["MessageId"] = "Contoso.1.0.FanSlow";
    e["MessageArgs"] = {"Fan3", "1200"};
    return e;
}

std::size_t countOf(const std::vector<std::string>& requests, const std::string& request) {
    return static_cast<std::size_t>(std::count(requests.begin(), requests.end(), request));
}

TEST_F(RedfishSourceTest, WordsAMessageByTheServicesRegistryFetchedOnce) {
    contosoRegistry(service, {{"FanSlow", {{"Message", "Fan %1 runs at %2 RPM."}}}});
    service.logs[kEventLog] = {fanSlow(1), fanSlow(2)};
    auto followed = source();
    SourcePoll poll = followed->poll(false);
    ASSERT_EQ(poll.failure, Failure::None) << poll.failureText;
    ASSERT_EQ(poll.events.size(), 2u);
    EXPECT_EQ(poll.events[0].message, "Fan Fan3 runs at 1200 RPM.");
    EXPECT_EQ(poll.events[1].message, "Fan Fan3 runs at 1200 RPM.");
    service.logs[kEventLog].push_back(fanSlow(3));
    poll = followed->poll(false);
    ASSERT_EQ(poll.events.size(), 1u);
    EXPECT_EQ(poll.events[0].message, "Fan Fan3 runs at 1200 RPM.");
    EXPECT_EQ(countOf(service.requests, std::string("GET ") + kContosoCopy), 1u);
    EXPECT_EQ(countOf(service.requests, "GET /redfish/v1/Registries"), 1u);
    EXPECT_EQ(countOf(service.requests, "GET /redfish/v1/Registries/Contoso"), 1u);
}

TEST_F(RedfishSourceTest, PrefersTheRegistryOfTheMessagesVersion) {
    contosoRegistry(service, {{"FanSlow", {{"Message", "one: %1"}}}});
    service.collection("/redfish/v1/Registries",
                       {"/redfish/v1/Registries/Contoso", "/redfish/v1/Registries/Contoso2"});
    service.documents["/redfish/v1/Registries/Contoso2"] = {
        {"Registry", "Contoso.2.1"}, {"Location", {{{"Uri", "/registries/contoso2.json"}}}}};
    service.documents["/registries/contoso2.json"] = {
        {"Messages", {{"FanSlow", {{"Message", "two: %1"}}}}}};
    json second = fanSlow(2);
    second["MessageId"] = "Contoso.2.0.FanSlow";
    json third = fanSlow(3);
    third["MessageId"] = "Contoso.3.0.FanSlow";  // no such major: the first of that name
    service.logs[kEventLog] = {fanSlow(1), second, third};
    const SourcePoll poll = source()->poll(false);
    ASSERT_EQ(poll.events.size(), 3u);
    EXPECT_EQ(poll.events[0].message, "one: Fan3");
    EXPECT_EQ(poll.events[1].message, "two: Fan3");
    EXPECT_EQ(poll.events[2].message, "one: Fan3");
}

TEST_F(RedfishSourceTest, IgnoresARegistryThatMakesNoSense) {
    const std::vector<json> bad = {json::array({"FanSlow"}),
                                   {{"FanSlow", "Fan %1 runs at %2 RPM."}},
                                   {{"FanSlow", {{"Message", 7}}}}};
    for (const json& messages : bad) {
        SCOPED_TRACE(messages.dump());
        contosoRegistry(service, messages);
        service.logs[kEventLog] = {fanSlow(1)};
        const SourcePoll poll = source()->poll(false);
        ASSERT_EQ(poll.failure, Failure::None) << poll.failureText;
        ASSERT_EQ(poll.events.size(), 1u);
        EXPECT_EQ(poll.events[0].message, "Contoso.1.0.FanSlow: Fan3, 1200");
    }
    // Another registry than the file names, and one not JSON.
    contosoRegistry(service, {{"FanSlow", {{"Message", "Fan %1 runs at %2 RPM."}}}});
    service.documents[kContosoCopy]["RegistryPrefix"] = "Fabrikam";
    EXPECT_EQ(source()->poll(false).events.at(0).message, "Contoso.1.0.FanSlow: Fan3, 1200");
    service.scripted[kContosoCopy].push_back(RedfishReply{200, {}, "{\"Messages\": "});
    EXPECT_EQ(source()->poll(false).events.at(0).message, "Contoso.1.0.FanSlow: Fan3, 1200");
    // Without registries at all, the texts the source knows.
    service = Service{};
    service.openBmc();
    json known = fanSlow(1);
    known["MessageId"] = "OpenBMC.0.1.DCPowerOn";
    known["MessageArgs"] = json::array();
    service.logs[kEventLog] = {known};
    const SourcePoll poll = source()->poll(false);
    ASSERT_EQ(poll.failure, Failure::None) << poll.failureText;
    EXPECT_EQ(poll.events.at(0).message, "Host system DC power is on");
}

TEST_F(RedfishSourceTest, FetchesNoRegistryFromAnotherHost) {
    contosoRegistry(service, {{"FanSlow", {{"Message", "Fan %1 runs at %2 RPM."}}}});
    service.documents["/redfish/v1/Registries/Contoso"]["Location"] = {
        {{"Language", "en"}, {"Uri", std::string("https://elsewhere") + kContosoCopy}}};
    service.logs[kEventLog] = {fanSlow(1)};
    const SourcePoll poll = source()->poll(false);
    EXPECT_EQ(poll.events.at(0).message, "Contoso.1.0.FanSlow: Fan3, 1200");
    for (const std::string& request : service.requests)
        EXPECT_EQ(request.find("Contoso/Contoso"), std::string::npos) << request;
}

// --- a SEL record as an entry's additional data ----------------------------------------------

const std::string kAttachment = std::string(kEventLog) + "/1/attachment";

json selEntryWithData() {
    json e = entry(1, "as the entry says");
    e["EntryType"] = "SEL";
    e["AdditionalDataURI"] = kAttachment;
    e["DiagnosticDataType"] = "OEM";
    return e;
}

RedfishReply dataReply(const std::string& body) {
    RedfishReply reply;
    reply.status = 200;
    reply.headers = {{"Content-Type", "application/octet-stream"}};
    reply.body = body;
    return reply;
}

TEST_F(RedfishSourceTest, ReadsASelRecordFromAnEntrysAdditionalData) {
    const SourceEvent ipmi = ipmiWordingOf(kSelRecord);
    const std::vector<std::string> forms = {
        std::string(reinterpret_cast<const char*>(kSelRecord), 16), hexOf(kSelRecord, 16),
        "  " + hexOf(kSelRecord, 16) + "\r\n"};
    for (const std::string& form : forms) {
        SCOPED_TRACE(form);
        service.logs[kEventLog] = {selEntryWithData()};
        service.scripted[kAttachment].push_back(dataReply(form));
        const SourcePoll poll = source()->poll(false);
        ASSERT_EQ(poll.failure, Failure::None) << poll.failureText;
        ASSERT_EQ(poll.events.size(), 1u);
        EXPECT_EQ(poll.events[0].message, ipmi.message);
        EXPECT_EQ(poll.events[0].source, ipmi.source);
        EXPECT_EQ(poll.events[0].timeText, ipmi.timeText);
        const tool::EventField* eventData = fieldOf(poll.events[0], "eventData");
        ASSERT_NE(eventData, nullptr);
        EXPECT_EQ(std::get<std::vector<unsigned>>(eventData->value),
                  (std::vector<unsigned>{0x59, 0xA0, 0x90}));
    }
}

TEST_F(RedfishSourceTest, TakesAnEntryAsItSaysWhereItsAdditionalDataIsNoSelRecord) {
    const std::vector<RedfishReply> others = {
        dataReply(std::string(reinterpret_cast<const char*>(kSelRecord), 15)),
        dataReply(hexOf(kSelRecord, 16) + "00"),
        dataReply(std::string(30, 'A') + "XY"),
        dataReply(std::string(2000, '0')),
        answer(404),
        answer(500)};
    for (const RedfishReply& other : others) {
        SCOPED_TRACE(other.body.substr(0, 40) + " " + std::to_string(other.status));
        service.logs[kEventLog] = {selEntryWithData()};
        service.scripted[kAttachment] = {other};
        const SourcePoll poll = source()->poll(false);
        ASSERT_EQ(poll.failure, Failure::None) << poll.failureText;
        EXPECT_TRUE(poll.complete);
        ASSERT_EQ(poll.events.size(), 1u);
        EXPECT_EQ(poll.events[0].message, "as the entry says");
    }
    // Asked for only of a SEL entry whose record is not in its arguments already.
    service.requests.clear();
    json event = selEntryWithData();
    event["EntryType"] = "Event";
    json inArgs = selEntryWithData();
    inArgs["Id"] = "2";
    inArgs["MessageId"] = "OpenBMC.0.1.SELEntryAdded";
    inArgs["MessageArgs"] = {hexOf(kSelRecord, 16)};
    service.logs[kEventLog] = {event, inArgs};
    const SourcePoll poll = source()->poll(false);
    ASSERT_EQ(poll.events.size(), 2u);
    EXPECT_EQ(poll.events[0].message, "as the entry says");
    EXPECT_EQ(poll.events[1].message, ipmiWordingOf(kSelRecord).message);
    EXPECT_EQ(countOf(service.requests, "GET " + kAttachment), 0u);
}

}  // namespace
