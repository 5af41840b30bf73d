// What ipmi-event-log serve tells Prometheus about a fleet, in its text exposition format
// (version 0.0.4): per host, the events read since the exporter started by severity, the newest
// critical event's time stamp, SEL entries read, clears of the SEL, how full the SEL is, and how
// the last poll went.
#pragma once

#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fleet/EventSource.h"

namespace tool {

// How one poll of a host went.
struct PollFacts {
    bool up = false;               // it succeeded
    bool complete = true;          // it read to the SEL's end
    bool cleared = false;          // it found the SEL cleared
    unsigned long selEntries = 0;  // SEL entries it read
    double seconds = 0;            // how long it took
    bool emptied = false;          // it cleared the SEL, full (--clear-when-full)
    LogHealth health;              // how full it found the SEL
};

// What the metrics take of one event: its severity and the moment it happened, when its source
// knows it.
struct EventFacts {
    Severity severity = Severity::Info;
    std::optional<std::time_t> time;
};

// What the community's ipmi_exporter answers for a scrape of one target with its `sel` collector,
// under its names and help texts: whether the scrape succeeded, how long it took, and, when it
// did, the SEL's entry count (under both names that exporter has used) and free space.
std::string ipmiExporterText(bool up, double seconds, const LogHealth& sel);

// The exporter's own metric beside the fleet's: how many targets /ipmi's scrapes have it follow.
std::string targetsText(std::size_t targets);

class FleetMetrics {
public:
    // `hostLabels`: each series names its host; without, the metrics of a single target, as a
    // scrape of one target answers them.
    explicit FleetMetrics(std::vector<std::string> hosts, bool hostLabels = true);

    // One poll of `host`, and the events it brought.
    void recordPoll(const std::string& host, const PollFacts& poll,
                    const std::vector<EventFacts>& events);
    void recordFleetPoll() { ++polls_; }

    std::string text() const;

private:
    struct Host {
        bool polled = false;
        bool up = false;
        bool complete = true;
        unsigned long events[3] = {};  // info, warning, critical
        std::optional<std::time_t> newestCritical;
        unsigned long selEntries = 0;
        unsigned long clears = 0;
        unsigned long fullClears = 0;
        LogHealth sel;  // as the last poll that could tell found it
        double lastPollSeconds = 0;
    };

    std::vector<std::string> order_;
    bool hostLabels_;
    std::map<std::string, Host> hosts_;
    unsigned long polls_ = 0;
};

}  // namespace tool
