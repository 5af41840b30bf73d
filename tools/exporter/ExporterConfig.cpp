#include "exporter/ExporterConfig.h"

#include "base/BoundedFile.h"
#include "base/HostPort.h"
#include "base/Printable.h"
#include "fleet/ConnectionProfile.h"

#include <IpmiConnectionSettings.h>
#include <arpa/inet.h>
#include <fnmatch.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

namespace tool {

namespace {

// ipmi_exporter's keys, then ours.
const std::vector<std::string> kModuleKeys = {
    "user", "pass", "privilege", "driver", "timeout", "collectors", "workaround_flags",
    "exclude_sensor_ids", "custom_args", "collector_cmd", "default_args", "pass_file", "bmc_key",
    "bmc_key_file", "cipher_suite", "port", "hosts", "rendering",
    // The transport, and a Redfish module's own keys.
    "transport", "scheme", "ca_file", "insecure", "logs"};
// What only IPMI's sessions take, and what only a Redfish service's connection does: a module of
// the other transport giving one is a mistake, not a key to pass over.
const std::vector<std::string> kIpmiKeys = {"privilege", "driver",       "cipher_suite",
                                            "bmc_key",   "bmc_key_file", "workaround_flags"};
const std::vector<std::string> kRedfishKeys = {"scheme", "ca_file", "insecure", "logs"};
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
constexpr unsigned long kMaxTargets = 1000000;
constexpr unsigned long kMaxForgetAfterSeconds = 30UL * 24 * 3600;
// A host name has at most 253 bytes, a port and its colon 6, brackets 2.
constexpr std::size_t kLongestTarget = 261;

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
        moduleEntry_ = module;
    }

    ExporterModule read() {
        if (const YamlEntry* transport = find("transport")) readTransport(*transport);
        checkTransportKeys();
        if (const YamlEntry* user = find("user"))
            module_.user = boundedText(*user, ipmiBound(kMaxUserBytes));
        if (auto password = secret("pass", "pass_file", ipmiBound(kMaxPasswordBytes))) {
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
        if (const YamlEntry* port = find("port")) readPort(*port);
        if (module_.redfish) readRedfish(*module_.redfish);
        if (const YamlEntry* rendering = find("rendering")) readRendering(*rendering);
        if (const YamlEntry* hosts = find("hosts")) {
            readHosts(*hosts);
        } else {
            throw file_.error(moduleEntry_,
                              "has no hosts: name the targets it may scrape (hosts: "
                              "[\"bmc-*.example\"]), or say hosts: any to let it scrape any "
                              "target a scrape names");
        }
        if (const YamlEntry* collectors = find("collectors")) checkCollectors(*collectors);
        warnOfUnused();
        return module_;
    }

    // Whether the module has a password or a BMC key in the file itself.
    bool holdsSecrets() const { return holdsSecrets_; }

private:
    const YamlEntry* find(const std::string& key) const { return findEntry(keys_, key); }

    // IPMI's bound on a credential's length; a Redfish service's are its own, and the file's
    // size bounds them here.
    std::size_t ipmiBound(std::size_t bytes) const {
        return module_.redfish ? std::string::npos : bytes;
    }

    // ipmi, the default, or redfish.
    void readTransport(const YamlEntry& entry) {
        const std::string given = file_.text(entry);
        if (given == "redfish") {
            module_.redfish.emplace();
        } else if (given != "ipmi") {
            throw file_.error(entry, quoted(given) + " is not ipmi or redfish");
        }
    }

    // The first key, in the file's order, that the module's transport has no use for.
    void checkTransportKeys() const {
        for (const YamlEntry& entry : keys_) {
            const std::string& key = entry.key.Scalar();
            if (module_.redfish && contains(kIpmiKeys, key)) {
                throw file_.error(entry,
                                  "is an IPMI key, of no use to a module of transport: redfish");
            }
            if (!module_.redfish && contains(kRedfishKeys, key)) {
                throw file_.error(entry,
                                  "is a Redfish key, of no use to a module of transport: ipmi "
                                  "(the default); say transport: redfish");
            }
        }
    }

    // IPMI's UDP port, or the TCP port of a Redfish service.
    void readPort(const YamlEntry& entry) {
        if (module_.redfish) {
            module_.redfish->port =
                static_cast<unsigned short>(file_.number(entry, 1, 65535, "a TCP port"));
        } else {
            module_.port = static_cast<unsigned short>(file_.number(entry, 1, 65535, "a UDP port"));
        }
    }

    void readRedfish(RedfishModule& redfish) {
        if (const YamlEntry* scheme = find("scheme")) {
            const std::string given = file_.text(*scheme);
            if (given != "https" && given != "http")
                throw file_.error(*scheme, quoted(given) + " is not https or http");
            redfish.scheme = given;
        }
        readCertificateChecks(redfish);
        if (const YamlEntry* logs = find("logs")) {
            for (const YamlEntry& element : file_.elements(*logs)) {
                std::string log = file_.text(element);
                if (log.empty()) throw file_.error(element, "an empty name names no log");
                redfish.logs.push_back(std::move(log));
            }
        }
    }

    // How the services' certificates are checked: against ca_file's authorities, the system's,
    // or not at all (insecure, warned of).
    void readCertificateChecks(RedfishModule& redfish) {
        const YamlEntry* caFile = find("ca_file");
        const YamlEntry* insecure = find("insecure");
        if (caFile) redfish.caFile = readableFile(*caFile);
        if (insecure) redfish.insecure = file_.boolean(*insecure);
        // Plain HTTP has no certificate to check, with authorities or without.
        const YamlEntry* certificateKey = caFile ? caFile : redfish.insecure ? insecure : nullptr;
        if (certificateKey && redfish.scheme == "http") {
            throw file_.error(*certificateKey,
                              "a module of scheme: http has no certificates to check");
        }
        if (!redfish.insecure) return;
        if (caFile) {
            throw file_.error(*insecure,
                              "both ca_file and insecure: true are given; keep one of them");
        }
        warnings_.push_back(file_.message(
            *insecure,
            "the certificates of the module's Redfish services are not checked; anyone between "
            "here and them can read the password and change what they answer"));
    }

    // A file named beside the configuration, which the exporter can read now.
    std::string readableFile(const YamlEntry& entry) const {
        const std::string path = file_.pathBeside(file_.text(entry));
        if (path.empty()) throw file_.error(entry, "the file name is empty");
        if (::access(path.c_str(), R_OK) != 0) {
            const int error = errno;
            throw file_.error(entry, "cannot read " + path + ": " + std::strerror(error));
        }
        return path;
    }

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

    // A regular file of at most 1 MiB; others being able to read it is warned of.
    std::string firstLineOfSecretFile(const YamlEntry& entry, std::size_t maxBytes) const {
        const std::string path = file_.pathBeside(file_.text(entry));
        FileContents contents;
        try {
            contents = readBoundedFile(path);
        } catch (const FileError& e) {
            throw file_.error(entry, std::string("cannot read ") + e.what());
        }
        const std::string line = firstLine(contents.text);
        if (line.size() > maxBytes) {
            throw file_.error(
                entry, "the first line of " + path + " " + lengthComplaint(line.size(), maxBytes));
        }
        if (othersMayRead(contents.mode)) {
            warnings_.push_back(file_.message(
                entry, "others can read " + path + " and the secret in it; chmod o-r " + path));
        }
        return line;
    }

    void readPrivilege(const YamlEntry& entry) {
        const std::string given = file_.text(entry);
        const std::optional<std::string> privilege = privilegeName(given);
        if (!privilege) throw file_.error(entry, quoted(given) + " is not admin, operator or user");
        module_.privilege = *privilege;
    }

    // --rendering's words: ipmi or described.
    void readRendering(const YamlEntry& entry) {
        const std::string given = file_.text(entry);
        if (given == "ipmi") {
            module_.rendering = Rendering::Ipmi;
        } else if (given == "described") {
            module_.rendering = Rendering::Described;
        } else {
            throw file_.error(entry, quoted(given) + " is not ipmi or described");
        }
    }

    // LAN_2_0 is what we speak; the module of another driver loads, but refuses its scrapes.
    void readDriver(const YamlEntry& entry) {
        const std::string driver = upperCase(file_.text(entry));
        const std::string named = "module " + printable(module_.name) + ": driver " + driver;
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

    // A list of patterns, or "any".
    void readHosts(const YamlEntry& entry) {
        if (entry.value.IsScalar()) {
            if (file_.text(entry) != "any") {
                throw file_.error(
                    entry, quoted(file_.text(entry)) + " is neither a list of patterns nor any");
            }
            module_.anyHost = true;
            return;
        }
        for (const YamlEntry& element : file_.elements(entry)) {
            std::string pattern = file_.text(element);
            if (pattern.empty()) throw file_.error(element, "an empty pattern matches no target");
            module_.hosts.push_back(std::move(pattern));
        }
        if (module_.hosts.empty()) {
            throw file_.error(entry, "an empty list allows no target; say hosts: any to allow any");
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
    YamlEntry moduleEntry_;  // the module's own entry, named when it has no hosts
    std::vector<std::string>& warnings_;
    const std::vector<YamlEntry> keys_;
    ExporterModule module_;
    bool holdsSecrets_ = false;
};

[[noreturn]] void badTarget(const std::string& target, const std::string& why) {
    throw TargetError("target " + quoted(target) + ": " + why);
}

// What no target may hold, wherever it is: checked on the whole text, so that nothing after a NUL
// or a line break escapes the checks of its parts.
void checkWholeTarget(const std::string& target) {
    if (target.size() > kLongestTarget) {
        throw TargetError("the target is " + std::to_string(target.size()) +
                          " bytes long; HOST[:PORT] has at most " + std::to_string(kLongestTarget));
    }
    for (const char c : target) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) badTarget(target, "holds a control character");
        if (byte >= 0x80) {
            badTarget(target, "holds a byte beyond ASCII; give an international name as xn--");
        }
    }
    if (target.find('@') != std::string::npos)
        badTarget(target, "a user (USER@) has no place in a target: the module gives it");
    if (target.find("://") != std::string::npos) badTarget(target, "is a URL; give HOST[:PORT]");
    if (target.find_first_of("/?#\\") != std::string::npos)
        badTarget(target, "a path has no place in a target; give HOST[:PORT]");
    if (target.find('%') != std::string::npos) {
        badTarget(target,
                  "holds \"%\", a percent encoding that is not one (%zz) or was encoded twice");
    }
}

std::string lowerCase(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// An IPv6 address as inet_ntop writes it, or nothing.
std::optional<std::string> ipv6Address(const std::string& text) {
    unsigned char address[16];
    char written[INET6_ADDRSTRLEN];
    if (::inet_pton(AF_INET6, text.c_str(), address) != 1 ||
        !::inet_ntop(AF_INET6, address, written, sizeof written)) {
        return std::nullopt;
    }
    return std::string(written);
}

bool isHostLabel(const std::string& label) {
    return !label.empty() && label.size() <= 63 && label.front() != '-' && label.back() != '-' &&
           std::all_of(label.begin(), label.end(), [](char c) {
               return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_';
           });
}

// A host name (RFC 1123, and "_" that some sites use), or an IPv4 address in dotted decimal; in
// lower case, an address as inet_ntop writes it.
std::string checkedHost(const std::string& target, const std::string& host) {
    const bool numeric = std::all_of(host.begin(), host.end(), [](char c) {
        return std::isdigit(static_cast<unsigned char>(c)) || c == '.';
    });
    if (numeric) {
        unsigned char address[4];
        char written[INET_ADDRSTRLEN];
        if (::inet_pton(AF_INET, host.c_str(), address) != 1 ||
            !::inet_ntop(AF_INET, address, written, sizeof written)) {
            badTarget(target, quoted(host) + " is not an IPv4 address");
        }
        return written;
    }
    // An absolute name may end with a dot.
    const std::string name =
        !host.empty() && host.back() == '.' ? host.substr(0, host.size() - 1) : host;
    bool valid = !name.empty() && name.size() <= 253;
    for (std::size_t start = 0; valid && start <= name.size();) {
        const std::size_t dot = std::min(name.find('.', start), name.size());
        valid = isHostLabel(name.substr(start, dot - start));
        start = dot + 1;
    }
    if (!valid) {
        badTarget(target, quoted(host) +
                              " is not a host name: labels of letters, digits, \"-\" and \"_\", "
                              "1 to 63 bytes each, between dots");
    }
    return lowerCase(host);
}

}  // namespace

bool ExporterModule::allows(const std::string& targetHost) const {
    if (anyHost) return true;
    // fnmatch(3) reads up to a NUL: a host that holds one is matched by nothing.
    if (targetHost.find('\0') != std::string::npos) return false;
    return std::any_of(hosts.begin(), hosts.end(), [&targetHost](const std::string& pattern) {
        return ::fnmatch(pattern.c_str(), targetHost.c_str(), FNM_CASEFOLD) == 0;
    });
}

namespace {

TargetLimits readTargetLimits(const YamlFile& file, const YamlEntry& entry) {
    TargetLimits limits;
    const std::vector<YamlEntry> keys = file.entries(entry, {"limit", "forget_after"});
    if (const YamlEntry* limit = findEntry(keys, "limit")) {
        limits.limit = file.number(*limit, 1, kMaxTargets, "a number of targets");
    }
    if (const YamlEntry* forget = findEntry(keys, "forget_after")) {
        limits.forgetAfter = std::chrono::seconds(
            file.number(*forget, 1, kMaxForgetAfterSeconds, "a number of seconds"));
    }
    return limits;
}

}  // namespace

ExporterConfig loadExporterConfig(const std::string& path) {
    const YamlFile file(path);
    ExporterConfig config;
    bool holdsSecrets = false;
    for (const YamlEntry& top : file.entries(file.root(), {"modules", "targets"})) {
        if (top.key.Scalar() == "targets") {
            config.targets = readTargetLimits(file, top);
            continue;
        }
        for (const YamlEntry& module : file.anyEntries(top)) {
            ModuleReader reader(file, module, config.warnings);
            ExporterModule read = reader.read();
            holdsSecrets = holdsSecrets || reader.holdsSecrets();
            config.modules.emplace(read.name, std::move(read));
        }
    }
    if (holdsSecrets && othersMayRead(file.mode())) {
        const std::string named = printable(path);
        config.warnings.push_back(named + ": others can read this file and the passwords in it; " +
                                  "chmod o-r " + named + ", or move them to pass_file and " +
                                  "bmc_key_file");
    }
    return config;
}

ScrapeTarget parseScrapeTarget(const std::string& target) {
    if (target.empty()) throw TargetError("the target is empty");
    checkWholeTarget(target);
    HostPort split;
    try {
        split = parseHostPort(target);
    } catch (const HostPortError& e) {
        badTarget(target, e.what());
    }
    // One spelling a host: an IPv6 address as inet_ntop writes it, a name in lower case.
    if (!split.ipv6) return {checkedHost(target, split.host), split.port};
    const std::optional<std::string> address = ipv6Address(split.host);
    if (!address) badTarget(target, quoted(split.host) + " is not an IPv6 address");
    return {*address, split.port};
}

unsigned short RedfishModule::schemePort() const { return scheme == "http" ? 80 : 443; }

unsigned short RedfishModule::defaultPort() const { return port.value_or(schemePort()); }

std::string redfishServiceUrl(const ScrapeTarget& target, const RedfishModule& module) {
    const bool ipv6 = target.host.find(':') != std::string::npos;
    std::string url = module.scheme + "://" + (ipv6 ? "[" + target.host + "]" : target.host);
    // The scheme's own port is left out, so that "bmc1" and "bmc1:443" are one URL: one session.
    const unsigned short port = target.port.value_or(module.defaultPort());
    if (port != module.schemePort()) url += ":" + std::to_string(port);
    return url;
}

std::string canonicalTarget(const ScrapeTarget& target, unsigned short modulePort) {
    const bool ipv6 = target.host.find(':') != std::string::npos;
    if (!target.port || *target.port == modulePort) return target.host;
    return (ipv6 ? "[" + target.host + "]" : target.host) + ":" + std::to_string(*target.port);
}

}  // namespace tool
