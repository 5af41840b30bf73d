// ipmi-event-log serve: a Prometheus exporter. A thread polls the fleet every interval through an
// event source a host; /metrics answers with what the polls found (FleetMetrics), and /ipmi polls
// the target a scrape names through a module; served by our HttpServer (web/) on the address
// `listen` names (loopback by default).
#pragma once

#include <string>
#include <vector>

#include "base/HostPort.h"
#include "exporter/ScrapeModules.h"
#include "fleet/ConnectionProfile.h"
#include "fleet/Polling.h"

namespace tool {

struct ServeSettings {
    HostPort listen;  // where /metrics and /ipmi are answered; port 0: one the system chooses
    std::string webConfigPath;  // TLS and basic authentication (YAML); empty: plain HTTP for all
    ScrapeDefaults modules;     // /ipmi's modules, and the profile and reading of the fleet's hosts
    // The hosts polled in the background, whose metrics /metrics answers; none: /ipmi's only.
    std::vector<ConnectionProfile> fleet;
    PollSettings polling;  // its interval, fan-out and state directory, also /ipmi's targets'
};

// Serves until SIGINT or SIGTERM; 0 then, 1 when the address cannot be listened on, 2 when a
// configuration file cannot be used.
int serve(const ServeSettings& settings);

}  // namespace tool
