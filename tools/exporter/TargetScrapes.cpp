#include "exporter/TargetScrapes.h"

#include <algorithm>
#include <future>
#include <optional>

namespace tool {

namespace {

using Clock = std::chrono::steady_clock;

// Polls under way at once; more wait for a thread. Polls mostly wait for their BMCs' answers.
constexpr std::size_t kPollThreads = 128;
// The session timeout when neither the module nor the environment sets one.
constexpr std::chrono::milliseconds kDefaultSessionTimeout{10000};

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// The profile of a poll that must end within `limit`: a BMC that stops answering part way costs
// the session's opening and one request a session timeout each, so each gets half of it.
ConnectionProfile withinLimit(ConnectionProfile profile, std::chrono::milliseconds limit) {
    const std::chrono::milliseconds half = std::max(limit / 2, std::chrono::milliseconds(500));
    profile.sessionTimeout =
        std::min(profile.sessionTimeout.value_or(kDefaultSessionTimeout), half);
    return profile;
}

}  // namespace

void recordPoll(FleetMetrics& metrics, const std::string& host, const SourcePoll& poll) {
    std::vector<EventFacts> events;
    events.reserve(poll.events.size());
    for (const SourceEvent& event : poll.events) {
        std::optional<std::time_t> moment;
        if (event.time) moment = std::chrono::system_clock::to_time_t(*event.time);
        events.push_back({event.severity, moment});
    }
    metrics.recordPoll(host,
                       {poll.failure == Failure::None, poll.complete, poll.cleared,
                        poll.entriesRead, poll.seconds, poll.emptied, poll.health},
                       events);
}

struct TargetScrapes::Target {
    explicit Target(const std::string& name) : metrics({name}, false) {}

    std::mutex mutex;  // guards all but `follower` and `info`, which only the poll under way uses,
                       // and `lastScraped`, which TargetScrapes::mutex_ guards
    Clock::time_point lastScraped = Clock::now();
    std::optional<std::shared_future<void>> polling;  // the poll under way
    std::thread poller;                               // its thread, or the last one's
    std::unique_ptr<EventSource> source;
    bool disconnectAfterPoll = false;  // asked while the poll was under way
    FleetMetrics metrics;
    bool up = false;  // whether the last poll succeeded
    LogHealth health;
};

TargetScrapes::TargetScrapes(std::string stateDirectory, SourceFactory make)
    : stateDirectory_(std::move(stateDirectory)), make_(std::move(make)), polls_(kPollThreads) {}

// Nothing is left running: the polls under way end within their session timeouts.
TargetScrapes::~TargetScrapes() { polls_.shutdown(); }

std::size_t TargetScrapes::size() const {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto since = Clock::now() - forgetAfter_;
    return static_cast<std::size_t>(
        std::count_if(targets_.begin(), targets_.end(),
                      [since](const auto& entry) { return entry.second->lastScraped >= since; }));
}

void TargetScrapes::forgetUnscraped(Clock::time_point now) {
    for (auto entry = targets_.begin(); entry != targets_.end();) {
        const std::shared_ptr<Target>& target = entry->second;
        bool idle = target->lastScraped < now - forgetAfter_;
        if (idle) {
            std::lock_guard<std::mutex> lock(target->mutex);
            idle = !target->polling;
        }
        entry = idle ? targets_.erase(entry) : std::next(entry);
    }
}

std::shared_ptr<TargetScrapes::Target> TargetScrapes::targetOf(const TargetKey& key,
                                                               const TargetLimits& limits) {
    const auto now = Clock::now();
    std::lock_guard<std::mutex> lock(mutex_);
    forgetAfter_ = limits.forgetAfter;
    forgetUnscraped(now);
    auto found = targets_.find(key);
    if (found == targets_.end()) {
        if (targets_.size() >= limits.limit) {
            throw ServiceUnavailable(
                "too many targets: the exporter follows " + std::to_string(targets_.size()) +
                ", as many as targets.limit allows; a target not scraped for " +
                std::to_string(limits.forgetAfter.count()) +
                " s (targets.forget_after) is forgotten");
        }
        found = targets_.emplace(key, std::make_shared<Target>(key.target)).first;
    }
    found->second->lastScraped = now;
    return found->second;
}

std::string TargetScrapes::statePath(const TargetKey& key, const EventSource& source) const {
    return stateFileIn(stateDirectory_, key.target + "@" + key.module, source.kind());
}

std::string TargetScrapes::scrape(const TargetKey& key, const TargetConnection& connection,
                                  std::chrono::milliseconds limit) {
    const auto started = Clock::now();
    const TargetKey followed{connection.target.empty() ? key.target : connection.target,
                             key.module};
    const std::shared_ptr<Target> target = targetOf(followed, connection.limits);
    std::shared_future<void> poll;
    {
        std::lock_guard<std::mutex> lock(target->mutex);
        if (!target->polling) {
            auto done = std::make_shared<std::promise<void>>();
            target->polling = done->get_future().share();
            polls_.enqueue([this, target, followed, connection, limit, done] {
                this->poll(*target, followed, connection, limit);
                pollEnded(*target);
                done->set_value();
            });
        }
        poll = *target->polling;
    }
    const bool ended = poll.wait_for(limit) == std::future_status::ready;
    std::lock_guard<std::mutex> lock(target->mutex);
    return target->metrics.text() +
           ipmiExporterText(ended && target->up, secondsSince(started), target->health);
}

void TargetScrapes::pollEnded(Target& target) {
    std::lock_guard<std::mutex> lock(target.mutex);
    target.polling.reset();
    if (target.disconnectAfterPoll && target.source) target.source->disconnect();
    target.disconnectAfterPoll = false;
}

void TargetScrapes::disconnectAll() {
    std::vector<std::shared_ptr<Target>> targets;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& entry : targets_) targets.push_back(entry.second);
    }
    // A poll starts only under the target's lock, so none starts while its source disconnects.
    for (const std::shared_ptr<Target>& target : targets) {
        std::lock_guard<std::mutex> lock(target->mutex);
        if (target->polling)
            target->disconnectAfterPoll = true;
        else if (target->source)
            target->source->disconnect();
    }
}

void TargetScrapes::poll(Target& target, const TargetKey& key, const TargetConnection& connection,
                         std::chrono::milliseconds limit) const {
    const auto started = Clock::now();
    const ConnectionProfile profile = withinLimit(connection.profile, limit);
    if (!target.source) {
        target.source = make_(profile, connection.read);
        if (!stateDirectory_.empty())
            sayWarning(target.source->loadState(statePath(key, *target.source)));
    } else {
        // Other credentials or settings, from a configuration read again: the same BMC, its
        // place kept.
        target.source->reconfigure(profile, connection.read);
    }
    SourcePoll result = target.source->poll(false);
    result.seconds = secondsSince(started);
    {
        std::lock_guard<std::mutex> lock(target.mutex);
        recordPoll(target.metrics, key.target, result);
        target.metrics.recordFleetPoll();
        target.up = result.failure == Failure::None;
        target.health = result.health;
    }
    // Saved once the poll's events are counted, as follow saves once they are printed.
    if (!stateDirectory_.empty() && result.failure == Failure::None)
        sayWarning(target.source->saveState(statePath(key, *target.source)));
}

}  // namespace tool
