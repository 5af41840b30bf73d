// The web server's configuration file (serve --web-config): the Prometheus exporter-toolkit's
// format (ipmi_exporter's --web.config.file), giving TLS and the users of basic authentication.
// Read once, when serve starts.
#pragma once

#include "base/YamlFile.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tool {

// Go's crypto/tls names of the policies, as the file gives them.
enum class ClientAuth {
    NoClientCert,
    RequestClientCert,           // asked for, not verified, not needed
    RequireAnyClientCert,        // needed, not verified
    VerifyClientCertIfGiven,     // verified against client_ca_file when given
    RequireAndVerifyClientCert,  // needed and verified
};

enum class TlsVersion { Tls10, Tls11, Tls12, Tls13 };

struct TlsServerConfig {
    // Paths as the file gives them, relative ones taken from the file's directory.
    std::string certFile;
    std::string keyFile;
    std::string clientCaFile;  // empty: none
    ClientAuth clientAuth = ClientAuth::NoClientCert;
    TlsVersion minVersion = TlsVersion::Tls12;
    std::optional<TlsVersion> maxVersion;  // unset: the highest OpenSSL speaks
    // OpenSSL's names of the TLS 1.2 cipher suites, joined by ':'; empty: OpenSSL's own choice.
    std::string cipherList;
    bool preferServerCipherSuites = true;
    // OpenSSL's names of the key exchange groups, joined by ':'; empty: OpenSSL's own choice.
    std::string groups;
};

struct WebConfig {
    std::optional<TlsServerConfig> tls;  // unset: plain HTTP
    // User name -> bcrypt hash; empty: no authentication.
    std::map<std::string, std::string> basicAuthUsers;
    // http_server_config's headers, added to every answer.
    std::vector<std::pair<std::string, std::string>> headers;
};

// Throws ConfigError, naming the file, the line and the key.
WebConfig loadWebConfig(const std::string& path);

}  // namespace tool
