#include <gtest/gtest.h>

#include <cstring>

#include "base/CpuFeatures.h"
#include "base/Random.h"
#include "base/ShuffleRandom.h"
#include "tests/fixtures/CpuForms.h"
#include "tests/fixtures/FakeSystem.h"

namespace tv {
namespace {

TEST(ShuffleRandom, FollowsItsSequence) {
    // Worked out by hand: 1 * 48271; 48271^2 = 2330089441, less 2147483647; then the product wraps
    // at 2^32 before the remainder is taken.
    ShuffleRandom random(1);
    EXPECT_EQ(random.next(), 48271u);
    EXPECT_EQ(random.next(), 182605794u);
    EXPECT_EQ(random.next(), 1291390782u);
}

TEST(ShuffleRandom, DrawsDigitsFromTheLow24Bits) {
    ShuffleRandom random(1);
    ShuffleRandom twin(1);
    int seen = 0;
    for (int i = 0; i < 1000; ++i) {
        const double fraction = (twin.next() & 0xFFFFFF) / 16777216.0;
        const int digit = random.digit();
        ASSERT_EQ(digit, static_cast<int>(fraction * 10));
        ASSERT_TRUE(digit >= 0 && digit <= 9);
        seen |= 1 << digit;
    }
    EXPECT_EQ(seen, 0x3FF);
}

TEST(ShuffleRandom, StartsFromTheTickCount) {
    const test::FakeClock clock(1);
    ShuffleRandom random;
    EXPECT_EQ(random.next(), 48271u);
    // A state whose product is a multiple of the modulus: the tick count takes its place.
    ShuffleRandom stuck(1622613393u);
    EXPECT_EQ(stuck.next(), 1u);
}

TEST(ShuffleRandom, EndsEvenWhereTheTickCountIsZero) {
    const test::FakeClock clock(0);
    ShuffleRandom random;
    EXPECT_EQ(random.digit(), 0);
}

TEST(ShuffleRandom, BoundariesShareOneGenerator) {
    boundaryRandom().setState(1);
    EXPECT_EQ(boundaryRandom().next(), 48271u);
    EXPECT_EQ(boundaryRandom().next(), 182605794u);
}

TEST(RandomBytes, ReportsASourceThatFails) {
    test::FakeRandom source({9, 8, 7});
    uint8_t bytes[5] = {};
    EXPECT_TRUE(randomBytes(bytes));
    EXPECT_EQ(bytes[4], 8);
    source.failAfter = 7;
    EXPECT_FALSE(randomBytes(bytes));
}

TEST(RandomBytes, TheSystemDelivers) {
    uint8_t first[32] = {};
    uint8_t second[32] = {};
    EXPECT_TRUE(randomBytes(first));
    EXPECT_TRUE(randomBytes(second));
    EXPECT_NE(std::string(first, first + 32), std::string(second, second + 32));
}

TEST(CpuFeatures, ALimitOnlyTakesAway) {
    const CpuFeatures has = detectedCpuFeatures();
    CpuFeatures everything;
    everything.sse2 = everything.ssse3 = everything.sse41 = everything.pclmul = true;
    everything.aesNi = everything.shaNi = everything.avx = everything.avx2 = true;
    everything.bmi2 = everything.adx = everything.avx512 = everything.avx512Vbmi = true;
    everything.vaes = everything.vpclmul = true;
    const auto same = [](const CpuFeatures& a, const CpuFeatures& b) {
        static_assert(sizeof(CpuFeatures) == 14,
                      "a new feature belongs into the test and the limit");
        return std::memcmp(&a, &b, sizeof a) == 0;
    };
    {
        const test::CpuLimit limit(everything);
        EXPECT_TRUE(same(cpuFeatures(), has));
    }
    {
        const test::CpuLimit limit(CpuFeatures{});
        EXPECT_TRUE(same(cpuFeatures(), CpuFeatures{}));
    }
    EXPECT_TRUE(same(cpuFeatures(), has));
}

}  // namespace
}  // namespace tv
