// The key stream of ChaCha20 by AVX-512: sixteen blocks at once, or four.
#include "base/crypto/Avx512_x86.h"
#include "base/crypto/ChaCha_x86.h"
#define TV_LANES_TARGET __attribute__((target("avx512f,avx512bw,avx512vl,avx512dq,avx2")))
#define TV_INLINE TV_LANES_TARGET __attribute__((always_inline)) static inline
#include "base/crypto/ChaChaLanes.h"

namespace tv::crypto {
namespace {

struct Avx512 {
    using Vector = uint32_t __attribute__((vector_size(64)));
    static constexpr Vector kIndex = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
    // 32-bit programs have eight registers, too few for sixteen words.
    static constexpr size_t kGroups = sizeof(void*) == 8 ? 0 : 2;

    template <int kBits>
    TV_INLINE Vector rotate(Vector v) {
        return Vector(_mm512_rol_epi32(__m512i(v), kBits));
    }
    template <int kOrder>
    TV_INLINE Vector turn(Vector v) {
        return Vector(_mm512_shuffle_epi32(__m512i(v), static_cast<_MM_PERM_ENUM>(kOrder)));
    }
    TV_INLINE Vector row(const uint32_t* p) {
        return Vector(
            _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i_u*>(p))));
    }
    TV_INLINE Vector lows32(Vector a, Vector b) {
        return Vector(_mm512_unpacklo_epi32(__m512i(a), __m512i(b)));
    }
    TV_INLINE Vector highs32(Vector a, Vector b) {
        return Vector(_mm512_unpackhi_epi32(__m512i(a), __m512i(b)));
    }
    TV_INLINE Vector lows64(Vector a, Vector b) {
        return Vector(_mm512_unpacklo_epi64(__m512i(a), __m512i(b)));
    }
    TV_INLINE Vector highs64(Vector a, Vector b) {
        return Vector(_mm512_unpackhi_epi64(__m512i(a), __m512i(b)));
    }

    TV_INLINE void xorRows(Vector a, Vector b, Vector c, Vector d, const uint8_t* in, uint8_t* out,
                           size_t stride, size_t blocks) {
        // First pairs of rows with the lanes 0 1 and 2 3 (fourths of a register), then blocks.
        const __m512i ab01 = fourths<0x44>(__m512i(a), __m512i(b));
        const __m512i cd01 = fourths<0x44>(__m512i(c), __m512i(d));
        xorBlock(in, out, fourths<0x88>(ab01, cd01));
        if (blocks == 1) return;
        xorBlock(in + stride, out + stride, fourths<0xdd>(ab01, cd01));
        if (blocks == 2) return;
        const __m512i ab23 = fourths<0xee>(__m512i(a), __m512i(b));
        const __m512i cd23 = fourths<0xee>(__m512i(c), __m512i(d));
        xorBlock(in + 2 * stride, out + 2 * stride, fourths<0x88>(ab23, cd23));
        if (blocks == 3) return;
        xorBlock(in + 3 * stride, out + 3 * stride, fourths<0xdd>(ab23, cd23));
    }

private:
    template <int kWhich>
    TV_INLINE __m512i fourths(__m512i a, __m512i b) {
        return _mm512_shuffle_i32x4(a, b, kWhich);
    }
    TV_INLINE void xorBlock(const uint8_t* in, uint8_t* out, __m512i stream) {
        _mm512_storeu_si512(out, _mm512_xor_si512(_mm512_loadu_si512(in), stream));
    }
};

}  // namespace

TV_LANES_TARGET void applyChaChaAvx512(ChaChaState& state, const uint8_t* in, uint8_t* out,
                                       size_t count) {
    ChaChaLanes<Avx512>::apply(state, in, out, count);
}

}  // namespace tv::crypto
