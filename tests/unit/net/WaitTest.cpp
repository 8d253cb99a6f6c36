// How long each kind of wait takes and in which slices, by a clock that nobody waits for.
#include <algorithm>

#include "net/Socket2.h"
#include "net/stream/TolvaneSocket.h"
#include "tests/unit/net/NetTestKit.h"

namespace tv {
namespace {

using namespace tv::test;

enum class For { Connect, Receive, Send };

constexpr uint64_t kHour = 3600000;

struct Row {
    const char* name;
    For what;
    uint32_t limitMs;
    uint32_t heartbeatMs;
    bool fine;
    uint32_t slice;
    uint64_t elapsedMs;
};

constexpr Row kRows[] = {
    {"connect, as usual", For::Connect, 2000, 0, false, 333, 2000},
    {"connect, fine slices", For::Connect, 2000, 0, true, 66, 2000},
    {"connect, heartbeat", For::Connect, 2000, 200, false, 200, 2000},
    {"connect, heartbeat before fine slices", For::Connect, 2000, 200, true, 200, 2000},
    {"connect, heartbeat too short", For::Connect, 2000, 7, false, 50, 2000},
    {"connect, heartbeat longer than the limit", For::Connect, 2000, 5000, false, 2000, 2000},
    {"connect, 0 is six hours", For::Connect, 0, 60000, false, 60000, 6 * kHour},
    {"receive, as usual", For::Receive, 2000, 0, false, 333, 2000},
    {"receive, fine slices", For::Receive, 2000, 0, true, 66, 2000},
    {"receive, heartbeat", For::Receive, 2000, 200, false, 200, 2000},
    {"receive, heartbeat too short", For::Receive, 2000, 7, false, 50, 2000},
    {"receive, 0 is 56 hours", For::Receive, 0, 60000, false, 60000, 56 * kHour},
    {"receive, poll", For::Receive, 0xABCD0123, 0, false, 1, 1},
    {"receive, poll with a heartbeat", For::Receive, 0xABCD0123, 200, false, 1, 1},
    {"send, as usual", For::Send, 2000, 0, false, 333, 2000},
    {"send, heartbeat", For::Send, 2000, 200, false, 200, 2000},
    {"send, 0 is 56 hours", For::Send, 0, 60000, false, 60000, 56 * kHour},
    {"send, poll", For::Send, 0xABCD0123, 0, false, 1, 1},
};

Failure waitFor(CallContext& call, For what, uint32_t limitMs, Socket2& socket) {
    DataBuffer out;
    switch (what) {
        case For::Connect:
            socket.setConnectTimeoutMs(limitMs);
            return socket.connect2(call, "10.0.0.2", 25, false);
        case For::Receive:
            return socket.receiveBytes(call, out, limitMs);
        case For::Send:
            return socket.sendBytes(call, bytesFrom("data"), limitMs);
    }
    return {};
}

TEST(Wait, LastsAndIsSlicedAsOrdered) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        FakeClock clock;
        FakeNet net(clock);
        _tvLogger log;
        CallContext call{log};
        Socket2 socket;
        if (row.what == For::Connect) {
            net.silent("10.0.0.2", 25);
        } else {
            net.serve("10.0.0.1", 25, {say("").thenStall()});
            ASSERT_FALSE(socket.connect2(call, "10.0.0.1", 25, false));
        }
        call.heartbeatMs = row.heartbeatMs;
        call.fineSlices = row.fine;
        net.slices.clear();
        const uint64_t startNs = clock.nowNs;
        const Failure failure = waitFor(call, row.what, row.limitMs, socket);
        EXPECT_TRUE(failure.is(row.what == For::Connect ? Cause::ConnectTimeout : Cause::Timeout));
        EXPECT_EQ((clock.nowNs - startNs) / 1000000, row.elapsedMs);
        ASSERT_FALSE(net.slices.empty());
        EXPECT_EQ(*std::max_element(net.slices.begin(), net.slices.end()), row.slice);
        // Asleep all the time, and no more often awake than it has to be.
        EXPECT_EQ(net.slices.size(), (row.elapsedMs + row.slice - 1) / row.slice);
        socket.close(call, true, 0);
    }
}

}  // namespace
}  // namespace tv
