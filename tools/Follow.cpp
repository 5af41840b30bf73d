#include "Follow.h"

#include <IpmiEventFollower.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <set>

#include "Polling.h"

namespace tool {

using Tolmar::IpmiEventFollower;
using Tolmar::IpmiEventLog;

int follow(const Options& options, Style style) {
    stopOnSignals();
    const std::vector<std::string> hosts = hostsOf(options);
    std::vector<std::unique_ptr<IpmiEventFollower>> followers;
    for (const std::string& host : hosts)
        followers.push_back(std::make_unique<IpmiEventFollower>(connection(options, host)));
    // A host that fails is said once, and said again when it answers again.
    std::vector<bool> failing(hosts.size(), false);
    std::set<std::string> warnings;
    int status = 0;
    for (unsigned long poll = 1; !stopRequested(); ++poll) {
        const auto due = std::chrono::steady_clock::now() + std::chrono::seconds(options.interval);
        std::vector<HostResult> results(hosts.size());
        fanOut(hosts.size(), options.fanout, [&](std::size_t i) {
            results[i] = pollHost(*followers[i], options, hosts[i], poll == 1);
        });
        std::vector<EventRow> rows;
        std::string said;
        status = 0;
        for (std::size_t i = 0; i < hosts.size(); ++i) {
            HostResult& r = results[i];
            rows.insert(rows.end(), std::make_move_iterator(r.events.begin()),
                        std::make_move_iterator(r.events.end()));
            const bool failed = r.result != IpmiEventLog::EL_SUCCESS;
            if (failed && !failing[i]) {
                said += "ipmi-event-log: " + failureText(hosts[i], r) + "; trying again every " +
                        std::to_string(options.interval) + " s\n";
            } else if (!failed && failing[i]) {
                said += "ipmi-event-log: " + hostName(hosts[i]) + " answers again\n";
            }
            if (r.incomplete)
                said += "ipmi-event-log: " + incompleteText(hosts[i], r, options) + "\n";
            if (!r.record.warning.empty() && warnings.insert(r.record.warning).second)
                said += "ipmi-event-log: warning: " + r.record.warning + "\n";
            failing[i] = failed;
            status = std::max(status, exitStatus(r));
        }
        // Each poll's events as they come; the table's and CSV's header once, with the first.
        if (!rows.empty()) {
            writeEvents(std::cout, rows, style);
            style.header = false;
        }
        std::cout.flush();
        std::cerr << said << std::flush;
        if (options.polls != 0 && poll >= options.polls) break;
        waitForNextPoll(due);
    }
    return status;
}

}  // namespace tool
