// SHA-1's compression function in portable form, and the choice between it and the instructions.
#include "base/crypto/Sha1.h"

namespace tv::crypto {
namespace {

template <int kRound>
inline uint32_t mix(uint32_t x, uint32_t y, uint32_t z) {
    if constexpr (kRound == 0) return ((y ^ z) & x) ^ z;
    if constexpr (kRound == 2) return (x & y) + (z & (x ^ y));
    return x ^ y ^ z;
}

// FIPS 180-4 4.2.1, one for each twenty steps; mix is 4.1.1.
constexpr uint32_t kConstants[4] = {0x5a827999, 0x6ed9eba1, 0x8f1bbcdc, 0xca62c1d6};

struct Working {
    uint32_t a, b, c, d, e;
    uint32_t words[16];  // the last sixteen words of the schedule
};

// Word t of the schedule; from 16 on made of four older ones.
template <bool kGiven>
inline uint32_t word(Working& w, size_t t) {
    if constexpr (!kGiven) {
        w.words[t % 16] = std::rotl(w.words[(t + 13) % 16] ^ w.words[(t + 8) % 16] ^
                                        w.words[(t + 2) % 16] ^ w.words[t % 16],
                                    1);
    }
    return w.words[t % 16];
}

template <int kRound, bool kGiven>
inline void step(Working& w, uint32_t a, uint32_t& b, uint32_t c, uint32_t d, uint32_t& e,
                 size_t t) {
    e += std::rotl(a, 5) + mix<kRound>(b, c, d) + kConstants[kRound] + word<kGiven>(w, t);
    b = std::rotl(b, 30);
}

template <int kRound, bool kGiven>
inline void steps(Working& w, size_t from, size_t to) {
#pragma GCC unroll 4
    for (size_t t = from; t < to; t += 5) {
        step<kRound, kGiven>(w, w.a, w.b, w.c, w.d, w.e, t);
        step<kRound, kGiven>(w, w.e, w.a, w.b, w.c, w.d, t + 1);
        step<kRound, kGiven>(w, w.d, w.e, w.a, w.b, w.c, t + 2);
        step<kRound, kGiven>(w, w.c, w.d, w.e, w.a, w.b, t + 3);
        step<kRound, kGiven>(w, w.b, w.c, w.d, w.e, w.a, t + 4);
    }
}

// Steps 15 to 19 straddle the end of the given words.
inline void straddle(Working& w) {
    step<0, true>(w, w.a, w.b, w.c, w.d, w.e, 15);
    step<0, false>(w, w.e, w.a, w.b, w.c, w.d, 16);
    step<0, false>(w, w.d, w.e, w.a, w.b, w.c, 17);
    step<0, false>(w, w.c, w.d, w.e, w.a, w.b, 18);
    step<0, false>(w, w.b, w.c, w.d, w.e, w.a, 19);
}

void compressPortable(Sha1Core::State& state, const uint8_t* blocks, size_t count) {
    Working w;
    for (; count != 0; --count, blocks += Sha1Core::kBlockSize) {
        for (size_t i = 0; i < 16; ++i) {
            w.words[i] = loadBe<uint32_t>(blocks + 4 * i);
        }
        w.a = state[0], w.b = state[1], w.c = state[2], w.d = state[3], w.e = state[4];
        steps<0, true>(w, 0, 15);
        straddle(w);
        steps<1, false>(w, 20, 40);
        steps<2, false>(w, 40, 60);
        steps<3, false>(w, 60, 80);
        state[0] += w.a, state[1] += w.b, state[2] += w.c, state[3] += w.d, state[4] += w.e;
    }
    plat::wipe(&w, sizeof w);
}

}  // namespace

constinit const Sha1Form kSha1Portable = {"portable", alwaysUsable, compressPortable};

namespace {
constexpr const Sha1Form* kForms[] = {&kSha1ShaNi, &kSha1Portable};
}
constinit Dispatch<Sha1Form> sha1Forms{kForms};

void Sha1Core::compress(State& state, const uint8_t* blocks, size_t count) {
    sha1Forms.get().compress(state, blocks, count);
}

}  // namespace tv::crypto
