// Questions and replies as bytes: what is taken for an answer and what never is; and what is
// forgotten first.
#include <gtest/gtest.h>

#include "base/Ascii.h"
#include "net/dns/DnsCache.h"
#include "net/dns/DnsMessage.h"
#include "net/dns/DnsName.h"
#include "tests/fixtures/DnsMessages.h"

namespace tv::dns {
namespace {

using namespace tv::test::dnsmsg;

std::span<const uint8_t> bytes(std::string_view text) {
    return {bytesOf(text), text.size()};
}

const std::string kQuery = [] {
    std::vector<uint8_t> query;
    encodeQuery(0x1234, "Mail.Example.Test", plat::AddressFamily::IPv4, query);
    return std::string(query.begin(), query.end());
}();

Reply decode(const std::string& message) {
    return decodeReply(bytes(message), bytes(kQuery));
}

// What a record's owner is when its name starts with a pointer to that offset.
std::string pointer(size_t offset) {
    return number(static_cast<uint32_t>(0xC000 | offset), 2);
}

// The reply with these records.
template <class... R>
std::string with(const R&... records) {
    return reply(kQuery, {records...});
}

TEST(DnsQuery, bytes) {
    const std::string head("\x12\x34\x01\x00\x00\x01\0\0\0\0\0\0", 12);
    EXPECT_EQ(kQuery, head + name("mail.example.test") + number(0x00010001, 4));
    const std::string label(63, 'a'), most = label + '.' + label + '.' + label + '.';
    std::vector<uint8_t> out;
    for (const std::string& host : {label + ".test.", most + label.substr(2)})
        EXPECT_TRUE(encodeQuery(1, host, plat::AddressFamily::IPv6, out)) << host;
    for (const std::string& host : {label + "a.test", most + label.substr(1), std::string(),
                                    std::string("."), std::string("a..b"), std::string(".a")}) {
        EXPECT_FALSE(encodeQuery(1, host, plat::AddressFamily::IPv6, out)) << host;
    }
}

TEST(DnsReply, whatCountsAsAnAnswer) {
    using enum ReplyKind;
    const std::string other = name("other.test"), third = name("third.test");
    const auto ip = [](const std::string& owner = kAsked, uint32_t ttl = 300) {
        return a("192.0.2.1", owner, ttl);
    };
    const std::string good = with(ip()), label(63, 'a');
    const size_t behind = kQuery.size();  // where the first record starts
    const std::string data = pointer(behind + 12);
    const auto changed = [&](size_t at, const std::string& by) {
        return good.substr(0, at) + by + good.substr(at + by.size());
    };
    // Aliases, one after the other, then an address.
    const auto aliases = [](uint32_t count) {
        std::vector<std::string> records;
        std::string from = kAsked;
        for (uint32_t i = 0; i < count; ++i) {
            const std::string to = name("n" + std::to_string(i) + ".test");
            records.push_back(alias(from, to));
            from = to;
        }
        records.push_back(a("192.0.2.16", from));
        return reply(kQuery, records);
    };
    std::vector<std::string> many;
    for (int i = 0; i < 100; ++i)
        many.push_back(a("10.0.0." + std::to_string(i % 99)));
    const struct {
        const char* what;
        std::string message;
        ReplyKind kind;
        const char* addresses = "";
        std::optional<uint32_t> ttl = {};
    } kCases[] = {
        {"one address", good, Addresses, "192.0.2.1", 300},
        {"in their order", with(a("192.0.2.9"), a("192.0.2.3", kAsked, 7), ip(), a("192.0.2.9")),
         Addresses, "192.0.2.9 192.0.2.3 192.0.2.1", 7},
        {"in capitals", with(ip(name("MAIL.Example.TEST"))), Addresses, "192.0.2.1", 300},
        {"another owner", with(ip(other)), NoAddress},
        {"that ends alike", with(ip(name("x.mail.example.test"))), NoAddress},
        {"a dot inside", with(ip(std::string("\x0Cmail.example\x04test", 18) + '\0')), NoAddress},
        {"an alias", with(alias(kAsked, other, 50), ip(other, 60)), Addresses, "192.0.2.1", 50},
        {"in any order", with(ip(third, 9), alias(other, third), alias(kAsked, other)), Addresses,
         "192.0.2.1", 9},
        {"off the chain", with(alias(kAsked, other), ip(third)), NoAddress, "", 300},
        {"in a ring", with(alias(kAsked, other), alias(other, kAsked)), NoAddress, "", 300},
        {"sixteen aliases", aliases(16), Addresses, "192.0.2.16", 300},
        {"seventeen aliases", aliases(17), NoAddress, "", 300},
        {"another type", with(record(kAsked, kAaaa, 5, std::string(16, 'x'))), NoAddress},
        {"other classes", with(record(kAsked, kA, 5, "abcd", 3), record(kAsked, kCname, 5, "?", 3)),
         NoAddress},
        {"a negative time", with(ip(kAsked, 0x80000001)), Addresses, "192.0.2.1", 0},
        {"truncated", reply(kQuery, {ip(), "rest"}, kTruncated), Truncated},
        {"another operation", changed(2, "\x91"), Malformed},
        {"another type asked", changed(behind - 3, "\x1C"), WrongQuestion},
        {"another class asked", changed(behind - 1, "\x03"), WrongQuestion},
        {"no question", changed(5, std::string(1, '\0')), WrongQuestion},
        {"more answers promised", changed(7, "\x02"), Malformed},
        {"an address of three bytes", with(record(kAsked, kA, 5, "abc")), Malformed},
        {"a long record", with(kAsked + number(0x00630001, 4) + number(5, 4) + "\xFF\xFF"),
         Malformed},
        {"an alias shorter than its record", with(alias(kAsked, other + "x")), Malformed},
        {"an alias longer than its record", with(alias(kAsked, "\x09ot")), Malformed},
        {"a pointer to itself", with(ip(pointer(behind))), Malformed},
        {"a pointer forwards", with(ip(pointer(behind + 16)), other), Malformed},
        {"two in a ring", with(alias(kAsked, pointer(behind + 14)), alias(data, data)), Malformed},
        {"a pointer of one byte", with("\xC0"), Malformed},
        {"no such label", with(ip("\x41" + std::string(65, 'a') + '\0')), Malformed},
        {"a name of 256", with(ip(name(label + '.' + label + '.' + label + '.' + label.substr(1)))),
         Malformed},
    };
    for (const auto& c : kCases) {
        const Reply got = decode(c.message);
        EXPECT_EQ(static_cast<int>(got.kind), static_cast<int>(c.kind)) << c.what;
        EXPECT_EQ(textOf(got.addresses), c.addresses) << c.what;
        EXPECT_EQ(got.ttlSeconds, c.ttl) << c.what;
    }
    EXPECT_EQ(decode(reply(kQuery, many)).addresses.size(), kMaxAddresses);
}

TEST(DnsReply, ofTheFamilyAskedFor) {
    const std::string query =
        kQuery.substr(0, kQuery.size() - 3) + "\x1C" + kQuery.substr(kQuery.size() - 2);
    const auto got = [&](const std::string& data) {
        const std::string message = reply(
            query, {a("192.0.2.1"), record(kAsked, kAaaa, 5, data), record(kAsked, kA, 5, "")});
        return textOf(decodeReply(bytes(message), bytes(query)).addresses);
    };
    EXPECT_EQ(got(std::string(15, '\0') + '\x01'), "::1");
    EXPECT_EQ(got("abcd"), "");
}

TEST(DnsReply, cutAnywhereItIsNone) {
    const std::string other = name("other.test");
    const std::string whole = with(alias(kAsked, other), a("192.0.2.1", other),
                                   a("192.0.2.2", pointer(kQuery.size() + 12)));
    ASSERT_EQ(textOf(decode(whole).addresses), "192.0.2.1 192.0.2.2");
    for (size_t size = 0; size < whole.size(); ++size)
        EXPECT_FALSE(decode(whole.substr(0, size)).isAnswer()) << size;
}

TEST(DnsCache, fullItDropsWhatWouldEndFirst) {
    DnsCache cache(3);
    std::vector<plat::IpAddress> found(1);
    for (const auto& [name, ttl] : {std::pair("long", 500U), {"short", 100}, {"middle", 300}})
        cache.put(name, found, ttl, 0);
    for (int i = 0; i < 1000; ++i)
        cache.put("new" + std::to_string(i), found, 50, 0);
    EXPECT_EQ(cache.size(), 3U);
    EXPECT_FALSE(cache.find("short", 1, found) || cache.find("new998", 1, found));
    for (const char* name : {"long", "middle", "new999"})
        EXPECT_TRUE(cache.find(name, 1, found)) << name;
}

}  // namespace
}  // namespace tv::dns
