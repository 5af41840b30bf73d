#include "exporter/ScrapeModules.h"

#include "base/Printable.h"

namespace tool {

namespace {

// How `options` reach `target`: at the port the target names, else at theirs. The target is
// followed under its one spelling.
TargetConnection targetConnection(Options options, const ScrapeTarget& target) {
    TargetConnection connection;
    connection.target = canonicalTarget(target, options.port);
    options.port = target.port.value_or(options.port);
    connection.info = tool::connection(options, target.host);
    connection.settings = settings(options);
    connection.clearWhenFull = options.clearWhenFull;
    connection.rendering = options.rendering;
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

ScrapeModules::ScrapeModules(const Options& options) : options_(options) {
    if (!options.configPath.empty()) config_ = readConfig(options.configPath);
}

std::shared_ptr<const ExporterConfig> ScrapeModules::current() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return config_;
}

bool ScrapeModules::reload(std::string& reason) {
    if (options_.configPath.empty()) {
        reason = "there is no configuration file to read again (serve --config FILE)";
        return false;
    }
    try {
        std::shared_ptr<const ExporterConfig> config = readConfig(options_.configPath);
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
    Options moduleOptions = options_;
    moduleOptions.port = module.port;
    moduleOptions.user = module.user;
    moduleOptions.password = module.password;
    moduleOptions.cipherSuite = module.cipherSuite.value_or(options_.cipherSuite);
    moduleOptions.privilege = module.privilege;
    moduleOptions.bmcKey = module.bmcKey;
    moduleOptions.workarounds = module.workarounds;
    moduleOptions.rendering = module.rendering.value_or(options_.rendering);
    connection = targetConnection(moduleOptions, target);
    if (module.timeoutMs)
        connection.settings.sessionTimeout = std::chrono::milliseconds(*module.timeoutMs);
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
    connection = targetConnection(options_, target);
    return true;
}

}  // namespace tool
