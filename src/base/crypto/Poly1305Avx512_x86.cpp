// Poly1305 by AVX-512: eight blocks at once.
#include "base/crypto/Avx512_x86.h"
#include "base/crypto/ChaCha_x86.h"
#define TV_LANES_TARGET __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx2")))
#define TV_INLINE TV_LANES_TARGET __attribute__((always_inline)) static inline
#include "base/crypto/Poly1305Lanes.h"

namespace tv::crypto {
namespace {

struct Avx512 {
    using Vector = uint64_t __attribute__((vector_size(64)));
    static constexpr uint8_t kLaneOf[] = {7, 5, 3, 1, 6, 4, 2, 0};

    TV_INLINE Vector load(const uint8_t* p) { return Vector(_mm512_loadu_si512(p)); }
    TV_INLINE Vector widened(const uint32_t* p) {
        return Vector(
            _mm512_cvtepu32_epi64(_mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(p))));
    }
    TV_INLINE Vector product(Vector a, Vector b) {
        return Vector(_mm512_mul_epu32(__m512i(a), __m512i(b)));
    }
    TV_INLINE Vector timesFour(Vector v) { return Vector(_mm512_slli_epi64(__m512i(v), 2)); }
    TV_INLINE Vector lows(Vector a, Vector b) {
        return Vector(_mm512_unpacklo_epi64(__m512i(a), __m512i(b)));
    }
    TV_INLINE Vector highs(Vector a, Vector b) {
        return Vector(_mm512_unpackhi_epi64(__m512i(a), __m512i(b)));
    }
};

}  // namespace

TV_LANES_TARGET void absorbPoly1305Avx512(Poly1305State& state, const uint8_t* blocks,
                                          size_t count) {
    Poly1305Lanes<Avx512>::absorb(state, blocks, count);
}

}  // namespace tv::crypto
