#include "cli/HostRequests.h"

#include <IpmiEventLog.h>

#include <algorithm>
#include <cstring>

#include "base/WordLists.h"
#include "cli/Profiles.h"
#include "fleet/IpmiEventSource.h"
#include "fleet/Polling.h"
#include "fleet/RedfishClient.h"
#include "fleet/RedfishEventSource.h"

namespace tool {

using Tolmar::IpmiEventLog;

int exitStatus(const HostResult& r) { return exitStatus(r.failure, !r.incomplete); }

namespace {

const char* privilegeText(Tolmar::ConnectionSettings::Privilege privilege) {
    using Privilege = Tolmar::ConnectionSettings::Privilege;
    switch (privilege) {
        case Privilege::Administrator:
            return "administrator";
        case Privilege::Operator:
            return "operator";
        default:
            return "user";
    }
}

// The cipher suites the BMC listed; why none are known: a suite was given, so none were asked
// for, or the BMC listed none.
std::string offeredText(const Tolmar::SessionReport& session, const ConnectionProfile& profile) {
    if (!session.offeredCipherSuites.empty()) {
        std::vector<std::string> ids;
        for (std::uint16_t id : session.offeredCipherSuites) ids.push_back(std::to_string(id));
        return joined(ids, " ");
    }
    return profile.cipherSuite ? "not asked" : "none listed";
}

// A read's outcome in `out`, its events as rows of `host` once `filter` kept them.
void takeRead(HostResult& out, SourcePoll read, const std::string& host,
              const EventFilter& filter) {
    out.failure = read.failure;
    out.failureText = read.failureText;
    out.incomplete = !read.complete;
    out.incompleteText = read.incompleteText;
    if (!read.warning.empty()) out.warnings.push_back(read.warning);
    keepEvents(read.events, filter);
    for (SourceEvent& event : read.events)
        out.events.push_back({host, std::move(event), read.complete});
}

// Where a host's state is kept: the path given for one host; for a fleet, a file a host in the
// directory given.
std::string statePathFor(const Options& options, const EventSource& source,
                         const std::string& host) {
    if (options.hosts.size() <= 1) return options.statePath;
    return stateFileIn(options.statePath, host.empty() ? "local" : host, source.kind());
}

// list --state: the events added since the run that saved the state. The state is saved only once
// they are written out (see main), so that a run that ends before shows them again.
void listNewEvents(const Options& options, const ConnectionProfile& profile, HostResult& out) {
    std::shared_ptr<EventSource> source = makeEventSource(profile, readSettingsOf(options));
    const std::string path = statePathFor(options, *source, profile.host);
    const std::string unread = source->loadState(path);
    if (!unread.empty()) out.warnings.push_back(unread);
    SourcePoll poll = source->poll(false);
    out.changes = changesText(source->hostName(), poll);
    const bool polled = poll.failure == Failure::None;
    takeRead(out, std::move(poll), profile.host, filterOf(options));
    if (polled) {
        out.source = std::move(source);
        out.statePath = path;
    }
}

}  // namespace

std::string sessionText(const Tolmar::SessionReport& session, const ConnectionProfile& profile) {
    if (!session.cipherSuite) return "";
    return "  IPMI version: " + (session.ipmiVersion.empty() ? "unknown" : session.ipmiVersion) +
           "\n  cipher suites offered: " + offeredText(session, profile) +
           "\n  cipher suite: " + std::to_string(*session.cipherSuite) + "\n  privilege level: " +
           (session.privilege ? privilegeText(*session.privilege) : "unknown") +
           "\n  workarounds: " +
           (session.workarounds.empty() ? "none" : joined(session.workarounds, ", ")) + "\n";
}

namespace {

// show: the whole event, source and auxiliary log included, of the entry asked for, the last of
// that ID; a Redfish entry's ID is its Id, text, as it is given.
void keepShown(SourcePoll& read, const std::string& id, const std::string& host) {
    const bool redfish = isRedfishHost(host);
    const unsigned long number = redfish ? 0 : parseRecordId(id);
    std::vector<SourceEvent>& events = read.events;
    events.erase(std::remove_if(events.begin(), events.end(),
                                [&](const SourceEvent& e) {
                                    return redfish ? e.id != id : e.number != number;
                                }),
                 events.end());
    if (events.size() > 1) events.erase(events.begin(), events.end() - 1);
    // An entry not read before the read ended may be there still.
    if (read.failure != Failure::None || !events.empty() || !read.complete) return;
    read.failure = Failure::NotFound;
    read.failureText =
        redfish ? hostName(host) + " has no entry with Id " + id + " in " + read.health.name
                : ipmiFailureText(host, IpmiEventLog::EL_NOT_FOUND, Tolmar::CallReport{});
}

// list, show and raw: the whole log, read by a source without state. Unlike
// IpmiEventLog::GetAllIpmiEventLog, a read that ended before the log's end, for whatever reason,
// is incomplete.
void readWholeLog(const Options& options, const ConnectionProfile& profile, HostResult& out) {
    const std::string& command = options.command;
    if (command == "raw") {
        IpmiEventSource source(profile, readSettingsOf(options));
        std::vector<Tolmar::IPMISELENTRY> entries;
        takeRead(out, source.readWholeRaw(entries), profile.host, filterOf(options));
        for (const auto& entry : entries)
            out.entries.push_back({profile.host, entry, !out.incomplete});
        return;
    }
    SourcePoll read = makeEventSource(profile, readSettingsOf(options))->readWhole();
    if (command == "show") keepShown(read, options.arguments.at(0), profile.host);
    takeRead(out, std::move(read), profile.host, filterOf(options));
}

// What the library's call that gave `result` met, as the result of a request.
void takeResult(HostResult& out, int result, const Tolmar::CallReport& call,
                const std::string& host) {
    out.failure = failureOf(result);
    if (out.failure != Failure::None) out.failureText = ipmiFailureText(host, result, call);
    if (!call.warning.empty()) out.warnings.push_back(call.warning);
}

// get, delete, clear, add and status: one request or a few, through IpmiEventLog.
void request(const Options& options, const ConnectionProfile& profile, HostResult& out) {
    const std::string& host = profile.host;
    IpmiEventLog log(ipmiConnection(profile));
    // This thread's calls of `log` open their sessions so, and report here what they met.
    const Tolmar::ConnectionScope scope(ipmiSettings(profile));
    const std::string& command = options.command;
    int result = IpmiEventLog::EL_SUCCESS;
    Tolmar::CallReport call;
    if (command == "get") {
        Tolmar::IPMISELENTRY entry{};
        result = log.GetIpmiSelEntryByRecordId(parseRecordId(options.arguments.at(0)), entry);
        if (result == IpmiEventLog::EL_SUCCESS) out.entries.push_back({host, entry});
    } else if (command == "delete") {
        for (const std::string& id : options.arguments) {
            const int deleted = log.DeleteEventLog(parseRecordId(id));
            // The worst result is said, with what its call met.
            if (deleted >= result) call = scope.LastCall();
            result = std::max(result, deleted);
            if (deleted == IpmiEventLog::EL_SUCCESS)
                out.note += hostName(host) + ": deleted " + id + "\n";
        }
    } else if (command == "clear") {
        result = log.DeleteAllEventLog();
        out.note = hostName(host) + ": SEL clear started\n";
    } else if (command == "add") {
        Tolmar::IPMISELENTRY entry;
        const std::vector<unsigned char> bytes = parseHexBytes(options.arguments.at(0));
        std::memcpy(&entry, bytes.data(), sizeof entry);
        result = log.AddSelEntry(entry);
        out.note = hostName(host) + ": entry added\n";
    } else if (command == "status") {
        const int status = log.GetConnectStatus();
        result = status == 0   ? IpmiEventLog::EL_SUCCESS
                 : status == 2 ? IpmiEventLog::EL_AUTHTICATION_FAIL
                               : IpmiEventLog::EL_CONNECTION_FAIL;
        out.note = hostName(host) + ": connected\n";
        if (options.verbose) out.note += sessionText(scope.LastCall().session, profile);
    }
    takeResult(out, result, command == "delete" ? call : scope.LastCall(), host);
}

// status -v on a Redfish service: how it was reached and each log read, a line each, indented.
std::string redfishLogsText(const std::vector<RedfishLogService>& logs,
                            const std::string& authentication) {
    std::string text = "  authentication: " + authentication + "\n";
    for (const RedfishLogService& log : logs) {
        text += "  log " + (log.path.empty() ? std::string("(outside LogServices)") : log.path) +
                ": " + log.name;
        if (!log.id.empty() && log.id != log.name) text += " (Id " + log.id + ")";
        text += log.chosen ? ", chosen with --log" : ", hardware event log";
        text += ", " + (log.entries ? std::to_string(*log.entries) : std::string("unknown")) +
                " entries";
        if (log.maxRecords) text += " of at most " + std::to_string(*log.maxRecords);
        text += log.clearTarget.empty() ? ", not clearable\n" : "\n";
    }
    return text;
}

// clear on a Redfish service: each log read, by its ClearLog action. Those that cannot be cleared
// do not keep the others from it; the worst failure is said, with what was cleared.
void clearRedfishLogs(RedfishEventSource& source, const std::vector<RedfishLogService>& logs,
                      HostResult& out) {
    std::vector<std::string> cleared;
    for (const RedfishLogService& log : logs) {
        try {
            source.clearLog(log);
            cleared.push_back(log.name);
            out.note += source.hostName() + ": " + log.name + " cleared\n";
        } catch (const RedfishError& error) {
            if (error.failure() > out.failure) {
                out.failure = error.failure();
                out.failureText = error.what();
            }
        }
    }
    if (out.failure != Failure::None && !cleared.empty())
        out.failureText += " (cleared: " + joined(cleared, ", ") + ")";
}

// clear and status on a Redfish service: the logs the source reads, found as list finds them.
void redfishRequest(const Options& options, const ConnectionProfile& profile, HostResult& out) {
    RedfishEventSource source(profile, readSettingsOf(options));
    const std::string& command = options.command;
    try {
        const std::vector<RedfishLogService> logs =
            source.findLogs(command == "status" && options.verbose);
        if (command == "clear") return clearRedfishLogs(source, logs, out);
        out.note = source.hostName() + ": connected\n";
        if (options.verbose) out.note += redfishLogsText(logs, source.session().authentication());
    } catch (const RedfishError& error) {
        out.failure = error.failure();
        out.failureText = error.what();
        out.note.clear();
    }
}

// Why a Redfish service has no counterpart of an IPMI request: its entries are the service's own,
// and come as JSON, not as SEL records.
std::string redfishRefusal(const std::string& command) {
    if (command == "delete")
        return "Redfish has no operation that deletes a log entry: clear empties a whole log";
    if (command == "add") return "Redfish has no operation that adds a log entry";
    return "a Redfish service has no " + command +
           " here: list, show, clear and status reach its logs, follow and serve follow them";
}

}  // namespace

HostResult run(const Options& options, const ConnectionProfile& profile) {
    HostResult out;
    const std::string& command = options.command;
    const bool redfish = isRedfishHost(profile.host);
    if (redfish && (command == "clear" || command == "status")) {
        redfishRequest(options, profile, out);
    } else if (redfish && command != "list" && command != "show") {
        out.failure = Failure::NotSupported;
        out.failureText = profile.host + ": " + redfishRefusal(command);
    } else if (command == "list" && !options.statePath.empty()) {
        listNewEvents(options, profile, out);
    } else if (command == "list" || command == "show" || command == "raw") {
        readWholeLog(options, profile, out);
    } else {
        request(options, profile, out);
    }
    return out;
}

}  // namespace tool
