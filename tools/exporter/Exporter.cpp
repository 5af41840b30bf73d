#include "exporter/Exporter.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "exporter/Metrics.h"
#include "exporter/ScrapeModules.h"
#include "exporter/TargetScrapes.h"
#include "fleet/Polling.h"
#include "web/WebServer.h"

namespace tool {

namespace {

const char* const kMetricsType = "text/plain; version=0.0.4; charset=utf-8";

// What the HTTP server allows each client. Idle, half-open or trickling connections cost a
// descriptor and no thread, each until its request deadline: Prometheus sends a scrape's request
// whole at once, so 5 s is ample, and frees soon what a client that went left behind. Beyond the
// connections served at once (the service's LimitNOFILE counts them), a new one is closed as soon
// as it is accepted. A scrape blocks its handler thread while it waits for its BMC: as many
// threads as the polls have, so that scrapes that come together are not served one by one.
HttpLimits httpLimits() {
    HttpLimits limits;
    limits.connections = 512;
    limits.requestDeadline = std::chrono::seconds(5);
    limits.responseDeadline = std::chrono::seconds(10);
    limits.largestHead = 8 * 1024;
    limits.largestBody = 64 * 1024;
    limits.handlerThreads = 128;
    return limits;
}

// A scrape without Prometheus' header saying how long it may take.
constexpr std::chrono::milliseconds kDefaultScrapeLimit{10000};

// How long a scrape may take: a little less than Prometheus' scrape timeout, which it sends along.
std::chrono::milliseconds scrapeLimit(const HttpRequest& request) {
    const std::string header = request.header("X-Prometheus-Scrape-Timeout-Seconds");
    char* end = nullptr;
    const double seconds = std::strtod(header.c_str(), &end);
    if (header.empty() || *end != '\0' || !(seconds > 0)) return kDefaultScrapeLimit;
    const auto limit = std::chrono::milliseconds(static_cast<long>(seconds * 900));
    return std::max(limit, std::chrono::milliseconds(500));
}

void answerBadRequest(HttpResponse& response, const std::string& reason) {
    response.status = 400;
    response.contentType = "text/plain; charset=utf-8";
    response.body = reason + "\n";
}

// The web configuration's server, or a plain one without one.
std::unique_ptr<HttpServer> httpServer(const std::string& webConfigPath) {
    if (webConfigPath.empty()) return std::make_unique<HttpServer>(nullptr, httpLimits());
    const WebConfig config = loadWebConfig(webConfigPath);
    return std::make_unique<HttpServer>(&config, httpLimits());
}

// The names of the fleet's hosts, as the metrics label them.
std::vector<std::string> hostsOf(const std::vector<ConnectionProfile>& fleet) {
    std::vector<std::string> hosts;
    for (const ConnectionProfile& profile : fleet) hosts.push_back(profile.host);
    return hosts;
}

// Reads the configuration again: SIGHUP, POST /-/reload. A file that cannot be taken leaves the
// configuration in use, and says why. The targets' sessions end: the next scrape logs in with what
// the file says now.
bool reloadModules(ScrapeModules& modules, TargetScrapes& targets, std::string& reason) {
    if (modules.reload(reason)) {
        targets.disconnectAll();
        return true;
    }
    std::cerr << "ipmi-event-log: the configuration was not read again: " + reason + "\n";
    return false;
}

}  // namespace

int serve(const ServeSettings& settings) {
    std::unique_ptr<ScrapeModules> modules;
    std::unique_ptr<HttpServer> server;
    try {
        modules = std::make_unique<ScrapeModules>(settings.modules);
        server = httpServer(settings.webConfigPath);
    } catch (const ConfigError& e) {
        std::cerr << "ipmi-event-log: " << e.what() << "\n";
        return 2;
    }
    // SIGHUP reads the configuration again from the start.
    catchReloadSignal();
    // The fleet, polled in the background; /ipmi's targets, polled as they are scraped.
    const std::vector<std::string> hosts = hostsOf(settings.fleet);
    FleetMetrics metrics(hosts);
    std::mutex guard;
    TargetScrapes targets(settings.polling.stateDirectory);
    server->handle("GET", "/metrics", [&](const HttpRequest&, HttpResponse& response) {
        std::lock_guard<std::mutex> lock(guard);
        response.contentType = kMetricsType;
        response.body = metrics.text() + targetsText(targets.size());
    });
    server->handle("GET", "/ipmi", [&](const HttpRequest& request, HttpResponse& response) {
        const TargetKey key{request.param("target").value_or(""),
                            request.param("module").value_or("default")};
        if (key.target.empty())
            return answerBadRequest(response, "no target: scrape /ipmi?target=HOST[:PORT]");
        TargetConnection connection;
        std::string reason;
        if (!modules->resolve(key, connection, reason)) return answerBadRequest(response, reason);
        response.contentType = kMetricsType;
        response.body = targets.scrape(key, connection, scrapeLimit(request));
    });
    // A body is not needed: `curl -X POST .../-/reload`, which sends none, is taken.
    server->handle("POST", "/-/reload", [&](const HttpRequest&, HttpResponse& response) {
        std::string reason;
        if (reloadModules(*modules, targets, reason)) return;
        response.status = 500;
        response.contentType = "text/plain; charset=utf-8";
        response.body = reason + "\n";
    });
    server->handle("GET", "/", [](const HttpRequest&, HttpResponse& response) {
        response.body =
            "ipmi-event-log exporter: see /metrics, and /ipmi?target=HOST&module=NAME\n";
    });
    // Port 0: one the system chooses, said below.
    HostPort listening = settings.listen;
    const int port = server->bind(listening.host, listening.port.value_or(0));
    if (port <= 0) {
        std::cerr << "ipmi-event-log: cannot listen on " << joinHostPort(listening)
                  << ": the address is not this machine's, or the port is taken\n";
        return 1;
    }
    listening.port = static_cast<unsigned short>(port);
    std::cerr << "ipmi-event-log: serving /metrics on " << joinHostPort(listening) << "\n";
    // The polls and the reloads run on threads of their own; a signal ends them, and then the
    // server: a signal handler may not stop the server itself.
    std::thread poller([&] {
        if (!settings.fleet.empty()) {
            pollHosts(settings.fleet, settings.modules.read, settings.polling,
                      [&](std::vector<SourcePoll>& results) {
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
            reloadModules(*modules, targets, reason);
        });
        server->stop();
    });
    server->run();
    poller.join();
    reloader.join();
    return 0;
}

}  // namespace tool
