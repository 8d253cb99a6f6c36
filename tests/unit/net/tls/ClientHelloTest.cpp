// What a ClientHello offers, as its bytes say it: suites, extensions and their contents by option
// keyword, orders and their shuffles.
#include <gtest/gtest.h>

#include <set>

#include "base/Hex.h"
#include "log/LogNull.h"
#include "log/tvLogger.h"
#include "tests/unit/net/tls/TestEnvironment.h"

namespace tv::tls::test {
namespace {

TlsSettings settingsOf(const std::string& keywords, const std::string& policy) {
    _tvLogger options;
    options.setOptions(keywords);
    TlsSettings settings;
    settings.versions = versionRange(policy);
    settings.options = tlsOptions(options);
    settings.serverName = "mail.example.com";
    return settings;
}

Hello helloOf(const TlsSettings& settings, uint64_t seed = 1) {
    TestEnvironment environment;
    environment.state = seed;
    TlsProtocol engine(settings, environment);
    LogNull log;
    EXPECT_TRUE(engine.start(log));
    const View sent = engine.output().bytes();
    EXPECT_EQ(hexLower(sent.first(3)), "160301");
    EXPECT_EQ(sent[5], 1);
    return helloIn(sent.subspan(9));
}

Hello helloOf(const std::string& keywords, const std::string& policy = "") {
    return helloOf(settingsOf(keywords, policy));
}

const std::vector<std::set<uint16_t>> kGroups = {
    {0x1301, 0x1303, 0x1302, 0xC02B, 0xCCA8, 0xCCA9, 0xCCAA},
    {0xC013, 0x0033, 0x002F, 0xC014, 0x0039, 0x0035, 0xC027, 0x0067, 0x003C, 0x006B, 0x003D, 0xC028,
     0xC02F, 0x009E, 0x009C, 0xC030, 0x009F, 0x009D, 0xC009, 0xC023, 0xC00A, 0xC024, 0xC02C},
    {0xC012, 0x0016, 0x000A, 0xC011, 0x0005, 0x0004, 0x0015, 0x0009}};

TEST(ClientHello, offersItsSuitesInTheirGroups) {
    std::set<std::vector<uint16_t>> orders;
    TlsSettings settings = settingsOf("", "");
    for (uint64_t seed = 1; seed < 50; ++seed) {
        settings.verifiesServer = false;
        std::vector<uint16_t> suites = helloOf(settings, seed).suites;
        orders.insert(suites);
        auto at = suites.begin();  // one stands in two groups and is sent once
        for (const std::set<uint16_t>& group : kGroups) {
            const auto end = at + static_cast<std::ptrdiff_t>(group.size());
            ASSERT_LE(end - suites.begin(), 38);
            EXPECT_EQ(std::set<uint16_t>(at, end), group);
            at = end;
        }
        EXPECT_EQ(at, suites.end());
        // Whoever verifies offers the same order, but what needs no signature last.
        std::stable_partition(suites.begin(), suites.end(), [](uint16_t id) {
            return !findCipherSuite(id)->name.starts_with("TLS_RSA_WITH_");
        });
        settings.verifiesServer = true;
        EXPECT_EQ(helloOf(settings, seed).suites, suites);
    }
    EXPECT_GE(orders.size(), 45u);
    settings.fallback = true;
    EXPECT_EQ(helloOf(settings).suites.back(), 0x5600);  // RFC 7507
}

TEST(ClientHello, suitesFollowKeywordsAndVersions) {
    const struct {
        const char* keywords;
        const char* policy;
        size_t gcm, tls13, dhe, ecdhe, all;  // how many of each kind remain
    } rows[] = {
        {"", "", 10, 3, 9, 16, 38},
        {"TLS_NO_GCM", "", 0, 1, 7, 12, 28},
        {"TLS_NO_DHE", "", 8, 3, 0, 16, 29},
        {"TLS_NO_ECDHE", "", 6, 3, 9, 0, 22},
        {"TLS_NO_DHE TLS_NO_ECDHE TLS_NO_GCM", "", 0, 1, 0, 0, 9},
        {"DisableTls13", "", 8, 0, 9, 16, 35},
        {"DisableTls13 EnableTls13", "", 10, 3, 9, 16, 38},
        {"", "TLS 1.3 exact", 2, 3, 0, 0, 3},
        {"", "TLS 1.2 or lower", 8, 0, 9, 16, 35},
        {"", "TLS 1.1 exact", 0, 0, 4, 6, 16},
    };
    for (const auto& row : rows) {
        const std::vector<uint16_t> suites = helloOf(row.keywords, row.policy).suites;
        const auto count = [&](const char* part) {
            return static_cast<size_t>(std::ranges::count_if(suites, [&](uint16_t id) {
                return findCipherSuite(id)->name.find(part) != std::string_view::npos;
            }));
        };
        const std::vector<size_t> counts = {count("_GCM_"), suites.size() - count("_WITH_"),
                                            count("TLS_DHE_"), count("TLS_ECDHE_"), suites.size()};
        EXPECT_EQ(counts, (std::vector{row.gcm, row.tls13, row.dhe, row.ecdhe, row.all}))
            << row.keywords << " / " << row.policy;
    }
}

TEST(ClientHello, everyPlaceIsReachedByTheShuffleAndKeysAreFresh) {
    std::set<std::pair<uint16_t, size_t>> places;  // of the types
    std::set<Bytes> shares;
    for (uint64_t seed = 1; seed <= 400; ++seed) {
        const std::vector<Extension> exts = helloOf(settingsOf("", ""), seed).exts;
        shares.insert(*find(exts, 51));
        for (size_t i = 0; i < exts.size(); ++i) {
            places.emplace(exts[i].type, i);
        }
    }
    EXPECT_EQ(places.size(), 11u * 11u);
    EXPECT_EQ(shares.size(), 400u);
}

// "type:body" of each; of key shares groups and sizes alone.
std::string extensionsOf(const std::string& keywords, const std::string& policy) {
    std::string text;
    for (const Extension& e : helloOf("NO_TLS_EXT_RND " + keywords, policy).exts) {
        text += " " + std::to_string(e.type) + ":";
        if (e.type != 51) text += hexLower(e.body);
        ByteReader r(View(e.body).subspan(e.type == 51 ? 2 : e.body.size()));
        while (!r.atEnd()) {
            text += std::to_string(r.u16());
            text += "/" + std::to_string(r.vector16().size()) + "/";
        }
    }
    return text + " ";
}

TEST(ClientHello, extensionsHaveTheirOrderAndContents) {
    const std::string name = " 0:00130000106d61696c2e6578616d706c652e636f6d";
    const struct {
        const char* keywords;
        const char* policy;
        std::string part;
    } rows[] = {
        {"", "",
         " 5:0100000000 10:0008001d001700180019 11:0100 "
         "13:0018040105010601080408050806020104030503060302030101 23: 51:29/32/23/65/ "
         "43:080304030303020301 65281:00" +
             name + " 45:020100 28:4001 "},
        {"brainpool_supported_group", "", " 10:000a001a001d001700180019 "},
        {"brainpool_supported_group", "", " 51:29/32/23/65/26/65/ "},
        {"NO_TLS_SNI", "", " 65281:00 45:"},
        {"SendZeroLenTicket", "", " 23: 35: 51:"},
        {"SendPostHandshakeAuth", "", " 23: 49: 51:"},
        {"DisableTls13", "", " 23: 65281:00" + name + " 28:4001 "},
        {"", "TLS 1.1 or lower", " 11:0100 23: 65281:00" + name + " 28:4001 "},
        {"", "TLS 1.2 or higher", " 43:0403040303 "},
        {"", "TLS 1.3 exact", " 13:0012040105010601080408050806040305030603 "},
    };
    for (const auto& row : rows) {
        const std::string all = extensionsOf(row.keywords, row.policy);
        EXPECT_NE(all.find(row.part), all.npos) << row.part << "\n" << all;
    }
    EXPECT_EQ(extensionsOf("", ""), rows[0].part);
}

TEST(ClientHello, policySaysVersionsAndTheHeadOfTheHello) {
    using enum Version;
    const struct {
        const char* policy;
        Version lowest, highest;
    } rows[] = {{"", Tls10, Tls13},
                {"no such policy", Tls10, Tls13},
                {"TLS 1.2 exact", Tls12, Tls12},
                {"tls 1.1 EXACT", Tls11, Tls11},
                {"TLS 1.2 or higher", Tls12, Tls13},
                {"TLS 1.3 or higher", Tls13, Tls13},
                {"SSL 3.0 or higher", Tls10, Tls13},
                {"TLS 1.2 or lower", Tls10, Tls12},
                {"TLS 1.0 or lower", Tls10, Tls10},
                {"allowConnectionOnlyIfServerChooses TLS 1.1", Tls11, Tls11}};
    for (const auto& row : rows) {
        EXPECT_EQ(versionRange(row.policy), (VersionRange{row.lowest, row.highest})) << row.policy;
        const Hello hello = helloOf("", row.policy);
        EXPECT_EQ(hello.version, static_cast<uint16_t>(std::min(row.highest, Tls12)));
        EXPECT_EQ(hello.sessionId.size(), row.highest == Tls13 ? 32u : 0u) << row.policy;
    }
    EXPECT_TRUE(versionRange("SSL 3.0 exact").empty());
    EXPECT_TRUE(versionRange("allowConnectionOnlyIfServerChooses SSL 3.0").empty());
}

TEST(ClientHello, serverNameIsSentOnlyForNames) {
    const auto expectSent = [](const std::string& keywords, const std::string& name, bool sent) {
        TlsSettings settings = settingsOf(keywords, "");
        settings.serverName = name;
        const Hello hello = helloOf(settings);
        EXPECT_EQ(find(hello.exts, 0) != nullptr, sent) << keywords << " " << name;
    };
    for (const std::string name : {"", "192.0.2.1", "2001:db8::1", "LOCALHOST"}) {
        expectSent("", name, false);
    }
    expectSent("TlsAllowSniLocalhost", "localhost", true);
    expectSent("TlsAllowSniLocalhost NO_TLS_SNI", "localhost", false);
    expectSent("TlsAllowSniLocalhost", "127.0.0.1", false);
    expectSent("", std::string(255, 'a'), true);
    expectSent("", std::string(256, 'a'), false);
}

TEST(ClientHello, isNotMadeWithoutVersionOrRandom) {
    const std::tuple<const char*, bool, Cause> rows[] = {
        {"SSL 3.0 exact", true, Cause::TlsNoUsableVersion}, {"", false, Cause::TlsRandomFailed}};
    for (const auto& [policy, randomWorks, failure] : rows) {
        TestEnvironment environment;
        environment.randomWorks = randomWorks;
        TlsProtocol engine(settingsOf("", policy), environment);
        LogNull log;
        EXPECT_FALSE(engine.start(log)) << policy;
        EXPECT_EQ(engine.failure(), failure) << policy;
    }
}

}  // namespace
}  // namespace tv::tls::test
