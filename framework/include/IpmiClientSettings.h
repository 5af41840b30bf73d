// How an IpmiClient opens and keeps its LAN session, beyond what its constructor takes. One process
// talks to many BMCs, each with its own credentials and settings, so settings are bound to the
// clients that one thread constructs while an IpmiClientSettingsScope lives there, and never travel
// through the process's environment. What the settings leave unset comes from the process's
// defaults: the TOLMAR_IPMI_* environment variables, else the built-in values.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

// The cipher suite of a client whose settings say so: asked of the BMC (Get Channel Cipher Suites)
// and the strongest it offers among those the client speaks.
constexpr unsigned long kChooseCipherSuite = 0xFFFF;

// Ways in which BMCs depart from IPMI v2.0 that cannot be told from their answers, so that a
// client survives them only when told to expect them. Each bears FreeIPMI's --workaround-flags
// name where that means the same.
enum IpmiWorkaround : unsigned {
    // A FreeIPMI name for a departure the client recognises on its own ("authcap", "sun20",
    // "supermicro20", "integritycheckvalue"): taken, with nothing to do.
    kWorkaroundHandledAnyway = 0,
    // "nochecksumcheck": answers carry wrong IPMI message checksums but are otherwise right; taken
    // also where no integrity code vouches for them (where one does, they are taken anyway).
    kWorkaroundNoChecksumCheck = 1u << 0,
    // "intel20": the user name padded with zeros to 16 bytes in RAKP message 1, for BMCs that
    // know it only so (their padded codes, and HMAC-MD5 passwords cut to 16 bytes, are
    // recognised anyway).
    kWorkaroundIntel20 = 1u << 1,
    // "opensesspriv": Open Session asks for the privilege level RAKP message 1 asks for, rather
    // than "the highest", for BMCs that derive the keys from Open Session's level (recognised
    // anyway where RAKP message 4 shows it).
    kWorkaroundOpenSessionPrivilege = 1u << 2,
};

// The workaround of a FreeIPMI name (kWorkaroundHandledAnyway: known, nothing to do), or nullopt
// for a name this client does not know.
std::optional<IpmiWorkaround> ipmiWorkaroundNamed(const std::string& name);
// Every name ipmiWorkaroundNamed() knows.
std::vector<std::string> ipmiWorkaroundNames();

struct IpmiClientSettings {
    // In place of the one the constructor takes; kChooseCipherSuite: asked of the BMC
    std::optional<unsigned long> cipherSuite;
    // 2 user, 3 operator, 4 administrator (IPMI v2.0 table 22-28); unset: the highest level the
    // BMC grants the user (TOLMAR_IPMI_PRIVILEGE: admin, operator or user)
    std::optional<unsigned char> privilegeLevel;
    // The BMC key K_g, its bytes; empty: none (TOLMAR_IPMI_BMC_KEY, in hexadecimal)
    std::optional<std::string> bmcKey;
    // Cipher suite 0 authenticates nothing (TOLMAR_IPMI_ALLOW_CIPHER_SUITE_0=1)
    std::optional<bool> allowCipherSuiteZero;
    // To open a session, and for each answer (TOLMAR_IPMI_SESSION_TIMEOUT_MS, 10 s)
    std::optional<std::chrono::milliseconds> sessionTimeout;
    // Between sends of an unanswered packet (TOLMAR_IPMI_RETRANSMISSION_TIMEOUT_MS, 1 s)
    std::optional<std::chrono::milliseconds> retransmissionTimeout;
    // Workarounds by name (ipmiWorkaroundNamed); a name it does not know makes the settings
    // unusable (none)
    std::vector<std::string> workarounds;
};

// The settings of the IpmiClients constructed on the calling thread while it lives; each client
// keeps those it was constructed with. Scopes nest: the innermost counts.
class IpmiClientSettingsScope {
public:
    explicit IpmiClientSettingsScope(IpmiClientSettings settings);
    ~IpmiClientSettingsScope();  // wipes the BMC key
    IpmiClientSettingsScope(const IpmiClientSettingsScope&) = delete;
    IpmiClientSettingsScope& operator=(const IpmiClientSettingsScope&) = delete;

    // The innermost scope's settings on the calling thread; none set outside every scope.
    static IpmiClientSettings current();

private:
    IpmiClientSettings settings_;
    const IpmiClientSettingsScope* outer_;
};

// Settings with nothing left unset, as a client opens its session with them.
struct EffectiveIpmiClientSettings {
    unsigned char privilegeLevel = 0;  // 0: the highest granted
    std::string bmcKey;
    bool allowCipherSuiteZero = false;
    std::chrono::milliseconds sessionTimeout{0};
    std::chrono::milliseconds retransmissionTimeout{0};
    unsigned workarounds = 0;  // IpmiWorkaround flags
    std::string unusable;      // why these settings cannot open a session, or empty
};

// `settings`, with what they leave unset taken from the environment or the built-in defaults (the
// cipher suite is the client's own business). The one place the TOLMAR_IPMI_* variables are read; a
// value that cannot be read is logged and its default used, but for a BMC key, which makes the
// settings unusable: the handshake would fail later for a less clear reason.
EffectiveIpmiClientSettings effectiveSettings(const IpmiClientSettings& settings);
