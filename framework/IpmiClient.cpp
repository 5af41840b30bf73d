// The framework's IpmiClient on FreeIPMI's libfreeipmi: an IPMI v2.0 (RMCP+) LAN session, or the
// local in-band interface as FreeIPMI finds it (OpenIPMI driver device, KCS, SSIF, ...).
#include "IpmiClient.h"

#include <freeipmi/freeipmi.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "IpmiClientActivity.h"
#include "Log.h"

namespace {

const char* const kLogSource = "framework/IpmiClient";

// connect() statuses.
constexpr int kConnected = 0;
constexpr int kFailed = 1;
constexpr int kCredentialsRefused = 2;
// sendCommand() status for any transport failure.
constexpr int kTransportFailure = 1;

// How long FreeIPMI waits for a session to open or a command to be answered, and how long between
// retransmissions of an unanswered packet. A BMC on a LAN answers in milliseconds; these bound how
// long a dead or unreachable one holds a caller.
constexpr unsigned kDefaultSessionTimeoutMs = 10000;  // FreeIPMI gives up after about 12 s
constexpr unsigned kDefaultRetransmissionTimeoutMs = 1000;

// Privilege levels asked for, highest first: reading the SEL needs user, deleting and clearing
// need operator, and some accounts are not granted administrator.
constexpr unsigned char kPrivilegeLevels[] = {
    IPMI_PRIVILEGE_LEVEL_ADMIN, IPMI_PRIVILEGE_LEVEL_OPERATOR, IPMI_PRIVILEGE_LEVEL_USER};

// Largest IPMI response over any interface, with the command and completion code bytes.
constexpr unsigned kResponseCapacity = 1024;

// How a session to a BMC was opened: the privilege level and FreeIPMI's workaround flags.
struct Recipe {
    unsigned char privilege;
    unsigned workaround;
};

// Every failed attempt to open a session can leave a half-open session on the BMC until it times
// out, and BMCs have few of them (OpenIPMI's simulator refuses new ones after about 60). So what
// worked for a BMC, user and cipher suite is remembered for the life of the process and tried
// first; only the first connection searches.
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

std::atomic<unsigned long> requestsSent{0};
std::atomic<unsigned long> selEntriesRead{0};

unsigned millisecondsFromEnvironment(const char* name, unsigned fallback) {
    const char* text = std::getenv(name);
    if (text == nullptr || *text == '\0') return fallback;
    char* end = nullptr;
    errno = 0;
    const unsigned long value = std::strtoul(text, &end, 10);
    if (*end != '\0' || errno != 0 || value == 0 || value > 3600000) {
        Log(1, kLogSource, __LINE__).Stream()
            << "ignoring " << name << "=\"" << text << "\": not a number of milliseconds";
        return fallback;
    }
    return static_cast<unsigned>(value);
}

// TOLMAR_IPMI_PRIVILEGE (admin, operator, user): the one level to ask for; otherwise the highest
// granted, from administrator down.
std::vector<unsigned char> privilegeLevels() {
    const char* text = std::getenv("TOLMAR_IPMI_PRIVILEGE");
    const std::string level = text != nullptr ? text : "";
    if (level == "admin") return {IPMI_PRIVILEGE_LEVEL_ADMIN};
    if (level == "operator") return {IPMI_PRIVILEGE_LEVEL_OPERATOR};
    if (level == "user") return {IPMI_PRIVILEGE_LEVEL_USER};
    if (!level.empty()) {
        Log(1, kLogSource, __LINE__).Stream()
            << "ignoring TOLMAR_IPMI_PRIVILEGE=\"" << level << "\": not admin, operator or user";
    }
    return {std::begin(kPrivilegeLevels), std::end(kPrivilegeLevels)};
}

// TOLMAR_IPMI_WORKAROUND (none, opensesspriv): the one way to open sessions; otherwise without
// FreeIPMI's open-session-privilege workaround first, then with it. Some BMCs (OpenIPMI's simulator
// among them) answer the RMCP+ Open Session request in a way FreeIPMI accepts only with it; without
// it FreeIPMI reports that the privilege level cannot be obtained, or an unexpected answer.
std::vector<unsigned> workaroundFlags() {
    const char* text = std::getenv("TOLMAR_IPMI_WORKAROUND");
    const std::string workaround = text != nullptr ? text : "";
    if (workaround == "none") return {IPMI_WORKAROUND_FLAGS_DEFAULT};
    if (workaround == "opensesspriv") {
        return {IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_OPEN_SESSION_PRIVILEGE};
    }
    if (!workaround.empty()) {
        Log(1, kLogSource, __LINE__).Stream()
            << "ignoring TOLMAR_IPMI_WORKAROUND=\"" << workaround << "\": not none or opensesspriv";
    }
    return {IPMI_WORKAROUND_FLAGS_DEFAULT,
            IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_OPEN_SESSION_PRIVILEGE};
}

// How an attempt to open a LAN session ended.
enum class OpenFailure {
    CredentialsRefused,  // unknown user, wrong password or K_g: refused at every privilege level
    PrivilegeRefused,    // this privilege level is not granted to this user: try a lower one
    Unreachable,         // nothing answers, or no usable session can exist: stop trying
    Other,               // an answer FreeIPMI did not accept: worth a retry with the workaround
};

OpenFailure classify(int errnum) {
    switch (errnum) {
        case IPMI_ERR_USERNAME_INVALID:
        case IPMI_ERR_PASSWORD_INVALID:
        case IPMI_ERR_K_G_INVALID:
        // A BMC that rejects the password often just stops answering the session handshake.
        case IPMI_ERR_PASSWORD_VERIFICATION_TIMEOUT:
            return OpenFailure::CredentialsRefused;
        case IPMI_ERR_PRIVILEGE_LEVEL_INSUFFICIENT:
        case IPMI_ERR_PRIVILEGE_LEVEL_CANNOT_BE_OBTAINED:
            return OpenFailure::PrivilegeRefused;
        case IPMI_ERR_CONNECTION_TIMEOUT:
        case IPMI_ERR_SESSION_TIMEOUT:
        case IPMI_ERR_HOSTNAME_INVALID:
        case IPMI_ERR_CIPHER_SUITE_ID_UNAVAILABLE:
        case IPMI_ERR_IPMI_2_0_UNAVAILABLE:
        case IPMI_ERR_PARAMETERS:
        case IPMI_ERR_OUT_OF_MEMORY:
        case IPMI_ERR_SYSTEM_ERROR:
            return OpenFailure::Unreachable;
        default:
            return OpenFailure::Other;
    }
}

// What a person can do about a failed LAN session.
const char* adviceFor(int errnum) {
    switch (errnum) {
        case IPMI_ERR_USERNAME_INVALID:
            return "check the user name; the BMC does not know it";
        case IPMI_ERR_PASSWORD_INVALID:
        case IPMI_ERR_PASSWORD_VERIFICATION_TIMEOUT:
            return "check the password";
        case IPMI_ERR_K_G_INVALID:
            return "check the BMC key (K_g)";
        case IPMI_ERR_PRIVILEGE_LEVEL_INSUFFICIENT:
        case IPMI_ERR_PRIVILEGE_LEVEL_CANNOT_BE_OBTAINED:
            return "give this user at least the user privilege level on the LAN channel";
        case IPMI_ERR_CONNECTION_TIMEOUT:
        case IPMI_ERR_SESSION_TIMEOUT:
            return "check the address and port, that the BMC is powered and that IPMI over LAN is "
                   "enabled on it";
        case IPMI_ERR_HOSTNAME_INVALID:
            return "check the BMC address";
        case IPMI_ERR_CIPHER_SUITE_ID_UNAVAILABLE:
            return "choose a cipher suite the BMC offers (3 and 17 are common)";
        case IPMI_ERR_IPMI_2_0_UNAVAILABLE:
            return "the BMC does not offer IPMI v2.0 (RMCP+) sessions";
        default:
            return "check that the BMC offers this cipher suite and IPMI v2.0 over LAN";
    }
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
    unsigned long cipherSuite;
    unsigned long localInterface;
    ipmi_ctx_t context = nullptr;  // an open session, or null

    // "address:port", as FreeIPMI takes it and as messages show it.
    std::string target() const { return lan ? address + ":" + port : "the local BMC"; }
    int openLan();
    int openInband();
    // Logs why no session could be opened and gives connect()'s status.
    int openFailed(int errnum) const;
    // One attempt to open a session with a privilege level and FreeIPMI workaround flags.
    int openOnce(const Recipe& recipe, unsigned timeoutMs, unsigned retransmissionMs);
    // Tries one privilege level with each of the workaround flags in turn; `usedWorkaround` tells
    // which opened the session.
    int openLanAt(unsigned char privilege, const std::vector<unsigned>& workarounds,
                  unsigned timeoutMs, unsigned retransmissionMs, unsigned& usedWorkaround);
    // What opened a session to this BMC, as this user with this cipher suite, before.
    std::string recipeKey() const {
        return target() + "|" + user + "|" + std::to_string(cipherSuite);
    }
    unsigned char userPrivilegeLimit(unsigned char granted);
    // One raw exchange: returns the response length (command byte and completion code included),
    // or -1 when no response arrived.
    int exchange(unsigned char netFn, unsigned char command, const std::vector<unsigned char>& data,
                 unsigned char (&response)[kResponseCapacity]);
    void close();
};

IpmiClient::IpmiClient(const std::string& address, const std::string& user,
                       const std::string& password, const std::string& port,
                       unsigned long cipherSuite)
    : session_(new Session{true, address, user, password, port, cipherSuite, 0}) {}

IpmiClient::IpmiClient(unsigned long localInterface)
    : session_(new Session{false, "", "", "", "", 0, localInterface}) {}

int IpmiClient::connect() {
    if (session_->context != nullptr) return kConnected;
    return session_->lan ? session_->openLan() : session_->openInband();
}

int IpmiClient::Session::openLan() {
    if (!isPortText(port)) {
        Log(1, kLogSource, __LINE__).Stream()
            << "cannot open an IPMI session to " << address << ": port \"" << port
            << "\" is not a UDP port number";
        return kFailed;
    }
    if (cipherSuite > 0xFF) {
        Log(1, kLogSource, __LINE__).Stream()
            << "cannot open an IPMI session to " << target() << ": " << cipherSuite
            << " is not an IPMI cipher suite ID";
        return kFailed;
    }
    const unsigned timeoutMs =
        millisecondsFromEnvironment("TOLMAR_IPMI_SESSION_TIMEOUT_MS", kDefaultSessionTimeoutMs);
    // FreeIPMI needs the retransmission interval shorter than the session timeout.
    const unsigned retransmissionMs =
        std::min(millisecondsFromEnvironment("TOLMAR_IPMI_RETRANSMISSION_TIMEOUT_MS",
                                             kDefaultRetransmissionTimeoutMs),
                 std::max(1u, timeoutMs / 2));

    // A level or workaround the caller chose; otherwise the search below, highest level first: a
    // level the BMC refuses to this user sends us one lower. A level the caller chose is not
    // checked against the user's limit.
    const std::vector<unsigned char> levels = privilegeLevels();
    const std::vector<unsigned> workarounds = workaroundFlags();
    const std::string key = recipeKey();
    const std::optional<Recipe> known = recipes().find(key);
    if (known && std::count(levels.begin(), levels.end(), known->privilege) &&
        std::count(workarounds.begin(), workarounds.end(), known->workaround)) {
        const int errnum = openOnce(*known, timeoutMs, retransmissionMs);
        if (errnum == IPMI_ERR_SUCCESS) return kConnected;
        // Refused credentials stay refused at every level: no search (each try could wait out
        // the session timeout).
        if (classify(errnum) == OpenFailure::CredentialsRefused) return openFailed(errnum);
    }
    const bool searching = levels.size() > 1;
    unsigned char ceiling = IPMI_PRIVILEGE_LEVEL_ADMIN;
    int errnum = IPMI_ERR_SUCCESS;
    for (unsigned char privilege : levels) {
        if (privilege > ceiling) continue;
        unsigned workaround = IPMI_WORKAROUND_FLAGS_DEFAULT;
        errnum = openLanAt(privilege, workarounds, timeoutMs, retransmissionMs, workaround);
        if (errnum == IPMI_ERR_SUCCESS) {
            const unsigned char limit = searching && workaround != IPMI_WORKAROUND_FLAGS_DEFAULT
                                            ? userPrivilegeLimit(privilege)
                                            : privilege;
            if (limit >= privilege) {
                recipes().remember(key, {privilege, workaround});
                return kConnected;
            }
            close();
            ceiling = limit;
            errnum = IPMI_ERR_PRIVILEGE_LEVEL_CANNOT_BE_OBTAINED;
            continue;
        }
        if (classify(errnum) != OpenFailure::PrivilegeRefused) break;
    }
    return openFailed(errnum);
}

int IpmiClient::Session::openFailed(int errnum) const {
    // The password is never part of the message, and FreeIPMI's texts do not carry it either.
    Log(1, kLogSource, __LINE__).Stream()
        << "cannot open an IPMI v2.0 session to " << target() << " as user \"" << user
        << "\" with cipher suite " << cipherSuite << ": " << ipmi_ctx_strerror(errnum) << "; "
        << adviceFor(errnum);
    const OpenFailure failure = classify(errnum);
    return failure == OpenFailure::CredentialsRefused || failure == OpenFailure::PrivilegeRefused
               ? kCredentialsRefused
               : kFailed;
}

int IpmiClient::Session::openOnce(const Recipe& recipe, unsigned timeoutMs,
                                  unsigned retransmissionMs) {
    context = ipmi_ctx_create();
    if (context == nullptr) return IPMI_ERR_OUT_OF_MEMORY;
    const std::string host = target();
    if (ipmi_ctx_open_outofband_2_0(context, host.c_str(), user.c_str(), password.c_str(), nullptr,
                                    0, recipe.privilege, static_cast<unsigned char>(cipherSuite),
                                    timeoutMs, retransmissionMs, recipe.workaround,
                                    IPMI_FLAGS_DEFAULT) == 0) {
        return IPMI_ERR_SUCCESS;
    }
    const int errnum = ipmi_ctx_errnum(context);
    ipmi_ctx_destroy(context);
    context = nullptr;
    return errnum;
}

int IpmiClient::Session::openLanAt(unsigned char privilege,
                                   const std::vector<unsigned>& workarounds, unsigned timeoutMs,
                                   unsigned retransmissionMs, unsigned& usedWorkaround) {
    int errnum = IPMI_ERR_SUCCESS;
    for (unsigned workaround : workarounds) {
        errnum = openOnce({privilege, workaround}, timeoutMs, retransmissionMs);
        if (errnum == IPMI_ERR_SUCCESS) {
            usedWorkaround = workaround;
            return errnum;
        }
        const OpenFailure failure = classify(errnum);
        if (failure != OpenFailure::Other && failure != OpenFailure::PrivilegeRefused) break;
    }
    return errnum;
}

// A BMC that needs the workaround may also grant the requested level without checking it against
// the user's limit on the channel (OpenIPMI's simulator does). Asks the BMC for that limit: Get
// Session Info gives the session's user ID and channel, Get User Access the user's privilege limit
// there (IPMI v2.0 sections 22.20 and 22.27). When the BMC cannot say, the granted level stands.
unsigned char IpmiClient::Session::userPrivilegeLimit(unsigned char granted) {
    constexpr unsigned char app = 0x06;
    constexpr unsigned char getSessionInfo = 0x3D;
    constexpr unsigned char getUserAccess = 0x44;
    constexpr unsigned char currentSession = 0x00;
    unsigned char response[kResponseCapacity];
    // Response: command, completion code, handle, slots, active, user ID, privilege, channel.
    if (exchange(app, getSessionInfo, {currentSession}, response) < 8 || response[1] != 0) {
        return granted;
    }
    const unsigned char userId = response[5] & 0x3F;
    const unsigned char channel = response[7] & 0x0F;
    // Response: command, completion code, maximum IDs, enabled IDs, fixed names, access.
    if (exchange(app, getUserAccess, {channel, userId}, response) < 6 || response[1] != 0) {
        return granted;
    }
    return response[5] & 0x0F;
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
    if (found == 1) return kConnected;
    const std::string reason =
        found == 0 ? "none was found" : std::string(ipmi_ctx_errormsg(context));
    ipmi_ctx_destroy(context);
    context = nullptr;
    Log(1, kLogSource, __LINE__).Stream()
        << "no local IPMI interface could be opened (" << reason
        << "); check that this machine has a BMC, that the ipmi_si and ipmi_devintf kernel "
           "modules are loaded so that /dev/ipmi0 exists, and that this process may open it "
           "(usually root)";
    return kFailed;
}

void IpmiClient::Session::close() {
    if (context == nullptr) return;
    ipmi_ctx_close(context);
    ipmi_ctx_destroy(context);
    context = nullptr;
}

void IpmiClient::disconnect() { session_->close(); }

int IpmiClient::Session::exchange(unsigned char netFn, unsigned char command,
                                  const std::vector<unsigned char>& data,
                                  unsigned char (&response)[kResponseCapacity]) {
    // FreeIPMI's raw form: the command byte, then the data; the response starts with the command
    // byte and the completion code.
    std::vector<unsigned char> raw;
    raw.reserve(1 + data.size());
    raw.push_back(command);
    raw.insert(raw.end(), data.begin(), data.end());
    constexpr unsigned char lun = 0;
    return ipmi_cmd_raw(context, lun, netFn, raw.data(), static_cast<unsigned>(raw.size()),
                        response, kResponseCapacity);
}

int IpmiClient::sendCommand(const IpmiCommandRequest& request,
                            std::vector<unsigned char>& responseData,
                            unsigned char& completionCode) {
    if (session_->context == nullptr) {
        Log(1, kLogSource, __LINE__).Stream()
            << "cannot send IPMI command 0x" << std::hex << unsigned{request.command} << std::dec
            << " to " << session_->target() << ": not connected";
        return kTransportFailure;
    }
    constexpr unsigned char storage = 0x0A;
    constexpr unsigned char getSelEntry = 0x43;
    ++requestsSent;
    if (request.netFn == storage && request.command == getSelEntry) ++selEntriesRead;
    unsigned char response[kResponseCapacity];
    const int length = session_->exchange(request.netFn, request.command, request.data, response);
    if (length < 2) {
        Log(1, kLogSource, __LINE__).Stream()
            << "IPMI command 0x" << std::hex << unsigned{request.command} << " (netFn 0x"
            << unsigned{request.netFn} << std::dec << ") to " << session_->target() << " failed: "
            << (length < 0 ? ipmi_ctx_errormsg(session_->context) : "response too short");
        return kTransportFailure;
    }
    completionCode = response[1];
    responseData.assign(response + 2, response + length);
    return 0;
}

IpmiClient::~IpmiClient() { session_->close(); }

IpmiClientActivity ipmiClientActivity() { return {requestsSent.load(), selEntriesRead.load()}; }
