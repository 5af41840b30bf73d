// Polling a fleet through its event sources: the events a command keeps, states saved only once a
// poll's events are out, new-only starts, and where the states are kept.
#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <set>

#include "fleet/Polling.h"

namespace {

using tool::ConnectionProfile;
using tool::EventSource;
using tool::Failure;
using tool::ReadSettings;
using tool::Severity;
using tool::SourceEvent;
using tool::SourcePoll;

SourceEvent eventOf(unsigned long number, Severity severity = Severity::Info,
                    std::optional<std::time_t> moment = std::nullopt) {
    SourceEvent event;
    event.id = "#" + std::to_string(number);
    event.number = number;
    event.severity = severity;
    if (moment) event.time = std::chrono::system_clock::from_time_t(*moment);
    return event;
}

std::vector<unsigned long> numbersOf(const std::vector<SourceEvent>& events) {
    std::vector<unsigned long> numbers;
    for (const SourceEvent& event : events) numbers.push_back(event.number.value_or(0));
    return numbers;
}

// What the fake sources of a test did, in order: "poll HOST", "skip HOST", "load PATH",
// "save PATH", and the test's own "report" lines.
struct Journal {
    std::vector<std::string> lines;
};

// A source that answers its polls from a script, one SourcePoll a poll (the last again when the
// script runs out), and writes what it is asked to do in the journal.
class ScriptedSource : public EventSource {
public:
    ScriptedSource(std::string host, std::vector<SourcePoll> script, Journal& journal)
        : host_(std::move(host)), script_(std::move(script)), journal_(journal) {}

    std::string hostName() const override { return host_; }
    std::string kind() const override { return "fake"; }
    SourcePoll poll(bool skipping) override {
        journal_.lines.push_back((skipping ? "skip " : "poll ") + host_);
        SourcePoll next = script_.at(std::min(polls_++, script_.size() - 1));
        if (skipping && next.failure == Failure::None && next.complete)
            next.skipped = next.events.size();
        if (skipping) next.events.clear();
        return next;
    }
    SourcePoll readWhole() override { return poll(false); }
    void reconfigure(const ConnectionProfile&, const ReadSettings&) override {}
    std::string loadState(const std::string& path) override {
        journal_.lines.push_back("load " + path);
        return "";
    }
    std::string saveState(const std::string& path) const override {
        journal_.lines.push_back("save " + path);
        return "";
    }

private:
    std::string host_;
    std::vector<SourcePoll> script_;
    std::size_t polls_ = 0;
    Journal& journal_;
};

SourcePoll pollWith(std::vector<SourceEvent> events) {
    SourcePoll poll;
    poll.events = std::move(events);
    return poll;
}

SourcePoll failedPoll() {
    SourcePoll poll;
    poll.failure = Failure::Connection;
    poll.failureText = "cannot connect";
    return poll;
}

class PollingTest : public ::testing::Test {
protected:
    std::vector<ConnectionProfile> hosts(const std::vector<std::string>& names) {
        std::vector<ConnectionProfile> profiles;
        for (const std::string& name : names) {
            ConnectionProfile profile;
            profile.host = name;
            profiles.push_back(profile);
        }
        return profiles;
    }

    // Polls `names` with `settings`, each host's source answering from its script; the events
    // each report brought, a host's numbers a poll.
    std::vector<std::vector<std::vector<unsigned long>>> run(
        const std::vector<std::string>& names, tool::PollSettings settings,
        const std::map<std::string, std::vector<SourcePoll>>& scripts, bool delivered = true) {
        settings.interval = 0;
        std::vector<std::vector<std::vector<unsigned long>>> reports;
        tool::pollHosts(
            hosts(names), ReadSettings{}, settings,
            [&](std::vector<SourcePoll>& results) {
                journal.lines.push_back("report");
                reports.emplace_back();
                for (const SourcePoll& result : results)
                    reports.back().push_back(numbersOf(result.events));
                return delivered;
            },
            [&](const ConnectionProfile& profile, const ReadSettings&) {
                return std::make_unique<ScriptedSource>(profile.host, scripts.at(profile.host),
                                                        journal);
            });
        return reports;
    }

    Journal journal;
};

TEST_F(PollingTest, EventsAreKeptBySeverityRecordIdAndTime) {
    const std::vector<SourceEvent> events = {
        eventOf(1, Severity::Info, 1000), eventOf(2, Severity::Warning, 2000),
        eventOf(3, Severity::Critical, 3000), eventOf(4, Severity::Critical),
        eventOf(5, Severity::Warning, 5000)};
    tool::EventFilter filter;
    filter.minimum = Severity::Warning;
    std::vector<SourceEvent> kept = events;
    tool::keepEvents(kept, filter);
    EXPECT_EQ(numbersOf(kept), (std::vector<unsigned long>{2, 3, 4, 5}));

    filter = {};
    filter.firstId = 2;
    filter.lastId = 4;
    kept = events;
    tool::keepEvents(kept, filter);
    EXPECT_EQ(numbersOf(kept), (std::vector<unsigned long>{2, 3, 4}));

    // A time range keeps no event whose source does not know when it happened.
    filter = {};
    filter.since = 2000;
    filter.until = 3000;
    kept = events;
    tool::keepEvents(kept, filter);
    EXPECT_EQ(numbersOf(kept), (std::vector<unsigned long>{2, 3}));

    filter = {};
    filter.last = 2;
    kept = events;
    tool::keepEvents(kept, filter);
    EXPECT_EQ(numbersOf(kept), (std::vector<unsigned long>{4, 5}));

    // An event without a number is in every ID range.
    SourceEvent unnumbered = eventOf(0);
    unnumbered.number.reset();
    kept = {unnumbered};
    filter = {};
    filter.firstId = 10;
    tool::keepEvents(kept, filter);
    EXPECT_EQ(kept.size(), 1u);
}

TEST_F(PollingTest, TheLastNApplyToTheFirstPollOnly) {
    tool::PollSettings settings;
    settings.polls = 2;
    settings.filter.last = 1;
    const auto reports = run(
        {"a"}, settings,
        {{"a",
          {pollWith({eventOf(1), eventOf(2), eventOf(3)}), pollWith({eventOf(4), eventOf(5)})}}});
    ASSERT_EQ(reports.size(), 2u);
    EXPECT_EQ(reports[0][0], (std::vector<unsigned long>{3}));
    EXPECT_EQ(reports[1][0], (std::vector<unsigned long>{4, 5}));
}

TEST_F(PollingTest, StatesAreLoadedFirstAndSavedOnlyAfterTheEventsAreOut) {
    tool::PollSettings settings;
    settings.polls = 1;
    settings.stateDirectory = "/states";
    run({"a", "b"}, settings, {{"a", {pollWith({eventOf(1)})}}, {"b", {failedPoll()}}});
    // b's poll failed: its place stays where it was.
    EXPECT_EQ(journal.lines,
              (std::vector<std::string>{"load /states/a.fake.state", "load /states/b.fake.state",
                                        journal.lines[2], journal.lines[3], "report",
                                        "save /states/a.fake.state"}));
    EXPECT_EQ(std::set<std::string>(journal.lines.begin() + 2, journal.lines.begin() + 4),
              (std::set<std::string>{"poll a", "poll b"}));
}

TEST_F(PollingTest, NothingIsSavedWhenTheEventsCouldNotBeWrittenOut) {
    tool::PollSettings settings;
    settings.polls = 2;
    settings.stateDirectory = "/states";
    run({"a"}, settings, {{"a", {pollWith({eventOf(1)})}}}, false);
    EXPECT_EQ(journal.lines, (std::vector<std::string>{"load /states/a.fake.state", "poll a",
                                                       "report", "poll a", "report"}));
}

TEST_F(PollingTest, NewOnlySkipsUntilAPollReadsTheWholeLog) {
    tool::PollSettings settings;
    settings.polls = 3;
    settings.newOnly = true;
    SourcePoll cut = pollWith({eventOf(1)});
    cut.complete = false;
    const auto reports =
        run({"a"}, settings,
            {{"a", {cut, pollWith({eventOf(1), eventOf(2)}), pollWith({eventOf(3)})}}});
    EXPECT_EQ(journal.lines, (std::vector<std::string>{"skip a", "report", "skip a", "report",
                                                       "poll a", "report"}));
    EXPECT_EQ(reports[2][0], (std::vector<unsigned long>{3}));
}

TEST(StateFiles, AnIpmiSourceKeepsItsOldNameAndOthersAreNamedByKind) {
    EXPECT_EQ(tool::stateFileIn("/d", "bmc1:623", "ipmi"), "/d/bmc1:623.state");
    EXPECT_EQ(tool::stateFileIn("/d", "bmc1", "redfish"), "/d/bmc1.redfish.state");
    EXPECT_EQ(tool::stateFileIn("/d", "a/b@m", "ipmi"), "/d/a_b@m.state");
}

TEST(ExitStatus, FailuresIncompleteReadsAndSuccess) {
    EXPECT_EQ(tool::exitStatus(Failure::None, true), 0);
    EXPECT_EQ(tool::exitStatus(Failure::None, false), 3);
    EXPECT_EQ(tool::exitStatus(Failure::NotSupported, true), 11);
    EXPECT_EQ(tool::exitStatus(Failure::Internal, false), 16);
}

}  // namespace
