// The key stream of ChaCha20 by AVX2: eight blocks at once, or two.
#include <immintrin.h>

#include "base/crypto/ChaCha_x86.h"
#define TV_LANES_TARGET __attribute__((target("avx2")))
#define TV_INLINE TV_LANES_TARGET __attribute__((always_inline)) static inline
#include "base/crypto/ChaChaLanes.h"

namespace tv::crypto {
namespace {

struct Avx2 {
    using Vector = uint32_t __attribute__((vector_size(32)));
    static constexpr Vector kIndex = {0, 1, 2, 3, 4, 5, 6, 7};
    static constexpr size_t kGroups = 0;

    template <int kBits>
    TV_INLINE Vector rotate(Vector v) {
        if constexpr (kBits == 16 || kBits == 8) {
            // Whole bytes: one shuffle instead of two shifts.
            const __m256i order =
                kBits == 16 ? _mm256_set_epi32(0x0d0c0f0e, 0x09080b0a, 0x05040706, 0x01000302,
                                               0x0d0c0f0e, 0x09080b0a, 0x05040706, 0x01000302)
                            : _mm256_set_epi32(0x0e0d0c0f, 0x0a09080b, 0x06050407, 0x02010003,
                                               0x0e0d0c0f, 0x0a09080b, 0x06050407, 0x02010003);
            return Vector(_mm256_shuffle_epi8(__m256i(v), order));
        } else {
            return (v << kBits) | (v >> (32 - kBits));
        }
    }
    template <int kOrder>
    TV_INLINE Vector turn(Vector v) {
        return Vector(_mm256_shuffle_epi32(__m256i(v), kOrder));
    }
    TV_INLINE Vector row(const uint32_t* p) {
        return Vector(
            _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i_u*>(p))));
    }
    TV_INLINE Vector lows32(Vector a, Vector b) {
        return Vector(_mm256_unpacklo_epi32(__m256i(a), __m256i(b)));
    }
    TV_INLINE Vector highs32(Vector a, Vector b) {
        return Vector(_mm256_unpackhi_epi32(__m256i(a), __m256i(b)));
    }
    TV_INLINE Vector lows64(Vector a, Vector b) {
        return Vector(_mm256_unpacklo_epi64(__m256i(a), __m256i(b)));
    }
    TV_INLINE Vector highs64(Vector a, Vector b) {
        return Vector(_mm256_unpackhi_epi64(__m256i(a), __m256i(b)));
    }

    // A block is two registers; the low halves of all rows belong to the first one.
    TV_INLINE void xorRows(Vector a, Vector b, Vector c, Vector d, const uint8_t* in, uint8_t* out,
                           size_t stride, size_t blocks) {
        xorHalf<0x20>(in, out, a, b);
        xorHalf<0x20>(in + 32, out + 32, c, d);
        if (blocks == 1) return;
        xorHalf<0x31>(in + stride, out + stride, a, b);
        xorHalf<0x31>(in + stride + 32, out + stride + 32, c, d);
    }

private:
    template <int kHalves>
    TV_INLINE void xorHalf(const uint8_t* in, uint8_t* out, Vector a, Vector b) {
        const __m256i stream = _mm256_permute2x128_si256(__m256i(a), __m256i(b), kHalves);
        const __m256i text = _mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(in));
        _mm256_storeu_si256(reinterpret_cast<__m256i_u*>(out), _mm256_xor_si256(text, stream));
    }
};

}  // namespace

TV_LANES_TARGET void applyChaChaAvx2(ChaChaState& state, const uint8_t* in, uint8_t* out,
                                     size_t count) {
    ChaChaLanes<Avx2>::apply(state, in, out, count);
}

}  // namespace tv::crypto
