// DES and triple DES (FIPS 46-3): for NTLM and the suites of old servers. Both are computed as a
// boolean network over all eight S-boxes at once, so no index or branch depends on key or data.
#pragma once

#include "base/crypto/Cbc.h"

namespace tv::crypto {

class Des {
public:
    static constexpr size_t kBlockSize = 8;

    // 8 bytes; the lowest bit of each (parity) is ignored.
    explicit Des(std::span<const uint8_t> key);
    Des(const Des&) = default;
    Des& operator=(const Des&) = default;
    ~Des();

    // out may be in.
    void encryptBlocks(const uint8_t* in, uint8_t* out, size_t count) const;
    void decryptBlocks(const uint8_t* in, uint8_t* out, size_t count) const;

private:
    friend class TripleDes;

    // For each round six words: bit k of the 6-bit input of S-box b, repeated over nibble b.
    using RoundKey = std::array<uint32_t, 6>;

    // The sixteen rounds without the initial and final permutation, ends exchanged.
    void encryptRounds(uint32_t& left, uint32_t& right) const;
    void decryptRounds(uint32_t& left, uint32_t& right) const;

    std::array<RoundKey, 16> keys_;
};

// Encrypt, decrypt, encrypt under three keys: 24 bytes.
class TripleDes {
public:
    static constexpr size_t kBlockSize = 8;

    explicit TripleDes(std::span<const uint8_t> key)
        : first_(key.subspan(0, 8)), second_(key.subspan(8, 8)), third_(key.subspan(16, 8)) {}

    // out may be in.
    void encryptBlocks(const uint8_t* in, uint8_t* out, size_t count) const;
    void decryptBlocks(const uint8_t* in, uint8_t* out, size_t count) const;

private:
    Des first_;
    Des second_;
    Des third_;
};

using DesCbc = Cbc<Des>;
using TripleDesCbc = Cbc<TripleDes>;

}  // namespace tv::crypto
