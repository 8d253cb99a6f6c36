#include <gtest/gtest.h>

#include "base/Hex.h"
#include "base/crypto/Hkdf.h"
#include "tests/fixtures/Wycheproof.h"
#include "tests/unit/base/crypto/HashForms.h"

namespace tv::crypto {
namespace {

using test::bytesOf;
using test::bytesOfHex;
using test::hexOf;
using test::Json;

struct HmacCase {
    const char* name;
    HashId id;
    std::vector<uint8_t> key;
    std::vector<uint8_t> message;
    const char* mac;
};

std::vector<uint8_t> repeated(size_t count, uint8_t byte) {
    return std::vector<uint8_t>(count, byte);
}

TEST(HmacTest, PublishedExamples) {
    const char* const kQuestion = "what do ya want for nothing?";
    const char* const kLongKey = "Test Using Larger Than Block-Size Key - Hash Key First";
    const HmacCase cases[] = {
        {"RFC 2202 2, 1", HashId::kMd5, repeated(16, 0x0b), bytesOf("Hi There"),
         "9294727a3638bb1c13f48ef8158bfc9d"},
        {"RFC 2202 2, 2", HashId::kMd5, bytesOf("Jefe"), bytesOf(kQuestion),
         "750c783e6ab0b503eaa86e310a5db738"},
        {"RFC 2202 2, 6", HashId::kMd5, repeated(80, 0xaa), bytesOf(kLongKey),
         "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd"},
        {"RFC 2202 3, 1", HashId::kSha1, repeated(20, 0x0b), bytesOf("Hi There"),
         "b617318655057264e28bc0b6fb378c8ef146be00"},
        {"RFC 2202 3, 6", HashId::kSha1, repeated(80, 0xaa), bytesOf(kLongKey),
         "aa4ae5e15272d00e95705637ce8a3b55ed402112"},
        {"RFC 4231 1", HashId::kSha256, repeated(20, 0x0b), bytesOf("Hi There"),
         "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
        {"RFC 4231 2", HashId::kSha256, bytesOf("Jefe"), bytesOf(kQuestion),
         "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
        {"RFC 4231 2", HashId::kSha384, bytesOf("Jefe"), bytesOf(kQuestion),
         "af45d2e376484031617f78d2b58a6b1b9c7ef464f5a01b47e42ec3736322445e8e2240ca5e69e2c78b3239ec"
         "fab21649"},
        {"RFC 4231 2", HashId::kSha512, bytesOf("Jefe"), bytesOf(kQuestion),
         "164b7a7bfcf819e2e395fbe73b56e0a387bd64222e831fd610270cd7ea2505549758bf75c05a994a6d034f65"
         "f8f0e6fdcaeab1a34d4a6b4b636e070a38bce737"},
        {"RFC 4231 6", HashId::kSha256, repeated(131, 0xaa), bytesOf(kLongKey),
         "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
        {"RFC 4231 6", HashId::kSha384, repeated(131, 0xaa), bytesOf(kLongKey),
         "4ece084485813e9088d2c63a041bc5b44f9ef1012a2b588f3cd11f05033ac4c60c2ef6ab4030fe8296248df1"
         "63f44952"},
    };
    for (const HmacCase& c : cases) {
        EXPECT_EQ(c.mac, hexLower(Hmac::of(c.id, c.key, c.message))) << c.name;
    }
}

TEST(HmacTest, OneKeyManyMessages) {
    Hmac hmac(HashId::kSha256, bytesOf("key"));
    hmac.update(bytesOf("fir"));
    Hmac copy = hmac;
    hmac.update(bytesOf("st"));
    const auto first = Hmac::of(HashId::kSha256, bytesOf("key"), bytesOf("first"));
    EXPECT_EQ(hexLower(first), hexLower(hmac.finish()));
    hmac.update(bytesOf("second"));
    const auto second = Hmac::of(HashId::kSha256, bytesOf("key"), bytesOf("second"));
    EXPECT_EQ(hexLower(second), hexLower(hmac.finish()));
    copy.update(bytesOf("st"));
    EXPECT_EQ(hexLower(first), hexLower(copy.finish()));
}

TEST(HkdfTest, Rfc5869) {
    std::vector<uint8_t> out(42);
    auto key =
        hkdfExtract(HashId::kSha256, bytesOfHex("000102030405060708090a0b0c"), repeated(22, 0x0b));
    EXPECT_EQ("077709362c2e32df0ddc3f0dc47bba6390b6c73bb50f9c3122ec844ad7c2b3e5", hexLower(key));
    ASSERT_TRUE(hkdfExpand(HashId::kSha256, key, bytesOfHex("f0f1f2f3f4f5f6f7f8f9"), out));
    EXPECT_EQ(
        "3cb25f25faacd57a90434f64d0362f2a2d2d0a90cf1a5a4c5db02d56ecc4c5bf34007208d5b887185865",
        hexLower(out));
    key = hkdfExtract(HashId::kSha256, {}, repeated(22, 0x0b));
    ASSERT_TRUE(hkdfExpand(HashId::kSha256, key, {}, out));
    EXPECT_EQ(
        "8da4e775a563c18f715f802a063c5a31b8a11f5c5ee1879ec3454e5f3c738d2d9d201395faa4b61a96c8",
        hexLower(out));
}

TEST(HkdfTest, NoLongerThan255Digests) {
    std::vector<uint8_t> out(255 * 32 + 1, 0x55);
    EXPECT_FALSE(hkdfExpand(HashId::kSha256, repeated(32, 1), {}, out));
    EXPECT_EQ(std::vector<uint8_t>(out.size(), 0x55), out);
    out.pop_back();
    EXPECT_TRUE(hkdfExpand(HashId::kSha256, repeated(32, 1), {}, out));
    EXPECT_NE(std::vector<uint8_t>(32, 0x55), std::vector<uint8_t>(out.end() - 32, out.end()));
}

// The tag size of the group may be shorter than the MAC: a truncated one.
void checkHmacFile(const char* file, HashId id) {
    const auto count = test::forEachWycheproof(file, [&](const Json& group, const Json& test) {
        const auto mac = Hmac::of(id, hexOf(test, "key"), hexOf(test, "msg"));
        const auto tag = mac.bytes().first(static_cast<size_t>(group["tagSize"].number()) / 8);
        EXPECT_EQ(test["result"].text() == "valid", hexLower(tag) == test["tag"].text());
        return true;
    });
    if (!count) GTEST_SKIP() << "no Wycheproof vectors here";
    test::printCount(file, *count);
}

void checkHkdfFile(const char* file, HashId id) {
    const auto count = test::forEachWycheproof(file, [&](const Json&, const Json& test) {
        const auto key = hkdfExtract(id, hexOf(test, "salt"), hexOf(test, "ikm"));
        std::vector<uint8_t> out(static_cast<size_t>(test["size"].number()));
        const bool done = hkdfExpand(id, key, hexOf(test, "info"), out);
        EXPECT_EQ(test["result"].text() == "valid", done && hexOf(test, "okm") == out);
        return true;
    });
    if (!count) GTEST_SKIP() << "no Wycheproof vectors here";
    test::printCount(file, *count);
}

class Sha1MacTest : public test::FormTest<Sha1Form> {};
class Sha256MacTest : public test::FormTest<Sha256Form> {};
TV_FOR_EACH_FORM(Sha1MacTest, Sha1Form);
TV_FOR_EACH_FORM(Sha256MacTest, Sha256Form);

TEST_P(Sha1MacTest, WycheproofHmac) {
    checkHmacFile("hmac_sha1_test.json", HashId::kSha1);
}
TEST_P(Sha256MacTest, WycheproofHmac) {
    checkHmacFile("hmac_sha256_test.json", HashId::kSha256);
}
TEST(Sha384MacTest, WycheproofHmac) {
    checkHmacFile("hmac_sha384_test.json", HashId::kSha384);
}
TEST_P(Sha256MacTest, WycheproofHkdf) {
    checkHkdfFile("hkdf_sha256_test.json", HashId::kSha256);
}
TEST(Sha384MacTest, WycheproofHkdf) {
    checkHkdfFile("hkdf_sha384_test.json", HashId::kSha384);
}

}  // namespace
}  // namespace tv::crypto
