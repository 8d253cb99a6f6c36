// What stands in a certificate, field by field: items of DER, numbers, times, names of hosts and
// what a constraint on names covers.
#include <gtest/gtest.h>

#include <sstream>

#include "net/x509/HostMatch.h"
#include "net/x509/NameConstraints.h"
#include "net/x509/X509Time.h"
#include "tests/fixtures/HexBytes.h"

namespace tv::x509 {
namespace {

using test::bytesOf, test::bytesOfHex;

TEST(DerReader, malformedItemsAreRefusedAndStayRefused) {
    // Lengths: none, indefinite, long for no reason, of five bytes, beyond the end. A long tag.
    for (const char* const hex : {"", "30", "30800000", "04810100", "0482000100", "04850000000000",
                                  "0484ffffffff", "040200", "1f810100"}) {
        const auto bytes = bytesOfHex(hex);
        DerReader r(bytes);
        r.any();
        EXPECT_FALSE(r.ok()) << hex;
        EXPECT_TRUE(r.any().whole.empty()) << hex;
        EXPECT_FALSE(r.complete()) << hex;
    }
    const auto lowest = bytesOfHex("048180" + std::string(256, '0'));  // in the long form
    EXPECT_EQ(DerReader(lowest).any().content.size(), 128u);
}

// i: an integer, u: one without a sign, s: a small one, b: a boolean, t: bits.
TEST(DerReader, valuesHaveOneForm) {
    const std::pair<std::string, std::vector<const char*>> rows[] = {
        {"ius", {"020100", "02020080", "020500ffffffff"}},
        {"iu", {"02050100000000"}},
        {"i", {"020180"}},
        {"b", {"0101ff"}},
        {"t", {"03020005"}},
        {"", {"02020001", "0202ff80", "0200", "010101", "03020104"}}};
    for (const auto& [readable, hexes] : rows) {
        for (const std::string hex : hexes) {
            const auto bytes = bytesOfHex(hex);
            DerReader i(bytes), u(bytes), s(bytes), b(bytes), t(bytes);
            std::string readAs;
            i.integer();
            if (i.complete()) readAs += 'i';
            u.unsignedInteger();
            if (u.complete()) readAs += 'u';
            const uint64_t small = s.smallInteger();
            if (s.complete() && small == std::stoull(hex.substr(4), nullptr, 16)) readAs += 's';
            if (b.boolean() && b.complete()) readAs += 'b';
            if (t.bitString().size() == 1 && t.complete()) readAs += 't';
            EXPECT_EQ(readAs, readable) << hex;
        }
    }
}

TEST(X509Time, isReadInTheFormOfDer) {
    constexpr uint8_t kUtc = der::kUtcTime, kGeneral = der::kGeneralizedTime;
    const auto read = [](uint8_t tag, std::string_view text) {
        const auto bytes = bytesOf(text);
        int64_t seconds = 0;
        return parseTime({tag, bytes, {}}, seconds) ? std::optional(seconds) : std::nullopt;
    };
    EXPECT_EQ(read(kUtc, "700101000000Z"), 0);
    EXPECT_EQ(read(kUtc, "491231235959Z"), 2524607999);
    EXPECT_EQ(read(kUtc, "500101000000Z"), -631152000);
    EXPECT_EQ(read(kGeneral, "20261121094500Z"), 1795254300);
    EXPECT_EQ(read(kGeneral, "20240229000000Z"), 1709164800);
    EXPECT_EQ(read(kGeneral, "99991231235959Z"), 253402300799);
    EXPECT_EQ(read(der::kIa5String, "700101000000Z"), std::nullopt);
    for (const char* const text : {"20230229000000Z", "20261131000000Z", "20260001000000Z",
                                   "20261121094500.5Z", "2026112109450 Z"})
        EXPECT_EQ(read(kGeneral, text), std::nullopt) << text;
    for (const char* const text :
         {"7001010000Z", "700101000000+0000", "700101240000Z", "700101006000Z"})
        EXPECT_EQ(read(kUtc, text), std::nullopt) << text;
    EXPECT_EQ(timeText(-1), "1969-12-31 23:59:59 UTC");
}

using Pair = std::pair<std::string, std::string>;

// Each word is two parts with "<" between them.
std::vector<Pair> pairsIn(const char* text) {
    std::vector<Pair> pairs;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const size_t sign = word.find('<');
        pairs.emplace_back(word.substr(0, sign), word.substr(sign + 1));
    }
    return pairs;
}

TEST(HostMatch, patternsOfNames) {
    for (const auto& [host, pattern] :
         pairsIn("mail.example.com<Mail.Example.COM mail.example.com.<mail.example.com "
                 "mail.example.com<*.example.com mail.xn--bcher-kva.test<*.xn--bcher-kva.test"))
        EXPECT_TRUE(matchesDnsPattern(pattern, host)) << pattern << " " << host;
    for (const auto& [host, pattern] :
         pairsIn("mail.example.com<mail.example.com. mail.example.com.<mail.example.com. "
                 "mail.example.com<*.example.com. a.mail.example.com<mail.example.com "
                 "example.com<*.example.com a.mail.example.com<*.example.com example.com<*.com "
                 "localhost<* mail.example.com<*ail.example.com mail.example.com<mail.*.com "
                 "a.b.example.com<*.*.example.com a.<*. mail..example.com<mail..example.com"))
        EXPECT_FALSE(matchesDnsPattern(pattern, host)) << pattern << " " << host;
    // A name that only begins like the host (a NUL inside).
    EXPECT_FALSE(matchesDnsPattern(std::string_view("a.example\0.evil.test", 20), "a.example"));
}

TEST(HostMatch, textsOfAddresses) {
    for (const auto& [text, expected] :
         pairsIn("127.0.0.1<127.0.0.1 ::1<0:0:0:0:0:0:0:1 ::<0:0:0:0:0:0:0:0 "
                 "2001:DB8::a:b<2001:db8:0:0:0:0:a:b 1:2:3:4:5:6:7:8<1:2:3:4:5:6:7:8 "
                 "::ffff:127.0.0.1<0:0:0:0:0:ffff:7f00:1 256.0.0.1< 1.2.3< 1.2.3.4.5< 1..2.3< "
                 "1:2:3:4:5:6:7< 1:2:3:4:5:6:7:8:9< 1::2::3< 12345::< :1< 1:< g::< <"))
        EXPECT_EQ(addressText(addressBytes(text)), expected) << text;
}

TEST(NameConstraints, coverWhatTheirKindSays) {
    using enum GeneralName::Kind;
    using enum Coverage;
    const struct {
        GeneralName::Kind kind;
        Coverage expected;
        const char* pairs;  // names and bases; addresses and nets in digits
    } rows[] = {
        {Dns, Inside,
         "mail.example.com<example.com example.com<example.com mail.EXAMPLE.com<.example.com "
         "mail.example.com.<example.com *.example.com<example.com anything.test<"},
        {Dns, Outside,
         "example.com<.example.com badexample.com<example.com example.com.evil.test<example.com"},
        {Dns, Unjudged, "anything.test<. mail.example.com<example.com."},
        {Email, Inside,
         "Anna@Example.com<Anna@example.com a@example.com<example.com "
         "a@mail.example.com<.example.com"},
        {Email, Outside,
         "Anna@example.com<anna@example.com a@mail.example.com<example.com "
         "a@example.com<.example.com \"b@other.test\"@example.com<other.test"},
        {Email, Unjudged, "example.com<example.com"},
        {Uri, Inside,
         "https://u@Mail.example.com:8/x<.example.com ldap://example.com?x@evil.test<example.com"},
        {Uri, Outside, "https://example.com:1@evil.test<example.com"},
        {Uri, Unjudged,
         "https://10.0.0.1/<10.0.0.1 https://[::1]/<example.com urn:example.com<example.com"},
        {RegisteredId, Unjudged, "x<x"},
        {Ip, Inside, "0a010203<0a000000ff000000"},
        {Ip, Outside, "0b010203<0a000000ff000000 0a0102030a010203<0a000000ff000000"},
        {Ip, Unjudged, "0a010203<0a010203"}};
    for (const auto& row : rows) {
        const auto read = row.kind == Ip ? bytesOfHex : bytesOf;
        for (const auto& [nameText, baseText] : pairsIn(row.pairs)) {
            const auto name = read(nameText), base = read(baseText);
            EXPECT_EQ(coverageOf({row.kind, name, {}}, {row.kind, base, {}}), row.expected)
                << nameText << " " << baseText;
        }
    }
    EXPECT_EQ(coverageOf({Email, {}, {}}, {Dns, {}, {}}), Outside);
}

}  // namespace
}  // namespace tv::x509
