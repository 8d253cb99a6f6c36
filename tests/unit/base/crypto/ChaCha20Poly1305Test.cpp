#include "base/crypto/ChaCha20Poly1305.h"

#include <gtest/gtest.h>

#include "base/Hex.h"
#include "base/crypto/Endian.h"
#include "tests/unit/base/crypto/AeadChecks.h"
#include "tests/unit/base/crypto/FormTest.h"
#include "tests/unit/base/crypto/Peer.h"

namespace tv::crypto {
namespace {

using test::AeadCase;
using test::Bytes;
using test::hexOf;
using test::Json;

class ChaChaTest : public test::FormTest<ChaChaForm> {};
TV_FOR_EACH_FORM(ChaChaTest, ChaChaForm);

TEST_P(ChaChaTest, PublishedExamples) {
    test::checkAeadExamples<ChaCha20Poly1305>("chacha20-poly1305");
    test::forEachVector("chacha20", [](const Json& v) {
        ChaChaState state = {0x61707865, 0x3320646e, 0x79622d32, 0x6b206574};
        const Bytes key = hexOf(v, "key"), nonce = hexOf(v, "nonce");
        for (size_t i = 0; i < 8; ++i) {
            state[4 + i] = loadLe<uint32_t>(key.data() + 4 * i);
        }
        state[12] = static_cast<uint32_t>(v["counter"].number());
        for (size_t i = 0; i < 3; ++i) {
            state[13 + i] = loadLe<uint32_t>(nonce.data() + 4 * i);
        }
        Bytes text = hexOf(v, "plain");
        const size_t size = text.size();
        text.resize(128);
        chaChaForms.get().apply(state, text.data(), text.data(), 2);
        text.resize(size);
        EXPECT_EQ(3u, state[12]);
        EXPECT_EQ(v["cipher"].text(), hexLower(text));
    });
    test::forEachVector("poly1305", [](const Json& v) {
        const Bytes text = hexOf(v, "text");
        Poly1305State state;
        Bytes tag(16);
        startPoly1305(state, hexOf(v, "key").data());
        chaChaForms.get().absorb(state, text.data(), text.size() / 16);
        finishPoly1305(state, tag.data());
        EXPECT_EQ(v["tag"].text(), hexLower(tag));
    });
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
