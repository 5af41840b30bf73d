// The event source of a BMC reached over Redfish: its hardware event logs (LogServices of its
// systems, managers and chassis), found once and then read poll after poll, each time only what
// was added; every LogEntry an event, an IPMI SEL record carried in an entry worded as the IPMI
// source words it.
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "fleet/ConnectionProfile.h"
#include "fleet/EventSource.h"
#include "fleet/RedfishClient.h"
#include "fleet/RedfishEntries.h"
#include "fleet/RedfishRegistries.h"

namespace tool {

// A log the source reads, as status -v and clear speak of it.
struct RedfishLogService {
    std::string path;  // the LogService's; empty for an older iDRAC's SEL outside them
    std::string name;  // its Name, else its Id
    std::string id;
    bool chosen = false;  // named with --log; otherwise a hardware event log, read by default
    std::optional<unsigned long> entries;  // as its Entries collection counts them, where asked
    std::optional<unsigned long> maxRecords;
    std::string clearTarget;  // where its LogService.ClearLog action is POSTed; empty: none
};

class RedfishEventSource : public EventSource {
public:
    using TransportFactory =
        std::function<std::unique_ptr<RedfishTransport>(const ConnectionProfile& profile)>;

    // `make`: how the transport to the profile's host is made (libcurl's; a test's script).
    RedfishEventSource(const ConnectionProfile& profile, const ReadSettings& settings,
                       TransportFactory make = makeCurlTransport);
    ~RedfishEventSource() override;

    std::string hostName() const override;
    std::string kind() const override { return "redfish"; }
    SourcePoll poll(bool skipping) override;
    SourcePoll readWhole() override;
    void reconfigure(const ConnectionProfile& profile, const ReadSettings& settings) override;
    std::string loadState(const std::string& path) override;
    std::string saveState(const std::string& path) const override;

    // Ends the service's session now rather than when the source goes.
    void disconnect() override;
    // The logs the source reads, found anew, the place kept left as it is; `counted`: each with
    // the count of its entries (a request more a log). Throws RedfishError.
    std::vector<RedfishLogService> findLogs(bool counted);
    // Empties `log` by its ClearLog action. Throws RedfishError, Failure::NotSupported for a log
    // without the action.
    void clearLog(const RedfishLogService& log);
    // The session, for the tests: its requests counted, its waits.
    RedfishSession& session() { return *session_; }
    // The place kept, as saveState writes it.
    std::string stateText() const;
    // Takes up a place stateText gave; false, the place unchanged, for anything else.
    bool loadStateText(const std::string& text);

    // One log followed: where its entries are, and the newest entry read.
    struct LogPlace {
        std::string entries;  // the path of its LogEntry collection
        std::string name;     // as the service names the LogService
        std::optional<unsigned long> maxRecords;
        unsigned long count = 0;  // entries read, in the log's order
        std::string newestId;     // the last of them; empty: none yet
        std::string newestCreated;
        bool newestFirst = false;  // the service lists the log from its newest entry
        // As discovery found the LogService (not kept in the state).
        std::string service{};
        std::string id{};
        std::string clearTarget{};
    };

private:
    struct Place {
        bool discovered = false;
        bool skipQuery = false;  // the service takes $skip and $top
        std::vector<LogPlace> logs;
    };

    std::unique_ptr<RedfishSession> makeSession() const;
    void discover(Place& place);
    // Reads what is new in `log` (everything without a place), page after page, each page's
    // events added to `out` and the place moved on with them.
    void readLog(LogPlace& log, bool useSkip, bool makeEvents, SourcePoll& out, bool& cleared);
    // Adds the log's count and room to the poll's health.
    static void health(const LogPlace& log, std::optional<unsigned long> total, SourcePoll& out);
    SourcePoll run(Place& place, bool makeEvents, bool whole);
    // What an entry's AdditionalDataURI holds, where it is an IPMI SEL record.
    std::optional<std::array<std::uint8_t, 16>> selRecordAt(const std::string& uri);
    RedfishLookups entryLookups();

    std::string host_;
    ConnectionProfile profile_;
    TransportFactory make_;
    std::unique_ptr<RedfishSession> session_;
    Place place_;
    RedfishRegistries registries_;
};

}  // namespace tool
