// Curves, RSA and Diffie-Hellman against libcrypto on random input.
#include <gtest/gtest.h>

#include "tests/unit/base/crypto/Peer.h"

#ifdef TV_HAVE_LIBCRYPTO
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/ecdsa.h>
#include <openssl/objects.h>
#include <openssl/rsa.h>

#include <memory>

#include "base/Hex.h"
#include "base/crypto/Dhe.h"
#include "base/crypto/Ecdh.h"
#include "base/crypto/Ecdsa.h"
#include "base/crypto/Rsa.h"
#include "tests/unit/base/crypto/EcCases.h"
#include "tests/unit/base/crypto/RandomForTests.h"

namespace tv::crypto {
namespace {

struct Free {
    void operator()(BIGNUM* p) const { BN_clear_free(p); }
    void operator()(BN_CTX* p) const { BN_CTX_free(p); }
    void operator()(EC_KEY* p) const { EC_KEY_free(p); }
    void operator()(EC_POINT* p) const { EC_POINT_free(p); }
    void operator()(RSA* p) const { RSA_free(p); }
};
template <class T>
using Owned = std::unique_ptr<T, Free>;
using Bytes = std::vector<uint8_t>;

Owned<BIGNUM> numberOf(std::span<const uint8_t> bytes) {
    return Owned<BIGNUM>(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
}

Bytes bytesOfNumber(const BIGNUM* n, size_t size) {
    Bytes out(size);
    EXPECT_EQ(static_cast<int>(size), BN_bn2binpad(n, out.data(), static_cast<int>(size)));
    return out;
}

Bytes randomOf(test::SeededRandom& random, size_t size) {
    Bytes out(size);
    random(out);
    return out;
}

int nidOf(std::string_view curve) {
    return curve == "secp256r1" ? NID_X9_62_prime256v1 : OBJ_sn2nid(curve.data());
}

class PeerCurveTest : public test::EcFormTest {
protected:
    Bytes pointOf(const EC_POINT* point) {
        Bytes out(curve_.pointBytes());
        EXPECT_EQ(out.size(), EC_POINT_point2oct(group(), point, POINT_CONVERSION_UNCOMPRESSED,
                                                 out.data(), out.size(), nullptr));
        return out;
    }
    const EC_GROUP* group() const { return EC_KEY_get0_group(key_.get()); }

    Owned<EC_KEY> key_{EC_KEY_new_by_curve_name(nidOf(GetParam().name))};
};
INSTANTIATE_TEST_SUITE_P(Curves, PeerCurveTest, testing::ValuesIn(test::ecCases()),
                         test::ecCaseName);

TEST_P(PeerCurveTest, MultipliesAlike) {
    test::SeededRandom random(11);
    const Owned<EC_POINT> point(EC_POINT_new(group()));
    for (int i = 0; i < 40; ++i) {
        EcdhKey ours(GetParam().id), peer(GetParam().id);
        ASSERT_TRUE(peer.generate(random));
        Bytes scalar;
        do {
            scalar = randomOf(random, curve_.fieldBytes());
            // Few bits, long runs of ones and zeros, or none of that.
            if (i % 4 == 1) std::fill(scalar.begin(), scalar.end() - 3, uint8_t{0});
            if (i % 4 == 2) std::fill(scalar.begin() + 1, scalar.end() - 9, uint8_t{0xff});
            if (GetParam().id == EcCurveId::kSecp521r1) scalar[0] &= 1;
        } while (!ours.setPrivate(scalar));
        const Owned<BIGNUM> number = numberOf(scalar);
        EC_POINT_mul(group(), point.get(), number.get(), nullptr, nullptr, nullptr);
        EXPECT_EQ(hexLower(pointOf(point.get())), hexLower(ours.publicPoint()));

        EC_POINT_oct2point(group(), point.get(), peer.publicPoint().data(),
                           peer.publicPoint().size(), nullptr);
        EC_POINT_mul(group(), point.get(), nullptr, point.get(), number.get(), nullptr);
        const Bytes expected = pointOf(point.get());
        SecureBuffer secret;
        ASSERT_TRUE(ours.derive(secret, peer.publicPoint()));
        EXPECT_EQ(hexLower(std::span(expected).subspan(1, curve_.fieldBytes())),
                  hexLower(secret.bytes()))
            << hexLower(scalar);
    }
}

TEST_P(PeerCurveTest, ScalarsNextToTheOrder) {
    const BIGNUM* order = EC_GROUP_get0_order(group());
    const Owned<EC_POINT> point(EC_POINT_new(group()));
    const Owned<BIGNUM> number(BN_new());
    for (unsigned below = 1; below < 70; ++below) {
        BN_copy(number.get(), order);
        BN_sub_word(number.get(), below);
        EcdhKey ours(GetParam().id);
        ASSERT_TRUE(ours.setPrivate(bytesOfNumber(number.get(), curve_.fieldBytes())));
        EC_POINT_mul(group(), point.get(), number.get(), nullptr, nullptr, nullptr);
        EXPECT_EQ(hexLower(pointOf(point.get())), hexLower(ours.publicPoint())) << below;
    }
    EcdhKey ours(GetParam().id);
    EXPECT_FALSE(ours.setPrivate(bytesOfNumber(order, curve_.fieldBytes())));
}

TEST_P(PeerCurveTest, VerifiesItsSignatures) {
    test::SeededRandom random(12);
    for (const size_t digestSize : {20U, 32U, 48U, 64U}) {
        for (int i = 0; i < 10; ++i) {
            ASSERT_EQ(1, EC_KEY_generate_key(key_.get()));
            const Bytes point = pointOf(EC_KEY_get0_public_key(key_.get()));
            Bytes digest = randomOf(random, digestSize);
            Bytes signature(static_cast<size_t>(ECDSA_size(key_.get())));
            unsigned size = 0;
            ASSERT_EQ(1, ECDSA_sign(0, digest.data(), static_cast<int>(digest.size()),
                                    signature.data(), &size, key_.get()));
            signature.resize(size);
            EXPECT_TRUE(ecdsaVerify(GetParam().id, point, digest, signature));
            digest[0] ^= 1;
            EXPECT_FALSE(ecdsaVerify(GetParam().id, point, digest, signature));
            digest[0] ^= 1;
            signature.back() ^= 1;
            EXPECT_FALSE(ecdsaVerify(GetParam().id, point, digest, signature));
        }
    }
}

// Sums in which equal or opposite points meet, or infinity comes out.
TEST_P(PeerCurveTest, SumsOfRelatedPoints) {
    const BIGNUM* order = EC_GROUP_get0_order(group());
    const Owned<BN_CTX> context(BN_CTX_new());
    const Owned<BIGNUM> k(BN_new()), a(BN_new()), b(BN_new()), r(BN_new()), e(BN_new());
    const Owned<EC_POINT> point(EC_POINT_new(group())), total(EC_POINT_new(group()));
    const size_t size = curve_.fieldBytes();
    int infinities = 0;
    for (int factor = -40; factor <= 40; ++factor) {
        if (factor == 0) continue;
        // The signer's point is factor * base point; u1 and u2 are small.
        BN_set_word(k.get(), static_cast<BN_ULONG>(std::abs(factor)));
        if (factor < 0) BN_sub(k.get(), order, k.get());
        EC_POINT_mul(group(), point.get(), k.get(), nullptr, nullptr, context.get());
        for (unsigned u1 = 1; u1 < 6; ++u1) {
            for (unsigned u2 = 1; u2 < 4; ++u2) {
                BN_set_word(a.get(), u1);
                BN_set_word(b.get(), u2);
                EC_POINT_mul(group(), total.get(), a.get(), point.get(), b.get(), context.get());
                // With s = r / u2 and e = s u1 the two factors come out as u1 and u2.
                const bool infinity = EC_POINT_is_at_infinity(group(), total.get()) == 1;
                infinities += infinity;
                BN_one(r.get());
                if (!infinity) {
                    EC_POINT_get_affine_coordinates(group(), total.get(), r.get(), nullptr,
                                                    context.get());
                    BN_nnmod(r.get(), r.get(), order, context.get());
                }
                BN_mod_inverse(b.get(), b.get(), order, context.get());
                BN_mod_mul(b.get(), b.get(), r.get(), order, context.get());
                BN_mod_mul(e.get(), b.get(), a.get(), order, context.get());
                EXPECT_EQ(!infinity,
                          curve_.verify(bytesOfNumber(r.get(), size), bytesOfNumber(b.get(), size),
                                        bytesOfNumber(e.get(), size), pointOf(point.get())))
                    << factor << " " << u1 << " " << u2;
            }
        }
    }
    EXPECT_GT(infinities, 0);
}

TEST(PeerRsaTest, VerifiesAndEncrypts) {
    test::SeededRandom random(13);
    const Owned<BIGNUM> e(BN_new());
    for (const int bits : {512, 1000, 1024, 1537, 2048}) {
        for (const unsigned exponent : {3U, 17U, 65537U, 4294967295U}) {
            const Owned<RSA> rsa(RSA_new());
            BN_set_word(e.get(), exponent);
            if (RSA_generate_key_ex(rsa.get(), bits, e.get(), nullptr) != 1) continue;
            const auto size = static_cast<size_t>(RSA_size(rsa.get()));
            RsaPublicKey key;
            ASSERT_TRUE(key.set(bytesOfNumber(RSA_get0_n(rsa.get()), size),
                                bytesOfNumber(RSA_get0_e(rsa.get()), 4)));
            const Bytes digest = randomOf(random, 20);
            Bytes signature(size), message(size), clear(size);
            unsigned length = 0;
            ASSERT_EQ(1,
                      RSA_sign(NID_sha1, digest.data(), 20, signature.data(), &length, rsa.get()));
            EXPECT_TRUE(key.verifyPkcs1(HashId::kSha1, digest, signature)) << bits << exponent;

            const Bytes secret = randomOf(random, 48);
            ASSERT_TRUE(key.encryptPkcs1(secret, random, message));
            ASSERT_EQ(48, RSA_private_decrypt(static_cast<int>(size), message.data(), clear.data(),
                                              rsa.get(), RSA_PKCS1_PADDING));
            clear.resize(48);
            EXPECT_EQ(secret, clear) << bits << exponent;
        }
    }
}

TEST(PeerDheTest, PowersOfRandomModuli) {
    test::SeededRandom random(14);
    const Owned<BN_CTX> context(BN_CTX_new());
    for (int i = 0; i < 30; ++i) {
        // Sizes at and around whole words; runs of ones make the division guess wrong.
        Bytes p = randomOf(random, 96 + static_cast<size_t>(i));
        p.front() |= 0x80;
        p.back() |= 1;
        if (i % 3 == 0) std::fill(p.begin(), p.begin() + 50, uint8_t{0xff});
        if (i % 3 == 1) std::fill(p.begin() + 1, p.begin() + 50, uint8_t{0});
        Bytes y = p;
        y.front() &= 0x7f;
        random(std::span(y).subspan(20));
        const Bytes exponent = randomOf(random, 32);
        Dhe dhe;
        ASSERT_EQ(Dhe::Check::Ok, dhe.setServerParams(p, Bytes{2}, y));
        ASSERT_TRUE(dhe.generate([&](std::span<uint8_t> out) {
            std::copy(exponent.begin(), exponent.end(), out.begin());
            return true;
        }));
        SecureBuffer secret;
        ASSERT_TRUE(dhe.derive(secret));
        Bytes used = exponent;
        used[0] |= 0x80;
        const Owned<BIGNUM> expected(BN_new());
        BN_mod_exp(expected.get(), numberOf(y).get(), numberOf(used).get(), numberOf(p).get(),
                   context.get());
        EXPECT_EQ(hexLower(bytesOfNumber(expected.get(), p.size())), hexLower(secret.bytes()));
    }
}

}  // namespace
}  // namespace tv::crypto

#endif
