#include "web/WebServer.h"

#include <crypt.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <strings.h>

#include <memory>
#include <optional>

#include "base/Printable.h"

namespace tool {

namespace {

// An unknown user's password is hashed all the same, with this setting (bcrypt at cost 10, as
// htpasswd -B makes them), so that the time taken does not tell which users exist.
const char* const kUnknownUserSetting = "$2b$10$......................";
// Pairs remembered at most; past that, remembering starts again.
constexpr std::size_t kMaxRemembered = 1024;

std::string bcrypt(const std::string& password, const std::string& setting) {
    // libcrypt's workspace, zeroed before its first use as it asks.
    auto data = std::make_unique<crypt_data>();
    const char* hashed = crypt_rn(password.c_str(), setting.c_str(), data.get(), sizeof *data);
    return hashed ? hashed : "";
}

bool sameInConstantTime(const std::string& a, const std::string& b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

std::string sha256(const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_Digest(text.data(), text.size(), digest, &size, EVP_sha256(), nullptr);
    return std::string(reinterpret_cast<const char*>(digest), size);
}

std::string rememberedKey(const std::string& user, const std::string& password,
                          const std::string& hash) {
    // The user's length first: no other pair makes the same text.
    return sha256(std::to_string(user.size()) + ":" + user + hash + password);
}

// Standard base64, padded; nothing when it is not.
std::optional<std::string> base64Decoded(const std::string& text) {
    if (text.size() % 4 != 0) return std::nullopt;
    std::string decoded(text.size() / 4 * 3, '\0');
    const int size = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(&decoded[0]),
                                     reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()));
    if (size < 0) return std::nullopt;
    // EVP_DecodeBlock counts the padding's bytes as zeros.
    const std::size_t padding = text.size() - text.find_last_not_of('=') - 1;
    if (padding > 2) return std::nullopt;
    decoded.resize(static_cast<std::size_t>(size) - padding);
    return decoded;
}

// Why OpenSSL's first queued error happened, and no error left behind.
std::string openSslError() {
    const unsigned long code = ERR_get_error();
    const char* reason = code ? ERR_reason_error_string(code) : nullptr;
    std::string text = reason ? reason : "unknown error";
    ERR_clear_error();
    return text;
}

int openSslVersion(TlsVersion version) {
    switch (version) {
        case TlsVersion::Tls10:
            return TLS1_VERSION;
        case TlsVersion::Tls11:
            return TLS1_1_VERSION;
        case TlsVersion::Tls12:
            return TLS1_2_VERSION;
        case TlsVersion::Tls13:
            return TLS1_3_VERSION;
    }
    return TLS1_2_VERSION;
}

// RequestClientCert and RequireAnyClientCert take any certificate, as Go's do.
int acceptAnyCertificate(int, X509_STORE_CTX*) { return 1; }

void requireClientCertificates(SSL_CTX& context, ClientAuth policy) {
    switch (policy) {
        case ClientAuth::NoClientCert:
            SSL_CTX_set_verify(&context, SSL_VERIFY_NONE, nullptr);
            break;
        case ClientAuth::RequestClientCert:
            SSL_CTX_set_verify(&context, SSL_VERIFY_PEER, acceptAnyCertificate);
            break;
        case ClientAuth::RequireAnyClientCert:
            SSL_CTX_set_verify(&context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT,
                               acceptAnyCertificate);
            break;
        case ClientAuth::VerifyClientCertIfGiven:
            SSL_CTX_set_verify(&context, SSL_VERIFY_PEER, nullptr);
            break;
        case ClientAuth::RequireAndVerifyClientCert:
            SSL_CTX_set_verify(&context, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT,
                               nullptr);
            break;
    }
}

void check(bool done, const std::string& what) {
    if (!done) throw ConfigError(what + ": " + openSslError());
}

void loadCertificates(SSL_CTX& context, const TlsServerConfig& tls) {
    check(SSL_CTX_use_certificate_chain_file(&context, tls.certFile.c_str()) == 1,
          "cannot use the certificate in " + tls.certFile);
    // OpenSSL also checks here that the key is the certificate's.
    check(SSL_CTX_use_PrivateKey_file(&context, tls.keyFile.c_str(), SSL_FILETYPE_PEM) == 1,
          "cannot use the private key in " + tls.keyFile);
    if (tls.clientCaFile.empty()) return;
    check(SSL_CTX_load_verify_locations(&context, tls.clientCaFile.c_str(), nullptr) == 1,
          "cannot use the CA certificates in " + tls.clientCaFile);
    // The CAs named to clients, for them to choose their certificate by.
    STACK_OF(X509_NAME)* names = SSL_load_client_CA_file(tls.clientCaFile.c_str());
    check(names != nullptr, "cannot use the CA certificates in " + tls.clientCaFile);
    SSL_CTX_set_client_CA_list(&context, names);
}

void setUpTls(SSL_CTX& context, const TlsServerConfig& tls) {
    SSL_CTX_set_options(&context, SSL_OP_NO_COMPRESSION | SSL_OP_NO_RENEGOTIATION);
    check(SSL_CTX_set_min_proto_version(&context, openSslVersion(tls.minVersion)) == 1,
          "cannot set min_version");
    if (tls.maxVersion) {
        check(SSL_CTX_set_max_proto_version(&context, openSslVersion(*tls.maxVersion)) == 1,
              "cannot set max_version");
    }
    if (!tls.cipherList.empty()) {
        check(SSL_CTX_set_cipher_list(&context, tls.cipherList.c_str()) == 1,
              "cannot use the cipher suites " + tls.cipherList);
    }
    if (tls.preferServerCipherSuites) {
        SSL_CTX_set_options(&context, SSL_OP_CIPHER_SERVER_PREFERENCE);
    } else {
        SSL_CTX_clear_options(&context, SSL_OP_CIPHER_SERVER_PREFERENCE);
    }
    if (!tls.groups.empty()) {
        check(SSL_CTX_set1_groups_list(&context, tls.groups.c_str()) == 1,
              "cannot use the curves " + tls.groups);
    }
    loadCertificates(context, tls);
    requireClientCertificates(context, tls.clientAuth);
}

std::unique_ptr<httplib::Server> makeTlsServer(const TlsServerConfig& tls) {
    std::string failure;
    auto server = std::make_unique<httplib::SSLServer>([&](SSL_CTX& context) {
        try {
            setUpTls(context, tls);
            return true;
        } catch (const ConfigError& e) {
            failure = e.what();
            return false;
        }
    });
    if (!server->is_valid()) {
        throw ConfigError(failure.empty() ? "cannot set up TLS: " + openSslError() : failure);
    }
    return server;
}

void requireBasicAuth(httplib::Server& server, const std::map<std::string, std::string>& users) {
    auto auth = std::make_shared<BasicAuth>(users);
    server.set_pre_routing_handler(
        [auth](const httplib::Request& request, httplib::Response& response) {
            if (auth->allows(request.get_header_value("Authorization"))) {
                return httplib::Server::HandlerResponse::Unhandled;
            }
            response.status = 401;
            response.set_header("WWW-Authenticate", "Basic realm=\"ipmi-event-log\"");
            response.set_content("Unauthorized\n", "text/plain");
            return httplib::Server::HandlerResponse::Handled;
        });
}

// A handler's exceptions: ServiceUnavailable says why the request cannot be served now; any other
// is answered 500 without its text, which is for no client.
void answerExceptions(httplib::Server& server) {
    server.set_exception_handler(
        [](const httplib::Request&, httplib::Response& response, std::exception_ptr thrown) {
            try {
                std::rethrow_exception(thrown);
            } catch (const ServiceUnavailable& e) {
                response.status = 503;
                response.set_content(printable(e.what()) + "\n", "text/plain; charset=utf-8");
            } catch (...) {
                response.status = 500;
                response.set_content("Internal Server Error\n", "text/plain");
            }
        });
}

}  // namespace

std::optional<BasicCredentials> basicCredentials(const std::string& authorization) {
    const std::string scheme = "Basic ";
    if (authorization.size() < scheme.size() ||
        ::strncasecmp(authorization.c_str(), scheme.c_str(), scheme.size()) != 0) {
        return std::nullopt;
    }
    const auto decoded = base64Decoded(authorization.substr(scheme.size()));
    if (!decoded) return std::nullopt;
    const auto colon = decoded->find(':');
    if (colon == std::string::npos) return std::nullopt;
    return BasicCredentials{decoded->substr(0, colon), decoded->substr(colon + 1)};
}

bool BasicAuth::allows(const std::string& authorization) {
    const std::optional<BasicCredentials> credentials = basicCredentials(authorization);
    return credentials && verify(credentials->user, credentials->password);
}

bool BasicAuth::verify(const std::string& user, const std::string& password) {
    // libcrypt reads the password up to its first NUL: none may hide more behind one.
    if (password.find('\0') != std::string::npos) return false;
    const auto found = users_.find(user);
    const bool known = found != users_.end();
    const std::string hash = known ? found->second : kUnknownUserSetting;
    const std::string key = rememberedKey(user, password, hash);
    if (known) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (verified_.count(key) != 0) return true;
    }
    const bool right = sameInConstantTime(bcrypt(password, hash), hash) && known;
    if (right) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (verified_.size() >= kMaxRemembered) verified_.clear();
        verified_.insert(key);
    }
    return right;
}

std::unique_ptr<httplib::Server> makeHttpServer(const WebConfig* config) {
    auto server =
        config && config->tls ? makeTlsServer(*config->tls) : std::make_unique<httplib::Server>();
    answerExceptions(*server);
    if (!config) return server;
    if (!config->headers.empty()) {
        server->set_default_headers(
            httplib::Headers(config->headers.begin(), config->headers.end()));
    }
    if (!config->basicAuthUsers.empty()) requireBasicAuth(*server, config->basicAuthUsers);
    return server;
}

}  // namespace tool
