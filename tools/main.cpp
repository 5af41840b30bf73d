// ipmi-event-log: reads, filters and exports BMC event logs, and changes the SEL, through
// Tolmar::IpmiEventLog. Argument parsing, library calls, formatting; no IPMI of its own.
#include <IpmiEventLog.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <mutex>
#include <set>
#include <thread>

#include "IpmiClientActivity.h"
#include "IpmiCompletionCode.h"
#include "Log.h"
#include "Options.h"
#include "Output.h"
#include "TimeStamps.h"

namespace {

using Tolmar::IpmiEventLog;
using Tolmar::TolmarAgentless::IPMIEVENT;
using tool::EntryRow;
using tool::EventRow;
using tool::Options;

constexpr int kUsageStatus = 2;
constexpr int kIncompleteStatus = 3;

struct HostResult {
    int result = IpmiEventLog::EL_SUCCESS;
    // A read (list, show, raw) that lost its BMC part way: the library still succeeds, with what
    // it read before; the framework's record of the call tells.
    bool incomplete = false;
    IpmiCallRecord record;
    std::vector<EventRow> events;
    std::vector<EntryRow> entries;
    std::string note;  // printed on success (status, changes)
};

// Exit statuses: 0 success, 2 a command line that cannot be followed, 3 a read that ended early
// (what was read is printed), 10 + the library's result code for a failed request (11 not
// supported ... 16 internal failure); the worst of a fleet.
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
        info.port =
            static_cast<unsigned short>(tool::parseNumber(host.substr(colon + 1), 65535, "port"));
    }
    info.user = options.user;
    info.password = options.password;
    info.cipherSuite = options.cipherSuite;
    return info;
}

std::string hostName(const std::string& host) { return host.empty() ? "the local BMC" : host; }

// "the BMC answered CBh (requested sensor, data or record not present)".
std::string refusalText(const IpmiCallRecord& record) {
    char code[4];
    std::snprintf(code, sizeof code, "%02X", record.lastCompletionCode);
    return "the BMC answered " + std::string(code) + "h (" +
           ipmiCompletionCodeName(record.lastCompletionCode) + ")";
}

// One line naming the host, the cause and what to check.
std::string failureText(const std::string& host, const HostResult& r) {
    const std::string name = hostName(host);
    switch (r.result) {
        case IpmiEventLog::EL_NOT_SUPPORTED:
            return name + " does not support this request";
        case IpmiEventLog::EL_BUSY:
            return name + " is busy (the SEL could not be reserved or is being erased): try again";
        case IpmiEventLog::EL_CONNECTION_FAIL:
            // The framework says what failed and what to check, where it could tell.
            if (!r.record.connectFailure.empty())
                return "cannot connect to " + name + ": " + r.record.connectFailure;
            return host.empty() ? "no local BMC interface: check the ipmi_si and ipmi_devintf "
                                  "kernel modules and /dev/ipmi0 (run with -v for details)"
                                : "cannot connect to " + name +
                                      ": check the address, the port and that IPMI over LAN is "
                                      "enabled";
        case IpmiEventLog::EL_AUTHTICATION_FAIL:
            if (!r.record.connectFailure.empty())
                return "authentication refused by " + name + ": " + r.record.connectFailure;
            return "authentication refused by " + name + ": check user, password and privilege";
        case IpmiEventLog::EL_NOT_FOUND:
            return name + " has no SEL record with that ID";
        default:
            if (r.record.lastCompletionCode == 0x00) {
                return "the request to " + name +
                       " failed: a lost session or an answer that makes no sense (run with -v for "
                       "the exchange)";
            }
            if (r.record.lastCompletionCode == 0xD4) {
                return "the request to " + name + " failed: " + refusalText(r.record) +
                       ": the session's level does not allow it (changing the SEL needs operator; "
                       "see -L)";
            }
            return "the request to " + name + " failed: " + refusalText(r.record);
    }
}

std::string incompleteText(const std::string& host, const HostResult& r, const Options& options) {
    std::string text = hostName(host) + ": incomplete: BMC stopped answering after " +
                       std::to_string(r.record.selEntries) + " SEL entries";
    // Raw entries have nothing else to miss.
    if (options.command != "raw")
        text += "; severities, sensor names and auxiliary details may be missing";
    return text;
}

bool keep(const IPMIEVENT& event, const Options& options) {
    if (event.severity < options.minimumSeverity) return false;
    if (event.recordId < options.firstId || event.recordId > options.lastId) return false;
    if (options.since.empty() && options.until.empty()) return true;
    const auto moment = tool::parseEventTime(event.timeStamp);
    if (!moment) return false;  // an unspecified time is in no range
    if (!options.since.empty() && *moment < tool::parseUserTime(options.since)) return false;
    return options.until.empty() || *moment <= tool::parseUserTime(options.until);
}

void addEvents(HostResult& out, const std::string& host, std::vector<IPMIEVENT> events,
               const Options& options) {
    events.erase(std::remove_if(events.begin(), events.end(),
                                [&](const IPMIEVENT& e) { return !keep(e, options); }),
                 events.end());
    const std::size_t first =
        options.last != 0 && events.size() > options.last ? events.size() - options.last : 0;
    for (std::size_t i = first; i < events.size(); ++i) {
        if (options.localTime) {
            if (const auto moment = tool::parseEventTime(events[i].timeStamp)) {
                events[i].timeStamp = tool::localTimeText(*moment);
            }
        }
        out.events.push_back({host, std::move(events[i])});
    }
}

HostResult run(const Options& options, const std::string& host) {
    IpmiEventLog log(connection(options, host));
    HostResult out;
    startIpmiCallRecord();
    const std::string& command = options.command;
    if (command == "list" || command == "show") {
        std::vector<IPMIEVENT> events;
        out.result = log.GetAllIpmiEventLog(events);
        if (command == "show") {
            // The whole event, source and auxiliary log included, of the record asked for.
            const unsigned long id = tool::parseRecordId(options.arguments.at(0));
            events.erase(std::remove_if(events.begin(), events.end(),
                                        [id](const IPMIEVENT& e) { return e.recordId != id; }),
                         events.end());
            if (out.result == IpmiEventLog::EL_SUCCESS && events.empty() &&
                ipmiCallRecord().transportFailures == 0) {
                out.result = IpmiEventLog::EL_NOT_FOUND;
            }
            if (events.size() > 1) events.erase(events.begin(), events.end() - 1);
        }
        addEvents(out, host, std::move(events), options);
    } else if (command == "raw") {
        std::vector<Tolmar::IPMISELENTRY> entries;
        out.result = log.GetAllIpmiSelEntry(entries);
        for (const auto& entry : entries) out.entries.push_back({host, entry});
    } else if (command == "get") {
        Tolmar::IPMISELENTRY entry{};
        out.result =
            log.GetIpmiSelEntryByRecordId(tool::parseRecordId(options.arguments.at(0)), entry);
        if (out.result == IpmiEventLog::EL_SUCCESS) out.entries.push_back({host, entry});
    } else if (command == "delete") {
        for (const std::string& id : options.arguments) {
            const int result = log.DeleteEventLog(tool::parseRecordId(id));
            out.result = std::max(out.result, result);
            if (result == IpmiEventLog::EL_SUCCESS)
                out.note += hostName(host) + ": deleted " + id + "\n";
        }
    } else if (command == "clear") {
        out.result = log.DeleteAllEventLog();
        out.note = hostName(host) + ": SEL clear started\n";
    } else if (command == "add") {
        Tolmar::IPMISELENTRY entry;
        const std::vector<unsigned char> bytes = tool::parseHexBytes(options.arguments.at(0));
        std::memcpy(&entry, bytes.data(), sizeof entry);
        out.result = log.AddSelEntry(entry);
        out.note = hostName(host) + ": entry added\n";
    } else if (command == "status") {
        const int status = log.GetConnectStatus();
        out.result = status == 0   ? IpmiEventLog::EL_SUCCESS
                     : status == 2 ? IpmiEventLog::EL_AUTHTICATION_FAIL
                                   : IpmiEventLog::EL_CONNECTION_FAIL;
        out.note = hostName(host) + ": connected\n";
    }
    out.record = ipmiCallRecord();
    const bool read = command == "list" || command == "show" || command == "raw";
    out.incomplete =
        read && out.result == IpmiEventLog::EL_SUCCESS && out.record.transportFailures > 0;
    for (EventRow& row : out.events) row.complete = !out.incomplete;
    for (EntryRow& row : out.entries) row.complete = !out.incomplete;
    return out;
}

void checkArguments(const Options& options) {
    static const std::vector<std::pair<std::string, std::size_t>> counts = {
        {"list", 0}, {"show", 1}, {"raw", 0}, {"get", 1}, {"clear", 0}, {"add", 1}, {"status", 0}};
    if (options.command == "delete") {
        if (options.arguments.empty()) throw tool::UsageError("delete needs record IDs");
        for (const std::string& id : options.arguments) tool::parseRecordId(id);
        return;
    }
    const auto found = std::find_if(counts.begin(), counts.end(),
                                    [&](const auto& c) { return c.first == options.command; });
    if (found == counts.end()) throw tool::UsageError("unknown command " + options.command);
    if (options.arguments.size() != found->second) {
        throw tool::UsageError(options.command + " takes " + std::to_string(found->second) +
                               " argument(s)");
    }
    if (options.command == "show" || options.command == "get")
        tool::parseRecordId(options.arguments[0]);
    if (options.command == "add") tool::parseHexBytes(options.arguments[0]);
    if (!options.since.empty()) tool::parseUserTime(options.since);
    if (!options.until.empty()) tool::parseUserTime(options.until);
}

// On a terminal, a line on standard error while the hosts are read: requests sent, SEL entries
// read, hosts done. The library does not ask a BMC for its SEL's size, so there is no total.
class Progress {
public:
    explicit Progress(std::size_t hosts) : hosts_(hosts), shown_(isatty(STDERR_FILENO)) {
        if (shown_) thread_ = std::thread([this] { run(); });
    }
    ~Progress() {
        if (!shown_) return;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            finished_ = true;
        }
        wake_.notify_one();
        thread_.join();
        std::cerr << "\r\033[K" << std::flush;
    }
    void hostDone() { ++done_; }

private:
    void run() {
        std::unique_lock<std::mutex> lock(mutex_);
        while (
            !wake_.wait_for(lock, std::chrono::milliseconds(250), [this] { return finished_; })) {
            const IpmiClientActivity activity = ipmiClientActivity();
            std::cerr << "\rreading: " << activity.requests << " requests, " << activity.selEntries
                      << " SEL entries, " << done_ << " of " << hosts_ << " hosts done"
                      << std::flush;
        }
    }

    const std::size_t hosts_;
    const bool shown_;
    std::atomic<std::size_t> done_{0};
    std::mutex mutex_;
    std::condition_variable wake_;
    bool finished_ = false;
    std::thread thread_;
};

// Reads every host, `fanout` at a time; results keep the hosts' order.
std::vector<HostResult> runAll(const Options& options) {
    const std::vector<std::string> hosts =
        options.hosts.empty() ? std::vector<std::string>{""} : options.hosts;
    std::vector<HostResult> results(hosts.size());
    Progress progress(hosts.size());
    std::atomic<std::size_t> next{0};
    const auto worker = [&] {
        for (std::size_t i = next++; i < hosts.size(); i = next++) {
            results[i] = run(options, hosts[i]);
            progress.hostDone();
        }
    };
    std::vector<std::thread> workers;
    const std::size_t count = std::min<std::size_t>(options.fanout, hosts.size());
    for (std::size_t i = 1; i < count; ++i) workers.emplace_back(worker);
    worker();
    for (std::thread& t : workers) t.join();
    return results;
}

tool::Style outputStyle(const Options& options) {
    tool::Style style;
    style.format = options.format;
    style.wide = options.wide;
    style.showHost = options.hosts.size() > 1;
    const bool terminal = isatty(STDOUT_FILENO);
    style.colour = terminal && std::getenv("NO_COLOR") == nullptr;
    winsize size{};
    if (terminal && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) style.width = size.ws_col;
    return style;
}

// Erases the values of -P, -k and -y from the process's arguments, which other users can read in
// /proc/PID/cmdline (the copy parsed is kept).
void eraseSecretArguments(int argc, char** argv) {
    for (int i = 1; i + 1 < argc; ++i) {
        if (tool::takesSecret(argv[i])) std::memset(argv[i + 1], 0, std::strlen(argv[i + 1]));
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    eraseSecretArguments(argc, argv);
    try {
        options = tool::parseOptions(arguments);
        if (options.command == "help") {
            std::cout << tool::kUsage;
            return 0;
        }
        checkArguments(options);
    } catch (const tool::UsageError& e) {
        std::cerr << "ipmi-event-log: " << e.what() << "\n(ipmi-event-log --help for the usage)\n";
        return kUsageStatus;
    }
    // -v traces the whole exchange. Otherwise the framework's own lines stay quiet, as each
    // failure gets one line of the tool's, unless TOLMAR_LOG_LEVEL asks for them.
    const char* logLevel = std::getenv("TOLMAR_LOG_LEVEL");
    if (options.verbose) {
        Log::SetMinLogLevel(4);
    } else if (logLevel == nullptr || *logLevel == '\0') {
        Log::SetMinLogLevel(0);
    }
    // How sessions are opened is the framework client's setting.
    if (!options.privilege.empty()) setenv("TOLMAR_IPMI_PRIVILEGE", options.privilege.c_str(), 1);
    if (options.insecureCipherSuiteZero) setenv("TOLMAR_IPMI_ALLOW_CIPHER_SUITE_0", "1", 1);
    if (!options.bmcKeyHex.empty()) setenv("TOLMAR_IPMI_BMC_KEY", options.bmcKeyHex.c_str(), 1);

    std::vector<HostResult> results = runAll(options);
    std::vector<EventRow> events;
    std::vector<EntryRow> entries;
    std::string problems;  // one line a host that failed or stopped answering, after the output
    std::set<std::string> warnings;  // how sessions were opened: each once, before the problems
    int status = 0;
    bool anyRead = false;
    const std::vector<std::string> hosts =
        options.hosts.empty() ? std::vector<std::string>{""} : options.hosts;
    for (std::size_t i = 0; i < results.size(); ++i) {
        HostResult& r = results[i];  // its events move into the merged list
        events.insert(events.end(), std::make_move_iterator(r.events.begin()),
                      std::make_move_iterator(r.events.end()));
        entries.insert(entries.end(), r.entries.begin(), r.entries.end());
        if (r.result != IpmiEventLog::EL_SUCCESS) {
            problems += "ipmi-event-log: " + failureText(hosts[i], r) + "\n";
        } else {
            anyRead = true;
            std::cout << r.note;
            if (r.incomplete)
                problems += "ipmi-event-log: " + incompleteText(hosts[i], r, options) + "\n";
        }
        status = std::max(status, exitStatus(r));
        if (!r.record.warning.empty()) warnings.insert(r.record.warning);
    }
    // Headers and brackets only for something read: a failed read prints nothing on stdout.
    const tool::Style style = outputStyle(options);
    if (anyRead && (options.command == "list" || options.command == "show")) {
        tool::writeEvents(std::cout, events, style);
    } else if (anyRead && (options.command == "raw" || options.command == "get")) {
        tool::writeEntries(std::cout, entries, style);
    }
    std::cout.flush();
    for (const std::string& warning : warnings)
        std::cerr << "ipmi-event-log: warning: " << warning << "\n";
    std::cerr << problems;
    return status;
}
