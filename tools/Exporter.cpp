#include "Exporter.h"

#include <httplib.h>

#include <iostream>
#include <mutex>
#include <thread>

#include "Metrics.h"
#include "Polling.h"

namespace tool {

namespace {

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

}  // namespace

int serve(const Options& options) {
    const ListenAddress address = listenAddress(options.listen);
    const std::vector<std::string> hosts = hostsOf(options);
    FleetMetrics metrics(hosts);
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
    // The polls run on a thread of their own; a signal ends them, and then the server: a signal
    // handler may not stop the server itself.
    std::thread poller([&] {
        pollHosts(options, [&](std::vector<HostResult>& results) {
            std::lock_guard<std::mutex> lock(guard);
            for (std::size_t i = 0; i < hosts.size(); ++i) {
                const HostResult& r = results[i];
                std::vector<Tolmar::TolmarAgentless::IPMIEVENT> events;
                for (const EventRow& row : r.events) events.push_back(row.event);
                metrics.recordPoll(hosts[i],
                                   {r.result == Tolmar::IpmiEventLog::EL_SUCCESS, !r.incomplete,
                                    r.cleared, r.call.selEntriesRead, r.seconds, r.emptied, r.sel},
                                   events);
            }
            metrics.recordFleetPoll();
        });
        server.stop();
    });
    server.listen_after_bind();
    poller.join();
    return 0;
}

}  // namespace tool
