#include "base/crypto/ChaCha20Poly1305.h"

#include <gtest/gtest.h>

#include "base/CpuFeatures.h"
#include "base/Hex.h"
#include "tests/unit/base/crypto/AeadChecks.h"
#include "tests/unit/base/crypto/ChaChaForms.h"
#include "tests/unit/base/crypto/Peer.h"

namespace tv::crypto {
namespace {

using test::AeadCase;
using test::Bytes;
using test::bytesOf;
using test::bytesOfHex;

class ChaChaTest : public test::FormTest<ChaChaForm> {};
TV_FOR_EACH_FORM(ChaChaTest, ChaChaForm);

TEST_P(ChaChaTest, KeyStreamOfRfc8439) {  // 2.4.2
    ChaChaState state = {0x61707865, 0x3320646e, 0x79622d32, 0x6b206574, 0x03020100, 0x07060504,
                         0x0b0a0908, 0x0f0e0d0c, 0x13121110, 0x17161514, 0x1b1a1918, 0x1f1e1d1c,
                         1,          0,          0x4a000000, 0};
    Bytes text = bytesOf(
        "Ladies and Gentlemen of the class of '99: If I could offer you only one tip for the "
        "future, "
        "sunscreen would be it.");
    const size_t size = text.size();
    text.resize(128);
    chaChaForms.get().apply(state, text.data(), text.data(), 2);
    text.resize(size);
    EXPECT_EQ(3u, state[12]);
    EXPECT_EQ(
        "6e2e359a2568f98041ba0728dd0d6981e97e7aec1d4360c20a27afccfd9fae0bf91b65c5524733ab8f593dabcd"
        "62"
        "b3571639d624e65152ab8f530c359f0861d807ca0dbf500d6a6156a38e088a22b65e52bc514d16ccf806818ce9"
        "1a"
        "b77937365af90bbf74a35be6b40b8eedf2785e42874d",
        hexLower(text));
}

TEST_P(ChaChaTest, AeadOfRfc8439) {  // 2.8.2
    test::checkAead<ChaCha20Poly1305>(
        {bytesOfHex("808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9f"),
         bytesOfHex("070000004041424344454647"), bytesOfHex("50515253c0c1c2c3c4c5c6c7"),
         bytesOf("Ladies and Gentlemen of the class of '99: If I could offer you only one tip for "
                 "the future, sunscreen would be it."),
         bytesOfHex(
             "d31a8d34648e60db7b86afbc53ef7ec2a4aded51296e08fea9e2b5a736ee62d63dbea45e8ca9671282"
             "fafb69da92728b1a71de0a9e060b2905d6a5b67ecd3b3692ddbd7f2d778b8c9803aee328091b58fab3"
             "24e4fad675945585808b4831d7bc3ff4def08e4b7a9de576d26586cec64b6116"),
         bytesOfHex("1ae10b594f09e26a7e902ecbd0600691")});
}

// RFC 8439 A.3: sums at the edges of the modulus, where a carry is easily lost.
TEST_P(ChaChaTest, Poly1305OfRfc8439) {
    struct {
        int number;
        const char *key, *text, *tag;
    } const cases[] = {
        {7, "0200000000000000000000000000000000000000000000000000000000000000",
         "ffffffffffffffffffffffffffffffff", "03000000000000000000000000000000"},
        {8, "02000000000000000000000000000000ffffffffffffffffffffffffffffffff",
         "02000000000000000000000000000000", "03000000000000000000000000000000"},
        {9, "0100000000000000000000000000000000000000000000000000000000000000",
         "fffffffffffffffffffffffffffffffff0ffffffffffffffffffffffffffffff"
         "11000000000000000000000000000000",
         "05000000000000000000000000000000"},
        {10, "0100000000000000000000000000000000000000000000000000000000000000",
         "fffffffffffffffffffffffffffffffffbfefefefefefefefefefefefefefefe"
         "01010101010101010101010101010101",
         "00000000000000000000000000000000"},
        {11, "0200000000000000000000000000000000000000000000000000000000000000",
         "fdffffffffffffffffffffffffffffff", "faffffffffffffffffffffffffffffff"},
        {12, "0100000000000000040000000000000000000000000000000000000000000000",
         "e33594d7505e43b900000000000000003394d7505e4379cd0100000000000000"
         "0000000000000000000000000000000001000000000000000000000000000000",
         "14000000000000005500000000000000"},
    };
    for (const auto& c : cases) {
        const Bytes text = bytesOfHex(c.text);
        Poly1305State state;
        Bytes tag(16);
        startPoly1305(state, bytesOfHex(c.key).data());
        chaChaForms.get().absorb(state, text.data(), text.size() / 16);
        finishPoly1305(state, tag.data());
        EXPECT_EQ(c.tag, hexLower(tag)) << c.number;
    }
}

// Forms that take many blocks at once against the one that takes them singly: extreme limbs, all
// counts, sums that stand already.
TEST_P(ChaChaTest, Poly1305LikeTheSimpleOne) {
    std::mt19937 random(6);
    for (size_t i = 0; i < 400; ++i) {
        Bytes key = test::randomBytesOf(random, 32), text = test::randomBytesOf(random, 16 * i);
        if (i % 3 == 0) std::fill(text.begin(), text.end(), 0xff);
        if (i % 4 == 0) std::fill(key.begin(), key.end(), 0xff);
        const size_t cut = i == 0 ? 0 : random() % i;
        Poly1305State simple, state;
        Bytes expected(16), tag(16);
        startPoly1305(simple, key.data());
        absorbPoly1305(simple, text.data(), i);
        finishPoly1305(simple, expected.data());
        startPoly1305(state, key.data());
        chaChaForms.get().absorb(state, text.data(), cut);
        chaChaForms.get().absorb(state, text.data() + 16 * cut, i - cut);
        finishPoly1305(state, tag.data());
        ASSERT_EQ(expected, tag) << i << " blocks, cut at " << cut;
    }
}

TEST_P(ChaChaTest, KeyStreamLikeTheSimpleOne) {
    std::mt19937 random(7);
    for (size_t blocks = 0; blocks < 70; ++blocks) {
        const Bytes in = test::randomBytesOf(random, 64 * blocks);
        Bytes expected(in.size()), out(in.size());
        ChaChaState state;
        for (uint32_t& word : state) {
            word = static_cast<uint32_t>(random());
        }
        if (blocks % 2) state[12] = 0xfffffffeu - static_cast<uint32_t>(blocks / 4);  // wraps
        ChaChaState simple = state;
        kChaChaPortable.apply(simple, in.data(), expected.data(), blocks);
        chaChaForms.get().apply(state, in.data(), out.data(), blocks);
        ASSERT_EQ(expected, out) << blocks;
        ASSERT_EQ(simple, state) << blocks;
    }
}

TEST_P(ChaChaTest, Wycheproof) {
    test::checkAeadFile<ChaCha20Poly1305>("chacha20_poly1305_test.json", GetParam()->name);
}

TEST_P(ChaChaTest, EveryBitCounts) {
    test::checkEveryBitCounts<ChaCha20Poly1305>(32);
}

TEST(ChaChaChoice, TheFastestFormTheMachineRunsIsChosen) {
    const CpuFeatures all = detectedCpuFeatures();
    limitCpuFeatures({});
    EXPECT_STREQ("portable", chaChaForms.get().name);
    CpuFeatures some;
    some.sse2 = some.avx = some.avx2 = true;
    limitCpuFeatures(some);
    if (all.avx2) {
        EXPECT_STREQ("avx2", chaChaForms.get().name);
    }
    unlimitCpuFeatures();
    if (all.avx512) {
        EXPECT_STREQ("avx512", chaChaForms.get().name);
    }
}

#ifdef TV_HAVE_LIBCRYPTO

TEST_P(ChaChaTest, LikeThePeer) {
    std::mt19937 random(8);
    for (size_t i = 0; i < 1700; ++i) {
        AeadCase c;
        c.key = test::randomBytesOf(random, 32);
        c.nonce = test::randomBytesOf(random, 12);
        c.additional = test::randomBytesOf(random, random() % 40);
        c.plain = test::randomBytesOf(random, i < 1600 ? i : random() % 20000);
        SCOPED_TRACE(c.plain.size());
        test::checkAead<ChaCha20Poly1305>(test::sealedByPeer(EVP_chacha20_poly1305(), c));
        if (HasFailure()) return;
    }
}

#endif

}  // namespace
}  // namespace tv::crypto
