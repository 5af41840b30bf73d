#include "IpmiClientSettings.h"

#include <cerrno>
#include <cstdlib>
#include <utility>

#include "Hex.h"
#include "Log.h"
#include "Secret.h"

namespace {

const char* const kLogSource = "framework/IpmiClientSettings";

using std::chrono::milliseconds;

constexpr milliseconds kDefaultSessionTimeout{10000};
constexpr milliseconds kDefaultRetransmissionTimeout{1000};
// Bounds of either timeout: a longer one holds a caller for nothing.
constexpr milliseconds kLongestTimeout{3600000};
// IPMI v2.0 section 13.31: K_g is at most 20 bytes.
constexpr std::size_t kLongestBmcKey = 20;

constexpr unsigned char kUserLevel = 0x02;
constexpr unsigned char kOperatorLevel = 0x03;
constexpr unsigned char kAdministratorLevel = 0x04;

thread_local const IpmiClientSettingsScope* innermost = nullptr;

// FreeIPMI's names (ipmi-sel(8), WORKAROUNDS) of the IPMI v2.0 LAN workarounds.
const struct {
    IpmiWorkaround flag;
    const char* name;
} kWorkaroundNames[] = {
    {kWorkaroundHandledAnyway, "authcap"},
    {kWorkaroundNoChecksumCheck, "nochecksumcheck"},
    {kWorkaroundIntel20, "intel20"},
    {kWorkaroundHandledAnyway, "supermicro20"},
    {kWorkaroundHandledAnyway, "sun20"},
    {kWorkaroundOpenSessionPrivilege, "opensesspriv"},
    {kWorkaroundHandledAnyway, "integritycheckvalue"},
};

std::string environment(const char* name) {
    const char* text = std::getenv(name);
    return text != nullptr ? text : "";
}

milliseconds timeoutFromEnvironment(const char* name, milliseconds fallback) {
    const std::string text = environment(name);
    if (text.empty()) return fallback;
    char* end = nullptr;
    errno = 0;
    const unsigned long value = std::strtoul(text.c_str(), &end, 10);
    if (*end != '\0' || errno != 0 || value == 0 || milliseconds(value) > kLongestTimeout) {
        Log(1, kLogSource, __LINE__).Stream()
            << "ignoring " << name << "=\"" << text << "\": not a number of milliseconds";
        return fallback;
    }
    return milliseconds(value);
}

unsigned char privilegeFromEnvironment() {
    const std::string level = environment("TOLMAR_IPMI_PRIVILEGE");
    if (level == "admin") return kAdministratorLevel;
    if (level == "operator") return kOperatorLevel;
    if (level == "user") return kUserLevel;
    if (!level.empty()) {
        Log(1, kLogSource, __LINE__).Stream()
            << "ignoring TOLMAR_IPMI_PRIVILEGE=\"" << level << "\": not admin, operator or user";
    }
    return 0;
}

// The BMC key of TOLMAR_IPMI_BMC_KEY, in hexadecimal as ipmitool's -y takes it; false when the
// variable holds something else.
bool bmcKeyFromEnvironment(std::string& key) {
    std::string hex = environment("TOLMAR_IPMI_BMC_KEY");
    const WipedOnExit<std::string> hexWiped(hex);
    return bytesFromHex(hex, key) && key.size() <= kLongestBmcKey;
}

// "a, b and c".
std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (i > 0) text += i + 1 == names.size() ? " and " : ", ";
        text += names[i];
    }
    return text;
}

// The flags of the names in `names`; the first name not known goes to `unknown`.
unsigned workaroundFlags(const std::vector<std::string>& names, std::string& unknown) {
    unsigned flags = 0;
    for (const std::string& name : names) {
        const std::optional<IpmiWorkaround> flag = ipmiWorkaroundNamed(name);
        if (flag) {
            flags |= *flag;
        } else if (unknown.empty()) {
            unknown = name;
        }
    }
    return flags;
}

// Why settings given explicitly cannot be used, or empty.
std::string unusableGiven(const IpmiClientSettings& given) {
    if (given.privilegeLevel &&
        (*given.privilegeLevel < kUserLevel || *given.privilegeLevel > kAdministratorLevel)) {
        return "the privilege level is not user, operator or administrator";
    }
    if (given.bmcKey && given.bmcKey->size() > kLongestBmcKey)
        return "the BMC key is longer than 20 bytes";
    for (const auto& timeout : {given.sessionTimeout, given.retransmissionTimeout}) {
        if (timeout && (*timeout <= milliseconds(0) || *timeout > kLongestTimeout))
            return "a timeout is not between 1 ms and 1 hour";
    }
    return "";
}

}  // namespace

std::optional<IpmiWorkaround> ipmiWorkaroundNamed(const std::string& name) {
    for (const auto& known : kWorkaroundNames) {
        if (name == known.name) return known.flag;
    }
    return std::nullopt;
}

std::vector<std::string> ipmiWorkaroundNames() {
    std::vector<std::string> names;
    for (const auto& known : kWorkaroundNames) names.push_back(known.name);
    return names;
}

IpmiClientSettingsScope::IpmiClientSettingsScope(IpmiClientSettings settings)
    : settings_(std::move(settings)), outer_(innermost) {
    innermost = this;
}

IpmiClientSettingsScope::~IpmiClientSettingsScope() {
    innermost = outer_;
    if (settings_.bmcKey) wipe(*settings_.bmcKey);
}

IpmiClientSettings IpmiClientSettingsScope::current() {
    return innermost != nullptr ? innermost->settings_ : IpmiClientSettings{};
}

EffectiveIpmiClientSettings effectiveSettings(const IpmiClientSettings& given) {
    EffectiveIpmiClientSettings settings;
    settings.privilegeLevel =
        given.privilegeLevel ? *given.privilegeLevel : privilegeFromEnvironment();
    if (given.bmcKey) {
        settings.bmcKey = *given.bmcKey;
    } else if (!bmcKeyFromEnvironment(settings.bmcKey)) {
        settings.unusable = "TOLMAR_IPMI_BMC_KEY is not a BMC key: up to 40 hexadecimal digits";
    }
    settings.allowCipherSuiteZero = given.allowCipherSuiteZero
                                        ? *given.allowCipherSuiteZero
                                        : environment("TOLMAR_IPMI_ALLOW_CIPHER_SUITE_0") == "1";
    settings.sessionTimeout =
        given.sessionTimeout
            ? *given.sessionTimeout
            : timeoutFromEnvironment("TOLMAR_IPMI_SESSION_TIMEOUT_MS", kDefaultSessionTimeout);
    settings.retransmissionTimeout =
        given.retransmissionTimeout
            ? *given.retransmissionTimeout
            : timeoutFromEnvironment("TOLMAR_IPMI_RETRANSMISSION_TIMEOUT_MS",
                                     kDefaultRetransmissionTimeout);
    std::string unknownWorkaround;
    settings.workarounds = workaroundFlags(given.workarounds, unknownWorkaround);
    if (!unknownWorkaround.empty()) {
        settings.unusable = "no workaround is named \"" + unknownWorkaround + "\"; there are " +
                            joined(ipmiWorkaroundNames());
    }
    const std::string unusable = unusableGiven(given);
    if (!unusable.empty()) settings.unusable = unusable;
    return settings;
}
