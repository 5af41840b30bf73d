// What follow and serve share: polling a host through its IpmiEventFollower, and waiting for the
// next poll until a stop is asked for (SIGINT, SIGTERM).
#pragma once

#include <IpmiEventFollower.h>

#include <chrono>
#include <string>

#include "HostRequests.h"

namespace tool {

// From now on SIGINT and SIGTERM ask the polling to stop.
void stopOnSignals();
bool stopRequested();
// Sleeps until `due`, or until a stop is asked for.
void waitForNextPoll(std::chrono::steady_clock::time_point due);

// One poll of a host: its new events as rows, filtered as for list (--last only at the first
// poll), with the framework's record of the calls.
HostResult pollHost(Tolmar::IpmiEventFollower& follower, const Options& options,
                    const std::string& host, bool first);

}  // namespace tool
