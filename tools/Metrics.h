// What ipmi-event-log serve tells Prometheus about a fleet, in its text exposition format
// (version 0.0.4): per host, the events read since the exporter started by severity, the newest
// critical event's time stamp, SEL entries read, and how the last poll went.
#pragma once

#include <IpmiEventLog.h>

#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tool {

class FleetMetrics {
public:
    explicit FleetMetrics(std::vector<std::string> hosts);

    // One poll of `host`: whether it succeeded, whether it read to the end, the events it
    // brought, the SEL entries it read and how long it took.
    void recordPoll(const std::string& host, bool up, bool complete,
                    const std::vector<Tolmar::TolmarAgentless::IPMIEVENT>& events,
                    unsigned long selEntries, double seconds);
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
        double lastPollSeconds = 0;
    };

    std::vector<std::string> order_;
    std::map<std::string, Host> hosts_;
    unsigned long polls_ = 0;
};

}  // namespace tool
