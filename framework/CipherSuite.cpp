#include "CipherSuite.h"

#include <gcrypt.h>

const char* const kSupportedCipherSuites = "0-3, 6 and 15-17";

std::optional<CipherSuite> CipherSuite::find(unsigned long id) {
    // IPMI v2.0 table 22-20. HMAC-SHA1-96 keeps 12 bytes of the 20; HMAC-MD5-128 all 16;
    // HMAC-SHA256-128 16 of the 32.
    static const struct {
        unsigned long id;
        CipherSuite suite;
    } kSuites[] = {
        {0, {0x00, 0x00, 0x00, 0, 0}},
        {1, {0x01, 0x00, 0x00, GCRY_MD_SHA1, 12}},
        {2, {0x01, 0x01, 0x00, GCRY_MD_SHA1, 12}},
        {3, {0x01, 0x01, 0x01, GCRY_MD_SHA1, 12}},
        {6, {0x02, 0x00, 0x00, GCRY_MD_MD5, 16}},
        {15, {0x03, 0x00, 0x00, GCRY_MD_SHA256, 16}},
        {16, {0x03, 0x04, 0x00, GCRY_MD_SHA256, 16}},
        {17, {0x03, 0x04, 0x01, GCRY_MD_SHA256, 16}},
    };
    for (const auto& known : kSuites) {
        if (known.id == id) return known.suite;
    }
    return std::nullopt;
}
