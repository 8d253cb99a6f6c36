// One send whose first connection ends at a given byte, and what must hold wherever that is: the
// result is never a false success, the server never gets the message twice, and it ends in time.
#pragma once

#include <functional>

#include "tests/unit/mail/MailDialogue.h"

namespace tv::test {

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

// Bytes of one undisturbed send, without its QUIT.
struct CutSizes {
    size_t client = 0;
    size_t server = 0;
};

constexpr uint32_t kCutLimitMs = 50;

inline Properties cutProperties(const Road& road) {
    Properties properties{{"ReadTimeout", "50"}, {"ConnectTimeout", "50"}};
    properties.insert(properties.end(), road.properties.begin(), road.properties.end());
    return properties;
}

inline CutSizes measureRoad(const Road& road) {
    MailWorld world(cutProperties(road));
    world.compose();
    const CutServer server = road.serve(world);
    EXPECT_TRUE(world.mailMan.SendEmail(world.email)) << world.logText();
    EXPECT_TRUE(server.hasMessage());
    return {server.link->fromClient.size(), server.link->bytesToClient};
}

inline void playCut(const Road& road, const Cut& cut, const CutSizes& sizes) {
    SCOPED_TRACE(std::string(road.name) + (cut.ofClient ? ": client byte " : ": server byte ") +
                 std::to_string(cut.bytes) + ", ending " +
                 std::to_string(static_cast<int>(cut.ending)));
    MailWorld world(cutProperties(road));
    world.compose();
    std::vector<CutServer> servers;
    for (size_t i = 0; i < road.connects; ++i) {
        servers.push_back(road.serve(world));
        servers.back().link->mayEndEarly = true;
    }
    FakeLink& first = *servers[0].link;
    first.cut = cut.ending;
    (cut.ofClient ? first.cutAfterClientBytes : first.cutAfterServerBytes) = cut.bytes;

    const uint64_t startNs = world.clock.nowNs;
    const bool sent = world.mailMan.SendEmail(world.email);
    const uint64_t elapsedMs = (world.clock.nowNs - startNs) / 1000000;
    const std::string transcript = world.transcript();
    size_t copies = 0;
    for (const CutServer& server : servers)
        copies += server.hasMessage();
    EXPECT_LE(copies, 1u);
    const size_t connects = world.net.connects.size();
    EXPECT_LE(connects, road.connects);
    if (sent) {
        EXPECT_EQ(copies, 1u);
        EXPECT_TRUE(transcript.ends_with("250 taken\r\n")) << transcript;
    } else {
        EXPECT_FALSE(transcript.empty());
        EXPECT_NE(world.word(), "Success");
        EXPECT_NE(world.word(), "Failed") << transcript;
        EXPECT_FALSE(contains(transcript, "\r\n250 taken\r\n")) << "the last word had arrived";
        EXPECT_TRUE(road.vary || cut.ofClient || cut.bytes < sizes.server) << "everything had";
        const bool warned = contains(transcript, "may deliver it twice");
        EXPECT_TRUE(warned || copies == 0) << transcript;
        EXPECT_TRUE(road.vary || warned == contains(first.fromClient, "</p>\r")) << transcript;
    }
    const bool retried = !world.clock.sleeps.empty();
    EXPECT_TRUE(!retried || world.clock.sleeps == std::vector<uint32_t>{500});
    EXPECT_FALSE(retried && servers[0].hasMessage()) << "sent again after the terminator";
    // Of each connection the wait that found it dead, and of TLS the one for the good-bye.
    EXPECT_LE(elapsedMs, connects * 2 * kCutLimitMs + (retried ? 500 : 0)) << world.logText();
}

// Every byte; under a sanitizer, where a handshake takes its time, every 17th of a TLS dialogue.
inline size_t strideOf([[maybe_unused]] const Road& road) {
#ifdef __SANITIZE_ADDRESS__
    if (road.vary > 0) return 17;
#endif
    return 1;
}

inline void playCutsAtEveryByte(const Road& road, std::initializer_list<Ending> endings) {
    const CutSizes sizes = measureRoad(road);
    for (const Ending ending : endings) {
        for (size_t at = 1; at <= sizes.server + road.vary; at += strideOf(road))
            playCut(road, {false, at, ending}, sizes);
        for (size_t at = 1; at <= sizes.client; at += strideOf(road))
            playCut(road, {true, at, ending}, sizes);
    }
}

// Says stop once the clock has come so far.
class StopsAt final : public ProgressMonitor {
public:
    StopsAt(FakeClock& clock, uint64_t afterMs)
        : clock_(clock), stopNs_(clock.nowNs + afterMs * 1000000) {}
    bool abortRequested() override { return clock_.nowNs >= stopNs_; }
    void progress(uint64_t, uint64_t) override {}
    void textEvent(std::string_view, std::string_view) override {}
    uint32_t heartbeatMs() const override { return heartbeat; }

    uint32_t heartbeat = 0;

private:
    FakeClock& clock_;
    uint64_t stopNs_;
};

// The server falls silent at a byte, and a second later the application says stop: the send ends at
// the next slice, wherever it stands.
inline void playAbort(const Road& road, const Cut& cut, uint32_t heartbeatMs) {
    SCOPED_TRACE(std::string(road.name) + (cut.ofClient ? ": client byte " : ": server byte ") +
                 std::to_string(cut.bytes) + ", heartbeat " + std::to_string(heartbeatMs));
    MailWorld world(road.properties);
    world.compose();
    const CutServer server = road.serve(world);
    server.link->mayEndEarly = true;
    server.link->cut = Ending::Stall;
    (cut.ofClient ? server.link->cutAfterClientBytes : server.link->cutAfterServerBytes) =
        cut.bytes;
    StopsAt monitor(world.clock, 1000);
    monitor.heartbeat = heartbeatMs;
    const uint64_t startNs = world.clock.nowNs;
    const bool sent = world.mailMan.SendEmail(world.email, &monitor);
    const uint64_t elapsedMs = (world.clock.nowNs - startNs) / 1000000;
    EXPECT_LE(elapsedMs, 1000 + (heartbeatMs ? heartbeatMs : 333));
    EXPECT_EQ(world.net.connects.size(), 1u);
    EXPECT_TRUE(world.clock.sleeps.empty()) << "no second try";
    if (sent) {
        EXPECT_TRUE(server.hasMessage());
    } else {
        EXPECT_TRUE(contains(world.transcript(), "stopped the send") ||
                    contains(world.transcript(), "App aborted"))
            << world.transcript();
    }
}

inline void playAbortsAtEveryByte(const Road& road) {
    const CutSizes sizes = measureRoad(road);
    for (size_t at = 0; at < sizes.server - road.vary; at += strideOf(road))
        playAbort(road, {false, at, Ending::Stall}, at % 2 ? 50 : 0);
    for (size_t at = 0; at < sizes.client - road.vary; at += strideOf(road))
        playAbort(road, {true, at, Ending::Stall}, at % 2 ? 50 : 0);
}

// Short reads, short writes and a window that fills change nothing.
inline void playPiecesOfAnySize(const Road& road) {
    for (size_t size = 1; size <= 64; size = size * 2 + 1) {
        SCOPED_TRACE(std::string(road.name) + ": pieces of " + std::to_string(size));
        MailWorld world(cutProperties(road));
        world.compose();
        const CutServer server = road.serve(world);
        server.link->maxReceive = size;
        server.link->maxSend = size;
        server.link->sendWindow = 3 * size;
        EXPECT_TRUE(world.mailMan.SendEmail(world.email)) << world.logText();
        EXPECT_TRUE(server.hasMessage());
    }
}

}  // namespace tv::test
