// Questions and replies as bytes: what is taken for an answer and what never is.
#include <gtest/gtest.h>

#include "base/Ascii.h"
#include "net/dns/DnsMessage.h"
#include "net/dns/DnsName.h"
#include "tests/fixtures/DnsMessages.h"

namespace tv::dns {
namespace {

using namespace tv::test::dnsmsg;
using Records = std::vector<std::string>;

std::span<const uint8_t> bytes(std::string_view text) {
    return {bytesOf(text), text.size()};
}

const std::string kQuery = [] {
    std::vector<uint8_t> query;
    encodeQuery(0x1234, "Mail.Example.Test", query);
    return std::string(query.begin(), query.end());
}();

Reply decode(const std::string& message) {
    return decodeReply(bytes(message), bytes(kQuery));
}

std::string textOf(const Reply& reply) {
    std::string text;
    for (const plat::IpAddress& address : reply.addresses) {
        text += (text.empty() ? "" : " ") + plat::toText(address);
    }
    return text;
}

// What a record's owner is when its name starts with a pointer to that offset.
std::string pointer(size_t offset) {
    return number(static_cast<uint32_t>(0xC000 | offset), 2);
}

TEST(DnsQuery, Bytes) {
    const std::string head("\x12\x34\x01\x00\x00\x01\0\0\0\0\0\0", 12);
    EXPECT_EQ(kQuery, head + name("mail.example.test") + number(0x00010001, 4));
    std::vector<uint8_t> out;
    const std::string label63(63, 'a');
    const std::string longest =
        label63 + "." + label63 + "." + label63 + "." + std::string(61, 'b');
    const struct {
        std::string host;
        bool fits;
    } kCases[] = {
        {"mail.test.", true},
        {"a", true},
        {label63 + ".test", true},
        {longest, true},
        {longest + "b", false},
        {"", false},
        {".", false},
        {"a..b", false},
        {".a", false},
        {"a..", false},
        {label63 + "a.test", false},
    };
    for (const auto& c : kCases) {
        EXPECT_EQ(encodeQuery(1, c.host, out), c.fits) << c.host;
        EXPECT_TRUE(!c.fits || out.size() <= kMaxUdpRequest);
    }
}

TEST(DnsReply, WhatCountsAsAnAnswer) {
    using K = ReplyKind;
    const std::string other = name("other.test"), third = name("third.test");
    const std::string good = reply(kQuery, {a("192.0.2.1")});
    const size_t behind = kQuery.size();  // where the first record starts
    const auto with = [&](size_t at, const std::string& by) {
        return good.substr(0, at) + by + good.substr(at + by.size());
    };
    Records seventeen, sixteen;  // aliases, then an address
    for (uint32_t i = 0; i < 17; ++i) {
        const std::string from = i == 0 ? kAsked : name("n" + std::to_string(i) + ".test");
        seventeen.push_back(alias(from, name("n" + std::to_string(i + 1) + ".test")));
        if (i < 16) sixteen.push_back(seventeen.back());
    }
    seventeen.push_back(a("192.0.2.17", name("n17.test")));
    sixteen.push_back(a("192.0.2.16", name("n16.test")));
    Records many;
    for (int i = 0; i < 100; ++i) {
        many.push_back(a("10.0.0." + std::to_string(i % 99)));
    }
    // Each record's name points to the record before, 70 times over.
    std::string pointers =
        reply(kQuery, {}).substr(0, 6) + number(71, 2) + reply(kQuery, {}).substr(8);
    for (size_t i = 0; i < 71; ++i) {
        pointers += record(pointer(i == 0 ? 12 : behind + (i - 1) * 12), 99, 1, "");
    }
    const struct {
        const char* what;
        std::string message;
        K kind;
        const char* addresses = "";
        std::optional<uint32_t> ttl = {};
    } kCases[] = {
        {"one address", good, K::Addresses, "192.0.2.1", 300},
        {"two in their order, doubles once",
         reply(kQuery, {a("192.0.2.9"), a("192.0.2.3", kAsked, 7), a("192.0.2.9")}), K::Addresses,
         "192.0.2.9 192.0.2.3", 7},
        {"owner written out, in capitals",
         reply(kQuery, {a("192.0.2.1", name("MAIL.Example.TEST"))}), K::Addresses, "192.0.2.1",
         300},
        {"another owner", reply(kQuery, {a("192.0.2.1", other)}), K::NoAddress},
        {"a name that ends alike", reply(kQuery, {a("192.0.2.1", name("x.mail.example.test"))}),
         K::NoAddress},
        {"a dot within a label is no border",
         reply(kQuery, {a("192.0.2.1", std::string("\x0Cmail.example\x04test", 18) + '\0')}),
         K::NoAddress},
        {"an alias", reply(kQuery, {alias(kAsked, other, 50), a("192.0.2.1", other, 60)}),
         K::Addresses, "192.0.2.1", 50},
        {"aliases in any order",
         reply(kQuery, {a("192.0.2.1", third, 9), alias(other, third), alias(kAsked, other)}),
         K::Addresses, "192.0.2.1", 9},
        {"addresses off the chain", reply(kQuery, {alias(kAsked, other), a("192.0.2.1", third)}),
         K::NoAddress, "", 300},
        {"an alias to nowhere", reply(kQuery, {alias(kAsked, other)}), K::NoAddress, "", 300},
        {"an alias of itself", reply(kQuery, {alias(kAsked, kAsked)}), K::NoAddress, "", 300},
        {"aliases in a ring", reply(kQuery, {alias(kAsked, other), alias(other, kAsked)}),
         K::NoAddress, "", 300},
        {"sixteen aliases", reply(kQuery, sixteen), K::Addresses, "192.0.2.16", 300},
        {"seventeen aliases", reply(kQuery, seventeen), K::NoAddress, "", 300},
        {"no records", reply(kQuery, {}), K::NoAddress},
        {"other types and classes only",
         reply(kQuery, {record(kAsked, 28, 5, std::string(16, 'x')),
                        record(kAsked, kA, 5, "abcd", 3), record(kAsked, kCname, 5, "?", 3)}),
         K::NoAddress},
        {"highest bit of the time to live", reply(kQuery, {a("192.0.2.1", kAsked, 0x80000001)}),
         K::Addresses, "192.0.2.1", 0},
        {"no such name", reply(kQuery, {}, kNxDomain), K::NoSuchName},
        {"server failure", reply(kQuery, {}, kServFail), K::Refused},
        {"refused", reply(kQuery, {}, kRefused), K::Refused},
        {"truncated, whatever follows", reply(kQuery, {a("192.0.2.1"), "rest"}, kTruncated),
         K::Truncated},
        {"a query", with(2, "\x01"), K::Malformed},
        {"another operation", with(2, "\x91"), K::Malformed},
        {"another id", with(1, "\x35"), K::WrongId},
        {"another name", with(13, "n"), K::WrongQuestion},
        {"the name in capitals", with(13, "M"), K::Addresses, "192.0.2.1", 300},
        {"another type", with(behind - 3, "\x1C"), K::WrongQuestion},
        {"another class", with(behind - 1, "\x03"), K::WrongQuestion},
        {"no question", with(5, std::string(1, '\0')), K::WrongQuestion},
        {"two questions", with(5, "\x02"), K::WrongQuestion},
        {"more answers promised", with(7, "\x02"), K::Malformed},
        {"an address of three bytes", reply(kQuery, {record(kAsked, kA, 5, "abc")}), K::Malformed},
        {"an address of five bytes", reply(kQuery, {record(kAsked, kA, 5, "abcde")}), K::Malformed},
        {"a record longer than the message",
         reply(kQuery, {kAsked + number(0x00630001, 4) + number(5, 4) + "\xFF\xFF"}), K::Malformed},
        {"an alias shorter than its record", reply(kQuery, {alias(kAsked, other + "x")}),
         K::Malformed},
        {"an alias longer than its record", reply(kQuery, {alias(kAsked, "\x09ot")}), K::Malformed},
        {"a pointer to itself", reply(kQuery, {a("192.0.2.1", pointer(behind))}), K::Malformed},
        {"a pointer forwards", reply(kQuery, {a("192.0.2.1", pointer(behind + 16)), other}),
         K::Malformed},
        {"a pointer to the name it ends",
         reply(kQuery, {a("192.0.2.1", "\x01x" + pointer(behind))}), K::Malformed},
        {"two that point to each other",
         reply(kQuery, {alias(kAsked, pointer(behind + 14)),
                        alias(pointer(behind + 12), pointer(behind + 12))}),
         K::Malformed},
        {"a pointer back, then one forwards",
         reply(kQuery, {record(kAsked, 99, 1, pointer(behind + 14) + other),
                        a("192.0.2.1", pointer(behind + 12))}),
         K::Malformed},
        {"a pointer of one byte", reply(kQuery, {"\xC0"}), K::Malformed},
        {"label types that do not exist",
         reply(kQuery, {a("192.0.2.1", "\x41" + std::string(65, 'a') + '\0')}), K::Malformed},
        {"a name of 255 and more",
         reply(kQuery,
               {a("192.0.2.1", name(std::string(63, 'a') + "." + std::string(63, 'a') + "." +
                                    std::string(63, 'a') + "." + std::string(62, 'a')))}),
         K::Malformed},
        {"seventy pointers in a row", pointers, K::Malformed},
    };
    for (const auto& c : kCases) {
        const Reply got = decode(c.message);
        EXPECT_EQ(static_cast<int>(got.kind), static_cast<int>(c.kind)) << c.what;
        EXPECT_EQ(textOf(got), c.addresses) << c.what;
        EXPECT_EQ(got.ttlSeconds, c.ttl) << c.what;
    }
    EXPECT_EQ(decode(reply(kQuery, {}, kServFail)).responseCode, 2);
    EXPECT_EQ(decode(reply(kQuery, many)).addresses.size(), kMaxAddresses);
}

TEST(DnsReply, CutAnywhereItIsNone) {
    const std::string other = name("other.test");
    const std::string whole = reply(kQuery, {alias(kAsked, other), a("192.0.2.1", other),
                                             a("192.0.2.2", pointer(kQuery.size() + 12))});
    ASSERT_EQ(textOf(decode(whole)), "192.0.2.1 192.0.2.2");
    for (size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(decode(whole.substr(0, size)).isAnswer()) << size;
    }
}

}  // namespace
}  // namespace tv::dns
