#include "Exporter.h"

#include <httplib.h>

#include <chrono>
#include <iostream>
#include <memory>
#include <mutex>
#include <thread>

#include "Metrics.h"
#include "Polling.h"

namespace tool {

namespace {

using Clock = std::chrono::steady_clock;

struct ListenAddress {
    std::string host;
    int port;
};

// "ADDRESS:PORT", an IPv6 address in brackets ("[::1]:9290").
ListenAddress listenAddress(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0)
        throw UsageError("--listen \"" + text + "\" is not ADDRESS:PORT");
    std::string host = text.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']')
        host = host.substr(1, host.size() - 2);
    const auto port = static_cast<int>(parseNumber(text.substr(colon + 1), 65535, "--listen port"));
    return {host, port};
}

// Polls the fleet until a stop is asked for, each poll's results into `metrics`.
void pollFleet(const Options& options, FleetMetrics& metrics, std::mutex& guard) {
    const std::vector<std::string> hosts = hostsOf(options);
    std::vector<std::unique_ptr<Tolmar::IpmiEventFollower>> followers;
    for (const std::string& host : hosts)
        followers.push_back(std::make_unique<Tolmar::IpmiEventFollower>(connection(options, host)));
    for (bool first = true; !stopRequested(); first = false) {
        const auto due = Clock::now() + std::chrono::seconds(options.interval);
        fanOut(hosts.size(), options.fanout, [&](std::size_t i) {
            const auto started = Clock::now();
            const HostResult r = pollHost(*followers[i], options, hosts[i], first);
            const double seconds = std::chrono::duration<double>(Clock::now() - started).count();
            std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
            for (const EventRow& row : r.events) events.push_back(row.event);
            std::lock_guard<std::mutex> lock(guard);
            metrics.recordPoll(hosts[i], r.result == Tolmar::IpmiEventLog::EL_SUCCESS,
                               !r.incomplete, events, r.record.selEntries, seconds);
        });
        {
            std::lock_guard<std::mutex> lock(guard);
            metrics.recordFleetPoll();
        }
        waitForNextPoll(due);
    }
}

}  // namespace

int serve(const Options& options) {
    const ListenAddress address = listenAddress(options.listen);
    stopOnSignals();
    FleetMetrics metrics(hostsOf(options));
    std::mutex guard;
    httplib::Server server;
    server.Get("/metrics", [&](const httplib::Request&, httplib::Response& response) {
        std::lock_guard<std::mutex> lock(guard);
        response.set_content(metrics.text(), "text/plain; version=0.0.4; charset=utf-8");
    });
    server.Get("/", [](const httplib::Request&, httplib::Response& response) {
        response.set_content("ipmi-event-log exporter: see /metrics\n", "text/plain");
    });
    if (!server.bind_to_port(address.host, address.port)) {
        std::cerr << "ipmi-event-log: cannot listen on " << options.listen
                  << ": the address is not this machine's, or the port is taken\n";
        return 1;
    }
    std::cerr << "ipmi-event-log: serving /metrics on " << options.listen << "\n";
    std::thread poller([&] { pollFleet(options, metrics, guard); });
    // A signal handler may not stop the server; this thread does, once one asked.
    std::thread stopper([&] {
        waitForNextPoll(Clock::time_point::max());
        server.stop();
    });
    server.listen_after_bind();
    stopper.join();
    poller.join();
    return 0;
}

}  // namespace tool
