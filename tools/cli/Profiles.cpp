#include "cli/Profiles.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "fleet/IpmiEventSource.h"
#include "fleet/RedfishClient.h"
#include "fleet/RedfishEventSource.h"
#include "output/Journal.h"

namespace tool {

std::vector<ConnectionProfile> profilesOf(const Options& options) {
    const std::vector<std::string> hosts =
        options.hosts.empty() ? std::vector<std::string>{""} : options.hosts;
    std::vector<ConnectionProfile> profiles;
    for (const std::string& host : hosts) {
        ConnectionProfile profile;
        profile.host = host;
        profile.port = options.port;
        profile.user = options.user;
        profile.password = options.password;
        profile.bmcKey = options.bmcKey;
        if (options.cipherSuite != Tolmar::ConnectionSettings::AutoCipherSuite)
            profile.cipherSuite = options.cipherSuite;
        profile.allowCipherSuiteZero = options.insecureCipherSuiteZero;
        profile.privilege = options.privilege;
        profile.workarounds = options.workarounds;
        profile.caFile = options.caFile;
        profile.insecure = options.insecure;
        profile.logs = options.logs;
        profiles.push_back(std::move(profile));
    }
    return profiles;
}

ReadSettings readSettingsOf(const Options& options) {
    ReadSettings settings;
    settings.rendering =
        options.rendering == Tolmar::EventRendering::Ipmi ? Rendering::Ipmi : Rendering::Described;
    settings.clearWhenFull = options.clearWhenFull;
    return settings;
}

EventFilter filterOf(const Options& options) {
    EventFilter filter;
    filter.minimum = static_cast<Severity>(options.minimumSeverity);
    // --id's range; without it, every ID (a Redfish service's may be beyond a SEL's 16 bits).
    if (options.firstId != 0 || options.lastId != 0xFFFF) {
        filter.firstId = options.firstId;
        filter.lastId = options.lastId;
    }
    if (!options.since.empty()) filter.since = parseUserTime(options.since);
    if (!options.until.empty()) filter.until = parseUserTime(options.until);
    filter.last = options.last;
    return filter;
}

PollSettings pollSettingsOf(const Options& options) {
    PollSettings settings;
    settings.filter = filterOf(options);
    settings.interval = options.interval;
    settings.polls = options.polls;
    settings.newOnly = options.newOnly;
    settings.fanout = options.fanout;
    settings.stateDirectory = options.stateDirectory;
    return settings;
}

FollowSettings followSettingsOf(const Options& options) {
    FollowSettings settings;
    settings.fullWarnings = options.fullWarnings;
    settings.syslog = options.syslog;
    settings.syslogFacility = options.syslogFacility;
    return settings;
}

ServeSettings serveSettingsOf(const Options& options) {
    ServeSettings settings;
    settings.listen = parseHostPort(options.listen, PortZero::Allowed);
    settings.webConfigPath = options.webConfigPath;
    settings.modules.configPath = options.configPath;
    settings.modules.profile = profilesOf(options).front();
    settings.modules.profile.host.clear();
    settings.modules.read = readSettingsOf(options);
    // The fleet of -H, or, without it and without modules, the local BMC.
    if (!options.hosts.empty() || options.configPath.empty()) settings.fleet = profilesOf(options);
    settings.polling = pollSettingsOf(options);
    return settings;
}

Style outputStyle(const Options& options) {
    Style style;
    style.format = options.format;
    // A fleet of Redfish services has their columns; any other, IPMI's.
    const bool redfish = !options.hosts.empty() &&
                         std::all_of(options.hosts.begin(), options.hosts.end(), isRedfishHost);
    style.columns = redfish ? redfishEventColumns() : ipmiEventColumns();
    style.localTime = options.localTime;
    style.wide = options.wide;
    style.showHost = options.hosts.size() > 1;
    const bool terminal = isatty(STDOUT_FILENO);
    style.colour = terminal && std::getenv("NO_COLOR") == nullptr;
    winsize size{};
    if (terminal && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0) style.width = size.ws_col;
    style.journal = standardOutputIsJournal();
    return style;
}

}  // namespace tool
