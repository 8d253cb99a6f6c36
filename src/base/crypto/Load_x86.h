// 16 bytes at any address to a register and back, for files of any target.
#pragma once

#include <immintrin.h>

#define TV_LOAD_INLINE __attribute__((target("sse2"), always_inline)) inline

namespace tv::crypto {

TV_LOAD_INLINE __m128i load128(const void* p) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
}

TV_LOAD_INLINE void store128(void* p, __m128i v) {
    _mm_storeu_si128(static_cast<__m128i*>(p), v);
}

}  // namespace tv::crypto

#undef TV_LOAD_INLINE
