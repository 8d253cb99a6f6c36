#include "base/crypto/Hash.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "base/CpuFeatures.h"
#include "base/Hex.h"
#include "base/crypto/Md4.h"
#include "tests/unit/base/crypto/FormTest.h"
#include "tests/unit/base/crypto/Peer.h"
#include "tests/unit/base/crypto/Vectors.h"

namespace tv::crypto {
namespace {

using test::bytesOf;

class Sha1Test : public test::FormTest<Sha1Form> {};
class Sha256Test : public test::FormTest<Sha256Form> {};
TV_FOR_EACH_FORM(Sha1Test, Sha1Form);
TV_FOR_EACH_FORM(Sha256Test, Sha256Form);

template <class Digest>
void checkExamples(const std::string& name) {
    int run = 0;
    test::forEachVector("hash", [&](const test::Json& v) {
        if (v["hash"].text() != name) return;
        std::string text = v["text"].text();
        if (v.has("times")) text.assign(static_cast<size_t>(v["times"].number()), text[0]);
        EXPECT_EQ(v["digest"].text(), hexLower(Digest::of(bytesOf(text))));
        ++run;
    });
    EXPECT_GT(run, 0);
}

TEST_P(Sha1Test, PublishedExamples) {
    checkExamples<Sha1>("sha1");
}
TEST_P(Sha256Test, PublishedExamples) {
    checkExamples<Sha256>("sha256");
}
TEST(Hashes, PublishedExamples) {
    checkExamples<Md4>("md4");
    checkExamples<Md5>("md5");
    checkExamples<Sha384>("sha384");
    checkExamples<Sha512>("sha512");
}

// Cutting the input anywhere, and copying the state there, changes nothing.
template <class Digest>
void checkPieces() {
    std::vector<uint8_t> message(3 * Digest::kBlockSize + 5);
    for (size_t i = 0; i < message.size(); ++i) {
        message[i] = static_cast<uint8_t>(i * 7 + 1);
    }
    const std::span<const uint8_t> whole(message);
    const auto expected = Digest::of(whole);
    for (size_t cut = 0; cut <= message.size(); ++cut) {
        Digest digest;
        digest.update(whole.first(cut));
        Digest copy = digest;
        digest.update(whole.subspan(cut));
        EXPECT_EQ(expected, digest.finish()) << cut;
        EXPECT_EQ(Digest::of(whole.first(cut)), copy.finish()) << cut;
        digest.update(whole);  // after finish the object is as new
        EXPECT_EQ(expected, digest.finish()) << cut;
    }
}

TEST(Hashes, InPieces) {
    checkPieces<Md4>();
    checkPieces<Md5>();
    checkPieces<Sha1>();
    checkPieces<Sha256>();
    checkPieces<Sha384>();
    checkPieces<Sha512>();
}

TEST(Hashes, ByName) {
    const std::vector<uint8_t> message = bytesOf("message digest");
    const auto hashed = [&](HashId id) { return hexLower(Hash::of(id, message)); };
    EXPECT_EQ(hexLower(Md5::of(message)), hashed(HashId::kMd5));
    EXPECT_EQ(hexLower(Sha1::of(message)), hashed(HashId::kSha1));
    EXPECT_EQ(hexLower(Sha256::of(message)), hashed(HashId::kSha256));
    EXPECT_EQ(hexLower(Sha384::of(message)), hashed(HashId::kSha384));
    EXPECT_EQ(hexLower(Sha512::of(message)), hashed(HashId::kSha512));
    for (const HashId id : {HashId::kMd5, HashId::kSha1, HashId::kSha256, HashId::kSha384}) {
        EXPECT_EQ(id, Hash(id).id());
        EXPECT_EQ(digestSize(id), Hash::of(id, message).size());
    }
    EXPECT_EQ(64u, hashBlockSize(HashId::kSha256));
    EXPECT_EQ(128u, hashBlockSize(HashId::kSha384));
}

TEST(FormChoice, TheFastestThatTheMachineRuns) {
    const auto chosen = [](const CpuFeatures& allowed) {
        limitCpuFeatures(allowed);
        const std::string names = std::string(sha1Forms.get().name) + " " + sha256Forms.get().name +
                                  " " + aesForms.get().name + " " + gcmForms.get().name + " " +
                                  chaChaForms.get().name;
        unlimitCpuFeatures();
        return names;
    };
    EXPECT_EQ("portable portable portable portable portable", chosen({}));
    const CpuFeatures all = detectedCpuFeatures();
    if (!all.shaNi || !all.aesNi || !all.pclmul || !all.avx512 || !all.vaes || !all.vpclmul) {
        GTEST_SKIP() << "this machine cannot run every form";
    }
    CpuFeatures some = all;
    some.avx512 = some.vaes = false;
    EXPECT_EQ("sha-ni sha-ni aes-ni aes-ni avx2", chosen(some));
    EXPECT_EQ("sha-ni sha-ni aes-ni vaes-avx512 avx512", chosen(all));
}

#ifdef TV_HAVE_LIBCRYPTO

// Our digest against the peer's for every length up to some blocks and some long ones.
template <class Digest>
void compareWithPeer(uint8_t* (*peer)(const uint8_t*, size_t, uint8_t*)) {
    std::mt19937 random(4711);
    std::vector<uint8_t> message(100000);
    for (uint8_t& byte : message) {
        byte = static_cast<uint8_t>(random());
    }
    for (size_t size = 0; size <= message.size(); size += size < 600 ? 1 : 9937) {
        const std::span<const uint8_t> part(message.data() + message.size() - size, size);
        typename Digest::Digest expected;
        peer(part.data(), part.size(), expected.data());
        ASSERT_EQ(expected, Digest::of(part)) << size;
    }
}

TEST_P(Sha1Test, LikeThePeer) {
    compareWithPeer<Sha1>(SHA1);
}
TEST_P(Sha256Test, LikeThePeer) {
    compareWithPeer<Sha256>(SHA256);
}
TEST(Hashes, LikeThePeer) {
    compareWithPeer<Sha384>(SHA384);
    compareWithPeer<Sha512>(SHA512);
    compareWithPeer<Md5>(MD5);
    compareWithPeer<Md4>(MD4);
}

#endif

}  // namespace
}  // namespace tv::crypto
