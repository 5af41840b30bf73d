// The modules that /ipmi's scrapes name: those of serve's --config file, read again when asked,
// or, without one, the command line's user, password and settings as the module "default".
#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "exporter/ExporterConfig.h"
#include "cli/Options.h"
#include "exporter/TargetScrapes.h"

namespace tool {

class ScrapeModules {
public:
    // Reads --config when the command line gives one; throws ConfigError when it cannot be taken.
    explicit ScrapeModules(const Options& options);

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

    const Options& options_;
    mutable std::mutex mutex_;
    std::shared_ptr<const ExporterConfig> config_;  // null without --config
};

}  // namespace tool
