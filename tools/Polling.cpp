#include "Polling.h"

#include <atomic>
#include <csignal>
#include <thread>

namespace tool {

namespace {

std::atomic<bool> stopping{false};

extern "C" void requestStop(int) { stopping = true; }

}  // namespace

void stopOnSignals() {
    std::signal(SIGINT, requestStop);
    std::signal(SIGTERM, requestStop);
}

bool stopRequested() { return stopping; }

void waitForNextPoll(std::chrono::steady_clock::time_point due) {
    while (!stopping && std::chrono::steady_clock::now() < due)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

HostResult pollHost(Tolmar::IpmiEventFollower& follower, const Options& options,
                    const std::string& host, bool first) {
    HostResult out;
    startIpmiCallRecord();
    std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
    out.result = follower.Poll(events);
    out.record = ipmiCallRecord();
    out.incomplete = out.result == Tolmar::IpmiEventLog::EL_SUCCESS && !follower.Complete();
    Options filters = options;
    if (!first) filters.last = 0;
    addEvents(out, host, std::move(events), filters);
    for (EventRow& row : out.events) row.complete = !out.incomplete;
    return out;
}

}  // namespace tool
