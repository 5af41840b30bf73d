// What the exporter's TLS and basic authentication tests make: bcrypt hashes, through the
// system's crypt library, and certificates, through the openssl command.
#pragma once

#include <crypt.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include "ScratchDirectory.h"

namespace bmcsim {

// A bcrypt hash of `password` at cost 4, the lowest, to keep the tests fast.
inline std::string bcryptHash(const std::string& password, const char* prefix = "$2b$") {
    char setting[CRYPT_GENSALT_OUTPUT_SIZE];
    if (!crypt_gensalt_rn(prefix, 4, nullptr, 0, setting, sizeof setting)) return "";
    auto data = std::make_unique<crypt_data>();
    const char* hash = crypt_rn(password.c_str(), setting, data.get(), sizeof *data);
    return hash ? hash : "";
}

// Makes `name`.crt and `name`.key in `directory` with `openssl` (its path): a certificate for
// `subject`, self-signed, or signed as `options` say ("-CA ca.crt -CAkey ca.key"). Throws with
// openssl's output when it fails.
inline void makeCertificate(const std::string& openssl, const ScratchDirectory& directory,
                            const std::string& name, const std::string& subject,
                            const std::string& options) {
    const std::string command = "cd '" + directory.path() + "' && " + openssl +
                                " req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 "
                                "-nodes -days 2 -keyout " +
                                name + ".key -out " + name + ".crt -subj '" + subject + "' " +
                                options + " 2> " + name + ".log";
    if (std::system(command.c_str()) != 0)
        throw std::runtime_error("openssl could not make " + name + ": " +
                                 directory.read(name + ".log"));
}

}  // namespace bmcsim
