// How long addresses are remembered, and of how many names.
#include "net/dns/DnsCache.h"

#include <gtest/gtest.h>

namespace tv::dns {
namespace {

const std::vector<plat::IpAddress> kAddresses = {*plat::parseIp("192.0.2.1"),
                                                 *plat::parseIp("192.0.2.2")};

TEST(DnsCache, Lifetimes) {
    const struct {
        const char* what;
        std::optional<uint32_t> ttl;
        uint64_t lastMs;  // the last millisecond of its life, counted from the answer; 0: none
    } kCases[] = {
        {"as the answer says", 300, 299999},
        {"one second", 1, 999},
        {"an hour", 3600, 3599999},
        {"an hour at most", 3601, 3599999},
        {"the largest number", UINT32_MAX, 3599999},
        {"a minute where it says nothing", std::nullopt, 59999},
        {"not at all", 0, 0},
    };
    for (const auto& c : kCases) {
        constexpr uint64_t kNow = 5000;
        DnsCache cache;
        std::vector<plat::IpAddress> found;
        cache.put("a.test", kAddresses, c.ttl, kNow);
        EXPECT_EQ(cache.find("a.test", kNow, found), c.lastMs > 0) << c.what;
        EXPECT_EQ(cache.find("a.test", kNow + c.lastMs, found), c.lastMs > 0) << c.what;
        EXPECT_EQ(found.empty(), c.lastMs == 0) << c.what;
        EXPECT_FALSE(cache.find("a.test", kNow + c.lastMs + 1, found)) << c.what;
        EXPECT_FALSE(cache.find("a.test", kNow - 1, found)) << c.what;  // the clock went back
        EXPECT_FALSE(cache.find("b.test", kNow, found)) << c.what;
    }
}

TEST(DnsCache, ANewAnswerReplacesTheOld) {
    DnsCache cache;
    std::vector<plat::IpAddress> found;
    cache.put("a.test", kAddresses, 300, 0);
    cache.put("a.test", {kAddresses[1]}, 10, 1000);
    ASSERT_TRUE(cache.find("a.test", 1000, found));
    EXPECT_EQ(found, std::vector<plat::IpAddress>{kAddresses[1]});
    cache.put("a.test", kAddresses, 0, 2000);  // no longer vouched for
    EXPECT_FALSE(cache.find("a.test", 2000, found));
}

TEST(DnsCache, FullItDropsWhatWouldEndFirst) {
    DnsCache cache(3);
    std::vector<plat::IpAddress> found;
    cache.put("long.test", kAddresses, 500, 0);
    cache.put("short.test", kAddresses, 100, 0);
    cache.put("middle.test", kAddresses, 300, 0);
    cache.put("new.test", kAddresses, 50, 0);
    EXPECT_EQ(cache.size(), 3U);
    EXPECT_FALSE(cache.find("short.test", 1, found));
    for (const char* name : {"long.test", "middle.test", "new.test"}) {
        EXPECT_TRUE(cache.find(name, 1, found)) << name;
    }
    for (int i = 0; i < 1000; ++i) {
        cache.put(std::to_string(i) + ".test", kAddresses, 60, 0);
    }
    EXPECT_EQ(cache.size(), 3U);
}

}  // namespace
}  // namespace tv::dns
