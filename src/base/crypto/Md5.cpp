// MD5's compression function: four rounds of sixteen steps.
#include "base/crypto/Md5.h"

namespace tv::crypto {
namespace {

// RFC 1321 3.4: floor(2^32 * abs(sin(i + 1))).
constexpr uint32_t kSines[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

// The word that a step takes, and its shift, by round (a fourth of the 64 steps).
template <size_t kRound>
constexpr size_t wordOf(size_t i) {
    if (kRound == 0) return i;
    if (kRound == 1) return (5 * i + 1) % 16;
    if (kRound == 2) return (3 * i + 5) % 16;
    return 7 * i % 16;
}

// RFC 1321 3.4.
constexpr int kShifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

template <size_t kRound>
inline uint32_t mix(uint32_t x, uint32_t y, uint32_t z) {
    if constexpr (kRound == 0) return ((y ^ z) & x) ^ z;
    if constexpr (kRound == 1) return (x & z) + (y & ~z);
    if constexpr (kRound == 2) return x ^ y ^ z;
    return y ^ (x | ~z);
}

template <size_t kRound>
inline void step(uint32_t& a, uint32_t b, uint32_t c, uint32_t d, const uint32_t* words, size_t i) {
    a += kSines[16 * kRound + i] + words[wordOf<kRound>(i)] + mix<kRound>(b, c, d);
    a = b + std::rotl(a, kShifts[kRound][i % 4]);
}

template <size_t kRound>
inline void round(Md5Core::State& s, const uint32_t* words) {
#pragma GCC unroll 4
    for (size_t i = 0; i < 16; i += 4) {
        step<kRound>(s[0], s[1], s[2], s[3], words, i);
        step<kRound>(s[3], s[0], s[1], s[2], words, i + 1);
        step<kRound>(s[2], s[3], s[0], s[1], words, i + 2);
        step<kRound>(s[1], s[2], s[3], s[0], words, i + 3);
    }
}

}  // namespace

void Md5Core::compress(State& state, const uint8_t* blocks, size_t count) {
    compressMd(state, blocks, count, [](State& s, const uint32_t* words) {
        round<0>(s, words);
        round<1>(s, words);
        round<2>(s, words);
        round<3>(s, words);
    });
}

}  // namespace tv::crypto
