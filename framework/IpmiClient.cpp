// The framework's IpmiClient: an IPMI v2.0 (RMCP+) LAN session of its own (RmcpPlusSession), or
// the local in-band interface through FreeIPMI's libfreeipmi, as FreeIPMI finds it (OpenIPMI
// driver device, KCS, SSIF, ...).
#include "IpmiClient.h"

#include <freeipmi/freeipmi.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "Hex.h"
#include "IpmiClientActivity.h"
#include "IpmiClientSettings.h"
#include "Log.h"
#include "RmcpPlusSession.h"
#include "SdrRecordReads.h"
#include "Secret.h"
#include "ipmi/CompletionCode.h"

namespace {

using Bytes = std::vector<unsigned char>;
using Failure = RmcpPlusSession::Failure;
using OpenSessionOutcome = RmcpPlusSession::OpenSessionOutcome;

const char* const kLogSource = "framework/IpmiClient";

// What the call record says of a BMC that reports no IPMI v2.0 sessions but opens one.
const char* const kIpmi20Unreported =
    "IPMI v2.0 not reported by Get Channel Authentication Capabilities (recognised)";

// connect() statuses.
constexpr int kConnected = 0;
constexpr int kFailed = 1;
constexpr int kCredentialsRefused = 2;
// sendCommand() status for any transport failure.
constexpr int kTransportFailure = 1;

// Largest IPMI response over the in-band interface, with the command and completion code bytes.
constexpr unsigned kInbandResponseCapacity = 1024;
// Completion codes (IPMI v2.0 table 5-2) that stand in for an answer the BMC did not give.
constexpr unsigned char kTimedOut = 0xC3;  // timeout while processing the command
constexpr unsigned char kNotReady = 0xD2;  // BMC initialization in progress

constexpr unsigned char kUserLevel = 0x02;
constexpr unsigned char kOperatorLevel = 0x03;
constexpr unsigned char kAdministratorLevel = 0x04;
// Privilege levels asked for, highest first: reading the SEL needs user, deleting and clearing
// need operator, and some accounts are not granted administrator.
constexpr unsigned char kPrivilegeLevels[] = {kAdministratorLevel, kOperatorLevel, kUserLevel};

// The one level the settings ask for; otherwise the highest granted, from administrator down.
std::vector<unsigned char> privilegeLevels(unsigned char chosen) {
    if (chosen != 0) return {chosen};
    return {std::begin(kPrivilegeLevels), std::end(kPrivilegeLevels)};
}

// What opened a session to a BMC, and what was learnt of the BMC on the way.
struct Recipe {
    unsigned char privilege;
    unsigned long cipherSuite;  // the one chosen, where the client chose
    std::string ipmiVersion;
    std::vector<unsigned char> offeredCipherSuites;
};

// Every failed attempt to open a session can leave a half-open session on the BMC until it times
// out, and BMCs have few of them (OpenIPMI's simulator refuses new ones after about 60). So the
// privilege level and cipher suite that opened a session to a BMC, as a user with the cipher suite
// asked for, are remembered for the life of the process and tried first; only the first
// connection searches, and later ones skip Get Channel Authentication Capabilities and Get Channel
// Cipher Suites, whose answers they already had.
class Recipes {
public:
    std::optional<Recipe> find(const std::string& key) {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto found = recipes_.find(key);
        if (found == recipes_.end()) return std::nullopt;
        return found->second;
    }
    void remember(const std::string& key, const Recipe& recipe) {
        std::lock_guard<std::mutex> lock(mutex_);
        recipes_[key] = recipe;
    }

private:
    std::mutex mutex_;
    std::map<std::string, Recipe> recipes_;
};

Recipes& recipes() {
    static Recipes instance;
    return instance;
}

// How an attempt to open a LAN session ended, for what to do next.
enum class OpenFailure {
    CredentialsRefused,  // unknown user or wrong password: refused at every privilege level
    PrivilegeRefused,    // this privilege level is not granted to this user: try a lower one
    Final,               // nothing answers, or no session can exist: stop trying
};

OpenFailure classify(Failure failure) {
    switch (failure) {
        case Failure::UserNameRefused:
        case Failure::UserNameUnanswered:
        case Failure::PasswordRefused:
        case Failure::BmcKeyRefused:
            return OpenFailure::CredentialsRefused;
        case Failure::PrivilegeRefused:
            return OpenFailure::PrivilegeRefused;
        default:
            return OpenFailure::Final;
    }
}

// The statuses some BMCs refuse Open Session with in place of 11h (no cipher suite match) for a
// suite they do not offer: 01h (insufficient resources), 0Ah (unauthorized role: Supermicro X8DTG)
// and 12h (illegal parameter: MSI MS-91D2). Open Session names no user and asks for no particular
// role, so these cannot be about the user; a BMC truly out of sessions refuses each suite alike,
// at the cost of one exchange each.
bool refusesSuiteWrongly(unsigned char status) {
    constexpr unsigned char insufficientResources = 0x01;
    constexpr unsigned char unauthorizedRole = 0x0A;
    constexpr unsigned char illegalParameter = 0x12;
    return status == insufficientResources || status == unauthorizedRole ||
           status == illegalParameter;
}

// "17", "17 and 3", "17, 3 and 16".
std::string suiteList(const std::vector<unsigned long>& suites) {
    std::string text;
    for (std::size_t i = 0; i < suites.size(); ++i) {
        if (i > 0) text += i + 1 == suites.size() ? " and " : ", ";
        text += std::to_string(suites[i]);
    }
    return text;
}

// What a person can do about a failed LAN session.
const char* adviceFor(Failure failure) {
    switch (failure) {
        case Failure::UserNameRefused:
            return "check the user name; the BMC does not know it (some Intel BMCs know it only "
                   "padded to 16 bytes: workaround intel20)";
        case Failure::UserNameUnanswered:
            return "the BMC answered Open Session but not RAKP message 1, as some BMCs do for a "
                   "user name they do not know: check the user name (some Intel BMCs know it only "
                   "padded to 16 bytes: workaround intel20)";
        case Failure::PasswordRefused:
            return "check the password";
        case Failure::PrivilegeRefused:
            return "give this user at least the user privilege level on the LAN channel";
        case Failure::NoAnswer:
            return "check the address and port, that the BMC is powered and that IPMI over LAN is "
                   "enabled on it";
        case Failure::AddressUnknown:
            return "check the BMC address";
        case Failure::CipherSuiteRefused:
            return "the BMC does not offer this cipher suite; choose one it offers (17 and 3 are "
                   "the common ones; this client speaks 0-3, 6 and 15-17)";
        case Failure::CipherSuiteUnsupported:
            return "choose a cipher suite this client speaks: 0-3, 6 or 15-17 (17 and 3 are the "
                   "common ones)";
        case Failure::CipherSuiteInsecure:
            return "choose cipher suite 17 or 3, or set TOLMAR_IPMI_ALLOW_CIPHER_SUITE_0=1 to "
                   "allow suite 0 all the same";
        case Failure::Ipmi20Unavailable:
            return "enable IPMI over LAN with IPMI v2.0 (RMCP+) sessions on the BMC";
        case Failure::BadSettings:
            return "check the user name, the password, the BMC key and the workarounds";
        case Failure::BmcKeyRefused:
            return "give the BMC key (K_g) the BMC is set up with (-k or -y; TOLMAR_IPMI_BMC_KEY "
                   "in hexadecimal), or none where it has none";
        case Failure::SystemError:
            return "check this machine's network set-up";
        default:
            return "check the BMC's IPMI over LAN settings; it may have no session free";
    }
}

// Set User Password and Set Channel Security Keys carry secrets: a trace shows their length only.
bool carriesSecret(unsigned char netFn, unsigned char command) {
    constexpr unsigned char app = 0x06;
    constexpr unsigned char setUserPassword = 0x47;
    constexpr unsigned char setChannelSecurityKeys = 0x56;
    return netFn == app && (command == setUserPassword || command == setChannelSecurityKeys);
}

void traceRequest(const std::string& target, unsigned char netFn, unsigned char command,
                  const Bytes& data) {
    char head[48];
    std::snprintf(head, sizeof head, "request: netFn %02Xh command %02Xh", unsigned{netFn},
                  unsigned{command});
    Log(4, kLogSource, __LINE__).Stream()
        << "to " << target << ": " << head << " data "
        << (carriesSecret(netFn, command) ? "(" + std::to_string(data.size()) + " bytes, not shown)"
                                          : "[" + hexText(data.data(), data.size()) + "]");
}

// `answer` holds the completion code and the data.
void traceAnswer(const std::string& target, unsigned char netFn, unsigned char command,
                 const Bytes& answer) {
    char head[80];
    std::snprintf(head, sizeof head, "answer: netFn %02Xh command %02Xh completion code %02Xh",
                  unsigned{netFn} | 0x01u, unsigned{command}, unsigned{answer[0]});
    Log(4, kLogSource, __LINE__).Stream()
        << "from " << target << ": " << head << " (" << ipmiCompletionCodeName(answer[0])
        << ") data [" << hexText(answer.data() + 1, answer.size() - 1) << "]";
}

std::string secondsText(std::chrono::milliseconds duration) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", static_cast<double>(duration.count()) / 1000.0);
    return text;
}

bool isPortText(const std::string& port) {
    if (port.empty() || port.size() > 5) return false;
    for (char c : port) {
        if (c < '0' || c > '9') return false;
    }
    const unsigned long value = std::strtoul(port.c_str(), nullptr, 10);
    return value >= 1 && value <= 65535;
}

}  // namespace

struct IpmiClient::Session {
    bool lan;
    std::string address;
    std::string user;
    std::string password;
    std::string port;
    unsigned long cipherSuite;  // an ID, or kChooseCipherSuite
    unsigned long localInterface;
    IpmiClientSettings settings;                // of the thread that constructed the client
    std::unique_ptr<RmcpPlusSession> rmcpPlus;  // an open LAN session, or null
    ipmi_ctx_t context = nullptr;               // an open in-band interface, or null
    std::string inbandUnanswered = {};  // why a request of `context` went unanswered, once one did
    std::chrono::milliseconds inbandTimeout{0};  // how long an answer of `context` may take
    SdrRecordReads sdrReads = {};  // SDR records read whole from BMCs that answer short
    IpmiSessionFacts facts = {};   // what opening the LAN session learnt of the BMC

    bool choosesCipherSuite() const { return cipherSuite == kChooseCipherSuite; }

    bool isOpen() const { return rmcpPlus != nullptr || context != nullptr; }
    // "address:port", as messages show it.
    std::string target() const { return lan ? address + ":" + port : "the local BMC"; }
    int openLan();
    int openInband();
    // Logs why no session could be opened and gives connect()'s status.
    int openFailed(Failure failure, const std::string& why) const;
    // Get Channel Authentication Capabilities and Get Channel Cipher Suites, into `facts`; the
    // suites to try, in turn, into `suites`.
    Failure discover(const EffectiveIpmiClientSettings& effective, unsigned char privilege,
                     std::vector<unsigned long>& suites, std::string& why);
    // One attempt to open a LAN session at a privilege level, with each of `suites` in turn
    // while the BMC refuses them; `why` tells what failed. `openedBefore`: the BMC is known to
    // speak IPMI v2.0 (a session to it opened earlier in the process, or it said so). A suite
    // the BMC took before a later step failed is left alone in `suites`, for the next attempt.
    Failure openAt(const EffectiveIpmiClientSettings& effective, unsigned char privilege,
                   std::vector<unsigned long>& suites, std::string& why, bool openedBefore);
    // Whether `session` failed because the BMC would not have `suite`, so that a client choosing
    // its suite tries the next.
    bool refusedSuite(const RmcpPlusSession& session, Failure failure, unsigned long suite,
                      bool bmcAnswered) const;
    RmcpPlusSession::Settings sessionSettings(const EffectiveIpmiClientSettings& effective,
                                              unsigned long suite, unsigned char privilege,
                                              bool openedBefore) const;
    // What the session that opened holds, and what this one learnt before, for remembering.
    Recipe recipe() const;
    // "cipher suite 3", or what a client choosing one tried, for messages.
    std::string suiteText() const;
    // What opened a session to this BMC, as this user with this cipher suite, before.
    std::string recipeKey() const {
        return target() + "|" + user + "|" + std::to_string(cipherSuite);
    }
    unsigned char userPrivilegeLimit(unsigned char granted);
    // One request, traced: true with the completion code and data in `answer`. A Get SDR for a
    // record's rest answered short is completed in pieces, each traced.
    bool exchange(unsigned char netFn, unsigned char command, const Bytes& data, Bytes& answer);
    // The same without the trace, by the open transport.
    bool transfer(unsigned char netFn, unsigned char command, const Bytes& data, Bytes& answer);
    // Why an in-band answer with `completionCode`, which took `took`, was made up in place of
    // one the BMC did not give; empty for the BMC's own answer.
    std::string madeUpInbandAnswer(unsigned char completionCode,
                                   std::chrono::milliseconds took) const;
    std::string lastFailure() const;
    void close();
    ~Session() {
        wipe(password);
        if (settings.bmcKey) wipe(*settings.bmcKey);
    }
};

IpmiClient::IpmiClient(const std::string& address, const std::string& user,
                       const std::string& password, const std::string& port,
                       unsigned long cipherSuite)
    : session_(new Session{true, address, user, password, port, cipherSuite, 0,
                           IpmiClientSettingsScope::current(), nullptr}) {
    // The thread's settings may choose another suite.
    if (session_->settings.cipherSuite) session_->cipherSuite = *session_->settings.cipherSuite;
}

IpmiClient::IpmiClient(unsigned long localInterface)
    : session_(new Session{false, "", "", "", "", 0, localInterface,
                           IpmiClientSettingsScope::current(), nullptr}) {}

int IpmiClient::connect() {
    if (session_->isOpen()) return kConnected;
    session_->facts = {};
    const int status = session_->lan ? session_->openLan() : session_->openInband();
    if (status != kConnected || !session_->rmcpPlus) return status;
    IpmiSessionFacts& facts = session_->facts;
    facts.workarounds = session_->rmcpPlus->deviations();
    // A v2.0 session with a BMC that reports none (this time, or when it was first asked).
    if (facts.ipmiVersion == "1.5")
        facts.workarounds.insert(facts.workarounds.begin(), kIpmi20Unreported);
    ipmiCallRecordToUpdate().session = facts;
    if (!session_->rmcpPlus->signsPackets()) {
        std::string& warning = ipmiCallRecordToUpdate().warning;
        warning = "cipher suite " + std::to_string(facts.cipherSuite) +
                  " has no integrity check: answers from " + session_->target() +
                  " can be forged or replayed by anyone on the network path; 17 and 3 have one";
        Log(1, kLogSource, __LINE__).Stream() << "warning: " << warning;
    }
    return status;
}

int IpmiClient::Session::openLan() {
    if (!isPortText(port)) {
        Log(1, kLogSource, __LINE__).Stream()
            << "cannot open an IPMI session to " << address << ": port \"" << port
            << "\" is not a UDP port number";
        return kFailed;
    }
    // A level the caller chose; otherwise the search below, highest level first: a level the BMC
    // refuses to this user sends us one lower. A level the caller chose is not checked against
    // the user's limit.
    EffectiveIpmiClientSettings effective = effectiveSettings(settings);
    const WipedOnExit<std::string> bmcKeyWiped(effective.bmcKey);
    if (!effective.unusable.empty()) return openFailed(Failure::BadSettings, effective.unusable);
    const std::vector<unsigned char> levels = privilegeLevels(effective.privilegeLevel);
    const std::string key = recipeKey();
    const std::optional<Recipe> known = recipes().find(key);
    std::string why;
    if (known && std::count(levels.begin(), levels.end(), known->privilege)) {
        std::vector<unsigned long> knownSuite = {known->cipherSuite};
        facts.ipmiVersion = known->ipmiVersion;
        facts.offeredCipherSuites = known->offeredCipherSuites;
        const Failure failure = openAt(effective, known->privilege, knownSuite, why, true);
        if (failure == Failure::None) return kConnected;
        // Refused credentials stay refused at every level: no search.
        if (classify(failure) == OpenFailure::CredentialsRefused) return openFailed(failure, why);
    }
    std::vector<unsigned long> suites = {cipherSuite};
    if (choosesCipherSuite()) {
        const Failure failure = discover(effective, levels.front(), suites, why);
        if (failure != Failure::None) return openFailed(failure, why);
    }
    const bool searching = levels.size() > 1;
    unsigned char ceiling = kAdministratorLevel;
    Failure failure = Failure::None;
    for (unsigned char privilege : levels) {
        if (privilege > ceiling) continue;
        failure = openAt(effective, privilege, suites, why, choosesCipherSuite());
        if (failure == Failure::None) {
            const unsigned char limit =
                searching && privilege > kUserLevel ? userPrivilegeLimit(privilege) : privilege;
            if (limit >= privilege) {
                recipes().remember(key, recipe());
                return kConnected;
            }
            close();
            suites = {static_cast<unsigned long>(facts.cipherSuite)};
            ceiling = limit;
            failure = Failure::PrivilegeRefused;
            why = "the user's privilege limit on the channel is lower";
            continue;
        }
        if (classify(failure) != OpenFailure::PrivilegeRefused) break;
    }
    return openFailed(failure, why);
}

int IpmiClient::Session::openFailed(Failure failure, const std::string& why) const {
    // The password is never part of the message, and the session's texts do not carry it either.
    std::string& connectFailure = ipmiCallRecordToUpdate().connectFailure;
    connectFailure = why + "; " + adviceFor(failure);
    Log(1, kLogSource, __LINE__).Stream()
        << "cannot open an IPMI v2.0 session to " << target() << " as user \"" << user << "\" with "
        << suiteText() << ": " << connectFailure;
    const OpenFailure kind = classify(failure);
    return kind == OpenFailure::CredentialsRefused || kind == OpenFailure::PrivilegeRefused
               ? kCredentialsRefused
               : kFailed;
}

Failure IpmiClient::Session::discover(const EffectiveIpmiClientSettings& effective,
                                      unsigned char privilege, std::vector<unsigned long>& suites,
                                      std::string& why) {
    RmcpPlusSession probe(sessionSettings(effective, 0, privilege, false));
    const Failure failure = probe.discover();
    if (failure != Failure::None) {
        why = probe.failureText();
        return failure;
    }
    facts.ipmiVersion = probe.ipmiVersion();
    facts.offeredCipherSuites = probe.offeredCipherSuites().value_or(Bytes{});
    suites = cipherSuiteCandidates(probe.offeredCipherSuites(), effective.allowCipherSuiteZero);
    return Failure::None;
}

Failure IpmiClient::Session::openAt(const EffectiveIpmiClientSettings& effective,
                                    unsigned char privilege, std::vector<unsigned long>& suites,
                                    std::string& why, bool openedBefore) {
    Failure failure = Failure::None;
    const std::vector<unsigned long> tried = suites;
    for (unsigned long suite : tried) {
        auto session = std::make_unique<RmcpPlusSession>(
            sessionSettings(effective, suite, privilege, openedBefore));
        failure = session->open();
        if (failure == Failure::None) {
            if (!session->ipmiVersion().empty()) facts.ipmiVersion = session->ipmiVersion();
            facts.cipherSuite = static_cast<int>(suite);
            facts.privilegeLevel = privilege;
            rmcpPlus = std::move(session);
            return failure;
        }
        why = session->failureText();
        if (!refusedSuite(*session, failure, suite, openedBefore)) {
            if (session->openSessionOutcome() == OpenSessionOutcome::Taken) suites = {suite};
            return failure;
        }
        // The BMC answered Get Channel Authentication Capabilities, if it was asked.
        openedBefore = true;
    }
    if (tried.size() > 1) why += " (cipher suites tried in turn: " + suiteList(tried) + ")";
    return failure;
}

// IPMI v2.0's refusals of a cipher suite, and those some BMCs send instead. Some BMCs leave Open
// Session unanswered for a suite they do not offer: from one that answered Get Channel
// Authentication Capabilities just before (`bmcAnswered`), silence for a suite it did not list
// likely means that; for a suite it listed, that it is gone.
bool IpmiClient::Session::refusedSuite(const RmcpPlusSession& session, Failure failure,
                                       unsigned long suite, bool bmcAnswered) const {
    if (failure == Failure::CipherSuiteRefused) return true;
    switch (session.openSessionOutcome()) {
        case OpenSessionOutcome::Refused:
            return refusesSuiteWrongly(session.openSessionRefusal());
        case OpenSessionOutcome::Unanswered: {
            const auto& listed = facts.offeredCipherSuites;
            return bmcAnswered && std::find(listed.begin(), listed.end(), suite) == listed.end();
        }
        default:
            return false;
    }
}

RmcpPlusSession::Settings IpmiClient::Session::sessionSettings(
    const EffectiveIpmiClientSettings& effective, unsigned long suite, unsigned char privilege,
    bool openedBefore) const {
    // A retransmission interval above the session timeout would never resend.
    const auto retransmission =
        std::min(effective.retransmissionTimeout,
                 std::max(std::chrono::milliseconds(1), effective.sessionTimeout / 2));
    return {address,
            port,
            user,
            password,
            effective.bmcKey,
            suite,
            privilege,
            effective.sessionTimeout,
            retransmission,
            effective.allowCipherSuiteZero,
            openedBefore,
            effective.workarounds};
}

Recipe IpmiClient::Session::recipe() const {
    return {facts.privilegeLevel, static_cast<unsigned long>(facts.cipherSuite), facts.ipmiVersion,
            facts.offeredCipherSuites};
}

std::string IpmiClient::Session::suiteText() const {
    if (!choosesCipherSuite()) return "cipher suite " + std::to_string(cipherSuite);
    return "the cipher suite chosen of those the BMC offers";
}

// Some BMCs grant the requested level without checking it against the user's limit on the
// channel (OpenIPMI's simulator does). Asks the BMC for that limit: Get Session Info gives the
// session's user ID and channel, Get User Access the user's privilege limit there (IPMI v2.0
// sections 22.20 and 22.27). When the BMC cannot say, the granted level stands.
unsigned char IpmiClient::Session::userPrivilegeLimit(unsigned char granted) {
    constexpr unsigned char app = 0x06;
    constexpr unsigned char getSessionInfo = 0x3D;
    constexpr unsigned char getUserAccess = 0x44;
    constexpr unsigned char currentSession = 0x00;
    Bytes answer;
    // Completion code, handle, slots, active, user ID, privilege, channel.
    if (!exchange(app, getSessionInfo, {currentSession}, answer) || answer.size() < 7 ||
        answer[0] != 0) {
        return granted;
    }
    const unsigned char userId = answer[4] & 0x3F;
    const unsigned char channel = answer[6] & 0x0F;
    // Completion code, maximum IDs, enabled IDs, fixed names, access.
    if (!exchange(app, getUserAccess, {channel, userId}, answer) || answer.size() < 5 ||
        answer[0] != 0) {
        return granted;
    }
    return answer[4] & 0x0F;
}

int IpmiClient::Session::openInband() {
    if (localInterface != 0) {
        Log(1, kLogSource, __LINE__).Stream()
            << "no local IPMI interface number " << localInterface << ": only 0 (this machine's "
            << "BMC) exists";
        return kFailed;
    }
    context = ipmi_ctx_create();
    if (context == nullptr) {
        Log(1, kLogSource, __LINE__).Stream()
            << "cannot use the local IPMI interface: out of memory";
        return kFailed;
    }
    ipmi_driver_type_t driver = IPMI_DEVICE_UNKNOWN;
    const int found = ipmi_ctx_find_inband(context, &driver, 0, 0, 0, nullptr,
                                           IPMI_WORKAROUND_FLAGS_DEFAULT, IPMI_FLAGS_DEFAULT);
    if (found == 1) {
        inbandTimeout = effectiveSettings(settings).sessionTimeout;
        return kConnected;
    }
    const std::string reason =
        found == 0 ? "none was found" : std::string(ipmi_ctx_errormsg(context));
    ipmi_ctx_destroy(context);
    context = nullptr;
    std::string& connectFailure = ipmiCallRecordToUpdate().connectFailure;
    connectFailure =
        "no local IPMI interface could be opened (" + reason +
        "); check that this machine has a BMC, that the ipmi_si and ipmi_devintf kernel modules "
        "are loaded so that /dev/ipmi0 exists, and that this process may open it (usually root)";
    Log(1, kLogSource, __LINE__).Stream() << connectFailure;
    return kFailed;
}

void IpmiClient::Session::close() {
    rmcpPlus.reset();  // sends Close Session
    sdrReads.forget();
    if (context == nullptr) return;
    ipmi_ctx_close(context);
    ipmi_ctx_destroy(context);
    context = nullptr;
    inbandUnanswered.clear();
}

void IpmiClient::disconnect() { session_->close(); }

bool IpmiClient::Session::exchange(unsigned char netFn, unsigned char command, const Bytes& data,
                                   Bytes& answer) {
    const auto traced = [this](unsigned char fn, unsigned char code, const Bytes& request,
                               Bytes& response) {
        traceRequest(target(), fn, code, request);
        if (!transfer(fn, code, request, response)) return false;
        traceAnswer(target(), fn, code, response);
        return true;
    };
    return sdrReads.exchange(netFn, command, data, answer, traced);
}

bool IpmiClient::Session::transfer(unsigned char netFn, unsigned char command, const Bytes& data,
                                   Bytes& answer) {
    if (rmcpPlus) return rmcpPlus->exchange(netFn, command, data, answer);
    // As on the LAN, a BMC that left a request unanswered is gone: later requests fail at once.
    if (!inbandUnanswered.empty()) return false;
    // FreeIPMI's raw form: the command byte, then the data; the response starts with the command
    // byte and the completion code.
    Bytes raw;
    raw.reserve(1 + data.size());
    raw.push_back(command);
    raw.insert(raw.end(), data.begin(), data.end());
    unsigned char response[kInbandResponseCapacity];
    constexpr unsigned char lun = 0;
    const auto sent = std::chrono::steady_clock::now();
    const int length = ipmi_cmd_raw(context, lun, netFn, raw.data(),
                                    static_cast<unsigned>(raw.size()), response, sizeof response);
    if (length < 2) {
        if (ipmi_ctx_errnum(context) == IPMI_ERR_DRIVER_TIMEOUT)
            inbandUnanswered = ipmi_ctx_errormsg(context);
        return false;
    }
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - sent);
    inbandUnanswered = madeUpInbandAnswer(response[1], took);
    if (!inbandUnanswered.empty()) return false;
    answer.assign(response + 1, response + length);
    return true;
}

std::string IpmiClient::Session::madeUpInbandAnswer(unsigned char completionCode,
                                                    std::chrono::milliseconds took) const {
    // Answers made up on behalf of a BMC that stopped answering: C3h from QEMU's external BMC
    // device when its BMC let 4 s pass, D2h from the same device while its BMC is disconnected.
    if (completionCode == kTimedOut || completionCode == kNotReady) {
        return "no answer from the BMC (completion code " + ipmiCompletionCodeText(completionCode) +
               " made up in its place)";
    }
    // Linux's KCS driver gives up on an interface whose BMC stopped moving only after its own
    // time-outs (5 s per wait, retried ten times), and answers FFh ("hosed") for it. A BMC's own
    // error answers come at once: one that came after the whole session timeout is the driver's,
    // and waiting for it again on each later request would multiply the hang.
    constexpr unsigned char completionOk = 0x00;
    if (completionCode != completionOk && took >= inbandTimeout) {
        return "no answer from the BMC within " + secondsText(inbandTimeout) +
               " (the driver answered " + ipmiCompletionCodeText(completionCode) + " after " +
               secondsText(took) + ")";
    }
    return "";
}

std::string IpmiClient::Session::lastFailure() const {
    if (rmcpPlus) return rmcpPlus->failureText();
    return inbandUnanswered.empty() ? ipmi_ctx_errormsg(context) : inbandUnanswered;
}

int IpmiClient::sendCommand(const IpmiCommandRequest& request,
                            std::vector<unsigned char>& responseData,
                            unsigned char& completionCode) {
    if (!session_->isOpen()) {
        recordIpmiAnswer(request.netFn, request.command, false, 0x00);
        Log(1, kLogSource, __LINE__).Stream()
            << "cannot send IPMI command 0x" << std::hex << unsigned{request.command} << std::dec
            << " to " << session_->target() << ": not connected";
        return kTransportFailure;
    }
    countIpmiRequest(request.netFn, request.command);
    Bytes answer;
    // Either transport gives at least the completion code with an answer.
    if (!session_->exchange(request.netFn, request.command, request.data, answer)) {
        recordIpmiAnswer(request.netFn, request.command, false, 0x00);
        Log(1, kLogSource, __LINE__).Stream()
            << "IPMI command 0x" << std::hex << unsigned{request.command} << " (netFn 0x"
            << unsigned{request.netFn} << std::dec << ") to " << session_->target()
            << " failed: " << session_->lastFailure();
        return kTransportFailure;
    }
    completionCode = answer[0];
    recordIpmiAnswer(request.netFn, request.command, true, completionCode);
    responseData.assign(answer.begin() + 1, answer.end());
    return 0;
}

IpmiClient::~IpmiClient() { session_->close(); }
