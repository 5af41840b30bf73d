#include "Hmac.h"

#include <gcrypt.h>

#include <mutex>
#include <stdexcept>

void initializeLibgcrypt() {
    static std::once_flag once;
    std::call_once(once, [] {
        // The program that loads this library may use libgcrypt itself and set it up as it
        // needs (its secure memory, say): only a libgcrypt nobody set up is initialised here,
        // with its defaults. Nothing here asks for secure memory.
        if (gcry_control(GCRYCTL_INITIALIZATION_FINISHED_P)) return;
        // Random bytes straight from the kernel (getrandom): libgcrypt's own generator mixes
        // getrusage(RUSAGE_SELF) into its pool at each request, a walk over every thread of the
        // process, and a process that polls many BMCs runs hundreds of them while every session
        // and every encrypted packet asks for random bytes. Only before gcry_check_version.
        gcry_control(GCRYCTL_SET_PREFERRED_RNG_TYPE, GCRY_RNG_TYPE_SYSTEM);
        gcry_check_version(nullptr);
        gcry_control(GCRYCTL_INITIALIZATION_FINISHED, 0);
    });
}

Hmac::Hmac(int digest, const unsigned char* key, std::size_t keyLength)
    : digest_(digest), length_(gcry_md_get_algo_dlen(digest)) {
    initializeLibgcrypt();
    if (length_ == 0 || gcry_md_open(&handle_, digest, GCRY_MD_FLAG_HMAC) != 0) {
        throw std::runtime_error("libgcrypt offers no HMAC with digest " + std::to_string(digest));
    }
    if (gcry_md_setkey(handle_, key, keyLength) != 0) {
        gcry_md_close(handle_);
        throw std::runtime_error("libgcrypt refused an HMAC key");
    }
}

Hmac::Hmac(int digest, const std::vector<unsigned char>& key)
    : Hmac(digest, key.data(), key.size()) {}

Hmac::~Hmac() { gcry_md_close(handle_); }

const unsigned char* Hmac::of(const unsigned char* data, std::size_t size) {
    gcry_md_reset(handle_);  // back to the state right after the key
    gcry_md_write(handle_, data, size);
    return gcry_md_read(handle_, digest_);
}

std::vector<unsigned char> Hmac::of(const std::vector<unsigned char>& data) {
    const unsigned char* code = of(data.data(), data.size());
    return {code, code + length_};
}
