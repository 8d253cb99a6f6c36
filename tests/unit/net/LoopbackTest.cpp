// The system's real sockets, over loopback: what a network made up cannot show.
#include <ctime>

#include "net/Socket2.h"
#include "net/stream/SocketLibrary.h"
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
    LoopbackServer server([](LoopbackServer::Connection& peer) {
        peer.send("220 hello\r\n");
        peer.receiveUntil("\n");
        while (!peer.stop)
            plat::sysClock().sleepMs(20);
    });
    const std::string data(64 * 1024 * 1024, 'x');  // more than all buffers hold
    _tvLogger log;
    CallContext call{log};
    Socket2 socket;
    DataBuffer line;
    ASSERT_FALSE(socket.connect2(call, "127.0.0.1", server.port(), false)) << textOf(log);
    expectLogged(log, "myIP: 127.0.0.1");
    EXPECT_FALSE(socket.receiveUntilMatch(call, line, "\r\n", 100, 20000));
    EXPECT_EQ(line.text(), "220 hello\r\n");
    EXPECT_TRUE(socket.isQuiet());
    EXPECT_FALSE(socket.sendBytes(call, bytesFrom(data.substr(0, 8000000) + '\n'), 20000));
    for (const bool sends : {false, true}) {
        const Deadline watch(60000);
        const double usedBefore = usedMs();
        EXPECT_TRUE((sends ? socket.sendBytes(call, bytesFrom(data), 400)
                           : socket.receiveBytes(call, line, 400))
                        .is(Cause::Timeout));
        EXPECT_TRUE(sends || usedMs() - usedBefore < 5);
        EXPECT_GE(watch.elapsedMs(), 390U);
        EXPECT_LT(watch.elapsedMs(), 8000U);
        EXPECT_TRUE(socket.isConnected());
    }
    socket.close(call, true, 1000);
}

TEST(Loopback, noChildInheritsASocket) {
    _tvLogger log;
    ASSERT_TRUE(ensureSocketLibrary(log));
    plat::SysNet& net = plat::sysNet();
    plat::SocketHandle handle = plat::kNoSocket;
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
