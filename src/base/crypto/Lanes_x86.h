// Four 64-bit numbers side by side, in one register of AVX2 or two of SSE2, with the few operations
// that field arithmetic needs. Lane 0 is the first. What Fe25.h says of its V holds for these.
#pragma once

#include <immintrin.h>

#include <cstdint>

namespace tv::crypto {
namespace {

#define TV_LANES_FN(isa) [[maybe_unused]] __attribute__((always_inline, target(isa))) static inline

struct Sse2Lanes {
    __m128i lo, hi;

    TV_LANES_FN("sse2") Sse2Lanes all(uint64_t n) {
        const __m128i v = _mm_set_epi32(static_cast<int>(n >> 32), static_cast<int>(n),
                                        static_cast<int>(n >> 32), static_cast<int>(n));
        return {v, v};
    }
    TV_LANES_FN("sse2") Sse2Lanes load(const uint64_t* p) {
        return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)),
                _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + 2))};
    }
    TV_LANES_FN("sse2") void store(uint64_t* p, Sse2Lanes a) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p), a.lo);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(p + 2), a.hi);
    }
    TV_LANES_FN("sse2") Sse2Lanes mul(Sse2Lanes a, Sse2Lanes b) {
        return {_mm_mul_epu32(a.lo, b.lo), _mm_mul_epu32(a.hi, b.hi)};
    }
    template <int n>
    TV_LANES_FN("sse2")
    Sse2Lanes shl(Sse2Lanes a) {
        return {_mm_slli_epi64(a.lo, n), _mm_slli_epi64(a.hi, n)};
    }
    template <int n>
    TV_LANES_FN("sse2")
    Sse2Lanes shr(Sse2Lanes a) {
        return {_mm_srli_epi64(a.lo, n), _mm_srli_epi64(a.hi, n)};
    }
    // Lane i of the result is lane L<i> of a.
    template <int L0, int L1, int L2, int L3>
    TV_LANES_FN("sse2")
    Sse2Lanes permute(Sse2Lanes a) {
        return {pair<L0, L1>(a, a), pair<L2, L3>(a, a)};
    }
    // Lane i is b's where bit i of the mask is set, else a's.
    template <int mask>
    TV_LANES_FN("sse2")
    Sse2Lanes blend(Sse2Lanes a, Sse2Lanes b) {
        return {shuffle<2>((mask & 1) != 0 ? b.lo : a.lo, (mask & 2) != 0 ? b.lo : a.lo),
                shuffle<2>((mask & 4) != 0 ? b.hi : a.hi, (mask & 8) != 0 ? b.hi : a.hi)};
    }

    TV_LANES_FN("sse2") Sse2Lanes add(Sse2Lanes a, Sse2Lanes b) {
        return {_mm_add_epi64(a.lo, b.lo), _mm_add_epi64(a.hi, b.hi)};
    }
    TV_LANES_FN("sse2") Sse2Lanes sub(Sse2Lanes a, Sse2Lanes b) {
        return {_mm_sub_epi64(a.lo, b.lo), _mm_sub_epi64(a.hi, b.hi)};
    }
    TV_LANES_FN("sse2") Sse2Lanes both(Sse2Lanes a, Sse2Lanes b) {
        return {_mm_and_si128(a.lo, b.lo), _mm_and_si128(a.hi, b.hi)};
    }
    TV_LANES_FN("sse2") Sse2Lanes differ(Sse2Lanes a, Sse2Lanes b) {
        return {_mm_xor_si128(a.lo, b.lo), _mm_xor_si128(a.hi, b.hi)};
    }

private:
    // Lane 0 of a or lane 1 of a, then the same of b, by the bits of `which`.
    template <int which>
    TV_LANES_FN("sse2")
    __m128i shuffle(__m128i a, __m128i b) {
        return _mm_castpd_si128(_mm_shuffle_pd(_mm_castsi128_pd(a), _mm_castsi128_pd(b), which));
    }
    template <int first, int second>
    TV_LANES_FN("sse2")
    __m128i pair(Sse2Lanes a, Sse2Lanes b) {
        return shuffle<(first & 1) | (second & 1) << 1>(first < 2 ? a.lo : a.hi,
                                                        second < 2 ? b.lo : b.hi);
    }
};

struct Avx2Lanes {
    __m256i v;

    TV_LANES_FN("avx2") Avx2Lanes all(uint64_t n) {
        return {_mm256_set1_epi64x(static_cast<int64_t>(n))};
    }
    TV_LANES_FN("avx2") Avx2Lanes load(const uint64_t* p) {
        return {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p))};
    }
    TV_LANES_FN("avx2") void store(uint64_t* p, Avx2Lanes a) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), a.v);
    }
    TV_LANES_FN("avx2") Avx2Lanes mul(Avx2Lanes a, Avx2Lanes b) {
        return {_mm256_mul_epu32(a.v, b.v)};
    }
    template <int n>
    TV_LANES_FN("avx2")
    Avx2Lanes shl(Avx2Lanes a) {
        return {_mm256_slli_epi64(a.v, n)};
    }
    template <int n>
    TV_LANES_FN("avx2")
    Avx2Lanes shr(Avx2Lanes a) {
        return {_mm256_srli_epi64(a.v, n)};
    }
    template <int L0, int L1, int L2, int L3>
    TV_LANES_FN("avx2")
    Avx2Lanes permute(Avx2Lanes a) {
        return {_mm256_permute4x64_epi64(a.v, L0 | L1 << 2 | L2 << 4 | L3 << 6)};
    }
    template <int mask>
    TV_LANES_FN("avx2")
    Avx2Lanes blend(Avx2Lanes a, Avx2Lanes b) {
        constexpr int kHalves = (mask & 1) * 3 | (mask & 2) * 6 | (mask & 4) * 12 | (mask & 8) * 24;
        return {_mm256_blend_epi32(a.v, b.v, kHalves)};
    }

    TV_LANES_FN("avx2") Avx2Lanes add(Avx2Lanes a, Avx2Lanes b) {
        return {_mm256_add_epi64(a.v, b.v)};
    }
    TV_LANES_FN("avx2") Avx2Lanes sub(Avx2Lanes a, Avx2Lanes b) {
        return {_mm256_sub_epi64(a.v, b.v)};
    }
    TV_LANES_FN("avx2") Avx2Lanes both(Avx2Lanes a, Avx2Lanes b) {
        return {_mm256_and_si256(a.v, b.v)};
    }
    TV_LANES_FN("avx2") Avx2Lanes differ(Avx2Lanes a, Avx2Lanes b) {
        return {_mm256_xor_si256(a.v, b.v)};
    }
};

#undef TV_LANES_FN

}  // namespace
}  // namespace tv::crypto
