#include "base/crypto/X25519.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/Hex.h"
#include "tests/fixtures/StackResidue.h"
#include "tests/unit/base/crypto/FormTest.h"
#include "tests/unit/base/crypto/Peer.h"
#include "tests/unit/base/crypto/RandomForTests.h"
#include "tests/unit/base/crypto/Vectors.h"

namespace tv::crypto {
namespace {

using test::hexOf;
using test::Json;
using Value = std::array<uint8_t, kX25519Size>;

Value valueOf(std::span<const uint8_t> bytes) {
    Value value{};
    EXPECT_EQ(value.size(), bytes.size());
    std::copy_n(bytes.begin(), std::min(bytes.size(), value.size()), value.begin());
    return value;
}

class X25519Test : public test::FormTest<X25519Form> {};
TV_FOR_EACH_FORM(X25519Test, X25519Form);

TEST_P(X25519Test, PublishedExamples) {
    test::forEachVector("x25519", [](const Json& v) {
        Value out;
        EXPECT_TRUE(x25519(out, valueOf(hexOf(v, "scalar")), valueOf(hexOf(v, "u"))));
        EXPECT_EQ(v["result"].text(), hexLower(out));
    });
}

TEST_P(X25519Test, Rfc7748Iterated) {
    Value k{9}, u{9};
    for (int i = 1; i <= 1000; ++i) {
        Value out;
        ASSERT_TRUE(x25519(out, k, u));
        u = k;
        k = out;
        if (i == 1) {
            EXPECT_EQ("422c8e7a6227d7bca1350b3e2bb7279f7897b87bb6854b783c60e80311ae3079",
                      hexLower(k));
        }
    }
    EXPECT_EQ("684cf59ba83309552800ef566f2f4d3c1c3887c49360e3875f2eb94d99532c51", hexLower(k));
}

// A key is fresh, and both sides of an exchange agree on one secret.
TEST_P(X25519Test, TwoKeysAgree) {
    X25519Key a, b;
    ASSERT_TRUE(a.generate(test::SeededRandom(1)));
    ASSERT_TRUE(b.generate(test::SeededRandom(2)));
    EXPECT_FALSE(std::ranges::equal(a.publicValue(), b.publicValue()));
    Value ab, ba;
    EXPECT_TRUE(a.derive(ab, b.publicValue()));
    EXPECT_TRUE(b.derive(ba, a.publicValue()));
    EXPECT_EQ(ab, ba);
}

TEST_P(X25519Test, Wycheproof) {
    Value out;
    x25519Public(out, Value{1});  // the form's proof where there are no vectors
    test::runWycheproof("x25519_test.json", GetParam()->name, [&](const Json&, const Json& t) {
        const Value expected = valueOf(hexOf(t, "shared"));
        EXPECT_EQ(expected != Value{},
                  x25519(out, valueOf(hexOf(t, "private")), valueOf(hexOf(t, "public"))));
        EXPECT_EQ(expected, out);
    });
}

#ifndef __SANITIZE_ADDRESS__  // under it the stack is larger and laid out otherwise
TEST_P(X25519Test, NoSecretStaysOnTheStack) {
    Value secret, out;
    EXPECT_EQ(test::stackResidue([&](size_t i) { secret.fill(static_cast<uint8_t>(77 + i)); },
                                 [&] { x25519Public(out, secret); }),
              0u);
}
#endif

TEST(X25519KeyTest, RandomFailureLeavesNoKey) {
    X25519Key key;
    EXPECT_FALSE(key.generate([](std::span<uint8_t>) { return false; }));
}

#ifdef TV_HAVE_LIBCRYPTO
TEST_P(X25519Test, AgreesWithLibcrypto) {
    test::SeededRandom random(3);
    for (int i = 0; i < 300; ++i) {
        Value secret, peer, expected, out;
        random(secret);
        random(peer);
        // Values around the modulus among them.
        if (i % 4 == 0) std::fill(peer.begin() + 1, peer.end() - 1, uint8_t{0xff});
        EVP_PKEY* ours =
            EVP_PKEY_new_raw_private_key(EVP_PKEY_X25519, nullptr, secret.data(), secret.size());
        EVP_PKEY* theirs =
            EVP_PKEY_new_raw_public_key(EVP_PKEY_X25519, nullptr, peer.data(), peer.size());
        EVP_PKEY_CTX* context = EVP_PKEY_CTX_new(ours, nullptr);
        size_t size = expected.size();
        ASSERT_EQ(1, EVP_PKEY_derive_init(context));
        ASSERT_EQ(1, EVP_PKEY_derive_set_peer(context, theirs));
        ASSERT_EQ(1, EVP_PKEY_derive(context, expected.data(), &size));
        EVP_PKEY_CTX_free(context);
        EVP_PKEY_free(theirs);
        EVP_PKEY_free(ours);
        EXPECT_TRUE(x25519(out, secret, peer));
        EXPECT_EQ(expected, out) << hexLower(secret) << " * " << hexLower(peer);
    }
}
#endif

}  // namespace
}  // namespace tv::crypto
