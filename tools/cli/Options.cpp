#include "cli/Options.h"

#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>

#include "base/BoundedFile.h"
#include "base/HexBytes.h"
#include "base/Printable.h"
#include "follow/SyslogMessage.h"
#include "base/WordLists.h"

namespace tool {

const char* const kUsage =
    "usage: ipmi-event-log [options] COMMAND [ARGS]\n"
    "\n"
    "commands:\n"
    "  list              the decoded event log\n"
    "  show ID           one decoded event\n"
    "  raw               every SEL entry as 16 hexadecimal bytes\n"
    "  get ID            one SEL entry\n"
    "  delete ID...      delete SEL entries\n"
    "  clear             clear the SEL\n"
    "  add HEX16         add a SEL entry of 16 bytes\n"
    "  status            probe the connection\n"
    "  follow            the events there are, then new ones as they come (like tail -f)\n"
    "  serve             a Prometheus exporter of the fleet's events on /metrics\n"
    "\n"
    "connection:\n"
    "  -H, --host LIST   BMCs over the LAN (RMCP+): names, addresses, ranges (bmc[01-40].lab),\n"
    "                    host:port, comma-separated; without it, this machine's BMC in band\n"
    "  -p, --port N      UDP port (623)\n"
    "  -U, --user NAME   user name\n"
    "  -E                password from the environment variable IPMI_PASSWORD\n"
    "  -f FILE           password from the first line of FILE\n"
    "  -P PASSWORD       password on the command line (erased from the process's arguments\n"
    "                    once it starts, but visible to other users until then)\n"
    "  -k KEY            the BMC key (K_g), where the BMC has one; -y HEX the same in\n"
    "                    hexadecimal (both erased from the process's arguments as -P is)\n"
    "  -C, --cipher-suite N   cipher suite ID, or auto: the strongest the BMC offers,\n"
    "                    asked of it (auto)\n"
    "  --insecure-cipher-suite-0   allow cipher suite 0: no authentication, any password\n"
    "  -L, --privilege L      admin, operator or user (the highest the BMC grants)\n"
    "  --workaround NAME[,NAME...]   for BMCs that depart from IPMI v2.0, by FreeIPMI's\n"
    "                    names (an unknown name is refused with the list)\n"
    "  --fanout N        hosts read at once (256; at most 4096)\n"
    "\n"
    "output:\n"
    "  --format F        table, json, jsonl or csv (table)\n"
    "  --rendering R     how events are worded: ipmi, what the record's bytes mean in\n"
    "                    IPMI v2.0 (sensor, event, reading), or described, the library's\n"
    "                    texts (ipmi)\n"
    "  --wide            full texts in the table, with the auxiliary log\n"
    "  --localtime       time stamps in local time (the BMC's are UTC)\n"
    "  -v                trace the IPMI exchange on standard error; status: what was\n"
    "                    learnt of the BMC\n"
    "\n"
    "filters (list):\n"
    "  --severity MIN    info, warning or critical\n"
    "  --since T, --until T   YYYY-MM-DD[ HH:MM[:SS]] in UTC\n"
    "  --id A-B          record IDs A to B (or one ID)\n"
    "  --last N          the last N events (follow: of those there are at the start)\n"
    "\n"
    "following:\n"
    "  --state PATH      list: only events added since the last run with PATH (a directory\n"
    "                    for several hosts)\n"
    "  --interval S      follow, serve: seconds between polls (10)\n"
    "  --listen A:P      serve: the address and port of /metrics and /ipmi (127.0.0.1:9290);\n"
    "                    port 0 takes a free one, said on standard error\n"
    "  --config FILE     serve: the modules of /ipmi?target=HOST&module=NAME (ipmi_exporter's)\n"
    "  --web-config FILE serve: TLS and basic authentication (exporter-toolkit's format)\n"
    "  --state-dir DIR   serve, follow: keep each follower's state in DIR across restarts\n"
    "  --polls N         follow: stop after N polls (default: when interrupted)\n"
    "  --new-only        follow: only events added after the start, none of those there are\n"
    "  --full-warnings LIST   follow: warn as the SEL passes these percentages of full\n"
    "                    (80,90,100), and when the BMC drops events; off: only then\n"
    "  --clear-when-full PCT  follow, serve, list --state: clear the SEL once it is PCT% full,\n"
    "                    after reading every record in it (needs operator privilege)\n"
    "  --syslog ADDRESS  follow: send each event to a log server instead of standard output,\n"
    "                    as an RFC 5424 message: udp://HOST:PORT, tcp://HOST:PORT (octet\n"
    "                    counted) or unix:PATH (unix:/dev/log the local one)\n"
    "  --syslog-facility NAME   follow --syslog: kern, user, ..., local0 to local7 (daemon)\n";

unsigned long parseNumber(const std::string& text, unsigned long max, const std::string& what) {
    char* end = nullptr;
    const int base = text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0 ? 16 : 10;
    const unsigned long value = std::strtoul(text.c_str(), &end, base);
    if (text.empty() || *end != '\0' || value > max || text[0] == '-') {
        throw UsageError(what + " \"" + text + "\" is not a number from 0 to " +
                         std::to_string(max));
    }
    return value;
}

namespace {

int parseSeverity(const std::string& text) {
    static const std::map<std::string, int> severities = {
        {"info", 0}, {"warning", 1}, {"critical", 2}, {"0", 0}, {"1", 1}, {"2", 2}};
    const auto found = severities.find(text);
    if (found == severities.end()) {
        throw UsageError("severity \"" + text + "\" is not info, warning or critical");
    }
    return found->second;
}

std::string parsePrivilege(const std::string& text) {
    const std::optional<std::string> name = privilegeName(text);
    if (!name) throw UsageError("privilege \"" + text + "\" is not admin, operator or user");
    return *name;
}

Format parseFormat(const std::string& text) {
    static const std::map<std::string, Format> formats = {{"table", Format::Table},
                                                          {"json", Format::Json},
                                                          {"jsonl", Format::Jsonl},
                                                          {"csv", Format::Csv}};
    const auto found = formats.find(text);
    if (found == formats.end())
        throw UsageError("format \"" + text + "\" is not table, json, jsonl or csv");
    return found->second;
}

}  // namespace

Tolmar::EventRendering parseRendering(const std::string& text) {
    if (text == "ipmi") return Tolmar::EventRendering::Ipmi;
    if (text == "described") return Tolmar::EventRendering::Described;
    throw UsageError("rendering \"" + printable(text) + "\" is not ipmi or described");
}

namespace {

// A configuration file's name: an empty one would read as no file given at all.
std::string fileName(const std::string& option, const std::string& name) {
    if (name.empty()) throw UsageError(option + ": the file name is empty");
    return name;
}

// -f's file: a regular file of at most 1 MiB, its first line the password. Others being able to
// read it is warned of, as it is for the exporter's configuration.
std::string passwordFromFile(const std::string& path) {
    try {
        const FileContents contents = readBoundedFile(path);
        if (othersMayRead(contents.mode)) {
            std::cerr << "ipmi-event-log: warning: " + othersCanReadPassword(path) + "\n"
                      << std::flush;
        }
        return firstLine(contents.text);
    } catch (const FileError& e) {
        throw UsageError(std::string("cannot read a password from ") + e.what());
    }
}

// -y's key: up to 20 bytes in hexadecimal, with or without 0x. The key itself is never shown.
std::string bmcKeyFromHex(std::string hex) {
    if (hex.rfind("0x", 0) == 0 || hex.rfind("0X", 0) == 0) hex.erase(0, 2);
    std::vector<unsigned char> key;
    if (!bytesFromHex(hex, key) || key.empty() || key.size() > 20) {
        throw UsageError("-y takes the BMC key as 2 to 40 hexadecimal digits, an even number");
    }
    return std::string(key.begin(), key.end());
}

// What IPMI v2.0 allows over the LAN (RAKP message 1, the user's key K_uid and the BMC key K_g).
void checkCredentialLengths(const Options& options) {
    constexpr std::size_t longestUserName = 16;
    constexpr std::size_t longestPassword = 20;
    if (options.user.size() > longestUserName) {
        throw UsageError("the user name is " + std::to_string(options.user.size()) +
                         " bytes long; IPMI v2.0 allows at most 16");
    }
    if (options.password.size() > longestPassword) {
        throw UsageError("the password is " + std::to_string(options.password.size()) +
                         " bytes long; IPMI v2.0 allows at most 20");
    }
    if (options.bmcKey && options.bmcKey->size() > longestPassword) {
        throw UsageError("the BMC key is " + std::to_string(options.bmcKey->size()) +
                         " bytes long; IPMI v2.0 allows at most 20");
    }
}

std::string promptForPassword(const std::string& host) {
    std::cerr << "Password for " << host << ": " << std::flush;
    termios saved{};
    tcgetattr(STDIN_FILENO, &saved);
    termios quiet = saved;
    quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet);
    std::string password;
    std::getline(std::cin, password);
    tcsetattr(STDIN_FILENO, TCSAFLUSH, &saved);
    std::cerr << "\n";
    return password;
}

}  // namespace

unsigned short parseCipherSuite(const std::string& text) {
    if (text == "auto") return Tolmar::ConnectionSettings::AutoCipherSuite;
    return static_cast<unsigned short>(parseNumber(text, 255, "cipher suite"));
}

void addWorkarounds(const std::string& text, std::vector<std::string>& workarounds) {
    const std::vector<std::string> known = Tolmar::WorkaroundNames();
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t comma = std::min(text.find(',', start), text.size());
        const std::string name = text.substr(start, comma - start);
        start = comma + 1;
        if (std::find(known.begin(), known.end(), name) == known.end())
            throw UsageError("no workaround is named \"" + name + "\"; there are " +
                             listed(known, "and"));
        if (std::find(workarounds.begin(), workarounds.end(), name) == workarounds.end())
            workarounds.push_back(name);
    }
}

std::optional<std::string> privilegeName(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (text == "administrator") text = "admin";
    if (text != "admin" && text != "operator" && text != "user") return std::nullopt;
    return text;
}

std::string othersCanReadPassword(const std::string& path) {
    const std::string named = printable(path);
    return named + ": others can read this file and the password in it; chmod o-r " + named;
}

std::vector<std::string> expandHosts(const std::string& list) {
    std::vector<std::string> hosts;
    std::size_t start = 0;
    while (start <= list.size()) {
        // Commas inside brackets belong to no list here: ranges have none.
        const std::size_t comma = list.find(',', start);
        const std::string item =
            list.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
        start = comma == std::string::npos ? list.size() + 1 : comma + 1;
        if (item.empty()) continue;
        const std::size_t open = item.find('[');
        if (open == std::string::npos) {
            hosts.push_back(item);
            continue;
        }
        const std::size_t dash = item.find('-', open);
        const std::size_t close = item.find(']', open);
        if (dash == std::string::npos || close == std::string::npos || dash > close) {
            throw UsageError("host range \"" + item + "\" is not like name[01-40]");
        }
        const std::string from = item.substr(open + 1, dash - open - 1);
        const std::string to = item.substr(dash + 1, close - dash - 1);
        const unsigned long first = parseNumber(from, 999999, "range start");
        const unsigned long last = parseNumber(to, 999999, "range end");
        if (first > last) throw UsageError("host range \"" + item + "\" runs backwards");
        for (unsigned long n = first; n <= last; ++n) {
            std::string number = std::to_string(n);
            if (number.size() < from.size()) number.insert(0, from.size() - number.size(), '0');
            hosts.push_back(item.substr(0, open) + number + item.substr(close + 1));
        }
    }
    return hosts;
}

std::vector<unsigned> parsePercentages(const std::string& text, const std::string& what) {
    std::vector<unsigned> percentages;
    if (text == "off") return percentages;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t comma = std::min(text.find(',', start), text.size());
        const auto percent = static_cast<unsigned>(
            parseNumber(text.substr(start, comma - start), 100, what + " percentage"));
        if (percent == 0) throw UsageError(what + " percentages are from 1 to 100");
        percentages.push_back(percent);
        start = comma + 1;
    }
    std::sort(percentages.begin(), percentages.end());
    percentages.erase(std::unique(percentages.begin(), percentages.end()), percentages.end());
    return percentages;
}

unsigned long parseRecordId(const std::string& text) {
    return parseNumber(text, 0xFFFF, "record ID");
}

std::vector<unsigned char> parseHexBytes(const std::string& text) {
    std::string digits;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '0' && i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == 'X')) {
            ++i;  // a 0x prefix
        } else if (std::isxdigit(static_cast<unsigned char>(c))) {
            digits += c;
        } else if (c != ' ' && c != ',' && c != ':') {
            throw UsageError("\"" + text + "\" is not hexadecimal bytes");
        }
    }
    std::vector<unsigned char> bytes;
    if (digits.size() != 32 || !bytesFromHex(digits, bytes))
        throw UsageError("a SEL entry is 16 bytes (32 hexadecimal digits)");
    return bytes;
}

Options parseOptions(const std::vector<std::string>& args) {
    Options options;
    bool passwordGiven = false;
    const auto value = [&args](std::size_t& i) -> const std::string& {
        if (i + 1 >= args.size()) throw UsageError(args[i] + " needs a value");
        return args[++i];
    };
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "-H" || arg == "--host") {
            options.hosts = expandHosts(value(i));
        } else if (arg == "-p" || arg == "--port") {
            options.port = static_cast<unsigned short>(parseNumber(value(i), 65535, "port"));
        } else if (arg == "-U" || arg == "--user") {
            options.user = value(i);
        } else if (arg == "-P") {
            options.password = value(i);
            passwordGiven = true;
        } else if (arg == "-E") {
            const char* password = std::getenv("IPMI_PASSWORD");
            if (password == nullptr) throw UsageError("-E: IPMI_PASSWORD is not set");
            options.password = password;
            passwordGiven = true;
        } else if (arg == "-f") {
            options.password = passwordFromFile(value(i));
            passwordGiven = true;
        } else if (arg == "-k") {
            options.bmcKey = value(i);
        } else if (arg == "-y") {
            options.bmcKey = bmcKeyFromHex(value(i));
        } else if (arg == "-C" || arg == "--cipher-suite") {
            options.cipherSuite = parseCipherSuite(value(i));
        } else if (arg == "--insecure-cipher-suite-0") {
            options.insecureCipherSuiteZero = true;
        } else if (arg == "-L" || arg == "--privilege") {
            options.privilege = parsePrivilege(value(i));
        } else if (arg == "--workaround") {
            addWorkarounds(value(i), options.workarounds);
        } else if (arg == "--format") {
            options.format = parseFormat(value(i));
        } else if (arg == "--rendering") {
            options.rendering = parseRendering(value(i));
        } else if (arg == "--wide") {
            options.wide = true;
        } else if (arg == "--localtime") {
            options.localTime = true;
        } else if (arg == "-v") {
            options.verbose = true;
        } else if (arg == "--severity") {
            options.minimumSeverity = parseSeverity(value(i));
        } else if (arg == "--since") {
            options.since = value(i);
        } else if (arg == "--until") {
            options.until = value(i);
        } else if (arg == "--id") {
            const std::string& range = value(i);
            const std::size_t dash = range.find('-');
            options.firstId = parseRecordId(range.substr(0, dash));
            options.lastId =
                dash == std::string::npos ? options.firstId : parseRecordId(range.substr(dash + 1));
        } else if (arg == "--last") {
            options.last = parseNumber(value(i), 1000000, "--last");
        } else if (arg == "--state") {
            options.statePath = value(i);
        } else if (arg == "--interval") {
            options.interval = static_cast<unsigned>(parseNumber(value(i), 86400, "--interval"));
            if (options.interval == 0) throw UsageError("--interval must be at least 1 second");
        } else if (arg == "--listen") {
            options.listen = value(i);
        } else if (arg == "--config") {
            options.configPath = fileName(arg, value(i));
        } else if (arg == "--web-config") {
            options.webConfigPath = fileName(arg, value(i));
        } else if (arg == "--state-dir") {
            options.stateDirectory = value(i);
        } else if (arg == "--new-only") {
            options.newOnly = true;
        } else if (arg == "--full-warnings") {
            options.fullWarnings = parsePercentages(value(i), "--full-warnings");
        } else if (arg == "--clear-when-full") {
            options.clearWhenFull =
                static_cast<unsigned>(parseNumber(value(i), 100, "--clear-when-full"));
            if (options.clearWhenFull == 0)
                throw UsageError("--clear-when-full takes a percentage from 1 to 100");
        } else if (arg == "--syslog") {
            options.syslog = value(i);
        } else if (arg == "--syslog-facility") {
            options.syslogFacility = parseSyslogFacility(value(i));
        } else if (arg == "--polls") {
            options.polls = parseNumber(value(i), 1000000000, "--polls");
        } else if (arg == "--fanout") {
            options.fanout = static_cast<unsigned>(parseNumber(value(i), 4096, "--fanout"));
            if (options.fanout == 0) throw UsageError("--fanout must be at least 1");
        } else if (arg == "-h" || arg == "--help") {
            options.command = "help";
            return options;
        } else if (!arg.empty() && arg[0] == '-' && options.command.empty()) {
            throw UsageError("unknown option " + arg);
        } else if (options.command.empty()) {
            options.command = arg;
        } else {
            options.arguments.push_back(arg);
        }
    }
    if (options.command.empty()) throw UsageError("no command given");
    if (!options.hosts.empty() && !passwordGiven && isatty(STDIN_FILENO)) {
        options.password =
            promptForPassword(options.hosts.size() == 1 ? options.hosts[0] : "the BMCs");
    }
    if (!options.hosts.empty()) checkCredentialLengths(options);
    if (options.cipherSuite == 0 && !options.insecureCipherSuiteZero) {
        throw UsageError(
            "cipher suite 0 authenticates nobody: the BMC accepts any password and answers "
            "cannot be trusted; --insecure-cipher-suite-0 allows it all the same");
    }
    return options;
}

bool takesSecret(const std::string& option) {
    return option == "-P" || option == "-k" || option == "-y";
}

}  // namespace tool
