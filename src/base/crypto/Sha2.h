// SHA-256, SHA-384 and SHA-512 (FIPS 180-4).
#pragma once

#include "base/Dispatch.h"
#include "base/crypto/BlockDigest.h"

namespace tv::crypto {

struct Sha256Core {
    using State = std::array<uint32_t, 8>;
    static constexpr size_t kBlockSize = 64;
    static constexpr size_t kDigestSize = 32;
    static constexpr size_t kLengthSize = 8;
    static constexpr bool kBigEndian = true;
    // FIPS 180-4 5.3.3.
    static constexpr State kInitial = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                       0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    static void compress(State& state, const uint8_t* blocks, size_t count);
};

struct Sha512Core {
    using State = std::array<uint64_t, 8>;
    static constexpr size_t kBlockSize = 128;
    static constexpr size_t kDigestSize = 64;
    static constexpr size_t kLengthSize = 16;
    static constexpr bool kBigEndian = true;
    // FIPS 180-4 5.3.5.
    static constexpr State kInitial = {0x6a09e667f3bcc908, 0xbb67ae8584caa73b, 0x3c6ef372fe94f82b,
                                       0xa54ff53a5f1d36f1, 0x510e527fade682d1, 0x9b05688c2b3e6c1f,
                                       0x1f83d9abfb41bd6b, 0x5be0cd19137e2179};
    static void compress(State& state, const uint8_t* blocks, size_t count);
};

struct Sha384Core : Sha512Core {
    static constexpr size_t kDigestSize = 48;
    // FIPS 180-4 5.3.4.
    static constexpr State kInitial = {0xcbbb9d5dc1059ed8, 0x629a292a367cd507, 0x9159015a3070dd17,
                                       0x152fecd8f70e5939, 0x67332667ffc00b31, 0x8eb44a8768581511,
                                       0xdb0c2e0d64f98fa7, 0x47b5481dbefa4fa4};
};

using Sha256 = BlockDigest<Sha256Core>;
using Sha384 = BlockDigest<Sha384Core>;
using Sha512 = BlockDigest<Sha512Core>;

struct Sha256Form {
    const char* name;
    bool (*usable)();
    void (*compress)(Sha256Core::State& state, const uint8_t* blocks, size_t count);
};

// FIPS 180-4 4.2.2: shared by the forms.
extern const uint32_t kSha256Constants[64];

extern const Sha256Form kSha256Portable;
extern const Sha256Form kSha256ShaNi;
extern Dispatch<Sha256Form> sha256Forms;

}  // namespace tv::crypto
