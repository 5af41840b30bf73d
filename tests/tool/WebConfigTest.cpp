// The web configuration: exporter-toolkit's keys read into OpenSSL's terms, and every mistake
// named by file, line and key.
#include <gtest/gtest.h>

#include "ConfigFileTest.h"
#include "ScratchDirectory.h"
#include "web/WebConfig.h"

namespace {

using Headers = std::vector<std::pair<std::string, std::string>>;

// Shaped as bcrypt's hashes are: only their form is checked when the file is read.
const std::string kAliceHash = "$2y$10$" + std::string(53, 'a');
const std::string kBobHash = "$2b$04$" + std::string(53, 'b');

class WebConfigTest : public ConfigFileTest<tool::WebConfig, tool::loadWebConfig> {
protected:
    WebConfigTest() : ConfigFileTest("web.yml") {
        scratch.write("server.crt", "certificate\n");
        scratch.write("server.key", "key\n");
        scratch.write("clients.crt", "CA\n");
    }
};

TEST_F(WebConfigTest, EveryKeyReadIntoOpenSslsTerms) {
    const tool::WebConfig config = load(
        "tls_server_config:\n"
        "  cert_file: server.crt\n"
        "  key_file: " +
        scratch.file("server.key") +
        "\n"
        "  client_auth_type: RequireAndVerifyClientCert\n"
        "  client_ca_file: clients.crt\n"
        "  min_version: TLS12\n"
        "  max_version: TLS13\n"
        "  cipher_suites:\n"
        "  - TLS_ECDHE_RSA_WITH_AES_128_GCM_SHA256\n"
        "  - TLS_ECDHE_ECDSA_WITH_CHACHA20_POLY1305\n"
        "  prefer_server_cipher_suites: false\n"
        "  curve_preferences: [X25519, CurveP256]\n"
        "http_server_config:\n"
        "  http2: false\n"
        "  headers:\n"
        "    X-Frame-Options: deny\n"
        "    Content-Security-Policy: \"\"\n"
        "    Strict-Transport-Security: max-age=31536000\n"
        "basic_auth_users:\n"
        "  alice: " +
        kAliceHash +
        "\n"
        "  bob: '" +
        kBobHash + "'\n");
    ASSERT_TRUE(config.tls);
    const tool::TlsServerConfig& tls = *config.tls;
    EXPECT_EQ(tls.certFile, scratch.file("server.crt"));
    EXPECT_EQ(tls.keyFile, scratch.file("server.key"));
    EXPECT_EQ(tls.clientCaFile, scratch.file("clients.crt"));
    EXPECT_EQ(tls.clientAuth, tool::ClientAuth::RequireAndVerifyClientCert);
    EXPECT_EQ(tls.minVersion, tool::TlsVersion::Tls12);
    EXPECT_EQ(tls.maxVersion, tool::TlsVersion::Tls13);
    EXPECT_EQ(tls.cipherList, "ECDHE-RSA-AES128-GCM-SHA256:ECDHE-ECDSA-CHACHA20-POLY1305");
    EXPECT_FALSE(tls.preferServerCipherSuites);
    EXPECT_EQ(tls.groups, "X25519:P-256");
    // A header left blank is not sent.
    EXPECT_EQ(config.headers, (Headers{{"X-Frame-Options", "deny"},
                                       {"Strict-Transport-Security", "max-age=31536000"}}));
    EXPECT_EQ(config.basicAuthUsers,
              (std::map<std::string, std::string>{{"alice", kAliceHash}, {"bob", kBobHash}}));
}

TEST_F(WebConfigTest, DefaultsAreExporterToolkits) {
    const tool::WebConfig config =
        load("tls_server_config:\n  cert_file: server.crt\n  key_file: server.key\n");
    ASSERT_TRUE(config.tls);
    EXPECT_EQ(config.tls->clientAuth, tool::ClientAuth::NoClientCert);
    EXPECT_EQ(config.tls->clientCaFile, "");
    EXPECT_EQ(config.tls->minVersion, tool::TlsVersion::Tls12);
    EXPECT_EQ(config.tls->maxVersion, std::nullopt);
    EXPECT_EQ(config.tls->cipherList, "");
    EXPECT_TRUE(config.tls->preferServerCipherSuites);
    EXPECT_EQ(config.tls->groups, "");
    EXPECT_TRUE(config.basicAuthUsers.empty());
    EXPECT_TRUE(config.headers.empty());

    // Without TLS settings, plain HTTP.
    EXPECT_FALSE(load("tls_server_config:\nbasic_auth_users:\n").tls);
    EXPECT_FALSE(load("").tls);
}

TEST_F(WebConfigTest, TlsMistakesAreNamedByFileLineAndKey) {
    const std::string tls = "tls_server_config:\n  cert_file: server.crt\n  key_file: server.key\n";
    EXPECT_EQ(errorOf(tls + "  client_auth_type: VerifyClientCert\n"),
              path(":4: tls_server_config.client_auth_type: \"VerifyClientCert\" is not "
                   "NoClientCert, RequestClientCert, RequireAnyClientCert, "
                   "VerifyClientCertIfGiven or RequireAndVerifyClientCert"));
    EXPECT_EQ(errorOf(tls + "  client_auth_type: RequireAndVerifyClientCert\n"),
              path(":4: tls_server_config.client_auth_type: verifying client certificates needs "
                   "client_ca_file"));
    EXPECT_EQ(errorOf(tls + "  client_ca_file: clients.crt\n"),
              path(":4: tls_server_config.client_ca_file: is given, but client_auth_type asks "
                   "clients for no certificate"));
    EXPECT_EQ(errorOf(tls + "  min_version: TLS14\n"),
              path(":4: tls_server_config.min_version: \"TLS14\" is not TLS10, TLS11, TLS12 or "
                   "TLS13"));
    EXPECT_EQ(errorOf(tls + "  max_version: TLS11\n"),
              path(":4: tls_server_config.max_version: is below min_version"));
    EXPECT_EQ(errorOf(tls + "  cipher_suites: [TLS_RSA_WITH_RC5]\n"),
              path(":4: tls_server_config.cipher_suites[0]: \"TLS_RSA_WITH_RC5\" is not a cipher "
                   "suite OpenSSL knows"));
    EXPECT_EQ(errorOf(tls + "  curve_preferences: [CurveP224]\n"),
              path(":4: tls_server_config.curve_preferences[0]: \"CurveP224\" is not CurveP256, "
                   "CurveP384, CurveP521 or X25519"));
    EXPECT_EQ(errorOf(tls + "  prefer_server_cipher_suites: yes\n"),
              path(":4: tls_server_config.prefer_server_cipher_suites: \"yes\" is not true or "
                   "false"));
    EXPECT_EQ(errorOf(tls + "  cert: \"-----BEGIN CERTIFICATE-----\"\n"),
              path(":4: tls_server_config.cert: is not supported by ipmi-event-log; use "
                   "cert_file"));
    EXPECT_EQ(errorOf(tls + "  client_allowed_sans: [scraper]\n"),
              path(":4: tls_server_config.client_allowed_sans: is not supported by "
                   "ipmi-event-log"));
    EXPECT_EQ(errorOf(tls + "  key_fil: server.key\n"),
              path(":4: tls_server_config.key_fil: unknown key"));
    EXPECT_EQ(errorOf("tls_server_config:\n  cert_file: server.crt\n"),
              path(":1: tls_server_config: needs both cert_file and key_file"));
    EXPECT_EQ(errorOf("tls_server_config:\n  cert_file: missing.crt\n  key_file: server.key\n"),
              path(":2: tls_server_config.cert_file: cannot read ") + scratch.file("missing.crt") +
                  ": No such file or directory");
}

TEST_F(WebConfigTest, HttpAndUserMistakesAreNamedByFileLineAndKey) {
    EXPECT_EQ(errorOf("http_server_config:\n  headers:\n    X-Frame-Options: allow\n"),
              path(":3: http_server_config.headers.X-Frame-Options: \"allow\" is not deny or "
                   "sameorigin"));
    EXPECT_EQ(errorOf("http_server_config:\n  headers:\n    X-Content-Type-Options: sniff\n"),
              path(":3: http_server_config.headers.X-Content-Type-Options: \"sniff\" is not "
                   "nosniff"));
    EXPECT_EQ(errorOf("http_server_config:\n  headers:\n    Server: ipmi\n"),
              path(":3: http_server_config.headers.Server: unknown key"));
    EXPECT_EQ(errorOf("http_server_config:\n  http2: maybe\n"),
              path(":2: http_server_config.http2: \"maybe\" is not true or false"));
    EXPECT_EQ(errorOf("basic_auth_users:\n  alice: secret\n"),
              path(":2: basic_auth_users.alice: is not a bcrypt hash ($2y$, $2b$, $2a$)"));
    EXPECT_EQ(errorOf("basic_auth_users:\n  \"al:ice\": " + kAliceHash + "\n"),
              path(":2: basic_auth_users.al:ice: a user name must be neither empty nor hold "
                   "\":\""));
    EXPECT_EQ(errorOf("rate_limit:\n  burst: 20\n"), path(":1: rate_limit: unknown key"));
    EXPECT_EQ(errorOf("basic_auth_users: [alice]\n"),
              path(":1: basic_auth_users: is not a mapping of keys to values"));
}

}  // namespace
