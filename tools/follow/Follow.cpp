#include "follow/Follow.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <set>

#include "follow/FullWarnings.h"
#include "follow/SyslogSender.h"

namespace tool {

namespace {

// A poll's events as syslog messages, all stamped with the time they were read.
std::vector<std::string> syslogMessages(const std::vector<EventRow>& rows,
                                        const EventColumns& columns, const SyslogOrigin& origin) {
    const auto read = std::chrono::system_clock::now();
    std::vector<std::string> messages;
    messages.reserve(rows.size());
    for (const EventRow& row : rows) messages.push_back(syslogMessage(row, columns, origin, read));
    return messages;
}

std::unique_ptr<SyslogSender> syslogSenderFor(const FollowSettings& settings) {
    if (settings.syslog.empty()) return nullptr;
    return std::make_unique<SyslogSender>(parseSyslogAddress(settings.syslog));
}

}  // namespace

int follow(const std::vector<ConnectionProfile>& hosts, const ReadSettings& read,
           const PollSettings& polling, const FollowSettings& settings, Style style) {
    // A host that fails is said once, and said again when it answers again.
    std::vector<bool> failing(hosts.size(), false);
    std::vector<FullWarnings> fullness(hosts.size(), FullWarnings(settings.fullWarnings));
    // A clear that fails while the log stays full is said once, and again when its reason changes.
    std::vector<std::string> clearFailures(hosts.size());
    std::set<std::string> warnings;
    // With a log server, the events go there only.
    const std::unique_ptr<SyslogSender> syslog = syslogSenderFor(settings);
    const SyslogOrigin origin =
        localSyslogOrigin(settings.syslogFacility.value_or(kDaemonFacility));
    int status = 0;
    pollHosts(hosts, read, polling, [&](std::vector<SourcePoll>& results) {
        std::vector<EventRow> rows;
        std::string said;
        status = 0;
        for (std::size_t i = 0; i < hosts.size(); ++i) {
            SourcePoll& r = results[i];
            const std::string name = hostName(hosts[i].host);
            for (SourceEvent& event : r.events)
                rows.push_back({hosts[i].host, std::move(event), r.complete});
            const bool failed = r.failure != Failure::None;
            if (failed && !failing[i]) {
                said += "ipmi-event-log: " + r.failureText + "; trying again every " +
                        std::to_string(polling.interval) + " s\n";
            } else if (!failed && failing[i]) {
                said += "ipmi-event-log: " + name + " answers again\n";
            }
            if (r.skipped) {
                said += "ipmi-event-log: " + name + ": new events only: the " +
                        std::to_string(*r.skipped) + " in the " + r.health.name +
                        " now are not shown\n";
            }
            const bool saidBefore = r.clearFailure == clearFailures[i];
            clearFailures[i] = r.clearFailure;
            if (saidBefore) r.clearFailure.clear();
            said += changesText(name, r);
            for (const std::string& line : fullness[i].next(r.health))
                said += "ipmi-event-log: " + name + ": " + line + "\n";
            if (!r.complete) said += "ipmi-event-log: " + r.incompleteText + "\n";
            if (!r.warning.empty() && warnings.insert(r.warning).second)
                said += "ipmi-event-log: warning: " + r.warning + "\n";
            failing[i] = failed;
            status = std::max(status, exitStatus(r.failure, r.complete));
        }
        // Each poll's events as they come; the table's and CSV's header once, with the first.
        if (syslog) {
            said += syslog->deliver(syslogMessages(rows, style.columns, origin));
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
