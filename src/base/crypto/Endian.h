// Loads and stores of integers in a fixed byte order, free of alignment needs.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace tv::crypto {

// Every machine we build for is little-endian.
static_assert(std::endian::native == std::endian::little);

inline uint32_t byteSwap(uint32_t v) {
    return __builtin_bswap32(v);
}
inline uint64_t byteSwap(uint64_t v) {
    return __builtin_bswap64(v);
}

template <class Word>
inline Word loadLe(const uint8_t* p) {
    Word v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

template <class Word>
inline Word loadBe(const uint8_t* p) {
    return byteSwap(loadLe<Word>(p));
}

template <class Word>
inline void storeLe(uint8_t* p, Word v) {
    std::memcpy(p, &v, sizeof v);
}

template <class Word>
inline void storeBe(uint8_t* p, Word v) {
    storeLe(p, byteSwap(v));
}

}  // namespace tv::crypto
