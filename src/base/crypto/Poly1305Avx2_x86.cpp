// Poly1305 by AVX2: four blocks at once.
#include <immintrin.h>

#include "base/crypto/ChaCha_x86.h"
#define TV_LANES_TARGET __attribute__((target("avx2")))
#define TV_INLINE TV_LANES_TARGET __attribute__((always_inline)) static inline
#include "base/crypto/Poly1305Lanes.h"

namespace tv::crypto {
namespace {

struct Avx2 {
    using Vector = uint64_t __attribute__((vector_size(32)));
    static constexpr uint8_t kLaneOf[] = {3, 1, 2, 0};

    TV_INLINE Vector load(const uint8_t* p) {
        return Vector(_mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(p)));
    }
    TV_INLINE Vector widened(const uint32_t* p) {
        return Vector(
            _mm256_cvtepu32_epi64(_mm_loadu_si128(reinterpret_cast<const __m128i_u*>(p))));
    }
    TV_INLINE Vector product(Vector a, Vector b) {
        return Vector(_mm256_mul_epu32(__m256i(a), __m256i(b)));
    }
    TV_INLINE Vector timesFour(Vector v) { return Vector(_mm256_slli_epi64(__m256i(v), 2)); }
    TV_INLINE Vector lows(Vector a, Vector b) {
        return Vector(_mm256_unpacklo_epi64(__m256i(a), __m256i(b)));
    }
    TV_INLINE Vector highs(Vector a, Vector b) {
        return Vector(_mm256_unpackhi_epi64(__m256i(a), __m256i(b)));
    }
};

}  // namespace

TV_LANES_TARGET void absorbPoly1305Avx2(Poly1305State& state, const uint8_t* blocks, size_t count) {
    Poly1305Lanes<Avx2>::absorb(state, blocks, count);
}

}  // namespace tv::crypto
