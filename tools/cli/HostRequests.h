// One request of the tool to one host (list, show, raw, get, delete, clear, add, status) through
// the library, what came of it, and the texts that say so.
#pragma once

#include <IpmiEventFollower.h>
#include <IpmiEventLog.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/Options.h"
#include "output/Output.h"

namespace tool {

constexpr int kIncompleteStatus = 3;

struct HostResult {
    int result = Tolmar::IpmiEventLog::EL_SUCCESS;
    // A read (list, show, raw) that lost its BMC part way: the library still succeeds, with what
    // it read before; the report of the call tells.
    bool incomplete = false;
    Tolmar::CallReport call;  // of the request that failed, else of the last
    // A follower's poll: why it ended early, in the library's words; whether it found the SEL
    // cleared.
    std::string incompleteReason;
    bool cleared = false;
    bool emptied = false;      // --clear-when-full: the poll cleared the SEL
    std::string clearFailure;  // why it could not
    Tolmar::SelHealth sel;     // how full the SEL was
    // follow --new-only: the records there were when a poll first read the whole SEL, not shown.
    std::optional<unsigned long> skipped;
    std::vector<EventRow> events;
    std::vector<EntryRow> entries;
    std::string note;     // printed on success (status, changes)
    std::string warning;  // said on standard error, however the request went
    double seconds = 0;   // how long a poll of the host took (follow, serve)
    // list --state: the follower whose state is saved in `statePath` once the events it brought
    // are written out, never before.
    std::shared_ptr<Tolmar::IpmiEventFollower> follower;
    std::string statePath;
};

// Exit statuses: 0 success, 2 a command line that cannot be followed, 3 a read that ended early
// (what was read is printed), 10 + the library's result code for a failed request (11 not
// supported ... 16 internal failure); the worst of a fleet.
int exitStatus(const HostResult& result);

// The hosts of the command line; "" (the local in-band interface) without -H.
std::vector<std::string> hostsOf(const Options& options);
Tolmar::TolmarConnection::ConnectionInfo connection(const Options& options,
                                                    const std::string& host);
// "admin", "operator" or "user" as a setting; none for "" (the highest the BMC grants).
std::optional<Tolmar::ConnectionSettings::Privilege> privilegeSetting(const std::string& name);
// How the command line asks sessions to be opened; the rest from the environment's defaults.
Tolmar::ConnectionSettings settings(const Options& options);
std::string hostName(const std::string& host);
// status -v: what the client learnt of the BMC in opening its session, a line each, indented;
// nothing when no LAN session opened.
std::string sessionText(const Tolmar::SessionReport& session, const Options& options);
// One line naming the host, the cause and what to check.
std::string failureText(const std::string& host, const HostResult& result);
std::string incompleteText(const std::string& host, const HostResult& result,
                           const Options& options);
// The events the filters keep (severity, IDs, the record's time stamp), the last N of them, as
// rows of `host`.
void addEvents(HostResult& out, const std::string& host, std::vector<Tolmar::FollowedEvent> events,
               const Options& options);

// Says `warning` on standard error, one whole line whatever thread says it; nothing when empty.
void sayWarning(const std::string& warning);

// The file in `directory` that keeps the state of `name` (a host; a target and its module).
std::string stateFileIn(const std::string& directory, std::string name);
// Gives `follower` the state kept in `path`; when a file there cannot be taken, the warning that
// says why, naming `name` (no file yet is no warning).
std::string loadStateOf(Tolmar::IpmiEventFollower& follower, const std::string& path,
                        const std::string& name);
// Keeps `follower`'s state in `path`; when it cannot, the warning that says why.
std::string saveStateOf(const Tolmar::IpmiEventFollower& follower, const std::string& path,
                        const std::string& name);

// The file whose lock keeps a state to one process: PATH.lock beside a state file, or
// ipmi-event-log.lock in a state directory.
std::string stateLockFile(const std::string& path, bool directory);
// Takes the lock of `lockFile` for the rest of the process (the system releases it when the
// process ends, however it ends). False when another process holds it, with `message` the refusal
// naming `state`; true otherwise, with `message` a warning when no lock could be made there.
bool lockState(const std::string& lockFile, const std::string& state, std::string& message);

// A follower of `host` as the command line asks: its settings and rendering, and its clear when
// full.
Tolmar::IpmiEventFollower followerOf(const Options& options, const std::string& host);
// What a follower's poll found the SEL's records went through (cleared; cleared by the poll, or
// not), a line each, naming the host.
std::string selChangeText(const std::string& host, const HostResult& result);

// One poll of `follower`: its result, and its new events as addEvents makes them rows of `host`;
// incomplete when the poll lost its BMC part way. `skipping`: the records there are are taken as
// shown, and none is decoded.
void pollFollower(Tolmar::IpmiEventFollower& follower, const std::string& host,
                  const Options& options, HostResult& out, bool skipping = false);

// list, show and raw: the whole SEL of `host` through a follower without state, whose first poll
// decodes every record into `events`, in the rendering the command line asks for (described:
// exactly as IpmiEventLog::GetAllIpmiEventLog does), or with `entries`, the records as they were
// read. Unlike that call, it tells a read that ended before the SEL's end (refused, cut short,
// unanswered, or an erase begun part way) from a short SEL: `out` is then incomplete, with the
// reason. An empty SEL, or one being erased from its first record, is a complete read of nothing.
void readWholeSel(const Options& options, const std::string& host, HostResult& out,
                  std::vector<Tolmar::FollowedEvent>* events,
                  std::vector<Tolmar::IPMISELENTRY>* entries = nullptr);

// Runs the command line's request on one host.
HostResult run(const Options& options, const std::string& host);

}  // namespace tool
