// The web server: basic authentication against bcrypt hashes, HTTPS with the TLS versions and
// client certificates asked for, tried with httplib's own clients against certificates the test
// makes with openssl; and what no client may take of it (the request deadline, the cap on
// connections, the largest head and body), tried with raw connections of the test's own.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "ScratchDirectory.h"
#include "WebCredentials.h"
#include "web/WebServer.h"

namespace {

using bmcsim::bcryptHash;

std::string base64(const std::string& text) {
    std::string encoded(4 * ((text.size() + 2) / 3) + 1, '\0');
    const int size = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(&encoded[0]),
                                     reinterpret_cast<const unsigned char*>(text.data()),
                                     static_cast<int>(text.size()));
    encoded.resize(static_cast<std::size_t>(size));
    return encoded;
}

TEST(BasicAuth, OnlyTheRightPasswordOfAKnownUserPasses) {
    tool::BasicAuth auth({{"alice", bcryptHash("wonderland")},
                          {"bob", bcryptHash("pa:ss", "$2y$")},
                          {"carol", bcryptHash("x", "$2a$")}});
    EXPECT_TRUE(auth.verify("alice", "wonderland"));
    // Remembered the second time, and still right.
    EXPECT_TRUE(auth.verify("alice", "wonderland"));
    EXPECT_FALSE(auth.verify("alice", "Wonderland"));
    EXPECT_FALSE(auth.verify("alice", ""));
    EXPECT_FALSE(auth.verify("alice", std::string("wonderland\0more", 15)));
    EXPECT_FALSE(auth.verify("bob", "wonderland"));
    EXPECT_FALSE(auth.verify("mallory", "wonderland"));
    EXPECT_TRUE(auth.verify("bob", "pa:ss"));
    EXPECT_TRUE(auth.verify("carol", "x"));
}

TEST(BasicAuth, TheHeaderIsBasicWithBase64OfUserColonPassword) {
    tool::BasicAuth auth({{"alice", bcryptHash("wonderland")}, {"bob", bcryptHash("pa:ss")}});
    EXPECT_TRUE(auth.allows("Basic " + base64("alice:wonderland")));
    EXPECT_TRUE(auth.allows("basic " + base64("alice:wonderland")));
    // The first colon ends the user's name; the password may have more.
    EXPECT_TRUE(auth.allows("Basic " + base64("bob:pa:ss")));
    EXPECT_FALSE(auth.allows("Basic " + base64("alice:wonder")));
    EXPECT_FALSE(auth.allows("Basic " + base64("alicewonderland")));
    EXPECT_FALSE(auth.allows("Basic " + base64("alice:wonderland").substr(1)));
    EXPECT_FALSE(auth.allows("Basic " + base64("alice:wonderland") + "@"));
    EXPECT_FALSE(auth.allows("Bearer " + base64("alice:wonderland")));
    EXPECT_FALSE(auth.allows(""));
}

// The tests' handlers: GET / answers "hello\n"; POST /echo the size of the body it was sent;
// GET /query what the request gave a handler; GET /unavailable and GET /broken throw; GET /large
// answers 32 MiB.
void handleTheTestsPaths(tool::HttpServer& server) {
    server.handle("GET", "/", [](const tool::HttpRequest&, tool::HttpResponse& response) {
        response.body = "hello\n";
    });
    server.handle("POST", "/echo",
                  [](const tool::HttpRequest& request, tool::HttpResponse& response) {
                      response.body = std::to_string(request.body.size()) + " bytes\n";
                  });
    server.handle(
        "GET", "/query", [](const tool::HttpRequest& request, tool::HttpResponse& response) {
            for (const auto& [name, value] : request.query)
                response.body += name + "=[" + value + "] ";
            response.body += "target=" + request.param("target").value_or("none") +
                             " missing=" + request.param("missing").value_or("none") +
                             " path=" + request.path +
                             " header=" + request.header("x-test-HEADER") + " peer=" + request.peer;
            response.headers.emplace_back("X-Answered-By", "query");
        });
    server.handle("GET", "/unavailable", [](const tool::HttpRequest&, tool::HttpResponse&) {
        throw tool::ServiceUnavailable("busy\x01 now");
    });
    server.handle("GET", "/broken", [](const tool::HttpRequest&, tool::HttpResponse&) {
        throw std::runtime_error("not for clients");
    });
    server.handle("GET", "/large", [](const tool::HttpRequest&, tool::HttpResponse& response) {
        response.body.assign(32 << 20, 'x');
    });
}

// An HttpServer with the tests' handlers, on a port of 127.0.0.1 the system picked, run on a
// thread of its own; stopped when the object goes, whatever the test found.
class RunningServer {
public:
    explicit RunningServer(const tool::WebConfig* config, tool::HttpLimits limits = {})
        : server_(config, limits) {
        handleTheTestsPaths(server_);
        port_ = server_.bind("127.0.0.1", 0);
        if (port_ <= 0) throw std::runtime_error("no port of 127.0.0.1 to listen on");
        thread_ = std::thread([this] { server_.run(); });
    }
    ~RunningServer() {
        server_.stop();
        thread_.join();
    }
    RunningServer(const RunningServer&) = delete;
    RunningServer& operator=(const RunningServer&) = delete;

    int port() const { return port_; }

private:
    tool::HttpServer server_;
    int port_ = 0;
    std::thread thread_;
};

// The answer's status, or -1 when there was none (the connection failed).
int statusOf(const httplib::Result& result) { return result ? result->status : -1; }

using Clock = std::chrono::steady_clock;

// Asks `condition` again, every 10 ms, until it holds or `limit` has passed; whether it held.
bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    const auto end = Clock::now() + limit;
    for (;;) {
        if (condition()) return true;
        if (Clock::now() >= end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

// A TCP connection of the test's own to 127.0.0.1, for what httplib's clients do not do: send a
// request by halves or slowly, or one too large, and watch how the server ends the connection.
class RawConnection {
public:
    explicit RawConnection(int port) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (fd_ < 0 ||
            connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("cannot connect to 127.0.0.1:" + std::to_string(port));
    }
    ~RawConnection() { close(fd_); }
    RawConnection(const RawConnection&) = delete;
    RawConnection& operator=(const RawConnection&) = delete;

    // Whether all of `bytes` went; false once the server has closed the connection.
    bool send(const std::string& bytes) {
        return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(bytes.size());
    }
    // Reads what comes until the server closes the connection (or resets it), for `limit` at
    // most; whether it did. What was read is in received().
    bool closesWithin(std::chrono::milliseconds limit) {
        const auto end = Clock::now() + limit;
        while (!closed_) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                std::max(end - Clock::now(), Clock::duration::zero()));
            pollfd ready{fd_, POLLIN | POLLRDHUP, 0};
            if (poll(&ready, 1, static_cast<int>(left.count())) <= 0) return false;
            char buffer[4096];
            const ssize_t got = recv(fd_, buffer, sizeof buffer, 0);
            if (got <= 0) {
                closed_ = true;
            } else {
                received_.append(buffer, static_cast<std::size_t>(got));
            }
        }
        return true;
    }
    // Still open now: the server has neither closed it nor sent anything.
    bool idle() { return !closesWithin(std::chrono::milliseconds(0)) && received_.empty(); }
    // Reads until received() holds a whole answer (its head, then Content-Length bytes), for
    // 10 s at most; the answer, taken out of received(), or "" when none came whole.
    std::string answer() {
        const auto whole = [&] {
            const std::size_t end = received_.find("\r\n\r\n");
            if (end == std::string::npos) return std::string::npos;
            const std::size_t length = received_.find("Content-Length: ");
            if (length == std::string::npos || length > end) return end + 4;
            return end + 4 + std::stoul(received_.substr(length + 16));
        };
        const auto end = Clock::now() + std::chrono::seconds(10);
        while ((whole() == std::string::npos || whole() > received_.size()) && !closed_ &&
               Clock::now() < end)
            closesWithin(std::chrono::milliseconds(10));
        const std::size_t size = whole();
        if (size == std::string::npos || size > received_.size()) return "";
        std::string answer = received_.substr(0, size);
        received_.erase(0, size);
        return answer;
    }
    const std::string& received() const { return received_; }

private:
    int fd_;
    bool closed_ = false;
    std::string received_;
};

// An answer's first line, without its line break.
std::string statusLine(const std::string& answer) { return answer.substr(0, answer.find("\r\n")); }

// An answer's body: what follows its head.
std::string bodyOf(const std::string& answer) {
    const std::size_t end = answer.find("\r\n\r\n");
    return end == std::string::npos ? "" : answer.substr(end + 4);
}

TEST(WebServer, UsersMakeEveryRequestAuthenticate) {
    tool::WebConfig config;
    config.basicAuthUsers = {{"alice", bcryptHash("wonderland")}};
    config.headers = {{"X-Content-Type-Options", "nosniff"}};
    RunningServer server(&config);
    httplib::Client client("127.0.0.1", server.port());

    const httplib::Result anonymous = client.Get("/");
    ASSERT_EQ(statusOf(anonymous), 401);
    EXPECT_EQ(anonymous->get_header_value("WWW-Authenticate"), "Basic realm=\"ipmi-event-log\"");
    EXPECT_EQ(anonymous->get_header_value("X-Content-Type-Options"), "nosniff");

    client.set_basic_auth("alice", "looking-glass");
    EXPECT_EQ(statusOf(client.Get("/")), 401);
    client.set_basic_auth("alice", "wonderland");
    const httplib::Result allowed = client.Get("/");
    ASSERT_EQ(statusOf(allowed), 200);
    EXPECT_EQ(allowed->body, "hello\n");
    EXPECT_EQ(allowed->get_header_value("X-Content-Type-Options"), "nosniff");
}

TEST(WebServer, WithoutAConfigurationAnyoneIsAnswered) {
    RunningServer server(nullptr);
    httplib::Client client("127.0.0.1", server.port());
    EXPECT_EQ(statusOf(client.Get("/")), 200);
}

// An IPv6 address is given without brackets; a port taken or an address not this machine's is
// -1.
TEST(WebServer, BindsTheAddressGivenOrSaysItCannot) {
    RunningServer taken(nullptr);
    tool::HttpServer server(nullptr);
    EXPECT_EQ(server.bind("127.0.0.1", taken.port()), -1);
    EXPECT_EQ(server.bind("192.0.2.1", 0), -1);
    const int port = server.bind("::1", 0);
    if (port <= 0) GTEST_SKIP() << "no IPv6 loopback here";
    handleTheTestsPaths(server);
    std::thread running([&] { server.run(); });
    const int fd = socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(static_cast<std::uint16_t>(port));
    address.sin6_addr = in6addr_loopback;
    const timeval patience{10, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    const std::string request = "GET / HTTP/1.0\r\n\r\n";
    std::string answer;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        ::send(fd, request.data(), request.size(), MSG_NOSIGNAL) ==
            static_cast<ssize_t>(request.size())) {
        char buffer[4096];
        for (ssize_t got; (got = recv(fd, buffer, sizeof buffer, 0)) > 0;)
            answer.append(buffer, static_cast<std::size_t>(got));
    }
    close(fd);
    server.stop();
    running.join();
    EXPECT_EQ(statusLine(answer), "HTTP/1.1 200 OK");
    EXPECT_EQ(bodyOf(answer), "hello\n");
}

TEST(WebServer, HandlersAnswerByMethodAndPathAndTheirExceptionsAreAnswered) {
    tool::WebConfig config;
    config.headers = {{"X-Content-Type-Options", "nosniff"}};
    RunningServer server(&config);
    httplib::Client client("127.0.0.1", server.port());

    const httplib::Result unavailable = client.Get("/unavailable");
    ASSERT_EQ(statusOf(unavailable), 503);
    EXPECT_EQ(unavailable->body, "busy\\x01 now\n");
    EXPECT_EQ(unavailable->get_header_value("Content-Type"), "text/plain; charset=utf-8");
    const httplib::Result broken = client.Get("/broken");
    ASSERT_EQ(statusOf(broken), 500);
    EXPECT_EQ(broken->body, "Internal Server Error\n");
    const httplib::Result nowhere = client.Get("/nowhere");
    ASSERT_EQ(statusOf(nowhere), 404);
    EXPECT_EQ(nowhere->get_header_value("X-Content-Type-Options"), "nosniff");
    const httplib::Result posted = client.Post("/", "", "text/plain");
    ASSERT_EQ(statusOf(posted), 405);
    EXPECT_EQ(posted->get_header_value("Allow"), "GET");
    // HEAD is GET's handler without the body.
    const httplib::Result head = client.Head("/");
    ASSERT_EQ(statusOf(head), 200);
    EXPECT_EQ(head->get_header_value("Content-Length"), "6");
    EXPECT_EQ(head->body, "");
    const httplib::Result hello = client.Get("/");
    ASSERT_EQ(statusOf(hello), 200);
    EXPECT_EQ(hello->body, "hello\n");
    EXPECT_EQ(hello->get_header_value("Content-Type"), "text/plain");
}

TEST(WebServer, TheQueryIsPercentDecodedOnceAndHeadersAreFoundInAnyCase) {
    RunningServer server(nullptr);
    RawConnection connection(server.port());
    ASSERT_TRUE(connection.send(
        "GET /qu%65ry?target=a%20b%2525&module=x+y&bad=%zz&flag&target=second HTTP/1.1\r\n"
        "Host: 127.0.0.1\r\nX-Test-Header: value\r\n\r\n"));
    const std::string answer = connection.answer();
    EXPECT_EQ(statusLine(answer), "HTTP/1.1 200 OK");
    EXPECT_NE(answer.find("\r\nX-Answered-By: query\r\n"), std::string::npos) << answer;
    EXPECT_EQ(bodyOf(answer),
              "target=[a b%25] module=[x y] bad=[%zz] flag=[] target=[second] target=a b%25 "
              "missing=none path=/query header=value peer=127.0.0.1");
}

// A client that sends a header line every 300 ms gets bytes to each read long before any timeout
// of one read would end; the deadline on the whole request cuts it off all the same, while
// another connection is answered.
TEST(WebServer, ATricklingClientIsCutOffAtTheRequestDeadline) {
    tool::HttpLimits limits;
    limits.requestDeadline = std::chrono::seconds(1);
    RunningServer server(nullptr, limits);
    const auto started = Clock::now();
    RawConnection trickler(server.port());
    ASSERT_TRUE(trickler.send("GET / HTTP/1.1\r\n"));
    bool answeredMeanwhile = false;
    bool cutOff = false;
    while (!cutOff && Clock::now() - started < std::chrono::seconds(10)) {
        cutOff = trickler.closesWithin(std::chrono::milliseconds(300));
        if (!cutOff && !answeredMeanwhile) {
            httplib::Client client("127.0.0.1", server.port());
            const httplib::Result answer = client.Get("/");
            answeredMeanwhile = statusOf(answer) == 200 && answer->body == "hello\n";
        }
        if (!cutOff) trickler.send("X-Slow: 1\r\n");
    }
    const auto took = Clock::now() - started;
    EXPECT_TRUE(answeredMeanwhile);
    ASSERT_TRUE(cutOff);
    EXPECT_EQ(trickler.received(), "");
    EXPECT_GE(took, std::chrono::seconds(1));
    EXPECT_LT(took, std::chrono::seconds(4));
}

// Beyond the cap, a connection is closed as soon as it is accepted, without a byte, however long
// the request deadline; once one of those open goes, a new one is served.
TEST(WebServer, ConnectionsBeyondTheCapAreClosedAtOnce) {
    tool::HttpLimits limits;
    limits.connections = 4;
    limits.requestDeadline = std::chrono::seconds(60);
    RunningServer server(nullptr, limits);
    std::vector<std::unique_ptr<RawConnection>> open;
    for (int i = 0; i < 4; ++i) open.push_back(std::make_unique<RawConnection>(server.port()));
    RawConnection fifth(server.port());
    EXPECT_TRUE(fifth.closesWithin(std::chrono::seconds(5)));
    EXPECT_EQ(fifth.received(), "");
    httplib::Client client("127.0.0.1", server.port());
    EXPECT_EQ(statusOf(client.Get("/")), -1);
    for (const auto& connection : open) EXPECT_TRUE(connection->idle());

    open.erase(open.begin());
    EXPECT_TRUE(
        eventually([&] { return statusOf(client.Get("/")) == 200; }, std::chrono::seconds(10)));
    for (const auto& connection : open) EXPECT_TRUE(connection->idle());
}

TEST(WebServer, HalfOpenConnectionsHoldNoRequestUp) {
    RunningServer server(nullptr);
    RawConnection silent(server.port());
    RawConnection halfSent(server.port());
    ASSERT_TRUE(halfSent.send("GET / HTT"));
    httplib::Client client("127.0.0.1", server.port());
    const httplib::Result answer = client.Get("/");
    ASSERT_EQ(statusOf(answer), 200);
    EXPECT_EQ(answer->body, "hello\n");
    EXPECT_TRUE(silent.idle());
    EXPECT_TRUE(halfSent.idle());
}

TEST(WebServer, AHeadBeyondTheLimitIsAnswered431AndClosed) {
    RunningServer server(nullptr);
    RawConnection connection(server.port());
    ASSERT_TRUE(connection.send(
        "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Large: " + std::string(9000, 'a') + "\r\n\r\n"));
    ASSERT_TRUE(connection.closesWithin(std::chrono::seconds(10)));
    EXPECT_EQ(statusLine(connection.received()), "HTTP/1.1 431 Request Header Fields Too Large");
    EXPECT_EQ(bodyOf(connection.received()), "Request Header Fields Too Large\n");
}

TEST(WebServer, ABodyBeyondTheLimitIsAnswered413AndOneAtItIsTaken) {
    RunningServer server(nullptr);
    RawConnection connection(server.port());
    ASSERT_TRUE(
        connection.send("POST /echo HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 65537\r\n\r\n" +
                        std::string(65537, 'x')));
    ASSERT_TRUE(connection.closesWithin(std::chrono::seconds(10)));
    EXPECT_EQ(statusLine(connection.received()), "HTTP/1.1 413 Payload Too Large");
    EXPECT_EQ(bodyOf(connection.received()), "Payload Too Large\n");

    httplib::Client client("127.0.0.1", server.port());
    const httplib::Result taken =
        client.Post("/echo", std::string(64 * 1024, 'x'), "application/octet-stream");
    ASSERT_EQ(statusOf(taken), 200);
    EXPECT_EQ(taken->body, "65536 bytes\n");
}

// A POST without Content-Length has no body (curl -X POST sends none); a client that asks
// leave to send its body is told to go on.
TEST(WebServer, APostWithoutContentLengthIsTakenAndOneThatWaitsToldToGoOn) {
    RunningServer server(nullptr);
    RawConnection connection(server.port());
    ASSERT_TRUE(connection.send("POST /echo HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"));
    const std::string bodiless = connection.answer();
    EXPECT_EQ(statusLine(bodiless), "HTTP/1.1 200 OK");
    EXPECT_EQ(bodyOf(bodiless), "0 bytes\n");

    ASSERT_TRUE(
        connection.send("POST /echo HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 5\r\n"
                        "Expect: 100-continue\r\n\r\n"));
    EXPECT_EQ(connection.answer(), "HTTP/1.1 100 Continue\r\n\r\n");
    ASSERT_TRUE(connection.send("hello"));
    const std::string answer = connection.answer();
    EXPECT_EQ(statusLine(answer), "HTTP/1.1 200 OK");
    EXPECT_EQ(bodyOf(answer), "5 bytes\n");
}

TEST(WebServer, AKeptAliveConnectionIsAnsweredUntilItAsksToClose) {
    RunningServer server(nullptr);
    RawConnection connection(server.port());
    const std::string request = "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n";
    ASSERT_TRUE(connection.send(request + "\r\n"));
    const std::string first = connection.answer();
    EXPECT_EQ(statusLine(first), "HTTP/1.1 200 OK");
    EXPECT_EQ(bodyOf(first), "hello\n");
    EXPECT_TRUE(connection.idle());
    // Two at once, the second asking to close.
    ASSERT_TRUE(connection.send(request + "\r\n" + request + "Connection: close\r\n\r\n"));
    const std::string second = connection.answer();
    EXPECT_EQ(statusLine(second), "HTTP/1.1 200 OK");
    EXPECT_EQ(bodyOf(second), "hello\n");
    const std::string third = connection.answer();
    EXPECT_EQ(statusLine(third), "HTTP/1.1 200 OK");
    EXPECT_NE(third.find("\r\nConnection: close\r\n"), std::string::npos) << third;
    EXPECT_EQ(bodyOf(third), "hello\n");
    EXPECT_TRUE(connection.closesWithin(std::chrono::seconds(5)));
    EXPECT_EQ(connection.received(), "");
}

TEST(WebServer, AnHttp10ClientIsAnsweredOnceAndClosed) {
    RunningServer server(nullptr);
    RawConnection connection(server.port());
    ASSERT_TRUE(connection.send("GET / HTTP/1.0\r\n\r\n"));
    ASSERT_TRUE(connection.closesWithin(std::chrono::seconds(10)));
    EXPECT_EQ(statusLine(connection.received()), "HTTP/1.1 200 OK");
    EXPECT_EQ(bodyOf(connection.received()), "hello\n");
}

// An answer its client does not read is dropped at the response deadline: with room for one
// connection, another client is served only once it is.
TEST(WebServer, AnAnswerNotTakenIsDroppedAtTheResponseDeadline) {
    tool::HttpLimits limits;
    limits.connections = 1;
    limits.responseDeadline = std::chrono::seconds(1);
    RunningServer server(nullptr, limits);
    RawConnection stalled(server.port());
    ASSERT_TRUE(stalled.send("GET /large HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n"));
    httplib::Client client("127.0.0.1", server.port());
    EXPECT_TRUE(
        eventually([&] { return statusOf(client.Get("/")) == 200; }, std::chrono::seconds(15)));
}

// A CA, a server certificate for 127.0.0.1 and a client certificate it signed, and a client
// certificate nobody signed, made with openssl in a scratch directory.
class TlsTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        directory = new bmcsim::ScratchDirectory;
        makeCertificate("ca", "/CN=ipmi-event-log test CA", "");
        makeCertificate("server", "/CN=127.0.0.1",
                        "-addext subjectAltName=IP:127.0.0.1 -CA ca.crt -CAkey ca.key");
        makeCertificate("client", "/CN=scraper", "-CA ca.crt -CAkey ca.key");
        makeCertificate("stranger", "/CN=stranger", "");
    }
    static void TearDownTestSuite() {
        delete directory;
        directory = nullptr;
    }

    static void makeCertificate(const std::string& name, const std::string& subject,
                                const std::string& options) {
        bmcsim::makeCertificate(OPENSSL, *directory, name, subject, options);
    }

    static std::string file(const std::string& name) { return directory->file(name); }

    static tool::WebConfig tlsConfig(tool::ClientAuth clientAuth = tool::ClientAuth::NoClientCert) {
        tool::WebConfig config;
        config.tls.emplace();
        config.tls->certFile = file("server.crt");
        config.tls->keyFile = file("server.key");
        config.tls->clientAuth = clientAuth;
        if (clientAuth != tool::ClientAuth::NoClientCert) config.tls->clientCaFile = file("ca.crt");
        return config;
    }

    // A client that trusts the test's CA; with `certificate`'s .crt and .key when given.
    static std::unique_ptr<httplib::SSLClient> client(int port,
                                                      const std::string& certificate = "") {
        auto made = certificate.empty() ? std::make_unique<httplib::SSLClient>("127.0.0.1", port)
                                        : std::make_unique<httplib::SSLClient>(
                                              "127.0.0.1", port, file(certificate + ".crt"),
                                              file(certificate + ".key"));
        made->set_ca_cert_path(file("ca.crt"));
        made->enable_server_certificate_verification(true);
        return made;
    }

    // The client speaks `version` only; below TLS 1.2 OpenSSL's security level must allow it.
    static void onlyVersion(httplib::SSLClient& client, int version) {
        SSL_CTX* context = client.ssl_context();
        SSL_CTX_set_security_level(context, 0);
        SSL_CTX_set_cipher_list(context, "DEFAULT:@SECLEVEL=0");
        SSL_CTX_set_min_proto_version(context, version);
        SSL_CTX_set_max_proto_version(context, version);
    }

    static bmcsim::ScratchDirectory* directory;
};

bmcsim::ScratchDirectory* TlsTest::directory = nullptr;

TEST_F(TlsTest, HttpsWithBasicAuthentication) {
    tool::WebConfig config = tlsConfig();
    config.basicAuthUsers = {{"alice", bcryptHash("wonderland")}};
    RunningServer server(&config);

    auto https = client(server.port());
    EXPECT_EQ(statusOf(https->Get("/")), 401);
    https->set_basic_auth("alice", "looking-glass");
    EXPECT_EQ(statusOf(https->Get("/")), 401);
    https->set_basic_auth("alice", "wonderland");
    const httplib::Result allowed = https->Get("/");
    ASSERT_EQ(statusOf(allowed), 200);
    EXPECT_EQ(allowed->body, "hello\n");

    // Plain HTTP to the HTTPS port gets no answer.
    httplib::Client plain("127.0.0.1", server.port());
    plain.set_basic_auth("alice", "wonderland");
    EXPECT_EQ(statusOf(plain.Get("/")), -1);
}

TEST_F(TlsTest, MinVersionRefusesOlderClients) {
    tool::WebConfig config = tlsConfig();
    RunningServer server(&config);
    auto tls11 = client(server.port());
    onlyVersion(*tls11, TLS1_1_VERSION);
    EXPECT_EQ(statusOf(tls11->Get("/")), -1);
    auto tls12 = client(server.port());
    onlyVersion(*tls12, TLS1_2_VERSION);
    EXPECT_EQ(statusOf(tls12->Get("/")), 200);

    config.tls->minVersion = tool::TlsVersion::Tls13;
    RunningServer tls13Only(&config);
    auto refused = client(tls13Only.port());
    onlyVersion(*refused, TLS1_2_VERSION);
    EXPECT_EQ(statusOf(refused->Get("/")), -1);
    EXPECT_EQ(statusOf(client(tls13Only.port())->Get("/")), 200);
}

TEST_F(TlsTest, MaxVersionRefusesNewerClients) {
    tool::WebConfig config = tlsConfig();
    config.tls->maxVersion = tool::TlsVersion::Tls12;
    RunningServer server(&config);
    auto tls13 = client(server.port());
    onlyVersion(*tls13, TLS1_3_VERSION);
    EXPECT_EQ(statusOf(tls13->Get("/")), -1);
    EXPECT_EQ(statusOf(client(server.port())->Get("/")), 200);
}

TEST_F(TlsTest, RequiredClientCertificatesAreVerified) {
    tool::WebConfig config = tlsConfig(tool::ClientAuth::RequireAndVerifyClientCert);
    RunningServer server(&config);
    EXPECT_EQ(statusOf(client(server.port())->Get("/")), -1);
    EXPECT_EQ(statusOf(client(server.port(), "stranger")->Get("/")), -1);
    EXPECT_EQ(statusOf(client(server.port(), "client")->Get("/")), 200);
}

TEST_F(TlsTest, ClientCertificatesGivenAreVerified) {
    tool::WebConfig config = tlsConfig(tool::ClientAuth::VerifyClientCertIfGiven);
    RunningServer server(&config);
    EXPECT_EQ(statusOf(client(server.port())->Get("/")), 200);
    EXPECT_EQ(statusOf(client(server.port(), "stranger")->Get("/")), -1);
    EXPECT_EQ(statusOf(client(server.port(), "client")->Get("/")), 200);
}

TEST_F(TlsTest, AnyClientCertificateIsTakenWhenOnlyRequired) {
    tool::WebConfig config = tlsConfig(tool::ClientAuth::RequireAnyClientCert);
    RunningServer server(&config);
    EXPECT_EQ(statusOf(client(server.port())->Get("/")), -1);
    EXPECT_EQ(statusOf(client(server.port(), "stranger")->Get("/")), 200);
}

// The deadline counts from accept: a TLS client that never finishes its handshake is cut off too.
TEST_F(TlsTest, AStalledHandshakeIsCutOffAtTheRequestDeadline) {
    tool::WebConfig config = tlsConfig();
    tool::HttpLimits limits;
    limits.requestDeadline = std::chrono::seconds(1);
    RunningServer server(&config, limits);
    const auto started = Clock::now();
    RawConnection stalled(server.port());
    ASSERT_TRUE(stalled.closesWithin(std::chrono::seconds(10)));
    EXPECT_GE(Clock::now() - started, std::chrono::seconds(1));
    EXPECT_EQ(stalled.received(), "");
    EXPECT_EQ(statusOf(client(server.port())->Get("/")), 200);
}

// What HttpServer says of `config`.
std::string serverError(const tool::WebConfig& config) {
    try {
        tool::HttpServer server(&config);
    } catch (const tool::ConfigError& e) {
        return e.what();
    }
    return "no error";
}

TEST_F(TlsTest, CertificatesAndKeysThatCannotBeUsedAreNamed) {
    directory->write("empty.pem", "");
    tool::WebConfig config = tlsConfig();
    config.tls->certFile = file("empty.pem");
    EXPECT_EQ(serverError(config),
              "cannot use the certificate in " + file("empty.pem") + ": no start line");
    config = tlsConfig();
    config.tls->keyFile = file("client.key");
    EXPECT_EQ(serverError(config),
              "cannot use the private key in " + file("client.key") + ": key values mismatch");
    config = tlsConfig(tool::ClientAuth::VerifyClientCertIfGiven);
    config.tls->clientCaFile = file("empty.pem");
    EXPECT_EQ(serverError(config), "cannot use the CA certificates in " + file("empty.pem") +
                                       ": no certificate or crl found");
}

}  // namespace
