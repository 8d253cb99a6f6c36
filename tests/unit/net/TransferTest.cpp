// Sending, receiving, waiting, closing, and the session log.
#include <algorithm>

#include "net/LineBuffer.h"
#include "net/Socket2.h"
#include "net/stream/TolvaneSocket.h"
#include "tests/fixtures/TestData.h"
#include "tests/unit/net/NetTestKit.h"

namespace tv {
namespace {

using namespace tv::test;
using plat::NetCode;

class Transfer : public NetWorld {
protected:
    FakeLink& connectTo(std::vector<Turn> dialogue) {
        FakeLink& link = net.serve("10.0.0.1", 25, std::move(dialogue));
        monitor.allowed = 1 << 30;
        begin();
        EXPECT_FALSE(failure = socket.connect2(call, "10.0.0.1", 25, false));
        begin();
        return link;
    }
    bool send(std::string_view text, uint32_t idleMs = 5000) {
        failure = socket.sendBytes(call, bytesFrom(text), idleMs);
        return !failure;
    }
    // The next line, or "" on failure.
    std::string line(uint32_t idleMs = 5000) {
        DataBuffer out;
        failure = socket.receiveUntilMatch(call, out, "\r\n", 300, idleMs);
        return failure ? std::string() : std::string(out.text());
    }
    Socket2 socket;
};

TEST_F(Transfer, failures) {
    using enum Cause;
    constexpr size_t kReceive = SIZE_MAX;
    constexpr struct {
        const char* name;
        Ending ending;
        size_t after;  // bytes of the client, of 1000; kReceive: after half a line of the server
        int allowed;   // how often the application says go on
        Cause cause;
        uint64_t elapsedMs;
        const char* texts;
    } kCases[] = {
        {"the end", Ending::Eof, kReceive, 99, ConnectionLost, 0, "Connection closed by peer."},
        {"reset", Ending::Reset, kReceive, 99, ConnectionLost, 0,
         "Failed to receive data on the TCP socket | WSAECONNRESET"},
        {"silence", Ending::None, kReceive, 99, Timeout, 5000,
         "Timeout: the remote host sent no data."},
        {"stopped", Ending::None, kReceive, 3, Aborted, 666,
         "socket operation aborted by application"},
        {"stall after some", Ending::Stall, 400, 99, Timeout, 5000,
         "Timeout after partial send. | numBytesSent: 400 | numBytesUnsent: 600"},
        {"stall at once", Ending::Stall, 0, 99, Timeout, 5000,
         "Timeout: the remote host accepted no data."},
        {"reset after some", Ending::Reset, 400, 99, ConnectionLost, 0,
         "WSAECONNRESET An existing connection was forcibly closed by the remote host."},
        {"closed", Ending::Eof, 0, 99, ConnectionLost, 0, "WSAECONNRESET"},
        {"stopped at once", Ending::Stall, 400, 0, Aborted, 0,
         "Socket SendBytes aborted by application."},
        {"stopped in the wait", Ending::Stall, 400, 3, Aborted, 333,
         "Socket SendBytes2 aborted by application. | socket operation aborted by application"},
    };
    const std::string data(1000, 'd');
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        const bool receives = c.after == kReceive;
        Turn half = say("220 hel");
        half.after = c.ending;
        FakeLink& link = connectTo({receives ? half : turn(data, "")});
        link.mayEndEarly = true;
        link.maxSend = 900;
        link.cut = receives ? Ending::None : c.ending;
        link.cutAfterClientBytes = c.after;
        monitor.allowed = c.allowed;
        EXPECT_FALSE(receives ? !line().empty() : send(data));
        EXPECT_EQ(failure.cause(), c.cause);
        EXPECT_EQ(failure.anySent(), !receives && link.fromClient.size() > 0);
        EXPECT_EQ(elapsedMs(), c.elapsedMs);
        EXPECT_EQ(socket.isConnected(), c.cause != ConnectionLost);
        EXPECT_EQ(socket.hasBufferedInput(), receives);  // the half line
        expectLogged(log, c.texts);
        socket.close(call, true, 0);
        EXPECT_TRUE(link.closedByClient);
    }
}

enum class For { Connect, Receive, Send };

// How long each kind of wait takes and in which slices.
TEST_F(Transfer, waitsLastAndAreSlicedAsOrdered) {
    constexpr uint32_t kPoll = 0xABCD0123;
    constexpr uint64_t kHour = 3600000;
    constexpr struct {
        const char* name;
        uint32_t limitMs, heartbeatMs;
        bool fine;
        uint32_t slice;
        uint64_t elapsedMs;  // 0: as long as without a limit
    } kWaits[] = {
        {"as usual", 2000, 0, false, 333, 2000},
        {"fine slices", 2000, 0, true, 66, 2000},
        {"heartbeat", 2000, 200, false, 200, 2000},
        {"heartbeat before fine slices", 2000, 200, true, 200, 2000},
        {"heartbeat too short", 2000, 7, false, 50, 2000},
        {"heartbeat longer than the limit", 2000, 5000, false, 2000, 2000},
        {"no limit", 0, 60000, false, 60000, 0},
        {"a look", kPoll, 0, false, 1, 1},
        {"a look with a heartbeat", kPoll, 200, false, 1, 1},
    };
    for (const For what : {For::Connect, For::Receive, For::Send}) {
        for (const auto& row : kWaits) {
            if (what == For::Connect && row.limitMs == kPoll) continue;
            SCOPED_TRACE(std::to_string(static_cast<int>(what)) + row.name);
            if (what == For::Connect) {
                net.silent("10.0.0.2", 25);
                socket.setConnectTimeoutMs(row.limitMs);
                begin();
            } else {
                connectTo({say("").thenStall()});
            }
            call.heartbeatMs = row.heartbeatMs;
            call.fineSlices = row.fine;
            if (what == For::Connect) failure = socket.connect2(call, "10.0.0.2", 25, false);
            if (what == For::Receive) line(row.limitMs);
            if (what == For::Send) send("data", row.limitMs);
            const bool connects = what == For::Connect;
            EXPECT_TRUE(failure.is(connects ? Cause::ConnectTimeout : Cause::Timeout));
            const uint64_t limit = row.elapsedMs ? row.elapsedMs : (connects ? 6 : 56) * kHour;
            EXPECT_EQ(elapsedMs(), limit);
            EXPECT_EQ(*std::max_element(net.slices.begin(), net.slices.end()), row.slice);
            // Asleep all the time, and no more often awake than it has to be.
            EXPECT_EQ(net.slices.size(), (limit + row.slice - 1) / row.slice);
            socket.close(call, true, 0);
        }
    }
}

TEST_F(Transfer, linesWithinTheirSize) {
    const struct {
        const char* stream;
        size_t maxSize;
        const char *taken, *left;  // left: what is there for the next
    } kLines[] = {
        {"abc\r\nx", 5, "abc\r\n", "x"},
        {"abc\r\nx", 4, "abc\r", "\nx"},  // the mark straddles the limit
        {"abcdef", 4, "abcd", "ef"},
    };
    for (const auto& c : kLines) {
        for (const Delivery delivery : {Delivery::Whole, Delivery::Bytes}) {
            connectTo({say(c.stream)}).delivery = delivery;
            DataBuffer out, rest;
            failure = socket.receiveUntilMatch(call, out, "\r\n", c.maxSize, 5000);
            EXPECT_EQ(out.text(), c.taken);
            EXPECT_EQ(failure.cause(), c.maxSize == 5 ? Cause::None : Cause::LineTooLong);
            expectLogged(log, c.maxSize == 5 ? "!maxSize" : "maxSize: 4");
            while (rest.size() < std::string(c.left).size())
                ASSERT_FALSE(failure = socket.receiveBytes(call, rest, 5000));
            EXPECT_EQ(rest.text(), c.left);
        }
    }
}

// What comes of a TLS record is put behind what waits already.
TEST_F(Transfer, recordsAreJoined) {
    for (const std::string waiting : {"", "a\r", "a\r\n", "a\r\nb"}) {
        LineBuffer buffer;
        DataBuffer out;
        buffer.append(bytesFrom(waiting));
        for (const char* next : {"\nc", "d\r\ne"}) {
            buffer.takeUntil("\r\n", 10, out);
            SecureBuffer source(bytesFrom(next));
            buffer.takeFrom(source);
            EXPECT_TRUE(source.empty()) << waiting;
        }
        EXPECT_TRUE(buffer.takeAll(out));
        EXPECT_EQ(out.text(), waiting + "\ncd\r\ne");
    }
}

// A connection is quiet only while it stands and nobody has said anything since.
TEST_F(Transfer, quiet) {
    EXPECT_FALSE(socket.isQuiet());
    const struct {
        Turn turn;
        bool quiet;
    } kEnds[] = {{say("220 a\r\n"), true},
                 {say("220 a\r\n421 bye\r\n"), false},
                 {say("220 a\r\n").thenStall(), true},
                 {say("220 a\r\n").thenReset(), false},
                 {say("220 a\r\n").thenClose(), false}};
    for (const auto& c : kEnds) {
        connectTo({c.turn});
        EXPECT_FALSE(socket.isQuiet());  // the greeting is unread
        EXPECT_EQ(line(), "220 a\r\n");  // and not lost
        net.slices.clear();
        EXPECT_EQ(socket.isQuiet(), c.quiet);
        EXPECT_TRUE(net.slices.empty());  // it never waits
    }
}

TEST_F(Transfer, theSessionLogHasOneHeaderPerRun) {
    const std::string path = "session-log-test.txt";
    std::remove(path.c_str());
    EXPECT_TRUE(socket.startSessionLog(path));
    EXPECT_FALSE(send("EHLO x\r\n"));
    expectLogged(log, "This socket is not connected");
    EXPECT_EQ(net.sockets, 0U);
    connectTo({say("220 a\r\n"), turn("MAIL\r\n", ""), turn("RCPT\r\n", "250 ok\r\n")});
    EXPECT_EQ(line(), "220 a\r\n");
    EXPECT_TRUE(send("MAIL\r\n") && send("RCPT\r\n"));
    EXPECT_EQ(line(), "250 ok\r\n");
    const std::string expected =
        "\r\n---- Not Connected ----\r\n"
        "\r\n---- Received ----\r\n220 a\r\n"
        "\r\n---- Sending ----\r\nMAIL\r\nRCPT\r\n"
        "\r\n---- Received ----\r\n250 ok\r\n";
    EXPECT_EQ(socket.sessionLog()->text(), expected);
    EXPECT_FALSE(socket.startSessionLog("no/such/folder/log.txt"));  // the file is closed
    EXPECT_EQ(fileText(path), expected);
    std::remove(path.c_str());
}

// A Socket2 destroyed while it waits: the wait ends, nothing is touched that is gone.
TEST_F(Transfer, destroyedDuringAWait) {
    for (const bool sending : {false, true}) {
        auto doomed = std::make_unique<Socket2>();
        FakeLink& link = net.serve("10.0.0.1", 25, {});
        link.sendWindow = 0;
        EXPECT_FALSE(failure = doomed->connect2(call, "10.0.0.1", 25, false));
        net.onWait = [&] { doomed.reset(); };
        DataBuffer out;
        EXPECT_TRUE(failure = sending ? doomed->sendBytes(call, bytesFrom("x"), 5000)
                                      : doomed->receiveBytes(call, out, 5000));
        net.onWait = nullptr;
        EXPECT_TRUE(link.closedByClient);
        EXPECT_EQ(net.openSockets(), 0U);
        expectLogged(log, "Another thread is closing this socket.");
    }
}

class PlainSocket : public NetWorld {
protected:
    FakeLink& connectTo(std::vector<Turn> dialogue) {
        FakeLink& link = net.serve("10.0.0.1", 25, std::move(dialogue));
        EXPECT_TRUE(socket.createSocket_ipv4(log));
        EXPECT_FALSE(failure = socket.connect(call, *plat::parseIp("10.0.0.1"), 25, 1000));
        begin();
        return link;
    }
    bool receive(uint32_t idleMs = 1000) {
        uint8_t byte = 0;
        size_t received = 0;
        failure = socket.receiveBytes(call, {&byte, 1}, received, idleMs);
        return !failure;
    }
    TolvaneSocket socket;
};

TEST_F(PlainSocket, waysToClose) {
    constexpr struct {
        CloseForm form;
        bool stalls, faults;
        uint64_t elapsedMs;
        const char* texts;
    } kCases[] = {
        {CloseForm::AtOnce, false, false, 0, "Terminated TCP connection. | !Cleanly"},
        {CloseForm::Graceful, false, false, 0,
         "Cleanly terminated TCP connection. | TCP connection cleanly closed by peer."},
        {CloseForm::Graceful, true, false, 700, "Terminated TCP connection. | !Cleanly"},
        {CloseForm::Graceful, false, true, 0,
         "error on socket shutdown. | error on closesocket. | Terminated TCP connection."},
        {CloseForm::Abortive, false, false, 0, "AbortiveClose"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.texts);
        FakeLink& link = connectTo({c.stalls ? say("unread").thenStall() : say("unread")});
        if (c.faults) net.faults["shutdown"] = {NetCode::NotConnected};
        if (c.faults) net.faults["close"] = {NetCode::ConnectionReset};
        socket.terminateConnection(call, c.form, 700);
        EXPECT_EQ(elapsedMs(), c.elapsedMs);
        EXPECT_EQ(link.finFromClient, c.form != CloseForm::Abortive && !c.faults);
        EXPECT_EQ(link.closedAbortively, c.form == CloseForm::Abortive);
        EXPECT_TRUE(link.closedByClient);
        EXPECT_FALSE(socket.isConnected());
        expectLogged(log, c.texts);
    }
    connectTo({say("x")});
    EXPECT_TRUE(receive());  // usable again
}

TEST_F(PlainSocket, boundToALocalAddress) {
    socket.setClientBind("192.0.2.1", 4321);
    EXPECT_TRUE(socket.createSocket_ipv4(log));
    expectLogged(log, "bindIpAddr1: 192.0.2.1 | bindPort: 4321 | !Failed");
    net.faults["bind"] = {NetCode::AddressNotAvailable};
    EXPECT_FALSE(socket.createSocket_ipv4(log));
    expectLogged(log, "WSAEADDRNOTAVAIL | Failed to bind to local IP address");
    EXPECT_FALSE(socket.createSocket_ipv6(log));  // an IPv4 address does not fit
    EXPECT_EQ(net.openSockets(), 0U);
}

// A second reader, and anybody who comes while the socket is being closed, is refused at once.
TEST_F(PlainSocket, aSecondThreadIsRefused) {
    connectTo({say("x")}).latencyMs = 500;
    bool second = true;
    net.onWait = [&] {
        net.onWait = nullptr;
        second = receive(100);
    };
    EXPECT_TRUE(receive());
    EXPECT_FALSE(second);
    expectLogged(log, "Another thread is already receiving on this socket.");
    net.onWait = [&] {
        net.onWait = nullptr;
        socket.terminateConnection(call, CloseForm::AtOnce, 0);
        EXPECT_FALSE(socket.createSocket_ipv4(log));
    };
    EXPECT_FALSE(receive());
    expectLogged(log, "Another thread is closing this socket.");
    EXPECT_EQ(net.openSockets(), 0U);
    EXPECT_TRUE(socket.createSocket_ipv4(log));  // usable again
}

}  // namespace
}  // namespace tv
