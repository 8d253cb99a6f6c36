// The order in which a name is looked for, what is remembered, and whom a name is shown to.
#include "net/resolve/Resolver.h"

#include "net/ConnectHost.h"
#include "net/resolve/NameServers.h"
#include "tests/unit/net/resolve/DnsKit.h"

namespace tv {
namespace {

using namespace tv::test;
using namespace tv::test::dnsmsg;
using plat::NetCode;

class Resolver : public DnsWorld {
protected:
    Resolver() { net.nameServers.servers = {"10.0.0.1"}; }

    bool lookUp(const std::string& name, uint64_t limitMs = 30000) {
        begin();
        net.lookups.clear();
        addresses.clear();
        failure = dnsLookup(call, name, limitMs ? Deadline(limitMs) : Deadline::unlimited(21600000),
                            addresses);
        return !failure;
    }
    std::string found() const { return textOf(addresses); }
    void serve(const std::string& ip, DnsAnswers answers) {
        net.udp.serve(ip, 53, std::move(answers));
    }
    std::vector<plat::IpAddress> addresses;
};

TEST_F(Resolver, WhereANameIsLookedFor) {
    net.nameServers.hosts = file("order", "192.0.2.1 listed.example single\n");
    net.name("other", {"192.0.2.2"});
    net.name("elsewhere.example", {"192.0.2.3", "fd00::3"});
    net.name("six.example", {"fd00::6"});
    serve("10.0.0.1", [](std::string_view query, size_t) -> std::vector<FakeDatagram> {
        if (query.find("\x05known") == std::string_view::npos) {
            return {{reply(query, {}, kNxDomain)}};
        }
        return {{reply(query, {a("10.1.1.1"), a("10.1.1.2")})}};
    });
    const struct {
        const char* name;
        const char* found;
        size_t datagrams, lookups;
        std::vector<const char*> texts;
    } kCases[] = {
        {"127.0.0.9", "127.0.0.9", 0, 0, {"IP address passed to DNS lookup"}},
        {" LocalHost ", "127.0.0.1", 0, 0, {}},
        {"fd00::9", "fd00::9", 0, 0, {}},
        {"Listed.Example", "192.0.2.1", 0, 0, {"ip_from_hosts_file: 192.0.2.1"}},
        {"listed.example.", "192.0.2.1", 0, 0, {}},
        {"single", "192.0.2.1", 0, 0, {}},
        {"other",
         "192.0.2.2",
         0,
         1,
         {"sbIp_gethostbyname: 192.0.2.2", "systemResolver: asking for IPv4 addresses"}},
        {"http://Known.example/path", "10.1.1.1 10.1.1.2", 1, 0, {"nameserver: 10.0.0.1"}},
        {"known.example", "10.1.1.1 10.1.1.2", 0, 0, {"ip_from_dns_cache: 10.1.1.1"}},
        {"KNOWN.example.:25", "10.1.1.1 10.1.1.2", 0, 0, {}},
        {"elsewhere.example", "192.0.2.3", 1, 1, {"NXDOMAIN", "num_app_defined_ns: 0"}},
        {"elsewhere.example", "192.0.2.3", 1, 1, {}},  // the system keeps its own cache
        {"six.example", "fd00::6", 1, 2, {"No IPv4 address found, checking for IPv6..."}},
        {"nowhere.example",
         "",
         1,
         2,
         {"DNS resolution failed.", "DNS lookup failed", "domain: nowhere.example"}},
        {"", "", 0, 0, {"DNS lookup failed; domain name is empty"}},
        {"no name", "", 0, 0, {"Invalid domain for resolving domain to IP address."}},
        {"a..example", "", 0, 2, {"The name does not fit into a DNS request."}},
    };
    for (const auto& c : kCases) {
        EXPECT_EQ(lookUp(c.name), *c.found != 0) << c.name;
        EXPECT_EQ(found(), c.found) << c.name;
        EXPECT_EQ(net.udp.sent.size(), c.datagrams) << c.name;
        EXPECT_EQ(net.lookups.size(), c.lookups) << c.name;
        EXPECT_EQ(failure.cause(), *c.found ? Cause::None : Cause::DnsFailed) << c.name;
        expectTexts(c.name, c.texts);
    }
}

TEST_F(Resolver, WhenTheServersDoNotHelp) {
    net.name("mail.example", {"192.0.2.3"});
    net.name("slow.example", {"192.0.2.4"}, 40000);
    net.nameFails("late.example", NetCode::TryAgain, 40000);
    using R = Cause;
    const struct {
        const char* what;
        const char* name;
        DnsAnswers answers;
        uint64_t limitMs;
        bool ownServers;
        const char* found;
        R reason;
        uint64_t elapsedMs;
        std::vector<const char*> texts;
    } kCases[] = {
        {"no address",
         "mail.example",
         answersWith({}),
         30000,
         false,
         "192.0.2.3",
         R::None,
         0,
         {"retry"}},
        {"no address anywhere",
         "no.example",
         answersWith({}),
         30000,
         false,
         "",
         R::DnsFailed,
         0,
         {"retry", "No valid DNS answer.."}},
        {"refused",
         "mail.example",
         answersWith({}, kRefused),
         30000,
         false,
         "192.0.2.3",
         R::None,
         0,
         {"num_app_defined_ns: 0"}},
        {"own servers stay alone",
         "mail.example",
         answersWith({}, kRefused),
         30000,
         true,
         "",
         R::DnsFailed,
         0,
         {"num_app_defined_ns: 1", "DNS resolution failed."}},
        {"silent, and the system's resolver knows",
         "mail.example",
         silence,
         30000,
         false,
         "192.0.2.3",
         R::None,
         25000,
         {"num_app_defined_ns: 0"}},
        {"silent until the end",
         "mail.example",
         silence,
         3999,
         false,
         "",
         R::DnsTimeout,
         3999,
         {"Less than a second is left", "DNS resolution failed."}},
        {"silent without a limit",
         "mail.example",
         silence,
         0,
         false,
         "192.0.2.3",
         R::None,
         2000,
         {}},
        {"silent, and the system knows nothing",
         "no.example",
         silence,
         0,
         false,
         "",
         R::DnsTimeout,
         2000,
         {}},
        {"the system is slow, too, and fails",
         "late.example",
         answersWith({}, kNxDomain),
         30000,
         false,
         "",
         R::DnsTimeout,
         40000,
         {"DNS resolution failed."}},
        {"the system is slow",
         "slow.example",
         answersWith({}, kNxDomain),
         30000,
         false,
         "192.0.2.4",
         R::None,
         40000,
         {"Elapsed time: 40000 millisec"}},
    };
    for (const auto& c : kCases) {
        serve("10.0.0.1", c.answers);
        state.ownNameServers.clear();
        if (c.ownServers) state.ownNameServers = {*plat::parseIp("10.0.0.1")};
        EXPECT_EQ(lookUp(c.name, c.limitMs), *c.found != 0) << c.what;
        EXPECT_EQ(found(), c.found) << c.what;
        EXPECT_EQ(failure.cause(), c.reason) << c.what;
        EXPECT_EQ(elapsedMs(), c.elapsedMs) << c.what;
        expectTexts(c.what, c.texts);
    }
}

TEST_F(Resolver, AServersNoCountsMoreThanAnothersSilence) {
    net.nameServers.servers = {"10.0.0.1", "10.0.0.2"};
    serve("10.0.0.1", silence);
    serve("10.0.0.2", answersWith({}, kNxDomain));
    EXPECT_FALSE(lookUp("mail.example"));
    EXPECT_EQ(failure.cause(), Cause::DnsFailed);
}

TEST_F(Resolver, WhereTlsIsRequiredNobodyIsAskedInTheClear) {
    net.name("mail.example", {"192.0.2.3"});
    serve("10.0.0.1", isAt("192.0.2.4"));
    state.requireTls = true;
    EXPECT_FALSE(lookUp("mail.example"));
    EXPECT_TRUE(net.udp.sent.empty());
    EXPECT_TRUE(net.lookups.empty());
    EXPECT_EQ(net.connects, std::vector<std::string>{"10.0.0.1:853"});
    net.nameServers.servers.clear();
    EXPECT_FALSE(lookUp("mail.local"));
    EXPECT_TRUE(net.lookups.empty());
}

TEST_F(Resolver, AFirstConnectCostsTwoRoundTrips) {
    serve("10.0.0.1", [](std::string_view query, size_t) -> std::vector<FakeDatagram> {
        return {{reply(query, {a("192.0.2.1")}), 20}};
    });
    for (const uint64_t elapsed : {50U, 30U}) {  // the second time the name is known
        begin();
        TolvaneSocket socket;
        net.serve("192.0.2.1", 25, {}).connectMs = 30;
        EXPECT_FALSE(failure = connectSocket_v2(call, socket, {"mail.example", 25, 30000}));
        EXPECT_EQ(elapsedMs(), elapsed);
    }
}

TEST_F(Resolver, AConnectWithoutALimitGivesEachServerTwoSeconds) {
    net.name("mail.example", {"192.0.2.1"});
    serve("10.0.0.1", silence);
    begin();
    TolvaneSocket socket;
    net.serve("192.0.2.1", 25, {});
    EXPECT_FALSE(failure = connectSocket_v2(call, socket, {"mail.example", 25, 0}));
    EXPECT_EQ(elapsedMs(), 2000U);
}

TEST_F(Resolver, NoMoreThan32ServersAreAsked) {
    for (int i = 1; i <= 40; ++i) {
        state.ownNameServers.push_back(*plat::parseIp("10.0.2." + std::to_string(i)));
    }
    EXPECT_FALSE(lookUp("mail.example"));
    EXPECT_EQ(net.udp.sent.size(), 32U);
    EXPECT_EQ(net.udp.sent.back().place, "10.0.2.32:53");
}

TEST_F(Resolver, RememberedAsLongAsTheAnswerSays) {
    serve("10.0.0.1", isAt("192.0.2.1", 30));
    const struct {
        uint64_t afterMs;
        size_t datagrams;
    } kSteps[] = {{0, 1}, {0, 0}, {29999, 0}, {1, 1}, {1000, 0}};
    for (const auto& step : kSteps) {
        clock.advanceMs(step.afterMs);
        EXPECT_TRUE(lookUp("mail.example"));
        EXPECT_EQ(found(), "192.0.2.1");
        EXPECT_EQ(net.udp.sent.size(), step.datagrams);
    }
}

TEST_F(Resolver, WhomANameIsShownTo) {
    const std::string broken = "nameserver fe80::1%eth0\nsearch House.example. .corp\n";
    const std::string good = "# nameserver 10.9.9.9\nnameserver 10.0.0.7 # here\noptions rotate\n";
    const struct {
        const char* what;
        std::vector<std::string> listed;
        std::string settings, failure;
        const char* name;
        const char* sent;  // to whom, in which order; nobody is there
        std::vector<const char*> texts;
    } kCases[] = {
        {"the listed ones",
         {"10.0.0.1", "10.0.0.2", "10.0.0.1", "0.0.0.0", ""},
         "",
         "",
         "mail.example",
         "10.0.0.1@0 10.0.0.2@0",
         {}},
        {"one by IPv6", {"fd00::53"}, "", "", "mail.example", "fd00::53@0", {}},
        {"those of the settings", {}, good, "", "mail.example", "10.0.0.7@0", {}},
        {"none: the public ones",
         {},
         "",
         "",
         "mail.example",
         "8.8.8.8@0 1.1.1.1@0",
         {"Check/cache nameservers failed.",
          "The system lists no nameservers: using 8.8.8.8 and 1.1.1.1."}},
        {"why there are none",
         {},
         "",
         "GetNetworkparams failed",
         "mail.example",
         "8.8.8.8@0 1.1.1.1@0",
         {"GetNetworkparams failed"}},
        {"a name of the house",
         {},
         "",
         "",
         "Mail.Local",
         "",
         {"Names of the local network are left to the system's resolver."}},
        {"and one below", {}, "", "", "mail.corp.internal", "", {}},
        {"and another", {}, "", "", "mail.lan", "", {}},
        {"of this host's domain", {}, "", "", "mail.test", "", {}},
        {"the domain itself", {}, "domain Corp.Example\n", "", "corp.example", "", {}},
        {"that only ends alike", {}, "", "", "mail.vlan", "8.8.8.8@0 1.1.1.1@0", {}},
        {"listed ones are asked for those, too",
         {"10.0.0.1"},
         "",
         "",
         "mail.local",
         "10.0.0.1@0",
         {}},
        {"listed in a form that is not understood",
         {},
         broken,
         "",
         "mail.example",
         "",
         {"No DNS nameservers have been defined."}},
    };
    for (const auto& c : kCases) {
        ResolverState fresh;
        replaceResolverState(&fresh);
        net.nameServers.servers = c.listed;
        net.nameServers.failure = c.failure;
        net.nameServers.settings = c.settings.empty() ? "" : file("settings", c.settings);
        net.name("mail.example", {"192.0.2.9"});
        EXPECT_EQ(lookUp(c.name), std::string(c.name) == "mail.example") << c.what;
        EXPECT_EQ(sentText(), c.sent) << c.what;
        EXPECT_FALSE(net.lookups.empty()) << c.what;  // in the end the system is asked
        expectTexts(c.what, c.texts);
    }
    replaceResolverState(&state);
    NameServers many;
    for (int i = 1; i < 100; ++i) {
        many.add("10.0.1." + std::to_string(i));
        many.addSuffix("a" + std::to_string(i) + ".example");
    }
    EXPECT_EQ(many.addresses.size(), 32U);
    EXPECT_EQ(many.suffixes.size(), 32U);
    parseResolvConf(broken, many);
    EXPECT_TRUE(many.hasOthers);
}

TEST_F(Resolver, SilentServersAreAskedLast) {
    net.nameServers.servers = {"10.0.0.1", "10.0.0.2"};
    serve("10.0.0.1", silence);
    serve("10.0.0.2", isAt("192.0.2.1", 0));  // never remembered
    const char* const kBoth = "10.0.0.1@0 10.0.0.1@1500 10.0.0.1@3500 10.0.0.1@4500 10.0.0.2@12500";
    const struct {
        uint64_t afterMs;
        const char* sent;
    } kSteps[] = {{0, kBoth}, {0, "10.0.0.2@0"}, {299999, "10.0.0.2@0"}, {1, kBoth}};
    for (const auto& step : kSteps) {
        clock.advanceMs(step.afterMs);
        EXPECT_TRUE(lookUp("mail.example"));
        EXPECT_EQ(sentText(), step.sent);
    }
    // One that answers again is in its old place.
    serve("10.0.0.1", isAt("192.0.2.1", 0));
    serve("10.0.0.2", answersWith({}, kServFail));
    EXPECT_TRUE(lookUp("mail.example"));
    EXPECT_EQ(sentText(), "10.0.0.2@0 10.0.0.1@0");
    EXPECT_TRUE(lookUp("mail.example"));
    EXPECT_EQ(sentText(), "10.0.0.1@0");
}

TEST_F(Resolver, AbortIsNoFailureOfTheName) {
    net.name("mail.example", {"192.0.2.9"});
    serve("10.0.0.1", silence);
    monitor.allowed = 3;
    EXPECT_FALSE(lookUp("mail.example"));
    EXPECT_EQ(failure.cause(), Cause::Aborted);
    EXPECT_TRUE(net.lookups.empty());
}

}  // namespace
}  // namespace tv
