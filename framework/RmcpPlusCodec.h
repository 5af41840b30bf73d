// The datagrams of IPMI v2.0 over the LAN (RMCP+, IPMI v2.0 section 13): what a remote console
// sends to a BMC and what it accepts back. No I/O here; RmcpPlusSession sends and receives.
// Every parser takes the whole datagram and its size, and rejects what does not fit.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "CipherSuite.h"

class AesCbc128;
class Hmac;

class RmcpPlusCodec {
public:
    using Bytes = std::vector<unsigned char>;

    // RMCP+ payload types (13.27.3).
    static constexpr unsigned char kIpmiMessage = 0x00;
    static constexpr unsigned char kOpenSessionRequest = 0x10;
    static constexpr unsigned char kOpenSessionResponse = 0x11;
    static constexpr unsigned char kRakp1 = 0x12;
    static constexpr unsigned char kRakp2 = 0x13;
    static constexpr unsigned char kRakp3 = 0x14;
    static constexpr unsigned char kRakp4 = 0x15;
    static constexpr std::size_t kRandomLength = 16;  // Rm, Rc and the BMC's GUID

    // Session IDs and sequence numbers travel least significant byte first.
    static void appendLittleEndian32(Bytes& out, std::uint32_t value);

    // An IPMI request message as the LAN carries it (13.8): from remote console software ID 81h
    // to the BMC at 20h, LUN 0, with both checksums.
    static Bytes ipmiRequest(unsigned char netFn, unsigned char command, unsigned char sequence,
                             const Bytes& data);
    // Whether an answer's checksums count: some BMCs get them wrong in answers that are otherwise
    // right.
    enum class Checksums { Checked, Ignored };
    // The completion code and data of the answer to that request, if `message` is that answer
    // (with valid checksums, unless ignored).
    static bool ipmiResponse(const Bytes& message, unsigned char netFn, unsigned char command,
                             unsigned char sequence, Bytes& answer,
                             Checksums checksums = Checksums::Checked);

    // Get Channel Authentication Capabilities for this channel with the IPMI v2.0 extended data,
    // in the IPMI v1.5 session-less packet every BMC answers.
    static Bytes channelAuthenticationCapabilitiesRequest(unsigned char privilege);
    // Get Channel Cipher Suites (IPMI v2.0 section 22.15) for this channel's IPMI messages, the
    // part `listIndex` (0 to 3Fh, 16 bytes each) of the list by cipher suite, in the same packet.
    static Bytes channelCipherSuitesRequest(unsigned char listIndex);
    // An IPMI request outside a session, in an IPMI v1.5 session-less packet.
    static Bytes sessionlessRequest(unsigned char netFn, unsigned char command,
                                    unsigned char sequence, const Bytes& data);
    // The IPMI message in a session-less IPMI v1.5 packet.
    static bool sessionlessMessage(const unsigned char* datagram, std::size_t size, Bytes& message);

    // An RMCP+ packet outside a session: session ID and sequence number 0, no integrity.
    static Bytes sessionSetupPacket(unsigned char payloadType, const Bytes& payload);
    static bool sessionSetupPayload(const unsigned char* datagram, std::size_t size,
                                    unsigned char payloadType, Bytes& payload);

    // `maximumPrivilege`: 0 asks for the highest level the algorithms allow.
    static Bytes openSessionRequest(unsigned char tag, std::uint32_t consoleSessionId,
                                    const CipherSuite& suite, unsigned char maximumPrivilege);
    static Bytes rakp1(unsigned char tag, std::uint32_t bmcSessionId,
                       const unsigned char (&consoleRandom)[kRandomLength], unsigned char role,
                       const std::string& user);
    static Bytes rakp3(unsigned char tag, std::uint32_t bmcSessionId, const Bytes& authCode);
    // RAKP message 3 with an error status and no code: how a remote console ends a session
    // whose handshake it will not finish (13.22).
    static Bytes rakp3Refusal(unsigned char tag, std::uint32_t bmcSessionId, unsigned char status);

    // The key exchange of one session (13.31), from which the RAKP codes and keys are computed.
    struct Rakp {
        std::uint32_t consoleSessionId = 0;
        std::uint32_t bmcSessionId = 0;
        unsigned char consoleRandom[kRandomLength] = {};  // Rm
        unsigned char bmcRandom[kRandomLength] = {};      // Rc
        unsigned char bmcGuid[kRandomLength] = {};
        unsigned char role = 0;  // requested privilege, with the name-only lookup bit
        std::string user;

        // What RAKP 2's key exchange code signs: SIDm, SIDc, Rm, Rc, GUIDc, RoleM, ULengthM,
        // UNameM.
        Bytes rakp2Signed() const;
        // RAKP 3's: Rc, SIDm, RoleM, ULengthM, UNameM.
        Bytes rakp3Signed() const;
        // The session integrity key's input: Rm, Rc, RoleM, ULengthM, UNameM.
        Bytes sessionKeyInput() const;
        // RAKP 4's integrity check value's: Rm, SIDc, GUIDc.
        Bytes rakp4Signed() const;
    };

    // The packets of an active session, protected as its cipher suite says: `k1` keys the
    // integrity codes, the first 16 bytes of `k2` the AES encryption.
    RmcpPlusCodec(const CipherSuite& suite, std::uint32_t bmcSessionId,
                  std::uint32_t consoleSessionId, const Bytes& k1, const Bytes& k2);
    ~RmcpPlusCodec();
    RmcpPlusCodec(const RmcpPlusCodec&) = delete;
    RmcpPlusCodec& operator=(const RmcpPlusCodec&) = delete;

    // The packet carrying `message`, with the session's next sequence number.
    Bytes seal(const Bytes& message);
    // The IPMI message in a packet of this session whose integrity code is right and whose
    // sequence number was not seen before.
    bool open(const unsigned char* datagram, std::size_t size, Bytes& message);

private:
    // An IPMI message with this session's encryption and integrity bits.
    unsigned char sessionPayloadType() const;
    bool freshSequenceNumber(std::uint32_t sequence);

    CipherSuite suite_;
    std::uint32_t bmcSessionId_;
    std::uint32_t consoleSessionId_;
    std::uint32_t sentSequence_ = 0;
    // Replay protection: the highest sequence number accepted and which of the 32 below it were.
    bool receivedAny_ = false;
    std::uint32_t highestReceived_ = 0;
    std::uint32_t receivedBelow_ = 0;
    std::unique_ptr<Hmac> integrity_;
    std::unique_ptr<AesCbc128> aes_;
};
