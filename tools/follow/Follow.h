// ipmi-event-log follow: the events a fleet's logs hold, then the new ones as they come, poll
// after poll (like tail -f), each host through an event source of its own.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "fleet/ConnectionProfile.h"
#include "fleet/Polling.h"
#include "output/Output.h"

namespace tool {

struct FollowSettings {
    // How full a log may get, in percent, before each warning; none when empty.
    std::vector<unsigned> fullWarnings{80, 90, 100};
    std::string syslog;                 // the log server the events go to; empty: standard output
    std::optional<int> syslogFacility;  // its facility's code; daemon when unset
};

// Polls until interrupted (SIGINT, SIGTERM) or `polling.polls` polls are done; returns the exit
// status of the last poll, as for a fleet's list.
int follow(const std::vector<ConnectionProfile>& hosts, const ReadSettings& read,
           const PollSettings& polling, const FollowSettings& settings, Style style);

}  // namespace tool
