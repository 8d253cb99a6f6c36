// Asking name servers over a fake network: when datagrams are sent, which replies count, and what
// happens when none does.
#include "net/resolve/DnsClient.h"
#include "tests/unit/net/resolve/DnsKit.h"

namespace tv {
namespace {

using namespace tv::test;
using namespace tv::test::dnsmsg;
using plat::NetCode;

const std::string kFirst = "10.0.0.1", kSecond = "10.0.0.2";
const std::string kForged = "6.6.6.6";

class DnsClientTest : public DnsWorld {
protected:
    bool ask(const std::vector<std::string>& servers, const Deadline& deadline, bool tls = false) {
        begin();
        std::vector<plat::IpAddress> addresses;
        for (const std::string& server : servers) {
            addresses.push_back(*plat::parseIp(server));
        }
        failure = doDnsQuery(call, "mail.test", addresses, tls, deadline, outcome);
        return !failure;
    }
    std::string found() const { return textOf(outcome.reply.addresses); }
    void serve(const std::string& ip, DnsAnswers answers) {
        net.udp.serve(ip, 53, std::move(answers));
    }

    DnsOutcome outcome;
};

TEST_F(DnsClientTest, WhenASilentServerIsAskedAgain) {
    serve(kFirst, silence);
    const struct {
        uint64_t limitMs;
        std::vector<int> sentAt;
        const char* text;
    } kCases[] = {
        {30000, {0, 1500, 3500, 4500}, "idleTimeoutMs: 25500"},
        {4501, {0, 1500, 3500, 4500}, "idleTimeoutMs: 1"},
        {4500, {0, 1500, 3500}, "idleTimeoutMs: 1000"},
        {3501, {0, 1500, 3500}, "idleTimeoutMs: 1"},
        {3500, {0, 1500, 2500}, "idleTimeoutMs: 1000"},
        {2500, {0, 1500}, "idleTimeoutMs: 1000"},
        {2000, {0, 1500}, "idleTimeoutMs: 500"},
        {1500, {0}, "DNS timeout."},
        {700, {0}, "DNS timeout."},
    };
    for (const auto& c : kCases) {
        EXPECT_FALSE(ask({kFirst}, Deadline(c.limitMs)));
        std::string wanted;
        for (const int at : c.sentAt) {
            wanted += (wanted.empty() ? "" : " ") + kFirst + "@" + std::to_string(at);
        }
        EXPECT_EQ(sentText(), wanted) << c.limitMs;
        EXPECT_EQ(elapsedMs(), c.limitMs);
        EXPECT_EQ(failure.cause(), Cause::DnsTimeout);
        EXPECT_EQ(textOf(outcome.silent), kFirst);
        expectTexts("", {c.text});
        for (const FakeUdp::Sent& sent : net.udp.sent) {
            EXPECT_EQ(sent.bytes, net.udp.sent[0].bytes);
            EXPECT_EQ(sent.fromPort, net.udp.sent[0].fromPort);
            EXPECT_GE(sent.fromPort, 49152);
        }
    }
}

TEST_F(DnsClientTest, EachServerHasItsShare) {
    for (const char* ip : {"10.0.0.1", "10.0.0.2", "10.0.0.3"})
        serve(ip, silence);
    const struct {
        const char* what;
        Deadline deadline;
        const char* sent;
        uint64_t elapsedMs;
    } kCases[] = {
        {"a third each", Deadline(6000),
         "10.0.0.1@0 10.0.0.1@1500 10.0.0.2@2000 10.0.0.2@3500 10.0.0.3@4000 10.0.0.3@5500", 6000},
        {"two seconds at least, never more than is left", Deadline(3000),
         "10.0.0.1@0 10.0.0.1@1500 10.0.0.2@2000", 3000},
        {"two seconds each without a limit", Deadline::unlimited(21600000),
         "10.0.0.1@0 10.0.0.1@1500 10.0.0.2@2000 10.0.0.2@3500 10.0.0.3@4000 10.0.0.3@5500", 6000},
    };
    const uint64_t start = clock.nowNs;
    for (const auto& c : kCases) {
        clock.nowNs = start;  // when the deadlines were made
        EXPECT_FALSE(ask({"10.0.0.1", "10.0.0.2", "10.0.0.3"}, c.deadline)) << c.what;
        EXPECT_EQ(sentText(), c.sent) << c.what;
        EXPECT_EQ(elapsedMs(), c.elapsedMs) << c.what;
        EXPECT_EQ(failure.cause(), Cause::DnsTimeout) << c.what;
    }
}

// The first server misbehaves; the second, where there is one, knows 10.9.9.9.
TEST_F(DnsClientTest, WhichRepliesCount) {
    const auto late = [](uint32_t ms) {
        return [=](std::string_view query, size_t n) -> std::vector<FakeDatagram> {
            if (n > 1) return {};
            return {{reply(query, {a(n == 1 ? "192.0.2.1" : kForged)}), ms}};
        };
    };
    const auto forged = [](std::string_view query, size_t) -> std::vector<FakeDatagram> {
        std::string id = reply(query, {a(kForged)}), question = id, cut = id, echo(query);
        id[1] = static_cast<char>(id[1] + 1);
        question[13] = 'n';
        cut.pop_back();
        return {{id, 10},   {question, 20}, {cut, 30},
                {echo, 40}, {"", 50},       {reply(query, {a("192.0.2.1")}), 60}};
    };
    const auto flood = [](std::string_view, size_t) {
        return std::vector<FakeDatagram>(100, {"nothing", 5});
    };
    const auto atTheThird = [](std::string_view query, size_t n) -> std::vector<FakeDatagram> {
        if (n < 3) return {};
        return {{reply(query, {a("192.0.2.1")}), 20}};
    };
    const struct {
        const char* what;
        DnsAnswers first;
        const char* found;
        uint64_t elapsedMs;
        std::vector<const char*> texts;
    } kCases[] = {
        {"answered", isAt("192.0.2.1"), "192.0.2.1", 0, {"nameserver: 10.0.0.1"}},
        {"two datagrams lost", atTheThird, "192.0.2.1", 3520, {}},
        {"late, after the second was sent", late(1700), "192.0.2.1", 1700, {}},
        {"too late, when another was asked",
         late(15500),
         "10.9.9.9",
         15000,
         {"Waited, but no data ready on UDP socket."}},
        {"forged ones before the true one",
         forged,
         "192.0.2.1",
         60,
         {"Response ID not equal to request ID.", "A DNS reply to another question was ignored.",
          "A malformed DNS reply was ignored."}},
        {"a flood", flood, "10.9.9.9", 5, {"Too many datagrams came that are no reply."}},
        {"server failure",
         answersWith({}, kServFail),
         "10.9.9.9",
         0,
         {"dnsResponseCode: 2", "SERVFAIL"}},
        {"refused", answersWith({a(kForged)}, kRefused), "10.9.9.9", 0, {"REFUSED"}},
        {"no such name", answersWith({}, kNxDomain), "", 0, {"NXDOMAIN"}},
        {"no address", answersWith({}), "", 0, {}},
    };
    for (const auto& c : kCases) {
        serve(kFirst, c.first);
        serve(kSecond, isAt("10.9.9.9"));
        EXPECT_TRUE(ask({kFirst, kSecond}, Deadline(30000))) << c.what;
        EXPECT_EQ(found(), c.found) << c.what;
        EXPECT_EQ(elapsedMs(), c.elapsedMs) << c.what;
        expectTexts(c.what, c.texts);
    }
}

TEST_F(DnsClientTest, FaultsOfTheSystemLoseNoTime) {
    using Errors = std::deque<NetCode>;
    const struct {
        const char* what;
        Errors FakeUdp::*where;
        Errors errors;
        const char* found;
        uint64_t elapsedMs;
        std::vector<const char*> texts;
        bool silent = false;
    } kCases[] = {
        {"nobody listens", nullptr, {}, "10.9.9.9", 0, {"WSAECONNRESET"}},
        {"no socket",
         &FakeUdp::openErrors,
         {NetCode::TooManyFiles},
         "10.9.9.9",
         0,
         {"WSAEMFILE", "Failed to make a UDP socket for the nameserver."}},
        {"no route",
         &FakeUdp::connectErrors,
         {NetCode::NetUnreachable},
         "10.9.9.9",
         0,
         {"WSAENETUNREACH"}},
        {"cannot be sent",
         &FakeUdp::sendErrors,
         {NetCode::NetDown},
         "10.9.9.9",
         0,
         {"WSAENETDOWN", "1st UDP send for nameserver 1 failed."}},
        {"cannot be received",
         &FakeUdp::receiveErrors,
         {NetCode::ConnectionRefused},
         "10.9.9.9",
         0,
         {"WSAECONNREFUSED"}},
        {"an error that only stands there",
         &FakeUdp::pendingErrors,
         {NetCode::ConnectionRefused},
         "10.9.9.9",
         333,
         {"WSAECONNREFUSED"},
         true},
        {"a full queue is a lost datagram",
         &FakeUdp::sendErrors,
         {NetCode::WouldBlock},
         "10.0.0.9",
         1500,
         {}},
        {"the second cannot be sent",
         &FakeUdp::sendErrors,
         {NetCode::WouldBlock, NetCode::NetDown},
         "10.9.9.9",
         1500,
         {"2nd UDP send for nameserver 1 failed."}},
        {"a wrong checksum", &FakeUdp::receiveErrors, {NetCode::WouldBlock}, "10.0.0.9", 0, {}},
    };
    serve(kSecond, isAt("10.9.9.9"));
    for (const auto& c : kCases) {
        if (c.where) serve(kFirst, c.silent ? DnsAnswers(silence) : isAt("10.0.0.9"));
        if (c.where) net.udp.*c.where = c.errors;
        EXPECT_TRUE(ask({kFirst, kSecond}, Deadline(30000))) << c.what;
        EXPECT_EQ(found(), c.found) << c.what;
        EXPECT_EQ(elapsedMs(), c.elapsedMs) << c.what;
        expectTexts(c.what, c.texts);
    }
}

TEST_F(DnsClientTest, IdAndPortComeFromTheSecureSource) {
    FakeRandom random({0x12, 0x34, 0x00, 0x01, 0xFF, 0xFE, 0xC0, 0x05});
    net.udp.takenPorts = {49153};
    net.udp.forbiddenPorts = {65534};
    serve(kFirst, isAt("192.0.2.1"));
    EXPECT_TRUE(ask({kFirst}, Deadline(5000)));
    EXPECT_EQ(net.udp.sent.at(0).bytes.substr(0, 2), "\x12\x34");
    EXPECT_EQ(net.udp.sent.at(0).fromPort, 49157);
    for (size_t given : {0U, 1U, 2U, 3U}) {  // the source fails: nothing is sent at all
        random.given = 0;
        random.failAfter = given;
        EXPECT_FALSE(ask({kFirst}, Deadline(5000)));
        EXPECT_TRUE(net.udp.sent.empty());
        expectTexts("", {"The system's random source failed."});
    }
    // Every port taken: given up after a bounded number of draws.
    random.given = 0;
    random.failAfter = SIZE_MAX;
    net.udp.takenPorts = {49152 + 0x0001, 49152 + 0x1234, 49152 + 0x3FFE, 49152 + 0x0005};
    EXPECT_FALSE(ask({kFirst}, Deadline(5000)));
    expectTexts("", {"WSAEADDRINUSE"});
}

TEST_F(DnsClientTest, TruncatedRepliesAreAskedForOverTcp) {
    const auto good = [](std::string_view query) { return reply(query, {a("192.0.2.1")}); };
    const auto wrongId = [](std::string_view query) {
        return "x" + reply(query, {a(kForged)}).substr(1);
    };
    const auto stillCut = [](std::string_view query) {
        return reply(query, {a(kForged)}, kTruncated);
    };
    const auto nothing = [](std::string_view) { return std::string(); };
    const auto large = [](std::string_view query) {
        std::vector<std::string> records(3000, a("192.0.2.1"));
        return reply(query, records);
    };
    enum Way { Accepts, Refuses, Silent };
    const struct {
        const char* what;
        Way way;
        DnsPeer::Reply reply;
        Ending ending;
        Delivery delivery;
        size_t cutAfter;
        const char* found;
        uint64_t elapsedMs;
        std::vector<const char*> texts;
    } kCases[] = {
        {"whole", Accepts, good, {}, {}, SIZE_MAX, "192.0.2.1", 0, {"fallbackToTcp"}},
        {"byte by byte", Accepts, good, {}, Delivery::Bytes, SIZE_MAX, "192.0.2.1", 0, {}},
        {"48 KB of it", Accepts, large, {}, {}, SIZE_MAX, "192.0.2.1", 0, {}},
        {"then closed", Accepts, good, Ending::Eof, {}, SIZE_MAX, "192.0.2.1", 0, {}},
        {"another id",
         Accepts,
         wrongId,
         {},
         {},
         SIZE_MAX,
         "10.9.9.9",
         0,
         {"Response ID not equal to request ID."}},
        {"truncated again",
         Accepts,
         stillCut,
         {},
         {},
         SIZE_MAX,
         "10.9.9.9",
         0,
         {"The nameserver's reply over TCP cannot be used."}},
        {"closed without a word", Accepts, nothing, Ending::Eof, {}, SIZE_MAX, "10.9.9.9", 0, {}},
        {"cut within the length", Accepts, good, {}, {}, 1, "10.9.9.9", 0, {}},
        {"cut within the message", Accepts, good, {}, {}, 30, "10.9.9.9", 0, {}},
        {"silent", Accepts, nothing, Ending::Stall, {}, SIZE_MAX, "10.9.9.9", 15000, {}},
        {"refused", Refuses, nothing, {}, {}, SIZE_MAX, "10.9.9.9", 0, {"WSAECONNREFUSED"}},
        {"no connection",
         Silent,
         nothing,
         {},
         {},
         SIZE_MAX,
         "10.9.9.9",
         15000,
         {"failedWaitToConnect"}},
    };
    for (const auto& c : kCases) {
        serve(kFirst, answersWith({a(kForged)}, kTruncated));
        serve(kSecond, isAt("10.9.9.9"));
        if (c.way == Refuses) net.refuse(kFirst, 53);
        if (c.way == Silent) net.silent(kFirst, 53);
        if (c.way == Accepts) {
            FakeLink& link =
                net.servePeer(kFirst, 53, std::make_unique<DnsPeer>(c.reply, c.ending));
            link.delivery = c.delivery;
            link.cutAfterServerBytes = c.cutAfter;
            link.cut = c.cutAfter == SIZE_MAX ? Ending::None : Ending::Eof;
        }
        EXPECT_TRUE(ask({kFirst, kSecond}, Deadline(30000))) << c.what;
        EXPECT_EQ(found(), c.found) << c.what;
        EXPECT_EQ(elapsedMs(), c.elapsedMs) << c.what;
        expectTexts(c.what, c.texts);
        EXPECT_EQ(net.openSockets(), 0U) << c.what;
    }
}

// A server that gives a byte now and then keeps every single wait short.
TEST_F(DnsClientTest, ADrippingServerHasNoMoreTimeThanASilentOne) {
    class Dripping final : public FakePeer {
    public:
        void onBytes(std::string_view, std::string& out) override {
            out = number(60000, 2) + std::string(60000, 'x');
        }
    };
    serve(kFirst, answersWith({}, kTruncated));
    FakeLink& link = net.servePeer(kFirst, 53, std::make_unique<Dripping>());
    link.delivery = Delivery::Bytes;
    net.onWait = [&] { clock.advanceMs(50); };
    EXPECT_FALSE(ask({kFirst}, Deadline(5000)));
    EXPECT_EQ(failure.cause(), Cause::DnsTimeout);
    EXPECT_LE(elapsedMs(), 5000U + 100 + 333);
}

TEST_F(DnsClientTest, AbortEndsEveryWaitAtTheNextSlice) {
    serve(kFirst, silence);
    for (const bool tcp : {false, true}) {
        if (tcp) serve(kFirst, answersWith({}, kTruncated));
        if (tcp) net.silent(kFirst, 53);
        monitor.asked = 0;
        monitor.allowed = 4;
        EXPECT_FALSE(ask({kFirst, kSecond}, Deadline(30000)));
        EXPECT_TRUE(failure.is(Cause::Aborted));
        EXPECT_LE(elapsedMs(), 4 * 333U);
        EXPECT_GT(elapsedMs(), 333U);
        EXPECT_EQ(sentText(), "10.0.0.1@0");
    }
}

TEST_F(DnsClientTest, WhereTlsIsRequiredNothingElseIsTried) {
    serve(kFirst, isAt(kForged));
    EXPECT_FALSE(ask({kFirst, kSecond}, Deadline(30000), true));
    expectTexts("nobody on 853",
                {"Your application requires DoT (DNS over TLS), but none of the nameservers "
                 "support DoT"});
    class Plain final : public FakePeer {
    public:
        void onBytes(std::string_view, std::string& out) override { out = "no TLS here\r\n"; }
    };
    net.servePeer(kFirst, 853, std::make_unique<Plain>());
    EXPECT_FALSE(ask({kFirst}, Deadline(30000), true));
    expectTexts("no TLS", {"Failed to do TLS handshake for DNS connection on port 853"});
    EXPECT_TRUE(net.udp.sent.empty());
    EXPECT_EQ(net.connects.back(), kFirst + ":853");
}

TEST_F(DnsClientTest, ARequestTooLongForADatagramIsNotSent) {
    serve(kFirst, isAt(kForged));
    const std::vector<uint8_t> query(513);
    DnsExchange exchange{call, query, *plat::parseIp(kFirst), 1, Deadline(1000), {}};
    EXPECT_EQ(exchange.overUdp(), DnsExchange::End::NoReply);
    expectTexts("", {"DNS request is greater than 512 bytes."});
    EXPECT_TRUE(net.udp.sent.empty());
}

}  // namespace
}  // namespace tv
