// The RMCP+ building blocks: HMAC and AES against published test vectors, the exact bytes of the
// requests a session sends, and what the codec accepts from a BMC.
#include <gtest/gtest.h>

#include <gcrypt.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "AesCbc128.h"
#include "CipherSuite.h"
#include "Hex.h"
#include "Hmac.h"
#include "RmcpPlusCodec.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Hexadecimal digits, spaces ignored.
Bytes fromHex(std::string hex) {
    hex.erase(std::remove(hex.begin(), hex.end(), ' '), hex.end());
    std::string bytes;
    EXPECT_TRUE(bytesFromHex(hex, bytes)) << hex;
    return Bytes(bytes.begin(), bytes.end());
}

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

Bytes operator+(Bytes head, const Bytes& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
}

TEST(HmacTest, MatchesTheRfcTestVectorsAndKeepsItsKeyAcrossDigests) {
    // RFC 2202 and RFC 4231, test case 2: key "Jefe".
    const Bytes data = text("what do ya want for nothing?");
    const struct {
        int digest;
        const char* expected;
    } cases[] = {
        {GCRY_MD_SHA1, "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"},
        {GCRY_MD_MD5, "750c783e6ab0b503eaa86e310a5db738"},
        {GCRY_MD_SHA256, "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
    };
    for (const auto& c : cases) {
        Hmac hmac(c.digest, text("Jefe"));
        EXPECT_EQ(hmac.of(data), fromHex(c.expected)) << c.digest;
        EXPECT_EQ(hmac.of(data), fromHex(c.expected)) << "second digest, digest " << c.digest;
    }
}

// libgcrypt is set up once per process, so each case runs in a new process of its own: a fork
// would inherit the set-up of the tests before it.
TEST(LibgcryptDeathTest, SecureMemoryStaysAvailableToTheProgramThatLoadsTheClient) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const Hmac hmac(GCRY_MD_SHA1, Bytes(20, 0x01));  // the first use initialises libgcrypt
            void* secret = gcry_malloc_secure(32);
            std::exit(secret != nullptr && gcry_is_secure(secret) ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(LibgcryptDeathTest, AProgramsOwnSetUpIsKept) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            gcry_check_version(nullptr);
            gcry_control(GCRYCTL_DISABLE_SECMEM, 0);
            gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
            const Hmac hmac(GCRY_MD_SHA1, Bytes(20, 0x01));
            void* plain = gcry_malloc_secure(32);
            std::exit(plain != nullptr && !gcry_is_secure(plain) ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(AesCbc128Test, MatchesNistSp800_38aAndDecryptsBack) {
    // SP 800-38A F.2.1, first block.
    const Bytes key = fromHex("2b7e151628aed2a6abf7158809cf4f3c");
    unsigned char keyBytes[16];
    std::copy(key.begin(), key.end(), keyBytes);
    unsigned char iv[16];
    const Bytes ivBytes = fromHex("000102030405060708090a0b0c0d0e0f");
    std::copy(ivBytes.begin(), ivBytes.end(), iv);
    Bytes block = fromHex("6bc1bee22e409f96e93d7e117393172a");
    AesCbc128 aes(keyBytes);
    aes.encrypt(iv, block.data(), block.size());
    EXPECT_EQ(block, fromHex("7649abac8119b246cee98e9b12e9197d"));
    aes.decrypt(iv, block.data(), block.size());
    EXPECT_EQ(block, fromHex("6bc1bee22e409f96e93d7e117393172a"));
}

TEST(CipherSuiteTest, NamesTheAlgorithmsOfEachSuiteItSpeaks) {
    const auto suite3 = CipherSuite::find(3);
    ASSERT_TRUE(suite3);
    EXPECT_EQ(suite3->authentication, 0x01);
    EXPECT_EQ(suite3->integrity, 0x01);
    EXPECT_EQ(suite3->confidentiality, 0x01);
    EXPECT_EQ(suite3->integrityCheckLength, 12u);
    const auto suite17 = CipherSuite::find(17);
    ASSERT_TRUE(suite17);
    EXPECT_EQ(suite17->authentication, 0x03);
    EXPECT_EQ(suite17->integrity, 0x04);
    EXPECT_EQ(suite17->confidentiality, 0x01);
    EXPECT_EQ(suite17->integrityCheckLength, 16u);
    EXPECT_FALSE(CipherSuite::find(0)->authenticates());
    for (unsigned long unspoken : {4ul, 5ul, 7ul, 11ul, 12ul, 18ul, 255ul, 256ul}) {
        EXPECT_FALSE(CipherSuite::find(unspoken)) << unspoken;
    }
}

TEST(RmcpPlusCodecTest, FramesAnIpmiRequestWithBothChecksums) {
    // Get SEL Entry (storage 0Ah, 43h), sequence 5.
    EXPECT_EQ(RmcpPlusCodec::ipmiRequest(0x0A, 0x43, 5, {0, 0, 0, 0, 0, 0xFF}),
              fromHex("20 28 B8 81 14 43 00 00 00 00 00 FF 29"));
}

TEST(RmcpPlusCodecTest, TakesOnlyTheAnswerToItsRequest) {
    // Get Device ID answered with sequence 7, completion code 00h and two data bytes.
    const Bytes answer = fromHex("81 1C 63 20 1C 01 00 11 22 90");
    Bytes data;
    ASSERT_TRUE(RmcpPlusCodec::ipmiResponse(answer, 0x06, 0x01, 7, data));
    EXPECT_EQ(data, fromHex("00 11 22"));
    EXPECT_FALSE(RmcpPlusCodec::ipmiResponse(answer, 0x06, 0x01, 8, data));  // other sequence
    EXPECT_FALSE(RmcpPlusCodec::ipmiResponse(answer, 0x06, 0x02, 7, data));  // other command
    EXPECT_FALSE(RmcpPlusCodec::ipmiResponse(answer, 0x0A, 0x01, 7, data));  // other netFn
    Bytes corrupted = answer;
    corrupted[7] ^= 0x01;
    EXPECT_FALSE(RmcpPlusCodec::ipmiResponse(corrupted, 0x06, 0x01, 7, data));
    for (std::size_t size = 0; size < answer.size(); ++size) {
        EXPECT_FALSE(RmcpPlusCodec::ipmiResponse(Bytes(answer.begin(), answer.begin() + size), 0x06,
                                                 0x01, 7, data))
            << size;
    }
}

TEST(RmcpPlusCodecTest, TakesAnAnswerWithWrongChecksumsOnlyWhenToldToIgnoreThem) {
    // The Get Device ID answer above with both checksums off by one.
    const Bytes answer = fromHex("81 1C 64 20 1C 01 00 11 22 91");
    Bytes data;
    EXPECT_FALSE(RmcpPlusCodec::ipmiResponse(answer, 0x06, 0x01, 7, data));
    ASSERT_TRUE(RmcpPlusCodec::ipmiResponse(answer, 0x06, 0x01, 7, data,
                                            RmcpPlusCodec::Checksums::Ignored));
    EXPECT_EQ(data, fromHex("00 11 22"));
    EXPECT_FALSE(RmcpPlusCodec::ipmiResponse(answer, 0x06, 0x02, 7, data,
                                             RmcpPlusCodec::Checksums::Ignored));
}

TEST(RmcpPlusCodecTest, AsksForChannelCapabilitiesInAnIpmi15Packet) {
    EXPECT_EQ(RmcpPlusCodec::channelAuthenticationCapabilitiesRequest(0x04),
              fromHex("06 00 FF 07 00 00 00 00 00 00 00 00 00 09 20 18 C8 81 00 38 8E 04 B5"));
    const Bytes answer = fromHex("06 00 FF 07 00 00 00 00 00 00 00 00 00 02 AB CD");
    Bytes message;
    ASSERT_TRUE(RmcpPlusCodec::sessionlessMessage(answer.data(), answer.size(), message));
    EXPECT_EQ(message, fromHex("AB CD"));
    EXPECT_FALSE(RmcpPlusCodec::sessionlessMessage(answer.data(), answer.size() - 1, message));
}

TEST(RmcpPlusCodecTest, AsksForAPartOfTheCipherSuitesInAnIpmi15Packet) {
    // Channel 0Eh, IPMI payloads, list index 2 by cipher suite; the index is the sequence number.
    EXPECT_EQ(RmcpPlusCodec::channelCipherSuitesRequest(2),
              fromHex("06 00 FF 07 00 00 00 00 00 00 00 00 00 0A 20 18 C8 81 08 54 0E 00 82 93"));
}

TEST(RmcpPlusCodecTest, CipherSuiteRecordsAreReadByPositionWhateverTheirTags) {
    // Standard records for 3 and 17, an OEM one for 80h (IANA 343), 3 again.
    EXPECT_EQ(listedCipherSuites(fromHex("C0 03 01 41 81 C0 11 03 44 81 C1 80 57 01 00 01 41 81"
                                         "C0 03 01 41 81")),
              Bytes({3, 17, 0x80}));
    // Integrity and confidentiality tagged 11b, as if each started a record.
    EXPECT_EQ(listedCipherSuites(fromHex("C0 03 01 C1 C1 C0 11 03 C4 C1 C0 02 01 C1 C0")),
              Bytes({3, 17, 2}));
    // Bytes where no record starts are passed over; a record cut short is not one.
    EXPECT_EQ(listedCipherSuites(fromHex("00 C0 01 01 40 80 C0 11 03")), Bytes({1}));
    EXPECT_EQ(listedCipherSuites({}), Bytes());
}

TEST(RmcpPlusCodecTest, CandidateSuitesAreTheStrongestOfferedThen17And3) {
    using Ids = std::vector<unsigned long>;
    EXPECT_EQ(cipherSuiteCandidates(std::nullopt, false), Ids({17, 3}));
    EXPECT_EQ(cipherSuiteCandidates(Bytes{}, false), Ids({17, 3}));
    EXPECT_EQ(cipherSuiteCandidates(Bytes{3, 17}, false), Ids({17, 3}));
    EXPECT_EQ(cipherSuiteCandidates(Bytes{3}, false), Ids({3, 17}));
    EXPECT_EQ(cipherSuiteCandidates(Bytes{0, 1, 2, 4, 6, 7, 15, 16, 0x80}, false),
              Ids({16, 2, 15, 1, 6, 17, 3}));
    EXPECT_EQ(cipherSuiteCandidates(Bytes{0, 1}, true), Ids({1, 0, 17, 3}));
}

TEST(RmcpPlusCodecTest, ProposesTheSuitesAlgorithmsInOpenSession) {
    const Bytes payload =
        RmcpPlusCodec::openSessionRequest(0x01, 0x11223344, *CipherSuite::find(17), 0x00);
    EXPECT_EQ(payload, fromHex("01 00 00 00 44 33 22 11"
                               "00 00 00 08 03 00 00 00"
                               "01 00 00 08 04 00 00 00"
                               "02 00 00 08 01 00 00 00"));
    // A privilege level asked for: administrator.
    EXPECT_EQ(RmcpPlusCodec::openSessionRequest(0x01, 0x11223344, *CipherSuite::find(17), 0x04)[1],
              0x04);
    EXPECT_EQ(RmcpPlusCodec::sessionSetupPacket(RmcpPlusCodec::kOpenSessionRequest, {0xAA}),
              fromHex("06 00 FF 07 06 10 00 00 00 00 00 00 00 00 01 00 AA"));
}

TEST(RmcpPlusCodecTest, SendsRakp1AndRakp3AsLaidDown) {
    unsigned char random[16];
    for (unsigned char i = 0; i < 16; ++i) random[i] = i;
    EXPECT_EQ(RmcpPlusCodec::rakp1(0x02, 0xA1B2C3D4, random, 0x14, "admin"),
              fromHex("02 00 00 00 D4 C3 B2 A1 000102030405060708090A0B0C0D0E0F 14 00 00 05") +
                  text("admin"));
    EXPECT_EQ(RmcpPlusCodec::rakp3(0x03, 0xA1B2C3D4, {0xEE, 0xFF}),
              fromHex("03 00 00 00 D4 C3 B2 A1 EE FF"));
}

TEST(RmcpPlusCodecTest, SignsTheKeyExchangeInTheOrderEachRakpMessageNeeds) {
    RmcpPlusCodec::Rakp rakp;
    rakp.consoleSessionId = 0x11223344;
    rakp.bmcSessionId = 0xA1B2C3D4;
    std::fill(std::begin(rakp.consoleRandom), std::end(rakp.consoleRandom), 0x0A);
    std::fill(std::begin(rakp.bmcRandom), std::end(rakp.bmcRandom), 0x0B);
    std::fill(std::begin(rakp.bmcGuid), std::end(rakp.bmcGuid), 0x0C);
    rakp.role = 0x14;
    rakp.user = "admin";
    const Bytes rm(16, 0x0A), rc(16, 0x0B), guid(16, 0x0C);
    const Bytes user = fromHex("14 05") + text("admin");
    EXPECT_EQ(rakp.rakp2Signed(), fromHex("44 33 22 11 D4 C3 B2 A1") + rm + rc + guid + user);
    EXPECT_EQ(rakp.rakp3Signed(), rc + fromHex("44 33 22 11") + user);
    EXPECT_EQ(rakp.sessionKeyInput(), rm + rc + user);
    EXPECT_EQ(rakp.rakp4Signed(), rm + fromHex("D4 C3 B2 A1") + guid);
}

// Both ends of one session: the BMC's codec sends with the console's session ID.
struct SessionEnds {
    static constexpr std::uint32_t kConsoleId = 0x11223344;
    static constexpr std::uint32_t kBmcId = 0xA1B2C3D4;
    explicit SessionEnds(const CipherSuite& suite)
        : console(suite, kBmcId, kConsoleId, Bytes(32, 0x01), Bytes(32, 0x02)),
          bmc(suite, kConsoleId, kBmcId, Bytes(32, 0x01), Bytes(32, 0x02)) {}
    RmcpPlusCodec console;
    RmcpPlusCodec bmc;
};

TEST(RmcpPlusCodecTest, LaysOutAnEncryptedSignedPacket) {
    SessionEnds ends(*CipherSuite::find(3));
    const Bytes message(10, 0x55);
    const Bytes packet = ends.console.seal(message);
    // RMCP header, auth type 06h, payload type with the encrypted and authenticated bits, the
    // BMC's session ID, sequence number 1, payload length 32 (IV and one block), then two bytes
    // of integrity pad, pad length, next header and 12 bytes of HMAC-SHA1-96.
    ASSERT_EQ(packet.size(), 4u + 12 + 32 + 2 + 2 + 12);
    EXPECT_EQ(Bytes(packet.begin(), packet.begin() + 16),
              fromHex("06 00 FF 07 06 C0 D4 C3 B2 A1 01 00 00 00 20 00"));
    EXPECT_EQ(Bytes(packet.begin() + 48, packet.begin() + 52), fromHex("FF FF 02 07"));
    const Bytes next = ends.console.seal(message);
    EXPECT_EQ(next[10], 0x02);  // the next sequence number
    // A fresh IV each time: the same message encrypts differently.
    EXPECT_NE(Bytes(next.begin() + 16, next.begin() + 48),
              Bytes(packet.begin() + 16, packet.begin() + 48));
}

TEST(RmcpPlusCodecTest, OpensWhatTheOtherEndSealsForEverySuite) {
    for (unsigned long id : {0ul, 1ul, 2ul, 3ul, 6ul, 15ul, 16ul, 17ul}) {
        SessionEnds ends(*CipherSuite::find(id));
        for (std::size_t length : {0u, 1u, 15u, 16u, 17u, 40u}) {
            const Bytes message(length, static_cast<unsigned char>(length));
            const Bytes packet = ends.bmc.seal(message);
            Bytes opened;
            ASSERT_TRUE(ends.console.open(packet.data(), packet.size(), opened))
                << "suite " << id << ", " << length << " bytes";
            EXPECT_EQ(opened, message);
        }
    }
}

TEST(RmcpPlusCodecTest, RefusesPacketsThatAreAlteredCutShortForeignOrReplayed) {
    SessionEnds ends(*CipherSuite::find(3));
    const Bytes packet = ends.bmc.seal(Bytes(20, 0x42));
    Bytes opened;
    for (std::size_t i = 0; i < packet.size(); ++i) {
        Bytes altered = packet;
        altered[i] ^= 0x01;
        EXPECT_FALSE(ends.console.open(altered.data(), altered.size(), opened)) << "byte " << i;
    }
    for (std::size_t size = 0; size < packet.size(); ++size) {
        EXPECT_FALSE(ends.console.open(packet.data(), size, opened)) << size << " bytes";
    }
    // The BMC's own end does not take its packet: the session ID is the console's.
    EXPECT_FALSE(ends.bmc.open(packet.data(), packet.size(), opened));
    ASSERT_TRUE(ends.console.open(packet.data(), packet.size(), opened));
    EXPECT_FALSE(ends.console.open(packet.data(), packet.size(), opened)) << "replayed";
}

TEST(RmcpPlusCodecTest, TakesLatePacketsOnceWithinThirtyTwoSequenceNumbers) {
    SessionEnds ends(*CipherSuite::find(2));
    std::vector<Bytes> packets;
    for (int i = 0; i < 40; ++i) packets.push_back(ends.bmc.seal({static_cast<unsigned char>(i)}));
    Bytes opened;
    ASSERT_TRUE(ends.console.open(packets[39].data(), packets[39].size(), opened));
    EXPECT_TRUE(ends.console.open(packets[7].data(), packets[7].size(), opened));  // 32 behind
    EXPECT_FALSE(ends.console.open(packets[7].data(), packets[7].size(), opened));
    EXPECT_FALSE(ends.console.open(packets[6].data(), packets[6].size(), opened));  // 33 behind
    EXPECT_TRUE(ends.console.open(packets[38].data(), packets[38].size(), opened));
}

TEST(RmcpPlusCodecTest, TakesSequenceNumbersThatStepByTwo) {
    SessionEnds ends(*CipherSuite::find(17));
    Bytes opened;
    // Past the 32 numbers of the replay window, twice over; each packet once.
    for (int i = 0; i < 70; ++i) {
        ends.bmc.seal({});  // a number the BMC skips
        const Bytes packet = ends.bmc.seal({static_cast<unsigned char>(i)});
        ASSERT_TRUE(ends.console.open(packet.data(), packet.size(), opened)) << i;
        EXPECT_EQ(opened, Bytes{static_cast<unsigned char>(i)});
        EXPECT_FALSE(ends.console.open(packet.data(), packet.size(), opened)) << i << " replayed";
    }
}

}  // namespace
