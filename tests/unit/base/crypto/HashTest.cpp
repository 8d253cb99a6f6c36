#include "base/crypto/Hash.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "base/CpuFeatures.h"
#include "base/Hex.h"
#include "base/crypto/Md4.h"
#include "tests/fixtures/HexBytes.h"
#include "tests/unit/base/crypto/HashForms.h"
#include "tests/unit/base/crypto/Peer.h"

namespace tv::crypto {
namespace {

using test::bytesOf;

const std::string kAlphabet = "abcdefghijklmnopqrstuvwxyz";
const std::string kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ" + kAlphabet + "0123456789";
const std::string kTwoBlocks = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";
const std::string kTwoWideBlocks =
    "abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqr"
    "lmnopqrsmnopqrstnopqrstu";

template <class Digest>
std::string hexOfDigest(const std::string& message) {
    return hexLower(Digest::of(bytesOf(message)));
}

TEST(Md4, Rfc1320) {
    EXPECT_EQ("31d6cfe0d16ae931b73c59d7e0c089c0", hexOfDigest<Md4>(""));
    EXPECT_EQ("bde52cb31de33e46245e05fbdbd6fb24", hexOfDigest<Md4>("a"));
    EXPECT_EQ("a448017aaf21d8525fc10ae87aa6729d", hexOfDigest<Md4>("abc"));
    EXPECT_EQ("d9130a8164549fe818874806e1c7014b", hexOfDigest<Md4>("message digest"));
    EXPECT_EQ("d79e1c308aa5bbcdeea8ed63df412da9", hexOfDigest<Md4>(kAlphabet));
    EXPECT_EQ("043f8582f241db351ce627e153e7f0e4", hexOfDigest<Md4>(kLetters));
}

TEST(Md5, Rfc1321) {
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", hexOfDigest<Md5>(""));
    EXPECT_EQ("0cc175b9c0f1b6a831c399e269772661", hexOfDigest<Md5>("a"));
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", hexOfDigest<Md5>("abc"));
    EXPECT_EQ("f96b697d7cb7938d525a2f31aaf161d0", hexOfDigest<Md5>("message digest"));
    EXPECT_EQ("c3fcd3d76192e4007dfb496cca67e13b", hexOfDigest<Md5>(kAlphabet));
    EXPECT_EQ("d174ab98d277d9f5a5611c2c9f419d9f", hexOfDigest<Md5>(kLetters));
}

class Sha1Test : public test::FormTest<Sha1Form> {};
class Sha256Test : public test::FormTest<Sha256Form> {};
TV_FOR_EACH_FORM(Sha1Test, Sha1Form);
TV_FOR_EACH_FORM(Sha256Test, Sha256Form);

TEST_P(Sha1Test, PublishedExamples) {
    EXPECT_EQ("da39a3ee5e6b4b0d3255bfef95601890afd80709", hexOfDigest<Sha1>(""));
    EXPECT_EQ("a9993e364706816aba3e25717850c26c9cd0d89d", hexOfDigest<Sha1>("abc"));
    EXPECT_EQ("84983e441c3bd26ebaae4aa1f95129e5e54670f1", hexOfDigest<Sha1>(kTwoBlocks));
    EXPECT_EQ("34aa973cd4c4daa4f61eeb2bdbad27316534016f",
              hexOfDigest<Sha1>(std::string(1000000, 'a')));
}

TEST_P(Sha256Test, PublishedExamples) {
    EXPECT_EQ("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855",
              hexOfDigest<Sha256>(""));
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
              hexOfDigest<Sha256>("abc"));
    EXPECT_EQ("248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1",
              hexOfDigest<Sha256>(kTwoBlocks));
    EXPECT_EQ("cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0",
              hexOfDigest<Sha256>(std::string(1000000, 'a')));
}

TEST(Sha384, PublishedExamples) {
    EXPECT_EQ(
        "38b060a751ac96384cd9327eb1b1e36a21fdb71114be07434c0cc7bf63f6e1da274edebfe76f65fbd51ad2f1"
        "4898b95b",
        hexOfDigest<Sha384>(""));
    EXPECT_EQ(
        "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca1"
        "34c825a7",
        hexOfDigest<Sha384>("abc"));
    EXPECT_EQ(
        "09330c33f71147e83d192fc782cd1b4753111b173b3b05d22fa08086e3b0f712fcc7c71a557e2db966c3e9fa"
        "91746039",
        hexOfDigest<Sha384>(kTwoWideBlocks));
}

TEST(Sha512, PublishedExamples) {
    EXPECT_EQ(
        "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a836ba3c23"
        "a3feebbd454d4423643ce80e2a9ac94fa54ca49f",
        hexOfDigest<Sha512>("abc"));
    EXPECT_EQ(
        "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018501d289e4900f7e4331b99de"
        "c4b5433ac7d329eeb6dd26545e96e55b874be909",
        hexOfDigest<Sha512>(kTwoWideBlocks));
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

TEST(Hashes, TheFastestFormTheMachineRunsIsChosen) {
    limitCpuFeatures({});
    EXPECT_STREQ("portable", sha1Forms.get().name);
    EXPECT_STREQ("portable", sha256Forms.get().name);
    unlimitCpuFeatures();
    if (detectedCpuFeatures().shaNi) {
        EXPECT_STREQ("sha-ni", sha1Forms.get().name);
        EXPECT_STREQ("sha-ni", sha256Forms.get().name);
    }
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
TEST(Sha384, LikeThePeer) {
    compareWithPeer<Sha384>(SHA384);
}
TEST(Sha512, LikeThePeer) {
    compareWithPeer<Sha512>(SHA512);
}
TEST(Md5, LikeThePeer) {
    compareWithPeer<Md5>(MD5);
}
TEST(Md4, LikeThePeer) {
    compareWithPeer<Md4>(MD4);
}

#endif

}  // namespace
}  // namespace tv::crypto
