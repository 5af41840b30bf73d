#include "RmcpPlusSession.h"

#include <gcrypt.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Hmac.h"
#include "IpmiClientSettings.h"
#include "Secret.h"
#include "ipmi/ByteReader.h"

namespace {

using Bytes = RmcpPlusSession::Bytes;

constexpr std::size_t kLongestUserName = 16;
constexpr std::size_t kLongestKey = 20;          // passwords and BMC keys
constexpr unsigned char kNameOnlyLookup = 0x10;  // RAKP 1's role: find the user by name alone
constexpr std::size_t kLargestDatagram = 4096;   // IPMI messages over the LAN stay far below
constexpr std::size_t kKeyConstantLength = 20;
// Some Intel BMCs cut HMAC-MD5 passwords to this many bytes.
constexpr std::size_t kMd5PasswordLength = 16;

constexpr unsigned char kApp = 0x06;
constexpr unsigned char kSetSessionPrivilegeLevel = 0x3B;
constexpr unsigned char kCloseSession = 0x3C;

// The RMCP+ status codes a BMC refuses a session step with (IPMI v2.0 table 13-15).
std::string statusText(unsigned char status) {
    static const char* const texts[] = {
        "no errors",
        "insufficient resources to create a session",
        "invalid session ID",
        "invalid payload type",
        "invalid authentication algorithm",
        "invalid integrity algorithm",
        "no matching authentication payload",
        "no matching integrity payload",
        "inactive session ID",
        "invalid role",
        "unauthorized role or privilege level requested",
        "insufficient resources to create a session at the requested role",
        "invalid name length",
        "unauthorized name",
        "unauthorized GUID",
        "invalid integrity check value",
        "invalid confidentiality algorithm",
        "no cipher suite match with proposed security algorithms",
        "illegal or unrecognized parameter",
    };
    char code[8];
    std::snprintf(code, sizeof code, "%02Xh", status);
    const std::string text = status < std::size(texts) ? texts[status] : "unknown status";
    return "RMCP+ status " + std::string(code) + " (" + text + ")";
}

RmcpPlusSession::Failure failureFor(unsigned char status) {
    using Failure = RmcpPlusSession::Failure;
    switch (status) {
        case 0x04:
        case 0x05:
        case 0x06:
        case 0x07:
        case 0x10:
        case 0x11:
            return Failure::CipherSuiteRefused;
        case 0x09:
        case 0x0A:
            return Failure::PrivilegeRefused;
        case 0x0C:
        case 0x0D:
            return Failure::UserNameRefused;
        case 0x0F:
            return Failure::PasswordRefused;
        default:
            return Failure::BmcRefused;
    }
}

// The UDP port of an IPv4 or IPv6 address (the two keep it at the same place).
in_port_t portOf(const sockaddr_storage& address) {
    return reinterpret_cast<const sockaddr_in&>(address).sin_port;
}

// The RMCP+ status a remote console sends in RAKP message 3 to end a handshake: the BMC's
// answer failed its check, or the console abandons the session for another reason.
constexpr unsigned char kStatusInvalidIntegrityCheck = 0x0F;
constexpr unsigned char kStatusInvalidSessionId = 0x02;

// A key as RAKP uses it (K_uid from the password, K_g): the text, or its first `length` bytes,
// zero-padded to 20 bytes. Sized once, so no copy of the secret is left behind by a reallocation.
Bytes paddedKey(const std::string& text, std::size_t length = kLongestKey) {
    Bytes key(kLongestKey, 0x00);
    std::copy_n(text.begin(), std::min({text.size(), length, kLongestKey}), key.begin());
    return key;
}

// A user name padded with zeros to 16 bytes, as some Intel BMCs compute RAKP's codes and keys.
std::string paddedUserName(const std::string& user) {
    std::string padded = user;
    padded.resize(kLongestUserName, '\0');
    return padded;
}

// What the session reports of each departure from IPMI v2.0 it recognised.
const char* const kLongerRakp2 = "RAKP message 2 longer than IPMI v2.0's (recognised)";
const char* const kPaddedUserName = "user name padded to 16 bytes in RAKP's codes (recognised)";
const char* const kCutMd5Password = "HMAC-MD5 password cut to 16 bytes (recognised)";
const char* const kRakp4ByIntegrityAlgorithm =
    "RAKP 4 check value by the integrity algorithm (recognised)";
const char* const kKeysOfOpenSessionPrivilege =
    "keys derived from Open Session's privilege level (recognised)";
const char* const kRakp4CheckWithSuiteZero = "RAKP 4 check value with cipher suite 0 (recognised)";
const char* const kChecksumsUnderIntegrityCode =
    "wrong IPMI message checksums under a valid integrity code (recognised)";
const char* const kChecksumsInCapabilities =
    "wrong IPMI message checksums in Get Channel Authentication Capabilities (recognised)";
const char* const kAnswersFromAnotherPort = "answers from another UDP port (recognised)";

}  // namespace

// Every answer starts with the tag, the status, two reserved bytes and our session ID, and a
// refusal may end there. Anyone on the network path can send a refusal, so one that would change
// what the client believes of the user (a privilege level or the credentials refused: remembered,
// or ending the search) counts only with our session ID. Other refusals end the attempt either
// way, as a dropped packet could; some BMCs (OpenIPMI's simulator) send them as tag and status
// alone.
bool RmcpPlusSession::believable(const Bytes& answer) const {
    ByteReader fields(answer, 4);
    const std::uint32_t consoleSessionId = fields.u32();
    if (fields.ok()) return consoleSessionId == rakp_.consoleSessionId;
    const Failure failure = failureFor(answer[1]);
    return answer[1] != 0x00 &&
           (failure == Failure::CipherSuiteRefused || failure == Failure::BmcRefused);
}

RmcpPlusSession::RmcpPlusSession(Settings settings)
    : settings_(std::move(settings)), datagram_(kLargestDatagram) {}

RmcpPlusSession::~RmcpPlusSession() {
    close();
    wipe(settings_.password);
    wipe(settings_.bmcKey);
}

RmcpPlusSession::Failure RmcpPlusSession::fail(Failure failure, std::string text) {
    failureText_ = std::move(text);
    return failure;
}

void RmcpPlusSession::note(const std::string& deviation) {
    if (std::find(deviations_.begin(), deviations_.end(), deviation) == deviations_.end())
        deviations_.push_back(deviation);
}

std::string RmcpPlusSession::unanswered(const std::string& text) const {
    if (!droppedForChecksums_) return text;
    return text +
           "; answers with wrong IPMI message checksums came and were dropped (the "
           "nochecksumcheck workaround takes them)";
}

RmcpPlusSession::Failure RmcpPlusSession::open() {
    if (settings_.user.size() > kLongestUserName || settings_.password.size() > kLongestKey ||
        settings_.bmcKey.size() > kLongestKey) {
        return fail(Failure::BadSettings,
                    "IPMI v2.0 allows user names of up to 16 bytes and passwords and BMC keys of "
                    "up to 20");
    }
    const std::optional<CipherSuite> suite = CipherSuite::find(settings_.cipherSuite);
    if (!suite) {
        return fail(Failure::CipherSuiteUnsupported,
                    "this client speaks cipher suites " + std::string(kSupportedCipherSuites));
    }
    if (!suite->authenticates() && !settings_.allowCipherSuiteZero) {
        return fail(Failure::CipherSuiteInsecure,
                    "cipher suite 0 authenticates nobody: the BMC accepts any password");
    }
    suite_ = *suite;
    initializeLibgcrypt();
    const Clock::time_point deadline = Clock::now() + settings_.timeout;
    Failure failure = openSocket();
    if (failure == Failure::None && !settings_.speaksIpmi20) failure = askForIpmi20(deadline);
    if (failure == Failure::None) {
        failure = establish(deadline);
        // Once more from Open Session, with the time left, when lost or late datagrams may
        // explain the refusal.
        if (failure != Failure::None && restartable_ && Clock::now() < deadline) {
            abandon(kStatusInvalidSessionId);
            failure = establish(deadline);
        }
    }
    if (failure != Failure::None) close();
    return failure;
}

RmcpPlusSession::Failure RmcpPlusSession::discover() {
    const Clock::time_point deadline = Clock::now() + settings_.timeout;
    Failure failure = openSocket();
    if (failure == Failure::None) failure = askForIpmi20(deadline);
    if (failure == Failure::None) offeredCipherSuites_ = askForCipherSuites(deadline);
    close();
    return failure;
}

RmcpPlusSession::Failure RmcpPlusSession::establish(Clock::time_point deadline) {
    restartable_ = false;
    Failure failure = openSession(deadline);
    if (failure == Failure::None) failure = authenticate(deadline);
    if (failure == Failure::None) failure = setPrivilege(Clock::now() + settings_.timeout);
    return failure;
}

RmcpPlusSession::Failure RmcpPlusSession::openSocket() {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_DGRAM;
    hints.ai_flags = AI_ADDRCONFIG;
    addrinfo* found = nullptr;
    const int resolved =
        getaddrinfo(settings_.address.c_str(), settings_.port.c_str(), &hints, &found);
    if (resolved != 0 || found == nullptr) {
        return fail(Failure::AddressUnknown,
                    "cannot resolve the address: " + std::string(gai_strerror(resolved)));
    }
    // Not connected: some BMCs answer from another port than the one asked, which a connected
    // socket would drop. Datagrams from other addresses are dropped by awaitAnswer().
    socket_ = ::socket(found->ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int error = errno;
    std::memcpy(&bmcAddress_, found->ai_addr, found->ai_addrlen);
    bmcAddressLength_ = found->ai_addrlen;
    freeaddrinfo(found);
    if (socket_ < 0)
        return fail(Failure::SystemError, "no UDP socket: " + std::string(std::strerror(error)));
    return Failure::None;
}

RmcpPlusSession::Failure RmcpPlusSession::askForIpmi20(Clock::time_point deadline) {
    constexpr unsigned char getChannelAuthenticationCapabilities = 0x38;
    const Bytes request =
        RmcpPlusCodec::channelAuthenticationCapabilitiesRequest(settings_.privilege);
    Bytes message;
    Bytes answer;
    // The answer only steers the handshake, which checks everything that matters, and anyone on
    // the path could forge it, checksums and all: wrong checksums are overlooked.
    const bool answered = transact(
        [&] { return send(request); },
        [&](const unsigned char* datagram, std::size_t size) {
            return RmcpPlusCodec::sessionlessMessage(datagram, size, message) &&
                   RmcpPlusCodec::ipmiResponse(message, kApp, getChannelAuthenticationCapabilities,
                                               0, answer, RmcpPlusCodec::Checksums::Ignored);
        },
        deadline, Resend::Doubling);
    if (!answered) return fail(Failure::NoAnswer, "no answer from the BMC");
    Bytes checked;
    if (!RmcpPlusCodec::ipmiResponse(message, kApp, getChannelAuthenticationCapabilities, 0,
                                     checked)) {
        note(kChecksumsInCapabilities);
    }
    // Completion code, channel, authentication types (bit 7: IPMI v2.0 data follows), status,
    // extended capabilities (bit 1: IPMI v2.0 sessions). Some BMCs misreport them, and one that
    // fails the command may still speak RMCP+: Open Session tells.
    if (answer.size() < 5 || answer[0] != 0x00) return Failure::None;
    const bool speaks20 = (answer[2] & 0x80) && (answer[4] & 0x02);
    ipmiVersion_ = speaks20 ? "2.0" : "1.5";
    return Failure::None;
}

// Part after part of the list until one carries fewer than 16 bytes of records, at most the 64
// the list index can name. A BMC may ignore the command; having answered Get Channel
// Authentication Capabilities, it is given two resend intervals (each at least twice that round
// trip) for each part, not the session's whole timeout. A part unanswered or refused ends the
// list; none when the first is.
std::optional<RmcpPlusSession::Bytes> RmcpPlusSession::askForCipherSuites(
    Clock::time_point deadline) {
    constexpr unsigned char getChannelCipherSuites = 0x54;
    constexpr std::size_t partLength = 16;
    constexpr unsigned char parts = 64;
    Bytes records;
    for (unsigned char index = 0; index < parts; ++index) {
        const Bytes request = RmcpPlusCodec::channelCipherSuitesRequest(index);
        Bytes message;
        Bytes answer;
        const bool answered =
            transact([&] { return send(request); },
                     [&](const unsigned char* datagram, std::size_t size) {
                         return RmcpPlusCodec::sessionlessMessage(datagram, size, message) &&
                                RmcpPlusCodec::ipmiResponse(message, kApp, getChannelCipherSuites,
                                                            index, answer);
                     },
                     std::min(deadline, Clock::now() + 2 * firstResendInterval()), Resend::Steady);
        // Completion code, channel, records.
        if (!answered || answer.size() < 2 || answer[0] != 0x00) {
            if (index == 0) return std::nullopt;
            break;
        }
        records.insert(records.end(), answer.begin() + 2, answer.end());
        if (answer.size() - 2 < partLength) break;
    }
    return listedCipherSuites(records);
}

RmcpPlusSession::Failure RmcpPlusSession::openSession(Clock::time_point deadline) {
    do {
        gcry_create_nonce(&rakp_.consoleSessionId, sizeof rakp_.consoleSessionId);
    } while (rakp_.consoleSessionId == 0);  // 0 means "no session"
    Bytes answer;
    if (!handshake(
            RmcpPlusCodec::kOpenSessionRequest,
            [&](unsigned char tag) {
                return RmcpPlusCodec::openSessionRequest(tag, rakp_.consoleSessionId, suite_,
                                                         openSessionPrivilege());
            },
            RmcpPlusCodec::kOpenSessionResponse, deadline, answer)) {
        openSessionOutcome_ = OpenSessionOutcome::Unanswered;
        if (ipmi20Unreported()) {
            return fail(Failure::Ipmi20Unavailable,
                        "Get Channel Authentication Capabilities reports no IPMI v2.0 sessions, "
                        "and Open Session went unanswered");
        }
        return fail(Failure::NoAnswer, "no answer to Open Session");
    }
    openSessionOutcome_ = OpenSessionOutcome::Refused;
    // Tag, status, maximum privilege, reserved, our session ID, the BMC's session ID, then the
    // three algorithm records: type, two reserved bytes, length, algorithm, three reserved bytes.
    if (answer[1] != 0x00) {
        openSessionRefusal_ = answer[1];
        return fail(failureFor(answer[1]), "Open Session refused: " + statusText(answer[1]));
    }
    ByteReader fields(answer, 8);
    const std::uint32_t bmcSessionId = fields.u32();
    unsigned char algorithms[3];
    for (unsigned char& algorithm : algorithms) {
        fields.skip(4);
        // Bits 7:6 of each algorithm byte are reserved.
        algorithm = fields.u8() & 0x3F;
        fields.skip(3);
    }
    if (!fields.ok()) {
        return fail(Failure::BmcRefused, "an Open Session answer that does not fit the request");
    }
    rakp_.bmcSessionId = bmcSessionId;
    // Session ID 0 stands for "no session" in every later packet.
    if (rakp_.bmcSessionId == 0)
        return fail(Failure::BmcRefused, "the BMC answered Open Session with session ID 0");
    if (algorithms[0] != suite_.authentication || algorithms[1] != suite_.integrity ||
        algorithms[2] != suite_.confidentiality) {
        return fail(Failure::CipherSuiteRefused,
                    "the BMC answered Open Session with other algorithms");
    }
    openSessionOutcome_ = OpenSessionOutcome::Taken;
    return Failure::None;
}

unsigned char RmcpPlusSession::openSessionPrivilege() const {
    return settings_.workarounds & kWorkaroundOpenSessionPrivilege ? settings_.privilege : 0x00;
}

RmcpPlusSession::Failure RmcpPlusSession::authenticate(Clock::time_point deadline) {
    gcry_randomize(rakp_.consoleRandom, sizeof rakp_.consoleRandom, GCRY_STRONG_RANDOM);
    rakp_.role = kNameOnlyLookup | settings_.privilege;
    // Some Intel BMCs know the user only by the name padded to 16 bytes.
    const bool padName = settings_.workarounds & kWorkaroundIntel20;
    rakp_.user = padName ? paddedUserName(settings_.user) : settings_.user;
    if (padName) note("intel20");
    if (openSessionPrivilege() != 0x00) note("opensesspriv");
    Bytes answer;
    if (!handshake(
            RmcpPlusCodec::kRakp1,
            [&](unsigned char tag) {
                return RmcpPlusCodec::rakp1(tag, rakp_.bmcSessionId, rakp_.consoleRandom,
                                            rakp_.role, rakp_.user);
            },
            RmcpPlusCodec::kRakp2, deadline, answer)) {
        return fail(Failure::UserNameUnanswered, "no answer to RAKP message 1");
    }
    // A BMC that resends RAKP message 2 may have drawn a new random number for each RAKP
    // message 1: if RAKP message 3 is refused, this one may have signed an outdated one.
    const bool rakp1Resent = resent_;
    if (answer[1] != 0x00)
        return fail(failureFor(answer[1]), "RAKP message 1 refused: " + statusText(answer[1]));
    Bytes userKey = paddedKey(settings_.password);
    const WipedOnExit<Bytes> userKeyWiped(userKey);
    const std::size_t codeLength =
        suite_.authenticates() ? gcry_md_get_algo_dlen(suite_.digest) : 0;
    // Tag, status, reserved, our session ID, Rc, the BMC's GUID, its key exchange code.
    ByteReader fields(answer, 8);
    if (fields.remaining() < 2 * RmcpPlusCodec::kRandomLength + codeLength) {
        return fail(Failure::BmcRefused, "a RAKP message 2 that does not fit the request");
    }
    fields.bytes(rakp_.bmcRandom, RmcpPlusCodec::kRandomLength);
    fields.bytes(rakp_.bmcGuid, RmcpPlusCodec::kRandomLength);
    Bytes code;
    fields.bytes(code, codeLength);
    // Some BMCs send a byte more after the code (and some a 21-byte HMAC-SHA1 code).
    if (fields.remaining() > 0) note(kLongerRakp2);
    Bytes rakp3Code;
    Bytes sik;
    const WipedOnExit<Bytes> sikWiped(sik);
    // The session integrity key (SIK) is keyed by the BMC key K_g, or by the user's key where
    // the BMC has none (IPMI v2.0 13.31).
    Bytes bmcKey = paddedKey(settings_.bmcKey);
    const WipedOnExit<Bytes> bmcKeyWiped(bmcKey);
    const Bytes& sikKey = settings_.bmcKey.empty() ? userKey : bmcKey;
    if (suite_.authenticates()) {
        // The BMC proved it knows the user's password; a mismatch is the wrong password, and
        // RAKP message 3 tells the BMC so, which ends the session there.
        if (!matchesRakp2(code, userKey)) {
            abandon(kStatusInvalidIntegrityCheck);
            return fail(Failure::PasswordRefused,
                        "the BMC's RAKP message 2 does not match this password");
        }
        rakp3Code = Hmac(suite_.digest, userKey).of(rakp_.rakp3Signed());
        sik = sessionIntegrityKey(sikKey, rakp_.role);
    }
    keySession(sik);
    Bytes rakp4;
    switch (confirm(rakp3Code, deadline, rakp4)) {
        case Confirmation::None:
            return fail(Failure::NoAnswer, "no answer to RAKP message 3");
        case Confirmation::BySession:
            active_ = true;
            return Failure::None;
        case Confirmation::ByRakp4:
            break;
    }
    if (rakp4[1] != 0x00) {
        // After a resent RAKP message 1, the BMC may have drawn a new random number and this
        // RAKP message 3 signed an outdated one; a resent RAKP message 3 may be refused for the
        // first: starting again tells.
        restartable_ = rakp1Resent || resent_;
        return fail(failureFor(rakp4[1]), "RAKP message 3 refused: " + statusText(rakp4[1]));
    }
    const Failure failure = checkRakp4(rakp4, sik, sikKey, userKey);
    if (failure == Failure::None) active_ = true;
    return failure;
}

// Each variant still needs the password: a code that matches only under one proves the BMC
// computes it so, and the same inputs then make RAKP 3's code and the keys.
bool RmcpPlusSession::matchesRakp2(const Bytes& code, Bytes& userKey) {
    const std::string name = rakp_.user;
    const bool mayCutPassword =
        suite_.digest == GCRY_MD_MD5 && settings_.password.size() > kMd5PasswordLength;
    for (const bool padName : {false, true}) {
        if (padName && name.size() == kLongestUserName) continue;
        rakp_.user = padName ? paddedUserName(name) : name;
        for (const bool cutPassword : {false, true}) {
            if (cutPassword && !mayCutPassword) continue;
            Bytes key =
                paddedKey(settings_.password, cutPassword ? kMd5PasswordLength : kLongestKey);
            const WipedOnExit<Bytes> keyWiped(key);
            if (code != Hmac(suite_.digest, key).of(rakp_.rakp2Signed())) continue;
            if (padName) note(kPaddedUserName);
            if (cutPassword) note(kCutMd5Password);
            std::copy(key.begin(), key.end(), userKey.begin());
            return true;
        }
    }
    rakp_.user = name;
    return false;
}

RmcpPlusSession::Confirmation RmcpPlusSession::confirm(const Bytes& rakp3Code,
                                                       Clock::time_point deadline, Bytes& rakp4) {
    const unsigned char firstTag = tag_ + 1;
    const unsigned char probeSequence = nextRequestSequence();
    const Bytes probe = RmcpPlusCodec::ipmiRequest(kApp, kSetSessionPrivilegeLevel, probeSequence,
                                                   {settings_.privilege});
    bool resending = false;
    bool sessionAnswered = false;
    Bytes probeAnswer;
    const auto answeredBySession = [&](const unsigned char* datagram, std::size_t size) {
        sessionAnswered =
            answers(datagram, size, kApp, kSetSessionPrivilegeLevel, probeSequence, probeAnswer);
        return sessionAnswered;
    };
    const bool answered = transact(
        [&] {
            if (resending && !send(codec_->seal(probe))) return false;
            resending = true;
            return send(RmcpPlusCodec::sessionSetupPacket(
                RmcpPlusCodec::kRakp3,
                RmcpPlusCodec::rakp3(++tag_, rakp_.bmcSessionId, rakp3Code)));
        },
        [&](const unsigned char* datagram, std::size_t size) {
            return answersHandshake(datagram, size, RmcpPlusCodec::kRakp4, firstTag, rakp4) ||
                   answeredBySession(datagram, size);
        },
        deadline, Resend::Doubling);
    if (!answered) return Confirmation::None;
    if (sessionAnswered) return Confirmation::BySession;
    // A refusal of a resent RAKP message 3 may be the BMC's way of saying it took the first:
    // the request sent beside the resend tells, if it is answered within a round trip or two.
    if (rakp4[1] != 0x00 && resent_ &&
        awaitAnswer(answeredBySession, std::min(deadline, Clock::now() + firstResendInterval()))) {
        return Confirmation::BySession;
    }
    return Confirmation::ByRakp4;
}

RmcpPlusSession::Bytes RmcpPlusSession::sessionIntegrityKey(const Bytes& key,
                                                            unsigned char role) const {
    RmcpPlusCodec::Rakp keyed = rakp_;
    keyed.role = role;
    return Hmac(suite_.digest, key).of(keyed.sessionKeyInput());
}

// K1 and K2 are the SIK's HMAC of 20 bytes of 01h and of 02h (IPMI v2.0 13.32); without
// authentication there are none.
void RmcpPlusSession::keySession(const Bytes& sik) {
    Bytes k1;
    Bytes k2;
    const WipedOnExit<Bytes> k1Wiped(k1);
    const WipedOnExit<Bytes> k2Wiped(k2);
    if (suite_.authenticates()) {
        Hmac sessionIntegrity(suite_.digest, sik);
        k1 = sessionIntegrity.of(Bytes(kKeyConstantLength, 0x01));
        k2 = sessionIntegrity.of(Bytes(kKeyConstantLength, 0x02));
    }
    codec_ =
        std::make_unique<RmcpPlusCodec>(suite_, rakp_.bmcSessionId, rakp_.consoleSessionId, k1, k2);
}

RmcpPlusSession::Failure RmcpPlusSession::checkRakp4(const Bytes& rakp4, const Bytes& sik,
                                                     const Bytes& sikKey, const Bytes& userKey) {
    // Tag, status, reserved, our session ID, then the check value.
    if (rakp4.size() < 8) {
        return fail(Failure::BmcRefused, "a RAKP message 4 that does not fit the request");
    }
    const std::size_t checkLength = rakp4.size() - 8;
    if (!suite_.authenticates()) {
        // Some BMCs send one with cipher suite 0, which has nothing to check it with.
        if (checkLength > 0) note(kRakp4CheckWithSuiteZero);
        return Failure::None;
    }
    // Some BMCs compute the check value with the integrity algorithm, "none" for suites 1, 6 and
    // 15: empty. Those suites never use the SIK again, and RAKP 2 proved the password.
    if (checkLength == 0 && !suite_.signsPackets()) {
        note(kRakp4ByIntegrityAlgorithm);
        return Failure::None;
    }
    if (checkLength < suite_.integrityCheckLength) {
        return fail(Failure::BmcRefused, "a RAKP message 4 that does not fit the request");
    }
    if (signsRakp4(sik, rakp4)) return Failure::None;
    // Some BMCs key the session with the privilege level Open Session asked for in RAKP 1's
    // role: a SIK of that role that signs RAKP 4 proves it, and keys the session.
    const unsigned char openSessionRole = (rakp_.role & 0xF0) | openSessionPrivilege();
    Bytes otherSik = sessionIntegrityKey(sikKey, openSessionRole);
    const WipedOnExit<Bytes> otherSikWiped(otherSik);
    if (openSessionRole != rakp_.role && signsRakp4(otherSik, rakp4)) {
        note(kKeysOfOpenSessionPrivilege);
        keySession(otherSik);
        return Failure::None;
    }
    return refuseRakp4(rakp4, userKey);
}

// RAKP 4's integrity check value: the SIK's HMAC of Rm, SIDc and GUIDc, cut to the suite's
// length.
bool RmcpPlusSession::signsRakp4(const Bytes& sik, const Bytes& answer) const {
    const Bytes check = Hmac(suite_.digest, sik).of(rakp_.rakp4Signed());
    return std::equal(answer.begin() + 8, answer.begin() + 8 + suite_.integrityCheckLength,
                      check.begin());
}

// The BMC took our RAKP message 3, so it knows the password: RAKP 4 signed with another SIK
// means another BMC key. The session the BMC activated cannot be closed with keys we lack;
// RAKP message 3's error status asks it to drop the session.
RmcpPlusSession::Failure RmcpPlusSession::refuseRakp4(const Bytes& rakp4, const Bytes& userKey) {
    const char* text = "RAKP message 4 is signed with a BMC key (K_g) and none was given";
    if (!settings_.bmcKey.empty()) {
        // Signed with the SIK of the user's key: the BMC has no BMC key.
        Bytes sik = sessionIntegrityKey(userKey, rakp_.role);
        const WipedOnExit<Bytes> sikWiped(sik);
        text = signsRakp4(sik, rakp4)
                   ? "RAKP message 4 is signed without a BMC key (K_g), but one was given"
                   : "RAKP message 4 is signed with another BMC key (K_g) than the one given";
    }
    abandon(kStatusInvalidIntegrityCheck);
    return fail(Failure::BmcKeyRefused, text);
}

RmcpPlusSession::Failure RmcpPlusSession::setPrivilege(Clock::time_point deadline) {
    // A session starts at user level; this raises it to the level RAKP 1 asked for.
    Bytes answer;
    if (!request(kApp, kSetSessionPrivilegeLevel, {settings_.privilege}, deadline, answer) ||
        answer.empty()) {
        return fail(Failure::NoAnswer, unanswered("no answer to Set Session Privilege Level"));
    }
    // An answer in the session, checked with its keys: the BMC holds the session.
    active_ = true;
    char code[8];
    std::snprintf(code, sizeof code, "%02Xh", answer[0]);
    // 80h: not available to this user; 81h: above the user's or the channel's limit.
    if (answer[0] == 0x80 || answer[0] == 0x81) {
        return fail(Failure::PrivilegeRefused,
                    "Set Session Privilege Level refused with " + std::string(code));
    }
    if (answer[0] != 0x00) {
        return fail(Failure::BmcRefused,
                    "Set Session Privilege Level failed with " + std::string(code));
    }
    return Failure::None;
}

bool RmcpPlusSession::handshake(unsigned char requestType,
                                const std::function<Bytes(unsigned char tag)>& build,
                                unsigned char answerType, Clock::time_point deadline,
                                Bytes& answer) {
    const unsigned char firstTag = tag_ + 1;
    return transact(
        [&] { return send(RmcpPlusCodec::sessionSetupPacket(requestType, build(++tag_))); },
        [&](const unsigned char* datagram, std::size_t size) {
            return answersHandshake(datagram, size, answerType, firstTag, answer);
        },
        deadline, Resend::Doubling);
}

// Each send of a step takes a new tag, from `firstTag` on; an answer to any of them counts, as
// a late answer to the first send is as good as one to the latest.
bool RmcpPlusSession::answersHandshake(const unsigned char* datagram, std::size_t size,
                                       unsigned char answerType, unsigned char firstTag,
                                       Bytes& answer) const {
    return RmcpPlusCodec::sessionSetupPayload(datagram, size, answerType, answer) &&
           answer.size() >= 2 &&
           static_cast<unsigned char>(answer[0] - firstTag) <=
               static_cast<unsigned char>(tag_ - firstTag) &&
           believable(answer);
}

bool RmcpPlusSession::exchange(unsigned char netFn, unsigned char command, const Bytes& data,
                               Bytes& answer) {
    if (!active_) return false;
    // A BMC that left a request unanswered for the whole timeout, resends included, is gone: the
    // session's later requests fail at once rather than each waiting as long again.
    if (!bmcAnswering_) {
        failureText_ = "the BMC stopped answering earlier in this session";
        return false;
    }
    bmcAnswering_ = request(netFn, command, data, Clock::now() + settings_.timeout, answer);
    if (!bmcAnswering_) {
        failureText_ =
            unanswered("no answer within " + std::to_string(settings_.timeout.count()) + " ms");
    }
    return bmcAnswering_;
}

bool RmcpPlusSession::request(unsigned char netFn, unsigned char command, const Bytes& data,
                              Clock::time_point deadline, Bytes& answer) {
    // A resend keeps the sequence number, so a late answer to the first send still counts.
    const unsigned char sequence = nextRequestSequence();
    const Bytes message = RmcpPlusCodec::ipmiRequest(netFn, command, sequence, data);
    return transact([&] { return send(codec_->seal(message)); },
                    [&](const unsigned char* datagram, std::size_t size) {
                        return answers(datagram, size, netFn, command, sequence, answer);
                    },
                    deadline, Resend::Steady);
}

// IPMI's 6-bit request sequence number.
unsigned char RmcpPlusSession::nextRequestSequence() {
    requestSequence_ = (requestSequence_ + 1) & 0x3F;
    return requestSequence_;
}

bool RmcpPlusSession::answers(const unsigned char* datagram, std::size_t size, unsigned char netFn,
                              unsigned char command, unsigned char sequence, Bytes& answer) {
    Bytes message;
    if (!codec_->open(datagram, size, message)) return false;
    if (RmcpPlusCodec::ipmiResponse(message, netFn, command, sequence, answer)) return true;
    if (!RmcpPlusCodec::ipmiResponse(message, netFn, command, sequence, answer,
                                     RmcpPlusCodec::Checksums::Ignored)) {
        return false;
    }
    // The checksums alone are wrong.
    if (suite_.signsPackets()) {
        note(kChecksumsUnderIntegrityCode);
        return true;
    }
    if (settings_.workarounds & kWorkaroundNoChecksumCheck) {
        note("nochecksumcheck");
        return true;
    }
    droppedForChecksums_ = true;
    return false;
}

bool RmcpPlusSession::transact(const std::function<bool()>& sendNext, const Acceptor& accept,
                               Clock::time_point deadline, Resend resend) {
    const Clock::time_point start = Clock::now();
    std::chrono::nanoseconds interval = firstResendInterval();
    for (resent_ = false;; resent_ = true) {
        if (!sendNext()) return false;
        if (awaitAnswer(accept, std::min(deadline, Clock::now() + interval))) {
            roundTrip_ = Clock::now() - start;
            return true;
        }
        if (Clock::now() >= deadline) return false;
        if (resend == Resend::Doubling)
            interval = std::min<std::chrono::nanoseconds>(2 * interval, settings_.timeout);
    }
}

// The configured interval, or twice the last round trip where that is longer (a slow BMC or a
// long path), so that an answer on its way is not asked for again; at most a quarter of the
// timeout, so that a lost datagram is sent again at least twice.
std::chrono::nanoseconds RmcpPlusSession::firstResendInterval() const {
    return std::min<std::chrono::nanoseconds>(
        std::max<std::chrono::nanoseconds>(settings_.retransmission, 2 * roundTrip_),
        std::max<std::chrono::nanoseconds>(settings_.retransmission, settings_.timeout / 4));
}

bool RmcpPlusSession::awaitAnswer(const Acceptor& accept, Clock::time_point until) {
    for (;;) {
        const Clock::time_point now = Clock::now();
        if (now >= until) return false;
        const auto wait = std::chrono::duration_cast<std::chrono::nanoseconds>(until - now);
        const timespec timeout{static_cast<time_t>(wait.count() / 1000000000),
                               static_cast<long>(wait.count() % 1000000000)};
        pollfd readable{socket_, POLLIN, 0};
        const int ready = ppoll(&readable, 1, &timeout, nullptr);
        if (ready < 0 && errno != EINTR) return false;
        if (ready <= 0) continue;
        sockaddr_storage source{};
        socklen_t sourceLength = sizeof source;
        const ssize_t size = recvfrom(socket_, datagram_.data(), datagram_.size(), 0,
                                      reinterpret_cast<sockaddr*>(&source), &sourceLength);
        if (size <= 0 || !fromBmc(source)) continue;
        if (accept(datagram_.data(), static_cast<std::size_t>(size))) {
            if (portOf(source) != portOf(bmcAddress_)) note(kAnswersFromAnotherPort);
            return true;
        }
        endDuplicateSession(datagram_.data(), static_cast<std::size_t>(size));
    }
}

bool RmcpPlusSession::send(const Bytes& packet) {
    // An unconnected socket hears nothing of a refused port (ICMP): the wait for an answer
    // decides, as it should, for the BMC may come back.
    const ssize_t sent =
        ::sendto(socket_, packet.data(), packet.size(), 0,
                 reinterpret_cast<const sockaddr*>(&bmcAddress_), bmcAddressLength_);
    return sent == static_cast<ssize_t>(packet.size());
}

bool RmcpPlusSession::fromBmc(const sockaddr_storage& source) const {
    if (source.ss_family != bmcAddress_.ss_family) return false;
    if (source.ss_family == AF_INET) {
        return reinterpret_cast<const sockaddr_in&>(source).sin_addr.s_addr ==
               reinterpret_cast<const sockaddr_in&>(bmcAddress_).sin_addr.s_addr;
    }
    if (source.ss_family != AF_INET6) return false;
    const in6_addr& from = reinterpret_cast<const sockaddr_in6&>(source).sin6_addr;
    const in6_addr& bmc = reinterpret_cast<const sockaddr_in6&>(bmcAddress_).sin6_addr;
    return std::memcmp(&from, &bmc, sizeof from) == 0;
}

// OpenIPMI's simulator, for one, opens a session for each Open Session it receives, resends
// included. The first answer is the session used; the others would hold a slot of the BMC's
// until it times them out.
void RmcpPlusSession::endDuplicateSession(const unsigned char* datagram, std::size_t size) {
    Bytes answer;
    if (!RmcpPlusCodec::sessionSetupPayload(datagram, size, RmcpPlusCodec::kOpenSessionResponse,
                                            answer)) {
        return;
    }
    // Tag, status, maximum privilege, reserved, our session ID, the BMC's session ID.
    ByteReader fields(answer, 1);
    const unsigned char status = fields.u8();
    fields.skip(2);
    const std::uint32_t consoleSessionId = fields.u32();
    const std::uint32_t bmcSessionId = fields.u32();
    if (!fields.ok() || status != 0x00 || consoleSessionId != rakp_.consoleSessionId ||
        bmcSessionId == 0 || bmcSessionId == rakp_.bmcSessionId) {
        return;
    }
    sendRakp3Refusal(bmcSessionId, kStatusInvalidSessionId);
}

void RmcpPlusSession::sendRakp3Refusal(std::uint32_t bmcSessionId, unsigned char status) {
    send(RmcpPlusCodec::sessionSetupPacket(
        RmcpPlusCodec::kRakp3, RmcpPlusCodec::rakp3Refusal(++tag_, bmcSessionId, status)));
}

void RmcpPlusSession::abandon(unsigned char status) {
    if (rakp_.bmcSessionId == 0) return;
    if (codec_) closeSession(std::chrono::milliseconds(0));
    sendRakp3Refusal(rakp_.bmcSessionId, status);
    forgetSession();
}

void RmcpPlusSession::close() {
    if (active_) {
        // Close Session frees the BMC's slot at once. After a request went unanswered the BMC
        // is likely gone: it is sent once, without waiting.
        closeSession(bmcAnswering_ ? std::min(settings_.timeout, 2 * settings_.retransmission)
                                   : std::chrono::milliseconds(0));
        forgetSession();
    }
    // A session the handshake left unfinished.
    abandon(kStatusInvalidSessionId);
    if (socket_ >= 0) ::close(socket_);
    socket_ = -1;
}

// Close Session for the session's ID as the BMC knows it, its answer awaited for `wait`.
void RmcpPlusSession::closeSession(std::chrono::milliseconds wait) {
    Bytes data;
    RmcpPlusCodec::appendLittleEndian32(data, rakp_.bmcSessionId);
    Bytes answer;
    request(kApp, kCloseSession, data, Clock::now() + wait, answer);
}

void RmcpPlusSession::forgetSession() {
    codec_.reset();
    active_ = false;
    rakp_.bmcSessionId = 0;
}
