// Names of hosts: patterns, addresses as text, what a constraint on names covers.
#include "net/x509/HostMatch.h"

#include <gtest/gtest.h>

#include "base/Hex.h"
#include "net/x509/NameConstraints.h"
#include "tests/fixtures/TestBytes.h"

namespace tv::x509 {
namespace {

TEST(HostMatch, patternsOfNames) {
    const struct {
        const char* pattern;
        const char* host;
        bool matches;
    } cases[] = {
        {"Mail.Example.COM", "mail.example.com", true},
        {"mail.example.com.", "mail.example.com", false},
        {"mail.example.com.", "mail.example.com.", false},
        {"*.example.com.", "mail.example.com", false},
        {"mail.example.com", "mail.example.com.", true},
        {"mail.example.com", "a.mail.example.com", false},
        {"*.example.com", "mail.example.com", true},
        {"*.example.com", "example.com", false},
        {"*.example.com", "a.mail.example.com", false},
        {"*.com", "example.com", false},
        {"*", "localhost", false},
        {"*ail.example.com", "mail.example.com", false},
        {"mail.*.com", "mail.example.com", false},
        {"*.*.example.com", "a.b.example.com", false},
        {"*.xn--bcher-kva.test", "mail.xn--bcher-kva.test", true},
        {"*.", "a.", false},
        {"mail..example.com", "mail..example.com", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(matchesDnsPattern(c.pattern, c.host), c.matches) << c.pattern << " " << c.host;
    }
    // A name that only begins like the host (a NUL inside).
    EXPECT_FALSE(matchesDnsPattern(std::string_view("a.example\0.evil.test", 20), "a.example"));
}

TEST(HostMatch, textsOfAddresses) {
    const struct {
        const char* text;
        const char* hex;
    } cases[] = {
        {"127.0.0.1", "7f000001"},
        {"::1", "00000000000000000000000000000001"},
        {"::", "00000000000000000000000000000000"},
        {"2001:db8::a:b", "20010db80000000000000000000a000b"},
        {"1:2:3:4:5:6:7:8", "00010002000300040005000600070008"},
        {"::ffff:127.0.0.1", "00000000000000000000ffff7f000001"},
        {"256.0.0.1", ""},
        {"1.2.3", ""},
        {"1.2.3.4.5", ""},
        {"1..2.3", ""},
        {"1:2:3:4:5:6:7", ""},
        {"1:2:3:4:5:6:7:8:9", ""},
        {"1::2::3", ""},
        {"12345::", ""},
        {":1", ""},
        {"1:", ""},
        {"g::", ""},
        {"", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(hexLower(addressBytes(c.text)), c.hex) << c.text;
    }
}

TEST(NameConstraints, coverWhatTheirKindSays) {
    using Kind = GeneralName::Kind;
    const Coverage inside = Coverage::Inside, outside = Coverage::Outside;
    const Coverage unjudged = Coverage::Unjudged;
    const struct {
        Kind kind;
        const char* name;
        const char* base;
        Coverage coverage;
    } cases[] = {
        {Kind::Dns, "mail.example.com", "example.com", inside},
        {Kind::Dns, "example.com", "example.com", inside},
        {Kind::Dns, "mail.EXAMPLE.com", ".example.com", inside},
        {Kind::Dns, "example.com", ".example.com", outside},
        {Kind::Dns, "badexample.com", "example.com", outside},
        {Kind::Dns, "example.com.evil.test", "example.com", outside},
        {Kind::Dns, "mail.example.com.", "example.com", inside},
        {Kind::Dns, "*.example.com", "example.com", inside},
        {Kind::Dns, "anything.test", "", inside},
        {Kind::Dns, "anything.test", ".", unjudged},
        {Kind::Dns, "mail.example.com", "example.com.", unjudged},
        {Kind::Email, "Anna@Example.com", "Anna@example.com", inside},
        {Kind::Email, "Anna@example.com", "anna@example.com", outside},
        {Kind::Email, "a@example.com", "example.com", inside},
        {Kind::Email, "a@mail.example.com", "example.com", outside},
        {Kind::Email, "a@mail.example.com", ".example.com", inside},
        {Kind::Email, "a@example.com", ".example.com", outside},
        {Kind::Email, "\"b@other.test\"@example.com", "other.test", outside},
        {Kind::Email, "example.com", "example.com", unjudged},
        {Kind::Uri, "https://u@Mail.example.com:8/x", ".example.com", inside},
        {Kind::Uri, "ldap://example.com?x@evil.test", "example.com", inside},
        {Kind::Uri, "https://example.com:1@evil.test", "example.com", outside},
        {Kind::Uri, "https://10.0.0.1/", "10.0.0.1", unjudged},
        {Kind::Uri, "https://[::1]/", "example.com", unjudged},
        {Kind::Uri, "urn:example.com", "example.com", unjudged},
        {Kind::RegisteredId, "x", "x", unjudged},
    };
    for (const auto& c : cases) {
        const GeneralName name{c.kind, test::bytesIn(c.name), {}};
        const GeneralName base{c.kind, test::bytesIn(c.base), {}};
        EXPECT_EQ(coverageOf(name, base), c.coverage) << c.name << " " << c.base;
    }
    const uint8_t inNet[] = {10, 1, 2, 3}, outsideNet[] = {11, 1, 2, 3};
    const uint8_t net[] = {10, 0, 0, 0, 255, 0, 0, 0};
    const GeneralName base{Kind::Ip, net, {}}, noNet{Kind::Ip, inNet, {}};
    EXPECT_EQ(coverageOf({Kind::Ip, inNet, {}}, base), inside);
    EXPECT_EQ(coverageOf({Kind::Ip, outsideNet, {}}, base), outside);
    EXPECT_EQ(coverageOf({Kind::Ip, net, {}}, base), outside);
    EXPECT_EQ(coverageOf({Kind::Ip, inNet, {}}, noNet), unjudged);
    EXPECT_EQ(coverageOf({Kind::Email, net, {}}, base), outside);
}

}  // namespace
}  // namespace tv::x509
