// Connecting: names, addresses, time, refusals, aborts, and what the log says of them.
#include "net/ConnectFailure.h"
#include "net/Socket2.h"
#include "net/stream/SChannelTolvane.h"

#include <utility>

#include "tests/unit/net/NetTestKit.h"

namespace tv {
namespace {

using namespace tv::test;
using plat::NetCode;
using plat::SocketOption;

class Connect : public testing::Test {
protected:
    bool connect(std::string_view host, int port = 25, uint32_t timeoutMs = 30000) {
        call.monitor = &monitor;
        socket.setConnectTimeoutMs(timeoutMs);
        startNs = clock.nowNs;
        failure = socket.connect2(call, host, port, false);
        return !failure;
    }
    uint64_t elapsedMs() const { return (clock.nowNs - startNs) / 1000000; }
    FakeLink& greeter(const std::string& ip, int port = 25) {
        FakeLink& link = net.serve(ip, port, {say("220 hello\r\n")});
        return link;
    }

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

TEST_F(Connect, HostForms) {
    net.name("mail.test", {"10.0.0.1"});
    net.name("mailhost", {"10.0.0.2"});
    net.name("six.test", {"fd00::6"});
    const struct {
        const char* host;
        const char* reached;
    } kCases[] = {
        {"10.0.0.7", "10.0.0.7"},
        {"localhost", "127.0.0.1"},
        {"[::1]", "::1"},
        {"fd00::5", "fd00::5"},
        {"anna@https://Mail.Test/path", "10.0.0.1"},
        {"mail.test:587", "10.0.0.1"},
        {"mailhost", "10.0.0.2"},
        {"six.test", "fd00::6"},  // no IPv4 address at all
    };
    for (const auto& c : kCases) {
        greeter(c.reached, 2525);
        EXPECT_TRUE(connect(c.host, 2525)) << c.host << textOf(log);
        EXPECT_EQ(socket.remoteIp(), c.reached) << c.host;
        EXPECT_FALSE(socket.isTls());
        socket.close(call, false, 0);
    }
    EXPECT_EQ(monitor.events.at(0), "SocketConnect 10.0.0.7:2525");
    EXPECT_EQ(monitor.events.at(1), "SocketConnected 10.0.0.7:2525");
    expectLogged(log, "sbIp_gethostbyname: 10.0.0.2");
    expectLogged(log, "No IPv4 address found, checking for IPv6...");
}

TEST_F(Connect, FailuresNameStepCauseAndAddress) {
    net.name("refusing.test", {"10.0.0.1"});
    net.name("silent.test", {"10.0.0.2"});
    net.nameFails("broken.test", NetCode::TryAgain);
    net.nameFails("late.test", NetCode::TryAgain, 40000);
    const struct {
        const char* host;
        int port;
        Cause reason;
        std::vector<const char*> texts;
    } kCases[] = {
        {"",
         25,
         Cause::EmptyHostname,
         {"Cannot connect, hostname is zero length", "ConnectFailReason: Empty hostname"}},
        {"nowhere.test",
         25,
         Cause::DnsFailed,
         {"domain: nowhere.test", "No IPv4 or IPv6 addresses found.", "getAddressInfo failed.",
          "WSAHOST_NOT_FOUND No such host is known.", "ConnectFailReason: DNS lookup failed"}},
        {"broken.test",
         25,
         Cause::DnsFailed,
         {"Error 0x2afa", "The name server did not answer, or reported a temporary failure."}},
        {"late.test",
         25,
         Cause::DnsTimeout,
         {"Elapsed time: 40000 millisec", "ConnectFailReason: DNS timeout"}},
        {"no such name",
         25,
         Cause::DnsFailed,
         {"Invalid domain for resolving domain to IP address."}},
        {"refusing.test",
         25,
         Cause::Rejected,
         {"ipv4_address: 10.0.0.1", "This is an IPV4 numeric address.",
          "getsockopt indicates an error.",
          "WSAECONNREFUSED No connection could be made because the target machine actively "
          "refused it.",
          "Check to make sure the connection is not blocked by a firewall or anti-virus port "
          "filtering.",
          "ConnectFailReason: Connection rejected",
          "- Nothing is listening at the remote host:port"}},
        {"silent.test",
         26,
         Cause::ConnectTimeout,
         {"ipv4_address: 10.0.0.2", "Waiting for the connect to complete...",
          "connectTimeoutMs: 30000", "failedWaitToConnect",
          "Failed to make TCP connection before applications max wait time to connect.",
          "ConnectFailReason: Timeout", "A few possible causes for a connection timeout are:"}},
        {"10.0.0.3", 25, Cause::Rejected, {"domainOrIpAddress: 10.0.0.3", "WSAENETUNREACH"}},
        {"10.0.0.4", 0, Cause::Internal, {"the port is not a number from 1 to 65535"}},
        {"10.0.0.4",
         65536,
         Cause::Internal,
         {"The port is not a number from 1 to 65535.\r\n    ConnectFailReason: Internal error"}},
    };
    net.silent("10.0.0.2", 26);
    net.unreachable("10.0.0.3", 25);
    for (const auto& c : kCases) {
        log.clearLog();
        EXPECT_FALSE(connect(c.host, c.port)) << c.host;
        EXPECT_EQ(failure.cause(), c.reason) << c.host;
        EXPECT_FALSE(socket.isConnected());
        EXPECT_LE(elapsedMs(), 40000U) << c.host;
        EXPECT_EQ(net.openSockets(), 0U) << c.host;
        for (const char* text : c.texts)
            expectLogged(log, text);
    }
}

// The same fixture world for each row: what the addresses do, and what that leads to.
TEST_F(Connect, EachAddressInItsTurn) {
    enum Does { Accepts, Refuses, Silent, Unreachable };
    const struct {
        const char* name;
        std::vector<Does> addresses;
        uint32_t timeoutMs;
        size_t attempts;
        int reached;  // index, or -1
        uint64_t elapsedMs;
        Cause reason;
    } kCases[] = {
        {"the second after a refusal", {Refuses, Accepts}, 30000, 2, 1, 0, {}},
        {"a fast refusal is no time-out", {Refuses, Refuses, Accepts}, 1000, 3, 2, 0, {}},
        {"unreachable at once, then live", {Unreachable, Accepts}, 30000, 2, 1, 0, {}},
        {"a dead one costs its share", {Silent, Accepts}, 30000, 2, 1, 15000, {}},
        {"of four, a quarter", {Silent, Accepts, Refuses, Refuses}, 30000, 2, 1, 7500, {}},
        {"but at least four seconds", {Silent, Silent, Accepts}, 9000, 3, 2, 8000, {}},
        {"never more than is left",
         {Silent, Silent, Accepts},
         5000,
         2,
         -1,
         5000,
         Cause::ConnectTimeout},
        {"all silent", {Silent, Silent}, 30000, 2, -1, 30000, Cause::ConnectTimeout},
        {"all refuse", {Refuses, Refuses}, 30000, 2, -1, 0, Cause::Rejected},
        {"no limit: 21 s each", {Silent, Accepts}, 0, 2, 1, 21000, {}},
    };
    for (const auto& c : kCases) {
        std::vector<std::string> ips;
        for (size_t i = 0; i < c.addresses.size(); ++i)
            ips.push_back("10.1.0." + std::to_string(i));
        FakeClock ownClock;
        FakeNet ownNet(ownClock);
        ownNet.name("multi.test", ips);
        for (size_t i = 0; i < ips.size(); ++i) {
            if (i >= c.attempts) break;
            switch (c.addresses[i]) {
                case Accepts:
                    ownNet.serve(ips[i], 25, {});
                    break;
                case Refuses:
                    ownNet.refuse(ips[i], 25);
                    break;
                case Silent:
                    ownNet.silent(ips[i], 25);
                    break;
                case Unreachable:
                    ownNet.unreachable(ips[i], 25);
                    break;
            }
        }
        Socket2 own;
        CallContext ownCall{log};
        own.setConnectTimeoutMs(c.timeoutMs);
        const uint64_t start = ownClock.nowNs;
        failure = own.connect2(ownCall, "multi.test", 25, false);
        EXPECT_EQ(!failure, c.reached >= 0) << c.name;
        EXPECT_EQ(ownNet.connects.size(), c.attempts) << c.name;
        EXPECT_EQ((ownClock.nowNs - start) / 1000000, c.elapsedMs) << c.name;
        EXPECT_EQ(failure.cause(), c.reason) << c.name;
        if (c.reached >= 0) {
            EXPECT_EQ(own.remoteIp(), ips[static_cast<size_t>(c.reached)]) << c.name;
        }
        own.close(ownCall, true, 0);
    }
}

TEST_F(Connect, TimeSpentOnTheNameCounts) {
    net.name("slow.test", {"10.0.0.1"}, 29500);
    net.silent("10.0.0.1", 25);
    EXPECT_FALSE(connect("slow.test"));
    EXPECT_EQ(elapsedMs(), 30000U);
    EXPECT_EQ(failure.cause(), Cause::ConnectTimeout);
    // Nor does a look-up that took all of it leave the connect without a limit.
    net.name("slower.test", {"10.0.0.1"}, 40000);
    net.silent("10.0.0.1", 25);
    EXPECT_FALSE(connect("slower.test"));
    EXPECT_EQ(elapsedMs(), 40001U);
    EXPECT_EQ(failure.cause(), Cause::ConnectTimeout);
    // With less than a second left the system's resolver, which cannot be stopped, is not asked.
    EXPECT_FALSE(connect("slow.test", 25, 999));
    EXPECT_EQ(net.lookups.size(), 2U);
    EXPECT_EQ(failure.cause(), Cause::DnsTimeout);
}

TEST_F(Connect, ClockThatGoesBackEndsTheAttempts) {
    clock.advanceMs(10000000);
    net.name("multi.test", {"10.0.0.1", "10.0.0.2"});
    net.silent("10.0.0.1", 25);
    net.onWait = [&] { clock.nowNs -= 1000000000000; };
    EXPECT_FALSE(connect("multi.test"));
    EXPECT_EQ(net.connects.size(), 1U);
    EXPECT_EQ(net.slices.size(), 1U);
    expectLogged(log, "Connect timeout.");
}

TEST_F(Connect, TheSystemsOwnTwentyOneSecondsAreExplained) {
    const std::string explanation = "The default settings result in an overall 21 second timeout.";
    net.connectFails("10.0.0.1", 25, NetCode::TimedOut, 21100);
    EXPECT_FALSE(connect("10.0.0.1"));
    EXPECT_EQ(failure.cause(), Cause::Rejected);
    expectLogged(log, "WSAETIMEDOUT");
    expectLogged(log, explanation);
    log.clearLog();
    net.connectFails("10.0.0.1", 25, NetCode::TimedOut, 5000);
    EXPECT_FALSE(connect("10.0.0.1"));
    EXPECT_EQ(textOf(log).find(explanation), std::string::npos);
    net.silent("10.0.0.1", 25);
    EXPECT_FALSE(connect("10.0.0.1", 25, 21000));
    EXPECT_EQ(failure.cause(), Cause::ConnectTimeout);
    expectLogged(log, explanation);
}

TEST_F(Connect, AbortEndsTheWaitAtTheNextSlice) {
    net.name("multi.test", {"10.0.0.1", "10.0.0.2"});
    net.silent("10.0.0.1", 25);
    monitor.allowed = 4;  // one before the look-up, three before slices
    EXPECT_FALSE(connect("multi.test"));
    EXPECT_EQ(failure.cause(), Cause::Aborted);
    EXPECT_EQ(elapsedMs(), 3 * 333U);
    EXPECT_EQ(net.connects.size(), 1U);
    expectLogged(log, "Aborted by application.");
    expectLogged(log, "ConnectFailReason: App aborted in event callback");
}

TEST_F(Connect, PreferredIpv6FallsBackToIpv4) {
    net.name("both.test", {"10.0.0.1", "fd00::1"});
    socket.setPreferIpv6(true);
    net.serve("fd00::1", 25, {});
    EXPECT_TRUE(connect("both.test"));
    EXPECT_EQ(socket.remoteIp(), "fd00::1");
    net.refuse("fd00::1", 25);
    net.serve("10.0.0.1", 25, {});
    EXPECT_TRUE(connect("both.test"));
    EXPECT_EQ(socket.remoteIp(), "10.0.0.1");
    expectLogged(log, "Enabling dual-stack support...");
}

TEST_F(Connect, SocketsAreMadeAsOrdered) {
    FakeLink& link = net.serve("10.0.0.1", 25, {});
    socket.setTcpNoDelay(log, true);
    EXPECT_TRUE(connect("10.0.0.1"));
    EXPECT_EQ(link.options[SocketOption::SendBuffer], 262144U);
    EXPECT_EQ(link.options[SocketOption::ReceiveBuffer], 4194304U);
    EXPECT_EQ(link.options[SocketOption::KeepAlive], 1U);
    EXPECT_EQ(link.keepAliveIdleMs, 119000U);
    EXPECT_EQ(link.keepAliveIntervalMs, 29000U);
    EXPECT_EQ(link.noDelayHistory, std::vector<bool>{true});
    expectLogged(log, "myIP: 10.9.9.9");
    expectLogged(log, "socket connect successful.");

    FakeLink& defaults = net.serve("10.0.0.1", 25, {});
    Socket2 other;
    EXPECT_FALSE(failure = other.connect2(call, "10.0.0.1", 25, false));
    EXPECT_TRUE(defaults.noDelayHistory.empty());
}

TEST_F(Connect, FaultsOfTheSystemOnTheWay) {
    using Errors = std::deque<NetCode>;
    const struct {
        const char* name;
        Errors FakeNet::*where;
        Errors errors;
        bool connects;
        const char* text;
    } kCases[] = {
        {"protocol wanted",
         &FakeNet::openErrors,
         {NetCode::Invalid},
         true,
         "Retry with IPPROTO_TCP explicitly specified..."},
        {"start-up wanted",
         &FakeNet::openErrors,
         {NetCode::NotInitialised},
         true,
         "Using ws2_32.dll version 2,2"},
        {"no sockets left",
         &FakeNet::openErrors,
         {NetCode::TooManyFiles},
         false,
         "Failed to create TCP socket (AF_INET / SOCK_STREAM)"},
        {"cannot be non-blocking",
         &FakeNet::nonBlockingErrors,
         {NetCode::NoBuffers},
         false,
         "WSAENOBUFS"},
        {"wait fails", &FakeNet::waitErrors, {NetCode::NetDown}, false, "WSAENETDOWN"},
        {"state cannot be read",
         &FakeNet::pendingErrorErrors,
         {NetCode::NoBuffers},
         true,
         "Failed to get SO_ERROR on socket."},
        {"options are refused",
         &FakeNet::optionErrors,
         {NetCode::NoProtocolOption, NetCode::NoProtocolOption, NetCode::NoProtocolOption},
         true,
         "Error 0x273a"},
    };
    for (const auto& c : kCases) {
        log.clearLog();
        net.*c.where = c.errors;
        FakeLink& link = net.serve("10.0.0.1", 25, {});
        EXPECT_EQ(connect("10.0.0.1"), c.connects) << c.name << textOf(log);
        expectLogged(log, c.text);
        if (!link.connected) {
            EXPECT_EQ(net.openSockets(), 0U) << c.name;
            (net.*c.where).clear();
            connect("10.0.0.1");  // uses the server up
        }
        socket.close(call, true, 0);
    }
    net.startUpErrors = {NetCode::ProviderFailedInit};
    net.openErrors = {NetCode::NotInitialised};
    log.clearLog();
    EXPECT_FALSE(connect("10.0.0.9"));
    EXPECT_EQ(failure.cause(), Cause::Internal);
    expectLogged(log, "WSAStartup error: 0x277a");
    expectLogged(log, "startupWSA failed (B)");
    expectLogged(log, "The system gave no socket.\r\n    ConnectFailReason: Internal error");
}

// A server that answers a TLS hello with its own words, or hangs up.
class HelloPeer final : public FakePeer {
public:
    HelloPeer(std::string reply, Ending ending, std::string& hello)
        : reply_(std::move(reply)), ending_(ending), hello_(hello) {}
    void onBytes(std::string_view bytes, std::string& out) override {
        if (hello_.empty()) out = reply_;
        hello_ += bytes;
    }
    Ending ending() const override { return hello_.empty() ? Ending::None : ending_; }

private:
    std::string reply_;
    Ending ending_;
    std::string& hello_;
};

TEST_F(Connect, AServerThatSpeaksNoTlsIsLeft) {
    std::string hello;
    net.servePeer("10.0.0.1", 465,
                  std::make_unique<HelloPeer>("220 hello\r\n", Ending::None, hello));
    EXPECT_TRUE(failure = socket.connect2(call, "10.0.0.1", 465, true));
    EXPECT_EQ(failure.cause(), Cause::Internal);
    EXPECT_FALSE(socket.isConnected());
    EXPECT_EQ(hello.substr(0, 2), "\x16\x03");
    expectLogged(log,
                 "The peer does not speak TLS on this connection (bad record type).\r\n"
                 "    ConnectFailReason: Internal error");
    expectLogged(log, "Client handshake failed. (3)");
    EXPECT_EQ(net.connects.size(), 1U);  // that was an answer: no second try
}

// Who asks for another hello, or sends an alert, has answered, whatever comes next.
TEST_F(Connect, AServerThatAnsweredIsNotAskedWithoutTls13) {
    class Peer final : public FakePeer {
    public:
        explicit Peer(bool retry) : retry_(retry) {}
        void onBytes(std::string_view bytes, std::string& out) override {
            if (std::exchange(answered_, true)) return;
            constexpr std::string_view kRetry(
                "\xCF\x21\xAD\x74\xE5\x9A\x61\x11\xBE\x1D\x8C\x02\x1E\x65\xB8\x91"
                "\xC2\xA2\x11\x16\x7A\xBB\x8C\x5E\x07\x9E\x09\xE2\xC8\xA8\x33\x9C");
            constexpr std::string_view kExtensions(
                "\x00\x0C\x00\x2B\x00\x02\x03\x04\x00\x33\x00\x02\x00\x18", 14);
            using namespace std::string_literals;
            const std::string sessionId(bytes.substr(5 + 4 + 2 + 32, 33));
            out = retry_ ? "\x16\x03\x03\x00\x58\x02\x00\x00\x54\x03\x03"s + std::string(kRetry) +
                               sessionId + "\x13\x01\x00"s + std::string(kExtensions)
                         : "\x15\x03\x03\x00\x02\x01\x70"s;
        }
        Ending ending() const override { return answered_ ? Ending::Eof : Ending::None; }

    private:
        bool retry_;
        bool answered_ = false;
    };
    for (const bool retry : {true, false}) {
        net.servePeer("10.0.0.1", 465, std::make_unique<Peer>(retry));
        log.clearLog();
        const size_t before = net.connects.size();
        EXPECT_TRUE(failure = socket.connect2(call, "10.0.0.1", 465, true));
        EXPECT_EQ(net.connects.size() - before, 1U);
        EXPECT_EQ(failure.cause(), Cause::Internal);
        expectLogged(log,
                     retry ? "serverRequestedKeyShareGroup: secp384r1" : "SNI unrecognized name");
    }
}

TEST_F(Connect, AHelloWithoutAnAnswerIsRepeatedWithoutTls13) {
    constexpr std::string_view kSupportedVersions("\x00\x2b\x00\x09\x08\x03\x04", 7);
    constexpr std::string_view kFallback("\x56\x00\x01\x00", 4);  // with the compression behind it
    const char* const lost = "The connection was lost in the TLS handshake";
    const std::string refusal("\x15\x03\x03\x00\x02\x02\x56", 7);
    using enum Cause;
    const struct {
        const char* policy;
        bool verify;
        Ending ending;
        std::string answer;  // to the second hello
        size_t connects;
        Cause reason;
        const char* failure;
    } kRows[] = {
        {"", false, Ending::Eof, "", 2, TlsNoServerHello, lost},
        {"", false, Ending::Reset, "", 2, TlsNoServerHello, lost},
        {"", true, Ending::Eof, "", 2, TlsNoServerHello, lost},
        {"", true, Ending::Eof, refusal, 2, Internal, "set TlsProtocol to \"TLS 1.2 or lower\""},
        {"", false, Ending::Eof, refusal, 2, Internal, "the alert \"inappropriate fallback\""},
        {"TLS 1.2 or lower", true, Ending::Eof, "", 1, TlsNoServerHello, lost},
        {"TLS 1.3 exact", false, Ending::Eof, "", 1, TlsNoServerHello, lost},
    };
    for (const auto& row : kRows) {
        std::string first, second;
        log.clearLog();
        const size_t before = net.connects.size();
        const bool again = row.connects == 2;
        socket.tlsSettings().tlsProtocol = row.policy;
        socket.tlsSettings().requireSslCertVerify = row.verify;
        net.servePeer("10.0.0.1", 465, std::make_unique<HelloPeer>("", row.ending, first));
        if (again) {
            net.servePeer("10.0.0.1", 465,
                          std::make_unique<HelloPeer>(row.answer, row.ending, second));
        }
        EXPECT_TRUE(failure = socket.connect2(call, "10.0.0.1", 465, true));
        EXPECT_EQ(net.connects.size() - before, row.connects) << row.policy;
        EXPECT_EQ(failure.cause(), row.reason) << textOf(log);
        EXPECT_NE(failure.text().find(row.failure), std::string::npos) << failure.text();
        expectLogged(log, failure.text() + ".\r\n    ConnectFailReason: " +
                              connectFailText(Failure(row.reason)));
        EXPECT_EQ(first.find(kFallback), std::string::npos) << row.policy;
        if (!again) continue;
        expectLogged(log, "Failed to read the TLS server hello.  Retry without TLS 1.3");
        EXPECT_NE(first.find(kSupportedVersions), std::string::npos);
        EXPECT_EQ(second.find(kSupportedVersions), std::string::npos);
        EXPECT_EQ(second.substr(0, 2), "\x16\x03");
        EXPECT_EQ(second.find(kFallback) != std::string::npos, row.verify);
    }
}

// server_name names the host as the user called it, never an address.
TEST_F(Connect, WhatTheHelloCallsTheServer) {
    net.name("mail.test", {"127.0.0.1"});
    const struct {
        const char* host;
        const char* options;
        const char* sent;  // empty: no server_name
    } kCases[] = {
        {"mail.test", "", "mail.test"},
        {"mail.test:465", "", "mail.test"},
        {"anna@https://mail.test/x", "", "mail.test"},
        {"mail.test", "x NO_TLS_SNI", ""},
        {"127.0.0.1", "TlsAllowSniLocalhost", ""},
        {"[::1]", "", ""},
        {"localhost", "", ""},
        {"localhost", "TlsAllowSniLocalhost", "localhost"},
    };
    for (const auto& c : kCases) {
        std::string hello;
        const char* address = c.host[0] == '[' ? "::1" : "127.0.0.1";
        net.servePeer(address, 465, std::make_unique<HelloPeer>("no TLS", Ending::None, hello));
        log.setOptions(c.options);
        EXPECT_TRUE(failure = socket.connect2(call, c.host, 465, true));
        const std::string_view name = c.sent;
        for (const std::string_view text : {"mail.test", "localhost", "127.0.0.1", "::1"}) {
            EXPECT_EQ(hello.find(text) != std::string::npos, text == name) << c.host << text;
        }
        const auto plus = [&](size_t more) { return static_cast<char>(name.size() + more); };
        const std::string extension = std::string(3, '\0') + plus(5) + '\0' + plus(3) +
                                      std::string(2, '\0') + plus(0) + std::string(name);
        EXPECT_EQ(hello.find(extension) != std::string::npos, !name.empty()) << c.host;
    }
}

TEST_F(Connect, ConnectingAgainClosesTheOldConnection) {
    FakeLink& first = net.serve("10.0.0.1", 25, {say("220 first\r\n")});
    FakeLink& second = net.serve("10.0.0.1", 25, {say("220 second\r\n")});
    EXPECT_TRUE(connect("10.0.0.1"));
    DataBuffer bytes;
    EXPECT_FALSE(failure = socket.receiveUntilMatch(call, bytes, "2", 100, 1000));
    EXPECT_TRUE(connect("10.0.0.1"));
    EXPECT_TRUE(first.closedByClient);
    bytes.clear();
    EXPECT_FALSE(failure = socket.receiveUntilMatch(call, bytes, "\r\n", 100, 1000));
    EXPECT_EQ(bytes.text(), "220 second\r\n");  // nothing of the first is left over
    EXPECT_FALSE(second.closedByClient);
}

}  // namespace
}  // namespace tv
