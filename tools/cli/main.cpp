// ipmi-event-log: reads, filters and exports BMC event logs, and changes the SEL, through
// Tolmar::IpmiEventLog and Tolmar::IpmiEventFollower. Argument parsing, library calls, formatting;
// no IPMI of its own.
#include <IpmiConnectionSettings.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <mutex>
#include <set>
#include <thread>

#include "cli/HostRequests.h"
#include "cli/Options.h"
#include "cli/Profiles.h"
#include "exporter/Exporter.h"
#include "fleet/FanOut.h"
#include "follow/Follow.h"
#include "output/Output.h"

namespace {

using tool::EntryRow;
using tool::EventRow;
using tool::HostResult;
using tool::Options;

constexpr int kUsageStatus = 2;
// The state file or directory asked for is kept by another process.
constexpr int kStateInUseStatus = 1;

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
            const Tolmar::ClientActivity activity = Tolmar::GetClientActivity();
            std::cerr << "\rreading: " << activity.requestsSent << " requests, "
                      << activity.selEntriesRead << " SEL entries, " << done_ << " of " << hosts_
                      << " hosts done" << std::flush;
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
std::vector<HostResult> runAll(const Options& options,
                               const std::vector<tool::ConnectionProfile>& hosts) {
    std::vector<HostResult> results(hosts.size());
    Progress progress(hosts.size());
    tool::fanOut(hosts.size(), options.fanout, [&](std::size_t i) {
        results[i] = tool::run(options, hosts[i]);
        progress.hostDone();
    });
    return results;
}

// For programs: a host whose incomplete read gave no row (for show, not the record asked for) still
// says so in JSON and CSV, with a row that carries no record (standard error says it already).
void addMarkerRow(HostResult& r, const std::string& host, const Options& options) {
    if (!r.incomplete || options.format == tool::Format::Table) return;
    const bool raw = options.command == "raw" || options.command == "get";
    if (raw && r.entries.empty()) {
        tool::EntryRow marker;
        marker.host = host;
        marker.marker = true;
        marker.complete = false;
        r.entries.push_back(marker);
    } else if (!raw && r.events.empty()) {
        tool::EventRow marker;
        marker.host = host;
        marker.marker = true;
        marker.complete = false;
        r.events.push_back(std::move(marker));
    }
}

// Keeps passwords and BMC keys out of core dumps: a process that is not dumpable leaves none (nor
// may other processes of its user read its memory through /proc or ptrace).
void keepSecretsOutOfCoreDumps() { prctl(PR_SET_DUMPABLE, 0, 0, 0, 0); }

// Erases the values of -P, -k and -y from the process's arguments, which other users can read in
// /proc/PID/cmdline (the copy parsed is kept): a whole word after the option, or the rest of the
// word the option ends in ("-Psecret").
void eraseSecretArguments(const std::vector<std::string>& arguments, char** argv) {
    for (const tool::SecretArgument& secret : tool::secretsIn(arguments)) {
        char* word = argv[secret.index + 1];
        std::memset(word + secret.offset, 0, std::strlen(word) - secret.offset);
    }
}

}  // namespace

int main(int argc, char** argv) {
    keepSecretsOutOfCoreDumps();
    Options options;
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    eraseSecretArguments(arguments, argv);
    try {
        options = tool::parseOptions(arguments);
        if (options.command == "help") {
            std::cout << tool::usageText();
            return 0;
        }
    } catch (const tool::UsageError& e) {
        std::cerr << "ipmi-event-log: " << e.what() << "\n(ipmi-event-log --help for the usage)\n";
        return kUsageStatus;
    }
    // -v traces the whole exchange. Otherwise the library's own lines stay quiet, as each
    // failure gets one line of the tool's, unless TOLMAR_LOG_LEVEL asks for them.
    const char* logLevel = std::getenv("TOLMAR_LOG_LEVEL");
    if (options.verbose) {
        Tolmar::SetLogLevel(4);
    } else if (logLevel == nullptr || *logLevel == '\0') {
        Tolmar::SetLogLevel(0);
    }

    // One process at a time keeps a state file or directory: two would save each other's
    // positions over their own.
    const bool stateFile = options.command == "list" && !options.statePath.empty();
    if (stateFile || !options.stateDirectory.empty()) {
        const std::string& state = stateFile ? options.statePath : options.stateDirectory;
        const bool directory = !stateFile || options.hosts.size() > 1;
        std::string message;
        if (!tool::lockState(tool::stateLockFile(state, directory), state, message)) {
            std::cerr << "ipmi-event-log: " << message << "\n";
            return kStateInUseStatus;
        }
        tool::sayWarning(message);
    }
    const std::vector<tool::ConnectionProfile> hosts = tool::profilesOf(options);
    if (options.insecure) {
        tool::sayWarning(
            "--insecure: the certificates of Redfish services are not checked; anyone between "
            "here and them can read the password and change what they answer");
    }
    if (options.command == "follow") {
        return tool::follow(hosts, tool::readSettingsOf(options), tool::pollSettingsOf(options),
                            tool::followSettingsOf(options), tool::outputStyle(options));
    }
    if (options.command == "serve") return tool::serve(tool::serveSettingsOf(options));
    std::vector<HostResult> results = runAll(options, hosts);
    std::vector<EventRow> events;
    std::vector<EntryRow> entries;
    std::string problems;  // one line a host that failed or stopped answering, after the output
    std::set<std::string> warnings;  // how sessions were opened: each once, before the problems
    int status = 0;
    bool anyRead = false;
    for (std::size_t i = 0; i < results.size(); ++i) {
        HostResult& r = results[i];  // its events move into the merged list
        addMarkerRow(r, hosts[i].host, options);
        events.insert(events.end(), std::make_move_iterator(r.events.begin()),
                      std::make_move_iterator(r.events.end()));
        entries.insert(entries.end(), r.entries.begin(), r.entries.end());
        if (r.failure != tool::Failure::None) {
            problems += "ipmi-event-log: " + r.failureText + "\n";
        } else {
            anyRead = true;
            std::cout << r.note;
            problems += r.changes;
            if (r.incomplete) problems += "ipmi-event-log: " + r.incompleteText + "\n";
        }
        status = std::max(status, tool::exitStatus(r));
        warnings.insert(r.warnings.begin(), r.warnings.end());
    }
    // Headers and brackets only for something read: a failed read prints nothing on stdout.
    const tool::Style style = tool::outputStyle(options);
    // With --state, a run that found nothing new prints nothing, not even the table's header.
    const bool nothingNew = !options.statePath.empty() && events.empty();
    if (anyRead && (options.command == "list" || options.command == "show") &&
        !(nothingNew && options.format == tool::Format::Table)) {
        tool::writeEvents(std::cout, events, style);
    } else if (anyRead && (options.command == "raw" || options.command == "get")) {
        tool::writeEntries(std::cout, entries, style);
    }
    std::cout.flush();
    // list --state: each state is saved only now that what its poll brought is written out, so
    // that a run that ends sooner, however it ends, shows those events again rather than never.
    for (std::size_t i = 0; i < results.size(); ++i) {
        HostResult& r = results[i];
        if (!r.source) continue;
        const std::string unsaved =
            std::cout.good()
                ? r.source->saveState(r.statePath)
                : r.source->hostName() +
                      ": the state was not saved: standard output could not be written";
        if (!unsaved.empty()) warnings.insert(unsaved);
    }
    for (const std::string& warning : warnings)
        std::cerr << "ipmi-event-log: warning: " << warning << "\n";
    std::cerr << problems;
    return status;
}
