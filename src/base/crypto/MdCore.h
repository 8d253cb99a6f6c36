// What MD4 and MD5 have alike: sizes, the state at the start, and the frame round the rounds.
#pragma once

#include "base/crypto/BlockDigest.h"

namespace tv::crypto {

struct MdCore {
    using State = std::array<uint32_t, 4>;
    static constexpr size_t kBlockSize = 64;
    static constexpr size_t kDigestSize = 16;
    static constexpr size_t kLengthSize = 8;
    static constexpr bool kBigEndian = false;
    // RFC 1320 3.3 and RFC 1321 3.3.
    static constexpr State kInitial = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
};

// rounds(s, words) changes a copy of the state by the sixteen words of a block.
template <class Rounds>
inline void compressMd(MdCore::State& state, const uint8_t* blocks, size_t count, Rounds rounds) {
    uint32_t words[16];
    for (; count != 0; --count, blocks += MdCore::kBlockSize) {
        for (size_t i = 0; i < 16; ++i) {
            words[i] = loadLe<uint32_t>(blocks + 4 * i);
        }
        MdCore::State s = state;
        rounds(s, words);
        for (size_t i = 0; i < s.size(); ++i) {
            state[i] += s[i];
        }
    }
    plat::wipe(words, sizeof words);
}

}  // namespace tv::crypto
