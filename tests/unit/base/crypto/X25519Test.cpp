#include "base/crypto/X25519.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/Hex.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/fixtures/Wycheproof.h"
#include "tests/unit/base/crypto/CurveForms.h"
#include "tests/unit/base/crypto/Peer.h"
#include "tests/unit/base/crypto/RandomForTests.h"

namespace tv::crypto {
namespace {

using test::bytesOfHex;
using test::hexOf;
using test::Json;
using Value = std::array<uint8_t, kX25519Size>;

Value valueOf(std::span<const uint8_t> bytes) {
    Value value{};
    EXPECT_EQ(value.size(), bytes.size());
    std::copy_n(bytes.begin(), std::min(bytes.size(), value.size()), value.begin());
    return value;
}

Value valueOfHex(std::string_view hex) {
    return valueOf(bytesOfHex(hex));
}

class X25519Test : public test::FormTest<X25519Form> {};
TV_FOR_EACH_FORM(X25519Test, X25519Form);

TEST_P(X25519Test, Rfc7748Section5) {
    struct {
        const char *scalar, *u, *result;
    } const cases[] = {
        {"a546e36bf0527c9d3b16154b82465edd62144c0ac1fc5a18506a2244ba449ac4",
         "e6db6867583030db3594c1a424b15f7c726624ec26b3353b10a903a6d0ab1c4c",
         "c3da55379de9c6908e94ea4df28d084f32eccf03491c71f754b4075577a28552"},
        {"4b66e9d4d1b4673c5ad22691957d6af5c11b6421e0ea01d42ca4169e7918ba0d",
         "e5210f12786811d3f4b7959d0538ae2c31dbe7106fc03c3efc4cd549c715a493",
         "95cbde9476e8907d7aade45cb4b873f88b595a68799fa152e6f8f7647aac7957"},
    };
    for (const auto& c : cases) {
        Value out;
        EXPECT_TRUE(x25519(out, valueOfHex(c.scalar), valueOfHex(c.u)));
        EXPECT_EQ(c.result, hexLower(out));
    }
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

TEST_P(X25519Test, Rfc7748Section6) {
    const Value alice =
        valueOfHex("77076d0a7318a57d3c16c17251b26645df4c2f87ebc0992ab177fba51db92c2a");
    Value value;
    x25519Public(value, alice);
    EXPECT_EQ("8520f0098930a754748b7ddcb43ef75a0dbf3a0d26381af4eba4a98eaa9b4e6a", hexLower(value));
    const Value bob =
        valueOfHex("de9edb7d7b7dc1b4d35b61c2ece435373f8343c85b78674dadfc7e146f882b4f");
    EXPECT_TRUE(x25519(value, alice, bob));
    EXPECT_EQ("4a5d9d5ba4ce2de1728e3bf480350f25e07e21c947d19e3376f09b3c1e161742", hexLower(value));
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
    const auto count =
        test::forEachWycheproof("x25519_test.json", [](const Json& /*group*/, const Json& test) {
            const Value secret = valueOf(hexOf(test, "private"));
            const Value expected = valueOf(hexOf(test, "shared"));
            Value out;
            const bool usable = x25519(out, secret, valueOf(hexOf(test, "public")));
            EXPECT_EQ(expected, out);
            EXPECT_EQ(expected != Value{}, usable);
            return true;
        });
    if (!count) {
        Value out;
        x25519Public(out, Value{1});
        GTEST_SKIP() << "no vectors beside the repository";
    }
    test::printCount(std::string("x25519_test.json, form ") + GetParam()->name, *count);
}

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
