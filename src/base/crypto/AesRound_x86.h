// What the files with AES instructions share.
#pragma once

#include <immintrin.h>

#include <cstdint>

#define TV_AES_TARGET __attribute__((target("aes,sse2")))
#define TV_AES_INLINE TV_AES_TARGET __attribute__((always_inline)) inline

namespace tv::crypto {

TV_AES_INLINE __m128i load128(const void* p) {
    return _mm_loadu_si128(static_cast<const __m128i*>(p));
}

TV_AES_INLINE void store128(void* p, __m128i v) {
    _mm_storeu_si128(static_cast<__m128i*>(p), v);
}

// The S-box on each byte of a word.
uint32_t subWordAesNi(uint32_t word);

}  // namespace tv::crypto
