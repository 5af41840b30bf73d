#include "cli/HostRequests.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>

#include "output/TimeStamps.h"
#include "base/WordLists.h"

namespace tool {

using Tolmar::IpmiEventLog;
using Tolmar::TolmarAgentless::IPMIEVENT;

std::vector<std::string> hostsOf(const Options& options) {
    return options.hosts.empty() ? std::vector<std::string>{""} : options.hosts;
}

int exitStatus(const HostResult& r) {
    if (r.result != IpmiEventLog::EL_SUCCESS) return 10 + r.result;
    return r.incomplete ? kIncompleteStatus : 0;
}

Tolmar::TolmarConnection::ConnectionInfo connection(const Options& options,
                                                    const std::string& host) {
    Tolmar::TolmarConnection::ConnectionInfo info;
    if (host.empty()) return info;  // the local in-band interface
    info.connectionType = 1;
    info.ip = host;
    info.port = options.port;
    // host:port names its own port (a name with more than one colon is an IPv6 address).
    const std::size_t colon = host.rfind(':');
    if (colon != std::string::npos && host.find(':') == colon) {
        info.ip = host.substr(0, colon);
        info.port = static_cast<unsigned short>(parseNumber(host.substr(colon + 1), 65535, "port"));
    }
    info.user = options.user;
    info.password = options.password;
    info.cipherSuite = options.cipherSuite;
    return info;
}

std::optional<Tolmar::ConnectionSettings::Privilege> privilegeSetting(const std::string& name) {
    using Privilege = Tolmar::ConnectionSettings::Privilege;
    if (name == "admin") return Privilege::Administrator;
    if (name == "operator") return Privilege::Operator;
    if (name == "user") return Privilege::User;
    return std::nullopt;
}

Tolmar::ConnectionSettings settings(const Options& options) {
    Tolmar::ConnectionSettings settings;
    settings.privilege = privilegeSetting(options.privilege);
    if (options.insecureCipherSuiteZero) settings.allowCipherSuiteZero = true;
    settings.bmcKey = options.bmcKey;
    if (options.cipherSuite == Tolmar::ConnectionSettings::AutoCipherSuite)
        settings.cipherSuite = options.cipherSuite;
    settings.workarounds = options.workarounds;
    return settings;
}

std::string hostName(const std::string& host) { return host.empty() ? "the local BMC" : host; }

namespace {

// What a BMC answers a request the session's privilege level does not allow.
constexpr unsigned char kInsufficientPrivilege = 0xD4;

// A request that failed, by the BMC's last refusal in the call.
std::string refusalText(const std::string& name, const HostResult& r) {
    if (r.call.refusedCompletionCode == 0x00) {
        return "the request to " + name +
               " failed: a lost session or an answer that makes no sense (run with -v for "
               "the exchange)";
    }
    if (r.call.refusedCompletionCode == kInsufficientPrivilege) {
        return "the request to " + name + " failed: " + r.call.refusal +
               ": the session's level does not allow it (changing the SEL needs operator; "
               "see -L)";
    }
    return "the request to " + name + " failed: " + r.call.refusal;
}

}  // namespace

std::string failureText(const std::string& host, const HostResult& r) {
    const std::string name = hostName(host);
    switch (r.result) {
        case IpmiEventLog::EL_NOT_SUPPORTED:
            return name + " does not support this request";
        case IpmiEventLog::EL_BUSY:
            // Some BMCs refuse Reserve SEL below the operator level: not a busy BMC.
            if (r.call.refusedCompletionCode == kInsufficientPrivilege) return refusalText(name, r);
            return name + " is busy (the SEL could not be reserved or is being erased): try again";
        case IpmiEventLog::EL_CONNECTION_FAIL:
            // The framework says what failed and what to check, where it could tell.
            if (!r.call.connectFailure.empty())
                return "cannot connect to " + name + ": " + r.call.connectFailure;
            return host.empty() ? "no local BMC interface: check the ipmi_si and ipmi_devintf "
                                  "kernel modules and /dev/ipmi0 (run with -v for details)"
                                : "cannot connect to " + name +
                                      ": check the address, the port and that IPMI over LAN is "
                                      "enabled";
        case IpmiEventLog::EL_AUTHTICATION_FAIL:
            if (!r.call.connectFailure.empty())
                return "authentication refused by " + name + ": " + r.call.connectFailure;
            return "authentication refused by " + name + ": check user, password and privilege";
        case IpmiEventLog::EL_NOT_FOUND:
            return name + " has no SEL record with that ID";
        default:
            return refusalText(name, r);
    }
}

std::string incompleteText(const std::string& host, const HostResult& r, const Options& options) {
    std::string text =
        hostName(host) + ": incomplete: " +
        (r.incompleteReason.empty() ? "BMC stopped answering after " +
                                          std::to_string(r.call.selEntriesRead) + " SEL entries"
                                    : r.incompleteReason);
    // Raw entries have nothing else to miss.
    if (options.command != "raw")
        text += "; severities, sensor names and auxiliary details may be missing";
    return text;
}

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
std::string offeredText(const Tolmar::SessionReport& session, const Options& options) {
    if (!session.offeredCipherSuites.empty()) {
        std::vector<std::string> ids;
        for (std::uint16_t id : session.offeredCipherSuites) ids.push_back(std::to_string(id));
        return joined(ids, " ");
    }
    return options.cipherSuite == Tolmar::ConnectionSettings::AutoCipherSuite ? "none listed"
                                                                              : "not asked";
}

bool keep(const Tolmar::FollowedEvent& followed, const Options& options) {
    const IPMIEVENT& event = followed.event;
    if (event.severity < options.minimumSeverity) return false;
    if (event.recordId < options.firstId || event.recordId > options.lastId) return false;
    if (options.since.empty() && options.until.empty()) return true;
    // The record's own time stamp, whatever the rendering: one that is unspecified or counts from
    // the BMC's initialisation is in no range.
    const auto moment = absoluteTime(followed.record);
    if (!moment) return false;
    if (!options.since.empty() && *moment < parseUserTime(options.since)) return false;
    return options.until.empty() || *moment <= parseUserTime(options.until);
}

}  // namespace

void addEvents(HostResult& out, const std::string& host, std::vector<Tolmar::FollowedEvent> events,
               const Options& options) {
    events.erase(std::remove_if(events.begin(), events.end(),
                                [&](const Tolmar::FollowedEvent& e) { return !keep(e, options); }),
                 events.end());
    const std::size_t first =
        options.last != 0 && events.size() > options.last ? events.size() - options.last : 0;
    // Local times, where asked for, are the output's (Style::localTime).
    for (std::size_t i = first; i < events.size(); ++i) {
        Tolmar::FollowedEvent& e = events[i];
        out.events.push_back({host, std::move(e.event), true, std::move(e.record), e.entry});
    }
}

void sayWarning(const std::string& warning) {
    if (!warning.empty()) std::cerr << "ipmi-event-log: warning: " + warning + "\n" << std::flush;
}

std::string stateFileIn(const std::string& directory, std::string name) {
    std::replace(name.begin(), name.end(), '/', '_');
    return directory + "/" + name + ".state";
}

std::string loadStateOf(Tolmar::IpmiEventFollower& follower, const std::string& path,
                        const std::string& name) {
    std::string error;
    // No file yet is the first run.
    if (follower.LoadState(path, error) || access(path.c_str(), F_OK) != 0) return "";
    return name + ": " + error + "; reading the whole SEL";
}

std::string saveStateOf(const Tolmar::IpmiEventFollower& follower, const std::string& path,
                        const std::string& name) {
    std::string error;
    return follower.SaveState(path, error) ? "" : name + ": the state was not saved: " + error;
}

std::string stateLockFile(const std::string& path, bool directory) {
    return directory ? path + "/ipmi-event-log.lock" : path + ".lock";
}

bool lockState(const std::string& lockFile, const std::string& state, std::string& message) {
    message.clear();
    // Kept open until the process ends: closing it would release the lock.
    const int fd = open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        message = state + " is not locked against other processes: " + lockFile + ": " +
                  std::strerror(errno);
        return true;
    }
    if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
        const int error = errno;
        if (error != EWOULDBLOCK) {
            close(fd);
            message = state + " is not locked against other processes: " + lockFile + ": " +
                      std::strerror(error);
            return true;
        }
        // The holder writes its process ID once it has the lock; it may not have yet.
        char text[32] = {};
        const ssize_t n = pread(fd, text, sizeof text - 1, 0);
        close(fd);
        std::string holder(text, n > 0 ? static_cast<std::size_t>(n) : 0);
        holder.erase(std::remove(holder.begin(), holder.end(), '\n'), holder.end());
        message = state + " is in use by another ipmi-event-log" +
                  (holder.empty() ? std::string() : " (process " + holder + ")") +
                  ": one process at a time may keep a state";
        return false;
    }
    const std::string pid = std::to_string(getpid()) + "\n";
    if (ftruncate(fd, 0) != 0 || pwrite(fd, pid.data(), pid.size(), 0) < 0) {
        // The lock holds without its process ID, which only names the holder.
    }
    return true;
}

Tolmar::IpmiEventFollower followerOf(const Options& options, const std::string& host) {
    Tolmar::IpmiEventFollower follower(connection(options, host), settings(options));
    follower.SetRendering(options.rendering);
    follower.ClearWhenFull(options.clearWhenFull);
    return follower;
}

std::string selChangeText(const std::string& host, const HostResult& result) {
    std::string text;
    const std::string prefix = "ipmi-event-log: " + hostName(host) + ": ";
    if (result.cleared) text += prefix + "the SEL was cleared\n";
    if (result.emptied) text += prefix + "cleared the SEL, every record in it read first\n";
    if (!result.clearFailure.empty()) text += prefix + "warning: " + result.clearFailure + "\n";
    return text;
}

void pollFollower(Tolmar::IpmiEventFollower& follower, const std::string& host,
                  const Options& options, HostResult& out, bool skipping) {
    std::vector<Tolmar::FollowedEvent> events;
    const Tolmar::PollResult poll = skipping ? follower.SkipToEnd() : follower.Poll(events);
    out.result = poll.result;
    out.incomplete = poll.result == IpmiEventLog::EL_SUCCESS && !poll.complete;
    if (out.incomplete) out.incompleteReason = poll.failure;
    out.cleared = poll.cleared;
    out.emptied = poll.emptied;
    if (!out.incomplete && poll.result == IpmiEventLog::EL_SUCCESS) out.clearFailure = poll.failure;
    out.sel = poll.sel;
    if (skipping && poll.result == IpmiEventLog::EL_SUCCESS && poll.complete)
        out.skipped = poll.entriesRead;
    out.call = poll.call;
    addEvents(out, host, std::move(events), options);
}

namespace {

// Where a host's state is kept: the path given for one host; for a fleet, a file a host in the
// directory given.
std::string statePathFor(const Options& options, const std::string& host) {
    if (options.hosts.size() <= 1) return options.statePath;
    return stateFileIn(options.statePath, host.empty() ? "local" : host);
}

// list --state: the events added since the run that saved the state. The state is saved only once
// they are written out (see main), so that a run that ends before shows them again.
void listNewEvents(const Options& options, const std::string& host, HostResult& out) {
    auto follower = std::make_shared<Tolmar::IpmiEventFollower>(followerOf(options, host));
    const std::string path = statePathFor(options, host);
    out.warning = loadStateOf(*follower, path, hostName(host));
    pollFollower(*follower, host, options, out);
    if (out.result == IpmiEventLog::EL_SUCCESS) {
        out.follower = std::move(follower);
        out.statePath = path;
    }
}

}  // namespace

void readWholeSel(const Options& options, const std::string& host, HostResult& out,
                  std::vector<Tolmar::FollowedEvent>* events,
                  std::vector<Tolmar::IPMISELENTRY>* entries) {
    // No state and no clearing: the first poll reads the SEL from its first record.
    Tolmar::IpmiEventFollower follower(connection(options, host), settings(options));
    follower.SetRendering(options.rendering);
    const Tolmar::PollResult poll =
        events != nullptr ? follower.Poll(*events) : follower.PollRaw(*entries);
    out.result = poll.result;
    out.call = poll.call;
    if (poll.result != IpmiEventLog::EL_SUCCESS) return;
    if (!poll.complete) {
        out.incomplete = true;
        out.incompleteReason = poll.failure;
    } else if (!follower.ReadToEnd() && poll.entriesRead != 0) {
        // An erase begun after the first records were read: the rest were not.
        out.incomplete = true;
        out.incompleteReason = poll.failure;
    }
}

std::string sessionText(const Tolmar::SessionReport& session, const Options& options) {
    if (!session.cipherSuite) return "";
    return "  IPMI version: " + (session.ipmiVersion.empty() ? "unknown" : session.ipmiVersion) +
           "\n  cipher suites offered: " + offeredText(session, options) +
           "\n  cipher suite: " + std::to_string(*session.cipherSuite) + "\n  privilege level: " +
           (session.privilege ? privilegeText(*session.privilege) : "unknown") +
           "\n  workarounds: " +
           (session.workarounds.empty() ? "none" : joined(session.workarounds, ", ")) + "\n";
}

HostResult run(const Options& options, const std::string& host) {
    IpmiEventLog log(connection(options, host));
    HostResult out;
    // This thread's calls of `log` open their sessions so, and report here what they met.
    const Tolmar::ConnectionScope scope(settings(options));
    const std::string& command = options.command;
    if (command == "list" && !options.statePath.empty()) {
        listNewEvents(options, host, out);
    } else if (command == "list" || command == "show") {
        std::vector<Tolmar::FollowedEvent> events;
        readWholeSel(options, host, out, &events);
        if (command == "show") {
            // The whole event, source and auxiliary log included, of the record asked for.
            const unsigned long id = parseRecordId(options.arguments.at(0));
            events.erase(std::remove_if(events.begin(), events.end(),
                                        [id](const Tolmar::FollowedEvent& e) {
                                            return e.event.recordId != id;
                                        }),
                         events.end());
            // A record not read before the read ended may be there still.
            if (out.result == IpmiEventLog::EL_SUCCESS && events.empty() && !out.incomplete) {
                out.result = IpmiEventLog::EL_NOT_FOUND;
            }
            if (events.size() > 1) events.erase(events.begin(), events.end() - 1);
        }
        addEvents(out, host, std::move(events), options);
    } else if (command == "raw") {
        std::vector<Tolmar::IPMISELENTRY> entries;
        readWholeSel(options, host, out, nullptr, &entries);
        for (const auto& entry : entries) out.entries.push_back({host, entry});
    } else if (command == "get") {
        Tolmar::IPMISELENTRY entry{};
        out.result = log.GetIpmiSelEntryByRecordId(parseRecordId(options.arguments.at(0)), entry);
        if (out.result == IpmiEventLog::EL_SUCCESS) out.entries.push_back({host, entry});
    } else if (command == "delete") {
        for (const std::string& id : options.arguments) {
            const int result = log.DeleteEventLog(parseRecordId(id));
            // The worst result is said, with what its call met.
            if (result >= out.result) out.call = scope.LastCall();
            out.result = std::max(out.result, result);
            if (result == IpmiEventLog::EL_SUCCESS)
                out.note += hostName(host) + ": deleted " + id + "\n";
        }
    } else if (command == "clear") {
        out.result = log.DeleteAllEventLog();
        out.note = hostName(host) + ": SEL clear started\n";
    } else if (command == "add") {
        Tolmar::IPMISELENTRY entry;
        const std::vector<unsigned char> bytes = parseHexBytes(options.arguments.at(0));
        std::memcpy(&entry, bytes.data(), sizeof entry);
        out.result = log.AddSelEntry(entry);
        out.note = hostName(host) + ": entry added\n";
    } else if (command == "status") {
        const int status = log.GetConnectStatus();
        out.result = status == 0   ? IpmiEventLog::EL_SUCCESS
                     : status == 2 ? IpmiEventLog::EL_AUTHTICATION_FAIL
                                   : IpmiEventLog::EL_CONNECTION_FAIL;
        out.note = hostName(host) + ": connected\n";
        if (options.verbose) out.note += sessionText(scope.LastCall().session, options);
    }
    // A poll's report came with it (the reads of the SEL are polls); the deletes kept the worst.
    const bool read = command == "list" || command == "show" || command == "raw";
    if (command != "delete" && !read) out.call = scope.LastCall();
    out.incomplete = read && out.result == IpmiEventLog::EL_SUCCESS && out.incomplete;
    for (EventRow& row : out.events) row.complete = !out.incomplete;
    for (EntryRow& row : out.entries) row.complete = !out.incomplete;
    return out;
}

}  // namespace tool
