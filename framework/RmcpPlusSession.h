// One IPMI v2.0 (RMCP+) session with a BMC over UDP: Get Channel Authentication Capabilities,
// Open Session, RAKP 1 to 4 and Set Session Privilege Level to open it; then one request at a
// time, each resent until answered or timed out; Close Session at the end.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
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
        unsigned long cipherSuite;
        unsigned char privilege;                   // 2 user, 3 operator, 4 administrator
        std::chrono::milliseconds timeout;         // to open the session, and for each answer
        std::chrono::milliseconds retransmission;  // between sends of an unanswered packet
        bool allowCipherSuiteZero;                 // RAKP-none: no authentication at all
    };

    // Why a session did not open.
    enum class Failure {
        None,
        BadSettings,             // a user name or password longer than IPMI allows
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
        BmcRefused,        // any other refusal, or an answer that makes no sense
    };

    explicit RmcpPlusSession(Settings settings);
    ~RmcpPlusSession();  // closes the session
    RmcpPlusSession(const RmcpPlusSession&) = delete;
    RmcpPlusSession& operator=(const RmcpPlusSession&) = delete;

    Failure open();
    // Whether the open session's packets carry integrity check values: without them, answers can
    // be forged or replayed by anyone on the path.
    bool signsPackets() const { return suite_.signsPackets(); }
    // What went wrong last, for a log line (never the password).
    const std::string& failureText() const { return failureText_; }
    // One request in the open session: true with the completion code and data in `answer`.
    bool exchange(unsigned char netFn, unsigned char command, const Bytes& data, Bytes& answer);
    void close();

private:
    using Clock = std::chrono::steady_clock;
    // Takes a datagram that answers, or refuses it.
    using Acceptor = std::function<bool(const unsigned char* datagram, std::size_t size)>;

    Failure fail(Failure failure, std::string text);
    Failure openSocket();
    Failure askForIpmi20(Clock::time_point deadline);
    Failure openSession(Clock::time_point deadline);
    Failure authenticate(Clock::time_point deadline);
    Failure setPrivilege();
    // Whether a handshake answer of the right tag is taken (see the definition).
    bool believable(const Bytes& answer) const;
    // One handshake step: sends a payload built with a fresh message tag, resending until an
    // answer of `answerType` carrying that tag arrives; its payload goes to `answer`.
    bool handshake(unsigned char requestType, const std::function<Bytes(unsigned char tag)>& build,
                   unsigned char answerType, Clock::time_point deadline, Bytes& answer);
    // Sends what `nextPacket` gives, again after each retransmission interval, until `accept`
    // takes a datagram (true) or the deadline passes (false).
    bool transact(const std::function<Bytes()>& nextPacket, const Acceptor& accept,
                  Clock::time_point deadline);
    bool send(const Bytes& packet);
    // One IPMI request in the active session, answered before the deadline.
    bool request(unsigned char netFn, unsigned char command, const Bytes& data,
                 Clock::time_point deadline, Bytes& answer);

    Settings settings_;
    CipherSuite suite_{};
    int socket_ = -1;
    unsigned char tag_ = 0;
    unsigned char requestSequence_ = 0;
    RmcpPlusCodec::Rakp rakp_;
    std::unique_ptr<RmcpPlusCodec> codec_;  // once the session is active
    bool bmcAnswering_ = true;              // until a request goes unanswered for the whole timeout
    std::string failureText_;
    Bytes datagram_;
};
