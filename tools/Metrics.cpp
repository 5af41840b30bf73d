#include "Metrics.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include "TimeStamps.h"

namespace tool {

namespace {

const char* const kSeverities[] = {"info", "warning", "critical"};

// A label value: backslash, double quote and line feed escaped.
std::string labelValue(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\' || c == '"') out += '\\';
        if (c == '\n') {
            out += "\\n";
            continue;
        }
        out += c;
    }
    return out;
}

std::string number(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

void family(std::ostringstream& out, const char* name, const char* type, const char* help) {
    out << "# HELP " << name << " " << help << "\n# TYPE " << name << " " << type << "\n";
}

}  // namespace

FleetMetrics::FleetMetrics(std::vector<std::string> hosts) : order_(std::move(hosts)) {
    for (const std::string& host : order_) hosts_[host];
}

void FleetMetrics::recordPoll(const std::string& host, const PollFacts& poll,
                              const std::vector<Tolmar::TolmarAgentless::IPMIEVENT>& events) {
    Host& h = hosts_[host];
    h.polled = true;
    h.up = poll.up;
    h.complete = poll.complete;
    h.selEntries += poll.selEntries;
    if (poll.cleared) ++h.clears;
    if (poll.emptied) ++h.fullClears;
    if (poll.sel.known) h.sel = poll.sel;
    h.lastPollSeconds = poll.seconds;
    for (const auto& event : events) {
        const int severity = std::clamp(event.severity, 0, 2);
        ++h.events[severity];
        if (severity != 2) continue;
        const std::optional<std::time_t> moment = parseEventTime(event.timeStamp);
        if (moment && (!h.newestCritical || *moment > *h.newestCritical)) h.newestCritical = moment;
    }
}

std::string FleetMetrics::text() const {
    std::ostringstream out;
    const auto eachHost = [&](const auto& line) {
        for (const std::string& name : order_) {
            const Host& h = hosts_.at(name);
            if (h.polled) line("{host=\"" + labelValue(name.empty() ? "local" : name) + "\"", h);
        }
    };
    family(out, "ipmi_event_log_up", "gauge", "Whether the last poll of the BMC succeeded.");
    eachHost([&](const std::string& labels, const Host& h) {
        out << "ipmi_event_log_up" << labels << "} " << (h.up ? 1 : 0) << "\n";
    });
    family(out, "ipmi_event_log_incomplete", "gauge",
           "Whether the last poll lost the BMC part way through the SEL.");
    eachHost([&](const std::string& labels, const Host& h) {
        out << "ipmi_event_log_incomplete" << labels << "} " << (h.complete ? 0 : 1) << "\n";
    });
    family(out, "ipmi_event_log_last_poll_duration_seconds", "gauge",
           "How long the last poll of the BMC took.");
    eachHost([&](const std::string& labels, const Host& h) {
        out << "ipmi_event_log_last_poll_duration_seconds" << labels << "} "
            << number(h.lastPollSeconds) << "\n";
    });
    family(out, "ipmi_event_log_events_total", "counter",
           "Events read from the BMC's SEL since the exporter started, by severity.");
    eachHost([&](const std::string& labels, const Host& h) {
        for (int s = 0; s < 3; ++s) {
            out << "ipmi_event_log_events_total" << labels << ",severity=\"" << kSeverities[s]
                << "\"} " << h.events[s] << "\n";
        }
    });
    family(out, "ipmi_event_log_newest_critical_event_timestamp_seconds", "gauge",
           "The time stamp of the newest critical event read from the BMC (Unix time).");
    eachHost([&](const std::string& labels, const Host& h) {
        if (h.newestCritical) {
            out << "ipmi_event_log_newest_critical_event_timestamp_seconds" << labels << "} "
                << *h.newestCritical << "\n";
        }
    });
    family(out, "ipmi_event_log_sel_entries_read_total", "counter",
           "SEL entries read from the BMC since the exporter started.");
    eachHost([&](const std::string& labels, const Host& h) {
        out << "ipmi_event_log_sel_entries_read_total" << labels << "} " << h.selEntries << "\n";
    });
    family(out, "ipmi_event_log_sel_clears_total", "counter",
           "Clears of the BMC's SEL found since the exporter started.");
    eachHost([&](const std::string& labels, const Host& h) {
        out << "ipmi_event_log_sel_clears_total" << labels << "} " << h.clears << "\n";
    });
    family(out, "ipmi_event_log_sel_full_clears_total", "counter",
           "Clears of the BMC's SEL the exporter made, every record read first, when it was full.");
    eachHost([&](const std::string& labels, const Host& h) {
        out << "ipmi_event_log_sel_full_clears_total" << labels << "} " << h.fullClears << "\n";
    });
    const auto selGauge = [&](const char* name, const char* help, const auto& value) {
        family(out, name, "gauge", help);
        eachHost([&](const std::string& labels, const Host& h) {
            if (h.sel.known) out << name << labels << "} " << value(h.sel) << "\n";
        });
    };
    selGauge("ipmi_event_log_sel_entries", "Records in the BMC's SEL.",
             [](const Tolmar::SelHealth& sel) { return std::to_string(sel.entries); });
    selGauge("ipmi_event_log_sel_free_bytes",
             "Free space in the BMC's SEL, in bytes (65535: that much or more).",
             [](const Tolmar::SelHealth& sel) { return std::to_string(sel.freeBytes); });
    selGauge("ipmi_event_log_sel_fill_ratio",
             "The share of the BMC's SEL its records take, from 0 to 1.",
             [](const Tolmar::SelHealth& sel) { return number(sel.FillRatio()); });
    selGauge("ipmi_event_log_sel_overflow",
             "Whether the BMC dropped events for lack of space in its SEL.",
             [](const Tolmar::SelHealth& sel) { return std::string(sel.overflow ? "1" : "0"); });
    family(out, "ipmi_event_log_polls_total", "counter",
           "Polls of the whole fleet since the exporter started.");
    out << "ipmi_event_log_polls_total " << polls_ << "\n";
    return out.str();
}

}  // namespace tool
