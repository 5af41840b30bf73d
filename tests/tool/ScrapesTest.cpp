// The exporter's targets: a module's profile laid over the command line's, a source a target and
// module kept between scrapes, its poll counted in the scrape's metrics, the limit on targets and
// the places kept in a state directory.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <mutex>

#include "ScratchDirectory.h"
#include "exporter/ScrapeModules.h"
#include "exporter/TargetScrapes.h"

namespace {

using tool::ConnectionProfile;
using tool::ReadSettings;
using tool::SourcePoll;
using tool::TargetConnection;
using tool::TargetKey;

const std::chrono::milliseconds kLimit{10000};

// What the scrapes' sources were made with and asked to do.
struct Made {
    std::mutex mutex;
    std::vector<std::string> lines;
    void add(const std::string& line) {
        std::lock_guard<std::mutex> lock(mutex);
        lines.push_back(line);
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
    scratch.write("config.yml",
                  "modules:\n"
                  "  rack7:\n"
                  "    user: ops\n"
                  "    pass: secret\n"
                  "    timeout: 2500\n"
                  "    rendering: described\n"
                  "    hosts: [\"bmc-r7-*\"]\n");
    ::chmod(scratch.file("config.yml").c_str(), 0600);
    tool::ScrapeDefaults given = defaults();
    given.configPath = scratch.file("config.yml");
    const tool::ScrapeModules modules(given);
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

}  // namespace
