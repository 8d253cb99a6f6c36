// One send whose first connection ends at any byte, in clear and under TLS by OpenSSL, and what
// must hold: never a false success, never the message twice at the server, and an end in time.
#include "tests/unit/mail/MailWorld.h"
#ifdef TV_HAVE_LIBCRYPTO
#include "tests/unit/mail/peer/TlsMailPeer.h"
#endif

namespace tv::test {
namespace {

// A good server waiting for one connection.
struct CutServer {
    FakeLink* link;
    std::function<bool()> hasMessage;  // as soon as it has the whole terminator
};

struct Road {
    const char* name;
    Properties properties;
    std::function<CutServer(MailWorld&)> serve;
    size_t connects = 2;  // the most that one cut may lead to
    size_t vary = 0;      // how much longer or shorter the server's bytes may be next time
};

struct Cut {
    bool ofClient;  // after so many bytes of the client, otherwise of the server
    size_t bytes;
    Ending ending;
};

struct CutWorld : MailWorld {
    CutWorld(const Road& road, const Cut& cut, size_t connects, const char* limitMs,
             ProgressMonitor* monitor = nullptr)
        : MailWorld(road.properties) {
        set("ReadTimeout", limitMs);
        set("ConnectTimeout", limitMs);
        compose();
        for (; servers.size() < connects; servers.back().link->mayEndEarly = true)
            servers.push_back(road.serve(*this));
        FakeLink& first = *servers[0].link;
        first.cut = cut.ending;
        (cut.ofClient ? first.cutAfterClientBytes : first.cutAfterServerBytes) = cut.bytes;
        const uint64_t startNs = clock.nowNs;
        sent = send(monitor);
        elapsedMs = (clock.nowNs - startNs) / 1000000;
    }

    std::vector<CutServer> servers;
    bool sent;
    uint64_t elapsedMs;
};

std::string shown(const Cut& cut) {
    return (cut.ofClient ? "client byte " : "server byte ") + std::to_string(cut.bytes) +
           ", ending " + std::to_string(static_cast<int>(cut.ending));
}

void playCut(const Road& road, const Cut& cut, size_t serverBytes) {
    SCOPED_TRACE(shown(cut));
    CutWorld world(road, cut, road.connects, "50");
    const std::string transcript = world.transcript();
    size_t copies = 0;
    for (const CutServer& server : world.servers)
        copies += server.hasMessage();
    const size_t connects = world.net.connects.size();
    EXPECT_LE(connects, road.connects);
    if (world.sent) {
        EXPECT_EQ(copies, 1u);
        EXPECT_TRUE(transcript.ends_with("250 taken\r\n")) << transcript;
    } else {
        EXPECT_LE(copies, 1u);
        EXPECT_NE(world.word(), "Success");
        EXPECT_NE(world.word(), "Failed") << transcript;
        EXPECT_FALSE(contains(transcript, "\r\n250 taken\r\n")) << "the last word had arrived";
        EXPECT_TRUE(road.vary || cut.ofClient || cut.bytes < serverBytes) << "everything had";
        const bool warned = contains(transcript, "may deliver it twice");
        EXPECT_TRUE(warned || copies == 0) << transcript;
        const bool wentOut = contains(world.servers[0].link->fromClient, "</p>\r");
        EXPECT_TRUE(road.vary || warned == wentOut) << transcript;
    }
    const bool retried = !world.clock.sleeps.empty();
    EXPECT_TRUE(!retried || world.clock.sleeps == std::vector<uint32_t>{500});
    EXPECT_FALSE(retried && world.servers[0].hasMessage()) << "sent again after the terminator";
    // Of each connection the wait that found it dead, and of TLS the one for the good-bye.
    EXPECT_LE(world.elapsedMs, connects * 2 * 50 + (retried ? 500 : 0)) << transcript;
}

// After the clock's beginning.
bool stopInASecond() {
    return plat::sysClock().tickMs() >= 2000;
}

// The server falls silent at a byte, and a second later the application says stop: the send ends at
// the next slice, wherever it stands.
void playAbort(const Road& road, const Cut& cut) {
    SCOPED_TRACE("aborted, " + shown(cut));
    Watcher monitor;
    monitor.stops = stopInASecond;
    monitor.heartbeat = cut.bytes % 2 ? 50 : 0;
    CutWorld world(road, cut, 1, "30000", &monitor);
    EXPECT_LE(world.elapsedMs, 1000u + (cut.bytes % 2 ? 50 : 333));
    EXPECT_EQ(world.net.connects.size(), 1u);
    EXPECT_TRUE(world.clock.sleeps.empty()) << "no second try";
    EXPECT_TRUE(!world.sent || world.servers[0].hasMessage());
    EXPECT_TRUE(world.sent || contains(world.transcript(), "stopped the send") ||
                contains(world.transcript(), "App aborted"))
        << world.transcript();
}

class CutAt : public testing::TestWithParam<Road> {};

TEST_P(CutAt, everyByte) {
    const Road& road = GetParam();
    MailWorld undisturbed(road.properties);
    undisturbed.compose();
    const CutServer server = road.serve(undisturbed);
    EXPECT_TRUE(undisturbed.send()) << undisturbed.logText();
    EXPECT_TRUE(server.hasMessage());
    const size_t ofServer = server.link->bytesToClient;
    // Under a sanitizer, where a handshake takes its time, every 17th of a TLS dialogue.
    size_t stride = 1;
#ifdef __SANITIZE_ADDRESS__
    if (road.vary > 0) stride = 17;
#endif
    for (const bool ofClient : {false, true}) {
        const size_t size = ofClient ? server.link->fromClient.size() : ofServer;  // without QUIT
        for (size_t at = 1; at <= size + (ofClient ? 0 : road.vary); at += stride) {
            for (const Ending ending : {Ending::Eof, Ending::Reset, Ending::Stall})
                playCut(road, {ofClient, at, ending}, ofServer);
        }
        for (size_t at = 0; at < size - road.vary; at += stride)
            playAbort(road, {ofClient, at, Ending::Stall});
    }
}

// Short reads, short writes and a window that fills change nothing.
TEST_P(CutAt, pieces) {
    for (size_t size = 1; size <= 64; size = size * 2 + 1) {
        SCOPED_TRACE(size);
        MailWorld world(GetParam().properties);
        world.compose();
        const CutServer slow = GetParam().serve(world);
        slow.link->maxReceive = slow.link->maxSend = size;
        slow.link->sendWindow = 3 * size;
        EXPECT_TRUE(world.send()) << world.logText();
        EXPECT_TRUE(slow.hasMessage());
    }
}

std::string roadName(const testing::TestParamInfo<Road>& row) {
    return row.param.name;
}

Road clearRoad(const char* name, const char* steps) {
    return {name, {}, [steps](MailWorld& world) {
                FakeLink& link = world.serve(steps);
                return CutServer{&link, [&link] { return !messageOf(link).empty(); }};
            }};
}

INSTANTIATE_TEST_SUITE_P(, CutAt,
                         testing::Values(clearRoad("Whole", "whole"),
                                         clearRoad("Piped", "whole-piped")),
                         roadName);

TEST(Cut, abortedConnect) {
    MailWorld world;
    world.compose();
    world.net.silent(kServer, 25);
    Watcher monitor;
    monitor.stops = stopInASecond;
    EXPECT_FALSE(world.send(&monitor));
    EXPECT_TRUE(contains(world.transcript(), "App aborted in event callback"));
}

#ifdef TV_HAVE_LIBCRYPTO

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
    constexpr size_t kSignatureVaries = 4;  // the length of one by ECDSA, as DER
    const char* const ssl = implicit ? "1" : "0";
    const char* const startTls = implicit ? "0" : "1";
    return {name,
            {{"SmtpPort", "465"}, {"AutoFix", "0"}, {"SmtpSsl", ssl}, {"StartTLS", startTls}},
            serve,
            connects,
            kSignatureVaries};
}

// A handshake with TLS 1.3 that gets no answer is made once more without it, so that one cut can
// cost a connection more.
INSTANTIATE_TEST_SUITE_P(CutTls, CutAt,
                         testing::Values(tlsRoad("Tls13", TLS1_3_VERSION, true, 3),
                                         tlsRoad("Tls12", TLS1_2_VERSION, true, 3),
                                         tlsRoad("StartTls", TLS1_3_VERSION, false, 2)),
                         roadName);

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

#endif

}  // namespace
}  // namespace tv::test
