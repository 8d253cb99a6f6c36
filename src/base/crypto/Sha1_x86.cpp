// SHA-1 by the processor's SHA instructions.
#include <utility>

#include "base/CpuFeatures.h"
#include "base/crypto/Load_x86.h"
#include "base/crypto/Sha1.h"

#define TV_TARGET __attribute__((target("sha,sse4.1,ssse3")))
#define TV_INLINE TV_TARGET __attribute__((always_inline)) inline

namespace tv::crypto {
namespace {

struct Working {
    __m128i abcd;    // a in the highest lane
    __m128i before;  // abcd of four steps ago: its a is, rotated, the e of now
    __m128i words[4];
};

TV_INLINE __m128i loadWords(const uint8_t* p) {
    return _mm_shuffle_epi8(load128(p),
                            _mm_set_epi32(0x00010203, 0x04050607, 0x08090a0b, 0x0c0d0e0f));
}

// Four steps with the four words of this group (of twenty groups).
template <size_t kGroup>
TV_INLINE void fourSteps(Working& w) {
    __m128i& words = w.words[kGroup % 4];
    if constexpr (kGroup >= 4) {
        const __m128i mixed = _mm_xor_si128(_mm_sha1msg1_epu32(words, w.words[(kGroup + 1) % 4]),
                                            w.words[(kGroup + 2) % 4]);
        words = _mm_sha1msg2_epu32(mixed, w.words[(kGroup + 3) % 4]);
    }
    const __m128i input = _mm_sha1nexte_epu32(w.before, words);
    w.before = w.abcd;
    w.abcd = _mm_sha1rnds4_epu32(w.abcd, input, static_cast<int>(kGroup / 5));
}

// All groups but the first.
template <size_t... kGroup>
TV_INLINE void groups(Working& w, std::index_sequence<kGroup...>) {
    (fourSteps<kGroup + 1>(w), ...);
}

TV_INLINE void firstSteps(Working& w, __m128i e) {
    const __m128i input = _mm_add_epi32(e, w.words[0]);
    w.before = w.abcd;
    w.abcd = _mm_sha1rnds4_epu32(w.abcd, input, 0);
}

TV_TARGET void compressShaNi(Sha1Core::State& state, const uint8_t* blocks, size_t count) {
    Working w;
    // 1b reverses the four words: the instructions want a in the highest lane.
    w.abcd = _mm_shuffle_epi32(load128(state.data()), 0x1b);
    __m128i e = _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0);
    for (; count != 0; --count, blocks += Sha1Core::kBlockSize) {
        const __m128i startAbcd = w.abcd;
        w.words[0] = loadWords(blocks);
        w.words[1] = loadWords(blocks + 16);
        w.words[2] = loadWords(blocks + 32);
        w.words[3] = loadWords(blocks + 48);
        firstSteps(w, e);
        groups(w, std::make_index_sequence<19>());
        e = _mm_sha1nexte_epu32(w.before, e);
        w.abcd = _mm_add_epi32(w.abcd, startAbcd);
    }
    store128(state.data(), _mm_shuffle_epi32(w.abcd, 0x1b));
    state[4] = static_cast<uint32_t>(_mm_extract_epi32(e, 3));
}

}  // namespace

constinit const Sha1Form kSha1ShaNi = {
    "sha-ni", cpuHas<&CpuFeatures::shaNi, &CpuFeatures::sse41, &CpuFeatures::ssse3>, compressShaNi};

}  // namespace tv::crypto
