// Scrapes of an exporter's /ipmi for a fleet of targets, as Prometheus makes them: every target
// at once, a thread and a connection each.
#pragma once

#include <httplib.h>

#include <string>
#include <thread>
#include <vector>

namespace bench {

// Scrapes /ipmi of every target at once, one thread and connection each; the answers in target
// order ("" for a scrape that failed).
inline std::vector<std::string> scrapeAll(const std::string& exporter,
                                          const std::vector<std::string>& targets) {
    std::vector<std::string> answers(targets.size());
    std::vector<std::thread> scrapes;
    const std::size_t colon = exporter.rfind(':');
    for (std::size_t i = 0; i < targets.size(); ++i) {
        scrapes.emplace_back([&, i] {
            httplib::Client client(exporter.substr(0, colon),
                                   std::stoi(exporter.substr(colon + 1)));
            client.set_read_timeout(30, 0);
            const auto result = client.Get("/ipmi?target=" + targets[i] + "&module=default",
                                           {{"X-Prometheus-Scrape-Timeout-Seconds", "10"}});
            if (result && result->status == 200) answers[i] = result->body;
        });
    }
    for (std::thread& scrape : scrapes) scrape.join();
    return answers;
}

}  // namespace bench
