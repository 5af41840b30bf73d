#include "ExporterConfig.h"

#include "Options.h"

#include <IpmiConnectionSettings.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>

namespace tool {

namespace {

// ipmi_exporter's keys, then ours.
const std::vector<std::string> kModuleKeys = {
    "user",        "pass",          "privilege",        "driver",
    "timeout",     "collectors",    "workaround_flags", "exclude_sensor_ids",
    "custom_args", "collector_cmd", "default_args",     "pass_file",
    "bmc_key",     "bmc_key_file",  "cipher_suite",     "port",
    "hosts"};
// ipmi_exporter's keys that tune FreeIPMI's commands, which we do not run.
const std::vector<std::string> kUnusedKeys = {"exclude_sensor_ids", "custom_args", "collector_cmd",
                                              "default_args"};
// ipmi_exporter's collectors; ours are always on, whichever are named.
const std::vector<std::string> kCollectors = {"bmc",  "bmc-watchdog", "ipmi",       "chassis",
                                              "dcmi", "sel",          "sel-events", "sm-lan-mode"};
// FreeIPMI's names of the drivers: the IPMI v2.0 LAN, the v1.5 one, the in-band ones.
const std::vector<std::string> kLan20Drivers = {"LAN_2_0", "LAN20", "LANPLUS"};
const std::vector<std::string> kLocalDrivers = {"KCS",    "SSIF", "OPENIPMI", "OPEN",
                                                "SUNBMC", "BMC",  "INTELDCMI"};

// What IPMI's session messages have room for.
constexpr std::size_t kMaxUserBytes = 16;
constexpr std::size_t kMaxPasswordBytes = 20;
constexpr std::size_t kMaxBmcKeyBytes = 20;
constexpr unsigned long kMaxTimeoutMs = 3600000;

bool contains(const std::vector<std::string>& list, const std::string& text) {
    return std::find(list.begin(), list.end(), text) != list.end();
}

std::string upperCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

std::string lengthComplaint(std::size_t bytes, std::size_t max) {
    return "is " + std::to_string(bytes) + " bytes long, more than the " + std::to_string(max) +
           " IPMI allows";
}

// Reads one module's keys, and tells the loader what it found to warn about.
class ModuleReader {
public:
    ModuleReader(const YamlFile& file, const YamlEntry& module, std::vector<std::string>& warnings)
        : file_(file), warnings_(warnings), keys_(file.entries(module, kModuleKeys)) {
        module_.name = module.key.Scalar();
    }

    ExporterModule read() {
        if (const YamlEntry* user = find("user")) module_.user = boundedText(*user, kMaxUserBytes);
        if (auto password = secret("pass", "pass_file", kMaxPasswordBytes)) {
            module_.password = *password;
        }
        module_.bmcKey = secret("bmc_key", "bmc_key_file", kMaxBmcKeyBytes);
        if (const YamlEntry* privilege = find("privilege")) readPrivilege(*privilege);
        if (const YamlEntry* driver = find("driver")) readDriver(*driver);
        if (const YamlEntry* timeout = find("timeout")) {
            module_.timeoutMs = static_cast<unsigned>(
                file_.number(*timeout, 1, kMaxTimeoutMs, "a number of milliseconds"));
        }
        if (const YamlEntry* suite = find("cipher_suite")) readCipherSuite(*suite);
        if (const YamlEntry* port = find("port")) {
            module_.port = static_cast<unsigned short>(file_.number(*port, 1, 65535, "a UDP port"));
        }
        if (const YamlEntry* hosts = find("hosts")) readHosts(*hosts);
        if (const YamlEntry* collectors = find("collectors")) checkCollectors(*collectors);
        warnOfUnused();
        return module_;
    }

    // Whether the module has a password or a BMC key in the file itself.
    bool holdsSecrets() const { return holdsSecrets_; }

private:
    const YamlEntry* find(const std::string& key) const { return findEntry(keys_, key); }

    std::string boundedText(const YamlEntry& entry, std::size_t maxBytes) const {
        std::string value = file_.text(entry);
        if (value.size() > maxBytes)
            throw file_.error(entry, lengthComplaint(value.size(), maxBytes));
        return value;
    }

    // A secret given in the file under `inFileKey`, or as the first line of the file that
    // `fromFileKey` names; not both.
    std::optional<std::string> secret(const std::string& inFileKey, const std::string& fromFileKey,
                                      std::size_t maxBytes) {
        const YamlEntry* inFile = find(inFileKey);
        const YamlEntry* fromFile = find(fromFileKey);
        if (inFile && fromFile) {
            throw file_.error(*fromFile, "both " + inFileKey + " and " + fromFileKey +
                                             " are given; keep one of them");
        }
        if (inFile) {
            std::string value = boundedText(*inFile, maxBytes);
            holdsSecrets_ = holdsSecrets_ || !value.empty();
            return value;
        }
        if (fromFile) return firstLineOfSecretFile(*fromFile, maxBytes);
        return std::nullopt;
    }

    std::string firstLineOfSecretFile(const YamlEntry& entry, std::size_t maxBytes) const {
        const std::string path = file_.pathBeside(file_.text(entry));
        std::string line;
        try {
            line = firstLineOf(path);
        } catch (const std::runtime_error& e) {
            throw file_.error(entry, "cannot read " + path + ": " + e.what());
        }
        if (line.size() > maxBytes) {
            throw file_.error(
                entry, "the first line of " + path + " " + lengthComplaint(line.size(), maxBytes));
        }
        return line;
    }

    void readPrivilege(const YamlEntry& entry) {
        const std::string given = file_.text(entry);
        const std::optional<std::string> privilege = privilegeName(given);
        if (!privilege) throw file_.error(entry, quoted(given) + " is not admin, operator or user");
        module_.privilege = *privilege;
    }

    // LAN_2_0 is what we speak; the module of another driver loads, but refuses its scrapes.
    void readDriver(const YamlEntry& entry) {
        const std::string driver = upperCase(file_.text(entry));
        const std::string named = "module " + module_.name + ": driver " + driver;
        if (contains(kLan20Drivers, driver)) return;
        if (driver == "LAN") {
            module_.refusal = named + " (IPMI 1.5) is not supported; use LAN_2_0";
        } else if (contains(kLocalDrivers, driver)) {
            module_.refusal = named +
                              " reaches the BMC of the machine the exporter runs on, not a "
                              "target; use LAN_2_0";
        } else {
            throw file_.error(entry, quoted(file_.text(entry)) +
                                         " is not LAN_2_0, LAN, KCS, SSIF, OPENIPMI, SUNBMC "
                                         "or INTELDCMI");
        }
    }

    void readHosts(const YamlEntry& entry) {
        for (const YamlEntry& element : file_.elements(entry)) {
            std::string pattern = file_.text(element);
            if (pattern.empty()) throw file_.error(element, "an empty pattern matches no target");
            module_.hosts.push_back(std::move(pattern));
        }
        if (module_.hosts.empty()) {
            throw file_.error(entry,
                              "an empty list allows no target; leave hosts out to allow any");
        }
    }

    void checkCollectors(const YamlEntry& entry) const {
        for (const YamlEntry& element : file_.elements(entry)) {
            const std::string collector = file_.text(element);
            if (!contains(kCollectors, collector)) {
                throw file_.error(element, quoted(collector) +
                                               " is not bmc, bmc-watchdog, ipmi, chassis, dcmi, "
                                               "sel, sel-events or sm-lan-mode");
            }
        }
    }

    // "auto", or a suite ID from 1 to 255.
    void readCipherSuite(const YamlEntry& entry) {
        module_.cipherSuite =
            file_.text(entry) == "auto"
                ? Tolmar::ConnectionSettings::AutoCipherSuite
                : static_cast<unsigned short>(file_.number(entry, 1, 255, "a cipher suite"));
    }

    // ipmi_exporter's keys that we take but have no use for, in the file's order.
    void warnOfUnused() {
        for (const YamlEntry& entry : keys_) {
            const std::string& key = entry.key.Scalar();
            if (key == "workaround_flags") warnOfFlags(entry);
            if (contains(kUnusedKeys, key)) {
                warnings_.push_back(file_.message(entry, "is not used by ipmi-event-log"));
            }
        }
    }

    // FreeIPMI's workarounds: those the library takes go to the module's sessions; the others
    // are for FreeIPMI's own commands, or for what this client copes with on its own.
    void warnOfFlags(const YamlEntry& entry) {
        const std::vector<std::string> known = Tolmar::WorkaroundNames();
        for (const YamlEntry& element : file_.elements(entry)) {
            const std::string name = file_.text(element);
            if (contains(known, name)) {
                if (!contains(module_.workarounds, name)) module_.workarounds.push_back(name);
            } else {
                warnings_.push_back(
                    file_.message(element, quoted(name) + " is not used by ipmi-event-log"));
            }
        }
    }

    const YamlFile& file_;
    std::vector<std::string>& warnings_;
    const std::vector<YamlEntry> keys_;
    ExporterModule module_;
    bool holdsSecrets_ = false;
};

bool othersCanRead(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0;
}

unsigned short targetPort(const std::string& target, const std::string& text) {
    const bool decimal =
        !text.empty() && text.size() <= 5 && std::all_of(text.begin(), text.end(), [](char c) {
            return std::isdigit(static_cast<unsigned char>(c));
        });
    const unsigned long port = decimal ? std::stoul(text) : 0;
    if (port < 1 || port > 65535) {
        throw TargetError("target " + quoted(target) + ": " + quoted(text) +
                          " is not a port from 1 to 65535");
    }
    return static_cast<unsigned short>(port);
}

ScrapeTarget bracketedTarget(const std::string& target) {
    const auto close = target.find(']');
    if (close == std::string::npos) {
        throw TargetError("target " + quoted(target) + ": no \"]\" after the IPv6 address");
    }
    ScrapeTarget split{target.substr(1, close - 1), std::nullopt};
    if (split.host.empty()) {
        throw TargetError("target " + quoted(target) + ": no address between \"[\" and \"]\"");
    }
    const std::string rest = target.substr(close + 1);
    if (rest.empty()) return split;
    if (rest.front() != ':') {
        throw TargetError("target " + quoted(target) + ": only \":PORT\" may follow \"]\"");
    }
    split.port = targetPort(target, rest.substr(1));
    return split;
}

}  // namespace

bool ExporterModule::allows(const std::string& targetHost) const {
    if (hosts.empty()) return true;
    return std::any_of(hosts.begin(), hosts.end(), [&targetHost](const std::string& pattern) {
        return ::fnmatch(pattern.c_str(), targetHost.c_str(), FNM_CASEFOLD) == 0;
    });
}

ExporterConfig loadExporterConfig(const std::string& path) {
    const YamlFile file(path);
    ExporterConfig config;
    bool holdsSecrets = false;
    for (const YamlEntry& top : file.entries(file.root(), {"modules"})) {
        for (const YamlEntry& module : file.anyEntries(top)) {
            ModuleReader reader(file, module, config.warnings);
            ExporterModule read = reader.read();
            holdsSecrets = holdsSecrets || reader.holdsSecrets();
            config.modules.emplace(read.name, std::move(read));
        }
    }
    if (holdsSecrets && othersCanRead(path)) {
        config.warnings.push_back(path + ": others can read this file and the passwords in it; " +
                                  "chmod o-r " + path + ", or move them to pass_file and " +
                                  "bmc_key_file");
    }
    return config;
}

ScrapeTarget parseScrapeTarget(const std::string& target) {
    if (target.empty()) throw TargetError("the target is empty");
    if (target.front() == '[') return bracketedTarget(target);
    const auto colon = target.find(':');
    // A bare IPv6 address has more than one colon, and no port.
    if (colon == std::string::npos || target.find(':', colon + 1) != std::string::npos) {
        return {target, std::nullopt};
    }
    if (colon == 0) throw TargetError("target " + quoted(target) + ": no host before the port");
    return {target.substr(0, colon), targetPort(target, target.substr(colon + 1))};
}

}  // namespace tool
