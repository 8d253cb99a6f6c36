// The engine against OpenSSL: every suite that both know, in every version, with certificates and
// groups of every kind in turn, at first and resumed. What was agreed is what the peer reports.
#include "tests/unit/net/tls/peer/OpenSslPeer.h"

#include <gtest/gtest.h>

#include "log/tvLogger.h"
#include "tests/fixtures/Record.h"
#include "tests/fixtures/TestBytes.h"
#include "tests/unit/net/tls/TestEnvironment.h"

namespace tv::tls::test {
namespace {

class Connection {
public:
    Connection(const OpenSslServer& server, TlsSettings settings, TestEnvironment& environment)
        : engine(std::move(settings), environment), ssl(SSL_new(server.context()), SSL_free) {
        SSL_set_bio(ssl.get(), toSsl_, fromSsl_);
        SSL_set_accept_state(ssl.get());
        engine.start(log_);
    }

    // Moves bytes both ways until nothing moves; what the server reads is the answer.
    std::string pump() {
        std::string got;
        for (bool moved = true; moved;) {
            DataBuffer& output = engine.output();
            moved = !output.empty();
            if (moved) BIO_write(toSsl_, output.data(), static_cast<int>(output.size()));
            output.clear();
            char text[16384];
            for (int n; (n = SSL_read(ssl.get(), text, sizeof text)) > 0;) {
                got.append(text, static_cast<size_t>(n));
            }
            Bytes bytes(BIO_ctrl_pending(fromSsl_));
            if (bytes.empty()) continue;
            BIO_read(fromSsl_, bytes.data(), static_cast<int>(bytes.size()));
            feed(engine, log_, bytes);
            moved = true;
        }
        return got;
    }

    bool carries(const std::string& text) {
        engine.sendApplicationData(log_, tv::test::bytesIn(text));
        const bool arrived = pump() == text;
        SSL_write(ssl.get(), text.data(), static_cast<int>(text.size()));
        pump();
        const bool came = tv::test::textOf(engine.input().bytes()) == text;
        engine.input().clear();
        return arrived && came;
    }

    std::string logText() {
        std::string text;
        log_.getText(text);
        return text + ERR_error_string(ERR_peek_last_error(), nullptr);
    }

    TlsProtocol engine;
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl;

private:
    BIO* toSsl_ = BIO_new(BIO_s_mem());    // owned by the SSL
    BIO* fromSsl_ = BIO_new(BIO_s_mem());  // owned by the SSL
    _tvLogger log_;
    tv::test::Recorded recorded_{log_};
};

void expectSuite(const OpenSslServer& server, const SSL_CIPHER* cipher, size_t turn, int version) {
    const char* const name = SSL_CIPHER_get_name(cipher);
    const char* const groups[] = {"X25519",          "P-256",           "P-384",          "P-521",
                                  "brainpoolP256r1", "brainpoolP384r1", "brainpoolP512r1"};
    const char* const group = groups[turn % (version == TLS1_3_VERSION ? 4 : 7)];
    SCOPED_TRACE(testing::Message() << name << " " << group << " " << std::hex << version);
    TestEnvironment environment;
    TlsSettings settings;
    settings.serverName = "server.test";
    settings.options.brainpool = settings.moreCurves = true;
    std::unique_ptr<Connection> connections[2];  // a session ends with its connection
    for (const bool resumed : {false, true}) {
        connections[resumed] = std::make_unique<Connection>(server, settings, environment);
        Connection& c = *connections[resumed];
        SSL* ssl = c.ssl.get();
        if (version == TLS1_3_VERSION) {
            SSL_set_ciphersuites(ssl, name);
        } else {
            SSL_set_cipher_list(ssl, (std::string(name) + ":@SECLEVEL=0").c_str());
        }
        SSL_set1_groups_list(ssl, group);
        if (turn % 2) SSL_set_options(ssl, SSL_OP_NO_EXTENDED_MASTER_SECRET);
        c.pump();
        ASSERT_TRUE(c.engine.isEstablished()) << c.logText();
        EXPECT_EQ(SSL_version(ssl), version);
        EXPECT_STREQ(SSL_get_cipher(ssl), name);
        EXPECT_EQ(SSL_session_reused(ssl), resumed);
        for (const size_t size : {1u, 16385u, 50000u}) {
            EXPECT_TRUE(c.carries(tv::test::randomText(size, "abcd"))) << size;
        }
        c.engine.sendCloseNotify();
        c.pump();
        EXPECT_TRUE(SSL_get_shutdown(ssl) & SSL_RECEIVED_SHUTDOWN);
        settings.session = c.engine.takeSession();
        environment.nowMs += 5000;
    }
}

TEST(OpenSslPeer, carriesDataBothWaysWithEverySuite) {
    const std::pair<int, size_t> rows[] = {
        {TLS1_VERSION, 12}, {TLS1_1_VERSION, 12}, {TLS1_2_VERSION, 41}, {TLS1_3_VERSION, 12}};
    for (const auto& [version, known] : rows) {
        size_t turn = 0;
        for (const char* const key : {"RSA-2048", "P-256", "P-384", "P-521"}) {
            const OpenSslServer server({version, version, key});
            STACK_OF(SSL_CIPHER)* all = SSL_CTX_get_ciphers(server.context());
            for (int i = 0; i < sk_SSL_CIPHER_num(all); ++i) {
                const SSL_CIPHER* cipher = sk_SSL_CIPHER_value(all, i);
                const CipherSuite* suite = findCipherSuite(SSL_CIPHER_get_protocol_id(cipher));
                if (!suite || static_cast<int>(suite->minVersion) > version) continue;
                if (suite->isTls13() != (version == TLS1_3_VERSION)) continue;
                const bool isEc = suite->keyExchange == KeyExchangeKind::EcdheEcdsa;
                if (!suite->isTls13() && isEc != (*key == 'P')) continue;
                expectSuite(server, cipher, turn++, version);
            }
        }
        EXPECT_GE(turn, known) << version;
    }
}

}  // namespace
}  // namespace tv::tls::test
