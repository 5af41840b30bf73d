// What an HTTP client puts in a scrape, as the exporter takes it apart: the target of
// /ipmi?target=, then, after the first line feed, the Authorization header's value.
#include <string>

#include "exporter/ExporterConfig.h"
#include "web/WebServer.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t lineFeed = input.find('\n');
    try {
        const tool::ScrapeTarget target = tool::parseScrapeTarget(input.substr(0, lineFeed));
        if (target.host.empty() || (target.port && *target.port == 0)) __builtin_trap();
    } catch (const tool::TargetError&) {
    }
    if (lineFeed == std::string::npos) return 0;
    const auto credentials = tool::basicCredentials(input.substr(lineFeed + 1));
    // The user ends at the first colon; the password may hold more.
    if (credentials && credentials->user.find(':') != std::string::npos) __builtin_trap();
    return 0;
}
