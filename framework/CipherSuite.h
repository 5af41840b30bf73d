// The security algorithms an RMCP+ cipher suite ID stands for (IPMI v2.0 table 22-20), limited to
// the suites this client speaks: RAKP with HMAC-SHA1, HMAC-MD5 or HMAC-SHA256, integrity with the
// same HMAC, and AES-CBC-128 or no confidentiality.
#pragma once

#include <cstddef>
#include <optional>

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
