// What follow and serve share: every host of the command line polled through an
// IpmiEventFollower of its own, `--fanout` at a time, every `--interval` seconds, until a stop is
// asked for (SIGINT, SIGTERM) or `--polls` polls are done.
#pragma once

#include <functional>
#include <vector>

#include "cli/HostRequests.h"

namespace tool {

// From now on SIGHUP asks for a reload, which reloadWhenAsked carries out.
void catchReloadSignal();
// Calls `reload` each time SIGHUP asks for it, until a stop is asked for (SIGINT, SIGTERM).
void reloadWhenAsked(const std::function<void()>& reload);

// Polls until told to stop; hands each poll's results, in the hosts' order, to `report`. A
// result's events are filtered as for list, --last applying to the first poll only; its
// `seconds` say how long the host's poll took. With --state-dir, the hosts' states are saved after
// `report` returned true, saying that the events are written out: a run stopped at any moment
// shows again, at worst, events it showed, and misses none.
void pollHosts(const Options& options,
               const std::function<bool(std::vector<HostResult>& results)>& report);

}  // namespace tool
