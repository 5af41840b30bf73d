// AES-CBC-128 with one key (IPMI v2.0's confidentiality algorithm 01h): each RMCP+ payload is
// encrypted with its own random 16-byte initialization vector, sent in front of it.
#pragma once

#include <cstddef>

struct gcry_cipher_handle;

class AesCbc128 {
public:
    static constexpr std::size_t kBlock = 16;

    explicit AesCbc128(const unsigned char (&key)[kBlock]);
    ~AesCbc128();
    AesCbc128(const AesCbc128&) = delete;
    AesCbc128& operator=(const AesCbc128&) = delete;

    // In place; `size` is a multiple of kBlock.
    void encrypt(const unsigned char (&iv)[kBlock], unsigned char* data, std::size_t size);
    void decrypt(const unsigned char* iv, unsigned char* data, std::size_t size);

private:
    gcry_cipher_handle* handle_ = nullptr;
};
