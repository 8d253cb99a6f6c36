// Poly1305 by AVX2: four blocks at once, a limb to each of the four lanes.
#include <immintrin.h>

#include "base/crypto/ChaCha_x86.h"

#define TV_TARGET __attribute__((target("avx2")))
#define TV_INLINE TV_TARGET __attribute__((always_inline)) inline

namespace tv::crypto {
namespace {

constexpr size_t kLanes = 4;
// Fewer blocks are not worth the powers of r.
constexpr size_t kWorthwhile = 4 * kLanes;
// Where addBlocks puts the last block, which needs r, the one before it, and so on.
constexpr uint8_t kLaneOf[kLanes] = {3, 1, 2, 0};

struct Number {
    __m256i limb[5];
};

// A factor with the five-fold of its limbs, for products above 2^130.
struct Factor {
    __m256i limb[5];
    __m256i five[5];
};

TV_INLINE __m256i limbMask() {
    return _mm256_set1_epi64x(kPoly1305Limb);
}

TV_INLINE __m256i timesFive(__m256i v) {
    return _mm256_add_epi64(v, _mm256_slli_epi64(v, 2));
}

TV_INLINE __m256i product(__m256i a, __m256i b) {
    return _mm256_mul_epu32(a, b);
}

// One limb of the product: the sum of five products.
TV_INLINE __m256i sum5(__m256i a, __m256i b, __m256i c, __m256i d, __m256i e) {
    return _mm256_add_epi64(_mm256_add_epi64(_mm256_add_epi64(a, b), _mm256_add_epi64(c, d)), e);
}

// Moves what is above 26 bits from one limb to the next; kTimes is 5 at the top.
template <int kTimes>
TV_INLINE void carry(__m256i& from, __m256i& to) {
    const __m256i over = _mm256_srli_epi64(from, 26);
    from = _mm256_and_si256(from, limbMask());
    to = _mm256_add_epi64(to, kTimes == 5 ? timesFive(over) : over);
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
    const __m256i a0 = a.limb[0], a1 = a.limb[1], a2 = a.limb[2], a3 = a.limb[3], a4 = a.limb[4];
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

TV_INLINE __m256i load256(const uint8_t* p) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(p));
}

TV_INLINE void addTo(__m256i& limb, __m256i v) {
    limb = _mm256_add_epi64(limb, v);
}

// Adds four blocks, each with its bit 128.
TV_INLINE void addBlocks(Number& n, const uint8_t* blocks) {
    const __m256i first = load256(blocks), second = load256(blocks + 32);
    const __m256i low = _mm256_unpacklo_epi64(first, second);
    const __m256i high = _mm256_unpackhi_epi64(first, second);
    const __m256i middle = _mm256_or_si256(_mm256_srli_epi64(low, 52), _mm256_slli_epi64(high, 12));
    addTo(n.limb[0], _mm256_and_si256(low, limbMask()));
    addTo(n.limb[1], _mm256_and_si256(_mm256_srli_epi64(low, 26), limbMask()));
    addTo(n.limb[2], _mm256_and_si256(middle, limbMask()));
    addTo(n.limb[3], _mm256_and_si256(_mm256_srli_epi64(high, 14), limbMask()));
    addTo(n.limb[4],
          _mm256_or_si256(_mm256_srli_epi64(high, 40), _mm256_set1_epi64x(int64_t{1} << 24)));
}

// The powers of all lanes, or the highest in each.
TV_INLINE Factor loadFactor(const Poly1305State& state, bool highest) {
    Factor f;
#pragma GCC unroll 5
    for (size_t i = 0; i < 5; ++i) {
        const uint32_t* lanes = state.powers[i].data();
        f.limb[i] =
            highest
                ? _mm256_set1_epi64x(lanes[0])
                : _mm256_cvtepu32_epi64(_mm_loadu_si128(reinterpret_cast<const __m128i_u*>(lanes)));
        f.five[i] = timesFive(f.limb[i]);
    }
    return f;
}

TV_INLINE uint64_t sumOfLanes(__m256i v) {
    uint64_t lanes[kLanes];
    _mm256_storeu_si256(reinterpret_cast<__m256i_u*>(lanes), v);
    return lanes[0] + lanes[1] + lanes[2] + lanes[3];
}

}  // namespace

TV_TARGET void absorbPoly1305Avx2(Poly1305State& state, const uint8_t* blocks, size_t count) {
    if (count >= kWorthwhile) {
        if (!state.powersMade) makePoly1305Powers(state, kLaneOf);
        Number n;
#pragma GCC unroll 5
        for (size_t i = 0; i < 5; ++i) {
            n.limb[i] = _mm256_set_epi64x(0, 0, 0, state.sum[i]);
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
