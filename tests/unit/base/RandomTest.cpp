// The two sources of random numbers: the system's, and the small one whose sequence is fixed.
#include <gtest/gtest.h>

#include "base/Random.h"
#include "base/ShuffleRandom.h"
#include "tests/fixtures/FakeSystem.h"

namespace tv {
namespace {

// Worked out by hand: 1 * 48271; 48271^2 = 2330089441, less 2147483647; then the product wraps at
// 2^32 before the remainder is taken.
TEST(ShuffleRandom, followsItsSequence) {
    boundaryRandom().setState(1);
    for (const uint32_t number : {48271u, 182605794u, 1291390782u}) {
        EXPECT_EQ(boundaryRandom().next(), number);
    }
    ShuffleRandom random(1), twin(1);
    int seen = 0;
    for (int i = 0; i < 1000; ++i) {
        const int digit = random.digit();  // from the low 24 bits
        ASSERT_EQ(digit, static_cast<int>((twin.next() & 0xFFFFFF) / 16777216.0 * 10));
        seen |= 1 << digit;
    }
    EXPECT_EQ(seen, 0x3FF);
}

TEST(ShuffleRandom, startsFromTheTickCount) {
    test::FakeClock clock(1);
    EXPECT_EQ(ShuffleRandom().next(), 48271u);
    // A state whose product is a multiple of the modulus: the tick count takes its place.
    EXPECT_EQ(ShuffleRandom(1622613393u).next(), 1u);
    clock.nowNs = 0;
    EXPECT_EQ(ShuffleRandom().digit(), 0) << "ends even so";
}

TEST(RandomBytes, areTheSystems) {
    uint8_t first[32] = {}, second[32] = {}, bytes[5] = {};
    EXPECT_TRUE(randomBytes(first) && randomBytes(second));
    EXPECT_NE(std::string(first, first + 32), std::string(second, second + 32));
    test::FakeRandom source({9, 8, 7});
    EXPECT_TRUE(randomBytes(bytes));
    EXPECT_EQ(bytes[4], 8);
    source.failAfter = 7;
    EXPECT_FALSE(randomBytes(bytes));
}

}  // namespace
}  // namespace tv
