#include "fleet/Polling.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

#include "fleet/FanOut.h"

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

// One poll of a host: its new events as rows, with what the poll met.
HostResult pollHost(Tolmar::IpmiEventFollower& follower, const Options& filters,
                    const std::string& host, bool skipping) {
    const auto started = Clock::now();
    HostResult out;
    pollFollower(follower, host, filters, out, skipping);
    for (EventRow& row : out.events) row.complete = !out.incomplete;
    out.seconds = std::chrono::duration<double>(Clock::now() - started).count();
    return out;
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

void pollHosts(const Options& options,
               const std::function<bool(std::vector<HostResult>& results)>& report) {
    catchStopSignals();
    const std::vector<std::string> hosts = hostsOf(options);
    std::vector<Tolmar::IpmiEventFollower> followers;
    followers.reserve(hosts.size());
    for (const std::string& host : hosts) followers.push_back(followerOf(options, host));
    // With --state-dir, each follower goes on from where the last run left it.
    const auto statePath = [&](std::size_t i) {
        return stateFileIn(options.stateDirectory, hosts[i].empty() ? "local" : hosts[i]);
    };
    for (std::size_t i = 0; !options.stateDirectory.empty() && i < hosts.size(); ++i)
        sayWarning(loadStateOf(followers[i], statePath(i), hostName(hosts[i])));
    // With --new-only, a host's polls skip what its SEL holds until one reads it to its end
    // (chars: each of the fan-out's threads writes an element of its own).
    std::vector<char> skipping(hosts.size(), options.newOnly);
    Options filters = options;
    for (unsigned long poll = 1; !stopping; ++poll) {
        const auto due = Clock::now() + std::chrono::seconds(options.interval);
        std::vector<HostResult> results(hosts.size());
        fanOut(hosts.size(), options.fanout, [&](std::size_t i) {
            results[i] = pollHost(followers[i], filters, hosts[i], skipping[i]);
            if (results[i].skipped) skipping[i] = false;
        });
        std::vector<bool> polled(hosts.size());
        for (std::size_t i = 0; i < hosts.size(); ++i)
            polled[i] = results[i].result == Tolmar::IpmiEventLog::EL_SUCCESS;
        // The states move on only once the events they say were read are out.
        const bool delivered = report(results);
        for (std::size_t i = 0; delivered && !options.stateDirectory.empty() && i < hosts.size();
             ++i) {
            if (polled[i]) sayWarning(saveStateOf(followers[i], statePath(i), hostName(hosts[i])));
        }
        filters.last = 0;  // --last picks among the events there were at the start
        if (options.polls != 0 && poll >= options.polls) break;
        waitUntil(due);
    }
}

}  // namespace tool
