// The connection ends at every byte of a dialogue under TLS, in both directions, with OpenSSL as
// the server: within the handshake, within a record, between records.
#include "tests/unit/mail/CutPlay.h"
#include "tests/unit/mail/peer/TlsMailPeer.h"

namespace tv::test {
namespace {

constexpr size_t kSignatureVaries = 4;  // the length of a signature by ECDSA, as DER

Road tlsRoad(const char* name, int version, bool implicit, size_t connects) {
    tls::test::ServerOptions options;
    options.minVersion = options.maxVersion = version;
    const auto server = std::make_shared<tls::test::OpenSslServer>(options);
    const auto serve = [server, implicit](MailWorld& world) {
        auto peer = std::make_unique<TlsMailPeer>(server->context(), implicit);
        const TlsMailPeer* seen = peer.get();
        FakeLink& link = world.net.servePeer(kServer, 465, std::move(peer));
        return CutServer{&link, [seen] { return seen->hasMessage(); }};
    };
    return {name,
            {{"SmtpPort", "465"},
             {"AutoFix", "0"},
             {"SmtpSsl", implicit ? "1" : "0"},
             {"StartTLS", implicit ? "0" : "1"}},
            serve,
            connects,
            kSignatureVaries};
}

class CutTls : public testing::TestWithParam<Road> {};

TEST_P(CutTls, atEveryByte) {
    playRoad(GetParam());
}

// A handshake with TLS 1.3 that gets no answer is made once more without it, so that one cut can
// cost a connection more.
INSTANTIATE_TEST_SUITE_P(Roads, CutTls,
                         testing::Values(tlsRoad("Tls13", TLS1_3_VERSION, true, 3),
                                         tlsRoad("Tls12", TLS1_2_VERSION, true, 3),
                                         tlsRoad("StartTls", TLS1_3_VERSION, false, 2)),
                         [](const auto& row) { return std::string(row.param.name); });

// What was said before the connection broke was said: a message that was taken is not sent again,
// and a refusal in its middle ends it at once.
TEST(CutTlsOnce, wordsBeforeTheEndCount) {
    for (const bool refuses : {false, true}) {
        MailWorld world({{"SmtpSsl", "1"}, {"SmtpPort", "465"}, {"SendChunkSize", "19"}});
        const tls::test::OpenSslServer server({});
        auto peer = std::make_unique<TlsMailPeer>(server.context(), true);
        peer->refusesEarly = refuses;
        if (!refuses) {
            peer->behindMessage = std::string("\x17\x03\x03\x00\x20", 5) + std::string(32, '?');
        }
        world.net.servePeer(kServer, 465, std::move(peer));
        world.compose();
        EXPECT_EQ(world.send(), !refuses) << world.logText();
        EXPECT_EQ(world.word(), refuses ? "DataFailure" : "Success");
        EXPECT_TRUE(world.transcript().ends_with(refuses ? "552 too big\r\n" : "250 taken\r\n"));
        EXPECT_EQ(contains(world.logText(), "numBytesSent: 19\r\n"), refuses) << world.logText();
    }
}

}  // namespace
}  // namespace tv::test
