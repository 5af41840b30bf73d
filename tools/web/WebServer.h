// The exporter's HTTP server as its web configuration asks: HTTPS with OpenSSL's settings made
// from tls_server_config, and basic authentication against bcrypt hashes.
#pragma once

#include "web/WebConfig.h"

#include <httplib.h>

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>

namespace tool {

struct BasicCredentials {
    std::string user;
    std::string password;
};

// The user and password of an Authorization header's value, "Basic BASE64(user:password)" (the
// scheme's name in any case); none for another value.
std::optional<BasicCredentials> basicCredentials(const std::string& authorization);

// The users of basic authentication and their bcrypt hashes, checked with libcrypt. bcrypt is
// slow on purpose (some 70 ms at cost 10), so a pair found right is remembered, as a SHA-256 of
// the user, the password and the hash, and answered at once the next time. A wrong password is
// never remembered and always costs a whole bcrypt, as does an unknown user.
class BasicAuth {
public:
    explicit BasicAuth(std::map<std::string, std::string> users) : users_(std::move(users)) {}

    // Whether an Authorization header's value ("Basic BASE64(user:password)") names a user with
    // the right password.
    bool allows(const std::string& authorization);
    bool verify(const std::string& user, const std::string& password);

private:
    std::map<std::string, std::string> users_;
    std::mutex mutex_;
    std::set<std::string> verified_;
};

// Thrown by a handler for a request that cannot be served now: answered 503 with its text.
struct ServiceUnavailable : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// A server that speaks HTTPS when `config` has tls_server_config, else HTTP; when it has users,
// every request first passes their check (a pre-routing handler: keep it), or is answered 401
// with `WWW-Authenticate: Basic realm="ipmi-event-log"`. `config` may be null: plain HTTP for
// all. A handler's ServiceUnavailable is answered 503 with its text, another exception 500.
// Throws ConfigError when a certificate or key cannot be used, naming the file.
std::unique_ptr<httplib::Server> makeHttpServer(const WebConfig* config);

}  // namespace tool
