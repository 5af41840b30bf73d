// One request of the tool to one host (list, show, raw, get, delete, clear, add, status) through
// the library, what came of it, and the texts that say so; and the fan-out that runs it for a
// fleet.
#pragma once

#include <IpmiEventLog.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "IpmiClientActivity.h"
#include "Options.h"
#include "Output.h"

namespace tool {

constexpr int kIncompleteStatus = 3;

struct HostResult {
    int result = Tolmar::IpmiEventLog::EL_SUCCESS;
    // A read (list, show, raw) that lost its BMC part way: the library still succeeds, with what
    // it read before; the framework's record of the call tells.
    bool incomplete = false;
    IpmiCallRecord record;
    std::vector<EventRow> events;
    std::vector<EntryRow> entries;
    std::string note;     // printed on success (status, changes)
    std::string warning;  // said on standard error, however the request went
    double seconds = 0;   // how long a poll of the host took (follow, serve)
};

// Exit statuses: 0 success, 2 a command line that cannot be followed, 3 a read that ended early
// (what was read is printed), 10 + the library's result code for a failed request (11 not
// supported ... 16 internal failure); the worst of a fleet.
int exitStatus(const HostResult& result);

// The hosts of the command line; "" (the local in-band interface) without -H.
std::vector<std::string> hostsOf(const Options& options);
Tolmar::TolmarConnection::ConnectionInfo connection(const Options& options,
                                                    const std::string& host);
std::string hostName(const std::string& host);
// One line naming the host, the cause and what to check.
std::string failureText(const std::string& host, const HostResult& result);
std::string incompleteText(const std::string& host, const HostResult& result,
                           const Options& options);
// The events the filters keep (severity, IDs, time), the last N of them, with local times when
// asked for, as rows of `host`.
void addEvents(HostResult& out, const std::string& host,
               std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events, const Options& options);

// Runs the command line's request on one host.
HostResult run(const Options& options, const std::string& host);

// Calls work(0) ... work(count - 1), `fanout` at a time, on this thread and others.
template <typename Work>
void fanOut(std::size_t count, unsigned fanout, const Work& work) {
    std::atomic<std::size_t> next{0};
    const auto worker = [&] {
        for (std::size_t i = next++; i < count; i = next++) work(i);
    };
    std::vector<std::thread> workers;
    const std::size_t threads = std::min<std::size_t>(fanout, count);
    for (std::size_t i = 1; i < threads; ++i) workers.emplace_back(worker);
    worker();
    for (std::thread& t : workers) t.join();
}

}  // namespace tool
