// The hash of GCM by the carry-less multiplication instruction. Blocks are turned round (first byte
// last) and the factors multiplied by x^-1, as in Ghash.h, so that no product needs a shift.
#pragma once

#include "base/crypto/AesGcm.h"
#include "base/crypto/AesRound_x86.h"

#define TV_CLMUL_TARGET __attribute__((target("aes,pclmul,ssse3,sse2")))
#define TV_CLMUL_INLINE TV_CLMUL_TARGET __attribute__((always_inline)) inline

namespace tv::crypto {

// GcmKey::hash holds the factors of the powers of the hash key, the highest first, so that the
// factors of the last n blocks stand together at the end.
constexpr size_t kGcmPowers = 16;

inline const uint64_t* gcmFactors(const GcmKey& key, size_t blocks) {
    return key.hash.data() + 2 * (kGcmPowers - blocks);
}

// Fills GcmKey::hash with the first `count` powers of the key whose encryption of zeros is given.
void makeGcmFactors(GcmKey& key, const uint8_t* encryptedZeros, size_t count);

// Whole blocks into the sum, one after the other.
void hashGcmBlocks(const GcmKey& key, uint8_t* sum, const uint8_t* blocks, size_t count);

// One block through the cipher; the round keys stand `stride` words of 64 bits apart.
void encryptGcmBlock(const AesKey& key, size_t stride, const uint8_t* in, uint8_t* out);

TV_CLMUL_INLINE __m128i turnBlock(__m128i v) {
    return _mm_shuffle_epi8(v, _mm_set_epi32(0x00010203, 0x04050607, 0x08090a0b, 0x0c0d0e0f));
}

// A sum of products that waits for its reduction: 256 bits, the middle ones overlapping.
struct GcmProduct {
    __m128i low, middle, high;
};

TV_CLMUL_INLINE GcmProduct multiplyGcm(__m128i a, __m128i factor) {
    return {
        _mm_clmulepi64_si128(a, factor, 0x00),
        _mm_xor_si128(_mm_clmulepi64_si128(a, factor, 0x01), _mm_clmulepi64_si128(a, factor, 0x10)),
        _mm_clmulepi64_si128(a, factor, 0x11)};
}

TV_CLMUL_INLINE void addGcm(GcmProduct& sum, const GcmProduct& p) {
    sum.low = _mm_xor_si128(sum.low, p.low);
    sum.middle = _mm_xor_si128(sum.middle, p.middle);
    sum.high = _mm_xor_si128(sum.high, p.high);
}

// Folds the lower half upwards in two steps of 64 bits, as ghashMultiply does.
TV_CLMUL_INLINE __m128i reduceGcm(const GcmProduct& p) {
    // The polynomial without its ends, in the turned order of bits: c2 is x + x^2 + x^7 times x^-1.
    const __m128i polynomial = _mm_set_epi32(0, 0, static_cast<int>(0xc2000000), 0);
    const __m128i first = _mm_xor_si128(_mm_xor_si128(p.middle, _mm_shuffle_epi32(p.low, 0x4e)),
                                        _mm_clmulepi64_si128(p.low, polynomial, 0x00));
    return _mm_xor_si128(_mm_xor_si128(p.high, _mm_shuffle_epi32(first, 0x4e)),
                         _mm_clmulepi64_si128(first, polynomial, 0x00));
}

}  // namespace tv::crypto
