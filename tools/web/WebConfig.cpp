#include "web/WebConfig.h"

#include <openssl/ssl.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "base/WordLists.h"

namespace tool {

namespace {

const std::vector<std::string> kTopKeys = {"tls_server_config", "http_server_config",
                                           "basic_auth_users"};
const std::vector<std::string> kTlsKeys = {
    "cert_file", "key_file", "client_auth_type", "client_ca_file", "min_version", "max_version",
    "cipher_suites", "prefer_server_cipher_suites", "curve_preferences",
    // exporter-toolkit's newer keys, known so that they are refused with a reason.
    "cert", "key", "client_ca", "client_allowed_sans"};
const std::vector<std::string> kHttpKeys = {"http2", "headers"};
const std::vector<std::string> kHeaders = {"Content-Security-Policy", "X-Frame-Options",
                                           "X-Content-Type-Options", "X-XSS-Protection",
                                           "Strict-Transport-Security"};

template <typename Value>
struct Named {
    const char* name;
    Value value;
};

const Named<ClientAuth> kClientAuths[] = {
    {"NoClientCert", ClientAuth::NoClientCert},
    {"RequestClientCert", ClientAuth::RequestClientCert},
    {"RequireAnyClientCert", ClientAuth::RequireAnyClientCert},
    {"VerifyClientCertIfGiven", ClientAuth::VerifyClientCertIfGiven},
    {"RequireAndVerifyClientCert", ClientAuth::RequireAndVerifyClientCert},
};
const Named<TlsVersion> kTlsVersions[] = {
    {"TLS10", TlsVersion::Tls10},
    {"TLS11", TlsVersion::Tls11},
    {"TLS12", TlsVersion::Tls12},
    {"TLS13", TlsVersion::Tls13},
};
// Go's names of the curves, and OpenSSL's.
const Named<const char*> kCurves[] = {
    {"CurveP256", "P-256"},
    {"CurveP384", "P-384"},
    {"CurveP521", "P-521"},
    {"X25519", "X25519"},
};

// "A, B or C".
template <typename Value, std::size_t count>
std::string namesOf(const Named<Value> (&table)[count]) {
    std::vector<std::string> names;
    for (const auto& named : table) names.push_back(named.name);
    return listed(names, "or");
}

template <typename Value, std::size_t count>
Value namedValue(const YamlFile& file, const YamlEntry& entry, const Named<Value> (&table)[count]) {
    const std::string given = file.text(entry);
    for (const auto& named : table) {
        if (given == named.name) return named.value;
    }
    throw file.error(entry, quoted(given) + " is not " + namesOf(table));
}

// A file the server will read, relative to the configuration's directory; checked here so that
// the error has its line.
std::string readableFile(const YamlFile& file, const YamlEntry& entry) {
    const std::string path = file.pathBeside(file.text(entry));
    if (path.empty()) throw file.error(entry, "is empty");
    if (::access(path.c_str(), R_OK) != 0) {
        throw file.error(entry, "cannot read " + path + ": " + std::strerror(errno));
    }
    return path;
}

// Go's names of the TLS 1.2 cipher suites are the IANA ones OpenSSL translates, but for
// ChaCha20's, which Go shortens.
std::string cipherList(const YamlFile& file, const YamlEntry& entry) {
    std::vector<std::string> names;
    for (const YamlEntry& element : file.elements(entry)) {
        std::string standard = file.text(element);
        if (standard.size() > 17 &&
            standard.compare(standard.size() - 17, 17, "CHACHA20_POLY1305") == 0) {
            standard += "_SHA256";
        }
        const std::string name = OPENSSL_cipher_name(standard.c_str());
        if (name == "(NONE)") {
            throw file.error(element,
                             quoted(file.text(element)) + " is not a cipher suite OpenSSL knows");
        }
        names.push_back(name);
    }
    return joined(names, ":");
}

std::string groupList(const YamlFile& file, const YamlEntry& entry) {
    std::vector<std::string> names;
    for (const YamlEntry& element : file.elements(entry)) {
        names.push_back(namedValue(file, element, kCurves));
    }
    return joined(names, ":");
}

void refuse(const YamlFile& file, const YamlEntry* entry, const std::string& instead) {
    if (entry) throw file.error(*entry, "is not supported by ipmi-event-log" + instead);
}

// The settings that make sense only together.
void checkCombination(const YamlFile& file, const YamlEntry& tlsEntry,
                      const std::vector<YamlEntry>& keys, const TlsServerConfig& tls) {
    if (tls.certFile.empty() || tls.keyFile.empty()) {
        throw file.error(tlsEntry, "needs both cert_file and key_file");
    }
    const bool verifies = tls.clientAuth == ClientAuth::VerifyClientCertIfGiven ||
                          tls.clientAuth == ClientAuth::RequireAndVerifyClientCert;
    if (verifies && tls.clientCaFile.empty()) {
        throw file.error(*findEntry(keys, "client_auth_type"),
                         "verifying client certificates needs client_ca_file");
    }
    if (tls.clientAuth == ClientAuth::NoClientCert && !tls.clientCaFile.empty()) {
        throw file.error(*findEntry(keys, "client_ca_file"),
                         "is given, but client_auth_type asks clients for no certificate");
    }
    if (tls.maxVersion && *tls.maxVersion < tls.minVersion) {
        throw file.error(*findEntry(keys, "max_version"), "is below min_version");
    }
}

std::optional<TlsServerConfig> readTls(const YamlFile& file, const YamlEntry& tlsEntry) {
    const std::vector<YamlEntry> keys = file.entries(tlsEntry, kTlsKeys);
    if (keys.empty()) return std::nullopt;
    refuse(file, findEntry(keys, "cert"), "; use cert_file");
    refuse(file, findEntry(keys, "key"), "; use key_file");
    refuse(file, findEntry(keys, "client_ca"), "; use client_ca_file");
    refuse(file, findEntry(keys, "client_allowed_sans"), "");
    TlsServerConfig tls;
    if (const YamlEntry* e = findEntry(keys, "cert_file")) tls.certFile = readableFile(file, *e);
    if (const YamlEntry* e = findEntry(keys, "key_file")) tls.keyFile = readableFile(file, *e);
    if (const YamlEntry* e = findEntry(keys, "client_ca_file")) {
        tls.clientCaFile = readableFile(file, *e);
    }
    if (const YamlEntry* e = findEntry(keys, "client_auth_type")) {
        tls.clientAuth = namedValue(file, *e, kClientAuths);
    }
    if (const YamlEntry* e = findEntry(keys, "min_version")) {
        tls.minVersion = namedValue(file, *e, kTlsVersions);
    }
    if (const YamlEntry* e = findEntry(keys, "max_version")) {
        tls.maxVersion = namedValue(file, *e, kTlsVersions);
    }
    if (const YamlEntry* e = findEntry(keys, "cipher_suites"))
        tls.cipherList = cipherList(file, *e);
    if (const YamlEntry* e = findEntry(keys, "prefer_server_cipher_suites")) {
        tls.preferServerCipherSuites = file.boolean(*e);
    }
    if (const YamlEntry* e = findEntry(keys, "curve_preferences")) tls.groups = groupList(file, *e);
    checkCombination(file, tlsEntry, keys, tls);
    return tls;
}

// exporter-toolkit's own checks of the values it knows.
void checkHeaderValue(const YamlFile& file, const YamlEntry& entry, const std::string& value) {
    const std::string name = entry.key.Scalar();
    if (name == "X-Frame-Options" && ::strcasecmp(value.c_str(), "deny") != 0 &&
        ::strcasecmp(value.c_str(), "sameorigin") != 0) {
        throw file.error(entry, quoted(value) + " is not deny or sameorigin");
    }
    if (name == "X-Content-Type-Options" && ::strcasecmp(value.c_str(), "nosniff") != 0) {
        throw file.error(entry, quoted(value) + " is not nosniff");
    }
}

void readHttp(const YamlFile& file, const YamlEntry& httpEntry, WebConfig& config) {
    const std::vector<YamlEntry> keys = file.entries(httpEntry, kHttpKeys);
    // HTTP/2 is allowed, not required: clients that ask for it get HTTP/1.1.
    if (const YamlEntry* http2 = findEntry(keys, "http2")) file.boolean(*http2);
    const YamlEntry* headers = findEntry(keys, "headers");
    if (!headers) return;
    for (const YamlEntry& header : file.entries(*headers, kHeaders)) {
        const std::string value = file.text(header);
        checkHeaderValue(file, header, value);
        // A header left blank is not sent.
        if (!value.empty()) config.headers.emplace_back(header.key.Scalar(), value);
    }
}

bool isBcryptHash(const std::string& hash) {
    static const char* const kPrefixes[] = {"$2y$", "$2b$", "$2a$"};
    return hash.size() == 60 &&
           std::any_of(std::begin(kPrefixes), std::end(kPrefixes),
                       [&hash](const char* prefix) { return hash.compare(0, 4, prefix) == 0; });
}

void readUsers(const YamlFile& file, const YamlEntry& usersEntry, WebConfig& config) {
    for (const YamlEntry& user : file.anyEntries(usersEntry)) {
        const std::string name = user.key.Scalar();
        // Basic authentication sends "user:password": the first colon ends the name.
        if (name.empty() || name.find(':') != std::string::npos) {
            throw file.error(user, "a user name must be neither empty nor hold \":\"");
        }
        const std::string hash = file.text(user);
        if (!isBcryptHash(hash)) throw file.error(user, "is not a bcrypt hash ($2y$, $2b$, $2a$)");
        config.basicAuthUsers.emplace(name, hash);
    }
}

}  // namespace

WebConfig loadWebConfig(const std::string& path) {
    const YamlFile file(path);
    const std::vector<YamlEntry> top = file.entries(file.root(), kTopKeys);
    WebConfig config;
    if (const YamlEntry* tls = findEntry(top, "tls_server_config"))
        config.tls = readTls(file, *tls);
    if (const YamlEntry* http = findEntry(top, "http_server_config")) readHttp(file, *http, config);
    if (const YamlEntry* users = findEntry(top, "basic_auth_users"))
        readUsers(file, *users, config);
    return config;
}

}  // namespace tool
