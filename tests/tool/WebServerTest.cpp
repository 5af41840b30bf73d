// The web server its configuration makes: basic authentication against bcrypt hashes, and HTTPS
// with the TLS versions and client certificates asked for, tried with httplib's own clients
// against certificates the test makes with openssl.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>

#include <chrono>
#include <cstdlib>
#include <thread>

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

// A server from makeHttpServer answering GET / with "hello\n", on a port of 127.0.0.1 the system
// picked, in a thread of its own; stopped when the object goes, whatever the test found.
class RunningServer {
public:
    explicit RunningServer(const tool::WebConfig* config) : server_(tool::makeHttpServer(config)) {
        server_->Get("/", [](const httplib::Request&, httplib::Response& response) {
            response.set_content("hello\n", "text/plain");
        });
        port_ = server_->bind_to_any_port("127.0.0.1");
        if (port_ <= 0) throw std::runtime_error("no port of 127.0.0.1 to listen on");
        thread_ = std::thread([this] { server_->listen_after_bind(); });
        // Stopping a server that is not yet listening would leave its thread listening.
        for (int waited = 0; !server_->is_running() && waited < 5000; ++waited) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    ~RunningServer() {
        server_->stop();
        thread_.join();
    }
    RunningServer(const RunningServer&) = delete;
    RunningServer& operator=(const RunningServer&) = delete;

    int port() const { return port_; }

private:
    std::unique_ptr<httplib::Server> server_;
    int port_ = 0;
    std::thread thread_;
};

// The answer's status, or -1 when there was none (the connection failed).
int statusOf(const httplib::Result& result) { return result ? result->status : -1; }

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

// What makeHttpServer says of `config`.
std::string serverError(const tool::WebConfig& config) {
    try {
        tool::makeHttpServer(&config);
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
