// MD4 (RFC 1320). Broken as a hash; NTLM still derives its keys with it.
#pragma once

#include "base/crypto/BlockDigest.h"

namespace tv::crypto {

struct Md4Core {
    using State = std::array<uint32_t, 4>;
    static constexpr size_t kBlockSize = 64;
    static constexpr size_t kDigestSize = 16;
    static constexpr size_t kLengthSize = 8;
    static constexpr bool kBigEndian = false;
    // RFC 1320 3.3.
    static constexpr State kInitial = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    static void compress(State& state, const uint8_t* blocks, size_t count);
};

using Md4 = BlockDigest<Md4Core>;

}  // namespace tv::crypto
