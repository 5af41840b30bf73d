// The exporter's configuration: ipmi_exporter's example loads unchanged, our own keys beside its
// keys, and every mistake named by file, line and key.
#include <IpmiConnectionSettings.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "ConfigFileTest.h"
#include "ScratchDirectory.h"
#include "exporter/ExporterConfig.h"

namespace {

using Lines = std::vector<std::string>;

// Debian's /etc/prometheus/ipmi_remote.yml of prometheus-ipmi-exporter 1.6.1, as it is.
const char* const kDebianExample = R"yaml(# Configuration file for ipmi_exporter

# This is an example config for scraping remote hosts via IPMI.
# Information required to access remote IPMI interfaces can be supplied in the
# 'modules' section. A scrape can request the usage of a given config by
# setting the `module` URL parameter.

modules:
        default:
                # These settings are used if no module is specified, the
                # specified module doesn't exist, or of course if
                # module=default is specified.
                user: "default_user"
                pass: "example_pw"
                # The below settings correspond to driver-type, privilege-level, and
                # session-timeout respectively, see `man 5 freeipmi.conf` (and e.g.
                # `man 8 ipmi-sensors` for a list of driver types).
                driver: "LAN_2_0"
                privilege: "user"
                # The session timeout is in milliseconds. Note that a scrape can take up
                # to (session-timeout * #-of-collectors) milliseconds, so set the scrape
                # timeout in Prometheus accordingly.
                # Must be larger than the retransmission timeout, which defaults to 1000.
                timeout: 10000
                # Available collectors are bmc, ipmi, chassis, dcmi, sel, and sm-lan-mode
                # If _not_ specified, bmc, ipmi, chassis, and dcmi are used
                collectors:
                - bmc
                - ipmi
                - chassis
                # Got any sensors you don't care about? Add them here.
                exclude_sensor_ids:
                - 2
                - 29
                - 32
                - 50
                - 52
                - 55
        dcmi:
                # Use these settings when scraped with module=dcmi.
                user: "admin_user"
                pass: "another_pw"
                privilege: "admin"
                driver: "LAN_2_0"
                collectors:
                - dcmi
        thatspecialhost:
                # Use these settings when scraped with module=thatspecialhost.
                user: "some_user"
                pass: "secret_pw"
                privilege: "admin"
                driver: "LAN"
                collectors:
                - ipmi
                - sel
                # Need any special workaround flags set? Add them here.
                # Workaround flags might be needed to address issues with specific vendor implementations
                # e.g. https://www.gnu.org/software/freeipmi/freeipmi-faq.html#Why-is-the-output-from-FreeIPMI-different-than-another-software_003f
                # For a full list of flags, refer to:
                # https://www.gnu.org/software/freeipmi/manpages/man8/ipmi-sensors.8.html#lbAL
                workaround_flags:
                - discretereading
                # If you require additional command line arguments (e.g. --bridge-sensors for ipmimonitoring),
                # you can specify them per collector - BE CAREFUL, you can easily break the exporter with this!
                custom_args:
                        ipmi:
                        - "--bridge-sensors"
        advanced:
                # Use these settings when scraped with module=advanced.
                user: "some_user"
                pass: "secret_pw"
                privilege: "admin"
                driver: "LAN"
                collectors:
                - ipmi
                - sel
                # USING ANY OF THE BELOW VOIDS YOUR WARRANTY! YOU MAY GET BITTEN BY SHARKS!
                # You can override the command to be executed for a collector. Paired with
                # custom_args, this can be used to e.g. execute the IPMI tools with sudo:
                collector_cmd:
                        ipmi: sudo
                        sel: sudo
                custom_args:
                        ipmi:
                        - "ipmimonitoring"
                        sel:
                        - "ipmi-sel"
)yaml";

class ExporterConfigTest : public ConfigFileTest<tool::ExporterConfig, tool::loadExporterConfig> {
protected:
    ExporterConfigTest() : ConfigFileTest("ipmi.yml") {}
};

// Debian's example with `hosts: any` under each module's name.
std::string withAnyHosts(std::string text) {
    for (const std::string module : {"default", "dcmi", "thatspecialhost", "advanced"}) {
        const std::string line = "        " + module + ":\n";
        text.replace(text.find(line), line.size(), line + "                hosts: any\n");
    }
    return text;
}

// A module scrapes only the targets its hosts allow: ipmi_exporter's, which have no hosts, are
// refused until they say which they may scrape, or that any may be.
TEST_F(ExporterConfigTest, DebiansExampleLoadsWithHostsAdded) {
    EXPECT_EQ(errorOf(kDebianExample),
              path(":9: modules.default: has no hosts: name the targets it may scrape (hosts: "
                   "[\"bmc-*.example\"]), or say hosts: any to let it scrape any target a scrape "
                   "names"));
    const tool::ExporterConfig config = load(withAnyHosts(kDebianExample), 0644);
    ASSERT_EQ(config.modules.size(), 4u);

    const tool::ExporterModule& standard = config.modules.at("default");
    EXPECT_EQ(standard.name, "default");
    EXPECT_EQ(standard.user, "default_user");
    EXPECT_EQ(standard.password, "example_pw");
    EXPECT_EQ(standard.privilege, "user");
    EXPECT_EQ(standard.timeoutMs, 10000u);
    EXPECT_EQ(standard.port, 623);
    EXPECT_EQ(standard.cipherSuite, std::nullopt);
    EXPECT_EQ(standard.bmcKey, std::nullopt);
    EXPECT_EQ(standard.refusal, "");
    EXPECT_TRUE(standard.anyHost);
    EXPECT_TRUE(standard.allows("any.host.example"));

    const tool::ExporterModule& dcmi = config.modules.at("dcmi");
    EXPECT_EQ(dcmi.user, "admin_user");
    EXPECT_EQ(dcmi.password, "another_pw");
    EXPECT_EQ(dcmi.privilege, "admin");
    EXPECT_EQ(dcmi.timeoutMs, std::nullopt);
    EXPECT_EQ(dcmi.refusal, "");

    EXPECT_EQ(config.modules.at("thatspecialhost").refusal,
              "module thatspecialhost: driver LAN (IPMI 1.5) is not supported; use LAN_2_0");
    EXPECT_EQ(config.modules.at("advanced").refusal,
              "module advanced: driver LAN (IPMI 1.5) is not supported; use LAN_2_0");

    EXPECT_EQ(config.warnings,
              (Lines{path(":33: modules.default.exclude_sensor_ids: is not used by ipmi-event-log"),
                     path(":65: modules.thatspecialhost.workaround_flags[0]: \"discretereading\" "
                          "is not used by ipmi-event-log"),
                     path(":68: modules.thatspecialhost.custom_args: is not used by "
                          "ipmi-event-log"),
                     path(":84: modules.advanced.collector_cmd: is not used by ipmi-event-log"),
                     path(":87: modules.advanced.custom_args: is not used by ipmi-event-log"),
                     path(": others can read this file and the passwords in it; chmod o-r ") +
                         path(", or move them to pass_file and bmc_key_file")}));
}

TEST_F(ExporterConfigTest, OurOwnKeysBesideIpmiExportersOnes) {
    // The password file is found beside the configuration, and its CR LF is not the password's.
    scratch.write("rack7.pass", "s3cret\r\nsecond line\n");
    scratch.write("rack7.key", "kg-of-rack7\n");
    ASSERT_EQ(::chmod(scratch.file("rack7.pass").c_str(), 0640), 0);
    ASSERT_EQ(::chmod(scratch.file("rack7.key").c_str(), 0600), 0);
    const tool::ExporterConfig config = load(
        "modules:\n"
        "  rack7:\n"
        "    user: ops\n"
        "    pass_file: rack7.pass\n"
        "    bmc_key_file: " +
        scratch.file("rack7.key") +
        "\n"
        "    privilege: ADMINISTRATOR\n"
        "    driver: lan_2_0\n"
        "    cipher_suite: 17\n"
        "    port: 6230\n"
        "    rendering: described\n"
        "    hosts: [\"bmc-r7-*.example\", \"10.7.0.?\"]\n"
        "  keyed:\n"
        "    bmc_key: \"01234567890123456789\"\n"
        "    privilege: Operator\n"
        "    hosts: any\n"
        "  local:\n"
        "    driver: KCS\n"
        "    hosts: [localhost]\n");
    EXPECT_EQ(config.warnings, Lines{});

    const tool::ExporterModule& rack7 = config.modules.at("rack7");
    EXPECT_EQ(rack7.user, "ops");
    EXPECT_EQ(rack7.password, "s3cret");
    EXPECT_EQ(rack7.bmcKey, "kg-of-rack7");
    EXPECT_EQ(rack7.privilege, "admin");
    EXPECT_EQ(rack7.cipherSuite, 17);
    EXPECT_EQ(rack7.port, 6230);
    EXPECT_EQ(rack7.rendering, tool::Rendering::Described);
    EXPECT_EQ(rack7.refusal, "");
    EXPECT_TRUE(rack7.allows("bmc-r7-01.example"));
    EXPECT_TRUE(rack7.allows("BMC-R7-02.Example"));
    EXPECT_TRUE(rack7.allows("10.7.0.5"));
    EXPECT_FALSE(rack7.allows("10.7.0.50"));
    EXPECT_FALSE(rack7.allows("bmc-r8-01.example"));
    // The whole host is matched: nothing after a NUL hides from the patterns.
    EXPECT_FALSE(rack7.allows(std::string("10.7.0.5\0evil", 13)));
    EXPECT_FALSE(rack7.anyHost);

    const tool::ExporterModule& keyed = config.modules.at("keyed");
    EXPECT_EQ(keyed.bmcKey, "01234567890123456789");
    EXPECT_EQ(keyed.privilege, "operator");
    EXPECT_EQ(keyed.user, "");
    EXPECT_EQ(keyed.password, "");
    EXPECT_EQ(keyed.port, 623);
    EXPECT_EQ(keyed.rendering, std::nullopt);  // the command line's

    EXPECT_TRUE(keyed.workarounds.empty());

    EXPECT_EQ(config.modules.at("local").refusal,
              "module local: driver KCS reaches the BMC of the machine the exporter runs on, not "
              "a target; use LAN_2_0");
}

// The example the package installs as /etc/ipmi-event-log/config.yml, with its password file
// beside it and the mode it is installed with.
TEST_F(ExporterConfigTest, ThePackagesExampleLoadsWithItsPasswordFile) {
    std::ifstream shipped(SOURCE_DIR "/tools/service/config.yml");
    std::ostringstream text;
    text << shipped.rdbuf();
    ASSERT_FALSE(text.str().empty());
    scratch.write("default.pass", "monitor-password\n");
    ASSERT_EQ(::chmod(scratch.file("default.pass").c_str(), 0640), 0);
    const tool::ExporterConfig config = load(text.str(), 0640);
    EXPECT_EQ(config.warnings, Lines{});
    ASSERT_EQ(config.modules.size(), 1u);

    const tool::ExporterModule& standard = config.modules.at("default");
    EXPECT_EQ(standard.user, "monitor");
    EXPECT_EQ(standard.password, "monitor-password");
    EXPECT_EQ(standard.privilege, "user");
    EXPECT_EQ(standard.timeoutMs, 10000u);
    EXPECT_EQ(standard.port, 623);
    EXPECT_EQ(standard.refusal, "");
    EXPECT_TRUE(standard.allows("bmc01.example.net"));
}

TEST_F(ExporterConfigTest, AnEmptyFileHasNoModules) {
    EXPECT_TRUE(load("").modules.empty());
    EXPECT_TRUE(load("# nothing yet\nmodules:\n").modules.empty());
}

TEST_F(ExporterConfigTest, PasswordsOthersCanReadAreWarnedOf) {
    const std::string warning = path(
                                    ": others can read this file and the passwords in it; "
                                    "chmod o-r ") +
                                path(", or move them to pass_file and bmc_key_file");
    EXPECT_EQ(load("modules: {a: {pass: pw, hosts: any}}\n", 0644).warnings, Lines{warning});
    EXPECT_EQ(load("modules: {a: {bmc_key: kg, hosts: any}}\n", 0604).warnings, Lines{warning});
    EXPECT_EQ(load("modules: {a: {pass: pw, hosts: any}}\n", 0640).warnings, Lines{});
    // Nothing secret in it: nothing to hide.
    scratch.write("pw", "pw\n");
    ASSERT_EQ(::chmod(scratch.file("pw").c_str(), 0640), 0);
    EXPECT_EQ(load("modules: {a: {pass_file: pw, hosts: any}}\n", 0644).warnings, Lines{});
    EXPECT_EQ(load("modules: {a: {pass: \"\", hosts: any}}\n", 0644).warnings, Lines{});
}

// A password file others can read draws the same warning as the configuration holding one.
TEST_F(ExporterConfigTest, PasswordFilesOthersCanReadAreWarnedOf) {
    scratch.write("pw", "pw\n");
    scratch.write("kg", "kg\n");
    ASSERT_EQ(::chmod(scratch.file("pw").c_str(), 0644), 0);
    ASSERT_EQ(::chmod(scratch.file("kg").c_str(), 0604), 0);
    EXPECT_EQ(
        load("modules:\n  a:\n    pass_file: pw\n    bmc_key_file: kg\n    hosts: any\n", 0640)
            .warnings,
        (Lines{path(":3: modules.a.pass_file: others can read ") + scratch.file("pw") +
                   " and the secret in it; chmod o-r " + scratch.file("pw"),
               path(":4: modules.a.bmc_key_file: others can read ") + scratch.file("kg") +
                   " and the secret in it; chmod o-r " + scratch.file("kg")}));
    ASSERT_EQ(::chmod(scratch.file("pw").c_str(), 0640), 0);
    ASSERT_EQ(::chmod(scratch.file("kg").c_str(), 0600), 0);
    EXPECT_EQ(
        load("modules:\n  a:\n    pass_file: pw\n    bmc_key_file: kg\n    hosts: any\n", 0640)
            .warnings,
        Lines{});
}

TEST_F(ExporterConfigTest, MistakesAreNamedByFileLineAndKey) {
    const std::string module = "modules:\n  default:\n    user: u\n";
    const std::string anyHost = "    hosts: any\n";
    EXPECT_EQ(errorOf(module + "    timeout: ten\n"),
              path(":4: modules.default.timeout: \"ten\" is not a number of milliseconds"));
    EXPECT_EQ(errorOf(module + "    timeout: 0\n"),
              path(":4: modules.default.timeout: 0 is out of range: a number of milliseconds "
                   "from 1 to 3600000"));
    EXPECT_EQ(errorOf(module + "    timeout: -5\n"),
              path(":4: modules.default.timeout: \"-5\" is not a number of milliseconds"));
    EXPECT_EQ(errorOf(module + "    port: 65536\n"),
              path(":4: modules.default.port: 65536 is out of range: a UDP port from 1 to 65535"));
    EXPECT_EQ(errorOf(module + "    cipher_suite: 0\n"),
              path(":4: modules.default.cipher_suite: 0 is out of range: a cipher suite from 1 "
                   "to 255"));
    EXPECT_EQ(errorOf(module + "    tiemout: 10000\n"),
              path(":4: modules.default.tiemout: unknown key"));
    EXPECT_EQ(errorOf(module + "    user: v\n"), path(":4: modules.default.user: given twice"));
    EXPECT_EQ(errorOf(module + "    privilege: root\n"),
              path(":4: modules.default.privilege: \"root\" is not admin, operator or user"));
    EXPECT_EQ(errorOf(module + "    rendering: IPMI\n"),
              path(":4: modules.default.rendering: \"IPMI\" is not ipmi or described"));
    EXPECT_EQ(errorOf(module + "    driver: IPMB\n"),
              path(":4: modules.default.driver: \"IPMB\" is not LAN_2_0, LAN, KCS, SSIF, "
                   "OPENIPMI, SUNBMC or INTELDCMI"));
    EXPECT_EQ(errorOf(module + anyHost + "    collectors:\n    - ipmi\n    - temperature\n"),
              path(":7: modules.default.collectors[1]: \"temperature\" is not bmc, bmc-watchdog, "
                   "ipmi, chassis, dcmi, sel, sel-events or sm-lan-mode"));
    EXPECT_EQ(errorOf(module + "    hosts: []\n"),
              path(":4: modules.default.hosts: an empty list allows no target; say hosts: any to "
                   "allow any"));
    EXPECT_EQ(errorOf(module + "    hosts: bmc*\n"),
              path(":4: modules.default.hosts: \"bmc*\" is neither a list of patterns nor any"));
    EXPECT_EQ(errorOf(module + "    hosts: {a: b}\n"),
              path(":4: modules.default.hosts: is not a list"));
    // Control characters in the file are never shown raw.
    EXPECT_EQ(errorOf(module + "    privilege: \"\\x01\\r\\n\"\n"),
              path(":4: modules.default.privilege: \"\\x01\\x0D\\x0A\" is not admin, operator or "
                   "user"));
    EXPECT_EQ(errorOf("modules:\n  \"a\\x1b[2J\":\n    timeout: x\n"),
              path(":3: modules.a\\x1B[2J.timeout: \"x\" is not a number of milliseconds"));
    EXPECT_EQ(errorOf(module + "    timeout: \"1\\r\\n2\"\n"),
              path(":4: modules.default.timeout: \"1\\x0D\\x0A2\" is not a number of "
                   "milliseconds"));
    EXPECT_EQ(errorOf(module + anyHost + "targets:\n  limit: 0\n"),
              path(":6: targets.limit: 0 is out of range: a number of targets from 1 to 1000000"));
    EXPECT_EQ(errorOf(module + anyHost + "targets:\n  forget_after: soon\n"),
              path(":6: targets.forget_after: \"soon\" is not a number of seconds"));
    EXPECT_EQ(errorOf(module + anyHost + "targets:\n  most: 5\n"),
              path(":6: targets.most: unknown key"));
    EXPECT_EQ(errorOf(module), path(":2: modules.default: has no hosts: name the targets it may "
                                    "scrape (hosts: [\"bmc-*.example\"]), or say hosts: any to "
                                    "let it scrape any target a scrape names"));
    EXPECT_EQ(errorOf(module + "    hosts: [\"\"]\n"),
              path(":4: modules.default.hosts[0]: an empty pattern matches no target"));
    EXPECT_EQ(errorOf("modules:\n  default:\n    user: {name: u}\n"),
              path(":3: modules.default.user: is not a single value"));
    EXPECT_EQ(errorOf("modules:\n  default: 5\n"),
              path(":2: modules.default: is not a mapping of keys to values"));
    EXPECT_EQ(errorOf("modules:\n- default\n"),
              path(":1: modules: is not a mapping of keys to values"));
    EXPECT_EQ(errorOf("- modules\n"), path(":1: the file is not a mapping of keys to values"));
    EXPECT_EQ(errorOf("module:\n  default: {}\n"), path(":1: module: unknown key"));
}

TEST_F(ExporterConfigTest, TargetLimitsAreReadAndHaveDefaults) {
    const std::string module = "modules:\n  default:\n    hosts: any\n";
    const tool::ExporterConfig defaults = load(module);
    EXPECT_EQ(defaults.targets.limit, 1000u);
    EXPECT_EQ(defaults.targets.forgetAfter, std::chrono::seconds(3600));
    const tool::ExporterConfig set = load(module + "targets:\n  limit: 5\n  forget_after: 60\n");
    EXPECT_EQ(set.targets.limit, 5u);
    EXPECT_EQ(set.targets.forgetAfter, std::chrono::seconds(60));
}

TEST_F(ExporterConfigTest, CredentialsIpmiHasNoRoomForAreRefused) {
    const std::string module = "modules:\n  default:\n";
    EXPECT_EQ(errorOf(module + "    user: abcdefghijklmnopq\n"),
              path(":3: modules.default.user: is 17 bytes long, more than the 16 IPMI allows"));
    EXPECT_EQ(errorOf(module + "    pass: abcdefghijklmnopqrstu\n"),
              path(":3: modules.default.pass: is 21 bytes long, more than the 20 IPMI allows"));
    EXPECT_EQ(errorOf(module + "    bmc_key: abcdefghijklmnopqrstu\n"),
              path(":3: modules.default.bmc_key: is 21 bytes long, more than the 20 IPMI allows"));
    scratch.write("long.pass", "abcdefghijklmnopqrstu\n");
    EXPECT_EQ(errorOf(module + "    pass_file: long.pass\n"),
              path(":3: modules.default.pass_file: the first line of ") +
                  scratch.file("long.pass") + " is 21 bytes long, more than the 20 IPMI allows");
    EXPECT_EQ(errorOf(module + "    pass: a\n    pass_file: long.pass\n"),
              path(":4: modules.default.pass_file: both pass and pass_file are given; keep one "
                   "of them"));
    EXPECT_EQ(errorOf(module + "    bmc_key_file: long.pass\n    bmc_key: a\n"),
              path(":3: modules.default.bmc_key_file: both bmc_key and bmc_key_file are given; "
                   "keep one of them"));
    EXPECT_EQ(errorOf(module + "    pass_file: missing.pass\n"),
              path(":3: modules.default.pass_file: cannot read ") + scratch.file("missing.pass") +
                  ": No such file or directory");
}

TEST_F(ExporterConfigTest, FilesThatAreNotYamlOrNotThereAreNamed) {
    EXPECT_EQ(errorOf("modules:\n  default:\n    user: [u\n    pass: p\n"),
              path(":4: not valid YAML: end of sequence flow not found"));
    EXPECT_EQ(errorOf("modules:\n  default: a\n    user: u\n"),
              path(":3: not valid YAML: illegal map value"));
    const std::string missing = scratch.file("none.yml");
    try {
        tool::loadExporterConfig(missing);
        ADD_FAILURE() << "a missing file loaded";
    } catch (const tool::ConfigError& e) {
        EXPECT_EQ(std::string(e.what()), "cannot read " + missing + ": No such file or directory");
    }
}

// The host part of a target, and its port when it gives one.
std::string split(const std::string& target) {
    try {
        const tool::ScrapeTarget parts = tool::parseScrapeTarget(target);
        return parts.host + (parts.port ? " port " + std::to_string(*parts.port) : "");
    } catch (const tool::TargetError& e) {
        return e.what();
    }
}

TEST(ScrapeTarget, HostAndPortAreSplit) {
    EXPECT_EQ(split("bmc1.example"), "bmc1.example");
    EXPECT_EQ(split("bmc1.example:6230"), "bmc1.example port 6230");
    EXPECT_EQ(split("10.0.0.7:623"), "10.0.0.7 port 623");
    EXPECT_EQ(split("[fd00::7]:6230"), "fd00::7 port 6230");
    EXPECT_EQ(split("[fd00::7]"), "fd00::7");
    // A bare IPv6 address: all of it is the host.
    EXPECT_EQ(split("fd00::7"), "fd00::7");
}

TEST(ScrapeTarget, BadTargetsSayWhy) {
    EXPECT_EQ(split(""), "the target is empty");
    EXPECT_EQ(split("bmc1:"), "target \"bmc1:\": no port after \":\"");
    EXPECT_EQ(split("bmc1:0"), "target \"bmc1:0\": \"0\" is not a port from 1 to 65535");
    EXPECT_EQ(split("bmc1:65536"),
              "target \"bmc1:65536\": \"65536\" is not a port from 1 to 65535");
    EXPECT_EQ(split("bmc1:ipmi"), "target \"bmc1:ipmi\": \"ipmi\" is not a port from 1 to 65535");
    EXPECT_EQ(split(":623"), "target \":623\": no host before the port");
    EXPECT_EQ(split("[fd00::7"), "target \"[fd00::7\": no \"]\" after the IPv6 address");
    EXPECT_EQ(split("[]:623"), "target \"[]:623\": no address between \"[\" and \"]\"");
    EXPECT_EQ(split("[fd00::7]623"), "target \"[fd00::7]623\": only \":PORT\" may follow \"]\"");
    EXPECT_EQ(split("[fd00::7]:x"), "target \"[fd00::7]:x\": \"x\" is not a port from 1 to 65535");
}

// The whole target is checked before it is split, and the reason shows no byte raw.
TEST(ScrapeTarget, WholeTargetsAreCheckedAndShownEscaped) {
    EXPECT_EQ(split(std::string("127.0.0.1\0evil:623", 18)),
              "target \"127.0.0.1\\x00evil:623\": holds a control character");
    EXPECT_EQ(split("bmc1\r\nX-Injected: 1"),
              "target \"bmc1\\x0D\\x0AX-Injected: 1\": holds a control character");
    EXPECT_EQ(split("bmc1\x7f"), "target \"bmc1\\x7F\": holds a control character");
    EXPECT_EQ(split("b\xc3\xa9mc"),
              "target \"b\\xC3\\xA9mc\": holds a byte beyond ASCII; give an international name "
              "as xn--");
    EXPECT_EQ(
        split("admin@bmc1"),
        "target \"admin@bmc1\": a user (USER@) has no place in a target: the module gives it");
    EXPECT_EQ(split("http://bmc1"), "target \"http://bmc1\": is a URL; give HOST[:PORT]");
    EXPECT_EQ(split("bmc1/metrics"),
              "target \"bmc1/metrics\": a path has no place in a target; give HOST[:PORT]");
    EXPECT_EQ(split("bmc1%zz"),
              "target \"bmc1%zz\": holds \"%\", a percent encoding that is not "
              "one (%zz) or was encoded twice");
    EXPECT_EQ(split("bmc 1"),
              "target \"bmc 1\": \"bmc 1\" is not a host name: labels of letters, "
              "digits, \"-\" and \"_\", 1 to 63 bytes each, between dots");
    EXPECT_EQ(split("bmc..example:623"),
              "target \"bmc..example:623\": \"bmc..example\" is not a host name: labels of "
              "letters, digits, \"-\" and \"_\", 1 to 63 bytes each, between dots");
    EXPECT_EQ(split("-bmc"),
              "target \"-bmc\": \"-bmc\" is not a host name: labels of letters, "
              "digits, \"-\" and \"_\", 1 to 63 bytes each, between dots");
    EXPECT_EQ(split(std::string(64, 'a')),
              "target \"" + std::string(64, 'a') + "\": \"" + std::string(64, 'a') +
                  "\" is not a host name: labels of letters, digits, \"-\" and \"_\", 1 to 63 "
                  "bytes each, between dots");
    EXPECT_EQ(split(std::string(300, 'a')),
              "the target is 300 bytes long; HOST[:PORT] has at most 261");
    EXPECT_EQ(split("999.1.1.1"), "target \"999.1.1.1\": \"999.1.1.1\" is not an IPv4 address");
    EXPECT_EQ(split("[fd00::zz]:623"),
              "target \"[fd00::zz]:623\": \"fd00::zz\" is not an IPv6 address");
    EXPECT_EQ(split("[10.0.0.7]"), "target \"[10.0.0.7]\": \"10.0.0.7\" is not an IPv6 address");
    EXPECT_EQ(split("fd00::7:x:623"),
              "target \"fd00::7:x:623\": is not an IPv6 address; a port follows an IPv6 address "
              "in brackets: [ADDRESS]:PORT");
    // What is valid is spelt one way: names in lower case, addresses as inet_ntop writes them.
    EXPECT_EQ(split("BMC1.Example."), "bmc1.example.");
    EXPECT_EQ(split("bmc_1-a:623"), "bmc_1-a port 623");
    EXPECT_EQ(split("[FD00:0:0::7]:623"), "fd00::7 port 623");
    EXPECT_EQ(split("FD00:0::7"), "fd00::7");
}

std::string canonical(const std::string& target, unsigned short modulePort) {
    return tool::canonicalTarget(tool::parseScrapeTarget(target), modulePort);
}

TEST(ScrapeTarget, EachBmcHasOneSpelling) {
    EXPECT_EQ(canonical("BMC1", 623), "bmc1");
    EXPECT_EQ(canonical("bmc1:623", 623), "bmc1");
    EXPECT_EQ(canonical("bmc1:6230", 623), "bmc1:6230");
    EXPECT_EQ(canonical("[fd00:0::7]:623", 623), "fd00::7");
    EXPECT_EQ(canonical("[fd00::7]:6230", 623), "[fd00::7]:6230");
    EXPECT_EQ(canonical("10.0.0.7:6230", 6230), "10.0.0.7");
}

TEST_F(ExporterConfigTest, WorkaroundFlagsTheLibraryTakesGoToTheSessionsAndAutoIsASuite) {
    const std::string known = Tolmar::WorkaroundNames().front();
    const tool::ExporterConfig config = load(
        "modules:\n"
        "  quirky:\n"
        "    hosts: any\n"
        "    cipher_suite: auto\n"
        "    workaround_flags:\n"
        "    - discretereading\n"
        "    - " +
        known +
        "\n"
        "    - " +
        known + "\n");
    const tool::ExporterModule& quirky = config.modules.at("quirky");
    EXPECT_EQ(quirky.cipherSuite, Tolmar::ConnectionSettings::AutoCipherSuite);
    EXPECT_EQ(quirky.workarounds, Lines{known});
    EXPECT_EQ(config.warnings,
              Lines{path(":6: modules.quirky.workaround_flags[0]: \"discretereading\" is not used "
                         "by ipmi-event-log")});
}

// --- modules of transport: redfish -------------------------------------------------------------

TEST_F(ExporterConfigTest, ARedfishModuleTakesItsOwnKeysAndIpmisBoundsDoNotApply) {
    scratch.write("bmc-ca.pem", "-----BEGIN CERTIFICATE-----\n");
    const tool::ExporterConfig config = load(
        "modules:\n"
        "  openbmc:\n"
        "    transport: redfish\n"
        "    user: a-user-longer-than-ipmi-allows\n"
        "    pass: a-password-longer-than-the-20-bytes-of-ipmi\n"
        "    ca_file: bmc-ca.pem\n"
        "    port: 8443\n"
        "    logs: [EventLog, \"IPMI SEL\"]\n"
        "    timeout: 5000\n"
        "    rendering: described\n"
        "    hosts: [\"obmc-*\"]\n"
        "  lab:\n"
        "    transport: redfish\n"
        "    scheme: http\n"
        "    hosts: any\n"
        "  plain:\n"
        "    transport: redfish\n"
        "    hosts: any\n"
        "  lan:\n"
        "    transport: ipmi\n"
        "    hosts: any\n");
    EXPECT_EQ(config.warnings, Lines{});

    const tool::ExporterModule& openbmc = config.modules.at("openbmc");
    ASSERT_TRUE(openbmc.redfish);
    EXPECT_EQ(openbmc.redfish->scheme, "https");
    EXPECT_EQ(openbmc.redfish->port, 8443);
    EXPECT_EQ(openbmc.redfish->defaultPort(), 8443);
    EXPECT_EQ(openbmc.redfish->caFile, scratch.file("bmc-ca.pem"));
    EXPECT_FALSE(openbmc.redfish->insecure);
    EXPECT_EQ(openbmc.redfish->logs, (Lines{"EventLog", "IPMI SEL"}));
    EXPECT_EQ(openbmc.user, "a-user-longer-than-ipmi-allows");
    EXPECT_EQ(openbmc.password, "a-password-longer-than-the-20-bytes-of-ipmi");
    EXPECT_EQ(openbmc.timeoutMs, 5000u);
    EXPECT_EQ(openbmc.rendering, tool::Rendering::Described);
    EXPECT_TRUE(openbmc.allows("obmc-1"));
    EXPECT_FALSE(openbmc.allows("bmc-1"));

    const tool::ExporterModule& lab = config.modules.at("lab");
    ASSERT_TRUE(lab.redfish);
    EXPECT_EQ(lab.redfish->scheme, "http");
    EXPECT_EQ(lab.redfish->port, std::nullopt);
    EXPECT_EQ(lab.redfish->defaultPort(), 80);
    EXPECT_EQ(lab.redfish->caFile, "");
    EXPECT_EQ(lab.redfish->logs, Lines{});

    const tool::ExporterModule& plain = config.modules.at("plain");
    ASSERT_TRUE(plain.redfish);
    EXPECT_EQ(plain.redfish->scheme, "https");
    EXPECT_EQ(plain.redfish->defaultPort(), 443);

    EXPECT_FALSE(config.modules.at("lan").redfish);
    EXPECT_EQ(config.modules.at("lan").port, 623);
}

TEST_F(ExporterConfigTest, AnInsecureRedfishModuleIsWarnedOf) {
    const std::string module = "modules:\n  lab:\n    transport: redfish\n    hosts: any\n";
    const tool::ExporterConfig insecure = load(module + "    insecure: true\n");
    EXPECT_TRUE(insecure.modules.at("lab").redfish->insecure);
    EXPECT_EQ(insecure.warnings,
              Lines{path(":5: modules.lab.insecure: the certificates of the module's Redfish "
                         "services are not checked; anyone between here and them can read the "
                         "password and change what they answer")});
    const tool::ExporterConfig checked = load(module + "    insecure: false\n");
    EXPECT_FALSE(checked.modules.at("lab").redfish->insecure);
    EXPECT_EQ(checked.warnings, Lines{});
}

TEST_F(ExporterConfigTest, KeysOfTheOtherTransportAreNamedByFileLineAndKey) {
    const std::string redfish = "modules:\n  rf:\n    transport: redfish\n    hosts: any\n";
    for (const std::string key :
         {"privilege", "driver", "cipher_suite", "bmc_key", "bmc_key_file", "workaround_flags"}) {
        EXPECT_EQ(errorOf(redfish + "    " + key + ": x\n"),
                  path(":5: modules.rf." + key +
                       ": is an IPMI key, of no use to a module of transport: redfish"));
    }
    // Wherever the transport is said.
    EXPECT_EQ(errorOf("modules:\n  rf:\n    privilege: user\n    transport: redfish\n"),
              path(":3: modules.rf.privilege: is an IPMI key, of no use to a module of transport: "
                   "redfish"));
    for (const std::string transport : {"", "    transport: ipmi\n"}) {
        for (const std::string key : {"scheme", "ca_file", "insecure", "logs"}) {
            EXPECT_EQ(
                errorOf("modules:\n  lan:\n    hosts: any\n" + transport + "    " + key + ": x\n"),
                path(":" + std::to_string(transport.empty() ? 4 : 5) + ": modules.lan." + key +
                     ": is a Redfish key, of no use to a module of transport: ipmi (the "
                     "default); say transport: redfish"));
        }
    }
    EXPECT_EQ(errorOf("modules:\n  rf:\n    transport: snmp\n    hosts: any\n"),
              path(":3: modules.rf.transport: \"snmp\" is not ipmi or redfish"));
}

TEST_F(ExporterConfigTest, BadRedfishValuesAreNamedByFileLineAndKey) {
    const std::string module = "modules:\n  rf:\n    transport: redfish\n    hosts: any\n";
    scratch.write("ca.pem", "-----BEGIN CERTIFICATE-----\n");
    EXPECT_EQ(errorOf(module + "    scheme: ftp\n"),
              path(":5: modules.rf.scheme: \"ftp\" is not https or http"));
    EXPECT_EQ(errorOf(module + "    port: 0\n"),
              path(":5: modules.rf.port: 0 is out of range: a TCP port from 1 to 65535"));
    EXPECT_EQ(errorOf(module + "    insecure: yes\n"),
              path(":5: modules.rf.insecure: \"yes\" is not true or false"));
    EXPECT_EQ(errorOf(module + "    ca_file: missing.pem\n"),
              path(":5: modules.rf.ca_file: cannot read ") + scratch.file("missing.pem") +
                  ": No such file or directory");
    EXPECT_EQ(errorOf(module + "    ca_file: \"\"\n"),
              path(":5: modules.rf.ca_file: the file name is empty"));
    EXPECT_EQ(errorOf(module + "    ca_file: ca.pem\n    insecure: true\n"),
              path(":6: modules.rf.insecure: both ca_file and insecure: true are given; keep one "
                   "of them"));
    EXPECT_EQ(errorOf(module + "    scheme: http\n    ca_file: ca.pem\n"),
              path(":6: modules.rf.ca_file: a module of scheme: http has no certificates to "
                   "check"));
    EXPECT_EQ(errorOf(module + "    scheme: http\n    insecure: true\n"),
              path(":6: modules.rf.insecure: a module of scheme: http has no certificates to "
                   "check"));
    EXPECT_EQ(errorOf(module + "    logs: EventLog\n"), path(":5: modules.rf.logs: is not a list"));
    EXPECT_EQ(errorOf(module + "    logs: [EventLog, \"\"]\n"),
              path(":5: modules.rf.logs[1]: an empty name names no log"));
}

TEST(ScrapeTarget, ARedfishServiceIsReachedAtItsUrl) {
    tool::RedfishModule https;
    tool::RedfishModule http;
    http.scheme = "http";
    http.port = 8000;
    const auto url = [](const std::string& target, const tool::RedfishModule& module) {
        return tool::redfishServiceUrl(tool::parseScrapeTarget(target), module);
    };
    EXPECT_EQ(url("BMC1", https), "https://bmc1");
    EXPECT_EQ(url("bmc1:8443", https), "https://bmc1:8443");
    EXPECT_EQ(url("bmc1:443", https), "https://bmc1");
    EXPECT_EQ(url("[FD00::7]", https), "https://[fd00::7]");
    EXPECT_EQ(url("bmc1", http), "http://bmc1:8000");
    EXPECT_EQ(url("[::1]:9000", http), "http://[::1]:9000");
}

}  // namespace
