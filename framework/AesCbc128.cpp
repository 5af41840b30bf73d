#include "AesCbc128.h"

#include <gcrypt.h>

#include <stdexcept>

#include "Hmac.h"

AesCbc128::AesCbc128(const unsigned char (&key)[kBlock]) {
    initializeLibgcrypt();
    if (gcry_cipher_open(&handle_, GCRY_CIPHER_AES128, GCRY_CIPHER_MODE_CBC, 0) != 0) {
        throw std::runtime_error("libgcrypt offers no AES-CBC-128");
    }
    if (gcry_cipher_setkey(handle_, key, kBlock) != 0) {
        gcry_cipher_close(handle_);
        throw std::runtime_error("libgcrypt refused an AES key");
    }
}

AesCbc128::~AesCbc128() { gcry_cipher_close(handle_); }

void AesCbc128::encrypt(const unsigned char (&iv)[kBlock], unsigned char* data, std::size_t size) {
    gcry_cipher_setiv(handle_, iv, kBlock);
    gcry_cipher_encrypt(handle_, data, size, nullptr, 0);
}

void AesCbc128::decrypt(const unsigned char* iv, unsigned char* data, std::size_t size) {
    gcry_cipher_setiv(handle_, iv, kBlock);
    gcry_cipher_decrypt(handle_, data, size, nullptr, 0);
}
