// What a ClientHello offers, as its bytes say it: suites, extensions and their contents by option
// keyword, orders and their shuffles.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "base/ByteReader.h"
#include "base/Hex.h"
#include "log/LogNull.h"
#include "log/tvLogger.h"
#include "tests/unit/net/tls/TestEnvironment.h"

namespace tv::tls::test {
namespace {

struct Sent {
    uint16_t recordVersion = 0, version = 0;
    size_t sessionId = 0;
    std::vector<uint16_t> suites, order;  // order: of the extensions
    std::map<uint16_t, std::string> exts;
};

Sent taken(DataBuffer& output) {
    Sent sent;
    ByteReader record(output.bytes());
    EXPECT_EQ(record.u8(), 22);
    sent.recordVersion = record.u16();
    ByteReader message(record.vector16());
    EXPECT_EQ(message.u8(), 1);
    ByteReader r(message.vector24());
    sent.version = r.u16();
    r.skip(32);
    sent.sessionId = r.vector8().size();
    for (ByteReader s(r.vector16()); !s.atEnd();) {
        sent.suites.push_back(s.u16());
    }
    EXPECT_EQ(hexLower(r.vector8()), "00");  // compression
    for (ByteReader e(r.vector16()); !e.atEnd();) {
        const uint16_t type = e.u16();
        sent.order.push_back(type);
        EXPECT_TRUE(sent.exts.emplace(type, hexLower(e.vector16())).second) << type;
    }
    EXPECT_TRUE(r.complete() && message.complete() && record.complete());
    return sent;
}

Sent helloOf(const std::string& keywords, const char* policy = "",
             const std::string& name = "mail.example.com", uint64_t seed = 1, bool verifies = false,
             bool fallback = false) {
    _tvLogger options;
    options.setOptions(keywords);
    TlsSettings settings;
    settings.versions = versionRange(policy);
    settings.options = tlsOptions(options);
    settings.serverName = name;
    settings.verifiesServer = verifies;
    settings.fallback = fallback;
    TestEnvironment environment;
    environment.state = seed;
    TlsProtocol engine(settings, environment);
    LogNull log;
    EXPECT_TRUE(engine.start(log));
    return taken(engine.output());
}

const std::vector<std::set<uint16_t>> kGroups = {
    {0x1301, 0x1303, 0x1302, 0xC02B, 0xCCA8, 0xCCA9, 0xCCAA},
    {0xC013, 0x0033, 0x002F, 0xC014, 0x0039, 0x0035, 0xC027, 0x0067, 0x003C, 0x006B, 0x003D, 0xC028,
     0xC02F, 0x009E, 0x009C, 0xC030, 0x009F, 0x009D, 0xC009, 0xC023, 0xC00A, 0xC024, 0xC02C},
    {0xC012, 0x0016, 0x000A, 0xC011, 0x0005, 0x0004, 0x0015, 0x0009}};

TEST(ClientHello, offersItsSuitesInTheirGroups) {
    std::set<std::vector<uint16_t>> orders;
    for (uint64_t seed = 1; seed < 50; ++seed) {
        const Sent sent = helloOf("", "", "", seed);
        orders.insert(sent.suites);
        auto at = sent.suites.begin();  // one stands in two groups and is sent once
        for (const std::set<uint16_t>& group : kGroups) {
            const auto end = at + static_cast<std::ptrdiff_t>(group.size());
            ASSERT_LE(end - sent.suites.begin(), 38);
            EXPECT_EQ(std::set<uint16_t>(at, end), group);
            at = end;
        }
        EXPECT_EQ(at, sent.suites.end());
        // Whoever verifies offers the same order, but what needs no signature last.
        std::vector<uint16_t> signingFirst = sent.suites;
        std::stable_partition(signingFirst.begin(), signingFirst.end(), [](uint16_t id) {
            return !findCipherSuite(id)->name.starts_with("TLS_RSA_WITH_");
        });
        EXPECT_EQ(helloOf("", "", "", seed, true).suites, signingFirst);
    }
    EXPECT_GE(orders.size(), 45u);
    EXPECT_EQ(helloOf("", "", "", 1, false, true).suites.back(), 0x5600);  // RFC 7507
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
        SCOPED_TRACE(std::string(row.keywords) + " / " + row.policy);
        const Sent sent = helloOf(row.keywords, row.policy);
        const auto count = [&](const char* part) -> size_t {
            return static_cast<size_t>(std::ranges::count_if(sent.suites, [&](uint16_t id) {
                return findCipherSuite(id)->name.find(part) != std::string_view::npos;
            }));
        };
        EXPECT_EQ(count("_GCM_"), row.gcm);
        EXPECT_EQ(sent.suites.size() - count("_WITH_"), row.tls13);
        EXPECT_EQ(count("TLS_DHE_"), row.dhe);
        EXPECT_EQ(count("TLS_ECDHE_"), row.ecdhe);
        EXPECT_EQ(sent.suites.size(), row.all);
    }
}

TEST(ClientHello, extensionsHaveAFixedOrder) {
    const struct {
        const char* keywords;
        const char* policy;
        std::vector<uint16_t> order;
    } rows[] = {
        {"", "", {5, 10, 11, 13, 23, 51, 43, 0xFF01, 0, 45, 28}},
        {"NO_TLS_SNI", "", {5, 10, 11, 13, 23, 51, 43, 0xFF01, 45, 28}},
        {"SendZeroLenTicket", "", {5, 10, 11, 13, 23, 35, 51, 43, 0xFF01, 0, 45, 28}},
        {"SendPostHandshakeAuth", "", {5, 10, 11, 13, 23, 49, 51, 43, 0xFF01, 0, 45, 28}},
        {"DisableTls13", "", {5, 10, 11, 13, 23, 0xFF01, 0, 28}},
        {"", "TLS 1.1 or lower", {5, 10, 11, 23, 0xFF01, 0, 28}},
    };
    for (const auto& row : rows) {
        const std::string keywords = std::string("NO_TLS_EXT_RND ") + row.keywords;
        EXPECT_EQ(helloOf(keywords, row.policy).order, row.order) << keywords << row.policy;
    }
}

TEST(ClientHello, everyPlaceIsReachedByTheShuffle) {
    std::map<uint16_t, std::set<size_t>> places;
    for (uint64_t seed = 1; seed <= 400; ++seed) {
        const std::vector<uint16_t> order = helloOf("", "", "mail.example.com", seed).order;
        EXPECT_EQ(order.size(), 11u);
        for (size_t i = 0; i < order.size(); ++i) {
            places[order[i]].insert(i);
        }
    }
    EXPECT_EQ(places.size(), 11u);
    for (const auto& [type, seen] : places) {
        EXPECT_EQ(seen.size(), 11u) << type;
    }
}

TEST(ClientHello, extensionsHaveTheirContents) {
    const struct {
        const char* keywords;
        const char* policy;
        uint16_t type;
        const char* body;
    } rows[] = {
        {"", "", 5, "0100000000"},
        {"", "", 10, "0008001d001700180019"},
        {"brainpool_supported_group", "", 10, "000a001a001d001700180019"},
        {"", "", 11, "0100"},
        {"", "", 13, "0018040105010601080408050806020104030503060302030101"},
        {"", "TLS 1.3 exact", 13, "0012040105010601080408050806040305030603"},
        {"", "", 23, ""},
        {"SendZeroLenTicket", "", 35, ""},
        {"SendPostHandshakeAuth", "", 49, ""},
        {"", "", 43, "080304030303020301"},
        {"", "TLS 1.2 or higher", 43, "0403040303"},
        {"", "allowConnectionOnlyIfServerChooses TLS 1.3", 43, "020304"},
        {"", "", 0xFF01, "00"},
        {"", "", 0, "00130000106d61696c2e6578616d706c652e636f6d"},
        {"", "", 45, "020100"},
        {"", "", 28, "4001"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(helloOf(row.keywords, row.policy).exts.at(row.type), row.body)
            << row.type << row.keywords << row.policy;
    }
}

TEST(ClientHello, keySharesAreFreshAndOfTheirSizes) {
    const std::string two = helloOf("").exts.at(51);
    const std::string three = helloOf("brainpool_supported_group").exts.at(51);
    EXPECT_EQ(two.substr(0, 12) + two.substr(76, 8), "0069001d002000170041");
    EXPECT_EQ(three.substr(0, 12) + three.substr(76, 8), "00ae001d002000170041");
    EXPECT_EQ(three.substr(214, 8), "001a0041");
    EXPECT_NE(two, helloOf("", "", "mail.example.com", 2).exts.at(51));
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
        const Sent sent = helloOf("", row.policy);
        EXPECT_EQ(sent.recordVersion, 0x0301) << row.policy;
        EXPECT_EQ(sent.version, static_cast<uint16_t>(std::min(row.highest, Tls12))) << row.policy;
        EXPECT_EQ(sent.sessionId, row.highest == Tls13 ? 32u : 0u) << row.policy;
    }
    EXPECT_TRUE(versionRange("SSL 3.0 exact").empty());
    EXPECT_TRUE(versionRange("allowConnectionOnlyIfServerChooses SSL 3.0").empty());
}

TEST(ClientHello, serverNameIsSentOnlyForNames) {
    const struct {
        const char* keywords;
        std::string name;
        bool sent;
    } rows[] = {{"", "mail.example.com", true},
                {"NO_TLS_SNI", "mail.example.com", false},
                {"", "", false},
                {"", "192.0.2.1", false},
                {"", "2001:db8::1", false},
                {"", "localhost", false},
                {"", "LOCALHOST", false},
                {"TlsAllowSniLocalhost", "localhost", true},
                {"TlsAllowSniLocalhost NO_TLS_SNI", "localhost", false},
                {"TlsAllowSniLocalhost", "127.0.0.1", false},
                {"", std::string(255, 'a'), true},
                {"", std::string(256, 'a'), false}};
    for (const auto& row : rows) {
        EXPECT_EQ(helloOf(row.keywords, "", row.name).exts.contains(0), row.sent)
            << row.keywords << " " << row.name;
    }
}

TEST(ClientHello, isNotMadeWithoutVersionOrRandom) {
    const std::tuple<const char*, bool, Cause> rows[] = {
        {"SSL 3.0 exact", true, Cause::TlsNoUsableVersion},
        {"", false, Cause::TlsRandomFailed},
        {"TLS 1.2 exact", false, Cause::TlsRandomFailed}};
    for (const auto& [policy, randomWorks, failure] : rows) {
        TestEnvironment environment;
        environment.randomWorks = randomWorks;
        TlsSettings settings;
        settings.versions = versionRange(policy);
        TlsProtocol engine(settings, environment);
        LogNull log;
        EXPECT_FALSE(engine.start(log)) << policy;
        EXPECT_EQ(engine.failure(), failure) << policy;
    }
}

}  // namespace
}  // namespace tv::tls::test
