// The exporter's text for Prometheus: exact lines, label values escaped, hosts not yet polled and
// hosts without a critical event left out of the families that do not apply.
#include <gtest/gtest.h>

#include "base/TimeText.h"
#include "exporter/Metrics.h"

namespace {

using tool::Severity;

// An event of `severity` whose record was stamped at `timeStamp` (nothing for "Unspecified").
tool::EventFacts event(Severity severity, const char* timeStamp) {
    return {severity, tool::parseMonthDayYear(timeStamp)};
}

// A SEL as the IPMI source tells it: `entries` records of 16 bytes, and `freeBytes` more.
tool::LogHealth health(unsigned long entries, unsigned long freeBytes, bool overflow) {
    tool::LogHealth sel;
    sel.known = true;
    sel.entries = entries;
    sel.freeBytes = freeBytes;
    sel.used = entries * 16;
    sel.room = sel.used + freeBytes;
    sel.overflow = overflow;
    return sel;
}

TEST(FleetMetricsTest, CountsEventsBySeverityAndKeepsTheNewestCriticalTime) {
    tool::FleetMetrics metrics({"bmc1", "b\"m\\c2", "never-polled"});
    metrics.recordPoll(
        "bmc1", {true, true, false, 4, 0.25, true, health(10, 63840, false)},
        {event(Severity::Critical, "03/12/2015 16:58:14"),
         event(Severity::Critical, "03/11/2015 08:00:00"),
         event(Severity::Warning, "03/12/2015 17:00:00"), event(Severity::Info, "Unspecified")});
    metrics.recordPoll("bmc1", {true, false, true, 2, 0.5, false, health(4000, 0, true)},
                       {event(Severity::Critical, "Unspecified")});
    // A host that never answered Get SEL Info has no SEL gauges.
    metrics.recordPoll("b\"m\\c2", {false, true, false, 0, 10, false, {}}, {});
    metrics.recordFleetPoll();
    metrics.recordFleetPoll();
    EXPECT_EQ(metrics.text(),
              "# HELP ipmi_event_log_up Whether the last poll of the BMC succeeded.\n"
              "# TYPE ipmi_event_log_up gauge\n"
              "ipmi_event_log_up{host=\"bmc1\"} 1\n"
              "ipmi_event_log_up{host=\"b\\\"m\\\\c2\"} 0\n"
              "# HELP ipmi_event_log_incomplete Whether the last poll lost the BMC part way "
              "through the SEL.\n"
              "# TYPE ipmi_event_log_incomplete gauge\n"
              "ipmi_event_log_incomplete{host=\"bmc1\"} 1\n"
              "ipmi_event_log_incomplete{host=\"b\\\"m\\\\c2\"} 0\n"
              "# HELP ipmi_event_log_last_poll_duration_seconds How long the last poll of the "
              "BMC took.\n"
              "# TYPE ipmi_event_log_last_poll_duration_seconds gauge\n"
              "ipmi_event_log_last_poll_duration_seconds{host=\"bmc1\"} 0.5\n"
              "ipmi_event_log_last_poll_duration_seconds{host=\"b\\\"m\\\\c2\"} 10\n"
              "# HELP ipmi_event_log_events_total Events read from the BMC's SEL since the "
              "exporter started, by severity.\n"
              "# TYPE ipmi_event_log_events_total counter\n"
              "ipmi_event_log_events_total{host=\"bmc1\",severity=\"info\"} 1\n"
              "ipmi_event_log_events_total{host=\"bmc1\",severity=\"warning\"} 1\n"
              "ipmi_event_log_events_total{host=\"bmc1\",severity=\"critical\"} 3\n"
              "ipmi_event_log_events_total{host=\"b\\\"m\\\\c2\",severity=\"info\"} 0\n"
              "ipmi_event_log_events_total{host=\"b\\\"m\\\\c2\",severity=\"warning\"} 0\n"
              "ipmi_event_log_events_total{host=\"b\\\"m\\\\c2\",severity=\"critical\"} 0\n"
              "# HELP ipmi_event_log_newest_critical_event_timestamp_seconds The time stamp of "
              "the newest critical event read from the BMC (Unix time).\n"
              "# TYPE ipmi_event_log_newest_critical_event_timestamp_seconds gauge\n"
              "ipmi_event_log_newest_critical_event_timestamp_seconds{host=\"bmc1\"} "
              "1426179494\n"
              "# HELP ipmi_event_log_sel_entries_read_total SEL entries read from the BMC since "
              "the exporter started.\n"
              "# TYPE ipmi_event_log_sel_entries_read_total counter\n"
              "ipmi_event_log_sel_entries_read_total{host=\"bmc1\"} 6\n"
              "ipmi_event_log_sel_entries_read_total{host=\"b\\\"m\\\\c2\"} 0\n"
              "# HELP ipmi_event_log_sel_clears_total Clears of the BMC's SEL found since the "
              "exporter started.\n"
              "# TYPE ipmi_event_log_sel_clears_total counter\n"
              "ipmi_event_log_sel_clears_total{host=\"bmc1\"} 1\n"
              "ipmi_event_log_sel_clears_total{host=\"b\\\"m\\\\c2\"} 0\n"
              "# HELP ipmi_event_log_sel_full_clears_total Clears of the BMC's SEL the exporter "
              "made, every record read first, when it was full.\n"
              "# TYPE ipmi_event_log_sel_full_clears_total counter\n"
              "ipmi_event_log_sel_full_clears_total{host=\"bmc1\"} 1\n"
              "ipmi_event_log_sel_full_clears_total{host=\"b\\\"m\\\\c2\"} 0\n"
              "# HELP ipmi_event_log_sel_entries Records in the BMC's SEL.\n"
              "# TYPE ipmi_event_log_sel_entries gauge\n"
              "ipmi_event_log_sel_entries{host=\"bmc1\"} 4000\n"
              "# HELP ipmi_event_log_sel_free_bytes Free space in the BMC's SEL, in bytes (65535: "
              "that much or more).\n"
              "# TYPE ipmi_event_log_sel_free_bytes gauge\n"
              "ipmi_event_log_sel_free_bytes{host=\"bmc1\"} 0\n"
              "# HELP ipmi_event_log_sel_fill_ratio The share of the BMC's SEL its records take, "
              "from 0 to 1.\n"
              "# TYPE ipmi_event_log_sel_fill_ratio gauge\n"
              "ipmi_event_log_sel_fill_ratio{host=\"bmc1\"} 1\n"
              "# HELP ipmi_event_log_sel_overflow Whether the BMC dropped events for lack of space "
              "in its SEL.\n"
              "# TYPE ipmi_event_log_sel_overflow gauge\n"
              "ipmi_event_log_sel_overflow{host=\"bmc1\"} 1\n"
              "# HELP ipmi_event_log_polls_total Polls of the whole fleet since the exporter "
              "started.\n"
              "# TYPE ipmi_event_log_polls_total counter\n"
              "ipmi_event_log_polls_total 2\n");
}

TEST(FleetMetricsTest, ASingleTargetsSeriesCarryNoHostLabel) {
    tool::FleetMetrics metrics({"bmc1"}, false);
    metrics.recordPoll("bmc1", {true, true, false, 1, 0.5, false, health(1, 16, false)},
                       {event(Severity::Critical, "03/12/2015 16:58:14")});
    metrics.recordFleetPoll();
    const std::string text = metrics.text();
    for (const char* line :
         {"ipmi_event_log_up 1\n", "ipmi_event_log_events_total{severity=\"critical\"} 1\n",
          "ipmi_event_log_sel_fill_ratio 0.5\n",
          "# HELP ipmi_event_log_polls_total Polls of the BMC since the exporter started.\n"}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << text;
    }
    EXPECT_EQ(text.find("host="), std::string::npos);
}

TEST(FleetMetricsTest, IpmiExportersMetricsAreItsNamesAndHelpTexts) {
    EXPECT_EQ(tool::ipmiExporterText(true, 0.25, health(35, 64000, false)),
              "# HELP ipmi_sel_entries_count Current number of log entries in the SEL.\n"
              "# TYPE ipmi_sel_entries_count gauge\n"
              "ipmi_sel_entries_count 35\n"
              "# HELP ipmi_sel_logs_count Current number of log entries in the SEL.\n"
              "# TYPE ipmi_sel_logs_count gauge\n"
              "ipmi_sel_logs_count 35\n"
              "# HELP ipmi_sel_free_space_bytes Current free space remaining for new SEL entries.\n"
              "# TYPE ipmi_sel_free_space_bytes gauge\n"
              "ipmi_sel_free_space_bytes 64000\n"
              "# HELP ipmi_up '1' if a scrape of the IPMI device was successful, '0' otherwise.\n"
              "# TYPE ipmi_up gauge\n"
              "ipmi_up{collector=\"sel\"} 1\n"
              "# HELP ipmi_scrape_duration_seconds Returns how long the scrape took to complete in "
              "seconds.\n"
              "# TYPE ipmi_scrape_duration_seconds gauge\n"
              "ipmi_scrape_duration_seconds 0.25\n");
    // A failed scrape has no SEL metrics, as ipmi_exporter's has none.
    EXPECT_EQ(tool::ipmiExporterText(false, 2, health(35, 64000, false)).find("ipmi_sel_"),
              std::string::npos);
}

}  // namespace
