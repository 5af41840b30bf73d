#include "exporter/Metrics.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

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

// A series' name: the metric's, with its labels in braces when it has any.
std::string seriesName(const std::string& name, const std::string& labels) {
    return labels.empty() ? name : name + "{" + labels + "}";
}

void family(std::ostringstream& out, const char* name, const char* type, const char* help) {
    out << "# HELP " << name << " " << help << "\n# TYPE " << name << " " << type << "\n";
}

}  // namespace

std::string ipmiExporterText(bool up, double seconds, const LogHealth& sel) {
    std::ostringstream out;
    const auto gauge = [&](const char* name, const char* help, const std::string& series,
                           const std::string& value) {
        family(out, name, "gauge", help);
        out << series << " " << value << "\n";
    };
    if (up && sel.known) {
        const std::string entries = std::to_string(sel.entries);
        gauge("ipmi_sel_entries_count", "Current number of log entries in the SEL.",
              "ipmi_sel_entries_count", entries);
        gauge("ipmi_sel_logs_count", "Current number of log entries in the SEL.",
              "ipmi_sel_logs_count", entries);
        if (sel.freeBytes) {
            gauge("ipmi_sel_free_space_bytes", "Current free space remaining for new SEL entries.",
                  "ipmi_sel_free_space_bytes", std::to_string(*sel.freeBytes));
        }
    }
    gauge("ipmi_up", "'1' if a scrape of the IPMI device was successful, '0' otherwise.",
          "ipmi_up{collector=\"sel\"}", up ? "1" : "0");
    gauge("ipmi_scrape_duration_seconds",
          "Returns how long the scrape took to complete in seconds.",
          "ipmi_scrape_duration_seconds", number(seconds));
    return out.str();
}

std::string targetsText(std::size_t targets) {
    std::ostringstream out;
    family(out, "ipmi_event_log_targets", "gauge",
           "Targets followed for /ipmi's scrapes, each with its module.");
    out << "ipmi_event_log_targets " << targets << "\n";
    return out.str();
}

FleetMetrics::FleetMetrics(std::vector<std::string> hosts, bool hostLabels)
    : order_(std::move(hosts)), hostLabels_(hostLabels) {
    for (const std::string& host : order_) hosts_[host];
}

void FleetMetrics::recordPoll(const std::string& host, const PollFacts& poll,
                              const std::vector<EventFacts>& events) {
    Host& h = hosts_[host];
    h.polled = true;
    h.up = poll.up;
    h.complete = poll.complete;
    h.selEntries += poll.selEntries;
    if (poll.cleared) ++h.clears;
    if (poll.emptied) ++h.fullClears;
    if (poll.health.known) h.sel = poll.health;
    h.lastPollSeconds = poll.seconds;
    for (const auto& event : events) {
        ++h.events[static_cast<int>(event.severity)];
        if (event.severity != Severity::Critical) continue;
        if (event.time && (!h.newestCritical || *event.time > *h.newestCritical))
            h.newestCritical = event.time;
    }
}

std::string FleetMetrics::text() const {
    std::ostringstream out;
    // Each polled host's samples, named with its label (none for a single target's metrics).
    const auto eachHost = [&](const auto& line) {
        for (const std::string& name : order_) {
            const Host& h = hosts_.at(name);
            const std::string label =
                hostLabels_ ? "host=\"" + labelValue(name.empty() ? "local" : name) + "\"" : "";
            if (h.polled) line(label, h);
        }
    };
    const auto gauge = [&](const char* name, const char* help, const auto& value) {
        family(out, name, "gauge", help);
        eachHost([&](const std::string& label, const Host& h) {
            const std::string text = value(h);
            if (!text.empty()) out << seriesName(name, label) << " " << text << "\n";
        });
    };
    const auto counter = [&](const char* name, const char* help, const auto& value) {
        family(out, name, "counter", help);
        eachHost([&](const std::string& label, const Host& h) {
            out << seriesName(name, label) << " " << value(h) << "\n";
        });
    };
    gauge("ipmi_event_log_up", "Whether the last poll of the BMC succeeded.",
          [](const Host& h) { return std::string(h.up ? "1" : "0"); });
    gauge("ipmi_event_log_incomplete",
          "Whether the last poll lost the BMC part way through the SEL.",
          [](const Host& h) { return std::string(h.complete ? "0" : "1"); });
    gauge("ipmi_event_log_last_poll_duration_seconds", "How long the last poll of the BMC took.",
          [](const Host& h) { return number(h.lastPollSeconds); });
    family(out, "ipmi_event_log_events_total", "counter",
           "Events read from the BMC's SEL since the exporter started, by severity.");
    eachHost([&](const std::string& label, const Host& h) {
        for (int s = 0; s < 3; ++s) {
            const std::string severity = std::string("severity=\"") + kSeverities[s] + "\"";
            out << seriesName("ipmi_event_log_events_total",
                              label.empty() ? severity : label + "," + severity)
                << " " << h.events[s] << "\n";
        }
    });
    gauge("ipmi_event_log_newest_critical_event_timestamp_seconds",
          "The time stamp of the newest critical event read from the BMC (Unix time).",
          [](const Host& h) {
              return h.newestCritical ? std::to_string(*h.newestCritical) : std::string();
          });
    counter("ipmi_event_log_sel_entries_read_total",
            "SEL entries read from the BMC since the exporter started.",
            [](const Host& h) { return h.selEntries; });
    counter("ipmi_event_log_sel_clears_total",
            "Clears of the BMC's SEL found since the exporter started.",
            [](const Host& h) { return h.clears; });
    counter("ipmi_event_log_sel_full_clears_total",
            "Clears of the BMC's SEL the exporter made, every record read first, when it was full.",
            [](const Host& h) { return h.fullClears; });
    // The SEL's health, of the hosts whose last poll could tell.
    const auto selGauge = [&](const char* name, const char* help, const auto& value) {
        gauge(name, help,
              [&](const Host& h) { return h.sel.known ? value(h.sel) : std::string(); });
    };
    selGauge("ipmi_event_log_sel_entries", "Records in the BMC's SEL.",
             [](const LogHealth& sel) { return std::to_string(sel.entries); });
    selGauge("ipmi_event_log_sel_free_bytes",
             "Free space in the BMC's SEL, in bytes (65535: that much or more).",
             [](const LogHealth& sel) {
                 return sel.freeBytes ? std::to_string(*sel.freeBytes) : std::string();
             });
    selGauge("ipmi_event_log_sel_fill_ratio",
             "The share of the BMC's SEL its records take, from 0 to 1.",
             [](const LogHealth& sel) { return number(sel.fillRatio()); });
    selGauge("ipmi_event_log_sel_overflow",
             "Whether the BMC dropped events for lack of space in its SEL.",
             [](const LogHealth& sel) { return std::string(sel.overflow ? "1" : "0"); });
    family(out, "ipmi_event_log_polls_total", "counter",
           hostLabels_ ? "Polls of the whole fleet since the exporter started."
                       : "Polls of the BMC since the exporter started.");
    out << "ipmi_event_log_polls_total " << polls_ << "\n";
    return out.str();
}

}  // namespace tool
