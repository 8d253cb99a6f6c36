// Sending, receiving, waiting, closing, and the session log.
#include "net/Socket2.h"
#include "net/stream/TolvaneSocket.h"
#include "platform/SysFile.h"
#include "tests/unit/net/NetTestKit.h"

namespace tv {
namespace {

using namespace tv::test;
using plat::NetCode;

constexpr uint32_t kIdleMs = 5000;

class Transfer : public testing::Test {
protected:
    FakeLink& connectTo(std::vector<Turn> dialogue) {
        FakeLink& link = net.serve("10.0.0.1", 25, std::move(dialogue));
        EXPECT_FALSE(failure = socket.connect2(call, "10.0.0.1", 25, false));
        log.clearLog();
        call.monitor = &monitor;
        monitor.asked = 0;
        startNs = clock.nowNs;
        return link;
    }
    bool send(std::string_view text) {
        failure = socket.sendBytes(call, bytesFrom(text), kIdleMs);
        return !failure;
    }
    // The next line, or "" on failure.
    std::string line(uint32_t idleMs = kIdleMs) {
        DataBuffer out;
        failure = socket.receiveUntilMatch(call, out, "\r\n", 100, idleMs);
        return failure ? std::string() : std::string(out.text());
    }
    uint64_t elapsedMs() const { return (clock.nowNs - startNs) / 1000000; }

    FakeClock clock;
    FakeNet net{clock};
    _tvLogger log;
    Recorded recorded{log};
    Monitor monitor;
    CallContext call{log};
    Failure failure;  // of the last operation
    uint64_t startNs = 0;
    Socket2 socket;
};

TEST_F(Transfer, OneReceivePerSegmentAndNoWaitBeforeASend) {
    FakeLink& link = connectTo({say("220-a\r\n220 b\r\n"), turn("EHLO x\r\n", "250 ok\r\n")});
    EXPECT_EQ(line(), "220-a\r\n");
    EXPECT_EQ(line(), "220 b\r\n");
    const size_t waits = link.waits;
    EXPECT_TRUE(send("EHLO x\r\n"));
    EXPECT_EQ(link.waits, waits);
    EXPECT_EQ(link.sends, 1U);
    EXPECT_EQ(line(), "250 ok\r\n");
    EXPECT_EQ(link.receives, 2U);
}

// Whatever the network does to the pieces, the same bytes arrive at both ends.
TEST_F(Transfer, PiecesOfEverySize) {
    const std::string body(3000, 'x');
    for (const Delivery delivery : {Delivery::Whole, Delivery::Lines, Delivery::Bytes}) {
        for (const size_t most : {size_t{1}, size_t{7}, SIZE_MAX}) {
            FakeLink& link = connectTo({say("220 hello\r\n"), turn("DATA\r\n", "354 go\r\n"),
                                        turn(body + ".\r\n", "250-taken\r\n250 ok\r\n")});
            link.delivery = delivery;
            link.maxReceive = most;
            link.maxSend = most;
            link.sendWindow = most == SIZE_MAX ? SIZE_MAX : 5 * most;
            link.latencyMs = 20;
            EXPECT_EQ(line(), "220 hello\r\n");
            EXPECT_TRUE(send("DATA\r\n"));
            EXPECT_EQ(line(), "354 go\r\n");
            EXPECT_TRUE(send(body + ".\r\n"));
            EXPECT_EQ(line(), "250-taken\r\n");
            EXPECT_EQ(line(), "250 ok\r\n");
            EXPECT_TRUE(link.finished);
            socket.close(call, false, 0);
        }
    }
}

TEST_F(Transfer, ReceiveFailures) {
    const struct {
        const char* name;
        Ending after;
        uint64_t elapsedMs;
        bool timedOut;
        const char* text;
    } kCases[] = {
        {"end of stream", Ending::Eof, 0, false, "Connection closed by peer."},
        {"reset", Ending::Reset, 0, false, "Failed to receive data on the TCP socket"},
        {"silence", Ending::None, 5000, true, "Timeout: the remote host sent no data."},
    };
    for (const auto& c : kCases) {
        Turn greeting = say("220 hel");
        greeting.after = c.after;
        FakeLink& link = connectTo({greeting});
        DataBuffer out;
        EXPECT_TRUE(failure = socket.receiveUntilMatch(call, out, "\r\n", 100, kIdleMs)) << c.name;
        EXPECT_EQ(out.size(), 0U) << c.name;
        EXPECT_TRUE(socket.hasBufferedInput()) << c.name;  // the half line
        EXPECT_EQ(failure.is(Cause::Timeout), c.timedOut) << c.name;
        EXPECT_EQ(elapsedMs(), c.elapsedMs) << c.name;
        EXPECT_EQ(socket.isConnected(), c.timedOut) << c.name;
        expectLogged(log, c.text);
        socket.close(call, true, 0);
        EXPECT_TRUE(link.closedByClient) << c.name;
    }
}

TEST_F(Transfer, EachByteRenewsTheIdleTime) {
    FakeLink& link = connectTo({say("250 ok\r\n")});
    link.delivery = Delivery::Bytes;
    EXPECT_EQ(line(), "250 ok\r\n");
    connectTo({say("2").delayedBy(4000), turn("x", "5\r\n").delayedBy(4000)});
    EXPECT_TRUE(send("x"));
    EXPECT_EQ(line(), "25\r\n");
    EXPECT_EQ(elapsedMs(), 8000U);
}

TEST_F(Transfer, EachAcceptedPieceRenewsTheIdleTime) {
    const std::string data(50, 'd');
    FakeLink& link = connectTo({turn(data, "")});
    link.sendWindow = 10;
    link.drainMs = 4000;
    EXPECT_TRUE(send(data)) << textOf(log);
    EXPECT_EQ(elapsedMs(), 16000U);
}

TEST_F(Transfer, LineWithoutEnd) {
    connectTo({say(std::string(500, 'y'))});
    DataBuffer out;
    EXPECT_TRUE(failure = socket.receiveUntilMatch(call, out, "\r\n", 300, kIdleMs));
    EXPECT_EQ(out.size(), 300U);
    EXPECT_FALSE(failure.is(Cause::Timeout));
    expectLogged(log, "maxSize: 300");
}

TEST_F(Transfer, SendFailures) {
    const std::string data(1000, 'd');
    const struct {
        const char* name;
        Ending cut;
        size_t after;
        int allowedAborts;
        bool timedOut;
        bool aborted;
        const char* text;
    } kCases[] = {
        {"stall after some", Ending::Stall, 400, 100, true, false, "Timeout after partial send."},
        {"stall at once", Ending::Stall, 0, 100, true, false,
         "Timeout: the remote host accepted no data."},
        {"reset", Ending::Reset, 400, 100, false, false,
         "WSAECONNRESET An existing connection was forcibly closed by the remote host."},
        {"closed by the peer", Ending::Eof, 0, 100, false, false, "WSAECONNRESET"},
        {"aborted at once", Ending::Stall, 400, 0, false, true,
         "Socket SendBytes aborted by application."},
        {"aborted during the wait", Ending::Stall, 400, 3, false, true,
         "Socket SendBytes2 aborted by application."},
    };
    for (const auto& c : kCases) {
        FakeLink& link = connectTo({turn(data, "")});
        link.maxSend = 900;
        link.cut = c.cut;
        link.cutAfterClientBytes = c.after;
        link.mayEndEarly = true;
        monitor.allowed = c.allowedAborts;
        EXPECT_FALSE(send(data)) << c.name;
        EXPECT_EQ(failure.is(Cause::Timeout), c.timedOut) << c.name;
        EXPECT_EQ(failure.is(Cause::Aborted), c.aborted) << c.name;
        EXPECT_EQ(elapsedMs(), c.timedOut ? kIdleMs : c.allowedAborts == 3 ? 333 : 0) << c.name;
        expectLogged(log, c.text);
        if (c.cut == Ending::Stall && c.timedOut && c.after > 0) {
            expectLogged(log, "numBytesSent: 400");
            expectLogged(log, "numBytesUnsent: 600");
        }
        monitor.allowed = 1 << 30;
        std::construct_at(&call, log);
        socket.close(call, true, 0);
    }
}

TEST_F(Transfer, AbortEndsAReceiveAtTheNextSlice) {
    connectTo({});
    monitor.allowed = 3;
    EXPECT_EQ(line(), "");
    EXPECT_TRUE(failure.is(Cause::Aborted));
    EXPECT_FALSE(failure.is(Cause::Timeout));
    EXPECT_EQ(elapsedMs(), 999U);
    expectLogged(log, "socket operation aborted by application");
}

// A connection is quiet only while it stands and nobody has said anything since.
TEST_F(Transfer, Quiet) {
    EXPECT_FALSE(socket.isQuiet());
    connectTo({say("220 a\r\n"), turn("NOOP\r\n", "250 ok\r\n"),
               turn("NOOP\r\n", "250 ok\r\n421 bye\r\n")});
    EXPECT_FALSE(socket.isQuiet());  // the greeting is unread
    EXPECT_EQ(line(), "220 a\r\n");  // and not lost
    EXPECT_TRUE(socket.isQuiet());
    EXPECT_TRUE(send("NOOP\r\n"));
    EXPECT_EQ(line(), "250 ok\r\n");
    EXPECT_TRUE(socket.isQuiet());
    EXPECT_TRUE(send("NOOP\r\n"));
    EXPECT_EQ(line(), "250 ok\r\n");
    EXPECT_FALSE(socket.isQuiet());
    const struct {
        Turn turn;
        bool quiet;
    } kEnds[] = {{say("220 a\r\n").thenClose(), false},
                 {say("220 a\r\n").thenReset(), false},
                 {say("220 a\r\n").thenStall(), true}};
    for (const auto& c : kEnds) {
        connectTo({c.turn});
        EXPECT_EQ(line(), "220 a\r\n");
        net.slices.clear();
        EXPECT_EQ(socket.isQuiet(), c.quiet);
        EXPECT_TRUE(net.slices.empty());  // it never waits
    }
}

TEST_F(Transfer, NothingWithoutAConnection) {
    socket.startSessionLog("");
    EXPECT_FALSE(send("EHLO x\r\n"));
    EXPECT_EQ(line(), "");
    DataBuffer out;
    EXPECT_TRUE(failure = socket.receiveBytes(call, out, kIdleMs));
    expectLogged(log, "This socket is not connected");
    EXPECT_EQ(socket.sessionLog()->text().find("\r\n---- Not Connected ----\r\n"), 0U);
    EXPECT_EQ(net.sockets, 0U);
}

TEST_F(Transfer, SessionLogHasOneHeaderPerRun) {
    const std::string path = "session-log-test.txt";
    std::remove(path.c_str());
    EXPECT_TRUE(socket.startSessionLog(path));
    connectTo({say("220 a\r\n"), turn("MAIL\r\n", ""), turn("RCPT\r\n", "250 ok\r\n250 ok\r\n")});
    EXPECT_EQ(line(), "220 a\r\n");
    EXPECT_TRUE(send("MAIL\r\n"));
    EXPECT_TRUE(send("RCPT\r\n"));
    EXPECT_EQ(line(), "250 ok\r\n");
    const std::string expected =
        "\r\n---- Received ----\r\n220 a\r\n"
        "\r\n---- Sending ----\r\nMAIL\r\nRCPT\r\n"
        "\r\n---- Received ----\r\n250 ok\r\n250 ok\r\n";
    EXPECT_EQ(socket.sessionLog()->text(), expected);
    EXPECT_TRUE(socket.startSessionLog(""));  // closes the file
    plat::SysFile file;
    ASSERT_TRUE(file.openRead(path));
    std::string copy(1000, ' ');
    size_t got = 0;
    EXPECT_TRUE(file.read(copy.data(), copy.size(), got));
    EXPECT_EQ(copy.substr(0, got), expected);
    file.close();
    std::remove(path.c_str());
    EXPECT_FALSE(socket.startSessionLog("no/such/folder/log.txt"));
    EXPECT_NE(socket.sessionLog(), nullptr);  // memory is used all the same
}

#ifndef _WIN32
TEST_F(Transfer, SessionLogFileThatFillsUpIsLeftAlone) {
    LoggedSocket2 sessionLog;
    ASSERT_TRUE(sessionLog.openFile("/dev/full"));
    sessionLog.sent(bytesFrom("MAIL\r\n"));
    EXPECT_FALSE(sessionLog.hasFile());
    sessionLog.sent(bytesFrom("RCPT\r\n"));
    EXPECT_EQ(sessionLog.text(), "\r\n---- Sending ----\r\nMAIL\r\nRCPT\r\n");
}
#endif

// A Socket2 destroyed while it waits: the wait ends, nothing is touched that is gone.
TEST_F(Transfer, DestroyedDuringAWait) {
    for (const bool sending : {false, true}) {
        auto doomed = std::make_unique<Socket2>();
        FakeLink& link = net.serve("10.0.0.1", 25, {});
        link.sendWindow = 0;
        EXPECT_FALSE(failure = doomed->connect2(call, "10.0.0.1", 25, false));
        net.onWait = [&] { doomed.reset(); };
        DataBuffer out;
        if (sending) {
            EXPECT_TRUE(failure = doomed->sendBytes(call, bytesFrom("x"), kIdleMs));
        } else {
            EXPECT_TRUE(failure = doomed->receiveBytes(call, out, kIdleMs));
        }
        net.onWait = nullptr;
        EXPECT_TRUE(link.closedByClient);
        EXPECT_EQ(net.openSockets(), 0U);
        expectLogged(log, "Another thread is closing this socket.");
    }
}

class PlainSocket : public testing::Test {
protected:
    FakeLink& connectTo(std::vector<Turn> dialogue) {
        FakeLink& link = net.serve("10.0.0.1", 25, std::move(dialogue));
        EXPECT_TRUE(socket.createSocket_ipv4(log));
        EXPECT_FALSE(failure = socket.connect(call, *plat::parseIp("10.0.0.1"), 25, 1000));
        return link;
    }

    FakeClock clock;
    FakeNet net{clock};
    _tvLogger log;
    CallContext call{log};
    Failure failure;  // of the last operation
    TolvaneSocket socket;
};

TEST_F(PlainSocket, WaysToClose) {
    const struct {
        CloseForm form;
        bool serverCloses;
        uint64_t elapsedMs;
        bool fin;
        const char* text;
    } kCases[] = {
        {CloseForm::AtOnce, true, 0, true, "Terminated TCP connection."},
        {CloseForm::Graceful, true, 0, true, "Cleanly terminated TCP connection."},
        {CloseForm::Graceful, false, 700, true, "Terminated TCP connection."},
        {CloseForm::Abortive, true, 0, false, "AbortiveClose"},
    };
    for (const auto& c : kCases) {
        log.clearLog();
        FakeLink& link = connectTo({say("unread")});
        link.ignoresFin = !c.serverCloses;
        const uint64_t start = clock.nowNs;
        socket.terminateConnection(call, c.form, 700);
        EXPECT_EQ((clock.nowNs - start) / 1000000, c.elapsedMs) << c.text;
        EXPECT_EQ(link.finFromClient, c.fin) << c.text;
        EXPECT_EQ(link.closedAbortively, c.form == CloseForm::Abortive) << c.text;
        EXPECT_TRUE(link.closedByClient) << c.text;
        EXPECT_FALSE(socket.isConnected());
        expectLogged(log, c.text);
    }
}

TEST_F(PlainSocket, FaultsWhileClosingDoNotKeepItOpen) {
    FakeLink& link = connectTo({});
    net.shutdownErrors = {NetCode::NotConnected};
    net.closeErrors = {NetCode::ConnectionReset};
    socket.terminateConnection(call, CloseForm::Graceful, 700);
    EXPECT_TRUE(link.closedByClient);
    expectLogged(log, "error on socket shutdown.");
    expectLogged(log, "error on closesocket.");
    FakeLink& second = connectTo({say("x")});
    EXPECT_FALSE(second.closedByClient);
    size_t received = 0;
    uint8_t byte = 0;
    EXPECT_FALSE(failure = socket.receiveBytes(call, {&byte, 1}, received, 100));
}

TEST_F(PlainSocket, BoundToALocalAddress) {
    socket.setClientBind("192.0.2.1", 4321);
    EXPECT_TRUE(socket.createSocket_ipv4(log));
    expectLogged(log, "bindIpAddr1: 192.0.2.1");
    expectLogged(log, "bindPort: 4321");
    net.bindErrors = {NetCode::AddressNotAvailable};
    EXPECT_FALSE(socket.createSocket_ipv4(log));
    expectLogged(log, "Failed to bind to local IP address");
    EXPECT_FALSE(socket.createSocket_ipv6(log));  // an IPv4 address does not fit
    EXPECT_EQ(net.openSockets(), 0U);
}

// A second reader, and anybody who comes while the socket is being closed, is refused at once.
TEST_F(PlainSocket, SecondThreadIsRefused) {
    connectTo({say("x").delayedBy(500)});
    uint8_t byte = 0;
    size_t received = 0;
    bool second = true;
    net.onWait = [&] {
        net.onWait = nullptr;
        uint8_t other = 0;
        size_t got = 0;
        second = !socket.receiveBytes(call, {&other, 1}, got, 100);
    };
    EXPECT_FALSE(failure = socket.receiveBytes(call, {&byte, 1}, received, 1000));
    EXPECT_FALSE(second);
    expectLogged(log, "Another thread is already receiving on this socket.");

    net.onWait = [&] {
        net.onWait = nullptr;
        socket.terminateConnection(call, CloseForm::AtOnce, 0);
        EXPECT_FALSE(socket.createSocket_ipv4(log));
    };
    EXPECT_TRUE(failure = socket.receiveBytes(call, {&byte, 1}, received, 1000));
    expectLogged(log, "Another thread is closing this socket.");
    EXPECT_EQ(net.openSockets(), 0U);
    EXPECT_TRUE(socket.createSocket_ipv4(log));  // usable again
}

}  // namespace
}  // namespace tv
