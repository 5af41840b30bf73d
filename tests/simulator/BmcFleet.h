// Many RMCP+ BMCs served from one process: each on a UDP port of 127.0.0.1 of its own, with the
// sample server's SDR repository, PEF filters and auxiliary log and a SEL of its own, answering the
// handshake of cipher suite 3 for the simulator's administrator as ipmi_sim does. The last
// `silent` of them have a port bound that swallows every datagram: BMCs that are down. A few
// threads serve them all, each waiting on its share of the sockets with epoll.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "SampleServer.h"

namespace bmcsim {

struct FleetSettings {
    std::size_t bmcs = 1;
    // How many of them, the last ones, never answer.
    std::size_t silent = 0;
    // Records in each SEL: the sample server's events (`sampleEventLog`) when 0, else that many of
    // them repeated (`repeatedEventLog`).
    std::size_t selRecords = 0;
    // Threads serving the BMCs.
    unsigned threads = 1;
};

class BmcFleet {
public:
    // Binds every port and starts serving; throws std::runtime_error when a port cannot be had.
    explicit BmcFleet(const FleetSettings& settings);
    ~BmcFleet();
    BmcFleet(const BmcFleet&) = delete;
    BmcFleet& operator=(const BmcFleet&) = delete;

    std::size_t size() const { return members_.size(); }
    unsigned short port(std::size_t bmc) const;
    // "127.0.0.1:PORT,127.0.0.1:PORT,...": every BMC, the silent ones last, as -H takes them.
    std::string hostList() const;
    // The SEL each answering BMC started with.
    const std::vector<SelRecord>& events() const { return events_; }

private:
    struct Member;

    void serve(unsigned thread, unsigned threads);

    std::vector<SelRecord> events_;
    std::vector<std::unique_ptr<Member>> members_;
    std::atomic<bool> stopping_{false};
    std::vector<std::thread> threads_;
};

}  // namespace bmcsim
