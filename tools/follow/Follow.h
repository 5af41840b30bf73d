// ipmi-event-log follow: the events a fleet's SELs hold, then the new ones as they come, poll
// after poll (like tail -f), each host through an IpmiEventFollower of its own.
#pragma once

#include "cli/Options.h"
#include "output/Output.h"

namespace tool {

// Polls until interrupted (SIGINT, SIGTERM) or `options.polls` polls are done; returns the exit
// status of the last poll, as for a fleet's list.
int follow(const Options& options, Style style);

}  // namespace tool
