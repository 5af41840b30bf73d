// The command line's settings as the layers below take them: a connection profile a host, how
// logs are read, which events are kept, how hosts are polled, how events are written.
#pragma once

#include <vector>

#include "cli/Options.h"
#include "exporter/Exporter.h"
#include "fleet/ConnectionProfile.h"
#include "fleet/Polling.h"
#include "follow/Follow.h"
#include "output/Output.h"

namespace tool {

// A profile for each host of the command line; for this machine's BMC, in band, without -H.
std::vector<ConnectionProfile> profilesOf(const Options& options);
ReadSettings readSettingsOf(const Options& options);
EventFilter filterOf(const Options& options);
PollSettings pollSettingsOf(const Options& options);
FollowSettings followSettingsOf(const Options& options);
ServeSettings serveSettingsOf(const Options& options);
// How events are written: the command line's format, the terminal's width and colours, the
// journal's priorities when standard output goes there.
Style outputStyle(const Options& options);

}  // namespace tool
