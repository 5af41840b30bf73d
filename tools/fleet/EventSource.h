// Where a host's events come from, in terms no transport owns: what the outputs (tables, JSON,
// CSV, syslog, the journal, metrics) take of an event and of a poll, and the source that polls a
// host. The IPMI source (IpmiEventSource) is one; another transport is added beside it, and the
// outputs do not change.
#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "fleet/ConnectionProfile.h"

namespace tool {

enum class Severity { Info = 0, Warning = 1, Critical = 2 };

// A measured value and its units: a sensor's reading, a threshold.
struct Measurement {
    double value = 0;
    std::string units;
};

// One fact of an event's structured output: a JSON member, and the CSV cell of the column of that
// name (a measurement fills two: KEY and KEYUnits). Null is JSON's null and an empty cell.
struct EventField {
    using Value = std::variant<std::nullptr_t, unsigned long, std::string, std::vector<unsigned>,
                               Measurement>;
    std::string key;
    Value value;
};

using EventTime = std::chrono::system_clock::time_point;

struct SourceEvent {
    std::string id;  // as people read it: "0x002a" for a SEL record
    // The ID as a number, where the source numbers its records: programs get it (JSON, syslog),
    // and record ID ranges select by it.
    std::optional<unsigned long> number;
    std::optional<EventTime> time;  // when it happened; none when the record does not say
    std::string timeText;           // how the source words when, in UTC
    std::string localTimeText;      // the same in this machine's local time
    Severity severity = Severity::Info;
    std::string message;
    std::string source;
    std::string details;  // what else the source knows of it (the auxiliary log)
    // The rest of what the record says, for programs, in the order of the source's columns
    // (EventColumns); a fact that does not apply to this record is left out.
    std::vector<EventField> fields;
};

// The structured output's names of a kind of source: the ID's key, the columns of the facts
// that follow the common ones, as CSV's header lists them, and the facts syslog carries.
struct EventColumns {
    std::string idKey;
    bool numberedIds = false;  // programs get the ID as its number (SourceEvent::number)
    std::vector<std::string> facts;
    std::vector<std::string> syslogFacts;
};

// Why a request to a host failed; the tool's exit status is 10 + its number.
enum class Failure {
    None = 0,
    NotSupported = 1,
    Busy = 2,
    Connection = 3,
    Authentication = 4,
    NotFound = 5,
    Internal = 6
};

// A host's log, and how full it is as far as the source could tell.
struct LogHealth {
    std::string name;  // as the tool names it in what it says: "SEL"
    bool known = false;
    unsigned long entries = 0;
    std::optional<unsigned long> freeBytes;  // where the log counts its room in bytes
    // The room the entries take and the log's whole room, in one unit.
    unsigned long used = 0;
    unsigned long room = 0;
    bool overflow = false;  // entries were dropped for lack of room

    // The share of the room taken, from 0 to 1; 0 when unknown or empty.
    double fillRatio() const { return room == 0 ? 0 : static_cast<double>(used) / room; }
    // Whether at least `percent` (1 to 100) of the room is taken; false when unknown.
    bool fullTo(unsigned percent) const {
        return known && room != 0 && used * 100 >= static_cast<unsigned long>(percent) * room;
    }
};

// What one poll of a host found.
struct SourcePoll {
    Failure failure = Failure::None;
    std::string failureText;  // a line naming the host, what failed and what to check
    // Whether the log was read to its end; when not, the events read before are here, and
    // `incompleteText` says why, naming the host.
    bool complete = true;
    std::string incompleteText;
    bool cleared = false;      // the log was cleared since the last poll
    bool emptied = false;      // this poll cleared it, full, every entry in it read first
    std::string clearFailure;  // why it could not
    LogHealth health;
    // The entries there were when a poll asked to skip them first read the whole log.
    std::optional<unsigned long> skipped;
    unsigned long entriesRead = 0;  // entries new to this poll
    std::string warning;            // what to know about how the host was reached
    double seconds = 0;             // how long the poll took
    std::vector<SourceEvent> events;
};

// A host's log, read poll after poll, each time what is new since the last.
class EventSource {
public:
    virtual ~EventSource() = default;

    // The host as the tool names it in what it says.
    virtual std::string hostName() const = 0;
    // The kind of source, which names its state files beside others of the same host.
    virtual std::string kind() const = 0;
    // The first poll reads the whole log. `skipping`: the entries there are are taken as read,
    // none of them made an event.
    virtual SourcePoll poll(bool skipping = false) = 0;
    // The whole log, as a source without state reads it; incomplete where the read ended before
    // the log's end, for whatever reason.
    virtual SourcePoll readWhole() = 0;
    // From the next poll on, reaches the host and reads its log so (other credentials, a shorter
    // timeout, from a configuration read again), its place kept.
    virtual void reconfigure(const ConnectionProfile& profile, const ReadSettings& settings) = 0;
    // Ends what the source keeps open at its host between polls (a Redfish session); the next
    // poll opens it again. Never throws.
    virtual void disconnect() {}
    // Takes up the place kept in `path`; the warning that says why it cannot (no file yet is no
    // warning, and the whole log is read).
    virtual std::string loadState(const std::string& path) = 0;
    // Keeps the place reached in `path`; the warning that says why it cannot.
    virtual std::string saveState(const std::string& path) const = 0;
};

}  // namespace tool
