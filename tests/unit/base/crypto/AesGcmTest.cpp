#include "base/crypto/AesGcm.h"

#include <gtest/gtest.h>

#include "base/crypto/Endian.h"
#include "tests/unit/base/crypto/AeadChecks.h"
#include "tests/unit/base/crypto/FormTest.h"
#include "tests/unit/base/crypto/Peer.h"

namespace tv::crypto {
namespace {

using test::AeadCase;
using test::Bytes;

class AesGcmTest : public test::FormTest<GcmForm> {};
TV_FOR_EACH_FORM(AesGcmTest, GcmForm);

TEST_P(AesGcmTest, PublishedExamples) {
    test::checkAeadExamples<AesGcm>("aes-gcm");
}

TEST_P(AesGcmTest, Wycheproof) {
    test::checkAeadFile<AesGcm>("aes_gcm_test.json", GetParam()->name);
}

TEST_P(AesGcmTest, EveryBitCounts) {
    test::checkEveryBitCounts<AesGcm>(16);
    test::checkEveryBitCounts<AesGcm>(32);
}

// The counter of 32 bits wraps to zero without a carry, wherever in a batch that happens.
TEST_P(AesGcmTest, CounterWraps) {
    std::mt19937 random(3);
    const Bytes key = test::randomBytesOf(random, 16);
    const Bytes plain = test::randomBytesOf(random, 16 * 100);
    GcmKey portableKey, thisKey;
    kGcmPortable.expand(portableKey, key);
    const GcmForm& form = gcmForms.get();
    form.expand(thisKey, key);
    for (uint32_t before = 0; before < 99; ++before) {
        GcmState expectedState{}, state{};
        storeBe(expectedState.counter.data() + 12, 0u - before);
        state = expectedState;
        Bytes expected(plain.size()), cipher(plain.size()), back(plain.size());
        kGcmPortable.encrypt(portableKey, expectedState, plain.data(), expected.data(), 100);
        GcmState backState = state;
        form.encrypt(thisKey, state, plain.data(), cipher.data(), 100);
        form.decrypt(thisKey, backState, cipher.data(), back.data(), 100);
        ASSERT_EQ(expected, cipher) << before;
        ASSERT_EQ(plain, back) << before;
        for (const GcmState* s : {&state, &backState}) {
            ASSERT_EQ(expectedState.counter, s->counter) << before;
            ASSERT_EQ(expectedState.sum, s->sum) << before;
        }
    }
}

#ifdef TV_HAVE_LIBCRYPTO

TEST_P(AesGcmTest, LikeThePeer) {
    std::mt19937 random(4);
    const EVP_CIPHER* const ciphers[] = {EVP_aes_128_gcm(), EVP_aes_192_gcm(), EVP_aes_256_gcm()};
    for (size_t i = 0; i < 1300; ++i) {
        AeadCase c;
        c.key = test::randomBytesOf(random, 16 + i % 3 * 8);
        c.nonce = test::randomBytesOf(random, i % 5 ? 12 : 1 + random() % 40);
        c.additional = test::randomBytesOf(random, random() % 40);
        // Every length up to some batches of the widest form, then some long ones.
        c.plain = test::randomBytesOf(random, i < 1200 ? i : random() % 20000);
        SCOPED_TRACE(c.plain.size());
        test::checkAead<AesGcm>(test::sealedByPeer(ciphers[i % 3], c));
        if (HasFailure()) return;
    }
}

#endif

}  // namespace
}  // namespace tv::crypto
