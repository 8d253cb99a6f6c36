// ECDSA on every curve with every form, and RSA.
#include <gtest/gtest.h>

#include "base/Hex.h"
#include "base/crypto/Ecdsa.h"
#include "base/crypto/Rsa.h"
#include "tests/unit/base/crypto/EcForms.h"

namespace tv::crypto {
namespace {

using test::Bytes;
using test::bytesOfHex;
using test::forEachTest;
using test::forEachVector;
using test::Json;
using test::Vector;

Bytes digestOf(HashId hash, const Bytes& message) {
    const DigestBytes digest = Hash::of(hash, message);
    return {digest.data(), digest.data() + digest.size()};
}

class EcdsaTest : public test::EcFormTest {};
INSTANTIATE_TEST_SUITE_P(Curves, EcdsaTest, testing::ValuesIn(test::ecCases()),
                         testing::PrintToStringParamName());

TEST_P(EcdsaTest, vectors) {
    const std::string size = name_.substr(4, 3) == "521" ? "512" : name_.substr(4, 3);
    forEachVector("ecdsa " + name_, files("ecdsa_", "_sha" + size), [&](const Vector& v) {
        const Bytes point = bytesOfHex(v["publicKey"]["uncompressed"].text());
        Bytes signature = v.bytes("sig"), digest = digestOf(v.hash(), v.bytes("msg"));
        const auto verify = [&] { return ecdsaVerify(GetParam().id, point, digest, signature); };
        EXPECT_EQ(v.isValid(), verify());
        if (!v.test.has("private")) return;
        EXPECT_EQ(hexLower(point), hexLower(multiple(v.bytes("private"))));
        digest[0] ^= 1;
        EXPECT_FALSE(verify());
        digest[0] ^= 1;
        signature.back() ^= 1;
        EXPECT_FALSE(verify());
    });
}

// Sums in which equal or opposite points meet, or infinity comes out: the signer's point is a small
// multiple of the base point, and so are both summands.
TEST_P(EcdsaTest, sumsOfRelatedPoints) {
    const MontField& order = weierstrass_.order();
    const auto bytesOfElement = [&](const EcNumber& element) {
        Bytes out(curve_.fieldBytes());
        weierstrass_.put(out.data(), order.leave(element));
        return out;
    };
    std::vector<EcNumber> xs(1);
    for (uint8_t k = 1; k < 126; ++k) {
        const EcNumber x = weierstrass_.number(multiple(small(k)).data() + 1);
        xs.push_back(order.enter(order.reduceOnce(x)));
    }
    for (int factor = -40; factor <= 40; ++factor) {
        if (factor == 0) continue;
        const auto size = static_cast<uint8_t>(std::abs(factor));
        const Bytes point = multiple(factor < 0 ? belowOrder(size) : small(size));
        for (int u1 = 1; u1 < 6; ++u1) {
            for (int u2 = 1; u2 < 4; ++u2) {
                // With s = r / u2 and e = s u1 the factors of the sum come out as u1 and u2.
                const int sum = u1 + u2 * factor;
                const EcNumber r = xs[sum == 0 ? 1 : static_cast<size_t>(std::abs(sum))];
                const EcNumber s = order.mul(r, order.invert(order.enter({Limb(u2)})));
                const EcNumber e = order.mul(s, order.enter({Limb(u1)}));
                EXPECT_EQ(sum != 0, curve_.verify(bytesOfElement(r), bytesOfElement(s),
                                                  bytesOfElement(e), point))
                    << factor << " " << u1 << " " << u2;
            }
        }
    }
}

RsaPublicKey keyOf(const Json& json) {
    RsaPublicKey key;
    EXPECT_TRUE(
        key.set(bytesOfHex(json["modulus"].text()), bytesOfHex(json["publicExponent"].text())));
    return key;
}

// By the scheme that the vector names: a salt is one of PSS.
bool verify(const RsaPublicKey& key, const Vector& v, const Bytes& digest, const Bytes& signature) {
    if (v["sha"].text() == "md5sha1") return key.verifyPkcs1Md5Sha1(digest, signature);
    const bool isPss = v.test.has("sLen") || v.group.has("sLen");
    return isPss ? key.verifyPss(v.hash(), digest, v.number("sLen"), signature)
                 : key.verifyPkcs1(v.hash(), digest, signature);
}

TEST(Rsa, wycheproof) {
    for (const char* file : {"rsa_signature_2048_sha256", "rsa_signature_4096_sha512",
                             "rsa_pss_2048_sha256_mgf1_32"}) {
        forEachTest(test::kWycheproof + file + "_test.json", [](const Vector& v) {
            // "Acceptable" there are names of the hash without its NULL, which are refused here.
            EXPECT_EQ(v.isValid(), verify(keyOf(v["publicKey"]), v,
                                          digestOf(v.hash(), v.bytes("msg")), v.bytes("sig")))
                << v["comment"].text();
        });
    }
}

// Every scheme, hash and size, and what is no signature.
TEST(Rsa, verifiesTheSignedAlone) {
    forEachTest("crypto/rsa.json", [](const Vector& v) {
        const RsaPublicKey key = keyOf(v["publicKey"]);
        const Bytes message = v.bytes("msg"), signature = v.bytes("sig");
        const bool isDouble = v["sha"].text() == "md5sha1";
        Bytes digest = digestOf(isDouble ? HashId::kMd5 : v.hash(), message);
        if (isDouble) {
            const Bytes sha1 = digestOf(HashId::kSha1, message);
            digest.insert(digest.end(), sha1.begin(), sha1.end());
        }
        EXPECT_TRUE(verify(key, v, digest, signature));
        const std::pair<const char*, std::function<void(Bytes&)>> rows[] = {
            {"first bit", [](Bytes& b) { b.front() ^= 0x01; }},
            {"middle bit", [](Bytes& b) { b[b.size() / 2] ^= 0x10; }},
            {"last bit", [](Bytes& b) { b.back() ^= 0x01; }},
            {"a zero in front", [](Bytes& b) { b.insert(b.begin(), 0); }},
            {"a zero behind", [](Bytes& b) { b.push_back(0); }},
            {"one byte short", [](Bytes& b) { b.pop_back(); }},
            {"empty", [](Bytes& b) { b.clear(); }},
            {"zero", [](Bytes& b) { std::ranges::fill(b, 0); }},
            {"one", [](Bytes& b) { std::ranges::fill(b, 0), b.back() = 1; }},
            {"beyond the modulus", [](Bytes& b) { std::ranges::fill(b, 0xff); }},
        };
        for (const auto& [name, change] : rows) {
            Bytes changed = signature;
            change(changed);
            EXPECT_FALSE(verify(key, v, digest, changed)) << name;
        }
        const Bytes shortDigest(digest.begin(), digest.end() - 1);
        EXPECT_FALSE(verify(key, v, shortDigest, signature));
        if (!isDouble && v.test.has("sLen")) {
            EXPECT_FALSE(key.verifyPkcs1(v.hash(), digest, signature));
            for (const size_t salt : {digest.size() - 1, digest.size() + 1, size_t{0}, SIZE_MAX}) {
                EXPECT_FALSE(key.verifyPss(v.hash(), digest, salt, signature)) << salt;
            }
        } else if (!isDouble) {
            EXPECT_FALSE(key.verifyPss(v.hash(), digest, digest.size(), signature));
        }
        digest[0] ^= 1;
        EXPECT_FALSE(verify(key, v, digest, signature));
    });
}

TEST(Rsa, encrypts) {
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
    const auto filling = [](uint8_t byte) {
        return [byte](std::span<uint8_t> out) {
            std::ranges::fill(out, byte);
            return true;
        };
    };
    RsaPublicKey key, none;
    Bytes modulus(256, 0xff);
    ASSERT_TRUE(key.set(modulus, Bytes{3}));
    const struct {
        const char* what;
        size_t message, out;
        RandomSource random;
        bool done;
    } rows[] = {
        {"longest message", 245, 256, filling(1), true},
        {"message too long", 246, 256, filling(1), false},
        {"no room", 245, 255, filling(1), false},
        {"random fails", 0, 256, [](std::span<uint8_t>) { return false; }, false},
        {"zeros alone", 0, 256, filling(0), false},
    };
    for (const auto& row : rows) {
        Bytes out(row.out);
        EXPECT_EQ(row.done, key.encryptPkcs1(Bytes(row.message), row.random, out)) << row.what;
    }
    EXPECT_FALSE(none.encryptPkcs1({}, filling(1), {}));
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
    Bytes widened(100);
    widened.insert(widened.end(), good.begin(), good.end());
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

}  // namespace
}  // namespace tv::crypto
