#include "exporter/Exporter.h"

#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <filesystem>
#include <iostream>
#include <mutex>
#include <thread>

#include "exporter/Metrics.h"
#include "fleet/Polling.h"
#include "exporter/ScrapeModules.h"
#include "exporter/TargetScrapes.h"
#include "web/WebServer.h"

namespace tool {

namespace {

const char* const kMetricsType = "text/plain; version=0.0.4; charset=utf-8";
// Connections served at once: dozens of idle or half-open ones (each holds its thread until the
// read timeout) leave threads for the scrapes.
constexpr std::size_t kHttpThreads = 128;
constexpr time_t kReadTimeoutSeconds = 5;
constexpr std::size_t kLargestRequestBody = 64 * 1024;
// A scrape without Prometheus' header saying how long it may take.
constexpr std::chrono::milliseconds kDefaultScrapeLimit{10000};

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

// How long a scrape may take: a little less than Prometheus' scrape timeout, which it sends along.
std::chrono::milliseconds scrapeLimit(const httplib::Request& request) {
    const std::string header = request.get_header_value("X-Prometheus-Scrape-Timeout-Seconds");
    char* end = nullptr;
    const double seconds = std::strtod(header.c_str(), &end);
    if (header.empty() || *end != '\0' || !(seconds > 0)) return kDefaultScrapeLimit;
    const auto limit = std::chrono::milliseconds(static_cast<long>(seconds * 900));
    return std::max(limit, std::chrono::milliseconds(500));
}

// The port a socket is bound to; 0 for a socket of neither IPv4 nor IPv6.
int boundPort(int socket) {
    sockaddr_storage address{};
    socklen_t size = sizeof address;
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
    if (address.ss_family == AF_INET)
        return ntohs(reinterpret_cast<sockaddr_in&>(address).sin_port);
    if (address.ss_family == AF_INET6)
        return ntohs(reinterpret_cast<sockaddr_in6&>(address).sin6_port);
    return 0;
}

// Debian's cpp-httplib listens with a backlog of 5 connections: scrapes that come together
// overflow it, and each one dropped waits a second for its SYN to be sent again. Listening again
// on the same socket sets the kernel's longest queue instead; cpp-httplib keeps the socket to
// itself, so it is found among the process's descriptors by its port.
void widenListenBacklog(int port) {
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
        int socket = -1;
        try {
            socket = std::stoi(entry.path().filename().string());
        } catch (const std::exception&) {
            continue;
        }
        int listening = 0;
        socklen_t size = sizeof listening;
        if (getsockopt(socket, SOL_SOCKET, SO_ACCEPTCONN, &listening, &size) == 0 && listening &&
            boundPort(socket) == port)
            ::listen(socket, SOMAXCONN);
    }
}

void answerBadRequest(httplib::Response& response, const std::string& reason) {
    response.status = 400;
    response.set_content(reason + "\n", "text/plain; charset=utf-8");
}

// The web configuration's server, or a plain one without --web-config.
std::unique_ptr<httplib::Server> httpServer(const Options& options) {
    if (options.webConfigPath.empty()) return makeHttpServer(nullptr);
    const WebConfig config = loadWebConfig(options.webConfigPath);
    return makeHttpServer(&config);
}

// Reads the configuration again: SIGHUP, POST /-/reload. A file that cannot be taken leaves the
// configuration in use, and says why.
bool reloadModules(ScrapeModules& modules, std::string& reason) {
    if (modules.reload(reason)) return true;
    std::cerr << "ipmi-event-log: the configuration was not read again: " + reason + "\n";
    return false;
}

}  // namespace

int serve(const Options& options) {
    const ListenAddress address = listenAddress(options.listen);
    std::unique_ptr<ScrapeModules> modules;
    std::unique_ptr<httplib::Server> server;
    try {
        modules = std::make_unique<ScrapeModules>(options);
        server = httpServer(options);
    } catch (const ConfigError& e) {
        std::cerr << "ipmi-event-log: " << e.what() << "\n";
        return 2;
    }
    // SIGHUP reads the configuration again from the start.
    catchReloadSignal();
    // The fleet of -H (or, without it and without --config, the local BMC), polled in the
    // background; /ipmi's targets, polled as they are scraped.
    const bool fleet = !options.hosts.empty() || options.configPath.empty();
    const std::vector<std::string> hosts = fleet ? hostsOf(options) : std::vector<std::string>{};
    FleetMetrics metrics(hosts);
    std::mutex guard;
    TargetScrapes targets(options.stateDirectory);
    server->new_task_queue = [] { return new httplib::ThreadPool(kHttpThreads); };
    server->set_read_timeout(kReadTimeoutSeconds, 0);
    server->set_payload_max_length(kLargestRequestBody);
    server->Get("/metrics", [&](const httplib::Request&, httplib::Response& response) {
        std::lock_guard<std::mutex> lock(guard);
        response.set_content(metrics.text() + targetsText(targets.size()), kMetricsType);
    });
    server->Get("/ipmi", [&](const httplib::Request& request, httplib::Response& response) {
        const TargetKey key{
            request.get_param_value("target"),
            request.has_param("module") ? request.get_param_value("module") : "default"};
        if (key.target.empty())
            return answerBadRequest(response, "no target: scrape /ipmi?target=HOST[:PORT]");
        TargetConnection connection;
        std::string reason;
        if (!modules->resolve(key, connection, reason)) return answerBadRequest(response, reason);
        response.set_content(targets.scrape(key, connection, scrapeLimit(request)), kMetricsType);
    });
    // A handler that takes the body as a reader: the body, none mostly, is never read, so that
    // `curl -X POST .../-/reload`, which sends no Content-Length, is taken too.
    server->Post("/-/reload", [&](const httplib::Request&, httplib::Response& response,
                                  const httplib::ContentReader&) {
        std::string reason;
        if (reloadModules(*modules, reason)) return response.set_content("", "text/plain");
        response.status = 500;
        response.set_content(reason + "\n", "text/plain; charset=utf-8");
    });
    server->Get("/", [](const httplib::Request&, httplib::Response& response) {
        response.set_content(
            "ipmi-event-log exporter: see /metrics, and /ipmi?target=HOST&module=NAME\n",
            "text/plain");
    });
    // Port 0: one the system chooses, said below.
    const int port = address.port == 0 ? server->bind_to_any_port(address.host)
                     : server->bind_to_port(address.host, address.port) ? address.port
                                                                        : -1;
    if (port <= 0) {
        std::cerr << "ipmi-event-log: cannot listen on " << options.listen
                  << ": the address is not this machine's, or the port is taken\n";
        return 1;
    }
    widenListenBacklog(port);
    std::cerr << "ipmi-event-log: serving /metrics on "
              << options.listen.substr(0, options.listen.rfind(':') + 1) << port << "\n";
    // The polls and the reloads run on threads of their own; a signal ends them, and then the
    // server: a signal handler may not stop the server itself.
    std::thread poller([&] {
        if (fleet) {
            pollHosts(options, [&](std::vector<HostResult>& results) {
                std::lock_guard<std::mutex> lock(guard);
                for (std::size_t i = 0; i < hosts.size(); ++i)
                    recordPoll(metrics, hosts[i], results[i]);
                metrics.recordFleetPoll();
                return true;
            });
        }
    });
    std::thread reloader([&] {
        reloadWhenAsked([&] {
            std::string reason;
            reloadModules(*modules, reason);
        });
        server->stop();
    });
    server->listen_after_bind();
    poller.join();
    reloader.join();
    return 0;
}

}  // namespace tool
