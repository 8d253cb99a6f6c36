// One send whose first connection ends at a given byte, and what must hold wherever that is: the
// result is never a false success, the server never gets the message twice, and it ends in time.
#pragma once

#include "tests/unit/mail/MailWorld.h"

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

constexpr uint32_t kCutLimitMs = 50;

struct CutWorld : MailWorld {
    explicit CutWorld(const Road& road, const char* limitMs = "50") : MailWorld(road.properties) {
        set("ReadTimeout", limitMs);
        set("ConnectTimeout", limitMs);
        compose();
    }
    CutServer serveCut(const Road& road, const Cut& cut) {
        const CutServer server = road.serve(*this);
        server.link->mayEndEarly = true;
        server.link->cut = cut.ending;
        size_t FakeLink::*const limit =
            cut.ofClient ? &FakeLink::cutAfterClientBytes : &FakeLink::cutAfterServerBytes;
        server.link->*limit = cut.bytes;
        return server;
    }
    bool sendTimed(ProgressMonitor* monitor = nullptr) {
        const uint64_t startNs = clock.nowNs;
        const bool sent = send(monitor);
        elapsedMs = (clock.nowNs - startNs) / 1000000;
        return sent;
    }
    uint64_t elapsedMs = 0;
};

inline std::string shown(const Road& road, const Cut& cut) {
    return std::string(road.name) + (cut.ofClient ? ": client byte " : ": server byte ") +
           std::to_string(cut.bytes) + ", ending " + std::to_string(static_cast<int>(cut.ending));
}

inline void playCut(const Road& road, const Cut& cut, size_t serverBytes) {
    SCOPED_TRACE(shown(road, cut));
    CutWorld world(road);
    std::vector<CutServer> servers = {world.serveCut(road, cut)};
    while (servers.size() < road.connects) {
        servers.push_back(road.serve(world));
        servers.back().link->mayEndEarly = true;
    }
    const bool sent = world.sendTimed();
    const std::string transcript = world.transcript();
    size_t copies = 0;
    for (const CutServer& server : servers)
        copies += server.hasMessage();
    const size_t connects = world.net.connects.size();
    EXPECT_LE(connects, road.connects);
    if (sent) {
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
        EXPECT_TRUE(road.vary || warned == contains(servers[0].link->fromClient, "</p>\r"))
            << transcript;
    }
    const bool retried = !world.clock.sleeps.empty();
    EXPECT_TRUE(!retried || world.clock.sleeps == std::vector<uint32_t>{500});
    EXPECT_FALSE(retried && servers[0].hasMessage()) << "sent again after the terminator";
    // Of each connection the wait that found it dead, and of TLS the one for the good-bye.
    EXPECT_LE(world.elapsedMs, connects * 2 * kCutLimitMs + (retried ? 500 : 0)) << transcript;
}

inline void stopInASecond(Watcher& watcher, FakeClock& clock) {
    watcher.stops = [&clock, at = clock.nowNs + 1000000000] { return clock.nowNs >= at; };
}

// The server falls silent at a byte, and a second later the application says stop: the send ends at
// the next slice, wherever it stands.
inline void playAbort(const Road& road, const Cut& cut) {
    SCOPED_TRACE(shown(road, cut));
    CutWorld world(road, "30000");
    const CutServer server = world.serveCut(road, cut);
    Watcher monitor;
    monitor.heartbeat = cut.bytes % 2 ? 50 : 0;
    stopInASecond(monitor, world.clock);
    const bool sent = world.sendTimed(&monitor);
    EXPECT_LE(world.elapsedMs, 1000u + (cut.bytes % 2 ? 50 : 333));
    EXPECT_EQ(world.net.connects.size(), 1u);
    EXPECT_TRUE(world.clock.sleeps.empty()) << "no second try";
    EXPECT_TRUE(!sent || server.hasMessage());
    EXPECT_TRUE(sent || contains(world.transcript(), "stopped the send") ||
                contains(world.transcript(), "App aborted"))
        << world.transcript();
}

inline void playRoad(const Road& road) {
    CutWorld undisturbed(road);
    const CutServer server = road.serve(undisturbed);
    EXPECT_TRUE(undisturbed.send()) << undisturbed.logText();
    EXPECT_TRUE(server.hasMessage());
    const size_t ofServer = server.link->bytesToClient;
    // Every byte; under a sanitizer, where a handshake takes its time, every 17th of a TLS
    // dialogue.
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
    // Short reads, short writes and a window that fills change nothing.
    for (size_t size = 1; size <= 64; size = size * 2 + 1) {
        SCOPED_TRACE(std::string(road.name) + ": pieces of " + std::to_string(size));
        CutWorld world(road);
        const CutServer slow = road.serve(world);
        slow.link->maxReceive = slow.link->maxSend = size;
        slow.link->sendWindow = 3 * size;
        EXPECT_TRUE(world.send()) << world.logText();
        EXPECT_TRUE(slow.hasMessage());
    }
}

}  // namespace tv::test
