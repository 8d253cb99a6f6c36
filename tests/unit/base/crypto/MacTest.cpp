#include <gtest/gtest.h>

#include "base/Hex.h"
#include "base/crypto/Hkdf.h"
#include "tests/unit/base/crypto/FormTest.h"
#include "tests/unit/base/crypto/Vectors.h"

namespace tv::crypto {
namespace {

using test::bytesOf;
using test::hexOf;
using test::Json;

TEST(HmacTest, PublishedExamples) {
    test::forEachVector("hmac", [](const Json& v) {
        EXPECT_EQ(v["mac"].text(), hexLower(Hmac::of(test::hashNamed(v["hash"].text()),
                                                     hexOf(v, "key"), hexOf(v, "message"))));
    });
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

TEST(HkdfTest, PublishedExamples) {
    test::forEachVector("hkdf", [](const Json& v) {
        std::vector<uint8_t> out(hexOf(v, "okm").size());
        const auto key = hkdfExtract(HashId::kSha256, hexOf(v, "salt"), hexOf(v, "ikm"));
        EXPECT_EQ(v["prk"].text(), hexLower(key));
        ASSERT_TRUE(hkdfExpand(HashId::kSha256, key, hexOf(v, "info"), out));
        EXPECT_EQ(v["okm"].text(), hexLower(out));
    });
}

TEST(HkdfTest, NoLongerThan255Digests) {
    std::vector<uint8_t> out(255 * 32 + 1, 0x55);
    const std::vector<uint8_t> key(32, 1);
    EXPECT_FALSE(hkdfExpand(HashId::kSha256, key, {}, out));
    EXPECT_EQ(std::vector<uint8_t>(out.size(), 0x55), out);
    out.pop_back();
    EXPECT_TRUE(hkdfExpand(HashId::kSha256, key, {}, out));
    EXPECT_NE(std::vector<uint8_t>(32, 0x55), std::vector<uint8_t>(out.end() - 32, out.end()));
}

// The tag size of the group may be shorter than the MAC: a truncated one.
void checkFiles(HashId id, const std::string& hash, const char* form) {
    test::runWycheproof("hmac_" + hash + "_test.json", form, [&](const Json& group, const Json& t) {
        const auto mac = Hmac::of(id, hexOf(t, "key"), hexOf(t, "msg"));
        const auto tag = mac.bytes().first(static_cast<size_t>(group["tagSize"].number()) / 8);
        EXPECT_EQ(test::isValid(t), hexLower(tag) == t["tag"].text());
    });
    if (id == HashId::kSha1) return;
    test::runWycheproof("hkdf_" + hash + "_test.json", form, [&](const Json&, const Json& t) {
        const auto key = hkdfExtract(id, hexOf(t, "salt"), hexOf(t, "ikm"));
        std::vector<uint8_t> out(static_cast<size_t>(t["size"].number()));
        const bool done = hkdfExpand(id, key, hexOf(t, "info"), out);
        EXPECT_EQ(test::isValid(t), done && hexOf(t, "okm") == out);
    });
}

class Sha1MacTest : public test::FormTest<Sha1Form> {};
class Sha256MacTest : public test::FormTest<Sha256Form> {};
TV_FOR_EACH_FORM(Sha1MacTest, Sha1Form);
TV_FOR_EACH_FORM(Sha256MacTest, Sha256Form);

TEST_P(Sha1MacTest, Wycheproof) {
    checkFiles(HashId::kSha1, "sha1", GetParam()->name);
}
TEST_P(Sha256MacTest, Wycheproof) {
    checkFiles(HashId::kSha256, "sha256", GetParam()->name);
}
TEST(Sha384MacTest, Wycheproof) {
    checkFiles(HashId::kSha384, "sha384", "portable");
}

}  // namespace
}  // namespace tv::crypto
