// The hashes in every form, and HMAC and HKDF on them.
#include <gtest/gtest.h>

#include "base/Base64.h"
#include "base/CpuFeatures.h"
#include "base/Hex.h"
#include "base/crypto/Hkdf.h"
#include "base/crypto/Md4.h"
#include "tests/unit/base/crypto/Vectors.h"

#ifdef TV_HAVE_LIBCRYPTO
#include <openssl/evp.h>
#endif

namespace tv::crypto {
namespace {

using test::bytesOf;
using test::forEachVector;
using test::Vector;

template <class Digest>
void checkDigest(const char* name) {
    forEachVector(name, {}, [](const Vector& v) {
        std::string text = v["text"].text();
        if (v.test.has("times")) text.assign(v.number("times"), text[0]);
        EXPECT_EQ(v["digest"].text(), hexLower(Digest::of(bytesOf(text))));
    });
    // Cutting the input anywhere, and copying the state there, changes nothing.
    const test::Bytes large = test::randomBytesOf(100000);
    const std::span<const uint8_t> whole = std::span(large).first(3 * Digest::kBlockSize + 5);
    const auto expected = Digest::of(whole);
    for (size_t cut = 0; cut <= whole.size(); ++cut) {
        Digest digest;
        digest.update(whole.first(cut));
        Digest copy = digest;
        digest.update(whole.subspan(cut));
        EXPECT_EQ(expected, digest.finish()) << cut;
        EXPECT_EQ(Digest::of(whole.first(cut)), copy.finish()) << cut;
        digest.update(whole);  // after finish the object is as new
        EXPECT_EQ(expected, digest.finish()) << cut;
    }
#ifdef TV_HAVE_LIBCRYPTO
    const EVP_MD* peer = std::is_same_v<Digest, Md4> ? nullptr : EVP_get_digestbyname(name);
    for (size_t size = 0; peer && size <= large.size(); size += size < 600 ? 1 : 9937) {
        const auto part = std::span(large).last(size);
        typename Digest::Digest theirs;
        ASSERT_EQ(1, EVP_Digest(part.data(), size, theirs.data(), nullptr, peer, nullptr));
        ASSERT_EQ(theirs, Digest::of(part)) << size;
    }
#endif
}

class Sha1Test : public test::FormTest<Sha1Form> {};
class Sha256Test : public test::FormTest<Sha256Form> {};
TV_FOR_EACH_FORM(Sha1Test, Sha1Form);
TV_FOR_EACH_FORM(Sha256Test, Sha256Form);

TEST_P(Sha1Test, digests) {
    checkDigest<Sha1>("sha1");
}
TEST_P(Sha256Test, digests) {
    checkDigest<Sha256>("sha256");
}
TEST(Hashes, digests) {
    checkDigest<Md4>("md4");
    checkDigest<Md5>("md5");
    checkDigest<Sha384>("sha384");
    checkDigest<Sha512>("sha512");
}

TEST(Hmac, vectors) {
    forEachVector("hmac", {"hmac_sha1", "hmac_sha256", "hmac_sha384"}, [](const Vector& v) {
        std::string mac = hexLower(Hmac::of(v.hash(), v.bytes("key"), v.bytes("msg")));
        if (v.group.has("tagSize")) mac.resize(v.number("tagSize") / 4);
        EXPECT_EQ(v.isValid(), mac == v["tag"].text());
    });
}

TEST(Hkdf, vectors) {
    forEachVector("hkdf", {"hkdf_sha256", "hkdf_sha384"}, [](const Vector& v) {
        const auto key = hkdfExtract(v.hash(), v.bytes("salt"), v.bytes("ikm"));
        EXPECT_TRUE(!v.test.has("prk") || v["prk"].text() == hexLower(key));
        const test::Bytes before(v.number("size"), 0x55);
        test::Bytes out = before;
        EXPECT_EQ(v.isValid(), hkdfExpand(v.hash(), key, v.bytes("info"), out));
        EXPECT_EQ(v.isValid() ? v.bytes("okm") : before, out);
    });
}

TEST(FormChoice, isTheFastestThatTheMachineRuns) {
    const auto chosen = [](const CpuFeatures& allowed) {
        limitCpuFeatures(allowed);
        std::string names = base64Forms.get().name;
        for (const char* name : {sha1Forms.get().name, sha256Forms.get().name, aesForms.get().name,
                                 gcmForms.get().name, chaChaForms.get().name}) {
            names += std::string(" ") + name;
        }
        unlimitCpuFeatures();
        return names;
    };
    EXPECT_EQ("portable portable portable portable portable portable", chosen({}));
    CpuFeatures all = detectedCpuFeatures();
    if (!all.shaNi || !all.aesNi || !all.pclmul || !all.avx512Vbmi || !all.vaes || !all.vpclmul) {
        GTEST_SKIP() << "this machine cannot run every form";
    }
    EXPECT_EQ("avx512-vbmi sha-ni sha-ni aes-ni vaes-avx512 avx512", chosen(all));
    all.avx512 = all.vaes = all.avx512Vbmi = false;
    EXPECT_EQ("avx2 sha-ni sha-ni aes-ni aes-ni avx2", chosen(all));
    EXPECT_EQ("ssse3 portable portable portable portable portable", chosen({.ssse3 = true}));
}

}  // namespace
}  // namespace tv::crypto
