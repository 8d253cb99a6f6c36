// The engine against OpenSSL: versions, suites, groups, resumption, renegotiation. What was
// negotiated is asserted as the peer reports it.
#include <gtest/gtest.h>

#include "tests/unit/net/tls/peer/OpenSslPeer.h"

namespace tv::tls::test {
namespace {

TlsSettings plainSettings() {
    TlsSettings settings;
    settings.serverName = "server.test";
    return settings;
}

std::string payload(size_t size) {
    std::string text(size, ' ');
    for (size_t i = 0; i < size; ++i) {
        text[i] = static_cast<char>('A' + i * 7 % 53);
    }
    return text;
}

void expectTraffic(Connection& c) {
    for (const size_t size : {size_t{1}, size_t{16384}, size_t{16385}, size_t{200000}}) {
        const std::string text = payload(size);
        EXPECT_EQ(c.toServer(text), text) << size;
        EXPECT_EQ(c.toClient(text), text) << size;
    }
}

struct Case {
    const char* name;
    int version;
    const char* key;
    const char* suite;  // as OpenSSL names it
    const char* groups;
    const char* expectedGroup;  // nullptr: not looked at
};

class EachSuite : public testing::TestWithParam<Case> {};

TEST_P(EachSuite, CarriesDataBothWays) {
    const Case& p = GetParam();
    ServerOptions options;
    options.minVersion = options.maxVersion = p.version;
    options.key = p.key;
    (p.version == TLS1_3_VERSION ? options.suites13 : options.ciphers) = p.suite;
    if (p.version != TLS1_3_VERSION) options.ciphers += ":@SECLEVEL=0";
    if (p.groups) options.groups = p.groups;
    const OpenSslServer server(options);
    TestEnvironment environment;
    TlsSettings settings = plainSettings();
    settings.options.brainpool = true;
    settings.moreCurves = true;
    Connection c(server, settings, environment);
    ASSERT_TRUE(c.handshake()) << c.logText() << ERR_error_string(ERR_peek_last_error(), nullptr);
    EXPECT_EQ(SSL_version(c.ssl()), p.version);
    EXPECT_STREQ(SSL_get_cipher(c.ssl()), p.suite);
    if (p.expectedGroup) {
        const int nid = static_cast<int>(SSL_get_negotiated_group(c.ssl()));
        EXPECT_STREQ(OBJ_nid2sn(nid), p.expectedGroup);
    }
    expectTraffic(c);
    c.engine.sendCloseNotify();
    EXPECT_EQ(c.toServer(""), "");
    EXPECT_TRUE(SSL_get_shutdown(c.ssl()) & SSL_RECEIVED_SHUTDOWN);
}

constexpr Case kCases[] = {
    {"Tls13Aes128", TLS1_3_VERSION, "P-256", "TLS_AES_128_GCM_SHA256", "X25519", "X25519"},
    {"Tls13Aes256", TLS1_3_VERSION, "RSA-2048", "TLS_AES_256_GCM_SHA384", "P-256", "prime256v1"},
    {"Tls13ChaCha", TLS1_3_VERSION, "P-384", "TLS_CHACHA20_POLY1305_SHA256", nullptr, nullptr},
    {"Tls13RetryP384", TLS1_3_VERSION, "P-521", "TLS_AES_128_GCM_SHA256", "P-384", "secp384r1"},
    {"Tls13RetryP521", TLS1_3_VERSION, "P-256", "TLS_AES_256_GCM_SHA384", "P-521", "secp521r1"},
    {"EcdsaGcm128", TLS1_2_VERSION, "P-256", "ECDHE-ECDSA-AES128-GCM-SHA256", "P-256",
     "prime256v1"},
    {"EcdsaGcm256", TLS1_2_VERSION, "P-384", "ECDHE-ECDSA-AES256-GCM-SHA384", "P-384", "secp384r1"},
    {"EcdsaChaCha", TLS1_2_VERSION, "P-521", "ECDHE-ECDSA-CHACHA20-POLY1305", "P-521", "secp521r1"},
    {"EcdsaCbc128", TLS1_2_VERSION, "P-256", "ECDHE-ECDSA-AES128-SHA256", "X25519", "X25519"},
    {"EcdsaCbc256", TLS1_2_VERSION, "P-256", "ECDHE-ECDSA-AES256-SHA384", "brainpoolP256r1",
     "brainpoolP256r1"},
    {"EcdsaSha1", TLS1_2_VERSION, "P-256", "ECDHE-ECDSA-AES256-SHA", "brainpoolP512r1",
     "brainpoolP512r1"},
    {"RsaGcm128", TLS1_2_VERSION, "RSA-2048", "ECDHE-RSA-AES128-GCM-SHA256", "brainpoolP384r1",
     "brainpoolP384r1"},
    {"RsaChaCha", TLS1_2_VERSION, "RSA-2048", "ECDHE-RSA-CHACHA20-POLY1305", nullptr, nullptr},
    {"RsaCbc", TLS1_2_VERSION, "RSA-2048", "ECDHE-RSA-AES256-SHA384", nullptr, nullptr},
    {"DheGcm", TLS1_2_VERSION, "RSA-2048", "DHE-RSA-AES128-GCM-SHA256", nullptr, nullptr},
    {"DheGcm256", TLS1_2_VERSION, "RSA-2048", "DHE-RSA-AES256-GCM-SHA384", nullptr, nullptr},
    {"DheChaCha", TLS1_2_VERSION, "RSA-2048", "DHE-RSA-CHACHA20-POLY1305", nullptr, nullptr},
    {"DheCbc", TLS1_2_VERSION, "RSA-2048", "DHE-RSA-AES256-SHA256", nullptr, nullptr},
    {"PlainRsaGcm", TLS1_2_VERSION, "RSA-2048", "AES256-GCM-SHA384", nullptr, nullptr},
    {"PlainRsaCbc", TLS1_2_VERSION, "RSA-2048", "AES128-SHA256", nullptr, nullptr},
    {"PlainRsaSha1", TLS1_2_VERSION, "RSA-2048", "AES128-SHA", nullptr, nullptr},
    {"Tls11Rsa", TLS1_1_VERSION, "RSA-2048", "ECDHE-RSA-AES128-SHA", nullptr, nullptr},
    {"Tls11Ecdsa", TLS1_1_VERSION, "P-256", "ECDHE-ECDSA-AES128-SHA", nullptr, nullptr},
    {"Tls11Dhe", TLS1_1_VERSION, "RSA-2048", "DHE-RSA-AES256-SHA", nullptr, nullptr},
    {"Tls10Rsa", TLS1_VERSION, "RSA-2048", "AES256-SHA", nullptr, nullptr},
    {"Tls10Ecdhe", TLS1_VERSION, "RSA-2048", "ECDHE-RSA-AES256-SHA", nullptr, nullptr},
    {"Tls10Ecdsa", TLS1_VERSION, "P-256", "ECDHE-ECDSA-AES256-SHA", nullptr, nullptr},
};

INSTANTIATE_TEST_SUITE_P(OpenSsl, EachSuite, testing::ValuesIn(kCases),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(OpenSslPeer, EveryByteMayComeAlone) {
    for (const int version : {TLS1_VERSION, TLS1_2_VERSION, TLS1_3_VERSION}) {
        ServerOptions options;
        options.minVersion = options.maxVersion = version;
        const OpenSslServer server(options);
        TestEnvironment environment;
        Connection c(server, plainSettings(), environment);
        EXPECT_TRUE(c.handshake(1)) << version << c.logText();
    }
}

TEST(OpenSslPeer, ClientCertificateRequestIsAnsweredWithNone) {
    for (const int version : {TLS1_VERSION, TLS1_2_VERSION, TLS1_3_VERSION}) {
        ServerOptions options;
        options.minVersion = options.maxVersion = version;
        options.asksForCertificate = true;
        const OpenSslServer server(options);
        TestEnvironment environment;
        Connection c(server, plainSettings(), environment);
        ASSERT_TRUE(c.handshake()) << version << c.logText();
        expectTraffic(c);
    }
}

TEST(OpenSslPeer, SessionsAreResumed) {
    for (const int version : {TLS1_VERSION, TLS1_1_VERSION, TLS1_2_VERSION, TLS1_3_VERSION}) {
        for (const char* groups : {"X25519", "P-384"}) {
            ServerOptions options;
            options.minVersion = options.maxVersion = version;
            options.groups = groups;
            const OpenSslServer server(options);
            TestEnvironment environment;
            Connection first(server, plainSettings(), environment);
            ASSERT_TRUE(first.handshake()) << version << first.logText();
            expectTraffic(first);
            EXPECT_FALSE(SSL_session_reused(first.ssl()));
            TlsSettings settings = plainSettings();
            settings.session = first.engine.takeSession();
            ASSERT_TRUE(settings.session) << version;
            environment.nowMs += 5000;
            Connection second(server, settings, environment);
            ASSERT_TRUE(second.handshake()) << version << second.logText();
            EXPECT_TRUE(SSL_session_reused(second.ssl())) << version << groups;
            EXPECT_TRUE(second.engine.negotiated().resumed);
            expectTraffic(second);
        }
    }
}

TEST(OpenSslPeer, ServerMayRenegotiateThreeTimes) {
    for (const int version : {TLS1_VERSION, TLS1_2_VERSION}) {
        ServerOptions options;
        options.minVersion = options.maxVersion = version;
        const OpenSslServer server(options);
        TestEnvironment environment;
        Connection c(server, plainSettings(), environment);
        ASSERT_TRUE(c.handshake());
        for (int i = 0; i < 3; ++i) {
            SSL_renegotiate(c.ssl());
            SSL_do_handshake(c.ssl());
            ASSERT_TRUE(c.handshake())
                << c.logText() << ERR_error_string(ERR_peek_last_error(), nullptr);
            EXPECT_EQ(SSL_total_renegotiations(c.ssl()), i + 1);
            expectTraffic(c);
        }
        SSL_renegotiate(c.ssl());
        SSL_do_handshake(c.ssl());
        c.pump();
        EXPECT_EQ(c.engine.failure(), Cause::TlsTooManyRenegotiations);
    }
}

TEST(OpenSslPeer, FallbackIsTakenWhereTheServerCanDoNoMore) {
    for (const int version : {TLS1_2_VERSION, TLS1_3_VERSION}) {
        ServerOptions options;
        options.maxVersion = version;
        const OpenSslServer server(options);
        TestEnvironment environment;
        TlsSettings settings = plainSettings();
        settings.versions.highest = Version::Tls12;
        settings.fallback = true;
        Connection c(server, settings, environment);
        const bool noMore = version == TLS1_2_VERSION;
        EXPECT_EQ(c.handshake(), noMore) << c.logText();
        EXPECT_EQ(c.engine.peerAlert() == Alert::InappropriateFallback, !noMore);
    }
}

TEST(OpenSslPeer, KeyUpdatesOfTheServerAreFollowed) {
    ServerOptions options;
    options.minVersion = TLS1_3_VERSION;
    const OpenSslServer server(options);
    for (const int kind : {SSL_KEY_UPDATE_NOT_REQUESTED, SSL_KEY_UPDATE_REQUESTED}) {
        TestEnvironment environment;
        Connection c(server, plainSettings(), environment);
        ASSERT_TRUE(c.handshake());
        SSL_key_update(c.ssl(), kind);
        expectTraffic(c);
    }
}

}  // namespace
}  // namespace tv::tls::test
