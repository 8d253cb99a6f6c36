// The key stream of ChaCha20 by AVX2: a register holds the same row of two blocks.
#include "base/crypto/ChaCha_x86.h"

#include <immintrin.h>

#define TV_TARGET __attribute__((target("avx2")))
#define TV_INLINE TV_TARGET __attribute__((always_inline)) inline

namespace tv::crypto {
namespace {

constexpr size_t kBlockSize = 64;
constexpr size_t kLanes = 2;  // blocks to a group
// Groups side by side, as many as the registers hold.
constexpr size_t kGroups = sizeof(void*) == 8 ? 3 : 2;

struct Group {
    __m256i a, b, c, d;
};

template <int kBits>
TV_INLINE __m256i rotate(__m256i v) {
    return _mm256_or_si256(_mm256_slli_epi32(v, kBits), _mm256_srli_epi32(v, 32 - kBits));
}

TV_INLINE __m256i rotate16(__m256i v) {
    return _mm256_shuffle_epi8(v, _mm256_set_epi32(0x0d0c0f0e, 0x09080b0a, 0x05040706, 0x01000302,
                                                   0x0d0c0f0e, 0x09080b0a, 0x05040706, 0x01000302));
}

TV_INLINE __m256i rotate8(__m256i v) {
    return _mm256_shuffle_epi8(v, _mm256_set_epi32(0x0e0d0c0f, 0x0a09080b, 0x06050407, 0x02010003,
                                                   0x0e0d0c0f, 0x0a09080b, 0x06050407, 0x02010003));
}

// The same step of every group in turn, so that none waits for itself.
template <size_t kCount>
TV_INLINE void quarterRounds(Group (&g)[kCount]) {
#pragma GCC unroll 3
    for (size_t i = 0; i < kCount; ++i) {
        g[i].a = _mm256_add_epi32(g[i].a, g[i].b);
        g[i].d = rotate16(_mm256_xor_si256(g[i].d, g[i].a));
    }
#pragma GCC unroll 3
    for (size_t i = 0; i < kCount; ++i) {
        g[i].c = _mm256_add_epi32(g[i].c, g[i].d);
        g[i].b = rotate<12>(_mm256_xor_si256(g[i].b, g[i].c));
    }
#pragma GCC unroll 3
    for (size_t i = 0; i < kCount; ++i) {
        g[i].a = _mm256_add_epi32(g[i].a, g[i].b);
        g[i].d = rotate8(_mm256_xor_si256(g[i].d, g[i].a));
    }
#pragma GCC unroll 3
    for (size_t i = 0; i < kCount; ++i) {
        g[i].c = _mm256_add_epi32(g[i].c, g[i].d);
        g[i].b = rotate<7>(_mm256_xor_si256(g[i].b, g[i].c));
    }
}

// Turns the rows so that the diagonals stand in columns, or (kBack) the reverse.
template <bool kBack, size_t kCount>
TV_INLINE void turnRows(Group (&g)[kCount]) {
#pragma GCC unroll 3
    for (size_t i = 0; i < kCount; ++i) {
        g[i].b = _mm256_shuffle_epi32(g[i].b, kBack ? 0x93 : 0x39);
        g[i].c = _mm256_shuffle_epi32(g[i].c, 0x4e);
        g[i].d = _mm256_shuffle_epi32(g[i].d, kBack ? 0x39 : 0x93);
    }
}

TV_INLINE void xorRows(const uint8_t* in, uint8_t* out, __m256i stream) {
    const __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(in));
    _mm256_storeu_si256(reinterpret_cast<__m256i_u*>(out), _mm256_xor_si256(text, stream));
}

// The two blocks of a group, or only the first.
TV_INLINE void xorGroup(const Group& g, const uint8_t* in, uint8_t* out, bool both) {
    xorRows(in, out, _mm256_permute2x128_si256(g.a, g.b, 0x20));
    xorRows(in + 32, out + 32, _mm256_permute2x128_si256(g.c, g.d, 0x20));
    if (!both) return;
    xorRows(in + 64, out + 64, _mm256_permute2x128_si256(g.a, g.b, 0x31));
    xorRows(in + 96, out + 96, _mm256_permute2x128_si256(g.c, g.d, 0x31));
}

TV_INLINE __m256i loadRow(const uint32_t* row) {
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i_u*>(row)));
}

template <size_t kCount>
TV_INLINE void applyGroups(ChaChaState& state, const uint8_t* in, uint8_t* out, size_t blocks) {
    const Group start = {
        loadRow(&state[0]), loadRow(&state[4]), loadRow(&state[8]),
        _mm256_add_epi32(loadRow(&state[12]), _mm256_set_epi32(0, 0, 0, 1, 0, 0, 0, 0))};
    Group g[kCount];
#pragma GCC unroll 3
    for (size_t i = 0; i < kCount; ++i) {
        g[i] = start;
        g[i].d = _mm256_add_epi32(
            g[i].d, _mm256_set_epi32(0, 0, 0, static_cast<int>(kLanes * i), 0, 0, 0,
                                     static_cast<int>(kLanes * i)));
    }
    for (int i = 0; i < 10; ++i) {
        quarterRounds(g);
        turnRows<false>(g);
        quarterRounds(g);
        turnRows<true>(g);
    }
#pragma GCC unroll 3
    for (size_t i = 0; i < kCount; ++i) {
        g[i].a = _mm256_add_epi32(g[i].a, start.a);
        g[i].b = _mm256_add_epi32(g[i].b, start.b);
        g[i].c = _mm256_add_epi32(g[i].c, start.c);
        g[i].d = _mm256_add_epi32(g[i].d, start.d);
        g[i].d = _mm256_add_epi32(
            g[i].d, _mm256_set_epi32(0, 0, 0, static_cast<int>(kLanes * i), 0, 0, 0,
                                     static_cast<int>(kLanes * i)));
        xorGroup(g[i], in + kBlockSize * kLanes * i, out + kBlockSize * kLanes * i,
                 kCount > 1 || blocks > 1);
    }
    state[12] += static_cast<uint32_t>(blocks);
}

}  // namespace

TV_TARGET void applyChaChaAvx2(ChaChaState& state, const uint8_t* in, uint8_t* out, size_t count) {
    constexpr size_t kBlocks = kGroups * kLanes;
    for (; count >= kBlocks; count -= kBlocks) {
        applyGroups<kGroups>(state, in, out, kBlocks);
        in += kBlockSize * kBlocks;
        out += kBlockSize * kBlocks;
    }
    while (count != 0) {
        const size_t n = count < kLanes ? count : kLanes;
        applyGroups<1>(state, in, out, n);
        in += kBlockSize * n;
        out += kBlockSize * n;
        count -= n;
    }
}

}  // namespace tv::crypto
