// The targets of the multi-target exporter (/ipmi?target=HOST&module=NAME, as Prometheus scrapes
// the community's ipmi_exporter): a follower for each target and module, made at its first scrape
// and kept while it is scraped, so that a scrape reads only what is new. A target not scraped for
// the configuration's targets.forget_after is forgotten, and no more than its targets.limit are
// followed at once. Scrapes of one target that come while its
// poll is under way share that poll. With a state directory, each follower's state is kept there
// after each poll and taken up again when the exporter starts.
#pragma once

#include <httplib.h>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "exporter/ExporterConfig.h"
#include "exporter/Metrics.h"
#include "fleet/ConnectionProfile.h"
#include "fleet/EventSource.h"
#include "fleet/Polling.h"
#include "web/WebServer.h"

namespace tool {

struct TargetKey {
    std::string target;  // HOST[:PORT], as the scrape named it; or its canonical spelling
    std::string module;
    bool operator<(const TargetKey& other) const {
        return std::tie(target, module) < std::tie(other.target, other.module);
    }
};

// How a module reaches a target.
struct TargetConnection {
    std::string target;  // the target's canonical spelling (canonicalTarget); empty: as named
    ConnectionProfile profile;
    // How the target's events are worded (their severities, which the metrics count, with it).
    ReadSettings read;
    TargetLimits limits;  // how many targets may be followed, and for how long unscraped
};

// Records one poll of `host` and the events it brought.
void recordPoll(FleetMetrics& metrics, const std::string& host, const SourcePoll& poll);

class TargetScrapes {
public:
    // `stateDirectory`: where the sources' places are kept; empty: nowhere. `make` makes a
    // target's source.
    explicit TargetScrapes(std::string stateDirectory, SourceFactory make = makeEventSource);
    ~TargetScrapes();

    // One scrape of `key` (followed under connection.target, its canonical spelling) through
    // `connection`, answered within `limit`: the target's metrics, ours and those of
    // ipmi_exporter's names, in Prometheus' text format. A poll that takes longer is left to
    // finish for the next scrape, and this one answers ipmi_up 0. Throws ServiceUnavailable when
    // the target is new and connection.limits.limit targets are followed already.
    std::string scrape(const TargetKey& key, const TargetConnection& connection,
                       std::chrono::milliseconds limit);
    // How many targets are followed, not counting those due to be forgotten.
    std::size_t size() const;
    // Ends what the targets' sources keep open at their BMCs (Redfish sessions), as a
    // configuration read again may have changed the credentials: at once where no poll is under
    // way, else when it ends. Each target's place is kept.
    void disconnectAll();

private:
    struct Target;
    std::shared_ptr<Target> targetOf(const TargetKey& key, const TargetLimits& limits);
    // Drops the targets not scraped for `forgetAfter` whose poll has ended; `mutex_` held.
    void forgetUnscraped(std::chrono::steady_clock::time_point now);
    void poll(Target& target, const TargetKey& key, const TargetConnection& connection,
              std::chrono::milliseconds limit) const;
    static void pollEnded(Target& target);
    std::string statePath(const TargetKey& key, const EventSource& source) const;

    std::string stateDirectory_;
    SourceFactory make_;
    mutable std::mutex mutex_;
    std::map<TargetKey, std::shared_ptr<Target>> targets_;
    std::chrono::seconds forgetAfter_{TargetLimits().forgetAfter};  // the last scrape's
    httplib::ThreadPool polls_;  // the threads the polls run on, made once
};

}  // namespace tool
