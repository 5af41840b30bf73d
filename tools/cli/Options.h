// Command line of ipmi-event-log: the subcommand, its arguments, the connection and the output.
#pragma once

#include <IpmiConnectionSettings.h>
#include <IpmiEventFollower.h>

#include <ctime>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "output/Output.h"

namespace tool {

// A command line that cannot be followed; the text says why.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Options {
    std::string command;                 // list, show, raw, get, delete, clear, add, status, follow
    std::vector<std::string> arguments;  // the subcommand's own
    std::vector<std::string> hosts;      // empty: the local in-band interface
    unsigned short port = 623;
    std::string user;
    std::string password;
    // The BMC key K_g, from -k (as text) or -y (in hexadecimal); unset: TOLMAR_IPMI_BMC_KEY, else
    // none
    std::optional<std::string> bmcKey;
    // An ID, or AutoCipherSuite: the strongest the BMC offers of those the library speaks
    unsigned short cipherSuite = Tolmar::ConnectionSettings::AutoCipherSuite;
    bool insecureCipherSuiteZero = false;  // cipher suite 0 allowed (no authentication at all)
    std::string privilege;  // admin, operator, user; empty: the highest the BMC grants
    std::vector<std::string> workarounds;  // of Tolmar::WorkaroundNames(), each once
    // Redfish services (-H https://HOST): the authorities their certificates are checked
    // against (empty: the system's), or no check at all; the logs read (empty: the hardware
    // event logs found).
    std::string caFile;
    bool insecure = false;
    std::vector<std::string> logs;
    Format format = Format::Table;
    // How events are worded: what their bytes mean in IPMI v2.0, or the library's described texts
    Tolmar::EventRendering rendering = Tolmar::EventRendering::Ipmi;
    bool wide = false;
    bool localTime = false;
    bool verbose = false;
    int minimumSeverity = 0;
    std::string since;  // "YYYY-MM-DD[ HH:MM[:SS]]", UTC; empty: no bound
    std::string until;
    unsigned long firstId = 0;
    unsigned long lastId = 0xFFFF;
    std::size_t last = 0;  // 0: every event
    // Hosts polled at once, a thread each: enough that a fleet's BMCs that are down (each a session
    // timeout) are waited for together rather than a few at a time.
    unsigned fanout = 256;
    std::string statePath;    // list: where what was read is kept; a directory for a fleet
    unsigned interval = 10;   // follow, serve: seconds between polls
    unsigned long polls = 0;  // follow: stop after this many polls; 0: when interrupted
    bool newOnly = false;     // follow: the events there are at the start are not shown
    // follow: how full the SEL may get, in percent, before each warning; none when empty
    std::vector<unsigned> fullWarnings{80, 90, 100};
    unsigned clearWhenFull = 0;  // follow, serve, list --state: clear at this percentage; 0 never
    std::string listen = "127.0.0.1:9290";  // serve: where /metrics and /ipmi are answered
    std::string configPath;                 // serve: the modules of /ipmi's scrapes (YAML)
    std::string webConfigPath;              // serve: TLS and basic authentication (YAML)
    std::string stateDirectory;             // serve, follow: where each follower's state is kept
    std::string syslog;                     // follow: the log server the events go to, if any
    std::optional<int> syslogFacility;      // follow --syslog: the facility's code; daemon unset
};

// Parses the command line (without the program name) and checks it whole: every value, the
// command and its arguments, and which options go with which command. The password comes from -P,
// -E (IPMI_PASSWORD), -f FILE, or a prompt when standard input is a terminal; the BMC key from -k
// (text) or -y (hexadecimal), as ipmitool takes them. -h or --help anywhere gives the command
// "help". Throws UsageError.
Options parseOptions(const std::vector<std::string>& args);

// The usage --help prints, made from the options and commands parseOptions knows.
std::string usageText();

// Every spelling of every option parseOptions knows ("-H", "--host", ...), and its commands.
std::vector<std::string> optionNames();
std::vector<std::string> commandNames();

// "bmc[01-03].example,other" -> bmc01.example, bmc02.example, bmc03.example, other. Each host is
// HOST, HOST:PORT, an IPv6 address, or one in brackets with a port ("[fd00::7]:623"): brackets
// around a range hold no colon, around an IPv6 address they do. A host is given back as
// joinHostPort spells it ("[::1]" as "::1").
std::vector<std::string> expandHosts(const std::string& list);

// --rendering's value: "ipmi" or "described". Throws UsageError for another.
Tolmar::EventRendering parseRendering(const std::string& text);

// A number in decimal or 0x-hexadecimal, at most `max`; `what` names it in the error.
unsigned long parseNumber(const std::string& text, unsigned long max, const std::string& what);

// -C's value: "auto" (AutoCipherSuite) or a cipher suite ID from 0 to 255.
unsigned short parseCipherSuite(const std::string& text);

// --workaround's value, "NAME[,NAME...]", added to `workarounds` each once; a name that
// Tolmar::WorkaroundNames() does not list is refused.
void addWorkarounds(const std::string& text, std::vector<std::string>& workarounds);

// "YYYY-MM-DD", "YYYY-MM-DD HH:MM" or "YYYY-MM-DD HH:MM:SS", in UTC. Throws UsageError.
std::time_t parseUserTime(const std::string& text);

// The warning that others can read the password file at `path`.
std::string othersCanReadPassword(const std::string& path);

// "80,90,100": percentages from 1 to 100, in rising order once each; "off": none.
std::vector<unsigned> parsePercentages(const std::string& text, const std::string& what);

// A record ID in decimal or 0x-hexadecimal, 0 to 65535.
unsigned long parseRecordId(const std::string& text);

// Sixteen bytes in hexadecimal: "02 00 00 ..." or "0x02,0x00,..." or "0200...".
std::vector<unsigned char> parseHexBytes(const std::string& text);

// The options whose value is a secret, to be erased from the process's arguments.
bool takesSecret(const std::string& option);

// Where a secret is in the command line, as parseOptions reads it: the argument's index and the
// offset in it where the secret starts (0 after "-P", 2 in "-Psecret", 3 in "-vPsecret").
struct SecretArgument {
    std::size_t index = 0;
    std::size_t offset = 0;
};
std::vector<SecretArgument> secretsIn(const std::vector<std::string>& args);

}  // namespace tool
