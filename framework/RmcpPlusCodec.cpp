#include "RmcpPlusCodec.h"

#include <gcrypt.h>

#include <algorithm>
#include <cstring>

#include "AesCbc128.h"
#include "Hmac.h"
#include "ipmi/ByteReader.h"

namespace {

using Bytes = RmcpPlusCodec::Bytes;

// RMCP header (ASF 2.0 / IPMI 13.1.3): version 1.0, reserved, sequence FFh (no RMCP ACK), class
// IPMI.
constexpr unsigned char kRmcpHeader[] = {0x06, 0x00, 0xFF, 0x07};
constexpr std::size_t kRmcpHeaderLength = sizeof kRmcpHeader;
constexpr unsigned char kAuthTypeNone = 0x00;
constexpr unsigned char kAuthTypeRmcpPlus = 0x06;
constexpr unsigned char kPayloadEncrypted = 0x80;
constexpr unsigned char kPayloadAuthenticated = 0x40;
constexpr unsigned char kNextHeader = 0x07;  // fixed value ending the session trailer
constexpr unsigned char kIntegrityPad = 0xFF;

constexpr unsigned char kBmcAddress = 0x20;
constexpr unsigned char kConsoleSoftwareId = 0x81;
constexpr std::size_t kLongestUserName = 16;

// The two's complement checksum that makes the bytes sum to zero (13.8).
unsigned char checksum(const unsigned char* bytes, std::size_t size) {
    unsigned sum = 0;
    for (std::size_t i = 0; i < size; ++i) sum += bytes[i];
    return static_cast<unsigned char>(-sum);
}

bool sumsToZero(const unsigned char* bytes, std::size_t size) { return checksum(bytes, size) == 0; }

// True when `packet` starts with the RMCP header of IPMI messages.
bool readRmcpHeader(ByteReader& packet) {
    unsigned char header[kRmcpHeaderLength];
    packet.bytes(header, kRmcpHeaderLength);
    return packet.ok() && std::equal(kRmcpHeader, kRmcpHeader + kRmcpHeaderLength, header);
}

// The session header of an RMCP+ packet.
struct SessionHeader {
    unsigned char payloadType;
    std::uint32_t sessionId;
    std::uint32_t sequence;
    std::size_t payloadLength;
};

// The RMCP header, then the session header: auth type, payload type, session ID, sequence number,
// payload length. True when the payload fits; `packet` is left at it.
bool readSessionHeader(ByteReader& packet, SessionHeader& header) {
    if (!readRmcpHeader(packet) || packet.u8() != kAuthTypeRmcpPlus) return false;
    header.payloadType = packet.u8();
    header.sessionId = packet.u32();
    header.sequence = packet.u32();
    header.payloadLength = packet.u16();
    return packet.ok() && header.payloadLength <= packet.remaining();
}

Bytes sessionPacket(unsigned char payloadType, std::uint32_t sessionId, std::uint32_t sequence,
                    std::size_t payloadLength) {
    Bytes packet(kRmcpHeader, kRmcpHeader + kRmcpHeaderLength);
    packet.push_back(kAuthTypeRmcpPlus);
    packet.push_back(payloadType);
    RmcpPlusCodec::appendLittleEndian32(packet, sessionId);
    RmcpPlusCodec::appendLittleEndian32(packet, sequence);
    packet.push_back(static_cast<unsigned char>(payloadLength));
    packet.push_back(static_cast<unsigned char>(payloadLength >> 8));
    return packet;
}

void appendAlgorithm(Bytes& out, unsigned char payloadType, unsigned char algorithm) {
    // Type, two reserved bytes, payload length 8, algorithm, three reserved bytes (13.17).
    const unsigned char record[] = {payloadType, 0, 0, 8, algorithm, 0, 0, 0};
    out.insert(out.end(), record, record + sizeof record);
}

void appendUser(Bytes& out, unsigned char role, const std::string& user) {
    const std::size_t length = std::min(user.size(), kLongestUserName);
    out.push_back(role);
    out.push_back(static_cast<unsigned char>(length));
    out.insert(out.end(), user.begin(), user.begin() + length);
}

}  // namespace

void RmcpPlusCodec::appendLittleEndian32(Bytes& out, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) {
        out.push_back(static_cast<unsigned char>(value >> shift));
    }
}

Bytes RmcpPlusCodec::ipmiRequest(unsigned char netFn, unsigned char command, unsigned char sequence,
                                 const Bytes& data) {
    Bytes message = {kBmcAddress, static_cast<unsigned char>(netFn << 2)};
    message.push_back(checksum(message.data(), 2));
    message.push_back(kConsoleSoftwareId);
    message.push_back(static_cast<unsigned char>(sequence << 2));
    message.push_back(command);
    message.insert(message.end(), data.begin(), data.end());
    message.push_back(checksum(message.data() + 3, message.size() - 3));
    return message;
}

bool RmcpPlusCodec::ipmiResponse(const Bytes& message, unsigned char netFn, unsigned char command,
                                 unsigned char sequence, Bytes& answer, Checksums checksums) {
    // Requester, netFn/LUN, checksum, responder, sequence/LUN, command, completion code, data,
    // checksum.
    if (message.size() < 8) return false;
    if (checksums == Checksums::Checked &&
        (!sumsToZero(message.data(), 3) || !sumsToZero(message.data() + 3, message.size() - 3))) {
        return false;
    }
    const unsigned char responseNetFn = static_cast<unsigned char>((netFn | 1) << 2);
    if (message[0] != kConsoleSoftwareId || (message[1] & 0xFC) != responseNetFn ||
        message[3] != kBmcAddress || message[4] >> 2 != (sequence & 0x3F) ||
        message[5] != command) {
        return false;
    }
    answer.assign(message.begin() + 6, message.end() - 1);
    return true;
}

Bytes RmcpPlusCodec::sessionlessRequest(unsigned char netFn, unsigned char command,
                                        unsigned char sequence, const Bytes& data) {
    const Bytes message = ipmiRequest(netFn, command, sequence, data);
    Bytes packet(kRmcpHeader, kRmcpHeader + kRmcpHeaderLength);
    // IPMI v1.5 session header: no authentication, sequence number and session ID 0.
    packet.push_back(kAuthTypeNone);
    packet.insert(packet.end(), 8, 0x00);
    packet.push_back(static_cast<unsigned char>(message.size()));
    packet.insert(packet.end(), message.begin(), message.end());
    return packet;
}

Bytes RmcpPlusCodec::channelAuthenticationCapabilitiesRequest(unsigned char privilege) {
    constexpr unsigned char app = 0x06;
    constexpr unsigned char getChannelAuthenticationCapabilities = 0x38;
    // Channel 0Eh (the one this arrives on) with bit 7: report IPMI v2.0 capabilities.
    return sessionlessRequest(app, getChannelAuthenticationCapabilities, 0, {0x8E, privilege});
}

Bytes RmcpPlusCodec::channelCipherSuitesRequest(unsigned char listIndex) {
    constexpr unsigned char app = 0x06;
    constexpr unsigned char getChannelCipherSuites = 0x54;
    constexpr unsigned char thisChannel = 0x0E;
    constexpr unsigned char ipmiPayload = 0x00;
    constexpr unsigned char byCipherSuite = 0x80;
    // The list index is the request's sequence number too, so that a late answer for one part is
    // not taken for the next.
    return sessionlessRequest(
        app, getChannelCipherSuites, listIndex,
        {thisChannel, ipmiPayload, static_cast<unsigned char>(byCipherSuite | listIndex)});
}

bool RmcpPlusCodec::sessionlessMessage(const unsigned char* datagram, std::size_t size,
                                       Bytes& message) {
    // IPMI v1.5 session header: auth type, sequence number, session ID, message length.
    ByteReader packet(datagram, size);
    if (!readRmcpHeader(packet) || packet.u8() != kAuthTypeNone) return false;
    packet.skip(8);
    const std::size_t length = packet.u8();
    packet.bytes(message, length);
    return packet.ok();
}

Bytes RmcpPlusCodec::sessionSetupPacket(unsigned char payloadType, const Bytes& payload) {
    Bytes packet = sessionPacket(payloadType, 0, 0, payload.size());
    packet.insert(packet.end(), payload.begin(), payload.end());
    return packet;
}

bool RmcpPlusCodec::sessionSetupPayload(const unsigned char* datagram, std::size_t size,
                                        unsigned char payloadType, Bytes& payload) {
    ByteReader packet(datagram, size);
    SessionHeader header;
    if (!readSessionHeader(packet, header) || header.payloadType != payloadType) return false;
    packet.bytes(payload, header.payloadLength);
    return true;
}

Bytes RmcpPlusCodec::openSessionRequest(unsigned char tag, std::uint32_t consoleSessionId,
                                        const CipherSuite& suite, unsigned char maximumPrivilege) {
    // Tag, requested maximum privilege, two reserved bytes, our session ID.
    Bytes payload = {tag, maximumPrivilege, 0x00, 0x00};
    appendLittleEndian32(payload, consoleSessionId);
    appendAlgorithm(payload, 0x00, suite.authentication);
    appendAlgorithm(payload, 0x01, suite.integrity);
    appendAlgorithm(payload, 0x02, suite.confidentiality);
    return payload;
}

Bytes RmcpPlusCodec::rakp1(unsigned char tag, std::uint32_t bmcSessionId,
                           const unsigned char (&consoleRandom)[kRandomLength], unsigned char role,
                           const std::string& user) {
    Bytes payload = {tag, 0x00, 0x00, 0x00};
    appendLittleEndian32(payload, bmcSessionId);
    payload.insert(payload.end(), consoleRandom, consoleRandom + kRandomLength);
    // Role, two reserved bytes, then the user name's length and the name.
    payload.push_back(role);
    payload.push_back(0x00);
    payload.push_back(0x00);
    const std::size_t length = std::min(user.size(), kLongestUserName);
    payload.push_back(static_cast<unsigned char>(length));
    payload.insert(payload.end(), user.begin(), user.begin() + length);
    return payload;
}

Bytes RmcpPlusCodec::rakp3(unsigned char tag, std::uint32_t bmcSessionId, const Bytes& authCode) {
    // Status 00h (no errors), then the key exchange code.
    Bytes payload = rakp3Refusal(tag, bmcSessionId, 0x00);
    payload.insert(payload.end(), authCode.begin(), authCode.end());
    return payload;
}

Bytes RmcpPlusCodec::rakp3Refusal(unsigned char tag, std::uint32_t bmcSessionId,
                                  unsigned char status) {
    // Tag, status, two reserved bytes, the BMC's session ID.
    Bytes payload = {tag, status, 0x00, 0x00};
    appendLittleEndian32(payload, bmcSessionId);
    return payload;
}

Bytes RmcpPlusCodec::Rakp::rakp2Signed() const {
    Bytes input;
    appendLittleEndian32(input, consoleSessionId);
    appendLittleEndian32(input, bmcSessionId);
    input.insert(input.end(), consoleRandom, consoleRandom + kRandomLength);
    input.insert(input.end(), bmcRandom, bmcRandom + kRandomLength);
    input.insert(input.end(), bmcGuid, bmcGuid + kRandomLength);
    appendUser(input, role, user);
    return input;
}

Bytes RmcpPlusCodec::Rakp::rakp3Signed() const {
    Bytes input(bmcRandom, bmcRandom + kRandomLength);
    appendLittleEndian32(input, consoleSessionId);
    appendUser(input, role, user);
    return input;
}

Bytes RmcpPlusCodec::Rakp::sessionKeyInput() const {
    Bytes input(consoleRandom, consoleRandom + kRandomLength);
    input.insert(input.end(), bmcRandom, bmcRandom + kRandomLength);
    appendUser(input, role, user);
    return input;
}

Bytes RmcpPlusCodec::Rakp::rakp4Signed() const {
    Bytes input(consoleRandom, consoleRandom + kRandomLength);
    appendLittleEndian32(input, bmcSessionId);
    input.insert(input.end(), bmcGuid, bmcGuid + kRandomLength);
    return input;
}

RmcpPlusCodec::RmcpPlusCodec(const CipherSuite& suite, std::uint32_t bmcSessionId,
                             std::uint32_t consoleSessionId, const Bytes& k1, const Bytes& k2)
    : suite_(suite), bmcSessionId_(bmcSessionId), consoleSessionId_(consoleSessionId) {
    if (suite.signsPackets()) integrity_ = std::make_unique<Hmac>(suite.digest, k1);
    if (suite.encrypts()) {
        unsigned char key[AesCbc128::kBlock] = {};
        std::copy_n(k2.begin(), std::min(k2.size(), sizeof key), key);
        aes_ = std::make_unique<AesCbc128>(key);
    }
}

RmcpPlusCodec::~RmcpPlusCodec() = default;

Bytes RmcpPlusCodec::seal(const Bytes& message) {
    Bytes payload;
    if (aes_) {
        // IV, then the message, confidentiality pad 01h 02h ..., and the pad's length, encrypted
        // to whole blocks (13.29).
        unsigned char iv[AesCbc128::kBlock];
        gcry_randomize(iv, sizeof iv, GCRY_STRONG_RANDOM);
        const std::size_t pad = AesCbc128::kBlock - 1 - message.size() % AesCbc128::kBlock;
        payload.reserve(sizeof iv + message.size() + pad + 1);
        payload.assign(iv, iv + sizeof iv);
        payload.insert(payload.end(), message.begin(), message.end());
        for (std::size_t i = 1; i <= pad; ++i) payload.push_back(static_cast<unsigned char>(i));
        payload.push_back(static_cast<unsigned char>(pad));
        aes_->encrypt(iv, payload.data() + sizeof iv, payload.size() - sizeof iv);
    }
    const Bytes& body = aes_ ? payload : message;
    // Sequence numbers start at 1 once the session is active; each packet takes the next.
    Bytes packet = sessionPacket(sessionPayloadType(), bmcSessionId_, ++sentSequence_, body.size());
    packet.insert(packet.end(), body.begin(), body.end());
    if (integrity_) {
        // Integrity pad (FFh) so that everything from the auth type to the next header is whole
        // 4-byte words, pad length, next header, then the truncated HMAC of all of it.
        const std::size_t pad = (4 - (packet.size() - kRmcpHeaderLength + 2) % 4) % 4;
        packet.insert(packet.end(), pad, kIntegrityPad);
        packet.push_back(static_cast<unsigned char>(pad));
        packet.push_back(kNextHeader);
        const unsigned char* code =
            integrity_->of(packet.data() + kRmcpHeaderLength, packet.size() - kRmcpHeaderLength);
        packet.insert(packet.end(), code, code + suite_.integrityCheckLength);
    }
    return packet;
}

bool RmcpPlusCodec::open(const unsigned char* datagram, std::size_t size, Bytes& message) {
    ByteReader packet(datagram, size);
    SessionHeader header;
    if (!readSessionHeader(packet, header) || header.payloadType != sessionPayloadType() ||
        header.sessionId != consoleSessionId_) {
        return false;
    }
    if (integrity_) {
        // Integrity pad, pad length, next header, AuthCode: the pad fills what the others leave.
        const std::size_t codeLength = suite_.integrityCheckLength;
        ByteReader trailer = packet;
        trailer.skip(header.payloadLength);
        if (trailer.remaining() < 2 + codeLength) return false;
        const std::size_t pad = trailer.remaining() - 2 - codeLength;
        trailer.skip(pad);
        if (trailer.u8() != pad || trailer.u8() != kNextHeader) return false;
        const std::size_t signedEnd = size - codeLength;
        const unsigned char* code =
            integrity_->of(datagram + kRmcpHeaderLength, signedEnd - kRmcpHeaderLength);
        if (!std::equal(code, code + codeLength, datagram + signedEnd)) return false;
        if (!freshSequenceNumber(header.sequence)) return false;
    }
    if (!aes_) {
        packet.bytes(message, header.payloadLength);
        return true;
    }
    // The IV, then the encrypted message.
    const std::size_t encrypted =
        header.payloadLength - std::min(header.payloadLength, AesCbc128::kBlock);
    if (encrypted == 0 || encrypted % AesCbc128::kBlock != 0) return false;
    unsigned char iv[AesCbc128::kBlock];
    packet.bytes(iv, sizeof iv);
    packet.bytes(message, encrypted);
    aes_->decrypt(iv, message.data(), message.size());
    const std::size_t pad = message.back();
    if (pad >= AesCbc128::kBlock) return false;
    message.resize(message.size() - pad - 1);
    return true;
}

unsigned char RmcpPlusCodec::sessionPayloadType() const {
    // Both directions carry the protection the suite negotiated.
    return kIpmiMessage | (aes_ ? kPayloadEncrypted : 0) | (integrity_ ? kPayloadAuthenticated : 0);
}

bool RmcpPlusCodec::freshSequenceNumber(std::uint32_t sequence) {
    // Bit i of receivedBelow_ stands for highestReceived_ - (i + 1).
    constexpr std::uint32_t window = 32;
    if (!receivedAny_) {
        receivedAny_ = true;
        highestReceived_ = sequence;
        return true;
    }
    if (sequence > highestReceived_) {
        const std::uint32_t ahead = sequence - highestReceived_;
        if (ahead > window) {
            receivedBelow_ = 0;
        } else if (ahead == window) {
            receivedBelow_ = 1u << (window - 1);
        } else {
            receivedBelow_ = receivedBelow_ << ahead | 1u << (ahead - 1);
        }
        highestReceived_ = sequence;
        return true;
    }
    const std::uint32_t behind = highestReceived_ - sequence;
    if (behind == 0 || behind > window) return false;
    const std::uint32_t bit = 1u << (behind - 1);
    if (receivedBelow_ & bit) return false;
    receivedBelow_ |= bit;
    return true;
}
