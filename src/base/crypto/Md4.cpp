// MD4's compression function: three rounds, each with its own mix and order of words.
#include "base/crypto/Md4.h"

namespace tv::crypto {
namespace {

struct Choose {  // bits of y where x is set, of z elsewhere
    uint32_t operator()(uint32_t x, uint32_t y, uint32_t z) const { return ((y ^ z) & x) ^ z; }
};
struct Majority {
    uint32_t operator()(uint32_t x, uint32_t y, uint32_t z) const {
        return (x & y) | ((x | y) & z);
    }
};
struct Parity {
    uint32_t operator()(uint32_t x, uint32_t y, uint32_t z) const { return x ^ y ^ z; }
};

// One of the three rounds of RFC 1320 3.4: sixteen steps that take the words in the given order.
template <class Mix>
void round(Md4Core::State& s, const uint32_t (&words)[16], const uint8_t (&order)[16],
           const int (&shifts)[4], uint32_t constant) {
    const Mix mix;
    for (size_t i = 0; i < 16; ++i) {
        const uint32_t a = s[0] + mix(s[1], s[2], s[3]) + words[order[i]] + constant;
        s = {s[3], std::rotl(a, shifts[i % 4]), s[1], s[2]};
    }
}

// RFC 1320 3.4.
constexpr uint8_t kOrder1[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
constexpr uint8_t kOrder2[16] = {0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15};
constexpr uint8_t kOrder3[16] = {0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15};

}  // namespace

void Md4Core::compress(State& state, const uint8_t* blocks, size_t count) {
    compressMd(state, blocks, count, [](State& s, const uint32_t(&words)[16]) {
        // Shifts and constants of RFC 1320 3.4; the constants are the roots of 2 and 3, times 2^30.
        round<Choose>(s, words, kOrder1, {3, 7, 11, 19}, 0);
        round<Majority>(s, words, kOrder2, {3, 5, 9, 13}, 0x5a827999);
        round<Parity>(s, words, kOrder3, {3, 9, 11, 15}, 0x6ed9eba1);
    });
}

}  // namespace tv::crypto
