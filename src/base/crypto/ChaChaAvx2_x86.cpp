// The key stream of ChaCha20 by AVX2. A register holds the same word of eight blocks; for the rest
// of a text, the same row of two.
#include <immintrin.h>

#include "base/crypto/ChaCha_x86.h"

#define TV_TARGET __attribute__((target("avx2")))
#define TV_INLINE TV_TARGET __attribute__((always_inline)) inline

namespace tv::crypto {
namespace {

constexpr size_t kBlockSize = 64;
constexpr size_t kPairBlocks = 2;
constexpr size_t kWideBlocks = 8;

template <int kBits>
TV_INLINE __m256i rotate(__m256i v) {
    if constexpr (kBits == 16 || kBits == 8) {
        // Whole bytes: one shuffle instead of two shifts.
        const __m256i order =
            kBits == 16 ? _mm256_set_epi32(0x0d0c0f0e, 0x09080b0a, 0x05040706, 0x01000302,
                                           0x0d0c0f0e, 0x09080b0a, 0x05040706, 0x01000302)
                        : _mm256_set_epi32(0x0e0d0c0f, 0x0a09080b, 0x06050407, 0x02010003,
                                           0x0e0d0c0f, 0x0a09080b, 0x06050407, 0x02010003);
        return _mm256_shuffle_epi8(v, order);
    } else {
        return _mm256_or_si256(_mm256_slli_epi32(v, kBits), _mm256_srli_epi32(v, 32 - kBits));
    }
}

// a plus b; d takes the sum and turns by kBits.
template <int kBits>
TV_INLINE void step(__m256i& a, __m256i b, __m256i& d) {
    a = _mm256_add_epi32(a, b);
    d = rotate<kBits>(_mm256_xor_si256(d, a));
}

TV_INLINE void quarterRound(__m256i& a, __m256i& b, __m256i& c, __m256i& d) {
    step<16>(a, b, d);
    step<12>(c, d, b);
    step<8>(a, b, d);
    step<7>(c, d, b);
}

TV_INLINE __m256i load256(const uint8_t* p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(p));
}

TV_INLINE void xorHalf(const uint8_t* in, uint8_t* out, size_t at, __m256i stream) {
    _mm256_storeu_si256(reinterpret_cast<__m256i_u*>(out + at),
                        _mm256_xor_si256(load256(in + at), stream));
}

TV_INLINE __m256i loadRow(const uint32_t* row) {
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i_u*>(row)));
}

// One or two blocks; each half of a register belongs to one.
TV_INLINE void applyPair(ChaChaState& state, const uint8_t* in, uint8_t* out, size_t blocks) {
    const __m256i last =
        _mm256_add_epi32(loadRow(&state[12]), _mm256_set_epi32(0, 0, 0, 1, 0, 0, 0, 0));
    __m256i a = loadRow(&state[0]), b = loadRow(&state[4]), c = loadRow(&state[8]), d = last;
    for (int i = 0; i < 10; ++i) {
        quarterRound(a, b, c, d);
        // The diagonals into columns, and back: 39 turns a row by one word, 4e by two, 93 by three.
        b = _mm256_shuffle_epi32(b, 0x39);
        c = _mm256_shuffle_epi32(c, 0x4e);
        d = _mm256_shuffle_epi32(d, 0x93);
        quarterRound(a, b, c, d);
        b = _mm256_shuffle_epi32(b, 0x93);
        c = _mm256_shuffle_epi32(c, 0x4e);
        d = _mm256_shuffle_epi32(d, 0x39);
    }
    a = _mm256_add_epi32(a, loadRow(&state[0]));
    b = _mm256_add_epi32(b, loadRow(&state[4]));
    c = _mm256_add_epi32(c, loadRow(&state[8]));
    d = _mm256_add_epi32(d, last);
    xorHalf(in, out, 0, _mm256_permute2x128_si256(a, b, 0x20));
    xorHalf(in, out, 32, _mm256_permute2x128_si256(c, d, 0x20));
    if (blocks == kPairBlocks) {
        xorHalf(in, out, 64, _mm256_permute2x128_si256(a, b, 0x31));
        xorHalf(in, out, 96, _mm256_permute2x128_si256(c, d, 0x31));
    }
    state[12] += static_cast<uint32_t>(blocks);
}

// Word i of all eight blocks at the start.
TV_INLINE __m256i wordOf(const ChaChaState& state, size_t i) {
    const __m256i v = _mm256_set1_epi32(static_cast<int>(state[i]));
    return i == 12 ? _mm256_add_epi32(v, _mm256_set_epi32(7, 6, 5, 4, 3, 2, 1, 0)) : v;
}

// Four words of one row: register k then holds in half j the row of block 4 j + k.
TV_INLINE void transposeRow(__m256i* w) {
    const __m256i low01 = _mm256_unpacklo_epi32(w[0], w[1]);
    const __m256i high01 = _mm256_unpackhi_epi32(w[0], w[1]);
    const __m256i low23 = _mm256_unpacklo_epi32(w[2], w[3]);
    const __m256i high23 = _mm256_unpackhi_epi32(w[2], w[3]);
    w[0] = _mm256_unpacklo_epi64(low01, low23);
    w[1] = _mm256_unpackhi_epi64(low01, low23);
    w[2] = _mm256_unpacklo_epi64(high01, high23);
    w[3] = _mm256_unpackhi_epi64(high01, high23);
}

TV_INLINE void applyWide(ChaChaState& state, const uint8_t* in, uint8_t* out) {
    __m256i w[16];
#pragma GCC unroll 16
    for (size_t i = 0; i < 16; ++i) {
        w[i] = wordOf(state, i);
    }
    for (int i = 0; i < 10; ++i) {
        quarterRound(w[0], w[4], w[8], w[12]);
        quarterRound(w[1], w[5], w[9], w[13]);
        quarterRound(w[2], w[6], w[10], w[14]);
        quarterRound(w[3], w[7], w[11], w[15]);
        quarterRound(w[0], w[5], w[10], w[15]);
        quarterRound(w[1], w[6], w[11], w[12]);
        quarterRound(w[2], w[7], w[8], w[13]);
        quarterRound(w[3], w[4], w[9], w[14]);
    }
#pragma GCC unroll 16
    for (size_t i = 0; i < 16; ++i) {
        w[i] = _mm256_add_epi32(w[i], wordOf(state, i));
    }
#pragma GCC unroll 4
    for (size_t row = 0; row < 4; ++row) {
        transposeRow(w + 4 * row);
    }
#pragma GCC unroll 4
    for (size_t k = 0; k < 4; ++k) {
        const size_t near = kBlockSize * k, far = kBlockSize * (k + 4);
        xorHalf(in, out, near, _mm256_permute2x128_si256(w[k], w[4 + k], 0x20));
        xorHalf(in, out, near + 32, _mm256_permute2x128_si256(w[8 + k], w[12 + k], 0x20));
        xorHalf(in, out, far, _mm256_permute2x128_si256(w[k], w[4 + k], 0x31));
        xorHalf(in, out, far + 32, _mm256_permute2x128_si256(w[8 + k], w[12 + k], 0x31));
    }
    state[12] += kWideBlocks;
}

}  // namespace

TV_TARGET void applyChaChaAvx2(ChaChaState& state, const uint8_t* in, uint8_t* out, size_t count) {
    for (; count >= kWideBlocks; count -= kWideBlocks) {
        applyWide(state, in, out);
        in += kBlockSize * kWideBlocks;
        out += kBlockSize * kWideBlocks;
    }
    while (count != 0) {
        const size_t n = count < kPairBlocks ? count : kPairBlocks;
        applyPair(state, in, out, n);
        in += kBlockSize * n;
        out += kBlockSize * n;
        count -= n;
    }
}

}  // namespace tv::crypto
