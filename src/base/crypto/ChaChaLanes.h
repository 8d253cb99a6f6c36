// The key stream of ChaCha20 by vector registers of one width. In bulk a register holds the same
// word of many blocks; for the rest of a text, and where registers are few, the same row of a few
// blocks (a group). To be included after TV_LANES_TARGET is set. V stands for the register,
// with what the compiler has no operator for:
//     Vector: its lanes as a vector of uint32_t
//     kIndex: the number of each lane
//     kGroups: how many groups side by side are the bulk; 0 where the words of many blocks are
//     rotate<n>(v), the bits of each lane; turn<order>(v), the four lanes of each block's row
//     row(words): the same four words in every row
//     lows32, highs32, lows64, highs64 (a, b): the halves of each four lanes, interleaved
//     xorRows(a, b, c, d, in, out, stride, blocks): the text of the first blocks of a group
#pragma once

#include "base/crypto/ChaCha20Poly1305.h"

namespace tv::crypto {
namespace {

#define TV_LANES_FN TV_LANES_TARGET __attribute__((always_inline)) static inline

template <class V>
class ChaChaLanes {
public:
    TV_LANES_TARGET static void apply(ChaChaState& state, const uint8_t* in, uint8_t* out,
                                      size_t count) {
        constexpr size_t kBulk = V::kGroups == 0 ? kLanes : V::kGroups * kGroupBlocks;
        for (; count >= kBulk; count -= kBulk) {
            if constexpr (V::kGroups == 0) {
                applyWords(state, in, out);
            } else {
                applyGroups<V::kGroups>(state, in, out, kBulk);
            }
            in += kBlockSize * kBulk;
            out += kBlockSize * kBulk;
        }
        while (count != 0) {
            const size_t n = count < kGroupBlocks ? count : kGroupBlocks;
            applyGroups<1>(state, in, out, n);
            in += kBlockSize * n;
            out += kBlockSize * n;
            count -= n;
        }
    }

private:
    using Vector = typename V::Vector;

    static constexpr size_t kBlockSize = 64;
    static constexpr size_t kLanes = sizeof(Vector) / 4;
    static constexpr size_t kGroupBlocks = kLanes / 4;

    // The four rows of the blocks of a group; four lanes belong to one block.
    struct Group {
        Vector a, b, c, d;
    };

    // a plus b; d takes the sum and turns by kBits: half of a quarter round's step.
    template <int kBits>
    TV_LANES_FN void step(Vector& a, Vector b, Vector& d) {
        a += b;
        d = V::template rotate<kBits>(d ^ a);
    }

    // The same step of every group in turn, so that none waits for itself.
    template <int kFirst, int kSecond, size_t kCount>
    TV_LANES_FN void twoSteps(Group (&g)[kCount]) {
#pragma GCC unroll 2
        for (size_t i = 0; i < kCount; ++i) {
            step<kFirst>(g[i].a, g[i].b, g[i].d);
        }
#pragma GCC unroll 2
        for (size_t i = 0; i < kCount; ++i) {
            step<kSecond>(g[i].c, g[i].d, g[i].b);
        }
    }

    // Turns the rows so that the diagonals stand in columns, or (kBack) the reverse: 39 turns a
    // row by one word, 4e by two, 93 by three.
    template <bool kBack, size_t kCount>
    TV_LANES_FN void turnRows(Group (&g)[kCount]) {
#pragma GCC unroll 2
        for (size_t i = 0; i < kCount; ++i) {
            g[i].b = V::template turn < kBack ? 0x93 : 0x39 > (g[i].b);
            g[i].c = V::template turn<0x4e>(g[i].c);
            g[i].d = V::template turn < kBack ? 0x39 : 0x93 > (g[i].d);
        }
    }

    // The last row of group i: the counter, in lane 0 of each four, moves on from block to block.
    TV_LANES_FN Vector counterRow(const ChaChaState& state, size_t i) {
        const auto ahead = static_cast<uint32_t>(kGroupBlocks * i);
        const Vector first = V::kIndex % 4 == 0;  // all ones where it holds
        return V::row(&state[12]) + (first & (V::kIndex / 4 + ahead));
    }

    template <size_t kCount>
    TV_LANES_FN void applyGroups(ChaChaState& state, const uint8_t* in, uint8_t* out,
                                 size_t blocks) {
        Group g[kCount];
#pragma GCC unroll 2
        for (size_t i = 0; i < kCount; ++i) {
            g[i] = {V::row(&state[0]), V::row(&state[4]), V::row(&state[8]), counterRow(state, i)};
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
            const size_t at = kBlockSize * kGroupBlocks * i;
            V::xorRows(g[i].a + V::row(&state[0]), g[i].b + V::row(&state[4]),
                       g[i].c + V::row(&state[8]), g[i].d + counterRow(state, i), in + at, out + at,
                       kBlockSize, kCount > 1 ? kGroupBlocks : blocks);
        }
        state[12] += static_cast<uint32_t>(blocks);
    }

    // Word i of all blocks at the start.
    TV_LANES_FN Vector wordOf(const ChaChaState& state, size_t i) {
        const Vector v = Vector{} + state[i];
        return i == 12 ? v + V::kIndex : v;
    }

    // The four steps of the quarter rounds on columns (kTurn 0) or diagonals (kTurn 1): the row of
    // b is turned once, that of c twice, that of d three times.
    template <int kFirst, int kSecond, size_t kTurn>
    TV_LANES_FN void twoSteps(Vector (&w)[16]) {
#pragma GCC unroll 4
        for (size_t i = 0; i < 4; ++i) {
            step<kFirst>(w[i], w[4 + (i + kTurn) % 4], w[12 + (i + 3 * kTurn) % 4]);
        }
#pragma GCC unroll 4
        for (size_t i = 0; i < 4; ++i) {
            step<kSecond>(w[8 + (i + 2 * kTurn) % 4], w[12 + (i + 3 * kTurn) % 4],
                          w[4 + (i + kTurn) % 4]);
        }
    }

    // Four words of one row: register k then holds in its four lanes j the row of block 4 j + k.
    TV_LANES_FN void transposeRow(Vector* w) {
        const Vector low01 = V::lows32(w[0], w[1]), high01 = V::highs32(w[0], w[1]);
        const Vector low23 = V::lows32(w[2], w[3]), high23 = V::highs32(w[2], w[3]);
        w[0] = V::lows64(low01, low23);
        w[1] = V::highs64(low01, low23);
        w[2] = V::lows64(high01, high23);
        w[3] = V::highs64(high01, high23);
    }

    TV_LANES_FN void applyWords(ChaChaState& state, const uint8_t* in, uint8_t* out) {
        Vector w[16];
#pragma GCC unroll 16
        for (size_t i = 0; i < 16; ++i) {
            w[i] = wordOf(state, i);
        }
        for (int i = 0; i < 10; ++i) {
            twoSteps<16, 12, 0>(w);
            twoSteps<8, 7, 0>(w);
            twoSteps<16, 12, 1>(w);
            twoSteps<8, 7, 1>(w);
        }
#pragma GCC unroll 16
        for (size_t i = 0; i < 16; ++i) {
            w[i] += wordOf(state, i);
        }
#pragma GCC unroll 4
        for (size_t row = 0; row < 4; ++row) {
            transposeRow(w + 4 * row);
        }
#pragma GCC unroll 4
        for (size_t k = 0; k < 4; ++k) {
            V::xorRows(w[k], w[4 + k], w[8 + k], w[12 + k], in + kBlockSize * k,
                       out + kBlockSize * k, 4 * kBlockSize, kGroupBlocks);
        }
        state[12] += static_cast<uint32_t>(kLanes);
    }
};

#undef TV_LANES_FN

}  // namespace
}  // namespace tv::crypto
