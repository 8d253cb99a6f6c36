// RSA, and Diffie-Hellman over finite fields.
#include <gtest/gtest.h>

#include "base/Hex.h"
#include "base/crypto/Dhe.h"
#include "base/crypto/Rsa.h"
#include "tests/fixtures/StackResidue.h"
#include "tests/unit/base/crypto/Vectors.h"

namespace tv::crypto {
namespace {

using test::Bytes;
using test::bytesOfHex;
using test::Json;
using test::repeating;
using test::Vector;

RsaPublicKey keyOf(const Json& json) {
    RsaPublicKey key;
    EXPECT_TRUE(
        key.set(bytesOfHex(json["modulus"].text()), bytesOfHex(json["publicExponent"].text())));
    return key;
}

// Every scheme, hash and size in our file; what is no signature, above all in the others.
TEST(Rsa, verifiesAsPublished) {
    const auto check = [](const Vector& v) {
        const RsaPublicKey key = keyOf(v["publicKey"]);
        const bool isDouble = v["sha"].text() == "md5sha1";
        const bool isPss = v.test.has("sLen") || v.group.has("sLen");
        const auto verify = [&](const Bytes& digest, const Bytes& signature) {
            if (isDouble) return key.verifyPkcs1Md5Sha1(digest, signature);
            return isPss ? key.verifyPss(v.hash(), digest, v.number("sLen"), signature)
                         : key.verifyPkcs1(v.hash(), digest, signature);
        };
        Bytes digest = v.digest(), signature = v.bytes("sig");
        // "Acceptable" there are names of the hash without its NULL, which are refused here.
        EXPECT_EQ(v.isValid(), verify(digest, signature));
        if (!v.isValid()) return;
        EXPECT_FALSE(verify(Bytes(digest.begin(), digest.end() - 1), signature));
        EXPECT_FALSE(verify(Bytes(digest.rbegin(), digest.rend()), signature));
        EXPECT_TRUE(isPss || !key.verifyPss(v.hash(), digest, digest.size(), signature));
        EXPECT_FALSE(isPss && key.verifyPkcs1(v.hash(), digest, signature));
        for (const size_t salt : {digest.size() - 1, digest.size() + 1, size_t{0}, SIZE_MAX}) {
            EXPECT_FALSE(isPss && key.verifyPss(v.hash(), digest, salt, signature)) << salt;
        }
        signature.back() ^= 1;
        EXPECT_FALSE(verify(digest, signature));
        signature.pop_back();
        EXPECT_FALSE(verify(digest, signature));
    };
    test::forEachTest("crypto/rsa.json", check);
    for (const char* file : {"rsa_signature_2048_sha256", "rsa_signature_4096_sha512",
                             "rsa_pss_2048_sha256_mgf1_32"}) {
        test::forEachTest(test::kWycheproof + file + "_test.json", check);
    }
}

TEST(Rsa, encryptsAsPublished) {
    const Json file = Json::load(testDataPath("crypto/rsa.json")).value();
    for (const Json& group : file["testGroups"].items()) {
        const RsaPublicKey key = keyOf(group["publicKey"]);
        // Counts 1 .. 255 and again; a zero every third byte at first, which must be drawn anew.
        int draws = 0, value = 0;
        const auto random = [&](std::span<uint8_t> out) {
            ++draws;
            for (size_t i = 0; i < out.size(); ++i) {
                out[i] = draws == 1 ? static_cast<uint8_t>(i % 3 == 0 ? 0 : i % 255 + 1)
                                    : static_cast<uint8_t>(3 * value++ % 255 + 1);
            }
            return true;
        };
        Bytes out(key.bytes());
        const Json& row = group["encryption"];
        ASSERT_TRUE(key.encryptPkcs1(bytesOfHex(row["message"].text()), random, out));
        EXPECT_EQ(row["result"].text(), hexLower(out)) << key.bits();
        EXPECT_EQ(2, draws);
    }
}

TEST(Rsa, refusesToEncrypt) {
    RsaPublicKey key, none;
    ASSERT_TRUE(key.set(Bytes(256, 0xff), Bytes{3}));
    const struct {
        const char* what;
        size_t message, out;
        RandomSource random;
        bool done;
    } rows[] = {
        {"longest message", 245, 256, repeating({1}), true},
        {"message too long", 246, 256, repeating({1}), false},
        {"no room", 245, 255, repeating({1}), false},
        {"random fails", 0, 256, repeating({}), false},
        {"zeros alone", 0, 256, repeating({0}), false},
    };
    for (const auto& row : rows) {
        Bytes out(row.out);
        EXPECT_EQ(row.done, key.encryptPkcs1(Bytes(row.message), row.random, out)) << row.what;
    }
    EXPECT_FALSE(none.encryptPkcs1({}, repeating({1}), {}));
    EXPECT_FALSE(none.verifyPkcs1(HashId::kSha256, Bytes(32), {}));
    EXPECT_FALSE(none.verifyPss(HashId::kSha256, Bytes(32), 32, {}));
}

TEST(Rsa, limitsOfKeys) {
    const auto number = [](size_t bits, uint8_t last) {
        Bytes bytes((bits + 7) / 8);
        bytes[0] = static_cast<uint8_t>(1 << ((bits - 1) % 8));
        bytes.back() |= last;
        return bytes;
    };
    const Bytes good = number(2048, 1), megabytes(5'000'000, 0xff);
    Bytes widened(100 + good.size());
    std::ranges::copy(good, widened.begin() + 100);
    const struct {
        const char* what;
        Bytes modulus, exponent;
        bool taken;
    } rows[] = {
        {"65537", good, {1, 0, 1}, true},
        {"3", good, {3}, true},
        {"2^32 - 1", good, {0xff, 0xff, 0xff, 0xff}, true},
        {"leading zeros", widened, {0, 0, 0, 0, 0, 0, 0, 0, 3}, true},
        {"512 bits", number(512, 1), {3}, true},
        {"8192 bits", number(8192, 1), {3}, true},
        {"511 bits", number(511, 1), {3}, false},
        {"8193 bits", number(8193, 1), {3}, false},
        {"megabytes", megabytes, {3}, false},
        {"even modulus", number(2048, 2), {3}, false},
        {"no modulus", {}, {3}, false},
        {"exponent 0", good, {0}, false},
        {"no exponent", good, {}, false},
        {"exponent 1", good, {1}, false},
        {"even exponent", good, {4}, false},
        {"exponent 2^32 + 1", good, {1, 0, 0, 0, 1}, false},
        {"huge exponent", good, megabytes, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.taken, RsaPublicKey().set(row.modulus, row.exponent)) << row.what;
    }
}

TEST(Dhe, agreesAsPublished) {
    test::forEachVector("dhe", {}, [](const Vector& v) {
        Dhe dhe;
        ASSERT_EQ(Dhe::Check::Ok, dhe.setServerParams(v.bytes("p"), v.bytes("g"), v.bytes("ys")));
        ASSERT_TRUE(dhe.generate(repeating(v.bytes("random"))));
        EXPECT_EQ(v["public"].text(), hexLower(dhe.publicValue()));
        SecureBuffer secret, stripped;
        ASSERT_TRUE(dhe.derive(secret) && dhe.deriveStripped(stripped));
        std::string expected = v["secret"].text();
        EXPECT_EQ(expected, hexLower(secret.bytes()));
        while (expected.starts_with("00")) {
            expected.erase(0, 2);
        }
        EXPECT_EQ(expected, hexLower(stripped.bytes()));
    });
}

TEST(Dhe, checksTheServersNumbers) {
    using Check = Dhe::Check;
    const Bytes p(96, 0xff), g{2}, ys{5}, wide(100'000, 0x01);
    const auto less = [&](uint8_t n) {
        Bytes bytes = p;
        bytes.back() = static_cast<uint8_t>(bytes.back() - n);
        return bytes;
    };
    Bytes small = p, above(97);
    small[0] = 0x7f;
    above[0] = 1;
    const struct {
        const char* what;
        Bytes p, g, ys;
        Check expected;
    } rows[] = {
        {"as it should be", p, g, ys, Check::Ok},
        {"Ys 0", p, g, {0}, Check::BadPeerKey},
        {"Ys empty", p, g, {}, Check::BadPeerKey},
        {"Ys 1", p, g, {1}, Check::BadPeerKey},
        {"Ys 2", p, g, {2}, Check::Ok},
        {"Ys p - 2", p, g, less(2), Check::Ok},
        {"Ys p - 1", p, g, less(1), Check::BadPeerKey},
        {"Ys p", p, g, p, Check::BadPeerKey},
        {"Ys p + 1", p, g, above, Check::BadPeerKey},
        {"Ys far too long", p, g, wide, Check::BadPeerKey},
        {"g 0", p, {0}, ys, Check::BadGroup},
        {"g 1", p, {1}, ys, Check::BadGroup},
        {"g p - 1", p, less(1), ys, Check::BadGroup},
        {"g p", p, p, ys, Check::BadGroup},
        {"g far too long", p, wide, ys, Check::BadGroup},
        {"p even", less(1), g, ys, Check::BadGroup},
        {"p 767 bits", small, g, ys, Check::GroupTooSmall},
        {"p empty", {}, g, ys, Check::GroupTooSmall},
        {"p 8193 bits", Bytes(1025, 0x01), g, ys, Check::GroupTooLarge},
        {"p far too long", wide, g, ys, Check::GroupTooLarge},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.expected, Dhe().setServerParams(row.p, row.g, row.ys)) << row.what;
    }
}

// Nothing without a key, and no secret of one: modulo 2^768 - 1, no prime, 2^384 has order two.
TEST(Dhe, givesNoWorthlessSecret) {
    Bytes p(96, 0xff), ys(96);
    ys[47] = 1;
    Dhe dhe;
    SecureBuffer secret;
    ASSERT_EQ(Dhe::Check::Ok, dhe.setServerParams(p, Bytes{2}, ys));
    EXPECT_EQ(768u, dhe.bits());
    EXPECT_FALSE(dhe.generate(repeating({})));
    EXPECT_FALSE(dhe.derive(secret) || dhe.deriveStripped(secret));
    ASSERT_TRUE(dhe.generate(repeating({0x42})));
    EXPECT_FALSE(dhe.derive(secret) || dhe.deriveStripped(secret));
}

#ifndef __SANITIZE_ADDRESS__
TEST(Dhe, noSecretStaysOnTheStack) {
    Dhe dhe;
    ASSERT_EQ(Dhe::Check::Ok, dhe.setServerParams(Bytes(96, 0xff), Bytes{2}, Bytes{5}));
    Bytes key(32);
    SecureBuffer secret;
    const RandomSource random = [&key](std::span<uint8_t> out) {
        std::ranges::copy(key, out.begin());
        return true;
    };
    EXPECT_EQ(0u,
              test::stackResidue([&](size_t i) { std::ranges::fill(key, uint8_t(77 + i)); },
                                 [&] { EXPECT_TRUE(dhe.generate(random) && dhe.derive(secret)); }));
}
#endif

}  // namespace
}  // namespace tv::crypto
