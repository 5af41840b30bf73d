#include "web/WebServer.h"

#include <crypt.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <strings.h>

// Under ThreadSanitizer GCC warns of each fence in Asio's handler calls, which it cannot follow;
// the locks of Asio's queues, which it does follow, order what those fences do.
#if defined(__SANITIZE_THREAD__)
#pragma GCC diagnostic ignored "-Wtsan"
#endif
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/string.hpp>
#include <boost/beast/http.hpp>

#include <array>
#include <cerrno>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>
#include <string_view>

#include "base/Printable.h"

namespace tool {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;
using Clock = std::chrono::steady_clock;

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

// --- The HTTP server ---

// A connection that is being closed after its last answer is given this long to take it and go,
// and as many of its bytes are read and dropped meanwhile: closed with bytes unread, it would be
// reset, and the client could lose the answer (a 413 most of all, sent before the body is read).
constexpr std::chrono::seconds kClosingTime{1};
constexpr std::size_t kLargestDrained = 256 * 1024;
// Refused connections and failed accepts are said on standard error at most this often.
constexpr std::chrono::seconds kSayEvery{60};
// Accepting again right after running out of descriptors would only spin.
constexpr std::chrono::milliseconds kAcceptRetry{100};

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// %XX decoded once. A '%' without two hexadecimal digits after it stays as it is, for the handler
// to see (and refuse) rather than have it guessed at.
std::string percentDecoded(std::string_view text, bool plusIsSpace) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? hexDigit(text[i + 1]) : -1;
        const int low = high >= 0 ? hexDigit(text[i + 2]) : -1;
        if (low >= 0) {
            decoded += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            decoded += plusIsSpace && text[i] == '+' ? ' ' : text[i];
        }
    }
    return decoded;
}

std::vector<std::pair<std::string, std::string>> queryOf(std::string_view text) {
    std::vector<std::pair<std::string, std::string>> query;
    while (!text.empty()) {
        const std::size_t ampersand = text.find('&');
        const std::string_view parameter = text.substr(0, ampersand);
        text = ampersand == std::string_view::npos ? "" : text.substr(ampersand + 1);
        if (parameter.empty()) continue;
        const std::size_t equals = parameter.find('=');
        query.emplace_back(percentDecoded(parameter.substr(0, equals), true),
                           equals == std::string_view::npos
                               ? ""
                               : percentDecoded(parameter.substr(equals + 1), true));
    }
    return query;
}

std::string_view viewOf(beast::string_view text) { return {text.data(), text.size()}; }

HttpResponse plainAnswer(int status, std::string body) {
    HttpResponse response;
    response.status = status;
    response.body = std::move(body);
    return response;
}

// Says something on standard error no more than once in kSayEvery, with how many times it
// happened since it was last said.
class Occasional {
public:
    explicit Occasional(std::string what) : what_(std::move(what)) {}
    void happened(const std::string& detail) {
        ++times_;
        const auto now = Clock::now();
        if (said_ && now - *said_ < kSayEvery) return;
        std::cerr << "ipmi-event-log: " + what_ + ": " + detail + "; " + std::to_string(times_) +
                         (said_ ? " since last said\n" : " so far\n");
        said_ = now;
        times_ = 0;
    }

private:
    std::string what_;
    std::optional<Clock::time_point> said_;
    unsigned long times_ = 0;
};

class Connection;

// What HttpServer is: its state lives on the thread that runs it, but for what the handlers read,
// which does not change once it runs.
class Server {
public:
    Server(const WebConfig* config, HttpLimits limits);

    void handle(const std::string& method, const std::string& path, HttpServer::Handler handler) {
        handlers_[{method, path}] = std::move(handler);
    }
    int bind(const std::string& host, int port);
    void run();
    void stop() { io_.stop(); }

    // On a handler thread.
    HttpResponse answer(const HttpRequest& request) const;
    void postHandler(std::function<void()> job) { asio::post(*handlerThreads_, std::move(job)); }

    asio::io_context& io() { return io_; }
    const HttpLimits& limits() const { return limits_; }
    asio::ssl::context* tls() { return tls_ ? &*tls_ : nullptr; }
    const std::vector<std::pair<std::string, std::string>>& headers() const { return headers_; }
    void closed(Connection* connection) { connections_.erase(connection); }

private:
    void accept();
    void accepted(tcp::socket socket);

    // First, so last to go: the sockets and timers below, and the connections its handlers may
    // still hold, go before it.
    asio::io_context io_;
    HttpLimits limits_;
    std::optional<asio::ssl::context> tls_;
    std::unique_ptr<BasicAuth> auth_;
    std::vector<std::pair<std::string, std::string>> headers_;
    std::map<std::pair<std::string, std::string>, HttpServer::Handler> handlers_;
    tcp::acceptor acceptor_{io_};
    asio::steady_timer acceptRetry_{io_};
    std::map<Connection*, std::weak_ptr<Connection>> connections_;
    Occasional refusals_{"connections refused"};
    Occasional acceptFailures_{"cannot accept connections"};
    // Last: stopped, with the handlers under way finished, before anything they use goes.
    std::optional<asio::thread_pool> handlerThreads_;
};

// One client's connection: reads a request within the request deadline, has a handler thread
// answer it, writes the answer within the response deadline; again while the client keeps the
// connection alive. Everything but the handler runs on the server's thread.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(Server& server, tcp::socket socket)
        : server_(server), socket_(std::move(socket)), deadline_(server.io()) {
        boost::system::error_code error;
        peer_ = socket_.remote_endpoint(error).address().to_string();
        if (server.tls()) tls_.emplace(socket_, *server.tls());
    }

    void start() {
        waitAtMost(server_.limits().requestDeadline);
        if (!tls_) return readHead();
        tls_->async_handshake(asio::ssl::stream_base::server,
                              [self = shared_from_this()](boost::system::error_code error) {
                                  if (self->closed_) return;
                                  if (error) return self->close();
                                  self->readHead();
                              });
    }

    // At once: whatever is under way fails, and no more is started.
    void close() {
        if (closed_) return;
        closed_ = true;
        boost::system::error_code ignored;
        socket_.close(ignored);
        deadline_.cancel();
        server_.closed(this);
    }

private:
    template <class Act>
    void onStream(const Act& act) {
        if (tls_) {
            act(*tls_);
        } else {
            act(socket_);
        }
    }

    // Closes the connection unless something calls this again within `limit`.
    void waitAtMost(Clock::duration limit) {
        deadline_.expires_after(limit);
        deadline_.async_wait([self = shared_from_this()](boost::system::error_code error) {
            // A wait that ended just as it was set anew (the expiry then moved on) is not one.
            if (error || self->closed_ || self->deadline_.expiry() > Clock::now()) return;
            self->close();
        });
    }

    void readHead() {
        parser_.emplace();
        parser_->header_limit(static_cast<std::uint32_t>(server_.limits().largestHead));
        parser_->body_limit(server_.limits().largestBody);
        onStream([this](auto& stream) {
            http::async_read_header(
                stream, buffer_, *parser_,
                [self = shared_from_this()](boost::system::error_code error, std::size_t) {
                    self->headRead(error);
                });
        });
    }

    void headRead(boost::system::error_code error) {
        if (closed_) return;
        if (error) return refuse(error);
        // A client that asked to be told to go on before it sends its body (curl does for large
        // ones) would otherwise wait a second or more.
        const auto& request = parser_->get();
        if (!parser_->is_done() && beast::iequals(request[http::field::expect], "100-continue")) {
            static const std::string kGoOn = "HTTP/1.1 100 Continue\r\n\r\n";
            onStream([this](auto& stream) {
                asio::async_write(
                    stream, asio::buffer(kGoOn),
                    [self = shared_from_this()](boost::system::error_code error, std::size_t) {
                        if (self->closed_) return;
                        if (error) return self->close();
                        self->readBody();
                    });
            });
            return;
        }
        readBody();
    }

    // The body, when there is one: a request with neither Content-Length nor chunks has none.
    void readBody() {
        onStream([this](auto& stream) {
            http::async_read(
                stream, buffer_, *parser_,
                [self = shared_from_this()](boost::system::error_code error, std::size_t) {
                    self->requestRead(error);
                });
        });
    }

    // A request that could not be read whole: answered when it is one that came wrong, then
    // closed; a client that went, or one that sent half a request and went, is closed at once.
    void refuse(boost::system::error_code error) {
        if (error == http::error::header_limit || error == http::error::buffer_overflow)
            return answerAndClose(plainAnswer(431, "Request Header Fields Too Large\n"));
        if (error == http::error::body_limit)
            return answerAndClose(plainAnswer(413, "Payload Too Large\n"));
        if (error.category() == http::make_error_code(http::error::bad_target).category() &&
            error != http::error::end_of_stream && error != http::error::partial_message)
            return answerAndClose(plainAnswer(400, "Bad Request\n"));
        close();
    }

    void answerAndClose(HttpResponse response) {
        keepAlive_ = false;
        head_ = false;
        respond(std::move(response));
    }

    void requestRead(boost::system::error_code error) {
        if (closed_) return;
        if (error) return refuse(error);
        // The handler may take its time: no deadline runs while it does.
        deadline_.cancel();
        http::request<http::string_body> message = parser_->release();
        keepAlive_ = message.keep_alive() && message.version() == 11;
        head_ = message.method() == http::verb::head;
        HttpRequest request;
        request.method = std::string(viewOf(message.method_string()));
        const std::string_view target = viewOf(message.target());
        const std::size_t question = target.find('?');
        request.path = percentDecoded(target.substr(0, question), false);
        if (question != std::string_view::npos)
            request.query = queryOf(target.substr(question + 1));
        for (const auto& field : message)
            request.headers.emplace_back(viewOf(field.name_string()), viewOf(field.value()));
        request.body = std::move(message.body());
        request.peer = peer_;
        server_.postHandler([self = shared_from_this(), request = std::move(request)]() mutable {
            HttpResponse response = self->server_.answer(request);
            Server& server = self->server_;
            // Back to the server's thread, where the connection lives; it goes there too.
            asio::post(server.io(),
                       [self = std::move(self), response = std::move(response)]() mutable {
                           self->respond(std::move(response));
                       });
        });
    }

    void respond(HttpResponse response) {
        if (closed_) return;
        answer_ = {};
        answer_.version(11);
        answer_.result(static_cast<unsigned>(response.status));
        for (const auto& [name, value] : server_.headers()) answer_.insert(name, value);
        if (!response.contentType.empty())
            answer_.set(http::field::content_type, response.contentType);
        for (const auto& [name, value] : response.headers) answer_.set(name, value);
        const std::size_t size = response.body.size();
        if (!head_) answer_.body() = std::move(response.body);
        answer_.content_length(size);
        answer_.keep_alive(keepAlive_);
        waitAtMost(server_.limits().responseDeadline);
        onStream([this](auto& stream) {
            http::async_write(stream, answer_,
                              [self = shared_from_this()](boost::system::error_code error,
                                                          std::size_t) { self->responded(error); });
        });
    }

    void responded(boost::system::error_code error) {
        if (closed_) return;
        if (error) return close();
        answer_ = {};
        if (!keepAlive_) return closeAfterAnswer();
        // The next request's deadline counts from here.
        waitAtMost(server_.limits().requestDeadline);
        readHead();
    }

    void closeAfterAnswer() {
        waitAtMost(kClosingTime);
        if (tls_) {
            tls_->async_shutdown(
                [self = shared_from_this()](boost::system::error_code) { self->close(); });
            return;
        }
        boost::system::error_code ignored;
        socket_.shutdown(tcp::socket::shutdown_send, ignored);
        drain();
    }

    void drain() {
        socket_.async_read_some(
            asio::buffer(drained_),
            [self = shared_from_this()](boost::system::error_code error, std::size_t size) {
                if (self->closed_) return;
                self->drainedBytes_ += size;
                if (error || self->drainedBytes_ > kLargestDrained) return self->close();
                self->drain();
            });
    }

    Server& server_;
    tcp::socket socket_;
    std::optional<asio::ssl::stream<tcp::socket&>> tls_;
    asio::steady_timer deadline_;
    std::string peer_;
    beast::flat_buffer buffer_{16 * 1024};
    std::optional<http::request_parser<http::string_body>> parser_;
    http::response<http::string_body> answer_;
    bool keepAlive_ = false;
    bool head_ = false;
    bool closed_ = false;
    std::array<char, 1024> drained_;
    std::size_t drainedBytes_ = 0;
};

Server::Server(const WebConfig* config, HttpLimits limits) : limits_(limits) {
    if (!config) return;
    if (config->tls) {
        tls_.emplace(asio::ssl::context::tls_server);
        setUpTls(*tls_->native_handle(), *config->tls);
    }
    if (!config->basicAuthUsers.empty())
        auth_ = std::make_unique<BasicAuth>(config->basicAuthUsers);
    headers_ = config->headers;
}

int Server::bind(const std::string& host, int port) {
    boost::system::error_code error;
    tcp::resolver resolver(io_);
    const auto endpoints = resolver.resolve(
        host, std::to_string(port), tcp::resolver::passive | tcp::resolver::numeric_service, error);
    if (error) return -1;
    for (const auto& endpoint : endpoints) {
        tcp::acceptor acceptor(io_);
        if (acceptor.open(endpoint.endpoint().protocol(), error) ||
            acceptor.set_option(asio::socket_base::reuse_address(true), error) ||
            acceptor.bind(endpoint.endpoint(), error) ||
            // The kernel's longest queue: scrapes that come together are not dropped, to be
            // sent again a second later.
            acceptor.listen(asio::socket_base::max_listen_connections, error))
            continue;
        acceptor_ = std::move(acceptor);
        return acceptor_.local_endpoint().port();
    }
    return -1;
}

void Server::run() {
    handlerThreads_.emplace(limits_.handlerThreads);
    if (acceptor_.is_open()) accept();
    {
        const auto busy = asio::make_work_guard(io_);
        io_.run();
    }
    // Stopped: no connection is taken any more, the handlers under way finish (those not begun
    // are dropped), and every connection is closed; what is left of them runs out below.
    boost::system::error_code ignored;
    acceptor_.close(ignored);
    acceptRetry_.cancel();
    handlerThreads_->stop();
    handlerThreads_->join();
    const auto open = connections_;
    for (const auto& [connection, alive] : open) {
        if (const auto held = alive.lock()) held->close();
    }
    io_.restart();
    io_.run();
}

void Server::accept() {
    acceptor_.async_accept([this](boost::system::error_code error, tcp::socket socket) {
        if (error == asio::error::operation_aborted || !acceptor_.is_open()) return;
        if (!error) {
            accepted(std::move(socket));
            return accept();
        }
        // Out of descriptors or memory: give the connections open time to end.
        if (error == asio::error::no_descriptors || error == asio::error::no_buffer_space ||
            error == asio::error::no_memory || error.value() == ENFILE) {
            acceptFailures_.happened(error.message());
            acceptRetry_.expires_after(kAcceptRetry);
            acceptRetry_.async_wait([this](boost::system::error_code waited) {
                if (!waited) accept();
            });
            return;
        }
        // A client that went before it was accepted.
        accept();
    });
}

void Server::accepted(tcp::socket socket) {
    if (connections_.size() >= limits_.connections) {
        boost::system::error_code ignored;
        socket.close(ignored);
        refusals_.happened("as many are open as are served at once (" +
                           std::to_string(limits_.connections) + ")");
        return;
    }
    auto connection = std::make_shared<Connection>(*this, std::move(socket));
    connections_.emplace(connection.get(), connection);
    connection->start();
}

HttpResponse Server::answer(const HttpRequest& request) const {
    if (auth_ && !auth_->allows(request.header("Authorization"))) {
        HttpResponse response = plainAnswer(401, "Unauthorized\n");
        response.headers.emplace_back("WWW-Authenticate", "Basic realm=\"ipmi-event-log\"");
        return response;
    }
    const std::string method = request.method == "HEAD" ? "GET" : request.method;
    const auto found = handlers_.find({method, request.path});
    if (found == handlers_.end()) {
        std::string allowed;
        for (const auto& [route, handler] : handlers_) {
            if (route.second == request.path)
                allowed += (allowed.empty() ? "" : ", ") + route.first;
        }
        if (allowed.empty()) return plainAnswer(404, "Not Found\n");
        HttpResponse response = plainAnswer(405, "Method Not Allowed\n");
        response.headers.emplace_back("Allow", allowed);
        return response;
    }
    HttpResponse response;
    try {
        found->second(request, response);
    } catch (const ServiceUnavailable& e) {
        // Why the request cannot be served now; any other exception is answered without its
        // text, which is for no client.
        response = plainAnswer(503, printable(e.what()) + "\n");
        response.contentType = "text/plain; charset=utf-8";
    } catch (...) {
        response = plainAnswer(500, "Internal Server Error\n");
    }
    return response;
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

std::optional<std::string> HttpRequest::param(const std::string& name) const {
    for (const auto& [key, value] : query) {
        if (key == name) return value;
    }
    return std::nullopt;
}

std::string HttpRequest::header(const std::string& name) const {
    for (const auto& [key, value] : headers) {
        if (::strcasecmp(key.c_str(), name.c_str()) == 0) return value;
    }
    return "";
}

struct HttpServer::Impl : Server {
    using Server::Server;
};

HttpServer::HttpServer(const WebConfig* config, HttpLimits limits)
    : impl_(std::make_unique<Impl>(config, limits)) {}

HttpServer::~HttpServer() = default;

void HttpServer::handle(const std::string& method, const std::string& path, Handler handler) {
    impl_->handle(method, path, std::move(handler));
}

int HttpServer::bind(const std::string& host, int port) { return impl_->bind(host, port); }

void HttpServer::run() { impl_->run(); }

void HttpServer::stop() { impl_->stop(); }

}  // namespace tool
