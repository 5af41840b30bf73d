// The exporter's targets: a module's profile laid over the command line's, a source a target and
// module kept between scrapes, its poll counted in the scrape's metrics, the limit on targets and
// the places kept in a state directory.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <set>

#include "ScratchDirectory.h"
#include "exporter/ScrapeModules.h"
#include "exporter/TargetScrapes.h"
#include "fleet/RedfishEventSource.h"

namespace {

using tool::ConnectionProfile;
using tool::ReadSettings;
using tool::SourcePoll;
using tool::TargetConnection;
using tool::TargetKey;

const std::chrono::milliseconds kLimit{10000};

// What the scrapes' sources were made with and asked to do; and a gate their polls wait at
// while it is held.
struct Made {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> lines;
    bool holding = false;

    void add(const std::string& line) {
        std::lock_guard<std::mutex> lock(mutex);
        lines.push_back(line);
        changed.notify_all();
    }
    // Whether `line` is added within ten seconds.
    bool waitFor(const std::string& line) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(10), [&] {
            return std::find(lines.begin(), lines.end(), line) != lines.end();
        });
    }
    void hold() {
        std::lock_guard<std::mutex> lock(mutex);
        holding = true;
    }
    void release() {
        std::lock_guard<std::mutex> lock(mutex);
        holding = false;
        changed.notify_all();
    }
    void passGate() {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return !holding; });
    }
};

// A source whose every poll brings one critical event with the number of the poll.
class CountingSource : public tool::EventSource {
public:
    CountingSource(const ConnectionProfile& profile, Made& made)
        : host_(profile.host), made_(made) {
        made_.add("made " + host_ + " user " + profile.user);
    }
    std::string hostName() const override { return host_; }
    std::string kind() const override { return "counting"; }
    SourcePoll poll(bool) override {
        made_.passGate();
        SourcePoll poll;
        tool::SourceEvent event;
        event.number = ++polls_;
        event.severity = tool::Severity::Critical;
        event.time = std::chrono::system_clock::from_time_t(1700000000 + polls_);
        poll.events.push_back(event);
        poll.entriesRead = 1;
        poll.health.known = true;
        poll.health.entries = polls_;
        poll.health.freeBytes = 1000;
        return poll;
    }
    SourcePoll readWhole() override { return poll(false); }
    void reconfigure(const ConnectionProfile& profile, const ReadSettings&) override {
        made_.add(
            "reconfigured " + host_ + " user " + profile.user + " timeout " +
            std::to_string(profile.sessionTimeout.value_or(std::chrono::milliseconds(0)).count()));
    }
    std::string loadState(const std::string& path) override {
        made_.add("load " + path);
        return "";
    }
    std::string saveState(const std::string& path) const override {
        made_.add("save " + path);
        return "";
    }
    void disconnect() override { made_.add("disconnected " + host_); }

private:
    std::string host_;
    Made& made_;
    unsigned long polls_ = 0;
};

tool::SourceFactory countingSources(Made& made) {
    return [&made](const ConnectionProfile& profile, const ReadSettings&) {
        return std::make_unique<CountingSource>(profile, made);
    };
}

TargetConnection connectionTo(const std::string& host, std::size_t limit = 10) {
    TargetConnection connection;
    connection.target = host + ":623";
    connection.profile.host = host;
    connection.profile.user = "monitor";
    connection.limits.limit = limit;
    return connection;
}

bool has(const std::string& text, const std::string& line) {
    return text.find(line + "\n") != std::string::npos;
}

TEST(TargetScrapes, ASourceIsMadeOnceATargetAndItsPollsCounted) {
    Made made;
    tool::TargetScrapes scrapes("", countingSources(made));
    const TargetKey key{"bmc1", "default"};
    scrapes.scrape(key, connectionTo("bmc1"), kLimit);
    const std::string second = scrapes.scrape(key, connectionTo("bmc1"), kLimit);
    EXPECT_TRUE(has(second, "ipmi_event_log_events_total{severity=\"critical\"} 2")) << second;
    EXPECT_TRUE(has(second, "ipmi_event_log_newest_critical_event_timestamp_seconds 1700000002"))
        << second;
    EXPECT_TRUE(has(second, "ipmi_up{collector=\"sel\"} 1")) << second;
    EXPECT_TRUE(has(second, "ipmi_sel_entries_count 2")) << second;
    EXPECT_TRUE(has(second, "ipmi_sel_free_space_bytes 1000")) << second;
    // The second scrape's poll went on with the same source, its session timeout within the
    // scrape's limit (half of it: the session's opening and one request).
    EXPECT_EQ(made.lines,
              (std::vector<std::string>{"made bmc1 user monitor",
                                        "reconfigured bmc1 user monitor timeout 5000"}));
    EXPECT_EQ(scrapes.size(), 1u);
}

TEST(TargetScrapes, ANewTargetBeyondTheLimitIsRefusedWithTheReason) {
    Made made;
    tool::TargetScrapes scrapes("", countingSources(made));
    scrapes.scrape({"bmc1", "default"}, connectionTo("bmc1", 1), kLimit);
    try {
        scrapes.scrape({"bmc2", "default"}, connectionTo("bmc2", 1), kLimit);
        FAIL() << "a second target was followed";
    } catch (const tool::ServiceUnavailable& e) {
        EXPECT_EQ(std::string(e.what()),
                  "too many targets: the exporter follows 1, as many as targets.limit allows; a "
                  "target not scraped for 3600 s (targets.forget_after) is forgotten");
    }
    EXPECT_EQ(made.lines, (std::vector<std::string>{"made bmc1 user monitor"}));
}

TEST(TargetScrapes, PlacesAreKeptPerTargetModuleAndKindOfSource) {
    bmcsim::ScratchDirectory scratch;
    Made made;
    tool::TargetScrapes scrapes(scratch.path(), countingSources(made));
    scrapes.scrape({"bmc1", "m"}, connectionTo("bmc1"), kLimit);
    const std::string state = scratch.path() + "/bmc1:623@m.counting.state";
    EXPECT_EQ(made.lines, (std::vector<std::string>{"made bmc1 user monitor", "load " + state,
                                                    "save " + state}));
}

TEST(TargetScrapes, DisconnectingEndsAnIdleTargetsSessionAtOnceAndAPollingOnesWhenItsPollEnds) {
    Made made;
    tool::TargetScrapes scrapes("", countingSources(made));
    scrapes.scrape({"bmc1", "m"}, connectionTo("bmc1"), kLimit);
    // bmc2's poll is held: its scrape answers within its limit, the poll still under way.
    made.hold();
    const std::string held =
        scrapes.scrape({"bmc2", "m"}, connectionTo("bmc2"), std::chrono::milliseconds(50));
    EXPECT_TRUE(has(held, "ipmi_up{collector=\"sel\"} 0")) << held;
    EXPECT_TRUE(made.waitFor("made bmc2 user monitor"));
    scrapes.disconnectAll();
    EXPECT_EQ(made.lines,
              (std::vector<std::string>{"made bmc1 user monitor", "made bmc2 user monitor",
                                        "disconnected bmc1"}));
    made.release();
    EXPECT_TRUE(made.waitFor("disconnected bmc2"));
    // The next poll goes on with the same source, and ends nothing.
    scrapes.scrape({"bmc2", "m"}, connectionTo("bmc2"), kLimit);
    EXPECT_EQ(made.lines,
              (std::vector<std::string>{"made bmc1 user monitor", "made bmc2 user monitor",
                                        "disconnected bmc1", "disconnected bmc2",
                                        "reconfigured bmc2 user monitor timeout 5000"}));
}

// A Redfish service of one system whose event log holds one critical entry; it counts the
// requests, and knows which sessions are open.
class OneLogService {
public:
    tool::RedfishReply handle(const std::string& method, const std::string& path,
                              const std::string& body, const std::vector<std::string>& headers) {
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back(method + " " + path);
        if (method == "POST" && path == kSessions) {
            const nlohmann::json credentials = nlohmann::json::parse(body, nullptr, false);
            if (!credentials.is_object() || credentials.value("Password", "") != password)
                return reply(401);
            const std::string id = std::to_string(++issued_);
            open_.insert(id);
            return reply(201, "{}",
                         {{"X-Auth-Token", "token" + id}, {"Location", kSessions + "/" + id}});
        }
        const std::string token = tokenIn(headers);
        if (!open_.count(token)) return reply(401);
        if (method == "DELETE") {
            open_.erase(token);
            return reply(204);
        }
        const auto document = documents().find(path);
        if (document == documents().end()) return reply(404);
        return reply(200, document->second);
    }

    // How many requests were `request` ("POST /redfish/v1/SessionService/Sessions").
    std::size_t count(const std::string& request) const {
        std::lock_guard<std::mutex> lock(mutex_);
        return static_cast<std::size_t>(std::count(requests_.begin(), requests_.end(), request));
    }
    std::set<std::string> openSessions() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return open_;
    }
    // Sources whose transports reach this service.
    tool::SourceFactory sources() {
        return [this](const ConnectionProfile& profile, const ReadSettings& read) {
            return std::make_unique<tool::RedfishEventSource>(
                profile, read,
                [this](const ConnectionProfile&) { return std::make_unique<Transport>(*this); });
        };
    }

    std::string password = "s3cret";
    static inline const std::string kSessions = "/redfish/v1/SessionService/Sessions";

private:
    class Transport : public tool::RedfishTransport {
    public:
        explicit Transport(OneLogService& service) : service_(service) {}
        tool::RedfishReply request(const std::string& method, const std::string& path,
                                   const std::string& body,
                                   const std::vector<std::string>& headers) override {
            return service_.handle(method, path, body, headers);
        }

    private:
        OneLogService& service_;
    };

    static tool::RedfishReply reply(long status, std::string body = "{}",
                                    std::vector<std::pair<std::string, std::string>> headers = {}) {
        tool::RedfishReply answer;
        answer.status = status;
        answer.body = std::move(body);
        answer.headers = std::move(headers);
        return answer;
    }
    // The session an X-Auth-Token names: "token1" is session 1.
    static std::string tokenIn(const std::vector<std::string>& headers) {
        const std::string lead = "X-Auth-Token: token";
        for (const std::string& line : headers)
            if (line.rfind(lead, 0) == 0) return line.substr(lead.size());
        return "";
    }
    static const std::map<std::string, std::string>& documents() {
        static const std::map<std::string, std::string> byPath = {
            {"/redfish/v1", R"({"Systems": {"@odata.id": "/redfish/v1/Systems"}})"},
            {"/redfish/v1/Systems",
             R"({"Members": [{"@odata.id": "/redfish/v1/Systems/system"}]})"},
            {"/redfish/v1/Systems/system",
             R"({"LogServices": {"@odata.id": "/redfish/v1/Systems/system/LogServices"}})"},
            {"/redfish/v1/Systems/system/LogServices",
             R"({"Members": [{"@odata.id": "/redfish/v1/Systems/system/LogServices/EventLog"}]})"},
            {"/redfish/v1/Systems/system/LogServices/EventLog",
             R"({"Id": "EventLog", "Name": "Event Log", "LogEntryType": "Event",
                 "Entries": {"@odata.id": "/redfish/v1/Systems/system/LogServices/EventLog/Entries"}})"},
            {"/redfish/v1/Systems/system/LogServices/EventLog/Entries",
             R"({"Members@odata.count": 1, "Members": [{"Id": "1", "EntryType": "Event",
                 "Created": "2024-03-01T10:00:00+00:00", "Severity": "Critical",
                 "Message": "Power supply 1 failed"}]})"}};
        return byPath;
    }

    mutable std::mutex mutex_;
    std::vector<std::string> requests_;
    std::set<std::string> open_;
    unsigned issued_ = 0;
};

// The exporter reconfigures a target's source before each poll: the same profile (the scrapes'
// limit, and so the session timeout, unchanged) keeps the session; a reload ends it, new
// credentials replace it, and the exporter's end ends the last.
TEST(TargetScrapes, ARedfishTargetKeepsItsSessionFromScrapeToScrape) {
    OneLogService service;
    const std::string login = "POST " + OneLogService::kSessions;
    {
        tool::TargetScrapes scrapes("", service.sources());
        TargetConnection connection = connectionTo("https://bmc1");
        connection.profile.password = "s3cret";
        const TargetKey key{"bmc1", "rf"};
        const std::string first = scrapes.scrape(key, connection, kLimit);
        EXPECT_TRUE(has(first, "ipmi_up{collector=\"sel\"} 1")) << first;
        EXPECT_TRUE(has(first, "ipmi_event_log_events_total{severity=\"critical\"} 1")) << first;
        const std::string second = scrapes.scrape(key, connection, kLimit);
        EXPECT_TRUE(has(second, "ipmi_up{collector=\"sel\"} 1")) << second;
        EXPECT_EQ(service.count(login), 1u);
        EXPECT_EQ(service.openSessions(), std::set<std::string>{"1"});

        scrapes.disconnectAll();
        EXPECT_EQ(service.count("DELETE " + OneLogService::kSessions + "/1"), 1u);
        EXPECT_EQ(service.openSessions(), std::set<std::string>{});
        EXPECT_TRUE(has(scrapes.scrape(key, connection, kLimit), "ipmi_up{collector=\"sel\"} 1"));
        EXPECT_EQ(service.count(login), 2u);

        service.password = "changed";
        connection.profile.password = "changed";
        EXPECT_TRUE(has(scrapes.scrape(key, connection, kLimit), "ipmi_up{collector=\"sel\"} 1"));
        EXPECT_EQ(service.count(login), 3u);
        EXPECT_EQ(service.count("DELETE " + OneLogService::kSessions + "/2"), 1u);
        EXPECT_EQ(service.openSessions(), std::set<std::string>{"3"});
    }
    EXPECT_EQ(service.count("DELETE " + OneLogService::kSessions + "/3"), 1u);
    EXPECT_EQ(service.openSessions(), std::set<std::string>{});
}

class ScrapeModulesTest : public ::testing::Test {
protected:
    tool::ScrapeDefaults defaults() const {
        tool::ScrapeDefaults defaults;
        defaults.profile.user = "cli-user";
        defaults.profile.password = "cli-password";
        defaults.profile.port = 6230;
        defaults.read.clearWhenFull = 90;
        return defaults;
    }

    // The modules of a configuration file holding `yaml`, readable by its owner alone.
    tool::ScrapeModules modulesOf(const std::string& yaml) {
        scratch.write("config.yml", yaml);
        ::chmod(scratch.file("config.yml").c_str(), 0600);
        tool::ScrapeDefaults given = defaults();
        given.configPath = scratch.file("config.yml");
        return tool::ScrapeModules(given);
    }

    bmcsim::ScratchDirectory scratch;
};

TEST_F(ScrapeModulesTest, WithoutAFileTheCommandLineIsTheModuleDefault) {
    const tool::ScrapeModules modules(defaults());
    TargetConnection connection;
    std::string reason;
    ASSERT_TRUE(modules.resolve({"10.0.0.7", "default"}, connection, reason)) << reason;
    // The target's one spelling leaves out the module's own port.
    EXPECT_EQ(connection.target, "10.0.0.7");
    EXPECT_EQ(connection.profile.host, "10.0.0.7");
    EXPECT_EQ(connection.profile.port, 6230);
    EXPECT_EQ(connection.profile.user, "cli-user");
    EXPECT_EQ(connection.read.clearWhenFull, 90u);
    ASSERT_TRUE(modules.resolve({"[::1]:9", "default"}, connection, reason)) << reason;
    EXPECT_EQ(connection.profile.host, "::1");
    EXPECT_EQ(connection.profile.port, 9);
    EXPECT_FALSE(modules.resolve({"10.0.0.7", "rack7"}, connection, reason));
    EXPECT_EQ(reason, "unknown module \"rack7\": without --config there is only default");
}

TEST_F(ScrapeModulesTest, AModulesKeysAreLaidOverTheCommandLines) {
    const tool::ScrapeModules modules = modulesOf(
        "modules:\n"
        "  rack7:\n"
        "    user: ops\n"
        "    pass: secret\n"
        "    timeout: 2500\n"
        "    rendering: described\n"
        "    hosts: [\"bmc-r7-*\"]\n");
    TargetConnection connection;
    std::string reason;
    ASSERT_TRUE(modules.resolve({"bmc-r7-1:700", "rack7"}, connection, reason)) << reason;
    EXPECT_EQ(connection.target, "bmc-r7-1:700");
    EXPECT_EQ(connection.profile.port, 700);
    EXPECT_EQ(connection.profile.user, "ops");
    EXPECT_EQ(connection.profile.password, "secret");
    EXPECT_EQ(connection.profile.sessionTimeout, std::chrono::milliseconds(2500));
    EXPECT_EQ(connection.read.rendering, tool::Rendering::Described);
    EXPECT_EQ(connection.read.clearWhenFull, 90u);
    EXPECT_FALSE(modules.resolve({"bmc-r8-1", "rack7"}, connection, reason));
    EXPECT_EQ(reason, "target \"bmc-r8-1\" is not among the hosts of module \"rack7\"");
    EXPECT_FALSE(modules.resolve({"bmc-r7-1", "default"}, connection, reason));
    EXPECT_EQ(reason, "unknown module \"default\"; the configuration has rack7");
}

TEST_F(ScrapeModulesTest, ARedfishModuleReachesItsTargetsServiceAtItsUrl) {
    scratch.write("ca.pem", "-----BEGIN CERTIFICATE-----\n");
    const tool::ScrapeModules modules = modulesOf(
        "modules:\n"
        "  rf:\n"
        "    transport: redfish\n"
        "    user: monitor\n"
        "    pass: s3cret\n"
        "    ca_file: ca.pem\n"
        "    logs: [EventLog]\n"
        "    hosts: any\n"
        "  lab:\n"
        "    transport: redfish\n"
        "    scheme: http\n"
        "    hosts: any\n"
        "  lab8000:\n"
        "    transport: redfish\n"
        "    scheme: http\n"
        "    port: 8000\n"
        "    hosts: any\n");
    // The followed target, and the service's URL.
    const auto reached = [&](const std::string& target, const std::string& module) {
        TargetConnection connection;
        std::string reason;
        if (!modules.resolve({target, module}, connection, reason)) return reason;
        return connection.target + " at " + connection.profile.host;
    };
    EXPECT_EQ(reached("bmc1", "rf"), "bmc1 at https://bmc1");
    EXPECT_EQ(reached("BMC1:443", "rf"), "bmc1 at https://bmc1");
    EXPECT_EQ(reached("bmc1:8443", "rf"), "bmc1:8443 at https://bmc1:8443");
    EXPECT_EQ(reached("[::1]:8000", "lab"), "[::1]:8000 at http://[::1]:8000");
    EXPECT_EQ(reached("bmc1", "lab"), "bmc1 at http://bmc1");
    EXPECT_EQ(reached("bmc1:80", "lab"), "bmc1 at http://bmc1");
    EXPECT_EQ(reached("bmc1", "lab8000"), "bmc1 at http://bmc1:8000");
    EXPECT_EQ(reached("bmc1:8000", "lab8000"), "bmc1 at http://bmc1:8000");
    EXPECT_EQ(reached("[fd00::7]", "lab8000"), "fd00::7 at http://[fd00::7]:8000");

    TargetConnection connection;
    std::string reason;
    ASSERT_TRUE(modules.resolve({"bmc1", "rf"}, connection, reason)) << reason;
    EXPECT_EQ(connection.profile.port, 443);
    EXPECT_EQ(connection.profile.user, "monitor");
    EXPECT_EQ(connection.profile.password, "s3cret");
    EXPECT_EQ(connection.profile.caFile, scratch.file("ca.pem"));
    EXPECT_FALSE(connection.profile.insecure);
    EXPECT_EQ(connection.profile.logs, std::vector<std::string>{"EventLog"});
    EXPECT_EQ(connection.read.clearWhenFull, 90u);
    // Its targets are read by the Redfish source, their places kept apart from IPMI's.
    EXPECT_EQ(tool::makeEventSource(connection.profile, connection.read)->kind(), "redfish");
}

}  // namespace
