#include "CipherSuite.h"

#include <gcrypt.h>

#include <algorithm>

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

namespace {

constexpr unsigned char kStandardRecord = 0xC0;
constexpr unsigned char kOemRecord = 0xC1;
// Start byte and ID, the OEM's IANA number, and authentication, integrity and confidentiality.
constexpr std::size_t kStandardRecordLength = 2 + 3;
constexpr std::size_t kOemRecordLength = 2 + 3 + 3;

template <typename List, typename Value>
bool contains(const List& list, Value value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

}  // namespace

std::vector<unsigned char> listedCipherSuites(const std::vector<unsigned char>& records) {
    std::vector<unsigned char> ids;
    std::size_t at = 0;
    while (at < records.size()) {
        const unsigned char start = records[at];
        if (start != kStandardRecord && start != kOemRecord) {
            ++at;
            continue;
        }
        const std::size_t length =
            start == kStandardRecord ? kStandardRecordLength : kOemRecordLength;
        if (at + length > records.size()) break;  // cut short: no whole record
        if (!contains(ids, records[at + 1])) ids.push_back(records[at + 1]);
        at += length;
    }
    return ids;
}

std::vector<unsigned long> cipherSuiteCandidates(
    const std::optional<std::vector<unsigned char>>& offered, bool allowZero) {
    // 17 and 3 encrypt and sign (SHA-256, then SHA-1); 16 and 2 sign only; 15, 1 and 6 neither;
    // 0 does not even authenticate.
    static const unsigned long kStrongestFirst[] = {17, 3, 16, 2, 15, 1, 6, 0};
    static const unsigned long kCommon[] = {17, 3};
    std::vector<unsigned long> candidates;
    for (unsigned long id : kStrongestFirst) {
        if (offered && contains(*offered, id) && (id != 0 || allowZero)) candidates.push_back(id);
    }
    for (unsigned long id : kCommon) {
        if (!contains(candidates, id)) candidates.push_back(id);
    }
    return candidates;
}
