// The exporter's HTTP server as its web configuration asks: HTTPS with OpenSSL's settings made
// from tls_server_config, basic authentication against bcrypt hashes, and limits that no client
// can outlast: a cap on the connections open at once and a deadline on each request's reading.
#pragma once

#include "web/WebConfig.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

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

// A request as a handler sees it.
struct HttpRequest {
    std::string method;  // "GET", "POST", ...; a HEAD request reaches GET's handler as "HEAD"
    std::string path;    // percent-decoded, without the query
    // The query's parameters in their order, percent-decoded ('+' is a space); a parameter
    // without '=' has an empty value.
    std::vector<std::pair<std::string, std::string>> query;
    std::vector<std::pair<std::string, std::string>> headers;  // as they came
    std::string body;
    std::string peer;  // the client's address

    // The first value of parameter `name`; none when it is absent.
    std::optional<std::string> param(const std::string& name) const;
    // The first value of header `name`, whatever the case of either; "" when it is absent.
    std::string header(const std::string& name) const;
};

struct HttpResponse {
    int status = 200;
    std::string contentType = "text/plain";
    std::string body;
    // Sent after the web configuration's headers, replacing one of the same name.
    std::vector<std::pair<std::string, std::string>> headers;
};

// What one client may take of the server.
struct HttpLimits {
    // Connections open at once; the one beyond is closed as soon as it is accepted, before any of
    // it is read.
    std::size_t connections = 512;
    // From when the server waits for a request (a new connection's accept, its TLS handshake
    // included; a kept-alive one's previous answer sent) to its last byte read. A client that
    // trickles its request is cut off then, however steadily it sends.
    std::chrono::milliseconds requestDeadline{10000};
    // From an answer's first byte written to its last.
    std::chrono::milliseconds responseDeadline{10000};
    std::size_t largestHead = 8 * 1024;   // beyond it: 431
    std::size_t largestBody = 64 * 1024;  // beyond it: 413
    // The threads the handlers run on: a handler may block (a scrape waits for its BMC), and
    // requests beyond this many wait for one of them.
    std::size_t handlerThreads = 128;
};

// An HTTP/1.1 server (HTTP/1.0 clients are answered too, one request a connection) with handlers
// by method and path, its I/O on the thread that runs it and its handlers on threads of its own.
// HTTPS when `config` has tls_server_config; when it has users, every request first passes their
// check, or is answered 401 with `WWW-Authenticate: Basic realm="ipmi-event-log"`; its headers go
// with every answer. `config` may be null: plain HTTP for all. A path without a handler is
// answered 404 (405 when only other methods have one); a handler's ServiceUnavailable 503 with
// its text, another exception 500.
class HttpServer {
public:
    using Handler = std::function<void(const HttpRequest&, HttpResponse&)>;

    // Throws ConfigError when a certificate or key cannot be used, naming the file.
    explicit HttpServer(const WebConfig* config, HttpLimits limits = {});
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // Before run(). A GET handler answers HEAD too, its body left out.
    void handle(const std::string& method, const std::string& path, Handler handler);
    // Listens on `host` (a name or an address, IPv6 without brackets) at `port`, 0 for one the
    // system chooses; the port bound, or -1 when the address is not this machine's or the port is
    // taken.
    int bind(const std::string& host, int port);
    // Serves until stop(), then waits for the handlers under way and closes every connection.
    // Once.
    void run();
    // From any thread, before run() too (run() then returns at once).
    void stop();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tool
