// MD5 (RFC 1321). For CRAM-MD5, NTLM and the old versions of TLS alone.
#pragma once

#include "base/crypto/BlockDigest.h"

namespace tv::crypto {

struct Md5Core {
    using State = std::array<uint32_t, 4>;
    static constexpr size_t kBlockSize = 64;
    static constexpr size_t kDigestSize = 16;
    static constexpr size_t kLengthSize = 8;
    static constexpr bool kBigEndian = false;
    // RFC 1321 3.3.
    static constexpr State kInitial = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};
    static void compress(State& state, const uint8_t* blocks, size_t count);
};

using Md5 = BlockDigest<Md5Core>;

}  // namespace tv::crypto
