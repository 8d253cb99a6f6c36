// SHA-1 (FIPS 180-4): for the suites, signatures and PRFs of old TLS versions.
#pragma once

#include "base/Dispatch.h"
#include "base/crypto/BlockDigest.h"

namespace tv::crypto {

struct Sha1Core {
    using State = std::array<uint32_t, 5>;
    static constexpr size_t kBlockSize = 64;
    static constexpr size_t kDigestSize = 20;
    static constexpr size_t kLengthSize = 8;
    static constexpr bool kBigEndian = true;
    // FIPS 180-4 5.3.1.
    static constexpr State kInitial = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};
    static void compress(State& state, const uint8_t* blocks, size_t count);
};

using Sha1 = BlockDigest<Sha1Core>;

struct Sha1Form {
    const char* name;
    bool (*usable)();
    void (*compress)(Sha1Core::State& state, const uint8_t* blocks, size_t count);
};

extern const Sha1Form kSha1Portable;
extern const Sha1Form kSha1ShaNi;
extern Dispatch<Sha1Form> sha1Forms;

}  // namespace tv::crypto
