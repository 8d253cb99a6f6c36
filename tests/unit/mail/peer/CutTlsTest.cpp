// The connection ends at every byte of a dialogue under TLS, in both directions, with OpenSSL as
// the server: within the handshake, within a record, between records.
#include "tests/unit/mail/CutPlay.h"
#include "tests/unit/net/tls/peer/OpenSslPeer.h"

namespace tv::test {
namespace {

constexpr size_t kSignatureVaries = 4;  // the length of a signature by ECDSA, as DER

// A good server that takes one message. Speaks TLS from the first byte or after STARTTLS.
class TlsMailPeer final : public FakePeer {
public:
    TlsMailPeer(SSL_CTX* context, bool implicit)
        : ssl_(SSL_new(context), SSL_free),
          toSsl_(BIO_new(BIO_s_mem())),
          fromSsl_(BIO_new(BIO_s_mem())),
          secure_(implicit) {
        SSL_set_bio(ssl_.get(), toSsl_, fromSsl_);
        SSL_set_accept_state(ssl_.get());
        reply_ = "220 mail.test ready\r\n";
    }

    void onConnect(std::string& out) override { pass(out); }
    void onBytes(std::string_view bytes, std::string& out) override {
        if (secure_) {
            BIO_write(toSsl_, bytes.data(), static_cast<int>(bytes.size()));
        } else {
            take(bytes);
        }
        pass(out);
    }
    Ending ending() const override { return closing_ ? Ending::Eof : Ending::None; }
    bool hasMessage() const { return hasMessage_; }

    bool refusesEarly = false;  // with a word and a good-bye in one segment

private:
    void pass(std::string& out) {
        if (!secure_) {
            out += std::exchange(reply_, {});
            secure_ = startsTls_;
            return;
        }
        char bytes[4096];
        int size;
        if (!SSL_is_init_finished(ssl_.get())) SSL_do_handshake(ssl_.get());
        while ((size = SSL_read(ssl_.get(), bytes, sizeof bytes)) > 0)
            take({bytes, static_cast<size_t>(size)});
        if (SSL_get_shutdown(ssl_.get()) & SSL_RECEIVED_SHUTDOWN) closing_ = true;
        if (SSL_is_init_finished(ssl_.get()) && !reply_.empty()) {
            SSL_write(ssl_.get(), reply_.data(), static_cast<int>(reply_.size()));
            reply_.clear();
            if (refusesEarly && inMessage_ && !text_.empty())
                closing_ = SSL_shutdown(ssl_.get()) == 0;
        }
        while ((size = BIO_read(fromSsl_, bytes, sizeof bytes)) > 0)
            out.append(bytes, static_cast<size_t>(size));
        ERR_clear_error();
    }

    void take(std::string_view bytes) {
        text_ += bytes;
        for (size_t end; (end = text_.find(inMessage_ ? "\r\n.\r\n" : "\r\n")) != text_.npos;) {
            const std::string line = text_.substr(0, end);
            text_.erase(0, end + (inMessage_ ? 5 : 2));
            reply_ += answer(line);
        }
        if (refusesEarly && inMessage_ && !text_.empty()) reply_ = "552 too big\r\n";
    }

    std::string answer(const std::string& line) {
        if (std::exchange(inMessage_, line == "DATA" && !inMessage_)) {
            hasMessage_ = true;
            return "250 taken\r\n";
        }
        if (inMessage_) return "354 go ahead\r\n";
        if (line == "STARTTLS") startsTls_ = true;
        if (line.starts_with("EHLO")) return "250-mail.test\r\n250 STARTTLS\r\n";
        return line.starts_with("MAIL") ? "250 sender ok\r\n" : "250 ok\r\n";
    }

    std::unique_ptr<SSL, decltype(&SSL_free)> ssl_;
    BIO* toSsl_;    // owned by the SSL
    BIO* fromSsl_;  // owned by the SSL
    bool secure_;
    bool startsTls_ = false;
    bool inMessage_ = false;
    bool hasMessage_ = false;
    bool closing_ = false;
    std::string text_;   // from the client, in clear, unfinished
    std::string reply_;  // not yet sent
};

Road tlsRoad(const char* name, int version, bool implicit, size_t connects) {
    tls::test::ServerOptions options;
    options.minVersion = options.maxVersion = version;
    const auto server = std::make_shared<tls::test::OpenSslServer>(options);
    const Properties properties{{"SmtpSsl", implicit ? "1" : "0"},
                                {"SmtpPort", "465"},
                                {"AutoFix", "0"},
                                {"StartTLS", implicit ? "0" : "1"}};
    return {name, properties,
            [server, implicit](MailWorld& world) {
                auto peer = std::make_unique<TlsMailPeer>(server->context(), implicit);
                const TlsMailPeer* seen = peer.get();
                FakeLink& link = world.net.servePeer(kServer, 465, std::move(peer));
                return CutServer{&link, [seen] { return seen->hasMessage(); }};
            },
            connects, kSignatureVaries};
}

class CutTls : public testing::TestWithParam<Road> {};

TEST_P(CutTls, atEveryByte) {
    playCutsAtEveryByte(GetParam(), {Ending::Eof, Ending::Reset, Ending::Stall});
}

TEST_P(CutTls, abortsAtEveryByte) {
    playAbortsAtEveryByte(GetParam());
}

TEST_P(CutTls, piecesOfAnySizeGiveTheSameDialogue) {
    playPiecesOfAnySize(GetParam());
}

TEST(CutTlsOnce, aRefusalInTheMiddleOfTheMessageEndsItAtOnce) {
    MailWorld world({{"SmtpSsl", "1"}, {"SmtpPort", "465"}, {"SendChunkSize", "19"}});
    world.compose();
    const tls::test::OpenSslServer server{tls::test::ServerOptions()};
    auto peer = std::make_unique<TlsMailPeer>(server.context(), true);
    peer->refusesEarly = true;
    world.net.servePeer(kServer, 465, std::move(peer));
    EXPECT_FALSE(world.send());
    EXPECT_EQ(world.word(), "DataFailure");
    EXPECT_TRUE(world.transcript().ends_with("552 too big\r\n")) << world.transcript();
    EXPECT_TRUE(contains(world.logText(), "numBytesSent: 19\r\n")) << world.logText();
}

// A handshake with TLS 1.3 that gets no answer is made once more without it, so that one cut can
// cost a connection more.
INSTANTIATE_TEST_SUITE_P(Roads, CutTls,
                         testing::Values(tlsRoad("Tls13", TLS1_3_VERSION, true, 3),
                                         tlsRoad("Tls12", TLS1_2_VERSION, true, 3),
                                         tlsRoad("StartTls", TLS1_3_VERSION, false, 2)),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace tv::test
