// The engine against OpenSSL: every suite that both know, in every version, with certificates and
// groups of every kind in turn, at first and resumed. What was agreed is what the peer reports.
#include "tests/unit/net/tls/peer/OpenSslPeer.h"

#include "tests/unit/net/tls/peer/Talk.h"

namespace tv::tls::test {
namespace {

// The other end of a talk.
class OpenSslEnd {
public:
    explicit OpenSslEnd(const OpenSslServer& server) : ssl(SSL_new(server.context()), SSL_free) {
        SSL_set_bio(ssl.get(), in_, out_);
        SSL_set_accept_state(ssl.get());
    }
    void receive(View bytes) {
        if (!bytes.empty()) BIO_write(in_, bytes.data(), static_cast<int>(bytes.size()));
        char text[16384];
        for (int n; (n = SSL_read(ssl.get(), text, sizeof text)) > 0;) {
            received.append(text, static_cast<size_t>(n));
        }
    }
    Bytes take() {
        Bytes bytes(BIO_ctrl_pending(out_));
        BIO_read(out_, bytes.data(), static_cast<int>(bytes.size()));
        return bytes;
    }
    void send(uint8_t, View text) {
        SSL_write(ssl.get(), text.data(), static_cast<int>(text.size()));
    }

    std::string received;
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl;

private:
    BIO* in_ = BIO_new(BIO_s_mem());   // owned by the SSL
    BIO* out_ = BIO_new(BIO_s_mem());  // owned by the SSL
};

void expectSuite(const OpenSslServer& server, const char* name, size_t turn, int version) {
    const char* const groups[] = {"X25519",          "P-256",           "P-384",          "P-521",
                                  "brainpoolP256r1", "brainpoolP384r1", "brainpoolP512r1"};
    const char* const group = groups[turn % (version == TLS1_3_VERSION ? 4 : 7)];
    SCOPED_TRACE(testing::Message() << name << " " << group << " " << std::hex << version);
    TlsSettings settings = namedSettings();
    settings.options.brainpool = settings.moreCurves = true;
    std::unique_ptr<Talk<OpenSslEnd>> talks[2];  // a session ends with its connection
    for (const bool resumed : {false, true}) {
        talks[resumed] = std::make_unique<Talk<OpenSslEnd>>(server, settings);
        Talk<OpenSslEnd>& talk = *talks[resumed];
        SSL* ssl = talk.server.ssl.get();
        if (version == TLS1_3_VERSION) {
            SSL_set_ciphersuites(ssl, name);
        } else {
            SSL_set_cipher_list(ssl, (std::string(name) + ":@SECLEVEL=0").c_str());
        }
        SSL_set1_groups_list(ssl, group);
        if (turn % 2) SSL_set_options(ssl, SSL_OP_NO_EXTENDED_MASTER_SECRET);
        talk.pump();
        ASSERT_TRUE(talk.engine.isEstablished()) << talk.logText();
        EXPECT_EQ(SSL_version(ssl), version);
        EXPECT_STREQ(SSL_get_cipher(ssl), name);
        EXPECT_EQ(SSL_session_reused(ssl), resumed);
        for (const size_t size : {1u, 16385u, 50000u}) {
            EXPECT_TRUE(talk.dataFlows(size)) << size;
        }
        talk.engine.sendCloseNotify();
        talk.pump();
        EXPECT_TRUE(SSL_get_shutdown(ssl) & SSL_RECEIVED_SHUTDOWN);
        settings.session = talk.engine.takeSession();
        if (settings.session) settings.session->receivedAtMs -= 5000;
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
                expectSuite(server, SSL_CIPHER_get_name(cipher), turn++, version);
            }
        }
        EXPECT_GE(turn, known) << version;
    }
}

}  // namespace
}  // namespace tv::tls::test
