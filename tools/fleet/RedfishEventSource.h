// The event source of a BMC reached over Redfish: its hardware event logs (LogServices of its
// systems, managers and chassis), found once and then read poll after poll, each time only what
// was added; every LogEntry an event, an IPMI SEL record carried in an entry worded as the IPMI
// source words it.
#pragma once

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

namespace tool {

// What an entry lacks or holds wrongly for it to be made an event.
class RedfishEntryError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// "2024-02-29T12:00:00+02:00" (fractions of a second and "Z" allowed) as the UTC moment it names;
// nothing for another text, or a year before 1900 or after 2199.
std::optional<std::time_t> parseRedfishTime(const std::string& text);

// The text of a message `messageId` ("OpenBMC.0.1.DCPowerOn") names with `args` put in, from the
// messages this source knows; else "MessageId: arg, arg".
std::string redfishMessageText(const std::string& messageId, const std::vector<std::string>& args);

// A LogEntry of the log named `log` as an event of the source, its facts named as
// redfishEventColumns names them. Throws RedfishEntryError for an entry without an Id or with a
// member of the wrong type.
SourceEvent redfishEvent(const nlohmann::json& entry, const std::string& log);
const EventColumns& redfishEventColumns();

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
    void logout();
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
    };

private:
    struct Place {
        bool discovered = false;
        bool skipQuery = false;  // the service takes $skip and $top
        std::vector<LogPlace> logs;
    };

    void discover(Place& place);
    // Reads what is new in `log` (everything without a place), page after page, each page's
    // events added to `out` and the place moved on with them.
    void readLog(LogPlace& log, bool useSkip, bool makeEvents, SourcePoll& out, bool& cleared);
    // Adds the log's count and room to the poll's health.
    static void health(const LogPlace& log, std::optional<unsigned long> total, SourcePoll& out);
    SourcePoll run(Place& place, bool makeEvents, bool whole);

    std::string host_;
    ConnectionProfile profile_;
    TransportFactory make_;
    std::unique_ptr<RedfishSession> session_;
    Place place_;
};

}  // namespace tool
