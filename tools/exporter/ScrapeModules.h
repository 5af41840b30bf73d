// The modules that /ipmi's scrapes name: those of serve's --config file, read again when asked,
// or, without one, the command line's user, password and settings as the module "default".
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "exporter/ExporterConfig.h"
#include "exporter/TargetScrapes.h"
#include "fleet/ConnectionProfile.h"

namespace tool {

// The module "default" without a configuration file, and what a module's keys are laid over.
struct ScrapeDefaults {
    std::string configPath;  // the modules' YAML file; empty: none
    ConnectionProfile profile;
    ReadSettings read;
};

class ScrapeModules {
public:
    // Reads the configuration file when there is one; throws ConfigError when it cannot be taken.
    explicit ScrapeModules(ScrapeDefaults defaults);

    // Reads the configuration file again. False, with the reason, when it cannot be taken: the
    // configuration in use stays.
    bool reload(std::string& reason);
    // How `key`'s module reaches its target. False, with the reason a scrape is answered, when
    // the module is unknown or refused, or the target is malformed or not among its hosts.
    bool resolve(const TargetKey& key, TargetConnection& connection, std::string& reason) const;

private:
    std::shared_ptr<const ExporterConfig> current() const;
    bool resolveCommandLine(const TargetKey& key, const ScrapeTarget& target,
                            TargetConnection& connection, std::string& reason) const;

    const ScrapeDefaults defaults_;
    mutable std::mutex mutex_;
    std::shared_ptr<const ExporterConfig> config_;  // null without --config
};

}  // namespace tool
