// Poly1305 over as many blocks at once as a vector register has lanes of 64 bits, a limb to each.
// To be included after TV_LANES_TARGET is set. V stands for the register,
// with what the compiler has no operator for:
//     Vector: its lanes as a vector of uint64_t
//     kLaneOf: where lows and highs put the last block, which needs r, the one before it, and so on
//     load(bytes), product(a, b) of the lower 32 bits, widened(numbers of 32 bits),
//     timesFour(v) by the shift instruction itself: GCC turns >> 26 << 2 into a shift and a mask,
//     lows(a, b) and highs(a, b): the first and the second halves of the blocks in a and b
#pragma once

#include "base/crypto/Poly1305.h"

namespace tv::crypto {
namespace {

#define TV_LANES_FN TV_LANES_TARGET __attribute__((always_inline)) static inline

template <class V>
class Poly1305Lanes {
public:
    // As absorbPoly1305.
    TV_LANES_TARGET static void absorb(Poly1305State& state, const uint8_t* blocks, size_t count) {
        if (count >= kWorthwhile) {
            if (!state.powersMade) makePoly1305Powers(state, V::kLaneOf);
            Number n;
#pragma GCC unroll 5
            for (size_t i = 0; i < 5; ++i) {
                n.limb[i] = Vector{state.sum[i]};  // in lane 0
            }
            const Factor step = loadFactor(state, true);
            addBlocks(n, blocks);
            for (blocks += 16 * kLanes, count -= kLanes; count >= kLanes; count -= kLanes) {
                multiply(n, step);
                addBlocks(n, blocks);
                blocks += 16 * kLanes;
            }
            multiply(n, loadFactor(state, false));
            setPoly1305Sum(state,
                           {sumOfLanes(n.limb[0]), sumOfLanes(n.limb[1]), sumOfLanes(n.limb[2]),
                            sumOfLanes(n.limb[3]), sumOfLanes(n.limb[4])});
        }
        absorbPoly1305(state, blocks, count);
    }

private:
    using Vector = typename V::Vector;

    static constexpr size_t kLanes = sizeof V::kLaneOf;
    // Fewer blocks are not worth the powers of r.
    static constexpr size_t kWorthwhile = 4 * kLanes;
    static constexpr uint64_t kLimb = kPoly1305Limb;

    struct Number {
        Vector limb[5];
    };

    // A factor with the five-fold of its limbs, for products above 2^130.
    struct Factor {
        Vector limb[5];
        Vector five[5];
    };

    TV_LANES_FN Vector timesFive(Vector v) {
        return v + V::timesFour(v);
    }

    // Moves what is above 26 bits from one limb to the next; kTimes is 5 at the top.
    template <int kTimes>
    TV_LANES_FN void carry(Vector& from, Vector& to) {
        const Vector over = from >> 26;
        from &= kLimb;
        to += kTimes == 5 ? timesFive(over) : over;
    }

    // Two chains side by side, so that neither waits for itself.
    TV_LANES_FN void carryAll(Number& n) {
        carry<1>(n.limb[0], n.limb[1]);
        carry<1>(n.limb[3], n.limb[4]);
        carry<1>(n.limb[1], n.limb[2]);
        carry<5>(n.limb[4], n.limb[0]);
        carry<1>(n.limb[2], n.limb[3]);
        carry<1>(n.limb[0], n.limb[1]);
        carry<1>(n.limb[3], n.limb[4]);
    }

    // One limb of the product; the five sums are a tree, not a chain.
    TV_LANES_FN Vector sum5(Vector a, Vector b, Vector c, Vector d, Vector e) {
        return ((a + b) + (c + d)) + e;
    }

    TV_LANES_FN void multiply(Number& a, const Factor& f) {
        const Vector a0 = a.limb[0], a1 = a.limb[1], a2 = a.limb[2], a3 = a.limb[3], a4 = a.limb[4];
        a.limb[0] =
            sum5(V::product(a0, f.limb[0]), V::product(a1, f.five[4]), V::product(a2, f.five[3]),
                 V::product(a3, f.five[2]), V::product(a4, f.five[1]));
        a.limb[1] =
            sum5(V::product(a0, f.limb[1]), V::product(a1, f.limb[0]), V::product(a2, f.five[4]),
                 V::product(a3, f.five[3]), V::product(a4, f.five[2]));
        a.limb[2] =
            sum5(V::product(a0, f.limb[2]), V::product(a1, f.limb[1]), V::product(a2, f.limb[0]),
                 V::product(a3, f.five[4]), V::product(a4, f.five[3]));
        a.limb[3] =
            sum5(V::product(a0, f.limb[3]), V::product(a1, f.limb[2]), V::product(a2, f.limb[1]),
                 V::product(a3, f.limb[0]), V::product(a4, f.five[4]));
        a.limb[4] =
            sum5(V::product(a0, f.limb[4]), V::product(a1, f.limb[3]), V::product(a2, f.limb[2]),
                 V::product(a3, f.limb[1]), V::product(a4, f.limb[0]));
        carryAll(a);
    }

    // Adds a block to each lane, with its bit 128.
    TV_LANES_FN void addBlocks(Number& n, const uint8_t* blocks) {
        const Vector first = V::load(blocks), second = V::load(blocks + sizeof first);
        const Vector low = V::lows(first, second), high = V::highs(first, second);
        n.limb[0] += low & kLimb;
        n.limb[1] += (low >> 26) & kLimb;
        n.limb[2] += ((low >> 52) | (high << 12)) & kLimb;
        n.limb[3] += (high >> 14) & kLimb;
        n.limb[4] += (high >> 40) | uint64_t{1} << 24;
    }

    // The powers of all lanes, or the highest in each.
    TV_LANES_FN Factor loadFactor(const Poly1305State& state, bool highest) {
        Factor f;
#pragma GCC unroll 5
        for (size_t i = 0; i < 5; ++i) {
            const uint32_t* lanes = state.powers[i].data();
            f.limb[i] = highest ? Vector{} + lanes[0] : V::widened(lanes);
            f.five[i] = timesFive(f.limb[i]);
        }
        return f;
    }

    TV_LANES_FN uint64_t sumOfLanes(Vector v) {
        uint64_t sum = 0;
#pragma GCC unroll 8
        for (size_t i = 0; i < kLanes; ++i) {
            sum += v[i];
        }
        return sum;
    }
};

#undef TV_LANES_FN

}  // namespace
}  // namespace tv::crypto
