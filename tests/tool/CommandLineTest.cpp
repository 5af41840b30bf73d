// The command line as parseOptions reads it: hosts with their ports, unknown options and words,
// values that are missing or wrong, which options go with which command, the usage and the man
// page that both list the options, and where the secrets are to be erased.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "base/HostPort.h"
#include "cli/Options.h"

namespace {

using Args = std::vector<std::string>;

// A password on the line, so that no test waits at a prompt on a terminal.
Args withPassword(Args args) {
    args.insert(args.begin(), {"-P", "pw"});
    return args;
}

std::string refusal(const Args& args) {
    try {
        tool::parseOptions(withPassword(args));
    } catch (const tool::UsageError& e) {
        return e.what();
    }
    return "no error";
}

TEST(CommandLine, AnIpv6HostInBracketsKeepsItsPort) {
    const tool::Options o = tool::parseOptions(withPassword({"-H", "[::1]:9623", "status"}));
    ASSERT_EQ(o.hosts, Args{"[::1]:9623"});
    const tool::HostPort address = tool::parseHostPort(o.hosts[0]);
    EXPECT_EQ(address.host, "::1");
    EXPECT_EQ(address.port, 9623);
    // Without a port, the address alone, as a connection takes it.
    EXPECT_EQ(tool::parseOptions(withPassword({"-H", "[::1]", "status"})).hosts, Args{"::1"});
    EXPECT_EQ(tool::parseOptions(withPassword({"-H", "fd00::7", "status"})).hosts, Args{"fd00::7"});
}

TEST(CommandLine, HostListsMixRangesAndIpv6Addresses) {
    EXPECT_EQ(tool::expandHosts("bmc[01-02]:624,[fd00::7]:623,fe80::1,other"),
              (Args{"bmc01:624", "bmc02:624", "[fd00::7]:623", "fe80::1", "other"}));
    // Ranges multiply.
    EXPECT_EQ(tool::expandHosts("r[1-2]n[08-09]"), (Args{"r1n08", "r1n09", "r2n08", "r2n09"}));
    EXPECT_EQ(refusal({"-H", "[::1", "list"}), "host \"[::1\": no \"]\" after the IPv6 address");
    EXPECT_EQ(refusal({"-H", "a,[::1]x", "list"}),
              "host \"[::1]x\": only \":PORT\" may follow \"]\"");
    EXPECT_EQ(refusal({"-H", "bmc1:0", "list"}),
              "host \"bmc1:0\": \"0\" is not a port from 1 to 65535");
    EXPECT_EQ(refusal({"-H", "bmc[01-03]:", "list"}), "host \"bmc01:\": no port after \":\"");
    EXPECT_EQ(refusal({"-H", "bmc1:623:1", "list"}),
              "host \"bmc1:623:1\": is not an IPv6 address; a port follows an IPv6 address in "
              "brackets: [ADDRESS]:PORT");
    EXPECT_EQ(refusal({"-H", "bmc[1-2", "list"}), "host range \"bmc[1-2\" is not like name[01-40]");
    EXPECT_EQ(refusal({"-H", "n[0-999999]m[0-999999]", "list"}),
              "-H names more than 1000000 hosts");
}

TEST(CommandLine, AnUnknownOptionIsNamedWhereverItIs) {
    EXPECT_EQ(refusal({"list", "--bogus"}), "unknown option --bogus");
    EXPECT_EQ(refusal({"--bogus", "list"}), "unknown option --bogus");
    EXPECT_EQ(refusal({"--bogus", "3", "list"}), "unknown option --bogus");
    EXPECT_EQ(refusal({"list", "--bogus=3"}), "unknown option --bogus");
    EXPECT_EQ(refusal({"-vX", "list"}), "unknown option -X");
    EXPECT_EQ(refusal({"list", "--Format", "csv"}), "unknown option --Format");
}

TEST(CommandLine, WordsThatAreNoCommandOrTooManyArgumentsAreSaid) {
    EXPECT_EQ(refusal({}), "no command given");
    EXPECT_EQ(refusal({"-v"}), "no command given");
    EXPECT_EQ(refusal({"frobnicate"}), "unknown command frobnicate");
    EXPECT_EQ(refusal({"frobnicate", "list"}), "unknown command frobnicate");
    EXPECT_EQ(refusal({"follow", "3"}), "follow takes 0 argument(s)");
    EXPECT_EQ(refusal({"list", "raw"}), "list takes 0 argument(s)");
    EXPECT_EQ(refusal({"list", "-1"}), "list takes 0 argument(s)");
    EXPECT_EQ(refusal({"show"}), "show takes 1 argument(s)");
    EXPECT_EQ(refusal({"show", "1", "2"}), "show takes 1 argument(s)");
    EXPECT_EQ(refusal({"delete"}), "delete needs record IDs");
    EXPECT_EQ(refusal({"delete", "1", "-1"}), "record ID \"-1\" is not a number from 0 to 65535");
    EXPECT_EQ(refusal({"add", "zz"}), "\"zz\" is not hexadecimal bytes");
    const tool::Options o = tool::parseOptions(withPassword({"delete", "0x10", "--wide", "17"}));
    EXPECT_EQ(o.command, "delete");
    EXPECT_EQ(o.arguments, (Args{"0x10", "17"}));
    EXPECT_TRUE(o.wide);
}

TEST(CommandLine, AnOptionWithoutItsValueIsNamedAsGiven) {
    EXPECT_EQ(refusal({"list", "--rendering"}), "--rendering needs a value");
    EXPECT_EQ(refusal({"list", "--host"}), "--host needs a value");
    EXPECT_EQ(refusal({"list", "-vH"}), "-H needs a value");
    EXPECT_EQ(refusal({"list", "--format="}), "--format needs a value");
}

TEST(CommandLine, ValuesAreCheckedWithTheirOwnMessages) {
    EXPECT_EQ(refusal({"--fanout", "0", "list"}), "--fanout must be at least 1");
    EXPECT_EQ(refusal({"--format", "xml", "list"}),
              "format \"xml\" is not table, json, jsonl or csv");
    EXPECT_EQ(refusal({"-p", "65536", "list"}), "port \"65536\" is not a number from 0 to 65535");
    EXPECT_EQ(refusal({"--interval", "0", "follow"}), "--interval must be at least 1 second");
    EXPECT_EQ(refusal({"-L", "root", "list"}), "privilege \"root\" is not admin, operator or user");
    EXPECT_EQ(refusal({"--wide=no", "list"}), "--wide takes no value");
}

TEST(CommandLine, OptionsGoAnywhereInAnySpellingAndTheLastGivenWins) {
    setenv("IPMI_PASSWORD", "from-env", 1);
    tool::Options o = tool::parseOptions(
        {"-H", "a", "-P", "first", "list", "--format=csv", "-p9623", "-vE", "-L", "ADMINISTRATOR"});
    EXPECT_EQ(o.command, "list");
    EXPECT_EQ(o.format, tool::Format::Csv);
    EXPECT_EQ(o.port, 9623);
    EXPECT_TRUE(o.verbose);
    EXPECT_EQ(o.password, "from-env");
    EXPECT_EQ(o.privilege, "admin");
    o = tool::parseOptions({"-H", "a", "-E", "-P", "last", "-k", "text", "-y", "0x4b67", "status"});
    EXPECT_EQ(o.password, "last");
    EXPECT_EQ(o.bmcKey, std::string("Kg"));
    // A value that looks like an option is the value all the same.
    o = tool::parseOptions({"-H", "a", "-P", "-secret", "-U", "list", "status"});
    EXPECT_EQ(o.password, "-secret");
    EXPECT_EQ(o.user, "list");
    EXPECT_EQ(o.command, "status");
}

TEST(CommandLine, OptionsThatGoWithSomeCommandsOnlyAreRefusedWithTheOthers) {
    EXPECT_EQ(refusal({"--state", "s", "raw"}), "--state goes with list");
    EXPECT_EQ(refusal({"--new-only", "list"}), "--new-only goes with follow");
    EXPECT_EQ(refusal({"--config", "c.yml", "status"}), "--config goes with serve");
    EXPECT_EQ(refusal({"status", "--web-config", "w.yml"}), "--web-config goes with serve");
    EXPECT_EQ(refusal({"--state-dir", "d", "list"}), "--state-dir goes with serve or follow");
    EXPECT_EQ(refusal({"--clear-when-full", "90", "list"}),
              "--clear-when-full goes with follow, serve or list --state");
    EXPECT_EQ(refusal({"--syslog", "udp://h", "list"}), "--syslog goes with follow");
    EXPECT_EQ(refusal({"--syslog-facility", "local0", "follow"}),
              "--syslog-facility goes with --syslog");
    EXPECT_EQ(refusal({"--new-only", "--last", "3", "follow"}),
              "--new-only shows none of the events there are; --last N some");
    EXPECT_EQ(refusal({"--clear-when-full", "90", "--state", "s", "list"}), "no error");
    EXPECT_EQ(refusal({"--clear-when-full", "90", "serve"}), "no error");
    EXPECT_EQ(refusal({"--syslog-facility", "local0", "--syslog", "udp://h", "follow"}),
              "no error");
}

TEST(CommandLine, SyslogAddressesAreReadAsEveryAddressIs) {
    EXPECT_EQ(tool::parseOptions(withPassword({"--syslog", "udp://::1", "follow"})).syslog,
              "udp://[::1]");
    EXPECT_EQ(tool::parseOptions(withPassword({"--syslog", "tcp://[::1]:601", "follow"})).syslog,
              "tcp://[::1]:601");
    EXPECT_EQ(tool::parseOptions(withPassword({"--syslog", "unix:/dev/log", "follow"})).syslog,
              "unix:/dev/log");
    EXPECT_EQ(refusal({"--syslog", "udp://logs:0", "follow"}),
              "syslog address \"udp://logs:0\": \"0\" is not a port from 1 to 65535");
    EXPECT_EQ(refusal({"--syslog", "tcp://[::1", "follow"}),
              "syslog address \"tcp://[::1\": no \"]\" after the IPv6 address");
    EXPECT_EQ(refusal({"--syslog", "udp://", "follow"}), "syslog address \"udp://\": no host");
    EXPECT_EQ(refusal({"--syslog", "http://h", "follow"}),
              "syslog address \"http://h\" is not udp://HOST:PORT, tcp://HOST:PORT or unix:PATH");
}

TEST(CommandLine, HelpAnywhereAsksForTheUsage) {
    for (const Args& args : {Args{"--help"}, Args{"-h"}, Args{"list", "-h"}, Args{"help"},
                             Args{"-H", "a", "--help", "list"}}) {
        EXPECT_EQ(tool::parseOptions(args).command, "help") << args.front();
    }
}

TEST(CommandLine, TheUsageListsEveryCommandAndOptionWithinEightyColumns) {
    const std::string usage = tool::usageText();
    EXPECT_EQ(usage.rfind("usage: ipmi-event-log [options] COMMAND [ARGS]\n", 0), 0u);
    std::istringstream lines(usage);
    for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80u) << line;
    for (const std::string& command : tool::commandNames())
        EXPECT_NE(usage.find("\n  " + command + " "), std::string::npos) << command;
    for (const std::string& option : tool::optionNames())
        EXPECT_NE(usage.find(" " + option), std::string::npos) << option;
    EXPECT_NE(usage.find("\n  -H, --host LIST   BMCs over the LAN"), std::string::npos) << usage;
    EXPECT_NE(usage.find("\n  show ID           one decoded event\n"), std::string::npos);
    EXPECT_NE(usage.find("\n  delete ID...      delete SEL entries\n"), std::string::npos);
}

// The options (or commands) the man page's section lists: the words of each entry's tag, the line
// after .TP, that are options (or the first, for a command).
std::set<std::string> manPageEntries(const std::string& section, bool options) {
    std::ifstream in(SOURCE_DIR "/tools/cli/ipmi-event-log.1");
    EXPECT_TRUE(in) << "no man page";
    std::set<std::string> entries;
    bool inSection = false;
    bool tag = false;
    const std::regex option(R"((^|[\s"])(--?[A-Za-z0-9][A-Za-z0-9-]*))");
    for (std::string line; std::getline(in, line);) {
        if (line.rfind(".SH ", 0) == 0) inSection = line == ".SH " + section;
        if (!inSection) continue;
        if (line == ".TP") {
            tag = true;
            continue;
        }
        if (!tag) continue;
        tag = false;
        // The man page writes a hyphen as "\-".
        std::string text = std::regex_replace(line, std::regex(R"(\\-)"), "-");
        text = text.substr(text.find(' ') + 1);
        if (!options) {
            entries.insert(text.substr(0, text.find(' ')));
            continue;
        }
        for (std::sregex_iterator i(text.begin(), text.end(), option), end; i != end; ++i)
            entries.insert((*i)[2]);
    }
    return entries;
}

TEST(CommandLine, TheManPageListsTheOptionsAndCommandsTheParserKnows) {
    const std::vector<std::string> names = tool::optionNames();
    EXPECT_EQ(manPageEntries("OPTIONS", true), std::set<std::string>(names.begin(), names.end()));
    const std::vector<std::string> commands = tool::commandNames();
    EXPECT_EQ(manPageEntries("COMMANDS", false),
              std::set<std::string>(commands.begin(), commands.end()));
}

TEST(CommandLine, SecretsAreFoundWhereverTheParserTakesThem) {
    const Args args = {"-H", "h",  "-P",     "pw", "-kKEY", "-vyABCD",
                       "-U", "-P", "--user", "-k", "list",  "-y"};
    const std::vector<tool::SecretArgument> secrets = tool::secretsIn(args);
    ASSERT_EQ(secrets.size(), 3u);
    EXPECT_EQ(secrets[0].index, 3u);  // pw
    EXPECT_EQ(secrets[0].offset, 0u);
    EXPECT_EQ(secrets[1].index, 4u);  // KEY
    EXPECT_EQ(secrets[1].offset, 2u);
    EXPECT_EQ(secrets[2].index, 5u);  // ABCD
    EXPECT_EQ(secrets[2].offset, 3u);
    // Nothing after --: it ends the options.
    EXPECT_TRUE(tool::secretsIn({"--", "-P", "x"}).empty());
    EXPECT_TRUE(tool::takesSecret("-P"));
    EXPECT_FALSE(tool::takesSecret("-p"));
}

}  // namespace
