#include "follow/Follow.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <set>

#include "follow/FullWarnings.h"
#include "fleet/Polling.h"
#include "follow/SyslogSender.h"

namespace tool {

using Tolmar::IpmiEventLog;

namespace {

// A poll's events as syslog messages, all stamped with the time they were read.
std::vector<std::string> syslogMessages(const std::vector<EventRow>& rows,
                                        const SyslogOrigin& origin) {
    const auto read = std::chrono::system_clock::now();
    std::vector<std::string> messages;
    messages.reserve(rows.size());
    for (const EventRow& row : rows) messages.push_back(syslogMessage(row, origin, read));
    return messages;
}

std::unique_ptr<SyslogSender> syslogSenderFor(const Options& options) {
    if (options.syslog.empty()) return nullptr;
    return std::make_unique<SyslogSender>(parseSyslogAddress(options.syslog));
}

}  // namespace

int follow(const Options& options, Style style) {
    const std::vector<std::string> hosts = hostsOf(options);
    // A host that fails is said once, and said again when it answers again.
    std::vector<bool> failing(hosts.size(), false);
    std::vector<FullWarnings> fullness(hosts.size(), FullWarnings(options.fullWarnings));
    // A clear that fails while the SEL stays full is said once, and again when its reason changes.
    std::vector<std::string> clearFailures(hosts.size());
    std::set<std::string> warnings;
    // With --syslog, the events go to the log server only.
    const std::unique_ptr<SyslogSender> syslog = syslogSenderFor(options);
    const SyslogOrigin origin = localSyslogOrigin(options.syslogFacility.value_or(kDaemonFacility));
    int status = 0;
    pollHosts(options, [&](std::vector<HostResult>& results) {
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
            if (r.skipped) {
                said += "ipmi-event-log: " + hostName(hosts[i]) + ": new events only: the " +
                        std::to_string(*r.skipped) + " in the SEL now are not shown\n";
            }
            const bool saidBefore = r.clearFailure == clearFailures[i];
            clearFailures[i] = r.clearFailure;
            if (saidBefore) r.clearFailure.clear();
            said += selChangeText(hosts[i], r);
            for (const std::string& line : fullness[i].next(r.sel))
                said += "ipmi-event-log: " + hostName(hosts[i]) + ": " + line + "\n";
            if (r.incomplete)
                said += "ipmi-event-log: " + incompleteText(hosts[i], r, options) + "\n";
            if (!r.call.warning.empty() && warnings.insert(r.call.warning).second)
                said += "ipmi-event-log: warning: " + r.call.warning + "\n";
            failing[i] = failed;
            status = std::max(status, exitStatus(r));
        }
        // Each poll's events as they come; the table's and CSV's header once, with the first.
        if (syslog) {
            said += syslog->deliver(syslogMessages(rows, origin));
        } else if (!rows.empty()) {
            writeEvents(std::cout, rows, style);
            style.header = false;
        }
        std::cout.flush();
        std::cerr << said << std::flush;
        // Events waiting for the log server are not out yet: the states stay where they were, and
        // a run that ends before they are sent reads them again next time.
        return std::cout.good() && (!syslog || syslog->allSent());
    });
    if (syslog) std::cerr << syslog->finish() << std::flush;
    return status;
}

}  // namespace tool
