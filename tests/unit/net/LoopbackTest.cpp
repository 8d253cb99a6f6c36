// The system's real sockets, over loopback.
#include <ctime>
#include <thread>

#include "net/Socket2.h"
#include "net/stream/SocketLibrary.h"
#include "platform/SysClock.h"
#include "platform/SysSocket.h"
#include "tests/fixtures/LoopbackServer.h"
#include "tests/unit/net/NetTestKit.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#endif

namespace tv {
namespace {

using namespace tv::test;
using Connection = LoopbackServer::Connection;

class Loopback : public testing::Test {
protected:
    bool connect(const LoopbackServer& server, const char* host = "127.0.0.1") {
        socket.setConnectTimeoutMs(5000);
        failure = socket.connect2(call, host, server.port(), false);
        return !failure;
    }
    std::string line(uint32_t idleMs = 5000) {
        DataBuffer out;
        failure = socket.receiveUntilMatch(call, out, "\r\n", 1000, idleMs);
        return std::string(out.text());
    }
    static uint64_t nowMs() { return plat::sysClock().tickMs(); }
    // Processor time of this thread. Wine has no figure of its own for it.
    static double usedMs() {
#ifdef _WIN32
        return 0;
#else
        timespec used = {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
        return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
#endif
    }

    _tvLogger log;
    CallContext call{log};
    Failure failure;  // of the last operation
    Socket2 socket;
};

TEST_F(Loopback, GreetingAndEchoOverBothFamilies) {
    for (const bool ipv6 : {false, true}) {
        LoopbackServer server(
            [](Connection& peer) {
                peer.send("220 hello\r\n");
                peer.send(peer.receiveUntil("\r\n"));
                peer.receive();
            },
            ipv6);
        ASSERT_NE(server.port(), 0) << "no loopback address, IPv6 = " << ipv6;
        ASSERT_TRUE(connect(server, ipv6 ? "[::1]" : "localhost")) << textOf(log);
        EXPECT_EQ(socket.remoteIp(), ipv6 ? "::1" : "127.0.0.1");
        expectLogged(log, ipv6 ? "myIP: ::1" : "myIP: 127.0.0.1");
        EXPECT_EQ(line(), "220 hello\r\n");
        EXPECT_TRUE(socket.isQuiet());
        EXPECT_FALSE(failure = socket.sendBytes(call, bytesFrom("EHLO x\r\n"), 5000));
        EXPECT_EQ(line(), "EHLO x\r\n");
        socket.close(call, false, 1000);
        EXPECT_FALSE(socket.isConnected());
    }
}

TEST_F(Loopback, RefusedAtOnceAndWithAReason) {
    const uint64_t start = nowMs();
    EXPECT_TRUE(failure = socket.connect2(call, "127.0.0.1", refusedPort(), false));
    EXPECT_LT(nowMs() - start, 4000U);
    EXPECT_EQ(failure.cause(), Cause::Rejected);
    EXPECT_FALSE(failure.is(Cause::Timeout));
    expectLogged(log, "WSAECONNREFUSED");
}

// A peer that is gone is an error: no signal ends the process.
TEST_F(Loopback, PeerGone) {
    for (const bool reset : {false, true}) {
        LoopbackServer server([reset](Connection& peer) {
            peer.receiveUntil("x");
            if (reset) peer.resetOnClose();
        });
        ASSERT_TRUE(connect(server));
        EXPECT_FALSE(failure = socket.sendBytes(call, bytesFrom("x"), 5000));
        log.clearLog();
        EXPECT_EQ(line(), "");
#ifdef _WIN32
        // Wine shows a reset as the end of the stream.
        const bool asReset = reset && textOf(log).find("Connection closed") == std::string::npos;
#else
        const bool asReset = reset;
#endif
        expectLogged(log, asReset ? "WSAECONNRESET" : "Connection closed by peer.");
        EXPECT_FALSE(socket.isConnected());
        EXPECT_FALSE(socket.isQuiet());
        EXPECT_FALSE(failure.is(Cause::Timeout));
        bool failed = false;
        for (int i = 0; i < 200 && !failed; ++i) {
            failed = static_cast<bool>(socket.sendBytes(call, bytesFrom("y"), 1000));
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        EXPECT_TRUE(failed);
    }
}

TEST_F(Loopback, SilenceEndsInTimeAndCostsNoProcessorTime) {
    LoopbackServer server([](Connection& peer) { peer.holdOpen(); });
    ASSERT_TRUE(connect(server));
    const uint64_t start = nowMs();
    const double usedBefore = usedMs();
    EXPECT_EQ(line(700), "");
    EXPECT_LT(usedMs() - usedBefore, 5);
    EXPECT_GE(nowMs() - start, 690U);
    EXPECT_LT(nowMs() - start, 3000U);
    EXPECT_TRUE(failure.is(Cause::Timeout));
    EXPECT_TRUE(socket.isConnected());
}

// More than all buffers hold, to a reader that is slow to start.
TEST_F(Loopback, MuchDataToASlowReader) {
    std::string data(24 * 1024 * 1024, ' ');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>(i * 7 + i / 251);
    std::string got;
    std::atomic<bool> done{false};
    LoopbackServer server([&](Connection& peer) {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        while (got.size() < data.size()) {
            const std::string more = peer.receive();
            if (more.empty()) break;
            got += more;
        }
        done = true;
        peer.send("250 ok\r\n");
        peer.receive();
    });
    ASSERT_TRUE(connect(server));
    EXPECT_FALSE(failure = socket.sendBytes(call, bytesFrom(data), 20000)) << textOf(log);
    EXPECT_EQ(line(20000), "250 ok\r\n");
    ASSERT_TRUE(done);
    EXPECT_TRUE(got == data);
}

TEST_F(Loopback, ReaderThatStallsEndsTheSend) {
    LoopbackServer server([](Connection& peer) { peer.holdOpen(); });
    ASSERT_TRUE(connect(server));
    const std::string data(64 * 1024 * 1024, 'x');
    const uint64_t start = nowMs();
    EXPECT_TRUE(failure = socket.sendBytes(call, bytesFrom(data), 400));
    EXPECT_LT(nowMs() - start, 8000U);
    EXPECT_TRUE(failure.is(Cause::Timeout));
    expectLogged(log, "Timeout after partial send.");
    const uint64_t closing = nowMs();
    socket.close(call, true, 1000);
    EXPECT_LT(nowMs() - closing, 1000U);
}

TEST_F(Loopback, DestroyedByAnotherThreadDuringAWait) {
    LoopbackServer server([](Connection& peer) { peer.holdOpen(); });
    auto doomed = std::make_unique<Socket2>();
    ASSERT_FALSE(failure = doomed->connect2(call, "127.0.0.1", server.port(), false));
    Socket2* raw = doomed.get();
    std::atomic<bool> waiting{false};
    bool received = true;
    std::thread waiter([&] {
        _tvLogger ownLog;
        CallContext own{ownLog};
        DataBuffer out;
        waiting = true;
        received = !raw->receiveBytes(own, out, 20000);
    });
    while (!waiting)
        std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const uint64_t start = nowMs();
    doomed.reset();
    waiter.join();
    EXPECT_LT(nowMs() - start, 2000U);
    EXPECT_FALSE(received);
}

TEST_F(Loopback, SystemResolver) {
    ASSERT_TRUE(ensureSocketLibrary(log));
    std::vector<plat::IpAddress> addresses;
    const plat::NetError error =
        plat::sysNet().lookupHost("localhost", plat::AddressFamily::IPv4, addresses);
    ASSERT_TRUE(error.ok()) << static_cast<uint32_t>(error.code);
    EXPECT_EQ(plat::toText(addresses.front()), "127.0.0.1");
    // A numeric address of the other family has nothing to offer.
    EXPECT_FALSE(plat::sysNet().lookupHost("::1", plat::AddressFamily::IPv4, addresses).ok());
}

TEST_F(Loopback, SocketsAreNotInherited) {
    ASSERT_TRUE(ensureSocketLibrary(log));
    plat::SocketHandle handle = plat::kNoSocket;
    ASSERT_TRUE(plat::sysNet().openTcp(plat::AddressFamily::IPv4, true, handle).ok());
#ifdef _WIN32
    DWORD flags = HANDLE_FLAG_INHERIT;
    ASSERT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags));
    EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0U);
#else
    EXPECT_TRUE(fcntl(static_cast<int>(handle), F_GETFD) & FD_CLOEXEC);
#endif
    EXPECT_TRUE(plat::sysNet().close(handle).ok());
}

}  // namespace
}  // namespace tv
