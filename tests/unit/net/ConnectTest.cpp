// Connecting: names, addresses, time, refusals, aborts, and what the log says of them.
#include "base/crypto/Hash.h"
#include "net/ConnectFailure.h"
#include "net/Socket2.h"
#include "net/stream/SChannelTolvane.h"
#include "tests/unit/net/NetTestKit.h"

namespace tv {
namespace {

using namespace tv::test;
using plat::NetCode;
using enum Cause;

class Connect : public NetWorld {
protected:
    Connect() {
        net.name("one.test", {"10.0.0.1"});
        net.name("two.test", {"10.0.0.1", "10.0.0.2"});
        net.name("three.test", {"10.0.0.1", "10.0.0.2", "10.0.0.3"});
        net.name("four.test", {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4"});
        net.name("both.test", {"10.0.0.1", "fd00::1"});
        net.name("slow.test", {"10.0.0.1"}, 29500);
        net.name("slower.test", {"10.0.0.1"}, 40000);
        net.name("broken.test", {}, 0, NetCode::TryAgain);
        net.name("late.test", {}, 40000, NetCode::TryAgain);
    }
    bool connect(std::string_view host, int port = 25, bool tls = false) {
        begin();
        failure = socket.connect2(call, host, port, tls);
        return !failure;
    }
    // Makes the world of a row; gives the places that are to be connected to.
    std::vector<std::string> arrange(std::string_view world) {
        std::vector<std::string> places;
        socket.setConnectTimeoutMs(30000);
        socket.setPreferIpv6(world.ends_with("IPv6 first"));
        for (const std::string& each : split(world, ", ")) {
            const std::vector<std::string> words = split(each + " accepts 0", " ");
            const size_t at = words[0] == "within" ? 1 : 2;
            const auto number = static_cast<uint32_t>(std::atoi(words[at].c_str()));
            if (words[1] == "fails") net.faults[words[0]].push_back(NetCode{number});
            if (words[0] == "within") socket.setConnectTimeoutMs(number);
            if (!plat::parseIp(words[0])) continue;
            places.push_back(words[0] + ":25");
            if (words[1] == "accepts") net.serve(words[0], 25, {});
            if (words[1] == "silent") net.silent(words[0], 25);
            if (words[1] == "unreachable") net.unreachable(words[0], 25);
            if (words[1] == "after") net.timesOut(words[0], 25, number);
        }
        return places;
    }

    Socket2 socket;
};

// The world: the addresses as they are tried, and what each does, if not accept: "refuses",
// "silent", "unreachable", or "after N": the system gives up after N ms. A call of the system that
// fails once, with the number of the error. What the application wants: "within N" ms, "IPv6
// first".
constexpr struct {
    const char *name, *host, *world;
    Cause cause;
    uint64_t elapsedMs;
    const char* texts = "";
} kRows[] = {
    {"an address", "10.0.0.7", "10.0.0.7", None, 0,
     "domainOrIpAddress: 10.0.0.7 | myIP: 10.9.9.9 | socket connect successful."},
    {"user, scheme and path", "anna@https://One.Test/path", "10.0.0.1", None, 0},
    {"IPv6 preferred", "both.test", "fd00::1, IPv6 first", None, 0},
    {"IPv6 refused", "both.test", "fd00::1 refuses, 10.0.0.1, IPv6 first", None, 0},
    {"IPv6 preferred, but none there", "one.test", "10.0.0.1, IPv6 first", None, 0},
    {"IPv6 silent: half the time", "both.test", "fd00::1 silent, IPv6 first", ConnectTimeout,
     15000},

    {"no host", "", "", EmptyHostname, 0,
     "Cannot connect, hostname is zero length | ConnectFailReason: Empty hostname"},
    {"no such name", "nowhere.test", "", DnsFailed, 0,
     "domain: nowhere.test | No IPv4 or IPv6 addresses found. | getAddressInfo failed. | "
     "WSAHOST_NOT_FOUND No such host is known. | ConnectFailReason: DNS lookup failed"},
    {"the system cannot tell", "broken.test", "", DnsFailed, 0,
     "Error 0x2afa | The name server did not answer, or reported a temporary failure."},
    {"nor in time", "late.test", "", DnsTimeout, 40000,
     "Elapsed time: 40000 millisec | ConnectFailReason: DNS timeout"},
    {"refused", "one.test", "10.0.0.1 refuses", Rejected, 0,
     "ipv4_address: 10.0.0.1 | This is an IPV4 numeric address. | getsockopt indicates an error. | "
     "WSAECONNREFUSED No connection could be made because the target machine actively refused it. "
     "| Check to make sure the connection is not blocked by a firewall or anti-virus port "
     "filtering. | ConnectFailReason: Connection rejected | - Nothing is listening at the remote "
     "host:port"},
    {"silent", "one.test", "10.0.0.1 silent", ConnectTimeout, 30000,
     "Waiting for the connect to complete... | connectTimeoutMs: 30000 | failedWaitToConnect | "
     "Failed to make TCP connection before applications max wait time to connect. | "
     "ConnectFailReason: Timeout | A few possible causes for a connection timeout are:"},
    {"unreachable", "10.0.0.3", "10.0.0.3 unreachable", Rejected, 0, "WSAENETUNREACH"},

    {"a refusal is no time-out", "three.test",
     "10.0.0.1 refuses, 10.0.0.2 unreachable, 10.0.0.3, within 1000", None, 0},
    {"a dead one of four costs a quarter", "four.test", "10.0.0.1 silent, 10.0.0.2", None, 7500},
    {"but at least four seconds", "three.test",
     "10.0.0.1 silent, 10.0.0.2 silent, 10.0.0.3, within 9000", None, 8000},
    {"never more than is left", "three.test", "10.0.0.1 silent, 10.0.0.2 silent, within 5000",
     ConnectTimeout, 5000},
    {"all silent", "two.test", "10.0.0.1 silent, 10.0.0.2 silent", ConnectTimeout, 30000},
    {"all refuse", "two.test", "10.0.0.1 refuses, 10.0.0.2 refuses", Rejected, 0,
     "addressesTried: 2"},
    {"no limit: 21 s each", "two.test", "10.0.0.1 silent, 10.0.0.2, within 0", None, 21000},
    {"the name's time counts", "slow.test", "10.0.0.1 silent", ConnectTimeout, 30000},
    {"it took all, and no limit is no way out", "slower.test", "10.0.0.1 silent", ConnectTimeout,
     40001},

    {"the system's own 21 s", "10.0.0.1", "10.0.0.1 after 21100", Rejected, 21100,
     "WSAETIMEDOUT | The default settings result in an overall 21 second timeout."},
    {"the system's own 5 s", "10.0.0.1", "10.0.0.1 after 5000", Rejected, 5000,
     "WSAETIMEDOUT | !21 second"},
    {"21 s of the application", "10.0.0.1", "10.0.0.1 silent, within 21000", ConnectTimeout, 21000,
     "overall 21 second timeout"},

    {"protocol wanted", "10.0.0.1", "open fails 10022, 10.0.0.1", None, 0,
     "Retry with IPPROTO_TCP explicitly specified..."},
    {"start-up wanted", "10.0.0.1", "open fails 10093, 10.0.0.1", None, 0,
     "Using ws2_32.dll version 2,2"},
    {"start-up fails", "10.0.0.1", "open fails 10093, start fails 10106", Internal, 0,
     "WSAStartup error: 0x277a | startupWSA failed (B)"},
    {"no sockets left", "10.0.0.1", "open fails 10024", Internal, 0,
     "WSAEMFILE | Failed to create TCP socket (AF_INET / SOCK_STREAM) | "
     "The system gave no socket.\r\n    ConnectFailReason: Internal error"},
    {"none by IPv6", "::1", "open fails 10024", Internal, 0, "AF_INET6 / SOCK_STREAM"},
    {"never non-blocking", "10.0.0.1", "non-blocking fails 10055", Internal, 0, "WSAENOBUFS"},
    {"wait fails", "10.0.0.1", "wait fails 10050, 10.0.0.1", Rejected, 0, "WSAENETDOWN"},
    {"state unknown", "10.0.0.1", "pending fails 10055, 10.0.0.1", None, 0,
     "Failed to get SO_ERROR on socket."},
    {"no option", "10.0.0.1", "option fails 10042, 10.0.0.1", None, 0, "Error 0x273a"},
    {"no route for the option", "[::1]", "option fails 10042, ::1", None, 0,
     "Enabling dual-stack support... | "
     "Failed to set the socket option for IPv6/IPv4 dual-stack support."},
};

TEST_F(Connect, eachAddressInItsTurn) {
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        const std::vector<std::string> places = arrange(row.world);
        EXPECT_EQ(connect(row.host), row.cause == None) << textOf(log);
        EXPECT_EQ(failure.cause(), row.cause);
        EXPECT_EQ(net.connects, places);
        EXPECT_EQ(elapsedMs(), row.elapsedMs);
        EXPECT_EQ(failure || socket.remoteIp() + ":25" == places.back(), true) << socket.remoteIp();
        EXPECT_EQ(socket.isConnected(), !failure);
        expectLogged(log, row.texts);
        socket.close(call, true, 0);
    }
    EXPECT_EQ(monitor.events.at(0), "SocketConnect 10.0.0.7:25");
    EXPECT_EQ(monitor.events.at(1), "SocketConnected 10.0.0.7:25");
}

TEST_F(Connect, portsFrom1To65535) {
    for (const int port : {1, 65535}) {
        net.serve("10.0.0.1", port, {});
        EXPECT_TRUE(connect("10.0.0.1", port)) << port;
    }
    EXPECT_FALSE(connect("10.0.0.1", 0) || connect("10.0.0.1", 65536));
}

TEST_F(Connect, abortEndsTheWaitAtTheNextSlice) {
    net.silent("10.0.0.1", 25);
    monitor.allowed = 4;  // one before the look-up, three before slices
    EXPECT_FALSE(connect("two.test"));
    EXPECT_EQ(failure.cause(), Aborted);
    EXPECT_EQ(elapsedMs(), 3 * 333U);
    EXPECT_EQ(net.connects.size(), 1U);
    expectLogged(log, "Aborted by application. | ConnectFailReason: App aborted in event callback");
}

TEST_F(Connect, aClockThatGoesBackEndsTheAttempts) {
    clock.advanceMs(10000000);
    net.silent("10.0.0.1", 25);
    net.onWait = [&] { clock.nowNs -= 1000000000000; };
    EXPECT_FALSE(connect("two.test"));
    EXPECT_EQ(net.connects.size(), 1U);
    EXPECT_EQ(net.slices.size(), 1U);
    expectLogged(log, "Connect timeout.");
}

TEST_F(Connect, socketsAreMadeAsOrdered) {
    const FakeLink& link = net.serve("10.0.0.1", 25, {say("220 first\r\n")});
    EXPECT_TRUE(connect("10.0.0.1"));
    EXPECT_EQ(net.options, (std::vector<uint32_t>{262144, 4194304, 1, 119000, 29000}));
    EXPECT_TRUE(link.noDelayHistory.empty());
    DataBuffer bytes;
    EXPECT_FALSE(failure = socket.receiveUntilMatch(call, bytes, "2", 100, 1000));
    // Another connect ends the connection, and nothing is left over of it.
    FakeLink& second = net.serve("10.0.0.1", 25, {say("hello\r\n")});
    socket.setTcpNoDelay(log, true);
    EXPECT_TRUE(connect("10.0.0.1"));
    EXPECT_TRUE(link.closedByClient);
    EXPECT_EQ(second.noDelayHistory, std::vector<bool>{true});
    bytes.clear();
    EXPECT_FALSE(failure = socket.receiveUntilMatch(call, bytes, "\r\n", 100, 1000));
    EXPECT_EQ(bytes.text(), "hello\r\n");
}

TEST_F(Connect, aHelloWithoutAnAnswerIsRepeatedWithoutTls13) {
    const FakeRandom random({1});  // of which the session id in otherGroup is made
    const std::string refusal("\x15\x03\x03\x00\x02\x02\x56", 7);
    const auto digest = crypto::Hash::of(crypto::HashId::kSha256, bytesFrom("HelloRetryRequest"));
    const std::string otherGroup =
        std::string("\x16\x03\x03\x00\x58\x02\x00\x00\x54\x03\x03", 11) +
        std::string(digest.data(), digest.data() + 32) + '\x20' + std::string(32, '\1') +
        std::string("\x13\x01\0\0\x0C\0\x2B\0\x02\x03\x04\0\x33\0\x02\0\x18", 17);
    const char* const kLost = "The connection was lost in the TLS handshake";
    const struct {
        const char *name, *policy;
        bool verify;
        std::vector<std::string> answers;  // to each hello, then the connection is closed
        const char* failure;
    } kCases[] = {
        {"closed", "", false, {"", ""}, kLost},
        {"closed, verifying", "", true, {"", ""}, kLost},
        {"refused", "", false, {"", refusal}, "\"inappropriate fallback\""},
        {"refused, verifying", "", true, {"", refusal}, "set TlsProtocol to \"TLS 1.2 or lower\""},
        {"without 1.3", "TLS 1.2 or lower", true, {""}, kLost},
        {"1.3 alone", "TLS 1.3 exact", false, {""}, kLost},
        {"who has answered is not asked again", "", false, {otherGroup}, kLost},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        socket.tlsSettings().tlsProtocol = c.policy;
        socket.tlsSettings().requireSslCertVerify = c.verify;
        FakeLink* link = nullptr;
        for (const std::string& answer : c.answers) {
            link =
                &net.serve("10.0.0.1", 465, {upTo("\x16", answer).thenClose(), upTo("never", "")});
            link->mayEndEarly = true;
        }
        EXPECT_FALSE(connect("one.test:465", 465, true));
        EXPECT_EQ(net.connects.size(), c.answers.size());
        EXPECT_FALSE(socket.isConnected());
        EXPECT_EQ(failure.cause(), c.answers.back().empty() ? TlsNoServerHello : Internal);
        EXPECT_NE(failure.text().find(c.failure), std::string::npos) << failure.text();
        expectLogged(log, failure.text() + ".\r\n    ConnectFailReason: " +
                              connectFailText(Failure(failure.cause())));
        EXPECT_NE(link->fromClient.find(std::string("\0\x08one.test", 10)), std::string::npos);
    }
}

}  // namespace
}  // namespace tv
