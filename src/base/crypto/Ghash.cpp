// GHASH (SP 800-38D 6.4) without any table: products with holes, then the reduction by shifts.
#include "base/crypto/Ghash.h"

#include "base/crypto/Endian.h"

namespace tv::crypto {
namespace {

// Carry-less product. Each of the sixteen partial products has at most eight ones to a position,
// which fit the three bits of the hole.
uint64_t multiply32(uint32_t a, uint32_t b) {
    constexpr uint32_t kEvery4 = 0x11111111;
    const uint64_t a0 = a & kEvery4, a1 = a & kEvery4 << 1, a2 = a & kEvery4 << 2;
    const uint64_t a3 = a & kEvery4 << 3;
    const uint32_t b0 = b & kEvery4, b1 = b & kEvery4 << 1, b2 = b & kEvery4 << 2;
    const uint32_t b3 = b & kEvery4 << 3;
    constexpr uint64_t kWide = 0x1111111111111111;
    return (((a0 * b0) ^ (a1 * b3) ^ (a2 * b2) ^ (a3 * b1)) & kWide) |
           (((a0 * b1) ^ (a1 * b0) ^ (a2 * b3) ^ (a3 * b2)) & kWide << 1) |
           (((a0 * b2) ^ (a1 * b1) ^ (a2 * b0) ^ (a3 * b3)) & kWide << 2) |
           (((a0 * b3) ^ (a1 * b2) ^ (a2 * b1) ^ (a3 * b0)) & kWide << 3);
}

// Karatsuba's three products instead of four.
GhashElement multiply64(uint64_t a, uint64_t b) {
    const uint32_t a0 = static_cast<uint32_t>(a), a1 = static_cast<uint32_t>(a >> 32);
    const uint32_t b0 = static_cast<uint32_t>(b), b1 = static_cast<uint32_t>(b >> 32);
    const uint64_t low = multiply32(a0, b0);
    const uint64_t high = multiply32(a1, b1);
    const uint64_t middle = multiply32(a0 ^ a1, b0 ^ b1) ^ low ^ high;
    return {high ^ middle >> 32, low ^ middle << 32};
}

}  // namespace

GhashElement loadGhash(const uint8_t* p) {
    return {loadBe<uint64_t>(p), loadBe<uint64_t>(p + 8)};
}

void storeGhash(uint8_t* p, GhashElement v) {
    storeBe(p, v.high);
    storeBe(p + 8, v.low);
}

GhashElement ghashFactor(GhashElement v) {
    // The highest bit stands for x^0; shifted out it is x^-1 = x^127 + x^6 + x + 1.
    const uint64_t out = uint64_t{0} - (v.high >> 63);
    return {(v.high << 1 | v.low >> 63) ^ (out & 0xc200000000000000), v.low << 1 ^ (out & 1)};
}

GhashElement ghashMultiply(GhashElement a, GhashElement factor) {
    const GhashElement low = multiply64(a.low, factor.low);
    const GhashElement high = multiply64(a.high, factor.high);
    const GhashElement cross = multiply64(a.low ^ a.high, factor.low ^ factor.high);
    // The product as four words; the lower two are folded upwards, one after the other: each is
    // cancelled by its multiple of the polynomial.
    const uint64_t w0 = low.low;
    uint64_t w1 = low.high ^ cross.low ^ low.low ^ high.low;
    uint64_t w2 = high.low ^ cross.high ^ low.high ^ high.high;
    uint64_t w3 = high.high;
    // The polynomial's 1 + x + x^2 + x^7 are shifts to the right by 0, 1, 2 and 7 bits in this
    // order of bits; what falls out goes to the word below.
    w1 ^= w0 << 63 ^ w0 << 62 ^ w0 << 57;
    w2 ^= w0 ^ w0 >> 1 ^ w0 >> 2 ^ w0 >> 7;
    w2 ^= w1 << 63 ^ w1 << 62 ^ w1 << 57;
    w3 ^= w1 ^ w1 >> 1 ^ w1 >> 2 ^ w1 >> 7;
    return {w3, w2};
}

}  // namespace tv::crypto
