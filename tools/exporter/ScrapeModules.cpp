#include "exporter/ScrapeModules.h"

#include "base/Printable.h"
#include "fleet/Polling.h"

namespace tool {

namespace {

// How `profile` reaches `target`: at the port the target names, else at its own. The target is
// followed under its one spelling.
TargetConnection targetConnection(ConnectionProfile profile, const ReadSettings& read,
                                  const ScrapeTarget& target) {
    TargetConnection connection;
    connection.target = canonicalTarget(target, profile.port);
    profile.port = target.port.value_or(profile.port);
    profile.host = target.host;
    connection.profile = std::move(profile);
    connection.read = read;
    return connection;
}

// How a module of transport: redfish reaches `target`: at the URL of its service, the module's
// certificate settings and logs in place of the command line's. Its target is spelt without the
// port that the URL would take anyway.
TargetConnection redfishConnection(ConnectionProfile profile, const ReadSettings& read,
                                   const ScrapeTarget& target, const RedfishModule& redfish) {
    TargetConnection connection;
    connection.target = canonicalTarget(target, redfish.defaultPort());
    profile.host = redfishServiceUrl(target, redfish);
    profile.port = target.port.value_or(redfish.defaultPort());  // where the URL leads
    profile.caFile = redfish.caFile;
    profile.insecure = redfish.insecure;
    profile.logs = redfish.logs;
    connection.profile = std::move(profile);
    connection.read = read;
    return connection;
}

// The file's warnings, said once for each reading.
std::shared_ptr<const ExporterConfig> readConfig(const std::string& path) {
    auto config = std::make_shared<const ExporterConfig>(loadExporterConfig(path));
    for (const std::string& warning : config->warnings) sayWarning(warning);
    return config;
}

std::string moduleNames(const ExporterConfig& config) {
    std::string names;
    for (const auto& module : config.modules)
        names += (names.empty() ? "" : ", ") + printable(module.first);
    return names;
}

}  // namespace

ScrapeModules::ScrapeModules(ScrapeDefaults defaults) : defaults_(std::move(defaults)) {
    if (!defaults_.configPath.empty()) config_ = readConfig(defaults_.configPath);
}

std::shared_ptr<const ExporterConfig> ScrapeModules::current() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return config_;
}

bool ScrapeModules::reload(std::string& reason) {
    if (defaults_.configPath.empty()) {
        reason = "there is no configuration file to read again (serve --config FILE)";
        return false;
    }
    try {
        std::shared_ptr<const ExporterConfig> config = readConfig(defaults_.configPath);
        std::lock_guard<std::mutex> lock(mutex_);
        config_ = std::move(config);
        return true;
    } catch (const ConfigError& e) {
        reason = e.what();
        return false;
    }
}

bool ScrapeModules::resolve(const TargetKey& key, TargetConnection& connection,
                            std::string& reason) const {
    ScrapeTarget target;
    try {
        target = parseScrapeTarget(key.target);
    } catch (const TargetError& e) {
        reason = e.what();
        return false;
    }
    const std::shared_ptr<const ExporterConfig> config = current();
    if (!config) return resolveCommandLine(key, target, connection, reason);
    const auto found = config->modules.find(key.module);
    if (found == config->modules.end()) {
        reason = "unknown module " + quoted(key.module) + "; the configuration has " +
                 moduleNames(*config);
        return false;
    }
    const ExporterModule& module = found->second;
    if (!module.refusal.empty()) {
        reason = module.refusal;
        return false;
    }
    if (!module.allows(target.host)) {
        reason = "target " + quoted(key.target) + " is not among the hosts of module " +
                 quoted(module.name);
        return false;
    }
    // The module's user, password and settings in place of the command line's.
    ConnectionProfile profile = defaults_.profile;
    profile.port = module.port;
    profile.user = module.user;
    profile.password = module.password;
    if (module.cipherSuite) profile.cipherSuite = module.cipherSuite;
    profile.privilege = module.privilege;
    profile.bmcKey = module.bmcKey;
    profile.workarounds = module.workarounds;
    if (module.timeoutMs) profile.sessionTimeout = std::chrono::milliseconds(*module.timeoutMs);
    ReadSettings read = defaults_.read;
    if (module.rendering) read.rendering = *module.rendering;
    connection = module.redfish
                     ? redfishConnection(std::move(profile), read, target, *module.redfish)
                     : targetConnection(std::move(profile), read, target);
    connection.limits = config->targets;
    return true;
}

bool ScrapeModules::resolveCommandLine(const TargetKey& key, const ScrapeTarget& target,
                                       TargetConnection& connection, std::string& reason) const {
    if (key.module != "default") {
        reason =
            "unknown module " + quoted(key.module) + ": without --config there is only default";
        return false;
    }
    connection = targetConnection(defaults_.profile, defaults_.read, target);
    return true;
}

}  // namespace tool
