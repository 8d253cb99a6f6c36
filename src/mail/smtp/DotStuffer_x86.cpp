// The search of the dot-stuffer by SSE2: sixteen bytes at once.
#include "mail/smtp/DotStufferScan.h"

#if defined(__x86_64__) || defined(__i386__)

#include <immintrin.h>

#include "base/CpuFeatures.h"

namespace tv {
namespace {

#define TV_SSE2 __attribute__((target("sse2")))

TV_SSE2 inline __m128i load(const uint8_t* in) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(in));
}

TV_SSE2 const uint8_t* findSse2(const uint8_t* in, const uint8_t* end) {
    const __m128i lineFeeds = _mm_set1_epi8('\n');
    const __m128i dots = _mm_set1_epi8('.');
    // Every byte beside the one after it.
    for (; end - in > 16; in += 16) {
        const __m128i pairs =
            _mm_and_si128(_mm_cmpeq_epi8(load(in), lineFeeds), _mm_cmpeq_epi8(load(in + 1), dots));
        const unsigned found = static_cast<unsigned>(_mm_movemask_epi8(pairs));
        if (found != 0) return in + __builtin_ctz(found) + 1;
    }
    return kLineDotPortable.find(in, end);
}

}  // namespace

constinit const LineDotForm kLineDotSse2 = {"sse2", cpuHas<&CpuFeatures::sse2>, findSse2};

}  // namespace tv

#endif
