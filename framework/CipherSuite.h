// The security algorithms an RMCP+ cipher suite ID stands for (IPMI v2.0 table 22-20), limited to
// the suites this client speaks: RAKP with HMAC-SHA1, HMAC-MD5 or HMAC-SHA256, integrity with the
// same HMAC, and AES-CBC-128 or no confidentiality.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

struct CipherSuite {
    // Algorithm numbers as the Open Session request proposes them (IPMI v2.0 13.28).
    unsigned char authentication;  // 00h RAKP-none, 01h HMAC-SHA1, 02h HMAC-MD5, 03h HMAC-SHA256
    unsigned char integrity;  // 00h none, 01h HMAC-SHA1-96, 02h HMAC-MD5-128, 04h HMAC-SHA256-128
    unsigned char confidentiality;     // 00h none, 01h AES-CBC-128
    int digest;                        // the libgcrypt digest of every HMAC; 0 with RAKP-none
    std::size_t integrityCheckLength;  // bytes of the RAKP 4 check value and of each AuthCode

    bool authenticates() const { return authentication != 0; }
    bool signsPackets() const { return integrity != 0; }
    bool encrypts() const { return confidentiality != 0; }

    static std::optional<CipherSuite> find(unsigned long id);
};

// The IDs find() knows, for messages.
extern const char* const kSupportedCipherSuites;

// The cipher suite IDs of Get Channel Cipher Suites' records (IPMI v2.0 section 22.15), in their
// order, each once: C0h, the ID and three algorithm bytes; or C1h, the ID, the OEM's 3-byte IANA
// number and three algorithm bytes. The algorithm bytes carry tag bits (00b authentication, 01b
// integrity, 10b confidentiality) that some BMCs get wrong (Sun Fire 4100's ILOM), so that one may
// read as the start of a record: records are taken by position, never by their tags, and a byte
// where a record should start and none does is passed over.
std::vector<unsigned char> listedCipherSuites(const std::vector<unsigned char>& records);

// The suites to open a session with, in turn, when the client chooses: of those `offered` that it
// speaks, the strongest first (17, 3, 16, 2, 15, 1, 6; 0 only when `allowZero`), then 17 and 3
// where not among them, for a BMC that lists none (`offered` unset) or lists wrongly.
std::vector<unsigned long> cipherSuiteCandidates(
    const std::optional<std::vector<unsigned char>>& offered, bool allowZero);
