// ipmi-event-log serve: a Prometheus exporter. A thread polls the fleet every --interval seconds
// through an IpmiEventFollower a host; /metrics answers with what the polls found (FleetMetrics),
// served by our HttpServer (web/) on the address --listen names (loopback by default).
#pragma once

#include "cli/Options.h"

namespace tool {

// Serves until SIGINT or SIGTERM; 0 then, 1 when the address cannot be listened on.
int serve(const Options& options);

}  // namespace tool
