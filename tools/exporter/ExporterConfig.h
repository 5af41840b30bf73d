// The exporter's configuration file (serve --config): the community ipmi_exporter's `modules:`,
// so that its ipmi_remote.yml works unchanged, with keys of our own beside theirs. A scrape of
// /ipmi?target=HOST[:PORT]&module=NAME reaches the target with the module's credentials.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/YamlFile.h"
#include "fleet/ConnectionProfile.h"

namespace tool {

// How a module of `transport: redfish` reaches its targets' Redfish services.
struct RedfishModule {
    std::string scheme = "https";        // or "http", which sends the password in the clear
    std::optional<unsigned short> port;  // none: the scheme's (443, 80)
    std::string caFile;     // PEM authorities the services' certificates are checked against
    bool insecure = false;  // the certificates are not checked at all
    std::vector<std::string> logs;  // by Id or name; empty: the hardware event logs found

    // The scheme's own port: 443, or 80 for http.
    unsigned short schemePort() const;
    // The port a target that names none is reached at: the module's, else the scheme's.
    unsigned short defaultPort() const;
};

struct ExporterModule {
    std::string name;
    // `transport: redfish`; none: IPMI, whose keys below apply
    std::optional<RedfishModule> redfish;
    std::string user;
    std::string password;
    std::string privilege;              // admin, operator, user; empty: the highest the BMC grants
    std::optional<unsigned> timeoutMs;  // the session timeout
    std::optional<unsigned short> cipherSuite;  // an ID, or Tolmar::ConnectionSettings's auto
    std::vector<std::string> workarounds;       // workaround_flags the library takes
    std::optional<std::string> bmcKey;          // K_g, as text
    unsigned short port = 623;                  // IPMI's; a Redfish module's is its own
    // How its targets' events are worded (the severities counted); unset: as the command line says
    std::optional<Rendering> rendering;
    // Shell patterns of the targets' hosts the module may reach, matched against the whole host
    // ignoring case; the file must give them, or `hosts: any`.
    std::vector<std::string> hosts;
    bool anyHost = false;  // `hosts: any`: every target
    // Why a scrape with this module is refused (a driver we do not speak); empty: it is not.
    std::string refusal;

    // Whether a target whose host part is `targetHost` may be scraped with this module.
    bool allows(const std::string& targetHost) const;
};

// How many targets /ipmi's scrapes may have followed at once, and how long one that is no longer
// scraped is kept: `targets: {limit: N, forget_after: SECONDS}`.
struct TargetLimits {
    std::size_t limit = 1000;
    std::chrono::seconds forgetAfter{3600};
};

struct ExporterConfig {
    std::map<std::string, ExporterModule> modules;
    TargetLimits targets;
    // What the file has that is accepted but not used, or unsafe: a line each, naming the file.
    std::vector<std::string> warnings;
};

// Throws ConfigError, naming the file, the line and the key.
ExporterConfig loadExporterConfig(const std::string& path);

// A scrape's target=: "HOST", "HOST:PORT", "[IPv6]:PORT", "[IPv6]" or a bare IPv6 address. A
// port given here is used instead of the module's.
struct ScrapeTarget {
    std::string host;  // a host name in lower case, or an IPv4 or IPv6 address as inet_ntop has it
    std::optional<unsigned short> port;
};

// A target that cannot be split; the text says why.
struct TargetError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Checks the whole target before splitting it: a host name (letters, digits, "-", "_"), an IPv4
// address, or an IPv6 one, and a port from 1 to 65535; no user, path, control character or
// percent sign. Throws TargetError, whose text shows the target with such bytes escaped.
ScrapeTarget parseScrapeTarget(const std::string& target);

// One spelling for each BMC, so that "BMC1", "bmc1" and "bmc1:623" (the module's port) are one
// target: the host as parsed, and the port only when it is not `modulePort`.
std::string canonicalTarget(const ScrapeTarget& target, unsigned short modulePort);

// The URL of `target`'s Redfish service, "https://HOST[:PORT]" (an IPv6 address in brackets): the
// port the target names, else the module's; none where that is the scheme's own.
std::string redfishServiceUrl(const ScrapeTarget& target, const RedfishModule& module);

}  // namespace tool
