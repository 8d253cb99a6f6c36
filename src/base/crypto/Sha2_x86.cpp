// SHA-256 by the processor's SHA instructions.
#include <utility>

#include "base/CpuFeatures.h"
#include "base/crypto/Load_x86.h"
#include "base/crypto/Sha2.h"

#define TV_TARGET __attribute__((target("sha,sse4.1,ssse3")))
#define TV_INLINE TV_TARGET __attribute__((always_inline)) inline

namespace tv::crypto {
namespace {

// The instructions want the state in this arrangement.
struct Working {
    __m128i abef;
    __m128i cdgh;
    __m128i words[4];
};

TV_INLINE __m128i loadWords(const uint8_t* p) {
    return _mm_shuffle_epi8(load128(p),
                            _mm_set_epi32(0x0c0d0e0f, 0x08090a0b, 0x04050607, 0x00010203));
}

TV_INLINE void loadState(Working& w, const Sha256Core::State& state) {
    // b1 changes the words of each pair, 1b reverses all four.
    const __m128i cdab = _mm_shuffle_epi32(load128(state.data()), 0xb1);
    const __m128i efgh = _mm_shuffle_epi32(load128(state.data() + 4), 0x1b);
    w.abef = _mm_alignr_epi8(cdab, efgh, 8);
    w.cdgh = _mm_blend_epi16(efgh, cdab, 0xf0);
}

TV_INLINE void storeState(Sha256Core::State& state, const Working& w) {
    const __m128i feba = _mm_shuffle_epi32(w.abef, 0x1b);
    const __m128i dchg = _mm_shuffle_epi32(w.cdgh, 0xb1);
    store128(state.data(), _mm_blend_epi16(feba, dchg, 0xf0));
    store128(state.data() + 4, _mm_alignr_epi8(dchg, feba, 8));
}

// Four steps with the four words of this group (of sixteen groups).
template <size_t kGroup>
TV_INLINE void fourSteps(Working& w) {
    __m128i& words = w.words[kGroup % 4];
    if constexpr (kGroup >= 4) {
        const __m128i last = w.words[(kGroup + 3) % 4];
        const __m128i sevenAgo = _mm_alignr_epi8(last, w.words[(kGroup + 2) % 4], 4);
        const __m128i mixed = _mm_sha256msg1_epu32(words, w.words[(kGroup + 1) % 4]);
        words = _mm_sha256msg2_epu32(_mm_add_epi32(mixed, sevenAgo), last);
    }
    const __m128i input = _mm_add_epi32(words, load128(kSha256Constants + 4 * kGroup));
    w.cdgh = _mm_sha256rnds2_epu32(w.cdgh, w.abef, input);
    // An instruction takes two steps with the lower two words: 0e moves the upper two there.
    w.abef = _mm_sha256rnds2_epu32(w.abef, w.cdgh, _mm_shuffle_epi32(input, 0x0e));
}

template <size_t... kGroup>
TV_INLINE void groups(Working& w, std::index_sequence<kGroup...>) {
    (fourSteps<kGroup>(w), ...);
}

TV_TARGET void compressShaNi(Sha256Core::State& state, const uint8_t* blocks, size_t count) {
    Working w;
    loadState(w, state);
    for (; count != 0; --count, blocks += Sha256Core::kBlockSize) {
        const __m128i startAbef = w.abef;
        const __m128i startCdgh = w.cdgh;
        w.words[0] = loadWords(blocks);
        w.words[1] = loadWords(blocks + 16);
        w.words[2] = loadWords(blocks + 32);
        w.words[3] = loadWords(blocks + 48);
        groups(w, std::make_index_sequence<16>());
        w.abef = _mm_add_epi32(w.abef, startAbef);
        w.cdgh = _mm_add_epi32(w.cdgh, startCdgh);
    }
    storeState(state, w);
}

}  // namespace

constinit const Sha256Form kSha256ShaNi = {
    "sha-ni", cpuHas<&CpuFeatures::shaNi, &CpuFeatures::sse41, &CpuFeatures::ssse3>, compressShaNi};

}  // namespace tv::crypto
