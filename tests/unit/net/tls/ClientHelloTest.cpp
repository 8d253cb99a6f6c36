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
#include "net/tls/TlsProtocol.h"
#include "tests/unit/net/tls/TestEnvironment.h"

namespace tv::tls::test {
namespace {

struct Sent {
    uint16_t recordVersion = 0, version = 0;
    std::string sessionId;
    std::vector<uint16_t> suites;
    std::vector<uint16_t> order;  // of the extensions
    std::map<uint16_t, std::string> exts;

    bool operator==(const Sent&) const = default;
};

std::string hexOf(std::span<const uint8_t> bytes) {
    return hexLower(bytes);
}

Sent taken(DataBuffer& output) {
    Sent sent;
    ByteReader record(output.bytes());
    EXPECT_EQ(record.u8(), 22);
    sent.recordVersion = record.u16();
    ByteReader message(record.vector16());
    EXPECT_TRUE(record.complete());
    EXPECT_EQ(message.u8(), 1);
    ByteReader r(message.vector24());
    EXPECT_TRUE(message.complete());
    sent.version = r.u16();
    r.skip(32);
    sent.sessionId = hexOf(r.vector8());
    for (ByteReader s(r.vector16()); !s.atEnd();) {
        sent.suites.push_back(s.u16());
    }
    EXPECT_EQ(hexOf(r.vector8()), "00");  // compression
    for (ByteReader e(r.vector16()); !e.atEnd();) {
        const uint16_t type = e.u16();
        sent.order.push_back(type);
        EXPECT_TRUE(sent.exts.emplace(type, hexOf(e.vector16())).second) << type;
    }
    EXPECT_TRUE(r.complete());
    return sent;
}

Sent helloOf(const std::string& keywords, const std::string& policy = "",
             const std::string& name = "mail.example.com", uint64_t seed = 1,
             bool verifies = false) {
    _tvLogger options;
    options.setOptions(keywords);
    TlsSettings settings;
    settings.versions = versionRange(policy);
    settings.options = tlsOptions(options);
    settings.serverName = name;
    settings.verifiesServer = verifies;
    TestEnvironment environment;
    environment.state = seed;
    TlsProtocol engine(settings, environment);
    LogNull log;
    EXPECT_TRUE(engine.start(log));
    return taken(engine.output());
}

const std::set<uint16_t> kGroup1 = {0x1301, 0x1303, 0x1302, 0xC02B, 0xCCA8, 0xCCA9, 0xCCAA};
const std::set<uint16_t> kGroup2 = {0xC013, 0x0033, 0x002F, 0xC014, 0x0039, 0x0035, 0xC027, 0x0067,
                                    0x003C, 0x006B, 0x003D, 0xC028, 0xC02F, 0x009E, 0x009C, 0xC030,
                                    0x009F, 0x009D, 0xC009, 0xC023, 0xC00A, 0xC024, 0xC02C};
const std::set<uint16_t> kGroup3 = {0xC012, 0x0016, 0x000A, 0xC011, 0x0005, 0x0004, 0x0015, 0x0009};

size_t groupOfSuite(uint16_t suite) {
    return kGroup1.count(suite) ? 1 : kGroup2.count(suite) ? 2 : kGroup3.count(suite) ? 3 : 0;
}

TEST(ClientHello, OffersItsSuitesInTheirGroups) {
    std::set<uint16_t> all = kGroup1;
    all.insert(kGroup2.begin(), kGroup2.end());
    all.insert(kGroup3.begin(), kGroup3.end());
    for (uint64_t seed = 1; seed < 50; ++seed) {
        const Sent sent = helloOf("", "", "", seed);
        EXPECT_EQ(sent.suites.size(), 38u);  // one stands in two groups and is sent once
        EXPECT_EQ(std::set<uint16_t>(sent.suites.begin(), sent.suites.end()), all);
        std::vector<size_t> groups;
        for (const uint16_t suite : sent.suites) {
            groups.push_back(groupOfSuite(suite));
        }
        EXPECT_TRUE(std::is_sorted(groups.begin(), groups.end()));
        // Whoever verifies offers the same order, but what needs no signature last.
        std::vector<uint16_t> signingFirst = sent.suites;
        std::stable_partition(signingFirst.begin(), signingFirst.end(), [](uint16_t id) {
            return !findCipherSuite(id)->name.starts_with("TLS_RSA_WITH_");
        });
        EXPECT_EQ(helloOf("", "", "", seed, true).suites, signingFirst);
    }
}

// How many suites of each kind remain.
struct SuiteRow {
    const char* keywords;
    const char* policy;
    size_t gcm, tls13, dhe, ecdhe, all;
};

const SuiteRow kSuiteRows[] = {
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
    {"", "TLS 1.0 or lower", 0, 0, 4, 6, 16},
};

TEST(ClientHello, SuitesFollowKeywordsAndVersions) {
    for (const SuiteRow& row : kSuiteRows) {
        const Sent sent = helloOf(row.keywords, row.policy);
        const auto count = [&](const char* part) {
            return static_cast<size_t>(
                std::count_if(sent.suites.begin(), sent.suites.end(), [&](uint16_t id) {
                    return findCipherSuite(id)->name.find(part) != std::string_view::npos;
                }));
        };
        EXPECT_EQ(count("_GCM_"), row.gcm) << row.keywords << row.policy;
        EXPECT_EQ(sent.suites.size() - count("_WITH_"), row.tls13) << row.keywords << row.policy;
        EXPECT_EQ(count("TLS_DHE_"), row.dhe) << row.keywords << row.policy;
        EXPECT_EQ(count("TLS_ECDHE_"), row.ecdhe) << row.keywords << row.policy;
        EXPECT_EQ(sent.suites.size(), row.all) << row.keywords << row.policy;
    }
}

// The extensions in their fixed order.
struct OrderRow {
    const char* keywords;
    const char* policy;
    std::vector<uint16_t> order;
};

const OrderRow kOrderRows[] = {
    {"", "", {5, 10, 11, 13, 23, 51, 43, 0xFF01, 0, 45, 28}},
    {"NO_TLS_SNI", "", {5, 10, 11, 13, 23, 51, 43, 0xFF01, 45, 28}},
    {"SendZeroLenTicket", "", {5, 10, 11, 13, 23, 35, 51, 43, 0xFF01, 0, 45, 28}},
    {"SendPostHandshakeAuth", "", {5, 10, 11, 13, 23, 49, 51, 43, 0xFF01, 0, 45, 28}},
    {"brainpool_supported_group", "", {5, 10, 11, 13, 23, 51, 43, 0xFF01, 0, 45, 28}},
    {"DisableTls13", "", {5, 10, 11, 13, 23, 0xFF01, 0, 28}},
    {"", "TLS 1.2 exact", {5, 10, 11, 13, 23, 0xFF01, 0, 28}},
    {"", "TLS 1.1 or lower", {5, 10, 11, 23, 0xFF01, 0, 28}},
    {"", "TLS 1.0 exact", {5, 10, 11, 23, 0xFF01, 0, 28}},
};

TEST(ClientHello, FixedOrderOfExtensions) {
    for (const OrderRow& row : kOrderRows) {
        for (uint64_t seed = 1; seed < 4; ++seed) {
            const std::string keywords = std::string("NO_TLS_EXT_RND ") + row.keywords;
            EXPECT_EQ(helloOf(keywords, row.policy, "mail.example.com", seed).order, row.order)
                << row.keywords << row.policy;
        }
    }
}

struct ContentRow {
    const char* keywords;
    const char* policy;
    uint16_t type;
    const char* body;
};

const ContentRow kContentRows[] = {
    {"", "", 5, "0100000000"},
    {"", "", 10, "0008001d001700180019"},
    {"brainpool_supported_group", "", 10, "000a001a001d001700180019"},
    {"", "", 11, "0100"},
    {"", "", 13,
     "001804010501060108040805080602010403050306030203"
     "0101"},
    {"", "TLS 1.3 exact", 13, "0012040105010601080408050806040305030603"},
    {"", "", 23, ""},
    {"SendZeroLenTicket", "", 35, ""},
    {"SendPostHandshakeAuth", "", 49, ""},
    {"", "", 43, "080304030303020301"},
    {"", "TLS 1.2 or higher", 43, "0403040303"},
    {"", "allowConnectionOnlyIfServerChooses TLS 1.3", 43, "020304"},
    {"", "", 0xFF01, "00"},
    {"", "", 0,
     "001300001"
     "06d61696c2e6578616d706c652e636f6d"},
    {"", "", 45, "020100"},
    {"", "", 28, "4001"},
};

TEST(ClientHello, ContentsOfExtensions) {
    for (const ContentRow& row : kContentRows) {
        EXPECT_EQ(helloOf(row.keywords, row.policy).exts.at(row.type), row.body)
            << row.type << row.keywords << row.policy;
    }
}

TEST(ClientHello, KeySharesAreFreshAndOfTheirSizes) {
    const auto groupsOf = [](const Sent& sent) {
        std::string text;
        const std::vector<uint8_t> body = *hexDecode(sent.exts.at(51));
        ByteReader list(std::span<const uint8_t>(body).subspan(2));
        while (!list.atEnd()) {
            const uint16_t group = list.u16();
            text += std::to_string(group) + ":" + std::to_string(list.vector16().size()) + " ";
        }
        return text;
    };
    EXPECT_EQ(groupsOf(helloOf("")), "29:32 23:65 ");
    EXPECT_EQ(groupsOf(helloOf("brainpool_supported_group")), "29:32 23:65 26:65 ");
    EXPECT_NE(helloOf("", "", "", 1).exts.at(51), helloOf("", "", "", 2).exts.at(51));
}

TEST(ClientHello, VersionsAndSessionIdOnTheWire) {
    struct {
        const char* policy;
        uint16_t version;
        size_t sessionId;
    } const rows[] = {{"", 0x0303, 32},
                      {"TLS 1.3 exact", 0x0303, 32},
                      {"TLS 1.2 exact", 0x0303, 0},
                      {"TLS 1.1 or lower", 0x0302, 0},
                      {"TLS 1.0 exact", 0x0301, 0}};
    for (const auto& row : rows) {
        const Sent sent = helloOf("", row.policy);
        EXPECT_EQ(sent.recordVersion, 0x0301) << row.policy;
        EXPECT_EQ(sent.version, row.version) << row.policy;
        EXPECT_EQ(sent.sessionId.size(), 2 * row.sessionId) << row.policy;
    }
}

TEST(ClientHello, ServerNameIsSentOnlyForNames) {
    struct {
        const char* keywords;
        std::string name;
        bool sent;
    } const rows[] = {{"", "mail.example.com", true},
                      {"", "a", true},
                      {"NO_TLS_SNI", "mail.example.com", false},
                      {"", "", false},
                      {"", "192.0.2.1", false},
                      {"", "2001:db8::1", false},
                      {"", "::1", false},
                      {"", "localhost", false},
                      {"", "LOCALHOST", false},
                      {"TlsAllowSniLocalhost", "localhost", true},
                      {"TlsAllowSniLocalhost NO_TLS_SNI", "localhost", false},
                      {"TlsAllowSniLocalhost", "127.0.0.1", false},
                      {"", std::string(255, 'a'), true},
                      {"", std::string(256, 'a'), false}};
    for (const auto& row : rows) {
        EXPECT_EQ(helloOf(row.keywords, "", row.name).exts.count(0) == 1, row.sent)
            << row.keywords << " " << row.name;
    }
}

TEST(ClientHello, ShufflesDifferAndAFixedSeedRepeats) {
    EXPECT_EQ(helloOf("", "", "mail.example.com", 7), helloOf("", "", "mail.example.com", 7));
    std::set<std::vector<uint16_t>> suites, orders;
    for (uint64_t seed = 1; seed <= 20; ++seed) {
        const Sent sent = helloOf("", "", "mail.example.com", seed);
        suites.insert(sent.suites);
        orders.insert(sent.order);
        EXPECT_EQ(std::set<uint16_t>(sent.order.begin(), sent.order.end()),
                  (std::set<uint16_t>{5, 10, 11, 13, 23, 51, 43, 0xFF01, 0, 45, 28}));
    }
    EXPECT_GE(suites.size(), 19u);
    EXPECT_GE(orders.size(), 19u);
    // One environment, one hello after another: the generator goes on.
    TestEnvironment environment;
    LogNull log;
    const auto next = [&] {
        TlsProtocol engine({}, environment);
        engine.start(log);
        return taken(engine.output()).suites;
    };
    EXPECT_NE(next(), next());
}

TEST(ClientHello, EveryPlaceIsReachedByTheShuffle) {
    std::map<uint16_t, std::set<size_t>> places;
    for (uint64_t seed = 1; seed <= 400; ++seed) {
        const std::vector<uint16_t> order = helloOf("", "", "mail.example.com", seed).order;
        for (size_t i = 0; i < order.size(); ++i) {
            places[order[i]].insert(i);
        }
    }
    for (const auto& [type, seen] : places) {
        EXPECT_EQ(seen.size(), 11u) << type;
    }
}

TEST(ClientHello, PoliciesName) {
    using enum Version;
    struct {
        const char* policy;
        Version lowest, highest;
    } const rows[] = {{"", Tls10, Tls13},
                      {"no such policy", Tls10, Tls13},
                      {"TLS 1.2", Tls10, Tls13},
                      {"TLS 1.2 exact", Tls12, Tls12},
                      {"tls 1.1 EXACT", Tls11, Tls11},
                      {"TLS 1.2 or higher", Tls12, Tls13},
                      {"TLS 1.3 or higher", Tls13, Tls13},
                      {"SSL 3.0 or higher", Tls10, Tls13},
                      {"TLS 1.0 or higher", Tls10, Tls13},
                      {"TLS 1.2 or lower", Tls10, Tls12},
                      {"TLS 1.0 or lower", Tls10, Tls10},
                      {"allowConnectionOnlyIfServerChooses TLS 1.1", Tls11, Tls11}};
    for (const auto& row : rows) {
        EXPECT_EQ(versionRange(row.policy), (VersionRange{row.lowest, row.highest})) << row.policy;
    }
    EXPECT_TRUE(versionRange("SSL 3.0 exact").empty());
    EXPECT_TRUE(versionRange("allowConnectionOnlyIfServerChooses SSL 3.0").empty());
}

TEST(ClientHello, WithoutVersionOrRandomThereIsNone) {
    const auto failure = [](const char* policy, bool randomWorks) {
        TestEnvironment environment;
        environment.randomWorks = randomWorks;
        TlsSettings settings;
        settings.versions = versionRange(policy);
        TlsProtocol engine(settings, environment);
        LogNull log;
        EXPECT_FALSE(engine.start(log));
        return engine.failure();
    };
    EXPECT_EQ(failure("SSL 3.0 exact", true), Cause::TlsNoUsableVersion);
    EXPECT_EQ(failure("", false), Cause::TlsRandomFailed);
    EXPECT_EQ(failure("TLS 1.2 exact", false), Cause::TlsRandomFailed);
}

}  // namespace
}  // namespace tv::tls::test
