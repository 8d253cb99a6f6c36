// The system's real sockets, over loopback: what a network made up cannot show.
#include <ctime>

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

uint64_t nowMs() {
    return plat::sysClock().tickMs();
}

// Processor time of this thread. Wine has no figure of its own for it.
double usedMs() {
#ifdef _WIN32
    return 0;
#else
    timespec used = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
    return static_cast<double>(used.tv_sec) * 1e3 + static_cast<double>(used.tv_nsec) / 1e6;
#endif
}

TEST(Loopback, waitsEndInTimeAndCostNoProcessorTime) {
    constexpr size_t kRead = 8 * 1024 * 1024;
    const std::string data(64 * 1024 * 1024, 'x');  // more than all buffers hold
    LoopbackServer server([&](Connection& peer) {
        peer.send("220 hello\r\n");
        std::string more = "x";
        for (size_t got = 0; got < kRead && !more.empty(); got += more.size())
            more = peer.receive();
        peer.send("250 ok\r\n");
        peer.holdOpen();
    });
    _tvLogger log;
    CallContext call{log};
    Failure failure;
    Socket2 socket;
    const auto line = [&](uint32_t idleMs) {
        DataBuffer out;
        failure = socket.receiveUntilMatch(call, out, "\r\n", 1000, idleMs);
        return std::string(out.text());
    };
    ASSERT_FALSE(failure = socket.connect2(call, "127.0.0.1", server.port(), false));
    expectLogged(log, "myIP: 127.0.0.1");
    EXPECT_EQ(line(20000), "220 hello\r\n");
    EXPECT_TRUE(socket.isQuiet());
    EXPECT_FALSE(failure = socket.sendBytes(call, bytesFrom(data).first(kRead), 20000))
        << textOf(log);
    EXPECT_EQ(line(20000), "250 ok\r\n");
    uint64_t start = nowMs();
    const double usedBefore = usedMs();
    EXPECT_EQ(line(700), "");
    EXPECT_LT(usedMs() - usedBefore, 5);
    EXPECT_GE(nowMs() - start, 690U);
    EXPECT_LT(nowMs() - start, 3000U);
    EXPECT_TRUE(failure.is(Cause::Timeout));
    EXPECT_TRUE(socket.isConnected());
    start = nowMs();
    EXPECT_TRUE(failure = socket.sendBytes(call, bytesFrom(data), 400));
    EXPECT_TRUE(failure.is(Cause::Timeout));
    socket.close(call, true, 1000);
    EXPECT_LT(nowMs() - start, 8000U);
}

TEST(Loopback, whatTheSystemItselfKnows) {
    _tvLogger log;
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
