/**
 * @file IpmiConnectionSettings.h
 * @brief How one connection opens its IPMI session, beyond ConnectionInfo, and what its calls met.
 *
 * One process may read many BMCs at once, each with its own user, privilege level, cipher suite
 * and BMC key. Settings therefore travel with each connection and never through the process's
 * environment:
 * - Tolmar::IpmiEventFollower takes a ConnectionSettings beside its ConnectionInfo.
 * - Tolmar::IpmiEventLog takes a ConnectionInfo only; its calls use the settings of the
 *   ConnectionScope that lives on the calling thread, if one does:
 *   @code
 *   Tolmar::ConnectionSettings settings;
 *   settings.privilege = Tolmar::ConnectionSettings::Privilege::Operator;
 *   Tolmar::ConnectionScope scope(settings);  // this thread's calls, while it lives
 *   int result = log.DeleteEventLog(0x10);
 *   std::string why = scope.LastCall().connectFailure;
 *   @endcode
 *
 * What the settings leave unset comes from the process's defaults: the TOLMAR_IPMI_* environment
 * variables (read, never written, by the library), else the built-in values given below.
 *
 * Settings, call reports and activity counts need a framework that offers them
 * (IpmiPlatformExtensions.h); ours does. Elsewhere each says that it is not available.
 */
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Tolmar {

/// How a connection opens and keeps its IPMI v2.0 (RMCP+) LAN session. Every field is optional:
/// unset, the process's default applies. Settings that cannot be used (a BMC key over 20 bytes,
/// a timeout of 0 or over an hour) fail the connection with the reason.
struct ConnectionSettings {
    /// IPMI privilege levels (IPMI v2.0 table 22-28).
    enum class Privilege : std::uint8_t { User = 2, Operator = 3, Administrator = 4 };

    /// cipherSuite's value for "ask the BMC": Get Channel Cipher Suites, and the strongest suite
    /// it offers among those the client speaks (17, then 3, then the others; 0 only where
    /// allowCipherSuiteZero allows it). The choice is remembered per BMC for the process's life.
    static constexpr std::uint16_t AutoCipherSuite = 0xFFFF;

    /// Cipher suite ID in place of ConnectionInfo::cipherSuite, or AutoCipherSuite.
    std::optional<std::uint16_t> cipherSuite;
    /// The one level to ask for. Default (TOLMAR_IPMI_PRIVILEGE: admin, operator or user): the
    /// highest the BMC grants the user, from administrator down.
    std::optional<Privilege> privilege;
    /// The BMC key K_g, its bytes (at most 20); empty for none. Default: TOLMAR_IPMI_BMC_KEY, in
    /// hexadecimal, else none.
    std::optional<std::string> bmcKey;
    /// Whether cipher suite 0, which authenticates nothing, may be used. Default:
    /// TOLMAR_IPMI_ALLOW_CIPHER_SUITE_0=1, else no.
    std::optional<bool> allowCipherSuiteZero;
    /// How long to wait for the session to open and for each answer. Default:
    /// TOLMAR_IPMI_SESSION_TIMEOUT_MS, else 10 s.
    std::optional<std::chrono::milliseconds> sessionTimeout;
    /// How long before an unanswered packet is sent again. Default:
    /// TOLMAR_IPMI_RETRANSMISSION_TIMEOUT_MS, else 1 s.
    std::optional<std::chrono::milliseconds> retransmissionTimeout;
    /// Workarounds for BMCs that depart from IPMI v2.0 in ways the client cannot tell from their
    /// answers, by FreeIPMI's names (WorkaroundNames()); the names of departures it recognises on
    /// its own are taken and change nothing. An unknown name fails the connection. Default: none.
    std::vector<std::string> workarounds;
};

/// The workaround names ConnectionSettings::workarounds takes; none where the framework's IPMI
/// client takes no settings.
std::vector<std::string> WorkaroundNames();

/// What the client learnt of the BMC in opening a session, for a bug report.
struct SessionReport {
    /// "2.0" or "1.5" as Get Channel Authentication Capabilities said; empty when not known.
    std::string ipmiVersion;
    /// The cipher suites Get Channel Cipher Suites listed; empty when not asked or not answered.
    std::vector<std::uint16_t> offeredCipherSuites;
    std::optional<std::uint16_t> cipherSuite;                ///< the suite the session opened with
    std::optional<ConnectionSettings::Privilege> privilege;  ///< the level it holds
    /// Each departure from IPMI v2.0 met and how it was handled: a workaround's name, or what
    /// the client recognised on its own.
    std::vector<std::string> workarounds;
};

/// What one operation's session met, for messages a person reads.
struct CallReport {
    /// Whether the framework's IPMI client reports what its sessions meet (see
    /// IpmiPlatformExtensions.h). False: only connectFailure may be set, and only where the
    /// library itself refused the connection.
    bool available = false;
    unsigned long selEntriesRead = 0;      ///< Get SEL Entry requests answered with success
    unsigned long requestsUnanswered = 0;  ///< requests that got no answer, or had no session
    /// The last completion code other than 00h the BMC answered with, or 00h.
    std::uint8_t refusedCompletionCode = 0;
    /// That answer by name: "the BMC answered CBh (requested sensor, data or record not
    /// present)"; empty when there was none.
    std::string refusal;
    std::string connectFailure;  ///< why no session opened and what to check, or empty
    std::string warning;         ///< what to know about the session that opened, or empty
    SessionReport session;       ///< the last session opened; empty when none did
};

/// Binds settings to the IpmiEventLog calls made on the calling thread while it lives, and keeps
/// what the last of them met. Scopes nest: the innermost counts. Not to be shared between
/// threads; each thread makes its own.
class ConnectionScope {
public:
    explicit ConnectionScope(const ConnectionSettings& settings);
    ~ConnectionScope();
    ConnectionScope(const ConnectionScope&) = delete;
    ConnectionScope& operator=(const ConnectionScope&) = delete;

    /// What the last call on this thread, inside this scope, met.
    const CallReport& LastCall() const { return lastCall_; }

    /// The settings of the innermost scope on the calling thread; all unset outside every scope.
    static ConnectionSettings Current();
    /// Keeps `report` in the innermost scope on the calling thread, if there is one.
    static void Record(const CallReport& report);

private:
    ConnectionSettings settings_;
    CallReport lastCall_;
    ConnectionScope* outer_;
};

/// What every connection of this process has done so far, for progress displays.
struct ClientActivity {
    /// Whether the framework's IPMI client counts its requests (see IpmiPlatformExtensions.h);
    /// false: both counts are 0.
    bool available = false;
    unsigned long requestsSent = 0;
    unsigned long selEntriesRead = 0;  ///< Get SEL Entry requests among them
};
ClientActivity GetClientActivity();

/// The log lines the library and its IPMI client write to standard error: those of @p level and
/// below (0 none, 1 failures, ... 4 a trace of every request). Default: TOLMAR_LOG_LEVEL, else 1.
/// False, with nothing changed, where the framework's Log offers no way to set it.
bool SetLogLevel(int level);

}  // namespace Tolmar
