// One request of the tool to one host (list, show, raw, get, delete, clear, add, status), what
// came of it, and the texts that say so.
#pragma once

#include <IpmiConnectionSettings.h>

#include <memory>
#include <string>
#include <vector>

#include "cli/Options.h"
#include "fleet/ConnectionProfile.h"
#include "fleet/EventSource.h"
#include "output/Output.h"

namespace tool {

struct HostResult {
    Failure failure = Failure::None;
    std::string failureText;  // a line naming the host and what to check
    // A read (list, show, raw) that ended before the log's end: what it read is here, and
    // `incompleteText` says why, naming the host.
    bool incomplete = false;
    std::string incompleteText;
    std::string changes;  // what list --state found the log went through, a line each
    std::vector<EventRow> events;
    std::vector<EntryRow> entries;
    std::string note;                   // printed on success (status, changes)
    std::vector<std::string> warnings;  // said on standard error, however the request went
    // list --state: the source whose place is saved in `statePath` once the events it brought are
    // written out, never before.
    std::shared_ptr<EventSource> source;
    std::string statePath;
};

// Exit statuses: 0 success, 2 a command line that cannot be followed, 3 a read that ended early
// (what was read is printed), 10 + the failure for a failed request (11 not supported ... 16
// internal failure); the worst of a fleet.
int exitStatus(const HostResult& result);

// status -v: what the client learnt of the BMC in opening its session, a line each, indented;
// nothing when no LAN session opened.
std::string sessionText(const Tolmar::SessionReport& session, const ConnectionProfile& profile);

// Runs the command line's request on the host of `profile`.
HostResult run(const Options& options, const ConnectionProfile& profile);

}  // namespace tool
