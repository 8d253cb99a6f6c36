#include "base/crypto/Rsa.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "base/Hex.h"
#include "tests/unit/base/crypto/RandomForTests.h"
#include "tests/unit/base/crypto/Vectors.h"

namespace tv::crypto {
namespace {

using test::bytesOf;
using test::bytesOfHex;
using test::hashNamed;
using test::hexOf;
using test::Json;

RsaPublicKey keyOf(std::span<const uint8_t> modulus, std::span<const uint8_t> exponent) {
    RsaPublicKey key;
    EXPECT_TRUE(key.set(modulus, exponent));
    return key;
}

// A signature of the data file, with what it signs.
struct Signed {
    RsaPublicKey key;
    std::string scheme;
    HashId hash = HashId::kSha256;
    std::vector<uint8_t> digest;
    std::vector<uint8_t> signature;

    bool verify() const { return verify(signature); }
    bool verify(std::span<const uint8_t> other) const {
        if (scheme == "md5sha1") return key.verifyPkcs1Md5Sha1(digest, other);
        if (scheme == "pss") return key.verifyPss(hash, digest, digest.size(), other);
        return key.verifyPkcs1(hash, digest, other);
    }
};

const Json& dataFile() {
    static const Json data = *Json::load(testDataPath("crypto/rsa.json"));
    return data;
}

std::vector<Signed> signedMessages() {
    std::vector<Signed> all;
    for (const Json& key : dataFile()["keys"].items()) {
        for (const Json& s : key["signatures"].items()) {
            Signed one;
            one.key = keyOf(hexOf(key, "modulus"), hexOf(key, "exponent"));
            one.scheme = s["scheme"].text();
            one.signature = hexOf(s, "signature");
            const std::vector<uint8_t> message = bytesOf(s["message"].text());
            const auto append = [&](HashId id) {
                const DigestBytes digest = Hash::of(id, message);
                one.digest.insert(one.digest.end(), digest.data(), digest.data() + digest.size());
            };
            if (one.scheme == "md5sha1") {
                append(HashId::kMd5);
                append(HashId::kSha1);
            } else {
                one.hash = hashNamed(s["hash"].text());
                append(one.hash);
            }
            all.push_back(one);
        }
    }
    return all;
}

std::string describe(const Signed& s) {
    return s.scheme + " " + std::to_string(s.key.bits()) + " bits, digest of " +
           std::to_string(s.digest.size());
}

TEST(RsaTest, VerifiesEverySchemeHashAndSize) {
    const std::vector<Signed> all = signedMessages();
    EXPECT_EQ(48U, all.size());
    for (const Signed& s : all) {
        EXPECT_TRUE(s.verify()) << describe(s);
    }
}

TEST(RsaTest, RefusesEveryChangedSignature) {
    for (const Signed& s : signedMessages()) {
        const struct {
            const char* what;
            std::function<void(std::vector<uint8_t>&)> change;
        } cases[] = {
            {"first bit", [](auto& b) { b.front() ^= 0x01; }},
            {"middle bit", [](auto& b) { b[b.size() / 2] ^= 0x10; }},
            {"last bit", [](auto& b) { b.back() ^= 0x01; }},
            {"a zero in front", [](auto& b) { b.insert(b.begin(), 0); }},
            {"a zero behind", [](auto& b) { b.push_back(0); }},
            {"one byte short", [](auto& b) { b.pop_back(); }},
            {"empty", [](auto& b) { b.clear(); }},
            {"zero", [](auto& b) { std::ranges::fill(b, 0); }},
            {"one", [](auto& b) { std::ranges::fill(b, 0), b.back() = 1; }},
            {"beyond the modulus", [](auto& b) { std::ranges::fill(b, 0xff); }},
        };
        for (const auto& c : cases) {
            std::vector<uint8_t> changed = s.signature;
            c.change(changed);
            EXPECT_FALSE(s.verify(changed)) << describe(s) << ": " << c.what;
        }
        Signed other = s;
        other.digest[0] ^= 1;
        EXPECT_FALSE(other.verify()) << describe(s) << ": another digest";
        other = s;
        other.digest.pop_back();
        EXPECT_FALSE(other.verify()) << describe(s) << ": a short digest";
        other = s;
        other.scheme = s.scheme == "pss" ? "pkcs1" : "pss";
        EXPECT_FALSE(other.verify()) << describe(s) << ": taken for the other scheme";
    }
}

TEST(RsaTest, PssAsksForItsSaltLength) {
    for (const Signed& s : signedMessages()) {
        if (s.scheme != "pss") continue;
        EXPECT_FALSE(s.key.verifyPss(s.hash, s.digest, s.digest.size() - 1, s.signature));
        EXPECT_FALSE(s.key.verifyPss(s.hash, s.digest, s.digest.size() + 1, s.signature));
        EXPECT_FALSE(s.key.verifyPss(s.hash, s.digest, 0, s.signature));
        EXPECT_FALSE(s.key.verifyPss(s.hash, s.digest, SIZE_MAX, s.signature));
    }
}

TEST(RsaTest, EncryptsAsComputedByHand) {
    for (const Json& key : dataFile()["keys"].items()) {
        const RsaPublicKey rsa = keyOf(hexOf(key, "modulus"), hexOf(key, "exponent"));
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
        std::vector<uint8_t> out(rsa.bytes());
        ASSERT_TRUE(rsa.encryptPkcs1(hexOf(key["encryption"], "message"), random, out));
        EXPECT_EQ(key["encryption"]["result"].text(), hexLower(out)) << rsa.bits();
        EXPECT_EQ(2, draws);
    }
}

TEST(RsaTest, EncryptionRefuses) {
    const Json& key = dataFile()["keys"].items().front();
    const RsaPublicKey rsa = keyOf(hexOf(key, "modulus"), hexOf(key, "exponent"));
    std::vector<uint8_t> out(rsa.bytes()), shortOut(rsa.bytes() - 1), message(rsa.bytes() - 11);
    EXPECT_TRUE(rsa.encryptPkcs1(message, test::SeededRandom(1), out));
    EXPECT_FALSE(rsa.encryptPkcs1(message, test::SeededRandom(1), shortOut));
    message.push_back(0);
    EXPECT_FALSE(rsa.encryptPkcs1(message, test::SeededRandom(1), out));
    EXPECT_FALSE(rsa.encryptPkcs1(
        {}, [](std::span<uint8_t>) { return false; }, out));
    const auto zeros = [](std::span<uint8_t> bytes) {
        std::ranges::fill(bytes, 0);
        return true;
    };
    EXPECT_FALSE(rsa.encryptPkcs1({}, zeros, out));
    RsaPublicKey none;
    EXPECT_FALSE(none.encryptPkcs1({}, test::SeededRandom(1), {}));
}

TEST(RsaTest, LimitsOfKeys) {
    const auto number = [](size_t bits, uint8_t last) {
        std::vector<uint8_t> bytes((bits + 7) / 8);
        bytes[0] = static_cast<uint8_t>(1 << ((bits - 1) % 8));
        bytes.back() |= last;
        return bytes;
    };
    const auto widened = [](std::vector<uint8_t> bytes) {
        bytes.insert(bytes.begin(), 100, 0);
        return bytes;
    };
    const std::vector<uint8_t> good = number(2048, 1);
    const struct {
        const char* what;
        std::vector<uint8_t> modulus, exponent;
        bool taken;
    } cases[] = {
        {"65537", good, bytesOfHex("010001"), true},
        {"3", good, bytesOfHex("03"), true},
        {"2^32 - 1", good, bytesOfHex("ffffffff"), true},
        {"leading zeros", widened(good), widened({3}), true},
        {"512 bits", number(512, 1), {3}, true},
        {"8192 bits", number(8192, 1), {3}, true},
        {"511 bits", number(511, 1), {3}, false},
        {"8193 bits", number(8193, 1), {3}, false},
        {"megabytes", std::vector<uint8_t>(5'000'000, 0xff), {3}, false},
        {"even modulus", number(2048, 2), {3}, false},
        {"no modulus", {}, {3}, false},
        {"exponent 0", good, {0}, false},
        {"no exponent", good, {}, false},
        {"exponent 1", good, {1}, false},
        {"even exponent", good, {4}, false},
        {"exponent 2^32 + 1", good, bytesOfHex("0100000001"), false},
        {"huge exponent", good, std::vector<uint8_t>(5'000'000, 0xff), false},
    };
    for (const auto& c : cases) {
        RsaPublicKey key;
        EXPECT_EQ(c.taken, key.set(c.modulus, c.exponent)) << c.what;
    }
    RsaPublicKey none;
    EXPECT_FALSE(none.verifyPkcs1(HashId::kSha256, std::vector<uint8_t>(32), {}));
    EXPECT_FALSE(none.verifyPss(HashId::kSha256, std::vector<uint8_t>(32), 32, {}));
}

TEST(RsaTest, Wycheproof) {
    for (const char* file :
         {"rsa_signature_2048_sha256_test.json", "rsa_signature_4096_sha512_test.json",
          "rsa_pss_2048_sha256_mgf1_32_test.json"}) {
        test::runWycheproof(file, "portable", [](const Json& group, const Json& t) {
            const HashId hash = hashNamed(group["sha"].text());
            const Json& k = group["publicKey"];
            const RsaPublicKey key = keyOf(hexOf(k, "modulus"), hexOf(k, "publicExponent"));
            const DigestBytes digest = Hash::of(hash, hexOf(t, "msg"));
            const std::vector<uint8_t> signature = hexOf(t, "sig");
            // "Acceptable" there are names of the hash without its NULL, which are refused here.
            const bool taken =
                group.has("sLen")
                    ? key.verifyPss(hash, digest, static_cast<size_t>(group["sLen"].number()),
                                    signature)
                    : key.verifyPkcs1(hash, digest, signature);
            EXPECT_EQ(test::isValid(t), taken) << t["comment"].text();
        });
    }
}

}  // namespace
}  // namespace tv::crypto
