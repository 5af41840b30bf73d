#include "fleet/Polling.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <iostream>
#include <thread>

#include "fleet/FanOut.h"
#include "fleet/IpmiEventSource.h"
#include "fleet/RedfishClient.h"
#include "fleet/RedfishEventSource.h"

namespace tool {

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<bool> stopping{false};
std::atomic<bool> reloading{false};

extern "C" void requestStop(int) { stopping = true; }
extern "C" void requestReload(int) { reloading = true; }

// Sleeps until `due`, or until a stop is asked for (looked at every 50 ms).
void waitUntil(Clock::time_point due) {
    for (auto now = Clock::now(); !stopping && now < due; now = Clock::now())
        std::this_thread::sleep_for(
            std::min<Clock::duration>(due - now, std::chrono::milliseconds(50)));
}

void catchStopSignals() {
    std::signal(SIGINT, requestStop);
    std::signal(SIGTERM, requestStop);
}

// One poll of a host, its events filtered, with how long it took.
SourcePoll pollHost(EventSource& source, const EventFilter& filter, bool skipping) {
    const auto started = Clock::now();
    SourcePoll out = source.poll(skipping);
    keepEvents(out.events, filter);
    out.seconds = std::chrono::duration<double>(Clock::now() - started).count();
    return out;
}

bool keep(const SourceEvent& event, const EventFilter& filter) {
    if (event.severity < filter.minimum) return false;
    if (event.number && (*event.number < filter.firstId || *event.number > filter.lastId))
        return false;
    if (!filter.since && !filter.until) return true;
    if (!event.time) return false;
    const std::time_t moment = std::chrono::system_clock::to_time_t(*event.time);
    return (!filter.since || moment >= *filter.since) && (!filter.until || moment <= *filter.until);
}

}  // namespace

void catchReloadSignal() { std::signal(SIGHUP, requestReload); }

void reloadWhenAsked(const std::function<void()>& reload) {
    catchStopSignals();
    catchReloadSignal();
    while (!stopping) {
        if (reloading.exchange(false)) reload();
        waitUntil(Clock::now() + std::chrono::milliseconds(50));
    }
}

int exitStatus(Failure failure, bool complete) {
    if (failure != Failure::None) return 10 + static_cast<int>(failure);
    return complete ? 0 : 3;
}

std::string changesText(const std::string& hostName, const SourcePoll& poll) {
    std::string text;
    const std::string prefix = "ipmi-event-log: " + hostName + ": ";
    const std::string log = "the " + poll.health.name;
    if (poll.cleared) text += prefix + log + " was cleared\n";
    if (poll.emptied) text += prefix + "cleared " + log + ", every record in it read first\n";
    if (!poll.clearFailure.empty()) text += prefix + "warning: " + poll.clearFailure + "\n";
    return text;
}

std::unique_ptr<EventSource> makeEventSource(const ConnectionProfile& profile,
                                             const ReadSettings& settings) {
    // A URL names a Redfish service; anything else, a BMC reached over IPMI.
    if (isRedfishHost(profile.host)) return std::make_unique<RedfishEventSource>(profile, settings);
    return std::make_unique<IpmiEventSource>(profile, settings);
}

void keepEvents(std::vector<SourceEvent>& events, const EventFilter& filter) {
    events.erase(std::remove_if(events.begin(), events.end(),
                                [&](const SourceEvent& e) { return !keep(e, filter); }),
                 events.end());
    if (filter.last != 0 && events.size() > filter.last)
        events.erase(events.begin(), events.end() - static_cast<std::ptrdiff_t>(filter.last));
}

std::string stateFileIn(const std::string& directory, std::string name, const std::string& kind) {
    std::replace(name.begin(), name.end(), '/', '_');
    return directory + "/" + name + (kind == "ipmi" ? "" : "." + kind) + ".state";
}

std::string stateLockFile(const std::string& path, bool directory) {
    return directory ? path + "/ipmi-event-log.lock" : path + ".lock";
}

bool lockState(const std::string& lockFile, const std::string& state, std::string& message) {
    message.clear();
    // Kept open until the process ends: closing it would release the lock.
    const int fd = open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        message = state + " is not locked against other processes: " + lockFile + ": " +
                  std::strerror(errno);
        return true;
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        if (error != EWOULDBLOCK) {
            close(fd);
            message = state + " is not locked against other processes: " + lockFile + ": " +
                      std::strerror(error);
            return true;
        }
        // The holder writes its process ID once it has the lock; it may not have yet.
        char text[32] = {};
        const ssize_t n = pread(fd, text, sizeof text - 1, 0);
        close(fd);
        std::string holder(text, n > 0 ? static_cast<std::size_t>(n) : 0);
        holder.erase(std::remove(holder.begin(), holder.end(), '\n'), holder.end());
        message = state + " is in use by another ipmi-event-log" +
                  (holder.empty() ? std::string() : " (process " + holder + ")") +
                  ": one process at a time may keep a state";
        return false;
    }
    const std::string pid = std::to_string(getpid()) + "\n";
    if (ftruncate(fd, 0) != 0 || pwrite(fd, pid.data(), pid.size(), 0) < 0) {
        // The lock holds without its process ID, which only names the holder.
    }
    return true;
}

void sayWarning(const std::string& warning) {
    // One write: a whole line, whatever thread says it.
    if (!warning.empty()) std::cerr << "ipmi-event-log: warning: " + warning + "\n" << std::flush;
}

void pollHosts(const std::vector<ConnectionProfile>& hosts, const ReadSettings& read,
               const PollSettings& settings,
               const std::function<bool(std::vector<SourcePoll>& results)>& report,
               const SourceFactory& make) {
    catchStopSignals();
    std::vector<std::unique_ptr<EventSource>> sources;
    sources.reserve(hosts.size());
    for (const ConnectionProfile& host : hosts) sources.push_back(make(host, read));
    // With a state directory, each source goes on from where the last run left it.
    const auto statePath = [&](std::size_t i) {
        const std::string& host = hosts[i].host;
        return stateFileIn(settings.stateDirectory, host.empty() ? "local" : host,
                           sources[i]->kind());
    };
    for (std::size_t i = 0; !settings.stateDirectory.empty() && i < hosts.size(); ++i)
        sayWarning(sources[i]->loadState(statePath(i)));
    // With newOnly, a host's polls skip what its log holds until one reads it to its end
    // (chars: each of the fan-out's threads writes an element of its own).
    std::vector<char> skipping(hosts.size(), settings.newOnly);
    EventFilter filter = settings.filter;
    for (unsigned long poll = 1; !stopping; ++poll) {
        const auto due = Clock::now() + std::chrono::seconds(settings.interval);
        std::vector<SourcePoll> results(hosts.size());
        fanOut(hosts.size(), settings.fanout, [&](std::size_t i) {
            results[i] = pollHost(*sources[i], filter, skipping[i]);
            if (results[i].skipped) skipping[i] = false;
        });
        std::vector<bool> polled(hosts.size());
        for (std::size_t i = 0; i < hosts.size(); ++i)
            polled[i] = results[i].failure == Failure::None;
        // The places move on only once the events they say were read are out.
        const bool delivered = report(results);
        for (std::size_t i = 0; delivered && !settings.stateDirectory.empty() && i < hosts.size();
             ++i) {
            if (polled[i]) sayWarning(sources[i]->saveState(statePath(i)));
        }
        filter.last = 0;  // the last N are picked among the events there were at the start
        if (settings.polls != 0 && poll >= settings.polls) break;
        waitUntil(due);
    }
}

}  // namespace tool
