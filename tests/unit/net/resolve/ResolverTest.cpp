// The order in which a name is looked for, when name servers are asked, which of their replies
// count, what is remembered, and whom a name is shown to.
#include "net/resolve/Resolver.h"

#include <cstdio>
#include <fstream>

#include "net/resolve/DnsClient.h"
#include "net/resolve/NameSource.h"
#include "net/resolve/ResolverState.h"
#include "tests/fixtures/DnsMessages.h"
#include "tests/unit/net/NetTestKit.h"

namespace tv {
namespace {

using namespace tv::test;
using namespace tv::test::dnsmsg;
using plat::NetCode;
using enum Cause;
using Datagrams = std::vector<FakeDatagram>;

const std::string kForged = "6.6.6.6";

class Resolver : public NetWorld {
protected:
    Resolver() {
        replaceResolverState(&state);
        net.nameServers.hosts = file("hosts", "192.0.2.7 listed.example\n");
        net.name("mail.example", {"192.0.2.9"});
        net.name("other", {"192.0.2.2"});
        net.name("six.example", {"fd00::6"});
        net.name("six.example.", {"fd00::6"});
        net.name("late.example", {}, 40000, NetCode::TryAgain);
    }
    ~Resolver() override {
        replaceResolverState(nullptr);
        for (const std::string& path : files_)
            std::remove(path.c_str());
    }

    void forget() {
        std::destroy_at(&state);
        std::construct_at(&state);
    }
    // A file with this text, gone at the end of the test.
    std::string file(const std::string& name, const std::string& text) {
        files_.push_back(testing::TempDir() + "tv_dns_" + name);
        std::ofstream(files_.back(), std::ios::binary) << text;
        return files_.back();
    }

    // What a name server does, as a word and a number.
    static Datagrams answer(const std::string& does, uint32_t number, std::string_view query,
                            size_t count) {
        const std::string good = reply(query, {a("192.0.2.1")});
        if (does == "silent") return {};
        if (does == "empty") return {{reply(query, {})}};
        if (does == "six") {
            const std::string address = "\xFD" + std::string(14, '\0') + "\x09";
            const bool isAsked = query[query.size() - 3] == kAaaa;
            const std::string six = record(kAsked, kAaaa, 300, address);
            const auto other = uint16_t(kOkay | (number < 16 ? number : 0));
            return {{isAsked ? reply(query, {six}) : reply(query, {}, other)}};
        }
        if (does == "late") return count == 1 ? Datagrams{{good, number}} : Datagrams();
        if (does == "lost") return count > number ? Datagrams{{good, 20}} : Datagrams();
        if (does == "truncated") return {{reply(query, {a(kForged)}, kTruncated)}};
        if (does == "error") return {{reply(query, {a(kForged)}, uint16_t(kOkay | number))}};
        if (does == "flood") {
            Datagrams all(number, {"nothing", 5});
            all.push_back({good, 5});
            return all;
        }
        if (does == "forged") {
            std::string id = reply(query, {a(kForged)}), question = id, cut = id, echo(query);
            id[1] = static_cast<char>(id[1] + 1);
            question[13] = 'n';
            cut.pop_back();
            return {{id, 1}, {question, 2}, {cut, 3}, {echo, 4}, {"", 5}, {good, 60}};
        }
        return {{reply(query, {a(does, kAsked, number)})}};  // knows this address so long
    }
    // "own", "tls": servers of settings, without and with TLS; "hosts": their hosts file; "six
    // first": IPv6 is wanted; "N does number": a server at 10.0.0.N; "call fails number"; "conf
    // line": of the system's settings; "within" a time.
    void arrange(std::string_view world) {
        std::vector<std::string>& listed = net.nameServers.servers;
        std::string settings;
        listed.clear();
        names = {};
        limitMs_ = 30000;
        sixFirst_ = world.find("six first") != std::string_view::npos;
        if (world.find("hosts") != std::string_view::npos) {
            names.hostsPath = file("named", "192.0.2.8 a.example\nfd00::8 a.example b.example\n");
        }
        for (const std::string& each : split(world, ", ")) {
            const std::vector<std::string> words = split(each + " absent 300", " ");
            const auto number = static_cast<uint32_t>(std::atoi(words[2].c_str()));
            if (words[1] == "fails") net.faults[words[0]].push_back(NetCode{number});
            if (words[0] == "conf") settings += each.substr(5) + "\n";
            if (words[0] == "within") limitMs_ = std::stoul(words[1]);
            const bool isPlace = words[0].size() == 1 || plat::parseIp(words[0]);
            if (words[1] == "fails" || !isPlace) continue;
            listed.push_back(words[0].size() == 1 ? "10.0.0." + words[0] : words[0]);
            net.serveUdp(listed.back(), [=](std::string_view query, size_t count) {
                return answer(words[1], words.size() > 4 ? number : 300, query, count);
            });
            if (words[1] == "absent") net.serveUdp(listed.back(), {});
            if (words[1] == "babbles") {
                net.serve(listed.back(), 853, {upTo("\x16", "no TLS here\r\n"), upTo("never", "")})
                    .mayEndEarly = true;
            }
        }
        const bool tls = world.starts_with("tls");
        if (tls || world.starts_with("own")) {
            for (const std::string& ip : std::exchange(listed, {}))
                names.servers.push_back({*plat::parseIp(ip), tls, ""});
        }
        net.nameServers.failure = listed.empty() ? "GetNetworkparams failed" : "";
        net.nameServers.settings = settings.empty() ? "" : file("settings", settings);
    }
    bool lookUp(std::string_view name) {
        begin();
        const Deadline limited(limitMs_), unlimited = Deadline::unlimited(21600000);
        if (!names.servers.empty() || !names.hostsPath.empty()) call.names = &names;
        failure = (sixFirst_ ? lookUpPreferringIpv6 : dnsLookup)(
            call, name, limitMs_ ? limited : unlimited, addresses);
        return !failure;
    }
    std::string found() const {
        if (failure && !failure.text().empty()) return failure.text();
        if (failure)
            return failure.is(DnsTimeout) ? "timeout" : failure.is(DnsFailed) ? "failed" : "";
        return textOf(addresses);
    }
    // "place@ms ..." of every datagram, the port and what all servers have in common left out.
    std::string sentText() const {
        std::string text;
        for (const FakeNet::Datagram& sent : net.datagrams) {
            text += text.empty() ? "" : " ";
            text += replaceAll(sent.place.substr(0, sent.place.rfind(":53")), "10.0.0.", "") + "@" +
                    std::to_string(sent.atMs - startNs / 1000000);
        }
        return text;
    }

    ResolverState state;
    NameSource names;
    std::vector<plat::IpAddress> addresses;

private:
    uint64_t limitMs_ = 30000;
    bool sixFirst_ = false;
    std::vector<std::string> files_;
};

constexpr const char* kRefused = "The name server 10.0.0.1 refuses to answer this host (REFUSED)";

constexpr struct {
    const char *name, *world;
    const char* found;  // or "failed", "timeout", or what the failure says
    uint64_t elapsedMs;
    const char* sent;  // to whom and when
    const char* texts = "";
} kRows[] = {
    // Where a name is looked for.
    {"127.0.0.9", "1", "127.0.0.9", 0, "", "IP address passed to DNS lookup"},
    {" LocalHost ", "1", "127.0.0.1", 0, ""},
    {"Listed.Example.", "1", "192.0.2.7", 0, "", "ip_from_hosts_file: 192.0.2.7 | !systemResolver"},
    {"other", "1", "192.0.2.2", 0, "",
     "sbIp_gethostbyname: 192.0.2.2 | systemResolver: asking for IPv4 addresses"},
    {"http://Mail.example/path", "1 192.0.2.1", "192.0.2.1", 0, "1@0",
     "nameserver: 10.0.0.1 | !systemResolver"},
    {"", "1", "failed", 0, "", "DNS lookup failed; domain name is empty"},
    {"no name", "1", "failed", 0, "", "Invalid domain for resolving domain to IP"},
    {"a..example", "1", "failed", 0, "",
     "The name does not fit into a DNS request. | systemResolver"},

    // When the servers do not help, the system's resolver may.
    {"no.example", "1 error 3", "failed", 0, "1@0",
     "NXDOMAIN | DNS resolution failed. | DNS lookup failed | domain: no.example"},
    {"six.example", "1 error 3", "fd00::6", 0, "1@0",
     "No IPv4 address found, checking for IPv6..."},
    {"no.example", "1 empty", "failed", 0, "1@0", "retry | No valid DNS answer.."},
    {"mail.example", "1 error 1", "192.0.2.9", 0, "1@0", "FORMERR"},
    {"mail.example", "1 error 2", "192.0.2.9", 0, "1@0",
     "dnsResponseCode: 2 | SERVFAIL | num_app_defined_ns: 0"},
    {"mail.example", "1 error 4", "192.0.2.9", 0, "1@0", "NOTIMP"},
    {"mail.example", "1 error 5", "192.0.2.9", 0, "1@0", "REFUSED"},
    {"mail.example", "1 error 9", "192.0.2.9", 0, "1@0", "reported a failure."},
    {"no.example", "1 error 5", kRefused, 0, "1@0 1@0", "DNS resolution failed."},
    {"no.example", "1 six 5", "fd00::9", 0, "1@0 1@0", "REFUSED | systemResolver"},
    {"mail.example", "own, 1 error 5", kRefused, 0, "1@0 1@0",
     "num_app_defined_ns: 1 | DNS resolution failed. | !systemResolver"},
    {"mail.example", "1 silent", "192.0.2.9", 25000, "1@0 1@1500 1@3500 1@4500"},
    {"mail.example", "1 silent, within 3999", "timeout", 3999, "1@0 1@1500 1@3500",
     "Less than a second is left | DNS resolution failed."},
    {"mail.example", "1 silent, within 4000", "192.0.2.9", 3000, "1@0 1@1500 1@2500"},
    {"no.example", "1 silent, 2 error 3, within 0", "failed", 2000, "1@0 1@1500 2@2000"},
    {"late.example", "1 error 3", "timeout", 40000, "1@0",
     "Elapsed time: 40000 millisec | DNS resolution failed."},

    // When a silent server is asked again; each has a third, two seconds at least.
    {"a.b", "own, 1 silent", "timeout", 30000, "1@0 1@1500 1@3500 1@4500",
     "idleTimeoutMs: 25500 | Waited, but no data ready on UDP socket."},
    {"a.b", "own, 1 silent, within 4501", "timeout", 4501, "1@0 1@1500 1@3500 1@4500", "Ms: 1"},
    {"a.b", "own, 1 silent, within 4500", "timeout", 4500, "1@0 1@1500 1@3500", "Ms: 1000"},
    {"a.b", "own, 1 silent, within 3501", "timeout", 3501, "1@0 1@1500 1@3500", "Ms: 1"},
    {"a.b", "own, 1 silent, within 3500", "timeout", 3500, "1@0 1@1500 1@2500", "Ms: 1000"},
    {"a.b", "own, 1 silent, within 2500", "timeout", 2500, "1@0 1@1500", "Ms: 1000"},
    {"a.b", "own, 1 silent, within 1500", "timeout", 1500, "1@0", "DNS timeout."},
    {"a.b", "own, 1 silent, 2 silent, 3 silent, within 3000", "timeout", 3000, "1@0 1@1500 2@2000"},
    {"a.b", "own, 1 silent, 2 silent, 3 silent, within 0", "timeout", 6000,
     "1@0 1@1500 2@2000 2@3500 3@4000 3@5500"},

    // Which replies count.
    {"a.b", "own, 1 lost 2", "192.0.2.1", 3520, "1@0 1@1500 1@3500"},
    {"a.b", "own, 1 late 1700", "192.0.2.1", 1700, "1@0 1@1500"},
    {"a.b", "own, 1 late 15500, 2 10.9.9.9", "10.9.9.9", 15000, "1@0 1@1500 1@3500 1@4500 2@15000"},
    {"a.b", "own, 1 forged", "192.0.2.1", 60, "1@0",
     "Response ID not equal to request ID. | A DNS reply to another question was ignored. | "
     "A malformed DNS reply was ignored."},
    {"a.b", "own, 1 flood 63", "192.0.2.1", 5, "1@0"},
    {"a.b", "own, 1 flood 64, 2 10.9.9.9", "10.9.9.9", 5, "1@0 2@5",
     "Too many datagrams came that are no reply."},
    {"a.b", "own, 1 error 3, 2 10.9.9.9", "failed", 0, "1@0"},
    {"a.b", "own, 1 error 2, 2 10.9.9.9", "10.9.9.9", 0, "1@0 2@0"},

    // The system's own faults lose no time.
    {"a.b", "own, 1 absent, 2 10.9.9.9", "10.9.9.9", 0, "1@0 2@0", "WSAECONNRESET"},
    {"a.b", "own, 1, 2 10.9.9.9, udp-open fails 10024", "10.9.9.9", 0, "2@0",
     "WSAEMFILE | Failed to make a UDP socket for the nameserver."},
    {"a.b", "own, 1, 2 10.9.9.9, udp-send fails 10050", "10.9.9.9", 0, "1@0 2@0",
     "WSAENETDOWN | 1st UDP send for nameserver 1 failed."},
    {"a.b", "own, 1 silent, 2 10.9.9.9, udp-pending fails 10061", "10.9.9.9", 333, "1@0 2@333",
     "WSAECONNREFUSED"},
    // A wrong checksum; a full queue is a lost datagram.
    {"a.b", "own, 1 192.0.2.1, udp-receive fails 10035", "192.0.2.1", 0, "1@0"},
    {"a.b", "own, 1 192.0.2.1, udp-send fails 10035", "192.0.2.1", 1500, "1@0 1@1500"},

    // Whom a name is shown to; nobody is there.
    {"mail.example", "1, 2, 1, 0.0.0.0", "192.0.2.9", 0, "1@0 2@0"},
    {"mail.example", "fd00::53", "192.0.2.9", 0, "fd00::53@0"},
    {"mail.example", "conf # nameserver 10.9.9.9, conf nameserver 10.0.0.7 # here, conf options x",
     "192.0.2.9", 0, "7@0"},
    {"mail.example", "", "192.0.2.9", 0, "8.8.8.8@0 1.1.1.1@0",
     "Check/cache nameservers failed. | GetNetworkparams failed | "
     "The system lists no nameservers: using 8.8.8.8 and 1.1.1.1."},
    {"Mail.Local", "", "failed", 0, "",
     "Names of the local network are left to the system's resolver. | systemResolver"},
    {"mail.corp.internal", "", "failed", 0, ""},
    {"mail.lan.", "", "failed", 0, ""},
    {"mail.test", "", "failed", 0, ""},
    {"corp.example", "conf domain Corp.Example", "failed", 0, ""},
    {"mail.corp", "conf search a.test .corp.", "failed", 0, ""},
    {"mail.vlan", "", "failed", 0, "8.8.8.8@0 1.1.1.1@0"},
    {"mail.local", "1", "failed", 0, "1@0"},
    {"mail.example", "conf nameserver fe80::1%eth0", "192.0.2.9", 0, "",
     "No DNS nameservers have been defined."},
    {"mail.example", "tls, 1, 2", "failed", 0, "",
     "nameserver: tls://10.0.0.2 | (DNS over TLS), but none of the nameservers support DoT | "
     "!systemResolver"},
    {"mail.example", "tls, 1 babbles", "failed", 0, "",
     "Failed to do TLS handshake for DNS connection on port 853 | !systemResolver"},

    // What settings name, nobody else is asked for, of either family.
    {"other", "own, 1 10.9.9.9", "10.9.9.9", 0, "1@0", "!systemResolver"},
    {"mail.local", "own, 1 10.9.9.9", "10.9.9.9", 0, "1@0", "!systemResolver"},
    {"mail.example", "own, 1 empty, 2 10.9.9.9", "failed", 0, "1@0 1@0",
     "No valid DNS answer.. | !systemResolver"},
    {"mail.example", "own, 1 six", "fd00::9", 0, "1@0 1@0", "!systemResolver"},
    {"mail.example", "own, 1 six 5", "fd00::9", 0, "1@0 1@0", "REFUSED | !systemResolver"},
    {"mail.example", "own, 1 six, six first", "fd00::9", 0, "1@0"},
    {"mail.example", "own, 1 error 2, six first",
     "The name server 10.0.0.1 failed to find an answer (SERVFAIL)", 0, "1@0 1@0",
     "!systemResolver"},
    {"no name", "own, 1, six first", "failed", 0, "", "!systemResolver"},
    {"six.example", "1, six first", "fd00::6", 0, "", "systemResolver: asking for IPv6"},
    {"A.example", "hosts, 1", "192.0.2.8", 0, "", "ip_from_hosts_file"},
    {"a.example", "hosts, 1, six first", "fd00::8", 0, ""},
    {"b.example", "hosts, 1", "fd00::8", 0, ""},
    {"listed.example", "own, hosts, 1 error 3", "failed", 0, "1@0", "!ip_from_hosts_file"},
    {"listed.example", "own, 1 error 3", "192.0.2.7", 0, "", "ip_from_hosts_file"},
};

TEST_F(Resolver, whereANameIsLookedFor) {
    for (const auto& row : kRows) {
        SCOPED_TRACE(std::string(row.name) + ", " + row.world);
        forget();
        arrange(row.world);
        lookUp(row.name);
        EXPECT_EQ(found(), row.found);
        EXPECT_EQ(elapsedMs(), row.elapsedMs);
        EXPECT_EQ(sentText(), row.sent);
        expectLogged(log, row.texts);
        for (const FakeNet::Datagram& sent : net.datagrams) {
            const bool isFirst = sent.place == net.datagrams[0].place &&
                                 sent.bytes.substr(2) == net.datagrams[0].bytes.substr(2);
            EXPECT_TRUE(!isFirst || sent.bytes == net.datagrams[0].bytes);
            EXPECT_TRUE(!isFirst || sent.fromPort == net.datagrams[0].fromPort);
            EXPECT_GE(sent.fromPort, 49152);
        }
    }
}

TEST_F(Resolver, rememberedAsLongAsTheAnswerSays) {
    constexpr std::pair<const char*, uint64_t> kTimes[] = {
        {"1 192.0.2.1 0", 0},
        {"1 192.0.2.1 30", 30000},
        {"1 192.0.2.1 3600", 3600000},
        {"1 192.0.2.1 3601", 3600000},  // an hour at most
        {"1 error 3", 0}};              // the system keeps its own
    for (const auto& [world, lifeMs] : kTimes) {
        SCOPED_TRACE(world);
        forget();
        arrange(world);
        const auto isKept = [&](const char* name) {
            EXPECT_TRUE(lookUp(name));
            EXPECT_EQ(sentText().empty(),
                      test::textOf(log).find("ip_from_dns_cache: 192.0.2.1") != std::string::npos);
            return sentText().empty();
        };
        for (int i = 0; i < 2; ++i) {  // an entry that has ended gives way to the next
            EXPECT_FALSE(isKept("http://Six.example/path"));
            EXPECT_EQ(isKept("six.example"), lifeMs > 0);
            clock.advanceMs(std::max<uint64_t>(lifeMs, 1) - 1);
            EXPECT_EQ(isKept("SIX.example.:25"), lifeMs > 0);
            clock.advanceMs(1);
        }
        EXPECT_FALSE(isKept("six.example"));
        clock.nowNs -= 1000000;  // a clock that has gone back says nothing
        EXPECT_FALSE(isKept("six.example"));
    }
}

TEST_F(Resolver, silentServersAreAskedLast) {
    arrange("1 silent, 2 192.0.2.1 0");  // never remembered
    const char* const kBoth = "1@0 1@1500 1@3500 1@4500 2@12500";
    for (const auto& [afterMs, sent] :
         {std::pair(0U, kBoth), {0U, "2@0"}, {299999U, "2@0"}, {1U, kBoth}}) {
        clock.advanceMs(afterMs);
        EXPECT_TRUE(lookUp("mail.example"));
        EXPECT_EQ(sentText(), sent);
    }
    arrange("1 192.0.2.1 0, 2 error 2");  // one that answers again is in its old place
    for (const char* sent : {"2@0 1@0", "1@0"}) {
        EXPECT_TRUE(lookUp("mail.example"));
        EXPECT_EQ(sentText(), sent);
    }
}

TEST_F(Resolver, whatOneServerSaidIsNoAnswerOfAnother) {
    for (const bool isNew : {true, false}) {
        for (const auto& [world, wanted] : {std::pair("1 192.0.2.1", "192.0.2.1"),
                                            {"own, 1 192.0.2.2", "192.0.2.2"},
                                            {"own, 2 192.0.2.3", "192.0.2.3"},
                                            {"own, 1 six, six first", "fd00::9"}}) {
            SCOPED_TRACE(world);
            arrange(world);
            lookUp("mail.example");
            EXPECT_EQ(found(), wanted);
            EXPECT_EQ(!net.datagrams.empty(), isNew);
        }
    }
}

TEST_F(Resolver, noMoreThan32OfTheSystemsServersAreAsked) {
    NameServers list;
    for (int i = 1; i <= 40; ++i)
        list.add("10.0.2." + std::to_string(i));
    ASSERT_EQ(list.addresses.size(), 32U);
    EXPECT_EQ(list.addresses.back(), *plat::parseIp("10.0.2.32"));
}

TEST_F(Resolver, idAndPortComeFromTheSecureSource) {
    FakeRandom random({0x12, 0x34, 0x00, 0x01, 0xFF, 0xFE, 0xC0, 0x05});
    std::deque<NetCode>& taken = net.faults["udp-bind"];
    taken = {NetCode::AddressInUse, NetCode::Access};
    arrange("own, 1 192.0.2.1 0");
    EXPECT_TRUE(lookUp("a.b"));
    EXPECT_EQ(net.datagrams.at(0).bytes.substr(0, 2), "\x12\x34");
    EXPECT_EQ(net.datagrams.at(0).fromPort, 49157);
    for (size_t given : {0U, 1U, 2U, 3U}) {  // the source fails: nothing is sent at all
        random.given = 0;
        random.failAfter = given;
        EXPECT_FALSE(lookUp("a.b"));
        EXPECT_TRUE(net.datagrams.empty());
        expectLogged(log, "The system's random source failed.");
    }
    random.failAfter = SIZE_MAX;
    taken.assign(40, NetCode::AddressInUse);  // given up after a bounded number of draws
    EXPECT_FALSE(lookUp("a.b"));
    EXPECT_EQ(taken.size(), 8U);
    expectLogged(log, "WSAEADDRINUSE");
}

TEST_F(Resolver, truncatedRepliesAreAskedForOverTcp) {
    const FakeRandom random({1});  // so replies are known in advance
    const std::string question = name("a.b") + number(0x00010001, 4);
    const std::string query = number(0x01010100, 4) + number(1, 2) + number(0, 6) + question;
    const auto answers = [&](const std::string& message, size_t size = SIZE_MAX) {
        const auto framed = [](const std::string& text) { return number(text.size(), 2) + text; };
        return turn(framed(query), framed(message).substr(0, size));
    };
    const std::string good = reply(query, std::vector(1000, a("192.0.2.1")));  // 16 KB
    const std::string forged = reply(query, {a(kForged)}, kTruncated);
    const struct {
        const char* what;
        Turn turn;
        const char* found;
        uint64_t elapsedMs;
        const char* texts = "";
    } kCases[] = {
        {"whole", answers(good), "192.0.2.1", 0, "fallbackToTcp"},
        {"another id", answers("x" + forged.substr(1)), "10.9.9.9", 0,
         "Response ID not equal to request ID."},
        {"truncated again", answers(forged), "10.9.9.9", 0,
         "The nameserver's reply over TCP cannot be used."},
        {"a cut length", answers(good, 1).thenClose(), "10.9.9.9", 0},
        {"a cut message", answers(good, 30).thenClose(), "10.9.9.9", 0},
        {"silent", answers(good, 0).then(Ending::Stall), "10.9.9.9", 15000},
        // A byte now and then keeps every single wait short.
        {"drips", answers(good).drippedBy(50), "10.9.9.9", 15000},
        {"refused", {}, "10.9.9.9", 0, "WSAECONNREFUSED"},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.what);
        forget();
        arrange("own, 1 truncated, 2 10.9.9.9 0");
        if (!c.turn.expect.empty()) net.serve("10.0.0.1", 53, {c.turn});
        EXPECT_TRUE(lookUp("a.b"));
        EXPECT_EQ(found(), c.found);
        EXPECT_EQ(elapsedMs(), c.elapsedMs);
        expectLogged(log, c.texts);
    }
}

TEST_F(Resolver, abortEndsEveryWaitAtTheNextSlice) {
    for (const char* world : {"1 silent, 2 192.0.2.1", "1 truncated, 2 192.0.2.1"}) {
        net.silent("10.0.0.1", 53);
        arrange(world);
        monitor.allowed = 4;
        EXPECT_FALSE(lookUp("mail.example"));
        EXPECT_TRUE(failure.is(Aborted));
        EXPECT_LE(elapsedMs(), 4 * 333U);
        EXPECT_GT(elapsedMs(), 333U);
        EXPECT_EQ(sentText(), "1@0");
        expectLogged(log, "!systemResolver");
    }
}

TEST_F(Resolver, aRequestTooLongForADatagramIsNotSent) {
    const std::vector<uint8_t> query(513);
    const NameServer server{*plat::parseIp("10.0.0.1"), false, ""};
    DnsExchange exchange{call, query, server, 1, Deadline(1000), {}};
    EXPECT_EQ(exchange.overUdp(), DnsExchange::End::NoReply);
    expectLogged(log, "DNS request is greater than 512 bytes.");
    EXPECT_TRUE(net.datagrams.empty());
}

// The hosts file is read anew when it has changed.
TEST_F(Resolver, theHostsFile) {
    const HostsTable table(
        "\xEF\xBB\xBF# a comment\r\n"
        "192.0.2.1\tone.example  ONE  alias.example. # and a comment\r\n"
        "fd00::1 one.example six.example\n"
        "192.0.2.300 wrong.example\n"
        "192.0.2.3\n"
        "no address here\r"
        "  192.0.2.4 one.example one.example\n"
        "192.0.2.5 #one.example\n"
        "192.0.2.6 last.example");
    constexpr auto kIpv4 = plat::AddressFamily::IPv4;
    for (const auto& [name, wanted] : {std::pair("one.example", "192.0.2.1 192.0.2.4"),
                                       {"one", "192.0.2.1"},
                                       {"alias.example", "192.0.2.1"},
                                       {"last.example", "192.0.2.6"}}) {
        EXPECT_TRUE(table.find(name, kIpv4, addresses)) << name;
        EXPECT_EQ(textOf(addresses), wanted);
    }
    for (const char* name : {"six.example", "wrong.example", "here", "one.exampl", "comment", ""})
        EXPECT_FALSE(table.find(name, kIpv4, addresses)) << name;
    HostsFile hosts;
    const std::string path = file("hosts2", "192.0.2.1 a.example\n");
    EXPECT_TRUE(hosts.find(path, "a.example", kIpv4, addresses));
    EXPECT_FALSE(hosts.find(path, "b.example", kIpv4, addresses));
    EXPECT_EQ(hosts.timesParsed(), 1U);
    file("hosts2", "192.0.2.1 a.example\n192.0.2.2 b.example\n");
    EXPECT_TRUE(hosts.find(path, "b.example", kIpv4, addresses));
    EXPECT_TRUE(hosts.find(path, "a.example", kIpv4, addresses));
    EXPECT_EQ(hosts.timesParsed(), 2U);
    std::remove(path.c_str());
    EXPECT_FALSE(hosts.find(path, "a.example", kIpv4, addresses));
}

}  // namespace
}  // namespace tv
