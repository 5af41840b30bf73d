// One IPMI v2.0 (RMCP+) session with a BMC over UDP: Get Channel Authentication Capabilities,
// Open Session, RAKP 1 to 4 and Set Session Privilege Level to open it; then one request at a
// time, each resent until answered or timed out; Close Session at the end. Resends are spaced by
// the round trip where it is long, and double during the handshake. A handshake that fails after
// the BMC accepted part of it tells the BMC to drop the session. Departures from IPMI v2.0 that
// some BMCs show are recognised where their answers prove them, and otherwise expected when the
// settings' workarounds say so; deviations() tells which the session met.
#pragma once

#include <sys/socket.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "RmcpPlusCodec.h"

class RmcpPlusSession {
public:
    using Bytes = std::vector<unsigned char>;

    struct Settings {
        std::string address;
        std::string port;
        std::string user;
        std::string password;
        std::string bmcKey;  // K_g, when the BMC has one: it keys the session integrity key
        unsigned long cipherSuite;
        unsigned char privilege;                   // 2 user, 3 operator, 4 administrator
        std::chrono::milliseconds timeout;         // to open the session, and for each answer
        std::chrono::milliseconds retransmission;  // between sends of an unanswered packet
        bool allowCipherSuiteZero;                 // RAKP-none: no authentication at all
        // This process opened a session to this BMC before: it speaks IPMI v2.0, and Get
        // Channel Authentication Capabilities, which only tells that, is not sent again.
        bool speaksIpmi20;
        unsigned workarounds;  // IpmiWorkaround flags
    };

    // Why a session did not open.
    enum class Failure {
        None,
        BadSettings,             // a user name, password or BMC key longer than IPMI allows
        CipherSuiteUnsupported,  // not a suite this client speaks
        CipherSuiteInsecure,     // cipher suite 0, not allowed by the settings
        AddressUnknown,
        SystemError,  // no UDP socket
        NoAnswer,
        Ipmi20Unavailable,
        CipherSuiteRefused,  // the BMC does not offer the suite
        UserNameRefused,
        UserNameUnanswered,  // RAKP 1 unanswered after Open Session was: how some BMCs refuse
        PasswordRefused,
        PrivilegeRefused,  // not granted to this user
        BmcKeyRefused,     // RAKP 4 signed with another BMC key (K_g) than ours
        BmcRefused,        // any other refusal, or an answer that makes no sense
    };

    explicit RmcpPlusSession(Settings settings);
    ~RmcpPlusSession();  // closes the session and wipes the password and keys
    RmcpPlusSession(const RmcpPlusSession&) = delete;
    RmcpPlusSession& operator=(const RmcpPlusSession&) = delete;

    Failure open();
    // In place of open(), for a client choosing its cipher suite: Get Channel Authentication
    // Capabilities, then Get Channel Cipher Suites, both outside a session; no session opens.
    Failure discover();
    // "2.0" or "1.5", as Get Channel Authentication Capabilities told; empty when not asked.
    const std::string& ipmiVersion() const { return ipmiVersion_; }
    // The suites Get Channel Cipher Suites listed; none when not asked, unanswered or refused.
    const std::optional<Bytes>& offeredCipherSuites() const { return offeredCipherSuites_; }
    // How Open Session went: never sent (an earlier step failed), unanswered, refused (with the
    // RMCP+ status openSessionRefusal() gives, 00h for an answer that did not fit), or the suite
    // taken.
    enum class OpenSessionOutcome { NotSent, Unanswered, Refused, Taken };
    OpenSessionOutcome openSessionOutcome() const { return openSessionOutcome_; }
    unsigned char openSessionRefusal() const { return openSessionRefusal_; }
    // Whether the open session's packets carry integrity check values: without them, answers can
    // be forged or replayed by anyone on the path.
    bool signsPackets() const { return suite_.signsPackets(); }
    // What went wrong last, for a log line (never the password).
    const std::string& failureText() const { return failureText_; }
    // One request in the open session: true with the completion code and data in `answer`.
    bool exchange(unsigned char netFn, unsigned char command, const Bytes& data, Bytes& answer);
    void close();
    // Each departure from IPMI v2.0 the BMC showed in this session and how it was handled: a
    // workaround's name where one given was used, or what the client recognised on its own.
    const std::vector<std::string>& deviations() const { return deviations_; }

private:
    using Clock = std::chrono::steady_clock;
    // Takes a datagram that answers, or refuses it.
    using Acceptor = std::function<bool(const unsigned char* datagram, std::size_t size)>;

    Failure fail(Failure failure, std::string text);
    void note(const std::string& deviation);
    // What a request left unanswered tells, with what the answers dropped for their checksums
    // suggest.
    std::string unanswered(const std::string& text) const;
    Failure openSocket();
    Failure askForIpmi20(Clock::time_point deadline);
    std::optional<Bytes> askForCipherSuites(Clock::time_point deadline);
    // Open Session to Set Session Privilege Level, once.
    Failure establish(Clock::time_point deadline);
    Failure openSession(Clock::time_point deadline);
    // Get Channel Authentication Capabilities reported no IPMI v2.0 sessions.
    bool ipmi20Unreported() const { return ipmiVersion_ == "1.5"; }
    // Open Session's requested maximum privilege level: 0, the highest the algorithms allow (the
    // level is asked for in RAKP 1), unless the opensesspriv workaround asks for RAKP 1's.
    unsigned char openSessionPrivilege() const;
    Failure authenticate(Clock::time_point deadline);
    // Whether RAKP 2's key exchange code matches, as IPMI v2.0 computes it or as some BMCs do
    // (user name padded, HMAC-MD5 password cut): `rakp_` and `userKey` are left as it matched.
    bool matchesRakp2(const Bytes& code, Bytes& userKey);
    // The SIK: the HMAC keyed by `key` (K_g, or the user's key) of the key exchange with `role`.
    Bytes sessionIntegrityKey(const Bytes& key, unsigned char role) const;
    // The session's keys K1 and K2, from the SIK, in a new codec.
    void keySession(const Bytes& sik);
    // RAKP 4's integrity check value: whether it proves the BMC holds the SIK (that from
    // `sikKey`) where the suite uses one.
    Failure checkRakp4(const Bytes& rakp4, const Bytes& sik, const Bytes& sikKey,
                       const Bytes& userKey);
    bool signsRakp4(const Bytes& sik, const Bytes& rakp4) const;
    // RAKP 4's integrity check value, when it does not match: which BMC key the BMC used.
    Failure refuseRakp4(const Bytes& rakp4, const Bytes& userKey);
    // How the BMC confirmed the session: RAKP message 4 (in `rakp4`, perhaps a refusal), or an
    // answer in the session itself.
    enum class Confirmation { None, ByRakp4, BySession };
    // RAKP message 3, resent until answered. A BMC that took it but whose RAKP 4 was lost may
    // ignore a resent one (OpenIPMI's simulator does) or refuse it: each resend goes with Set
    // Session Privilege Level in the new session, whose answer confirms the session as well.
    Confirmation confirm(const Bytes& rakp3Code, Clock::time_point deadline, Bytes& rakp4);
    Failure setPrivilege(Clock::time_point deadline);
    // Whether a handshake answer of the right tag is taken (see the definition).
    bool believable(const Bytes& answer) const;
    // One handshake step: sends a payload built with a fresh message tag, resending until an
    // answer of `answerType` carrying one of the step's tags arrives; its payload goes to
    // `answer`.
    bool handshake(unsigned char requestType, const std::function<Bytes(unsigned char tag)>& build,
                   unsigned char answerType, Clock::time_point deadline, Bytes& answer);
    bool answersHandshake(const unsigned char* datagram, std::size_t size, unsigned char answerType,
                          unsigned char firstTag, Bytes& answer) const;
    // How the interval between sends of an unanswered packet changes. A handshake step doubles
    // it: each resend may make the BMC set up a session afresh, and a slow BMC or path, rather
    // than a lossy one, needs more time, not more datagrams. Requests in a session keep it: the
    // BMC answers a resend cheaply, and a lossy path needs resends more than patience.
    enum class Resend { Steady, Doubling };
    // Calls `sendNext` (false: it could not send), again after each resend interval, until
    // `accept` takes a datagram (true) or the deadline passes (false).
    bool transact(const std::function<bool()>& sendNext, const Acceptor& accept,
                  Clock::time_point deadline, Resend resend);
    // Waits for a datagram that `accept` takes until `until`; others go to endDuplicateSession().
    bool awaitAnswer(const Acceptor& accept, Clock::time_point until);
    std::chrono::nanoseconds firstResendInterval() const;
    bool send(const Bytes& packet);
    // Whether a datagram from `source` comes from the BMC: its address, whatever the port.
    bool fromBmc(const sockaddr_storage& source) const;
    // One IPMI request in the active session, answered before the deadline.
    bool request(unsigned char netFn, unsigned char command, const Bytes& data,
                 Clock::time_point deadline, Bytes& answer);
    unsigned char nextRequestSequence();
    // Whether `datagram` is the session's answer to that request; its completion code and data
    // go to `answer`. Wrong checksums are overlooked where the integrity code vouches for the
    // message, or with the nochecksumcheck workaround.
    bool answers(const unsigned char* datagram, std::size_t size, unsigned char netFn,
                 unsigned char command, unsigned char sequence, Bytes& answer);
    // Ends a session the BMC opened for an Open Session resent by us, if `datagram` answers one.
    void endDuplicateSession(const unsigned char* datagram, std::size_t size);
    // Tells the BMC to drop the session being set up, without waiting: a RAKP message 3 with an
    // error status, and Close Session in case the BMC already activated it.
    void abandon(unsigned char status);
    // RAKP message 3 with an error status, for a session of the BMC's; no answer is awaited.
    void sendRakp3Refusal(std::uint32_t bmcSessionId, unsigned char status);
    void closeSession(std::chrono::milliseconds wait);
    // Drops the session's keys and IDs: the client holds no session after it.
    void forgetSession();

    Settings settings_;
    CipherSuite suite_{};
    int socket_ = -1;
    sockaddr_storage bmcAddress_{};  // where requests go
    socklen_t bmcAddressLength_ = 0;
    unsigned char tag_ = 0;
    unsigned char requestSequence_ = 0;
    RmcpPlusCodec::Rakp rakp_;
    std::unique_ptr<RmcpPlusCodec> codec_;  // once the session keys are known
    bool active_ = false;                   // the BMC confirmed the session
    bool bmcAnswering_ = true;              // until a request goes unanswered for the whole timeout
    bool resent_ = false;                   // the last transact() sent more than once
    // A handshake refused in a way a lost or late datagram explains: worth starting again.
    bool restartable_ = false;
    std::chrono::nanoseconds roundTrip_{0};  // of the last answered exchange, from its first send
    std::string failureText_;
    std::string ipmiVersion_;
    std::optional<Bytes> offeredCipherSuites_;
    OpenSessionOutcome openSessionOutcome_ = OpenSessionOutcome::NotSent;
    unsigned char openSessionRefusal_ = 0x00;
    std::vector<std::string> deviations_;
    // An answer was dropped for wrong checksums alone.
    bool droppedForChecksums_ = false;
    Bytes datagram_;
};
