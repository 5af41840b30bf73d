#include "cli/Options.h"

#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>

#include <CLI/CLI.hpp>

#include "base/BoundedFile.h"
#include "base/HexBytes.h"
#include "base/HostPort.h"
#include "base/Printable.h"
#include "base/TimeText.h"
#include "base/WordLists.h"
#include "fleet/ConnectionProfile.h"
#include "fleet/RedfishClient.h"
#include "follow/SyslogMessage.h"

namespace tool {

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

std::time_t parseUserTime(const std::string& text) {
    const std::optional<std::time_t> moment = parseDayTime(text);
    if (!moment) throw UsageError("time \"" + text + "\" is not YYYY-MM-DD[ HH:MM[:SS]]");
    return *moment;
}

std::string othersCanReadPassword(const std::string& path) {
    const std::string named = printable(path);
    return named + ": others can read this file and the password in it; chmod o-r " + named;
}

namespace {

constexpr std::size_t kMostHosts = 1000000;

// One host of -H, as connections and messages name it; the text's own error otherwise. A Redfish
// service is its URL, "https://HOST[:PORT]" (or http://), with no path.
std::string checkedHost(const std::string& host) {
    for (const std::string scheme : {"https://", "http://"}) {
        if (host.rfind(scheme, 0) != 0) continue;
        const std::string address = host.substr(scheme.size());
        std::size_t end = address.find('/');
        if (end != std::string::npos && end + 1 != address.size()) {
            throw UsageError("host \"" + printable(host) +
                             "\": a Redfish service is named by its URL without a path");
        }
        return scheme + checkedHost(address.substr(0, end));
    }
    try {
        return joinHostPort(parseHostPort(host));
    } catch (const HostPortError& e) {
        throw UsageError("host \"" + printable(host) + "\": " + e.what());
    }
}

// --listen's ADDRESS:PORT, checked now; port 0 asks for a free one.
std::string checkedListenAddress(const std::string& text) {
    try {
        if (parseHostPort(text, PortZero::Allowed).port) return text;
    } catch (const HostPortError& e) {
        throw UsageError("--listen \"" + printable(text) + "\": " + e.what());
    }
    throw UsageError("--listen \"" + printable(text) + "\" is not ADDRESS:PORT");
}

// `item` with its first range of numbers expanded, and the ranges after it in each of those.
void expandRanges(const std::string& item, std::vector<std::string>& hosts) {
    const std::size_t open = item.find('[');
    const std::size_t close = item.find(']', open);
    // An IPv6 address in brackets has colons; a range has none.
    if (open == std::string::npos || item.find(':', open) < std::min(close, item.size())) {
        hosts.push_back(checkedHost(item));
        return;
    }
    const std::size_t dash = item.find('-', open);
    if (dash == std::string::npos || close == std::string::npos || dash > close) {
        throw UsageError("host range \"" + item + "\" is not like name[01-40]");
    }
    const std::string from = item.substr(open + 1, dash - open - 1);
    const std::string to = item.substr(dash + 1, close - dash - 1);
    const unsigned long first = parseNumber(from, 999999, "range start");
    const unsigned long last = parseNumber(to, 999999, "range end");
    if (first > last) throw UsageError("host range \"" + item + "\" runs backwards");
    for (unsigned long n = first; n <= last; ++n) {
        // Ranges multiply: two of a million each would never end.
        if (hosts.size() >= kMostHosts) {
            throw UsageError("-H names more than " + std::to_string(kMostHosts) + " hosts");
        }
        std::string number = std::to_string(n);
        if (number.size() < from.size()) number.insert(0, from.size() - number.size(), '0');
        expandRanges(item.substr(0, open) + number + item.substr(close + 1), hosts);
    }
}

}  // namespace

std::vector<std::string> expandHosts(const std::string& list) {
    std::vector<std::string> hosts;
    std::size_t start = 0;
    while (start <= list.size()) {
        // Neither ranges nor IPv6 addresses hold commas: each one ends a host.
        const std::size_t comma = std::min(list.find(',', start), list.size());
        const std::string item = list.substr(start, comma - start);
        start = comma + 1;
        if (!item.empty()) expandRanges(item, hosts);
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

namespace {

// The commands, as the usage lists them; their arguments' counts follow from how they are named.
struct Command {
    const char* name;
    const char* arguments;  // "" none, "ID" one, "ID..." one or more
    const char* description;
};

const Command kCommands[] = {
    {"list", "", "the decoded event log"},
    {"show", "ID", "one decoded event"},
    {"raw", "", "every SEL entry as 16 hexadecimal bytes"},
    {"get", "ID", "one SEL entry"},
    {"delete", "ID...", "delete SEL entries"},
    {"clear", "", "clear the SEL"},
    {"add", "HEX16", "add a SEL entry of 16 bytes"},
    {"status", "", "probe the connection"},
    {"follow", "", "the events there are, then new ones as they come (tail -f)"},
    {"serve", "", "a Prometheus exporter of the fleet's events on /metrics"},
};

std::string argumentCountText(const Command& command) {
    return std::string(command.name) + " takes " + (*command.arguments ? "1" : "0") +
           " argument(s)";
}

const Command* commandNamed(const std::string& name) {
    for (const Command& command : kCommands) {
        if (name == command.name) return &command;
    }
    return nullptr;
}

// Options that mean something to some commands only, each with where it goes: a command, a
// command with another option ("list --state"), or another option whatever the command.
struct Pairing {
    const char* option;
    std::vector<std::string> with;
};

const Pairing kPairings[] = {
    {"--state", {"list"}},
    {"--new-only", {"follow"}},
    {"--config", {"serve"}},
    {"--web-config", {"serve"}},
    {"--state-dir", {"serve", "follow"}},
    {"--clear-when-full", {"follow", "serve", "list --state"}},
    {"--syslog", {"follow"}},
    {"--syslog-facility", {"--syslog"}},
};

// --syslog's address, its HOST[:PORT] read as every address of the tool is. An IPv6 address
// comes back in brackets, as the syslog sender reads it.
std::string checkedSyslogAddress(const std::string& text) {
    for (const std::string scheme : {"udp://", "tcp://"}) {
        if (text.rfind(scheme, 0) != 0) continue;
        HostPort address;
        try {
            address = parseHostPort(text.substr(scheme.size()));
        } catch (const HostPortError& e) {
            throw UsageError("syslog address \"" + printable(text) + "\": " + e.what());
        }
        const std::string host = address.ipv6 ? "[" + address.host + "]" : address.host;
        const std::string port = address.port ? ":" + std::to_string(*address.port) : "";
        return scheme + host + port;
    }
    try {
        parseSyslogAddress(text);  // unix:PATH, or the error that names the forms
    } catch (const SyslogSettingError& e) {
        throw UsageError(e.what());
    }
    return text;
}

// A flag takes none.
bool takesValue(const CLI::Option& option) { return option.get_items_expected_max() != 0; }

// --help: the commands, then each group of options in the order they were added, a description
// wrapped beside its option (below it when the option is too wide).
class UsageFormatter : public CLI::Formatter {
public:
    std::string make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const override {
        std::string text = "usage: ipmi-event-log [options] COMMAND [ARGS]\n\ncommands:\n";
        for (const Command& command : kCommands) {
            const std::string arguments =
                *command.arguments ? std::string(" ") + command.arguments : "";
            text += entry(command.name + arguments, command.description);
        }
        for (const std::string& group : app->get_groups()) {
            if (group.empty()) continue;
            text += "\n" + group + ":\n";
            for (const CLI::Option* option : app->get_options(
                     [&group](const CLI::Option* o) { return o->get_group() == group; })) {
                const std::string value = takesValue(*option) ? " " + option->get_type_name() : "";
                text += entry(spellings(*option) + value, option->get_description());
            }
        }
        return text;
    }

private:
    static constexpr std::size_t kIndent = 20;
    static constexpr std::size_t kWidth = 80;

    static std::string spellings(const CLI::Option& option) {
        std::vector<std::string> names;
        for (const std::string& name : option.get_snames()) names.push_back("-" + name);
        for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
        return joined(names, ", ");
    }

    static std::string entry(const std::string& name, const std::string& description) {
        std::string text = "  " + name;
        if (text.size() + 2 <= kIndent) {
            text.resize(kIndent, ' ');
        } else {
            text += "   ";
        }
        std::size_t column = text.size();
        std::size_t start = 0;
        bool lineStart = true;
        while (start < description.size()) {
            const std::size_t space = std::min(description.find(' ', start), description.size());
            const std::string word = description.substr(start, space - start);
            start = space + 1;
            if (!lineStart && column + 1 + word.size() > kWidth) {
                text += "\n" + std::string(kIndent, ' ');
                column = kIndent;
                lineStart = true;
            }
            if (!lineStart) {
                text += ' ';
                ++column;
            }
            text += word;
            column += word.size();
            lineStart = false;
        }
        return text + "\n";
    }
};

// The command line's grammar in CLI11, and what each option does with its value. CLI11 reads the
// words (values attached or not, groups of short options, --, the command), and the options are
// then taken in the order given, as before: a later -P, -E or -f wins over an earlier one.
class CommandLine {
public:
    explicit CommandLine(Options& options) : options_(options) {
        app_.name("ipmi-event-log");
        app_.formatter(std::make_shared<UsageFormatter>());
        // Repeated options are each taken in turn (--workaround adds, the others replace).
        app_.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        // Options may follow the command; what nothing takes is said in the tool's words.
        app_.fallthrough();
        app_.allow_extras();
        app_.require_subcommand(0, 1);
        addConnectionOptions();
        addOutputOptions();
        addFilterOptions();
        addFollowingOptions();
        app_.set_help_flag("-h,--help", "this usage")->group("output");
        for (const Command& command : kCommands) {
            CLI::App* sub = app_.add_subcommand(command.name, command.description);
            // Every word after the command is taken, so that too many are said as such.
            if (*command.arguments) sub->add_option("ARGUMENTS")->allow_extra_args();
            sub->preparse_callback(
                [this](std::size_t) { wordsBeforeCommand_ = app_.remaining().size(); });
        }
        // "ipmi-event-log help" as --help.
        app_.add_subcommand("help", "")->group("");
    }

    const CLI::App& app() const { return app_; }

    // Reads `args` into the options; the command's own checks are left to the caller.
    void parse(const std::vector<std::string>& args) {
        std::vector<std::string> reversed(args.rbegin(), args.rend());
        try {
            app_.parse(reversed);
        } catch (const CLI::CallForHelp&) {
            options_.command = "help";
            return;
        } catch (const CLI::ArgumentMismatch& e) {
            const std::string what = e.what();
            const std::size_t flag = what.find(" was given a disallowed flag override");
            if (flag != std::string::npos) {
                // CLI11 names the flag without its dashes.
                const std::string name = what.substr(0, flag);
                throw UsageError((name.size() == 1 ? "-" : "--") + name + " takes no value");
            }
            // CLI11 runs out of values only at the end of the line: its last word wanted one,
            // alone (--rendering) or last of a group of short options (-vH).
            const std::string& last = args.back();
            throw UsageError((last.rfind("--", 0) == 0 ? last.substr(0, last.find('='))
                                                       : "-" + last.substr(last.size() - 1)) +
                             " needs a value");
        } catch (const CLI::ParseError& e) {
            throw UsageError(e.what());
        }
        for (const CLI::App* sub : app_.get_subcommands()) {
            options_.command = sub->get_name();
            for (const CLI::Option* argument :
                 sub->get_options([](const CLI::Option* o) { return o->get_positional(); })) {
                options_.arguments = argument->results();
            }
        }
        if (options_.command == "help") return;
        checkWordsLeft();
        takeOptions();
    }

    bool given(const std::string& option) const { return app_.get_option(option)->count() > 0; }

    // Whether the command line is one `place` names: its words are the command, and options
    // given ("list --state"), or options alone ("--syslog").
    bool isIn(const std::string& place) const {
        std::size_t start = 0;
        while (start <= place.size()) {
            const std::size_t space = std::min(place.find(' ', start), place.size());
            const std::string word = place.substr(start, space - start);
            start = space + 1;
            if (word[0] == '-' ? !given(word) : word != options_.command) return false;
        }
        return true;
    }
    bool passwordGiven() const { return passwordGiven_; }

private:
    using Take = std::function<void(const std::string&)>;

    void value(const std::string& names, const std::string& type, const std::string& group,
               const std::string& description, Take take) {
        CLI::Option* option =
            app_.add_option(names)->description(description)->type_name(type)->group(group);
        takes_[option] = std::move(take);
    }

    void flag(const std::string& names, const std::string& group, const std::string& description,
              std::function<void()> take) {
        CLI::Option* option =
            app_.add_flag(names)->description(description)->group(group)->disable_flag_override();
        takes_[option] = [take](const std::string&) { take(); };
    }

    void addConnectionOptions() {
        Options& o = options_;
        const std::string group = "connection";
        value("-H,--host", "LIST", group,
              "BMCs over the LAN (RMCP+): names, addresses, ranges (bmc[01-40].lab), HOST:PORT, "
              "[IPv6]:PORT, comma-separated; Redfish services by their URLs, https://HOST[:PORT]; "
              "without it, this machine's BMC in band",
              [&o](const std::string& v) { o.hosts = expandHosts(v); });
        value("-p,--port", "N", group, "UDP port (623)", [&o](const std::string& v) {
            o.port = static_cast<unsigned short>(parseNumber(v, 65535, "port"));
        });
        value("-U,--user", "NAME", group, "user name", [&o](const std::string& v) { o.user = v; });
        flag("-E", group, "password from the environment variable IPMI_PASSWORD", [this] {
            const char* password = std::getenv("IPMI_PASSWORD");
            if (password == nullptr) throw UsageError("-E: IPMI_PASSWORD is not set");
            options_.password = password;
            passwordGiven_ = true;
        });
        value("-f", "FILE", group, "password from the first line of FILE",
              [this](const std::string& v) {
                  options_.password = passwordFromFile(v);
                  passwordGiven_ = true;
              });
        value("-P", "PASSWORD", group,
              "password on the command line (erased from the process's arguments once it "
              "starts, but visible to other users until then)",
              [this](const std::string& v) {
                  options_.password = v;
                  passwordGiven_ = true;
              });
        value("-k", "KEY", group, "the BMC key (K_g), where the BMC has one; erased as -P is",
              [&o](const std::string& v) { o.bmcKey = v; });
        value("-y", "HEX", group, "the BMC key in hexadecimal; erased as -P is",
              [&o](const std::string& v) { o.bmcKey = bmcKeyFromHex(v); });
        value("-C,--cipher-suite", "N", group,
              "cipher suite ID, or auto: the strongest the BMC offers, asked of it (auto)",
              [&o](const std::string& v) { o.cipherSuite = parseCipherSuite(v); });
        flag("--insecure-cipher-suite-0", group,
             "allow cipher suite 0: no authentication, any password",
             [&o] { o.insecureCipherSuiteZero = true; });
        value("-L,--privilege", "L", group, "admin, operator or user (the highest the BMC grants)",
              [&o](const std::string& v) { o.privilege = parsePrivilege(v); });
        value("--workaround", "NAME[,NAME...]", group,
              "for BMCs that depart from IPMI v2.0, by FreeIPMI's names (an unknown name is "
              "refused with the list)",
              [&o](const std::string& v) { addWorkarounds(v, o.workarounds); });
        value("--ca-file", "FILE", group,
              "Redfish: the certificate authorities a service's certificate is checked against "
              "(the system's)",
              [&o](const std::string& v) { o.caFile = fileName("--ca-file", v); });
        flag("--insecure", group, "Redfish: do not check services' certificates (said each run)",
             [&o] { o.insecure = true; });
        value("--log", "NAME", group,
              "Redfish: read this log (its Id or name) instead of the hardware event logs found; "
              "again for more",
              [&o](const std::string& v) { o.logs.push_back(v); });
        value("--fanout", "N", group, "hosts read at once (256; at most 4096)",
              [&o](const std::string& v) {
                  o.fanout = static_cast<unsigned>(parseNumber(v, 4096, "--fanout"));
                  if (o.fanout == 0) throw UsageError("--fanout must be at least 1");
              });
    }

    void addOutputOptions() {
        Options& o = options_;
        const std::string group = "output";
        value("--format", "F", group, "table, json, jsonl or csv (table)",
              [&o](const std::string& v) { o.format = parseFormat(v); });
        value("--rendering", "R", group,
              "how events are worded: ipmi, what the record's bytes mean in IPMI v2.0 (sensor, "
              "event, reading), or described, the library's texts (ipmi)",
              [&o](const std::string& v) { o.rendering = parseRendering(v); });
        flag("--wide", group, "full texts in the table, with the auxiliary log",
             [&o] { o.wide = true; });
        flag("--localtime", group, "time stamps in local time (the BMC's are UTC)",
             [&o] { o.localTime = true; });
        flag("-v", group,
             "trace the IPMI exchange on standard error; status: what was learnt of the BMC",
             [&o] { o.verbose = true; });
    }

    void addFilterOptions() {
        Options& o = options_;
        const std::string group = "filters (list)";
        value("--severity", "MIN", group, "info, warning or critical",
              [&o](const std::string& v) { o.minimumSeverity = parseSeverity(v); });
        value("--since", "T", group, "YYYY-MM-DD[ HH:MM[:SS]] in UTC", [&o](const std::string& v) {
            parseUserTime(v);  // checked now, taken by the filters
            o.since = v;
        });
        value("--until", "T", group, "as --since", [&o](const std::string& v) {
            parseUserTime(v);
            o.until = v;
        });
        value("--id", "A-B", group, "record IDs A to B (or one ID)", [&o](const std::string& v) {
            const std::size_t dash = v.find('-');
            o.firstId = parseRecordId(v.substr(0, dash));
            o.lastId = dash == std::string::npos ? o.firstId : parseRecordId(v.substr(dash + 1));
        });
        value("--last", "N", group, "the last N events (follow: of those there are at the start)",
              [&o](const std::string& v) { o.last = parseNumber(v, 1000000, "--last"); });
    }

    void addFollowingOptions() {
        Options& o = options_;
        const std::string group = "following";
        value("--state", "PATH", group,
              "list: only events added since the last run with PATH (a directory for several "
              "hosts)",
              [&o](const std::string& v) { o.statePath = v; });
        value("--interval", "S", group, "follow, serve: seconds between polls (10)",
              [&o](const std::string& v) {
                  o.interval = static_cast<unsigned>(parseNumber(v, 86400, "--interval"));
                  if (o.interval == 0) throw UsageError("--interval must be at least 1 second");
              });
        value("--listen", "A:P", group,
              "serve: the address and port of /metrics and /ipmi (127.0.0.1:9290); port 0 takes "
              "a free one, said on standard error",
              [&o](const std::string& v) { o.listen = checkedListenAddress(v); });
        value("--config", "FILE", group,
              "serve: the modules of /ipmi?target=HOST&module=NAME (ipmi_exporter's)",
              [&o](const std::string& v) { o.configPath = fileName("--config", v); });
        value("--web-config", "FILE", group,
              "serve: TLS and basic authentication (exporter-toolkit's format)",
              [&o](const std::string& v) { o.webConfigPath = fileName("--web-config", v); });
        value("--state-dir", "DIR", group,
              "serve, follow: keep each follower's state in DIR across restarts",
              [&o](const std::string& v) { o.stateDirectory = v; });
        value("--polls", "N", group, "follow: stop after N polls (default: when interrupted)",
              [&o](const std::string& v) { o.polls = parseNumber(v, 1000000000, "--polls"); });
        flag("--new-only", group,
             "follow: only events added after the start, none of those there are",
             [&o] { o.newOnly = true; });
        value("--full-warnings", "LIST", group,
              "follow: warn as the SEL passes these percentages of full (80,90,100), and when "
              "the BMC drops events; off: only then",
              [&o](const std::string& v) {
                  o.fullWarnings = parsePercentages(v, "--full-warnings");
              });
        value("--clear-when-full", "PCT", group,
              "follow, serve, list --state: clear the SEL once it is PCT% full, after reading "
              "every record in it (needs operator privilege)",
              [&o](const std::string& v) {
                  o.clearWhenFull = static_cast<unsigned>(parseNumber(v, 100, "--clear-when-full"));
                  if (o.clearWhenFull == 0)
                      throw UsageError("--clear-when-full takes a percentage from 1 to 100");
              });
        value("--syslog", "ADDRESS", group,
              "follow: send each event to a log server instead of standard output, as an RFC "
              "5424 message: udp://HOST:PORT, tcp://HOST:PORT (octet counted) or unix:PATH "
              "(unix:/dev/log the local one)",
              [&o](const std::string& v) { o.syslog = checkedSyslogAddress(v); });
        value("--syslog-facility", "NAME", group,
              "follow --syslog: kern, user, ..., local0 to local7 (daemon)",
              [&o](const std::string& v) {
                  try {
                      o.syslogFacility = parseSyslogFacility(v);
                  } catch (const SyslogSettingError& e) {
                      throw UsageError(e.what());
                  }
              });
    }

    // What CLI11 could not place: an unknown option, a word before the command (an unknown
    // command), or an argument too many for the command.
    void checkWordsLeft() const {
        const std::vector<std::string> left = app_.remaining();
        const std::size_t before = options_.command.empty() ? left.size() : wordsBeforeCommand_;
        for (std::size_t i = 0; i < left.size(); ++i) {
            const std::string& word = left[i];
            if (word == "--") continue;
            const bool number =
                word.size() > 1 && std::isdigit(static_cast<unsigned char>(word[1]));
            if (word.size() > 1 && word[0] == '-' && !number)
                throw UsageError("unknown option " + printable(word.substr(0, word.find('='))));
            if (i < before) throw UsageError("unknown command " + printable(word));
            throw UsageError(argumentCountText(*commandNamed(options_.command)));
        }
    }

    // Each option's value, in the order given.
    void takeOptions() {
        std::map<const CLI::Option*, std::size_t> taken;
        for (const CLI::Option* option : app_.parse_order()) {
            const auto take = takes_.find(option);
            if (take == takes_.end()) continue;
            const std::size_t n = taken[option]++;
            const std::vector<std::string>& values = option->results();
            take->second(n < values.size() ? values[n] : std::string());
        }
    }

    Options& options_;
    CLI::App app_;
    std::map<const CLI::Option*, Take> takes_;
    // How many words CLI11 had left unplaced when the command began: the first is no command.
    std::size_t wordsBeforeCommand_ = 0;
    bool passwordGiven_ = false;
};

}  // namespace

Options parseOptions(const std::vector<std::string>& args) {
    Options options;
    CommandLine line(options);
    line.parse(args);
    if (options.command == "help") return options;
    if (options.command.empty()) throw UsageError("no command given");
    const Command& command = *commandNamed(options.command);
    const std::vector<std::string>& arguments = options.arguments;
    if (options.command == "delete") {
        if (arguments.empty()) throw UsageError("delete needs record IDs");
        for (const std::string& id : arguments) parseRecordId(id);
    } else if (arguments.size() != (*command.arguments ? 1u : 0u)) {
        throw UsageError(argumentCountText(command));
    }
    // A Redfish entry's ID is its Id, text ("1700000000_1"); a SEL record's is a number.
    const bool redfishOnly = !options.hosts.empty() &&
                             std::all_of(options.hosts.begin(), options.hosts.end(), isRedfishHost);
    if ((options.command == "show" && !redfishOnly) || options.command == "get")
        parseRecordId(arguments[0]);
    if (options.command == "add") parseHexBytes(arguments[0]);
    for (const Pairing& pairing : kPairings) {
        if (line.given(pairing.option) &&
            std::none_of(pairing.with.begin(), pairing.with.end(),
                         [&line](const std::string& place) { return line.isIn(place); })) {
            throw UsageError(std::string(pairing.option) + " goes with " +
                             listed(pairing.with, "or"));
        }
    }
    if (options.newOnly && options.last != 0)
        throw UsageError("--new-only shows none of the events there are; --last N some");
    // Asked for only once the rest of the line is known to be good.
    if (!options.hosts.empty() && !line.passwordGiven() && isatty(STDIN_FILENO)) {
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

std::string usageText() {
    Options unused;
    return CommandLine(unused).app().help();
}

std::vector<std::string> optionNames() {
    Options unused;
    const CommandLine line(unused);
    std::vector<std::string> names;
    for (const CLI::Option* option : line.app().get_options()) {
        for (const std::string& name : option->get_snames()) names.push_back("-" + name);
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    }
    return names;
}

std::vector<std::string> commandNames() {
    std::vector<std::string> names;
    for (const Command& command : kCommands) names.emplace_back(command.name);
    return names;
}

bool takesSecret(const std::string& option) {
    return option == "-P" || option == "-k" || option == "-y";
}

std::vector<SecretArgument> secretsIn(const std::vector<std::string>& args) {
    Options unused;
    const CommandLine line(unused);
    const auto valueAfter = [&line](const std::string& name) {
        const CLI::Option* option = line.app().get_option_no_throw(name);
        return option != nullptr && takesValue(*option);
    };
    std::vector<SecretArgument> secrets;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--") break;
        if (arg.size() < 2 || arg[0] != '-') continue;
        if (arg[1] == '-') {
            // --NAME VALUE: the value is no option, whatever it looks like.
            if (arg.find('=') == std::string::npos && valueAfter(arg)) ++i;
            continue;
        }
        // Short options in a group: flags, then perhaps one whose value is the rest of the word,
        // or the next word.
        for (std::size_t at = 1; at < arg.size(); ++at) {
            const std::string name = std::string("-") + arg[at];
            if (!valueAfter(name)) continue;
            const bool attached = at + 1 < arg.size();
            if (takesSecret(name) && (attached || i + 1 < args.size()))
                secrets.push_back(attached ? SecretArgument{i, at + 1} : SecretArgument{i + 1, 0});
            if (!attached) ++i;
            break;
        }
    }
    return secrets;
}

}  // namespace tool
