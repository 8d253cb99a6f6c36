// Connecting: names, addresses, time, refusals, aborts, and what the log says of them.
#include "net/ConnectFailure.h"
#include "net/Socket2.h"
#include "net/resolve/ResolverState.h"
#include "net/stream/SChannelTolvane.h"
#include "tests/fixtures/DnsMessages.h"
#include "tests/unit/net/NetTestKit.h"

namespace tv {
namespace {

using namespace tv::test;
using plat::NetCode;
using enum Cause;

class Connect : public NetWorld {
protected:
    Connect() {
        net.name("mailhost", {"10.0.0.2"});
        net.name("one.test", {"10.0.0.1"});
        net.name("two.test", {"10.0.0.1", "10.0.0.2"});
        net.name("three.test", {"10.0.0.1", "10.0.0.2", "10.0.0.3"});
        net.name("four.test", {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4"});
        net.name("six.test", {"fd00::6"});
        net.name("both.test", {"10.0.0.1", "fd00::1"});
        net.name("slow.test", {"10.0.0.1"}, 29500);
        net.name("slower.test", {"10.0.0.1"}, 40000);
        net.nameFails("broken.test", NetCode::TryAgain);
        net.nameFails("late.test", NetCode::TryAgain, 40000);
    }
    bool connect(std::string_view host, uint32_t limitMs = 30000, int port = 25, bool tls = false) {
        begin();
        socket.setConnectTimeoutMs(limitMs);
        failure = socket.connect2(call, host, port, tls);
        return !failure;
    }
    // Makes the world of a row; gives the places that are to be connected to.
    std::vector<std::string> arrange(std::string_view world) {
        std::vector<std::string> places;
        for (const std::string& each : split(world, ", ")) {
            const std::vector<std::string> words = split(each + " accepts 0", " ");
            const auto number = static_cast<uint32_t>(std::atoi(words[2].c_str()));
            if (words[1] == "fails") {
                net.faults[words[0]].push_back(NetCode{number});
                continue;
            }
            places.push_back(words[0] + ":25");
            if (words[1] == "accepts") net.serve(words[0], 25, {});
            if (words[1] == "silent") net.silent(words[0], 25);
            if (words[1] == "unreachable") net.unreachable(words[0], 25);
            if (words[1] == "after") net.connectFails(words[0], 25, NetCode::TimedOut, number);
        }
        return places;
    }

    Socket2 socket;
};

// The world: the addresses as they are tried, and what each does, if not accept: "refuses",
// "silent", "unreachable", or "after N": the system gives up after N ms. A call of the system that
// fails once, with the number of the error.
constexpr struct {
    const char *name, *host, *world;
    uint32_t limitMs;
    Cause cause;
    uint64_t elapsedMs;
    const char* texts = "";
    bool prefersIpv6 = false;
} kRows[] = {
    {"an address", "10.0.0.7", "10.0.0.7", 30000, None, 0,
     "domainOrIpAddress: 10.0.0.7 | myIP: 10.9.9.9 | socket connect successful."},
    {"this machine", "localhost", "127.0.0.1", 30000, None, 0},
    {"brackets", "[::1]", "::1", 30000, None, 0, "Enabling dual-stack support..."},
    {"an IPv6 address", "fd00::5", "fd00::5", 30000, None, 0},
    {"user, scheme and path", "anna@https://One.Test/path", "10.0.0.1", 30000, None, 0},
    {"a port", "one.test:587", "10.0.0.1", 30000, None, 0},
    {"no dot", "mailhost", "10.0.0.2", 30000, None, 0, "sbIp_gethostbyname: 10.0.0.2"},
    {"IPv6 alone", "six.test", "fd00::6", 30000, None, 0,
     "No IPv4 address found, checking for IPv6..."},
    {"IPv6 preferred", "both.test", "fd00::1", 30000, None, 0, "", true},
    {"IPv6 refused", "both.test", "fd00::1 refuses, 10.0.0.1", 30000, None, 0, "", true},
    {"IPv6 preferred, but none there", "one.test", "10.0.0.1", 30000, None, 0, "", true},
    {"IPv6 silent: half the time", "both.test", "fd00::1 silent", 30000, ConnectTimeout, 15000, "",
     true},

    {"no host", "", "", 30000, EmptyHostname, 0,
     "Cannot connect, hostname is zero length | ConnectFailReason: Empty hostname"},
    {"no such name", "nowhere.test", "", 30000, DnsFailed, 0,
     "domain: nowhere.test | No IPv4 or IPv6 addresses found. | getAddressInfo failed. | "
     "WSAHOST_NOT_FOUND No such host is known. | ConnectFailReason: DNS lookup failed"},
    {"the system cannot tell", "broken.test", "", 30000, DnsFailed, 0,
     "Error 0x2afa | The name server did not answer, or reported a temporary failure."},
    {"nor in time", "late.test", "", 30000, DnsTimeout, 40000,
     "Elapsed time: 40000 millisec | ConnectFailReason: DNS timeout"},
    {"no name at all", "no such name", "", 30000, DnsFailed, 0,
     "Invalid domain for resolving domain to IP address."},
    {"refused", "one.test", "10.0.0.1 refuses", 30000, Rejected, 0,
     "ipv4_address: 10.0.0.1 | This is an IPV4 numeric address. | getsockopt indicates an error. | "
     "WSAECONNREFUSED No connection could be made because the target machine actively refused it. "
     "| Check to make sure the connection is not blocked by a firewall or anti-virus port "
     "filtering. | ConnectFailReason: Connection rejected | - Nothing is listening at the remote "
     "host:port"},
    {"silent", "one.test", "10.0.0.1 silent", 30000, ConnectTimeout, 30000,
     "Waiting for the connect to complete... | connectTimeoutMs: 30000 | failedWaitToConnect | "
     "Failed to make TCP connection before applications max wait time to connect. | "
     "ConnectFailReason: Timeout | A few possible causes for a connection timeout are:"},
    {"unreachable", "10.0.0.3", "10.0.0.3 unreachable", 30000, Rejected, 0, "WSAENETUNREACH"},

    {"after a refusal", "two.test", "10.0.0.1 refuses, 10.0.0.2", 30000, None, 0},
    {"a refusal is no time-out", "three.test", "10.0.0.1 refuses, 10.0.0.2 refuses, 10.0.0.3", 1000,
     None, 0},
    {"unreachable, then live", "two.test", "10.0.0.1 unreachable, 10.0.0.2", 30000, None, 0},
    {"a dead one costs its share", "two.test", "10.0.0.1 silent, 10.0.0.2", 30000, None, 15000},
    {"of four, a quarter", "four.test", "10.0.0.1 silent, 10.0.0.2", 30000, None, 7500},
    {"but at least four seconds", "three.test", "10.0.0.1 silent, 10.0.0.2 silent, 10.0.0.3", 9000,
     None, 8000},
    {"never more than is left", "three.test", "10.0.0.1 silent, 10.0.0.2 silent", 5000,
     ConnectTimeout, 5000},
    {"all silent", "two.test", "10.0.0.1 silent, 10.0.0.2 silent", 30000, ConnectTimeout, 30000},
    {"all refuse", "two.test", "10.0.0.1 refuses, 10.0.0.2 refuses", 30000, Rejected, 0,
     "addressesTried: 2"},
    {"no limit: 21 s each", "two.test", "10.0.0.1 silent, 10.0.0.2", 0, None, 21000},
    {"the name's time counts", "slow.test", "10.0.0.1 silent", 30000, ConnectTimeout, 30000},
    {"it took all, and no limit is no way out", "slower.test", "10.0.0.1 silent", 30000,
     ConnectTimeout, 40001},
    {"too little for the system", "slow.test", "", 999, DnsTimeout, 0},

    {"the system's own 21 s", "10.0.0.1", "10.0.0.1 after 21100", 30000, Rejected, 21100,
     "WSAETIMEDOUT | The default settings result in an overall 21 second timeout."},
    {"the system's own 5 s", "10.0.0.1", "10.0.0.1 after 5000", 30000, Rejected, 5000,
     "WSAETIMEDOUT | !21 second"},
    {"21 s of the application", "10.0.0.1", "10.0.0.1 silent", 21000, ConnectTimeout, 21000,
     "overall 21 second timeout"},

    {"protocol wanted", "10.0.0.1", "open fails 10022, 10.0.0.1", 30000, None, 0,
     "Retry with IPPROTO_TCP explicitly specified..."},
    {"start-up wanted", "10.0.0.1", "open fails 10093, 10.0.0.1", 30000, None, 0,
     "Using ws2_32.dll version 2,2"},
    {"start-up fails", "10.0.0.1", "open fails 10093, start fails 10106", 30000, Internal, 0,
     "WSAStartup error: 0x277a | startupWSA failed (B)"},
    {"no sockets left", "10.0.0.1", "open fails 10024", 30000, Internal, 0,
     "WSAEMFILE | Failed to create TCP socket (AF_INET / SOCK_STREAM) | "
     "The system gave no socket.\r\n    ConnectFailReason: Internal error"},
    {"none by IPv6", "::1", "open fails 10024", 30000, Internal, 0, "AF_INET6 / SOCK_STREAM"},
    {"never non-blocking", "10.0.0.1", "non-blocking fails 10055", 30000, Internal, 0,
     "WSAENOBUFS"},
    {"wait fails", "10.0.0.1", "wait fails 10050, 10.0.0.1", 30000, Rejected, 0, "WSAENETDOWN"},
    {"state unknown", "10.0.0.1", "pending fails 10055, 10.0.0.1", 30000, None, 0,
     "Failed to get SO_ERROR on socket."},
    {"no option", "10.0.0.1", "option fails 10042, 10.0.0.1", 30000, None, 0, "Error 0x273a"},
    {"no route for the option", "fd00::5", "option fails 10042, fd00::5", 30000, None, 0,
     "Failed to set the socket option for IPv6/IPv4 dual-stack support."},
};

TEST_F(Connect, eachAddressInItsTurn) {
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        const std::vector<std::string> places = arrange(row.world);
        socket.setPreferIpv6(row.prefersIpv6);
        EXPECT_EQ(connect(row.host, row.limitMs), row.cause == None) << textOf(log);
        EXPECT_EQ(failure.cause(), row.cause);
        EXPECT_EQ(net.connects, places);
        EXPECT_EQ(elapsedMs(), row.elapsedMs);
        EXPECT_EQ(failure || socket.remoteIp() + ":25" == places.back(), true) << socket.remoteIp();
        EXPECT_EQ(socket.isConnected(), !failure);
        EXPECT_FALSE(socket.isTls());
        expectLogged(log, row.texts);
        socket.close(call, true, 0);
        EXPECT_EQ(net.openSockets(), 0U);
    }
    EXPECT_EQ(monitor.events.at(0), "SocketConnect 10.0.0.7:25");
    EXPECT_EQ(monitor.events.at(1), "SocketConnected 10.0.0.7:25");
}

TEST_F(Connect, portsFrom1To65535) {
    for (const int port : {1, 65535}) {
        net.serve("10.0.0.1", port, {});
        EXPECT_TRUE(connect("10.0.0.1", 30000, port)) << port;
    }
    EXPECT_FALSE(connect("10.0.0.1", 30000, 0) || connect("10.0.0.1", 30000, 65536));
}

// One to the name server and one of TCP; none to the name server while it is remembered.
TEST_F(Connect, aFirstConnectCostsTwoRoundTrips) {
    ResolverState state;
    replaceResolverState(&state);
    net.nameServers.servers = {"10.0.0.53"};
    net.serveUdp("10.0.0.53", [](std::string_view query, size_t) -> std::vector<FakeDatagram> {
        return {{dnsmsg::reply(query, {dnsmsg::a("10.0.0.1")}), 20}};
    });
    for (const size_t datagrams : {1U, 0U}) {
        net.serve("10.0.0.1", 25, {});
        EXPECT_TRUE(connect("mail.example"));
        EXPECT_EQ(net.datagrams.size(), datagrams);
        EXPECT_EQ(net.connects.size(), 1U);
        EXPECT_EQ(elapsedMs(), 20 * datagrams);
    }
    replaceResolverState(nullptr);
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
    constexpr std::string_view kSupportedVersions("\x00\x2b\x00\x09\x08\x03\x04", 7);
    constexpr std::string_view kFallback("\x56\x00\x01\x00", 4);  // with the compression behind it
    const FakeRandom random({1});  // of which the session id in otherGroup is made
    const std::string none, refusal("\x15\x03\x03\x00\x02\x02\x56", 7);
    const std::string unknownName("\x15\x03\x03\x00\x02\x01\x70", 7);
    const std::string otherGroup(  // a HelloRetryRequest
        "\x16\x03\x03\x00\x58\x02\x00\x00\x54\x03\x03"
        "\xCF\x21\xAD\x74\xE5\x9A\x61\x11\xBE\x1D\x8C\x02\x1E\x65\xB8\x91"
        "\xC2\xA2\x11\x16\x7A\xBB\x8C\x5E\x07\x9E\x09\xE2\xC8\xA8\x33\x9C\x20"
        "\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1\1"
        "\x13\x01\x00\x00\x0C\x00\x2B\x00\x02\x03\x04\x00\x33\x00\x02\x00\x18",
        93);
    const auto serve = [&](const std::string& answer, Ending ending) -> FakeLink& {
        Turn turn = upTo("\x16", answer);
        turn.after = ending;
        FakeLink& link = net.serve("10.0.0.1", 465, {turn, upTo("never", "")});
        link.mayEndEarly = true;
        return link;
    };
    const char* const kLost = "The connection was lost in the TLS handshake";
    const struct {
        const char *name, *policy;
        bool verify;
        std::string answer;
        Ending ending;
        const std::string* second;  // the answer to a second hello, where one is expected
        Cause cause;
        const char *failure, *texts = "";
    } kCases[] = {
        {"closed", "", false, "", Ending::Eof, &none, TlsNoServerHello, kLost},
        {"reset", "", false, "", Ending::Reset, &none, TlsNoServerHello, kLost},
        {"verifying", "", true, "", Ending::Eof, &none, TlsNoServerHello, kLost},
        {"refused", "", false, "", Ending::Eof, &refusal, Internal, "\"inappropriate fallback\""},
        {"refused, verifying", "", true, "", Ending::Eof, &refusal, Internal,
         "set TlsProtocol to \"TLS 1.2 or lower\""},
        {"without 1.3", "TLS 1.2 or lower", true, "", Ending::Eof, nullptr, TlsNoServerHello,
         kLost},
        {"1.3 alone", "TLS 1.3 exact", false, "", Ending::Eof, nullptr, TlsNoServerHello, kLost},
        // Who answers, whatever comes next, is not asked again.
        {"no TLS", "", false, "220 hello\r\n", Ending::None, nullptr, Internal,
         "The peer does not speak TLS on this connection (bad record type)",
         "Client handshake failed. (3)"},
        {"alert", "", false, unknownName, Ending::Eof, nullptr, Internal, "",
         "SNI unrecognized name"},
        {"another group", "", false, otherGroup, Ending::Eof, nullptr, Internal, kLost,
         "serverRequestedKeyShareGroup: secp384r1"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        socket.tlsSettings().tlsProtocol = c.policy;
        socket.tlsSettings().requireSslCertVerify = c.verify;
        const std::string& first = serve(c.answer, c.ending).fromClient;
        const std::string& second = c.second ? serve(*c.second, c.ending).fromClient : first;
        EXPECT_FALSE(connect("one.test:465", 30000, 465, true));
        EXPECT_EQ(net.connects.size(), c.second ? 2U : 1U);
        EXPECT_FALSE(socket.isConnected());
        EXPECT_EQ(failure.cause(), c.cause) << textOf(log);
        EXPECT_NE(failure.text().find(c.failure), std::string::npos) << failure.text();
        expectLogged(log, failure.text() + ".\r\n    ConnectFailReason: " +
                              connectFailText(Failure(c.cause)) + " | " + c.texts);
        EXPECT_NE(first.find(std::string("\0\x08one.test", 10)), std::string::npos);
        EXPECT_EQ(first.find(kFallback), std::string::npos);
        if (!c.second) continue;
        expectLogged(log, "Failed to read the TLS server hello.  Retry without TLS 1.3");
        EXPECT_NE(first.find(kSupportedVersions), std::string::npos);
        EXPECT_EQ(second.find(kSupportedVersions), std::string::npos);
        EXPECT_EQ(second.substr(0, 2), "\x16\x03");
        EXPECT_EQ(second.find(kFallback) != std::string::npos, c.verify);
    }
}

}  // namespace
}  // namespace tv
