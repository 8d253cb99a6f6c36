// Run under valgrind these tests prove that no branch and no address depends on the secrets.
#include <gtest/gtest.h>

#include "base/Base64.h"
#include "base/ConstTime.h"
#include "base/SecureBuffer.h"
#include "tests/fixtures/SecretMemory.h"
#include "tests/fixtures/TestBytes.h"

namespace tv {
namespace {

TEST(SecretFlow, Base64) {
    for (const size_t size : {1u, 2u, 3u, 64u}) {
        const std::vector<uint8_t> secret = test::randomBytesOf(size);
        const std::string expected = base64Encode(secret);
        test::makeSecret(secret);
        const SecureBuffer text = base64EncodeSecret(secret);
        test::makePublic(text.bytes());
        EXPECT_EQ(test::textOf(text.bytes()), expected);
    }
}

TEST(SecretFlow, Comparison) {
    const std::vector<uint8_t> bytes = test::randomBytesOf(40);
    std::vector<uint8_t> other = bytes;
    for (const size_t place : {0u, 20u, 39u}) {
        const SecureBuffer secret(bytes);
        test::makeSecret(secret.bytes());
        uint32_t same = ctEqualMask(secret.bytes(), bytes);
        other[place] ^= 1;
        uint32_t different = ctEqualMask(secret.bytes(), other);
        other[place] ^= 1;
        test::makePublic({reinterpret_cast<const uint8_t*>(&same), sizeof same});
        test::makePublic({reinterpret_cast<const uint8_t*>(&different), sizeof different});
        EXPECT_EQ(same, UINT32_MAX);
        EXPECT_EQ(different, 0u);
    }
}

TEST(SecretFlow, ChoicesAndGrowth) {
    uint32_t a = 7;
    uint32_t b = 9;
    test::makeSecret({reinterpret_cast<const uint8_t*>(&a), sizeof a});
    test::makeSecret({reinterpret_cast<const uint8_t*>(&b), sizeof b});
    uint32_t smaller = ctSelect(ctIsLess(a, b), a, b);
    std::vector<uint8_t> yes = {1, 2};
    std::vector<uint8_t> no = {3, 4};
    ctCopyIf(ctIsEqual(a, b), no, yes);
    SecureBuffer grown(no);
    grown.resize(1000);
    grown.assign(no);
    test::makePublic({reinterpret_cast<const uint8_t*>(&smaller), sizeof smaller});
    test::makePublic(grown.bytes());
    EXPECT_EQ(smaller, 7u);
    EXPECT_TRUE(grown.equals(std::vector<uint8_t>{3, 4}));
}

}  // namespace
}  // namespace tv
