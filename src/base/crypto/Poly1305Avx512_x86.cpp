// Poly1305 by AVX-512: eight blocks at once, a limb to each of the eight lanes.
#include "base/crypto/Avx512_x86.h"
#include "base/crypto/ChaCha_x86.h"

#define TV_TARGET __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx2")))
#define TV_INLINE TV_TARGET __attribute__((always_inline)) inline

namespace tv::crypto {
namespace {

constexpr size_t kLanes = 8;
// Fewer blocks are not worth the powers of r.
constexpr size_t kWorthwhile = 4 * kLanes;
// Where addBlocks puts the last block, which needs r, the one before it, and so on.
constexpr uint8_t kLaneOf[kLanes] = {7, 5, 3, 1, 6, 4, 2, 0};

struct Number {
    __m512i limb[5];
};

// A factor with the five-fold of its limbs, for products above 2^130.
struct Factor {
    __m512i limb[5];
    __m512i five[5];
};

TV_INLINE __m512i limbMask() {
    return _mm512_set1_epi64(kPoly1305Limb);
}

TV_INLINE __m512i timesFive(__m512i v) {
    return _mm512_add_epi64(v, _mm512_slli_epi64(v, 2));
}

TV_INLINE __m512i product(__m512i a, __m512i b) {
    return _mm512_mul_epu32(a, b);
}

// One limb of the product: the sum of five products.
TV_INLINE __m512i sum5(__m512i a, __m512i b, __m512i c, __m512i d, __m512i e) {
    return _mm512_add_epi64(_mm512_add_epi64(_mm512_add_epi64(a, b), _mm512_add_epi64(c, d)), e);
}

// Moves what is above 26 bits from one limb to the next; kTimes is 5 at the top.
template <int kTimes>
TV_INLINE void carry(__m512i& from, __m512i& to) {
    const __m512i over = _mm512_srli_epi64(from, 26);
    from = _mm512_and_si512(from, limbMask());
    to = _mm512_add_epi64(to, kTimes == 5 ? timesFive(over) : over);
}

TV_INLINE void carryAll(Number& n) {
    carry<1>(n.limb[0], n.limb[1]);
    carry<1>(n.limb[3], n.limb[4]);
    carry<1>(n.limb[1], n.limb[2]);
    carry<5>(n.limb[4], n.limb[0]);
    carry<1>(n.limb[2], n.limb[3]);
    carry<1>(n.limb[0], n.limb[1]);
    carry<1>(n.limb[3], n.limb[4]);
}

TV_INLINE void multiply(Number& a, const Factor& f) {
    const __m512i a0 = a.limb[0], a1 = a.limb[1], a2 = a.limb[2], a3 = a.limb[3], a4 = a.limb[4];
    a.limb[0] = sum5(product(a0, f.limb[0]), product(a1, f.five[4]), product(a2, f.five[3]),
                     product(a3, f.five[2]), product(a4, f.five[1]));
    a.limb[1] = sum5(product(a0, f.limb[1]), product(a1, f.limb[0]), product(a2, f.five[4]),
                     product(a3, f.five[3]), product(a4, f.five[2]));
    a.limb[2] = sum5(product(a0, f.limb[2]), product(a1, f.limb[1]), product(a2, f.limb[0]),
                     product(a3, f.five[4]), product(a4, f.five[3]));
    a.limb[3] = sum5(product(a0, f.limb[3]), product(a1, f.limb[2]), product(a2, f.limb[1]),
                     product(a3, f.limb[0]), product(a4, f.five[4]));
    a.limb[4] = sum5(product(a0, f.limb[4]), product(a1, f.limb[3]), product(a2, f.limb[2]),
                     product(a3, f.limb[1]), product(a4, f.limb[0]));
    carryAll(a);
}

TV_INLINE __m512i load512(const uint8_t* p) {
    return _mm512_loadu_si512(p);
}

TV_INLINE void addTo(__m512i& limb, __m512i v) {
    limb = _mm512_add_epi64(limb, v);
}

// Adds eight blocks, each with its bit 128.
TV_INLINE void addBlocks(Number& n, const uint8_t* blocks) {
    const __m512i first = load512(blocks), second = load512(blocks + 64);
    const __m512i low = _mm512_unpacklo_epi64(first, second);
    const __m512i high = _mm512_unpackhi_epi64(first, second);
    const __m512i middle = _mm512_or_si512(_mm512_srli_epi64(low, 52), _mm512_slli_epi64(high, 12));
    addTo(n.limb[0], _mm512_and_si512(low, limbMask()));
    addTo(n.limb[1], _mm512_and_si512(_mm512_srli_epi64(low, 26), limbMask()));
    addTo(n.limb[2], _mm512_and_si512(middle, limbMask()));
    addTo(n.limb[3], _mm512_and_si512(_mm512_srli_epi64(high, 14), limbMask()));
    addTo(n.limb[4],
          _mm512_or_si512(_mm512_srli_epi64(high, 40), _mm512_set1_epi64(int64_t{1} << 24)));
}

// The powers of all lanes, or the highest in each.
TV_INLINE Factor loadFactor(const Poly1305State& state, bool highest) {
    Factor f;
#pragma GCC unroll 5
    for (size_t i = 0; i < 5; ++i) {
        const uint32_t* lanes = state.powers[i].data();
        f.limb[i] = highest ? _mm512_set1_epi64(lanes[0])
                            : _mm512_cvtepu32_epi64(
                                  _mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(lanes)));
        f.five[i] = timesFive(f.limb[i]);
    }
    return f;
}

TV_INLINE uint64_t sumOfLanes(__m512i v) {
    uint64_t lanes[kLanes];
    _mm512_storeu_si512(lanes, v);
    return lanes[0] + lanes[1] + lanes[2] + lanes[3] + lanes[4] + lanes[5] + lanes[6] + lanes[7];
}

}  // namespace

TV_TARGET void absorbPoly1305Avx512(Poly1305State& state, const uint8_t* blocks, size_t count) {
    if (count >= kWorthwhile) {
        if (!state.powersMade) makePoly1305Powers(state, kLaneOf);
        Number n;
#pragma GCC unroll 5
        for (size_t i = 0; i < 5; ++i) {
            n.limb[i] = _mm512_zextsi128_si512(_mm_set_epi64x(0, state.sum[i]));
        }
        const Factor step = loadFactor(state, true);
        addBlocks(n, blocks);
        for (blocks += 16 * kLanes, count -= kLanes; count >= kLanes; count -= kLanes) {
            multiply(n, step);
            addBlocks(n, blocks);
            blocks += 16 * kLanes;
        }
        multiply(n, loadFactor(state, false));
        setPoly1305Sum(state, {sumOfLanes(n.limb[0]), sumOfLanes(n.limb[1]), sumOfLanes(n.limb[2]),
                               sumOfLanes(n.limb[3]), sumOfLanes(n.limb[4])});
    }
    absorbPoly1305(state, blocks, count);
}

}  // namespace tv::crypto
