// What follow, list --state and serve share: hosts polled through an event source each, `fanout`
// at a time, every `interval` seconds, until a stop is asked for (SIGINT, SIGTERM) or `polls`
// polls are done; the events a command keeps; where the sources keep their places.
#pragma once

#include <ctime>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fleet/ConnectionProfile.h"
#include "fleet/EventSource.h"

namespace tool {

// The events a command keeps of those read.
struct EventFilter {
    Severity minimum = Severity::Info;
    // Record IDs, for sources that number their records (SourceEvent::number); all by default.
    unsigned long firstId = 0;
    unsigned long lastId = std::numeric_limits<unsigned long>::max();
    // When they happened: an event whose source does not know when is in no range.
    std::optional<std::time_t> since;
    std::optional<std::time_t> until;
    std::size_t last = 0;  // the last N of those kept; 0: all
};

struct PollSettings {
    EventFilter filter;  // `last` applies to the first poll only
    unsigned interval = 10;
    unsigned long polls = 0;  // 0: until a stop is asked for
    bool newOnly = false;     // the entries there are at the start are not made events
    unsigned fanout = 256;
    std::string stateDirectory;  // where each host's place is kept; empty: nowhere
};

// The tool's exit status for a request that ended so: 0; 3 for a read that ended before the
// log's end; 10 + the failure (11 not supported ... 16 internal failure).
int exitStatus(Failure failure, bool complete);

// What a poll found the log went through (cleared; cleared by the poll, or not), a line each,
// naming the host.
std::string changesText(const std::string& hostName, const SourcePoll& poll);

// The source that reads `profile`'s host.
std::unique_ptr<EventSource> makeEventSource(const ConnectionProfile& profile,
                                             const ReadSettings& settings);
using SourceFactory = std::function<std::unique_ptr<EventSource>(const ConnectionProfile& profile,
                                                                 const ReadSettings& settings)>;

// Drops from `events` those `filter` does not keep.
void keepEvents(std::vector<SourceEvent>& events, const EventFilter& filter);

// The file in `directory` that keeps the place of `name` (a host; a target and its module) in a
// source of `kind`. An IPMI source's is NAME.state, as it always was; others', NAME.KIND.state.
std::string stateFileIn(const std::string& directory, std::string name, const std::string& kind);
// The file whose lock keeps a state to one process: PATH.lock beside a state file, or
// ipmi-event-log.lock in a state directory.
std::string stateLockFile(const std::string& path, bool directory);
// Takes the lock of `lockFile` for the rest of the process (the system releases it when the
// process ends, however it ends). False when another process holds it, with `message` the refusal
// naming `state`; true otherwise, with `message` a warning when no lock could be made there.
bool lockState(const std::string& lockFile, const std::string& state, std::string& message);

// Says `warning` on standard error, one whole line whatever thread says it; nothing when empty.
void sayWarning(const std::string& warning);

// From now on SIGHUP asks for a reload, which reloadWhenAsked carries out.
void catchReloadSignal();
// Calls `reload` each time SIGHUP asks for it, until a stop is asked for (SIGINT, SIGTERM).
void reloadWhenAsked(const std::function<void()>& reload);

// Polls `hosts`, through the sources `make` makes, until told to stop; hands each poll's results,
// in the hosts' order, to `report`, their events filtered. With a state directory, the hosts'
// places are saved after `report` returned true, saying that the events are written out: a run
// stopped at any moment shows again, at worst, events it showed, and misses none.
void pollHosts(const std::vector<ConnectionProfile>& hosts, const ReadSettings& read,
               const PollSettings& settings,
               const std::function<bool(std::vector<SourcePoll>& results)>& report,
               const SourceFactory& make = makeEventSource);

}  // namespace tool
