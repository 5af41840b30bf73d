#include "CipherSuite.h"

#include <gcrypt.h>

const char* const kSupportedCipherSuites = "0-3, 6 and 15-17";

std::optional<CipherSuite> CipherSuite::find(unsigned long id) {
    // HMAC-SHA1-96 keeps 12 bytes of the 20; HMAC-MD5-128 all 16; HMAC-SHA256-128 16 of the 32.
    switch (id) {
        case 0:
            return CipherSuite{0x00, 0x00, 0x00, 0, 0};
        case 1:
            return CipherSuite{0x01, 0x00, 0x00, GCRY_MD_SHA1, 12};
        case 2:
            return CipherSuite{0x01, 0x01, 0x00, GCRY_MD_SHA1, 12};
        case 3:
            return CipherSuite{0x01, 0x01, 0x01, GCRY_MD_SHA1, 12};
        case 6:
            return CipherSuite{0x02, 0x00, 0x00, GCRY_MD_MD5, 16};
        case 15:
            return CipherSuite{0x03, 0x00, 0x00, GCRY_MD_SHA256, 16};
        case 16:
            return CipherSuite{0x03, 0x04, 0x00, GCRY_MD_SHA256, 16};
        case 17:
            return CipherSuite{0x03, 0x04, 0x01, GCRY_MD_SHA256, 16};
        default:
            return std::nullopt;
    }
}
