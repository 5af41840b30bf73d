// The BMC's end of RMCP+ for the tests' own BMCs: Get Channel Authentication Capabilities outside a
// session, the handshake (Open Session, RAKP messages 1 to 4) for one user, and in a session Set
// Session Privilege Level, Get Device ID and Close Session. Other requests in a session go to the
// BMC's command answerer; without one they are refused with C1h. It owns no socket: each datagram
// is answered through the socket and to the client it came with.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CipherSuite.h"
#include "RmcpPlusCodec.h"

namespace bmcsim {

struct CraftedBehaviour {
    std::string user = "operator1";
    std::string password = "crafted-secret";
    std::string bmcKey;  // K_g; empty: the SIK is keyed by the user's password
    bool sessionIdZero = false;
    // How many RAKP messages 4 it computes but never sends.
    int rakp4Lost = 0;
    // A RAKP message 3 for a session already active is refused with status 02h (invalid session
    // ID), as some BMCs do.
    bool refuseResentRakp3 = false;
    // Requests in a session are ignored until its RAKP message 4 went out.
    bool ignoreSessionRequestsUntilRakp4 = false;
    // Before each answer of the handshake, a refusal that does not carry the console's session ID:
    // status 0Ah (privilege) as tag and status alone, and 0Dh (name) with another session ID.
    bool forgeRefusals = false;
    // Reserve SEL is refused with D4h (insufficient privilege level) in a session below the
    // operator level, as on some BMCs, although reading the SEL needs only the user level.
    bool reserveSelNeedsOperator = false;
    // Whether it answers Get Channel Cipher Suites, and the suites it lists there, in order (an ID
    // the client does not speak goes as an OEM record).
    bool answersCipherSuites = true;
    std::vector<unsigned char> listedCipherSuites = {3, 17};
    // Its cipher suite records carry tag bits 11b on the integrity and confidentiality algorithms,
    // so that each reads as the start of a record (as Sun Fire 4100's ILOM gets them wrong).
    bool wrongCipherSuiteTags = false;
    // The suites Open Session accepts; empty: every one the client speaks. Others are refused with
    // `cipherSuiteRefusal`, as IPMI v2.0 says (11h) or not.
    std::vector<unsigned char> acceptedCipherSuites;
    unsigned char cipherSuiteRefusal = 0x11;  // no cipher suite match
    // Open Session for a suite it does not accept goes unanswered instead, as on some BMCs.
    bool ignoreUnacceptedSuites = false;

    // Departures from IPMI v2.0 that BMCs were seen with (FreeIPMI's workaround names):
    // RAKP message 2 with a byte 00h after the key exchange code ("supermicro20").
    bool rakp2ExtraByte = false;
    // With HMAC-SHA1, a key exchange code of 21 bytes in RAKP message 2: the HMAC, then 00h
    // ("sun20").
    bool rakp2Sha1CodeOf21Bytes = false;
    // The user name padded with zeros to 16 bytes in RAKP's codes and keys ("intel20").
    bool padUserNames = false;
    // And RAKP message 1 refused with status 0Dh unless it carries the name so padded.
    bool requirePaddedUserName = false;
    // With HMAC-MD5, the password cut to 16 bytes ("intel20").
    bool cutMd5Password = false;
    // RAKP message 4's check value computed with the integrity algorithm: with none, empty.
    bool rakp4CheckByIntegrityAlgorithm = false;
    // The SIK derived with Open Session's requested privilege level in place of RAKP message 1's
    // ("opensesspriv").
    bool keysOfOpenSessionPrivilege = false;
    // A check value of 12 bytes in RAKP message 4 with cipher suite 0 ("integritycheckvalue").
    bool rakp4CheckWithSuiteZero = false;
    // Both checksums of every IPMI message answered off by one ("nochecksumcheck").
    bool wrongChecksums = false;
    // Get Channel Authentication Capabilities reports no IPMI v2.0 sessions ("authcap").
    bool reportNoIpmi20 = false;
    // Open Session goes unanswered, as with a BMC without IPMI v2.0.
    bool ignoreOpenSession = false;
    // The session sequence numbers of its packets step by 2.
    bool sequenceStepsByTwo = false;
    // Answers go from another UDP port than the one the requests came to (CraftedBmc).
    bool answerFromAnotherPort = false;
    // Answers go from 127.0.0.2, another address than the one the requests came to (CraftedBmc).
    bool answerFromAnotherAddress = false;
    // On ::1 rather than 127.0.0.1 (CraftedBmc).
    bool ipv6 = false;
};

// An answer to a request in a session: its completion code and the data after it.
struct CommandAnswer {
    unsigned char completionCode = 0;
    std::vector<unsigned char> data;
};

// Answers a request in a session from its network function, command and data.
using CommandAnswerer = std::function<CommandAnswer(unsigned char netFn, unsigned char command,
                                                    const std::vector<unsigned char>& data)>;

class RmcpPlusResponder {
public:
    explicit RmcpPlusResponder(CraftedBehaviour behaviour, CommandAnswerer answerer = nullptr);
    ~RmcpPlusResponder();
    RmcpPlusResponder(const RmcpPlusResponder&) = delete;
    RmcpPlusResponder& operator=(const RmcpPlusResponder&) = delete;

    // Answers `datagram`, which came to `socket` from `client`, with what it calls for (nothing
    // for what it does not understand).
    void answer(int socket, const sockaddr_storage& client,
                const std::vector<unsigned char>& datagram);

    // Sessions opened and neither closed nor refused: half-open and active ones.
    int openSessions() const { return static_cast<int>(sessions_.size()); }
    // Open Session requests received: one per handshake a client started.
    int openSessionRequests() const { return openSessionRequests_; }
    // The privilege level of the last Set Session Privilege Level it granted.
    int grantedPrivilege() const { return grantedPrivilege_; }
    // Reserve SEL requests refused for the session's privilege level.
    int reservationsRefused() const { return reservationsRefused_; }
    // Get Channel Cipher Suites requests received.
    int cipherSuiteRequests() const { return cipherSuiteRequests_; }
    // The cipher suite each Open Session proposed, in order; -1 for algorithms of no known suite.
    const std::vector<int>& proposedCipherSuites() const { return proposedCipherSuites_; }
    // The requested maximum privilege level of the last Open Session request.
    int openSessionPrivilege() const { return openSessionPrivilege_; }
    // The user name of the last RAKP message 1, as it came.
    const std::string& rakp1UserName() const { return rakp1UserName_; }

private:
    struct Session;
    using Bytes = std::vector<unsigned char>;

    void answerSessionless(const Bytes& message);
    void answerChannelCapabilities(const Bytes& message);
    void answerChannelCipherSuites(const Bytes& message);
    Bytes cipherSuiteRecords() const;
    void refuseOpenSession(const Bytes& request, unsigned char status);
    void openSession(const Bytes& request);
    void rakp1(const Bytes& request);
    void rakp3(const Bytes& request);
    void inSession(const Bytes& datagram);
    CommandAnswer answerInSession(Session& session, const Bytes& request);
    // The answer to an IPMI request message, its checksums as the behaviour says.
    Bytes answerMessage(const Bytes& request, unsigned char completionCode,
                        const Bytes& data) const;
    // The user's key K_uid for `suite`, and the key exchange as this BMC signs it.
    Bytes userKey(const CipherSuite& suite) const;
    RmcpPlusCodec::Rakp signedExchange(const RmcpPlusCodec::Rakp& rakp) const;
    // The name RAKP message 1 carried, as this BMC looks it up.
    std::string lookedUpName(const std::string& name) const;
    void dropOldestSessionWhenFull();
    void sendSetup(unsigned char payloadType, const Bytes& payload);
    void reply(const Bytes& packet);
    void forgeRefusal(unsigned char payloadType, unsigned char tag);
    Session* find(std::uint32_t bmcSessionId);

    CraftedBehaviour behaviour_;
    CommandAnswerer answerer_;
    // Where the datagram being answered came from.
    int socket_ = -1;
    sockaddr_storage client_{};
    std::uint32_t nextSessionId_ = 0x5E550001;
    std::map<std::uint32_t, std::unique_ptr<Session>> sessions_;  // by the BMC's session ID
    std::atomic<int> openSessionRequests_{0};
    std::atomic<int> grantedPrivilege_{0};
    std::atomic<int> reservationsRefused_{0};
    std::atomic<int> cipherSuiteRequests_{0};
    std::vector<int> proposedCipherSuites_;
    std::atomic<int> openSessionPrivilege_{-1};
    std::string rakp1UserName_;
};

}  // namespace bmcsim
