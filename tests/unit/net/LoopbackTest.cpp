// The system's real sockets, over loopback: what a network made up cannot show.
#include <ctime>
#include <thread>

#include "net/Socket2.h"
#include "net/stream/SocketLibrary.h"
#include "platform/SysClock.h"
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
    void connect(const LoopbackServer& server, const char* host = "127.0.0.1") {
        ASSERT_NE(server.port(), 0) << host;
        failure = socket.connect2(call, host, server.port(), false);
        ASSERT_FALSE(failure) << textOf(log);
    }
    bool send(std::string_view bytes, uint32_t idleMs = 20000) {
        failure = socket.sendBytes(call, bytesFrom(bytes), idleMs);
        return !failure;
    }
    std::string line(uint32_t idleMs = 20000) {
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

// More than all buffers hold, to a reader that is slow to start.
TEST_F(Loopback, muchDataOverBothFamilies) {
    std::string data(24 * 1024 * 1024, ' ');
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>(i * 7 + i / 251);
    for (const bool ipv6 : {false, true}) {
        std::string got;
        LoopbackServer server(
            [&](Connection& peer) {
                peer.send("220 hello\r\n");
                std::this_thread::sleep_for(std::chrono::milliseconds(300));
                for (std::string more = "x"; got.size() < data.size() && !more.empty(); got += more)
                    more = peer.receive();
                peer.send(got == data ? "250 ok\r\n" : "550 no\r\n");
                peer.receive();
            },
            ipv6);
        connect(server, ipv6 ? "[::1]" : "localhost");
        EXPECT_EQ(socket.remoteIp(), ipv6 ? "::1" : "127.0.0.1");
        expectLogged(log, ipv6 ? "myIP: ::1" : "myIP: 127.0.0.1");
        EXPECT_EQ(line(), "220 hello\r\n");
        EXPECT_TRUE(socket.isQuiet());
        EXPECT_TRUE(send(data)) << textOf(log);
        EXPECT_EQ(line(), "250 ok\r\n");
        socket.close(call, false, 1000);
    }
}

TEST_F(Loopback, silenceEndsInTimeAndCostsNoProcessorTime) {
    LoopbackServer server([](Connection& peer) { peer.holdOpen(); });
    connect(server);
    uint64_t start = nowMs();
    const double usedBefore = usedMs();
    EXPECT_EQ(line(700), "");
    EXPECT_LT(usedMs() - usedBefore, 5);
    EXPECT_GE(nowMs() - start, 690U);
    EXPECT_LT(nowMs() - start, 3000U);
    EXPECT_TRUE(failure.is(Cause::Timeout));
    EXPECT_TRUE(socket.isConnected());
    start = nowMs();
    EXPECT_FALSE(send(std::string(64 * 1024 * 1024, 'x'), 400));
    EXPECT_LT(nowMs() - start, 8000U);
    EXPECT_TRUE(failure.is(Cause::Timeout));
    start = nowMs();
    socket.close(call, true, 1000);
    EXPECT_LT(nowMs() - start, 1000U);
}

TEST_F(Loopback, whatTheSystemItselfKnows) {
    ASSERT_TRUE(ensureSocketLibrary(log));
    std::vector<plat::IpAddress> addresses;
    plat::SysNet& net = plat::sysNet();
    ASSERT_TRUE(net.lookupHost("localhost", plat::AddressFamily::IPv4, addresses).ok());
    EXPECT_EQ(plat::toText(addresses.front()), "127.0.0.1");
    // A numeric address of the other family has nothing to offer.
    EXPECT_FALSE(net.lookupHost("::1", plat::AddressFamily::IPv4, addresses).ok());
    plat::SocketHandle handle = plat::kNoSocket;  // no child inherits it
    ASSERT_TRUE(net.openTcp(plat::AddressFamily::IPv4, true, handle).ok());
#ifdef _WIN32
    DWORD flags = HANDLE_FLAG_INHERIT;
    ASSERT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags));
    EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0U);
#else
    EXPECT_TRUE(fcntl(static_cast<int>(handle), F_GETFD) & FD_CLOEXEC);
#endif
    EXPECT_TRUE(net.close(handle).ok());
}

}  // namespace
}  // namespace tv
