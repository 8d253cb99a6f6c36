#include "base/crypto/AesGcm.h"

#include <gtest/gtest.h>

#include "base/CpuFeatures.h"
#include "base/crypto/Endian.h"
#include "tests/unit/base/crypto/AeadChecks.h"
#include "tests/unit/base/crypto/AesForms.h"
#include "tests/unit/base/crypto/Peer.h"

namespace tv::crypto {
namespace {

using test::AeadCase;
using test::Bytes;
using test::bytesOfHex;

class AesGcmTest : public test::FormTest<GcmForm> {};
TV_FOR_EACH_FORM(AesGcmTest, GcmForm);

TEST_P(AesGcmTest, PublishedExamples) {  // of the submission to NIST, by its numbers
    const char* const kZeros16 = "00000000000000000000000000000000";
    const char* const kZeros32 = "0000000000000000000000000000000000000000000000000000000000000000";
    const char* const kKey16 = "feffe9928665731c6d6a8f9467308308";
    const char* const kKey32 = "feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308";
    const char* const kText60 =
        "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf0e2449"
        "a6"
        "b525b16aedf5aa0de657ba637b39";
    const char* const kText64 =
        "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf0e2449"
        "a6"
        "b525b16aedf5aa0de657ba637b391aafd255";
    const char* const kAdditional = "feedfacedeadbeeffeedfacedeadbeefabaddad2";
    struct {
        int number;
        const char *key, *nonce, *additional, *plain, *cipher, *tag;
    } const cases[] = {
        {1, kZeros16, "000000000000000000000000", "", "", "", "58e2fccefa7e3061367f1d57a4e7455a"},
        {2, kZeros16, "000000000000000000000000", "", kZeros16, "0388dace60b6a392f328c2b971b2fe78",
         "ab6e47d42cec13bdf53a67b21257bddf"},
        {3, kKey16, "cafebabefacedbaddecaf888", "", kText64,
         "42831ec2217774244b7221b784d0d49ce3aa212f2c02a4e035c17e2329aca12e21d514b25466931c7d8f6a5aa"
         "c84"
         "aa051ba30b396a0aac973d58e091473f5985",
         "4d5c2af327cd64a62cf35abd2ba6fab4"},
        {4, kKey16, "cafebabefacedbaddecaf888", kAdditional, kText60,
         "42831ec2217774244b7221b784d0d49ce3aa212f2c02a4e035c17e2329aca12e21d514b25466931c7d8f6a5aa"
         "c84"
         "aa051ba30b396a0aac973d58e091",
         "5bc94fbc3221a5db94fae95ae7121a47"},
        {5, kKey16, "cafebabefacedbad", kAdditional, kText60,
         "61353b4c2806934a777ff51fa22a4755699b2a714fcdc6f83766e5f97b6c742373806900e49f24b22b097544d"
         "489"
         "6b424989b5e1ebac0f07c23f4598",
         "3612d2e79e3b0785561be14aaca2fccb"},
        {13, kZeros32, "000000000000000000000000", "", "", "", "530f8afbc74536b9a963b4f1c4cb738b"},
        {14, kZeros32, "000000000000000000000000", "", kZeros16, "cea7403d4d606b6e074ec5d3baf39d18",
         "d0d1c8a799996bf0265b98b5d48ab919"},
        {16, kKey32, "cafebabefacedbaddecaf888", kAdditional, kText60,
         "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8cb08e48590dbb3da7b08b105"
         "682"
         "8838c5f61e6393ba7a0abcc9f662",
         "76fc6ece0f4e1768cddf8853bb2d551b"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.number);
        test::checkAead<AesGcm>({bytesOfHex(c.key), bytesOfHex(c.nonce), bytesOfHex(c.additional),
                                 bytesOfHex(c.plain), bytesOfHex(c.cipher), bytesOfHex(c.tag)});
    }
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

TEST(AesGcmChoice, TheFastestFormTheMachineRunsIsChosen) {
    const CpuFeatures all = detectedCpuFeatures();
    limitCpuFeatures({});
    EXPECT_STREQ("portable", gcmForms.get().name);
    CpuFeatures some;
    some.sse2 = some.ssse3 = some.aesNi = some.pclmul = true;
    limitCpuFeatures(some);
    if (all.aesNi && all.pclmul) {
        EXPECT_STREQ("aes-ni", gcmForms.get().name);
    }
    unlimitCpuFeatures();
    if (all.avx512 && all.vaes && all.vpclmul) {
        EXPECT_STREQ("vaes-avx512", gcmForms.get().name);
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
