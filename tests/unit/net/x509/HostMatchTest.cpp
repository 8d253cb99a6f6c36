#include "net/x509/HostMatch.h"

#include <gtest/gtest.h>

#include "base/Hex.h"

namespace tv::x509 {
namespace {

TEST(HostMatch, DnsPatterns) {
    const struct {
        const char* pattern;
        const char* host;
        bool matches;
    } cases[] = {
        {"mail.example.com", "mail.example.com", true},
        {"Mail.Example.COM", "mail.example.com", true},
        {"mail.example.com.", "mail.example.com", true},
        {"mail.example.com", "mail.example.com.", true},
        {"mail.example.com", "smtp.example.com", false},
        {"mail.example.com", "a.mail.example.com", false},
        {"*.example.com", "mail.example.com", true},
        {"*.example.com", "example.com", false},
        {"*.example.com", "a.mail.example.com", false},
        {"*.com", "example.com", false},
        {"*", "localhost", false},
        {"m*.example.com", "mail.example.com", false},
        {"*ail.example.com", "mail.example.com", false},
        {"mail.*.com", "mail.example.com", false},
        {"*.*.example.com", "a.b.example.com", false},
        {"*.xn--bcher-kva.test", "mail.xn--bcher-kva.test", true},
        {"", "", false},
        {"*.", "a.", false},
        {"mail..example.com", "mail..example.com", false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(matchesDnsPattern(c.pattern, c.host), c.matches) << c.pattern << " " << c.host;
    }
    // A name that only begins like the host (a NUL inside).
    EXPECT_FALSE(matchesDnsPattern(std::string_view("a.example\0.evil.test", 20), "a.example"));
}

TEST(HostMatch, AddressTexts) {
    const struct {
        const char* text;
        const char* hex;
    } cases[] = {
        {"127.0.0.1", "7f000001"},
        {"255.255.255.255", "ffffffff"},
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
        {"mail.example.com", ""},
        {"", ""},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(hexLower(addressBytes(c.text)), c.hex) << c.text;
    }
}

Bytes bytesOfText(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

TEST(HostMatch, NameConstraints) {
    const struct {
        const char* name;
        const char* base;
        bool inside;
    } cases[] = {
        {"mail.example.com", "example.com", true},       {"example.com", "example.com", true},
        {"mail.EXAMPLE.com", ".example.com", true},      {"badexample.com", "example.com", false},
        {"example.com.evil.test", "example.com", false}, {"anything.test", "", true},
    };
    for (const auto& c : cases) {
        const GeneralName name{GeneralName::Kind::Dns, bytesOfText(c.name)};
        const GeneralName base{GeneralName::Kind::Dns, bytesOfText(c.base)};
        EXPECT_EQ(liesWithin(name, base), c.inside) << c.name << " " << c.base;
    }
    const uint8_t inNet[] = {10, 1, 2, 3}, outside[] = {11, 1, 2, 3};
    const uint8_t net[] = {10, 0, 0, 0, 255, 0, 0, 0};
    EXPECT_TRUE(liesWithin({GeneralName::Kind::Ip, inNet}, {GeneralName::Kind::Ip, net}));
    EXPECT_FALSE(liesWithin({GeneralName::Kind::Ip, outside}, {GeneralName::Kind::Ip, net}));
    EXPECT_FALSE(liesWithin({GeneralName::Kind::Ip, inNet}, {GeneralName::Kind::Ip, inNet}));
}

}  // namespace
}  // namespace tv::x509
