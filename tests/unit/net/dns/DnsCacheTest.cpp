// How long addresses are remembered, and of how many names.
#include "net/dns/DnsCache.h"

#include <gtest/gtest.h>

namespace tv::dns {
namespace {

const std::vector<plat::IpAddress> kOne = {*plat::parseIp("192.0.2.1")},
                                   kTwo = {*plat::parseIp("192.0.2.2")};

TEST(DnsCache, lifetimes) {
    constexpr struct {
        std::optional<uint32_t> ttl;
        uint64_t lastMs;  // the last millisecond of its life, counted from the answer; 0: none
    } kCases[] = {{300, 299999},         {1, 999}, {3600, 3599999}, {3601, 3599999},
                  {UINT32_MAX, 3599999},  // an hour at most
                  {std::nullopt, 59999}, {0, 0}};
    for (const auto& [ttl, lastMs] : kCases) {
        SCOPED_TRACE(ttl.value_or(60));
        constexpr uint64_t kNow = 5000;
        DnsCache cache;
        std::vector<plat::IpAddress> found;
        cache.put("a.test", kOne, 300, kNow);
        cache.put("a.test", kTwo, ttl, kNow);  // what was known before is not vouched for
        EXPECT_EQ(cache.find("a.test", kNow, found), lastMs > 0);
        EXPECT_EQ(cache.find("a.test", kNow + lastMs, found), lastMs > 0);
        EXPECT_EQ(found, lastMs > 0 ? kTwo : std::vector<plat::IpAddress>());
        EXPECT_FALSE(cache.find("a.test", kNow + lastMs + 1, found));
        EXPECT_FALSE(cache.find("a.test", kNow - 1, found));  // the clock went back
        EXPECT_FALSE(cache.find("b.test", kNow, found));
    }
}

TEST(DnsCache, fullItDropsWhatWouldEndFirst) {
    DnsCache cache(3);
    std::vector<plat::IpAddress> found;
    cache.put("long.test", kOne, 500, 0);
    cache.put("short.test", kOne, 100, 0);
    cache.put("middle.test", kOne, 300, 0);
    cache.put("new.test", kOne, 50, 0);
    EXPECT_FALSE(cache.find("short.test", 1, found));
    for (const char* name : {"long.test", "middle.test", "new.test"})
        EXPECT_TRUE(cache.find(name, 1, found)) << name;
    for (int i = 0; i < 1000; ++i)
        cache.put(std::to_string(i) + ".test", kOne, 60, 0);
    EXPECT_EQ(cache.size(), 3U);
}

}  // namespace
}  // namespace tv::dns
