// The key stream of ChaCha20 by AVX-512. With 32 registers one holds the same word of sixteen
// blocks; with eight (32-bit programs), and for the rest of a text, the same row of four blocks.
#include "base/crypto/Avx512_x86.h"
#include "base/crypto/ChaCha_x86.h"

#define TV_TARGET __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx2")))
#define TV_INLINE TV_TARGET __attribute__((always_inline)) inline

namespace tv::crypto {
namespace {

constexpr size_t kBlockSize = 64;
constexpr size_t kGroupBlocks = 4;
constexpr size_t kGroups = 2;  // side by side in eight registers
constexpr size_t kWideBlocks = 16;
constexpr bool kManyRegisters = sizeof(void*) == 8;

// The four rows of four blocks; a lane (a fourth of a register) belongs to one block.
struct Group {
    __m512i a, b, c, d;
};

// The sixteen words of sixteen blocks.
struct Words {
    __m512i word[16];
};

// a plus b; d takes the sum and turns by kBits: half of a quarter round's step.
template <int kBits>
TV_INLINE void step(__m512i& a, __m512i b, __m512i& d) {
    a = _mm512_add_epi32(a, b);
    d = _mm512_rol_epi32(_mm512_xor_si512(d, a), kBits);
}

// The same step of every group in turn, so that none waits for itself.
template <int kFirst, int kSecond, size_t kCount>
TV_INLINE void twoSteps(Group (&g)[kCount]) {
#pragma GCC unroll 2
    for (size_t i = 0; i < kCount; ++i) {
        step<kFirst>(g[i].a, g[i].b, g[i].d);
    }
#pragma GCC unroll 2
    for (size_t i = 0; i < kCount; ++i) {
        step<kSecond>(g[i].c, g[i].d, g[i].b);
    }
}

// Turns the rows so that the diagonals stand in columns, or (kBack) the reverse.
template <bool kBack, size_t kCount>
TV_INLINE void turnRows(Group (&g)[kCount]) {
    constexpr auto kByOne = static_cast<_MM_PERM_ENUM>(kBack ? 0x93 : 0x39);
    constexpr auto kByTwo = static_cast<_MM_PERM_ENUM>(0x4e);
    constexpr auto kByThree = static_cast<_MM_PERM_ENUM>(kBack ? 0x39 : 0x93);
#pragma GCC unroll 2
    for (size_t i = 0; i < kCount; ++i) {
        g[i].b = _mm512_shuffle_epi32(g[i].b, kByOne);
        g[i].c = _mm512_shuffle_epi32(g[i].c, kByTwo);
        g[i].d = _mm512_shuffle_epi32(g[i].d, kByThree);
    }
}

// The four steps of the quarter rounds on columns (kTurn 0) or diagonals (kTurn 1): the row of
// b is turned once, that of c twice, that of d three times.
template <int kFirst, int kSecond, size_t kTurn>
TV_INLINE void twoSteps(Words& w) {
#pragma GCC unroll 4
    for (size_t i = 0; i < 4; ++i) {
        step<kFirst>(w.word[i], w.word[4 + (i + kTurn) % 4], w.word[12 + (i + 3 * kTurn) % 4]);
    }
#pragma GCC unroll 4
    for (size_t i = 0; i < 4; ++i) {
        step<kSecond>(w.word[8 + (i + 2 * kTurn) % 4], w.word[12 + (i + 3 * kTurn) % 4],
                      w.word[4 + (i + kTurn) % 4]);
    }
}

TV_INLINE void xorBlock(const uint8_t* in, uint8_t* out, size_t at, __m512i stream) {
    const __m512i text = _mm512_loadu_si512(in + at);
    _mm512_storeu_si512(out + at, _mm512_xor_si512(text, stream));
}

// The first `blocks` of the four blocks of a group; they stand `stride` bytes apart.
TV_INLINE void xorGroup(const Group& g, const uint8_t* in, uint8_t* out, size_t stride,
                        size_t blocks) {
    // First pairs of rows with the lanes 0 1 and 2 3, then whole blocks.
    const __m512i ab01 = _mm512_shuffle_i32x4(g.a, g.b, 0x44);
    const __m512i cd01 = _mm512_shuffle_i32x4(g.c, g.d, 0x44);
    xorBlock(in, out, 0, _mm512_shuffle_i32x4(ab01, cd01, 0x88));
    if (blocks == 1) return;
    xorBlock(in, out, stride, _mm512_shuffle_i32x4(ab01, cd01, 0xdd));
    if (blocks == 2) return;
    const __m512i ab23 = _mm512_shuffle_i32x4(g.a, g.b, 0xee);
    const __m512i cd23 = _mm512_shuffle_i32x4(g.c, g.d, 0xee);
    xorBlock(in, out, 2 * stride, _mm512_shuffle_i32x4(ab23, cd23, 0x88));
    if (blocks == 3) return;
    xorBlock(in, out, 3 * stride, _mm512_shuffle_i32x4(ab23, cd23, 0xdd));
}

TV_INLINE __m512i loadRow(const uint32_t* row) {
    return _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i_u*>(row)));
}

// The last row of group i: the counter moves on from lane to lane.
TV_INLINE __m512i counterRow(const ChaChaState& state, size_t i) {
    const int ahead = static_cast<int>(kGroupBlocks * i);
    return _mm512_add_epi32(loadRow(&state[12]),
                            _mm512_set_epi32(0, 0, 0, ahead + 3, 0, 0, 0, ahead + 2, 0, 0, 0,
                                             ahead + 1, 0, 0, 0, ahead));
}

template <size_t kCount>
TV_INLINE void applyGroups(ChaChaState& state, const uint8_t* in, uint8_t* out, size_t blocks) {
    Group g[kCount];
#pragma GCC unroll 2
    for (size_t i = 0; i < kCount; ++i) {
        g[i] = {loadRow(&state[0]), loadRow(&state[4]), loadRow(&state[8]), counterRow(state, i)};
    }
    for (int i = 0; i < 10; ++i) {
        twoSteps<16, 12>(g);
        twoSteps<8, 7>(g);
        turnRows<false>(g);
        twoSteps<16, 12>(g);
        twoSteps<8, 7>(g);
        turnRows<true>(g);
    }
#pragma GCC unroll 2
    for (size_t i = 0; i < kCount; ++i) {
        g[i].a = _mm512_add_epi32(g[i].a, loadRow(&state[0]));
        g[i].b = _mm512_add_epi32(g[i].b, loadRow(&state[4]));
        g[i].c = _mm512_add_epi32(g[i].c, loadRow(&state[8]));
        g[i].d = _mm512_add_epi32(g[i].d, counterRow(state, i));
        const size_t at = kBlockSize * kGroupBlocks * i;
        xorGroup(g[i], in + at, out + at, kBlockSize, kCount > 1 ? kGroupBlocks : blocks);
    }
    state[12] += static_cast<uint32_t>(blocks);
}

// Word i of all blocks at the start.
TV_INLINE __m512i wordOf(const ChaChaState& state, size_t i) {
    const __m512i v = _mm512_set1_epi32(static_cast<int>(state[i]));
    if (i != 12) return v;
    return _mm512_add_epi32(v,
                            _mm512_set_epi32(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0));
}

// Four words of one row: register k then holds in lane j the row of block 4 j + k.
TV_INLINE void transposeRow(__m512i* w) {
    const __m512i low01 = _mm512_unpacklo_epi32(w[0], w[1]);
    const __m512i high01 = _mm512_unpackhi_epi32(w[0], w[1]);
    const __m512i low23 = _mm512_unpacklo_epi32(w[2], w[3]);
    const __m512i high23 = _mm512_unpackhi_epi32(w[2], w[3]);
    w[0] = _mm512_unpacklo_epi64(low01, low23);
    w[1] = _mm512_unpackhi_epi64(low01, low23);
    w[2] = _mm512_unpacklo_epi64(high01, high23);
    w[3] = _mm512_unpackhi_epi64(high01, high23);
}

TV_INLINE void applyWide(ChaChaState& state, const uint8_t* in, uint8_t* out) {
    Words w;
#pragma GCC unroll 16
    for (size_t i = 0; i < 16; ++i) {
        w.word[i] = wordOf(state, i);
    }
    for (int i = 0; i < 10; ++i) {
        twoSteps<16, 12, 0>(w);
        twoSteps<8, 7, 0>(w);
        twoSteps<16, 12, 1>(w);
        twoSteps<8, 7, 1>(w);
    }
#pragma GCC unroll 16
    for (size_t i = 0; i < 16; ++i) {
        w.word[i] = _mm512_add_epi32(w.word[i], wordOf(state, i));
    }
#pragma GCC unroll 4
    for (size_t row = 0; row < 4; ++row) {
        transposeRow(w.word + 4 * row);
    }
#pragma GCC unroll 4
    for (size_t k = 0; k < 4; ++k) {
        xorGroup({w.word[k], w.word[4 + k], w.word[8 + k], w.word[12 + k]}, in + kBlockSize * k,
                 out + kBlockSize * k, 4 * kBlockSize, kGroupBlocks);
    }
    state[12] += kWideBlocks;
}

}  // namespace

TV_TARGET void applyChaChaAvx512(ChaChaState& state, const uint8_t* in, uint8_t* out,
                                 size_t count) {
    constexpr size_t kBlocks = kManyRegisters ? kWideBlocks : kGroups * kGroupBlocks;
    for (; count >= kBlocks; count -= kBlocks) {
        if constexpr (kManyRegisters) {
            applyWide(state, in, out);
        } else {
            applyGroups<kGroups>(state, in, out, kBlocks);
        }
        in += kBlockSize * kBlocks;
        out += kBlockSize * kBlocks;
    }
    while (count != 0) {
        const size_t n = count < kGroupBlocks ? count : kGroupBlocks;
        applyGroups<1>(state, in, out, n);
        in += kBlockSize * n;
        out += kBlockSize * n;
        count -= n;
    }
}

}  // namespace tv::crypto
