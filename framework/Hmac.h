// A keyed HMAC (RFC 2104) on libgcrypt: the key is set once, and every digest starts from it again.
// An RMCP+ session keys one with the user's password for the RAKP handshake, one with the session
// integrity key (SIK) for the session keys, and one with K1 for every packet's integrity code.
#pragma once

#include <cstddef>
#include <vector>

struct gcry_md_handle;

class Hmac {
public:
    // `digest` is a libgcrypt message digest (GCRY_MD_SHA1, GCRY_MD_MD5, GCRY_MD_SHA256).
    Hmac(int digest, const unsigned char* key, std::size_t keyLength);
    Hmac(int digest, const std::vector<unsigned char>& key);
    ~Hmac();
    Hmac(const Hmac&) = delete;
    Hmac& operator=(const Hmac&) = delete;

    std::size_t length() const { return length_; }
    // The HMAC of `size` bytes; valid until the next call.
    const unsigned char* of(const unsigned char* data, std::size_t size);
    std::vector<unsigned char> of(const std::vector<unsigned char>& data);

private:
    gcry_md_handle* handle_ = nullptr;
    int digest_;
    std::size_t length_;
};

// libgcrypt set up for use, once per process (unless the program already did).
void initializeLibgcrypt();
