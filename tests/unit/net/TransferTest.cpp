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
        FakeLink& link = connectTo({receives ? say("220 hel").then(c.ending) : turn(data, "")});
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

// How long each kind of wait takes and in which slices.
TEST_F(Transfer, waitsLastAndAreSlicedAsOrdered) {
    constexpr uint32_t kHour = 3600000;
    constexpr struct {
        const char* name;
        uint32_t limitMs, heartbeatMs, slice;
    } kWaits[] = {
        {"as usual", 2000, 0, 333},           {"heartbeat", 2000, 200, 200},
        {"heartbeat too short", 2000, 7, 50}, {"heartbeat longer than the limit", 2000, 5000, 2000},
        {"no limit", 0, 60000, 60000},
    };
    for (const std::string operation : {"connect", "receive", "send"}) {
        for (const auto& row : kWaits) {
            SCOPED_TRACE(operation + ", " + row.name);
            const bool connects = operation == "connect";
            if (!connects) connectTo({say("").then(Ending::Stall)});
            begin();
            call.heartbeatMs = row.heartbeatMs;
            if (connects) {
                net.silent("10.0.0.2", 25);
                socket.setConnectTimeoutMs(row.limitMs);
                failure = socket.connect2(call, "10.0.0.2", 25, false);
            } else if (operation == "receive") {
                line(row.limitMs);
            } else {
                send("data", row.limitMs);
            }
            EXPECT_TRUE(failure.is(connects ? Cause::ConnectTimeout : Cause::Timeout));
            const uint32_t limit = row.limitMs ? row.limitMs : (connects ? 6 : 56) * kHour;
            EXPECT_EQ(elapsedMs(), limit);
            EXPECT_EQ(*std::max_element(net.slices.begin(), net.slices.end()), row.slice);
            // Asleep all the time, and no more often awake than it has to be.
            EXPECT_EQ(net.slices.size(), (limit + row.slice - 1) / row.slice);
            socket.close(call, true, 0);
        }
    }
}

TEST_F(Transfer, linesWithinTheirSize) {
    for (const bool fits : {true, false}) {  // or the mark straddles the limit
        for (const Delivery delivery : {Delivery::Whole, Delivery::Bytes}) {
            const std::string text(fits ? 298 : 299, 'a');
            connectTo({say(text + "\r\nx")}).delivery = delivery;
            EXPECT_EQ(line(), fits ? text + "\r\n" : "");
            EXPECT_EQ(failure.cause(), fits ? Cause::None : Cause::LineTooLong);
            expectLogged(log, fits ? "!maxSize" : "within the size allowed. | maxSize: 300");
            DataBuffer rest;
            while (rest.size() < (fits ? 1U : 2U))
                ASSERT_FALSE(failure = socket.receiveBytes(call, rest, 5000));
            EXPECT_EQ(rest.text(), fits ? "x" : "\nx");
        }
    }
}

// What comes of a TLS record is put behind what waits already.
TEST(LineBuffer, recordsAreJoined) {
    LineBuffer buffer;
    DataBuffer out;
    for (const char* record : {"a\r", "\nb", "c\r", "\nd"}) {
        SecureBuffer source(bytesFrom(record));
        buffer.takeFrom(source);
        EXPECT_TRUE(source.empty());
        const bool isWhole = record[0] == '\n';
        EXPECT_EQ(buffer.takeUntil("\r\n", 9, out) == LineBuffer::Take::Found, isWhole) << record;
    }
    EXPECT_TRUE(buffer.takeAll(out));
    EXPECT_EQ(out.text(), "a\r\nbc\r\nd");
}

// A connection is quiet only while it stands and nobody has said anything since.
TEST_F(Transfer, quiet) {
    const std::pair<Turn, bool> kEnds[] = {{say("220 a\r\n"), true},
                                           {say("220 a\r\n421 bye\r\n"), false},
                                           {say("220 a\r\n").then(Ending::Reset), false},
                                           {say("220 a\r\n").thenClose(), false}};
    for (const auto& [turn, isQuiet] : kEnds) {
        connectTo({turn});
        EXPECT_FALSE(socket.isQuiet());  // the greeting is unread
        EXPECT_EQ(line(), "220 a\r\n");  // and not lost
        EXPECT_EQ(socket.isQuiet(), isQuiet);
    }
}

TEST_F(Transfer, theSessionLogHasOneHeaderPerRun) {
    const std::string path = "session-log-test.txt";
    std::remove(path.c_str());
    EXPECT_TRUE(socket.startSessionLog(path));
    EXPECT_FALSE(send("EHLO x\r\n"));
    expectLogged(log, "This socket is not connected");
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
        expectLogged(log, "Another thread is closing this socket.");
    }
}

TEST_F(Transfer, waysToClose) {
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
    TolvaneSocket tcp;
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.texts);
        FakeLink& link = net.serve("10.0.0.1", 25,
                                   {say("unread").then(c.stalls ? Ending::Stall : Ending::None)});
        EXPECT_TRUE(tcp.createSocket_ipv4(log));
        EXPECT_FALSE(failure = tcp.connect(call, *plat::parseIp("10.0.0.1"), 25, 1000));
        begin();
        if (c.faults)
            net.faults = {{"shutdown", {NetCode::NotConnected}}, {"close", {NetCode::Other}}};
        tcp.terminateConnection(call, c.form, 700);
        EXPECT_EQ(elapsedMs(), c.elapsedMs);
        EXPECT_EQ(link.finFromClient, c.form != CloseForm::Abortive && !c.faults);
        EXPECT_EQ(link.closedAbortively, c.form == CloseForm::Abortive);
        EXPECT_TRUE(link.closedByClient);
        EXPECT_FALSE(tcp.isConnected());
        expectLogged(log, c.texts);
    }
}

TEST_F(Transfer, boundToALocalAddress) {
    TolvaneSocket tcp;
    tcp.setClientBind("192.0.2.1", 4321);
    EXPECT_TRUE(tcp.createSocket_ipv4(log));
    expectLogged(log, "bindIpAddr1: 192.0.2.1 | bindPort: 4321 | !Failed");
    net.faults["bind"] = {NetCode::AddressNotAvailable};
    EXPECT_FALSE(tcp.createSocket_ipv4(log));
    expectLogged(log, "WSAEADDRNOTAVAIL | Failed to bind to local IP address");
    EXPECT_FALSE(tcp.createSocket_ipv6(log));  // an IPv4 address does not fit
}

// A second reader, and anybody who comes while the socket is being closed, is refused at once.
TEST_F(Transfer, aSecondThreadIsRefused) {
    FakeLink& link = connectTo({say("x\r\n")});
    link.latencyMs = 500;
    net.onWait = [&] {
        net.onWait = nullptr;
        EXPECT_EQ(line(100), "");
    };
    EXPECT_EQ(line(), "x\r\n");
    expectLogged(log, "Another thread is already receiving on this socket.");
    net.onWait = [&] {
        net.onWait = nullptr;
        socket.close(call, true, 0);
        EXPECT_TRUE(socket.connect2(call, "10.0.0.1", 25, false).is(Cause::Internal));
    };
    EXPECT_EQ(line(), "");
    expectLogged(log, "Another thread is closing this socket.");
    EXPECT_TRUE(link.closedByClient);
    connectTo({});  // usable again
    socket.close(call, true, 0);
}

}  // namespace
}  // namespace tv
