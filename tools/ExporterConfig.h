// The exporter's configuration file (serve --config): the community ipmi_exporter's `modules:`,
// so that its ipmi_remote.yml works unchanged, with keys of our own beside theirs. A scrape of
// /ipmi?target=HOST[:PORT]&module=NAME reaches the target with the module's credentials.
#pragma once

#include "YamlFile.h"

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace tool {

struct ExporterModule {
    std::string name;
    std::string user;
    std::string password;
    std::string privilege;              // admin, operator, user; empty: the highest the BMC grants
    std::optional<unsigned> timeoutMs;  // the session timeout
    std::optional<unsigned short> cipherSuite;  // an ID, or Tolmar::ConnectionSettings's auto
    std::vector<std::string> workarounds;       // workaround_flags the library takes
    std::optional<std::string> bmcKey;          // K_g, as text
    unsigned short port = 623;
    std::vector<std::string> hosts;  // glob patterns of the targets' hosts; empty: any target
    // Why a scrape with this module is refused (a driver we do not speak); empty: it is not.
    std::string refusal;

    // Whether a target whose host part is `targetHost` may be scraped with this module.
    bool allows(const std::string& targetHost) const;
};

struct ExporterConfig {
    std::map<std::string, ExporterModule> modules;
    // What the file has that is accepted but not used, or unsafe: a line each, naming the file.
    std::vector<std::string> warnings;
};

// Throws ConfigError, naming the file, the line and the key.
ExporterConfig loadExporterConfig(const std::string& path);

// A scrape's target=: "HOST", "HOST:PORT", "[IPv6]:PORT", "[IPv6]" or a bare IPv6 address. A
// port given here is used instead of the module's.
struct ScrapeTarget {
    std::string host;
    std::optional<unsigned short> port;
};

// A target that cannot be split; the text says why.
struct TargetError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

ScrapeTarget parseScrapeTarget(const std::string& target);

}  // namespace tool
