#include "RmcpPlusResponder.h"

#include <gcrypt.h>
#include <sys/socket.h>

#include <algorithm>
#include <optional>

#include "CipherSuite.h"
#include "Hmac.h"
#include "RmcpPlusCodec.h"
#include "ipmi/ByteReader.h"

namespace bmcsim {

namespace {

using Bytes = std::vector<unsigned char>;

constexpr unsigned char kApp = 0x06;
constexpr unsigned char kGetDeviceId = 0x01;
constexpr unsigned char kGetChannelAuthenticationCapabilities = 0x38;
constexpr unsigned char kGetChannelCipherSuites = 0x54;
constexpr unsigned char kSetSessionPrivilegeLevel = 0x3B;
constexpr unsigned char kCloseSession = 0x3C;
constexpr unsigned char kStorage = 0x0A;
constexpr unsigned char kReserveSel = 0x42;
constexpr unsigned char kUserLevel = 0x02;
constexpr unsigned char kOperatorLevel = 0x03;
constexpr unsigned char kInsufficientPrivilege = 0xD4;
constexpr unsigned char kInvalidCommand = 0xC1;
constexpr unsigned char kStatusInvalidSessionId = 0x02;
constexpr unsigned char kStatusUnauthorizedRole = 0x0A;
constexpr unsigned char kStatusUnauthorizedName = 0x0D;
constexpr unsigned char kStatusInvalidIntegrityCheck = 0x0F;
constexpr unsigned char kStatusNoCipherSuiteMatch = 0x11;
constexpr std::size_t kKeyLength = 20;
constexpr std::size_t kLongestUserName = 16;
constexpr std::size_t kMd5PasswordLength = 16;
// Sessions a client opened and never closed go, oldest first, beyond this many.
constexpr std::size_t kMostSessions = 64;

// RAKP's keys: the text, or its first `length` bytes, zero-padded to 20 bytes.
Bytes paddedKey(const std::string& text, std::size_t length = kKeyLength) {
    Bytes key(kKeyLength, 0x00);
    std::copy_n(text.begin(), std::min({text.size(), length, kKeyLength}), key.begin());
    return key;
}

unsigned char checksum(const unsigned char* bytes, std::size_t size) {
    unsigned char sum = 0;
    for (std::size_t i = 0; i < size; ++i) sum += bytes[i];
    return static_cast<unsigned char>(-sum);
}

// The answer to an IPMI request message (rsAddr, netFn/LUN, checksum, rqAddr, rqSeq/LUN, command,
// data, checksum): the same with the addresses swapped, the response network function, the
// completion code and the data.
Bytes ipmiAnswer(const Bytes& request, unsigned char completionCode, const Bytes& data) {
    Bytes message = {request[3], static_cast<unsigned char>(request[1] + 0x04)};
    message.push_back(checksum(message.data(), 2));
    message.insert(message.end(), {request[0], request[4], request[5], completionCode});
    message.insert(message.end(), data.begin(), data.end());
    message.push_back(checksum(message.data() + 3, message.size() - 3));
    return message;
}

// The ID of the cipher suite whose algorithms an Open Session request proposes.
std::optional<unsigned char> proposedSuite(const Bytes& request) {
    for (unsigned char id = 0; id <= 17; ++id) {
        const std::optional<CipherSuite> suite = CipherSuite::find(id);
        if (suite && suite->authentication == (request[12] & 0x3F) &&
            suite->integrity == (request[20] & 0x3F) &&
            suite->confidentiality == (request[28] & 0x3F)) {
            return id;
        }
    }
    return std::nullopt;
}

// An IPMI v1.5 session-less packet: RMCP header, authentication type none, sequence number and
// session ID 0, the message length, the message.
Bytes sessionlessPacket(const Bytes& message) {
    Bytes packet = {0x06, 0x00, 0xFF, 0x07, 0x00, 0, 0, 0, 0, 0, 0, 0, 0};
    packet.push_back(static_cast<unsigned char>(message.size()));
    packet.insert(packet.end(), message.begin(), message.end());
    return packet;
}

bool contains(const std::vector<unsigned char>& list, unsigned char value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

}  // namespace

struct RmcpPlusResponder::Session {
    CipherSuite suite;
    unsigned char openSessionPrivilege = 0;
    RmcpPlusCodec::Rakp rakp;
    bool active = false;
    bool rakp4Sent = false;
    // A session starts at the user level; Set Session Privilege Level moves it.
    unsigned char privilege = kUserLevel;
    std::unique_ptr<RmcpPlusCodec> codec;
};

RmcpPlusResponder::RmcpPlusResponder(CraftedBehaviour behaviour, CommandAnswerer answerer)
    : behaviour_(std::move(behaviour)), answerer_(std::move(answerer)) {}

RmcpPlusResponder::~RmcpPlusResponder() = default;

void RmcpPlusResponder::answer(int socket, const sockaddr_storage& client, const Bytes& datagram) {
    socket_ = socket;
    client_ = client;
    Bytes payload;
    if (RmcpPlusCodec::sessionlessMessage(datagram.data(), datagram.size(), payload)) {
        answerSessionless(payload);
    } else if (RmcpPlusCodec::sessionSetupPayload(datagram.data(), datagram.size(),
                                                  RmcpPlusCodec::kOpenSessionRequest, payload)) {
        openSession(payload);
    } else if (RmcpPlusCodec::sessionSetupPayload(datagram.data(), datagram.size(),
                                                  RmcpPlusCodec::kRakp1, payload)) {
        rakp1(payload);
    } else if (RmcpPlusCodec::sessionSetupPayload(datagram.data(), datagram.size(),
                                                  RmcpPlusCodec::kRakp3, payload)) {
        rakp3(payload);
    } else {
        inSession(datagram);
    }
}

void RmcpPlusResponder::answerSessionless(const Bytes& message) {
    if (message.size() < 7 || message[1] >> 2 != kApp) return;
    if (message[5] == kGetChannelAuthenticationCapabilities) answerChannelCapabilities(message);
    if (message[5] == kGetChannelCipherSuites) answerChannelCipherSuites(message);
}

void RmcpPlusResponder::answerChannelCapabilities(const Bytes& message) {
    // Channel 1; IPMI v2.0 extended data; non-null user names; IPMI v2.0 sessions (or, reported
    // wrongly, none); no OEM.
    const unsigned char sessions = behaviour_.reportNoIpmi20 ? 0x00 : 0x02;
    reply(
        sessionlessPacket(answerMessage(message, 0x00, {0x01, 0x80, 0x04, sessions, 0, 0, 0, 0})));
}

// Channel, payload type, list index (bit 7: by cipher suite); the answer carries the channel and
// the 16 bytes of the records at 16 times the index, fewer for the last part.
void RmcpPlusResponder::answerChannelCipherSuites(const Bytes& message) {
    ++cipherSuiteRequests_;
    if (!behaviour_.answersCipherSuites || message.size() < 10) return;
    const Bytes records = cipherSuiteRecords();
    const std::size_t from = std::min<std::size_t>(16u * (message[8] & 0x3F), records.size());
    const std::size_t to = std::min<std::size_t>(from + 16, records.size());
    Bytes data = {0x01};
    data.insert(data.end(), records.begin() + from, records.begin() + to);
    reply(sessionlessPacket(answerMessage(message, 0x00, data)));
}

// C0h, the ID and the algorithms of each suite listed, tagged 00b, 01b and 10b; C1h, the ID,
// an IANA number (Intel's, 343) and made-up algorithms for an ID the client does not speak.
Bytes RmcpPlusResponder::cipherSuiteRecords() const {
    const unsigned char integrityTag = behaviour_.wrongCipherSuiteTags ? 0xC0 : 0x40;
    const unsigned char confidentialityTag = behaviour_.wrongCipherSuiteTags ? 0xC0 : 0x80;
    Bytes records;
    for (unsigned char id : behaviour_.listedCipherSuites) {
        const std::optional<CipherSuite> suite = CipherSuite::find(id);
        if (!suite) {
            records.insert(records.end(), {0xC1, id, 0x57, 0x01, 0x00, 0x01, 0x41, 0x81});
            continue;
        }
        records.insert(records.end(),
                       {0xC0, id, suite->authentication,
                        static_cast<unsigned char>(integrityTag | suite->integrity),
                        static_cast<unsigned char>(confidentialityTag | suite->confidentiality)});
    }
    return records;
}
void RmcpPlusResponder::openSession(const Bytes& request) {
    if (request.size() < 32) return;
    ++openSessionRequests_;
    openSessionPrivilege_ = request[1];
    if (behaviour_.ignoreOpenSession) return;
    const std::optional<unsigned char> id = proposedSuite(request);
    proposedCipherSuites_.push_back(id ? *id : -1);
    if (!id) return refuseOpenSession(request, kStatusNoCipherSuiteMatch);
    const std::vector<unsigned char>& accepted = behaviour_.acceptedCipherSuites;
    if (!accepted.empty() && !contains(accepted, *id)) {
        if (behaviour_.ignoreUnacceptedSuites) return;
        return refuseOpenSession(request, behaviour_.cipherSuiteRefusal);
    }
    auto session = std::make_unique<Session>();
    session->suite = *CipherSuite::find(*id);
    session->openSessionPrivilege = request[1];
    session->rakp.consoleSessionId = ByteReader(request, 4).u32();
    session->rakp.bmcSessionId = behaviour_.sessionIdZero ? 0 : nextSessionId_++;
    Bytes answer = {request[0], 0x00, 0x04, 0x00};
    RmcpPlusCodec::appendLittleEndian32(answer, session->rakp.consoleSessionId);
    RmcpPlusCodec::appendLittleEndian32(answer, session->rakp.bmcSessionId);
    answer.insert(answer.end(), request.begin() + 8, request.begin() + 32);  // the algorithms
    forgeRefusal(RmcpPlusCodec::kOpenSessionResponse, request[0]);
    dropOldestSessionWhenFull();
    sessions_[session->rakp.bmcSessionId] = std::move(session);
    sendSetup(RmcpPlusCodec::kOpenSessionResponse, answer);
}

// Tag, status, two reserved bytes and the console's session ID.
void RmcpPlusResponder::refuseOpenSession(const Bytes& request, unsigned char status) {
    Bytes answer = {request[0], status, 0x00, 0x00};
    answer.insert(answer.end(), request.begin() + 4, request.begin() + 8);
    sendSetup(RmcpPlusCodec::kOpenSessionResponse, answer);
}

void RmcpPlusResponder::rakp1(const Bytes& request) {
    if (request.size() < 28 || request.size() < 28u + request[27]) return;
    Session* session = find(ByteReader(request, 4).u32());
    if (session == nullptr) return;
    RmcpPlusCodec::Rakp& rakp = session->rakp;
    std::copy_n(&request[8], RmcpPlusCodec::kRandomLength, rakp.consoleRandom);
    rakp.role = request[24];
    rakp.user.assign(request.begin() + 28, request.begin() + 28 + request[27]);
    rakp1UserName_ = rakp.user;
    Bytes answer = {request[0], 0x00, 0x00, 0x00};
    RmcpPlusCodec::appendLittleEndian32(answer, rakp.consoleSessionId);
    forgeRefusal(RmcpPlusCodec::kRakp2, request[0]);
    if (lookedUpName(rakp.user) != behaviour_.user) {
        answer[1] = kStatusUnauthorizedName;
        sessions_.erase(rakp.bmcSessionId);
        return sendSetup(RmcpPlusCodec::kRakp2, answer);
    }
    gcry_randomize(rakp.bmcRandom, sizeof rakp.bmcRandom, GCRY_STRONG_RANDOM);
    std::fill(std::begin(rakp.bmcGuid), std::end(rakp.bmcGuid), 0x6B);
    answer.insert(answer.end(), std::begin(rakp.bmcRandom), std::end(rakp.bmcRandom));
    answer.insert(answer.end(), std::begin(rakp.bmcGuid), std::end(rakp.bmcGuid));
    const CipherSuite& suite = session->suite;
    if (suite.authenticates()) {
        const Bytes code =
            Hmac(suite.digest, userKey(suite)).of(signedExchange(rakp).rakp2Signed());
        answer.insert(answer.end(), code.begin(), code.end());
        if (behaviour_.rakp2ExtraByte ||
            (behaviour_.rakp2Sha1CodeOf21Bytes && suite.digest == GCRY_MD_SHA1)) {
            answer.push_back(0x00);
        }
    }
    sendSetup(RmcpPlusCodec::kRakp2, answer);
}

void RmcpPlusResponder::rakp3(const Bytes& request) {
    if (request.size() < 8) return;
    const std::uint32_t bmcSessionId = ByteReader(request, 4).u32();
    Session* session = find(bmcSessionId);
    if (session == nullptr) return;
    // A remote console that found fault with RAKP message 2 says so here: the session ends.
    if (request[1] != 0x00) {
        sessions_.erase(bmcSessionId);
        return;
    }
    const RmcpPlusCodec::Rakp& rakp = session->rakp;
    Bytes answer = {request[0], 0x00, 0x00, 0x00};
    RmcpPlusCodec::appendLittleEndian32(answer, rakp.consoleSessionId);
    if (session->active && behaviour_.refuseResentRakp3) {
        answer[1] = kStatusInvalidSessionId;
        return sendSetup(RmcpPlusCodec::kRakp4, answer);
    }
    const CipherSuite& suite = session->suite;
    Bytes k1;
    Bytes k2;
    if (suite.authenticates()) {
        const RmcpPlusCodec::Rakp exchange = signedExchange(rakp);
        const Bytes key = userKey(suite);
        const Bytes expected = Hmac(suite.digest, key).of(exchange.rakp3Signed());
        if (request.size() != 8 + expected.size() ||
            !std::equal(expected.begin(), expected.end(), request.begin() + 8)) {
            answer[1] = kStatusInvalidIntegrityCheck;
            sessions_.erase(bmcSessionId);
            return sendSetup(RmcpPlusCodec::kRakp4, answer);
        }
        RmcpPlusCodec::Rakp keyed = exchange;
        if (behaviour_.keysOfOpenSessionPrivilege)
            keyed.role = (keyed.role & 0xF0) | session->openSessionPrivilege;
        const Bytes sik =
            Hmac(suite.digest, behaviour_.bmcKey.empty() ? key : paddedKey(behaviour_.bmcKey))
                .of(keyed.sessionKeyInput());
        Hmac sessionIntegrity(suite.digest, sik);
        k1 = sessionIntegrity.of(Bytes(kKeyLength, 0x01));
        k2 = sessionIntegrity.of(Bytes(kKeyLength, 0x02));
        const Bytes check = Hmac(suite.digest, sik).of(rakp.rakp4Signed());
        if (!behaviour_.rakp4CheckByIntegrityAlgorithm || suite.signsPackets())
            answer.insert(answer.end(), check.begin(), check.begin() + suite.integrityCheckLength);
    } else if (behaviour_.rakp4CheckWithSuiteZero) {
        answer.insert(answer.end(), 12, 0x5A);
    }
    // The BMC's end of the session sends with the console's session ID and takes its own.
    session->codec =
        std::make_unique<RmcpPlusCodec>(suite, rakp.consoleSessionId, rakp.bmcSessionId, k1, k2);
    session->active = true;
    forgeRefusal(RmcpPlusCodec::kRakp4, request[0]);
    if (behaviour_.rakp4Lost > 0) {
        --behaviour_.rakp4Lost;
        return;
    }
    session->rakp4Sent = true;
    sendSetup(RmcpPlusCodec::kRakp4, answer);
}

void RmcpPlusResponder::inSession(const Bytes& datagram) {
    // RMCP header, authentication type, payload type, then the session ID.
    if (datagram.size() < 10) return;
    Session* session = find(ByteReader(datagram, 6).u32());
    Bytes request;
    if (session == nullptr || !session->active ||
        (behaviour_.ignoreSessionRequestsUntilRakp4 && !session->rakp4Sent) ||
        !session->codec->open(datagram.data(), datagram.size(), request) || request.size() < 7) {
        return;
    }
    const CommandAnswer answer = answerInSession(*session, request);
    // A sequence number sealed and never sent: the next packet's is 2 higher.
    if (behaviour_.sequenceStepsByTwo) session->codec->seal({});
    reply(session->codec->seal(answerMessage(request, answer.completionCode, answer.data)));
    if (request[1] >> 2 == kApp && request[5] == kCloseSession)
        sessions_.erase(session->rakp.bmcSessionId);
}

// The App commands of the session itself and Get Device ID are answered here; the rest by the
// BMC's answerer, or refused.
CommandAnswer RmcpPlusResponder::answerInSession(Session& session, const Bytes& request) {
    const unsigned char netFn = request[1] >> 2;
    const unsigned char command = request[5];
    if (netFn == kApp && command == kSetSessionPrivilegeLevel && request.size() >= 8) {
        grantedPrivilege_ = request[6];
        session.privilege = request[6];
        return {0x00, {request[6]}};
    }
    if (netFn == kStorage && command == kReserveSel && behaviour_.reserveSelNeedsOperator &&
        session.privilege < kOperatorLevel) {
        ++reservationsRefused_;
        return {kInsufficientPrivilege, {}};
    }
    if (netFn == kApp && command == kGetDeviceId)
        return {0x00, {0x20, 0x01, 0x01, 0x00, 0x02, 0xBF, 0, 0, 0, 0, 0}};
    if (netFn == kApp && command == kCloseSession) return {0x00, {}};
    if (!answerer_) return {kInvalidCommand, {}};
    // The request's data lies between its command and its closing checksum.
    return answerer_(netFn, command, Bytes(request.begin() + 6, request.end() - 1));
}

Bytes RmcpPlusResponder::answerMessage(const Bytes& request, unsigned char completionCode,
                                       const Bytes& data) const {
    Bytes message = ipmiAnswer(request, completionCode, data);
    if (behaviour_.wrongChecksums) {
        ++message[2];
        ++message.back();
    }
    return message;
}

Bytes RmcpPlusResponder::userKey(const CipherSuite& suite) const {
    const bool cut = behaviour_.cutMd5Password && suite.digest == GCRY_MD_MD5;
    return paddedKey(behaviour_.password, cut ? kMd5PasswordLength : kKeyLength);
}

RmcpPlusCodec::Rakp RmcpPlusResponder::signedExchange(const RmcpPlusCodec::Rakp& rakp) const {
    RmcpPlusCodec::Rakp exchange = rakp;
    if (behaviour_.padUserNames) {
        exchange.user = lookedUpName(rakp.user);
        exchange.user.resize(kLongestUserName, '\0');
    }
    return exchange;
}

std::string RmcpPlusResponder::lookedUpName(const std::string& name) const {
    if (behaviour_.requirePaddedUserName && name.size() != kLongestUserName) return "";
    if (!behaviour_.padUserNames) return name;
    // The name without the zeros that pad it.
    return name.substr(0, name.find('\0'));
}

void RmcpPlusResponder::dropOldestSessionWhenFull() {
    if (sessions_.size() >= kMostSessions) sessions_.erase(sessions_.begin());
}

void RmcpPlusResponder::sendSetup(unsigned char payloadType, const Bytes& payload) {
    reply(RmcpPlusCodec::sessionSetupPacket(payloadType, payload));
}

void RmcpPlusResponder::reply(const Bytes& packet) {
    const socklen_t length =
        client_.ss_family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    sendto(socket_, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&client_),
           length);
}

// What anyone on the path could send: refusals that would lower the privilege level or condemn
// the user name, without the console's session ID.
void RmcpPlusResponder::forgeRefusal(unsigned char payloadType, unsigned char tag) {
    if (!behaviour_.forgeRefusals) return;
    sendSetup(payloadType, {tag, kStatusUnauthorizedRole});
    sendSetup(payloadType, {tag, kStatusUnauthorizedName, 0x00, 0x00, 0x78, 0x56, 0x34, 0x12});
}

RmcpPlusResponder::Session* RmcpPlusResponder::find(std::uint32_t bmcSessionId) {
    const auto found = sessions_.find(bmcSessionId);
    return found == sessions_.end() ? nullptr : found->second.get();
}

}  // namespace bmcsim
