// The steps of AES on planes of bits, and the way of blocks into planes and back.
#include "base/crypto/AesSlices.h"

#include <bit>
#include <utility>

#include "base/crypto/Endian.h"

namespace tv::crypto {
namespace {

// Exchanges the bits of a that the mask shows, shifted down, with those of b.
inline void exchange(uint64_t& a, uint64_t& b, int shift, uint64_t mask) {
    const uint64_t t = ((a >> shift) ^ b) & mask;
    b ^= t;
    a ^= t << shift;
}

// Each 8x8 square of bits, one byte from each of the eight words, is mirrored at its diagonal.
void transpose(uint64_t (&w)[8]) {
    for (size_t i = 0; i < 8; i += 2) {
        exchange(w[i], w[i + 1], 1, 0x5555555555555555);
    }
    for (const size_t i : {0u, 1u, 4u, 5u}) {
        exchange(w[i], w[i + 2], 2, 0x3333333333333333);
    }
    for (size_t i = 0; i < 4; ++i) {
        exchange(w[i], w[i + 4], 4, 0x0f0f0f0f0f0f0f0f);
    }
}

// The bytes of a word on the even bytes of a wide one, and back.
inline uint64_t spread(uint32_t v) {
    uint64_t x = v;
    x = (x | x << 16) & 0x0000ffff0000ffff;
    return (x | x << 8) & 0x00ff00ff00ff00ff;
}

inline uint32_t gather(uint64_t x) {
    x &= 0x00ff00ff00ff00ff;
    x = (x | x >> 8) & 0x0000ffff0000ffff;
    return static_cast<uint32_t>(x | x >> 16);
}

inline void complement(AesSlices& s) {  // adds the constant 0x63 (FIPS 197 5.1.1)
    for (const size_t i : {0u, 1u, 5u, 6u}) {
        s.planes[i] = ~s.planes[i];
    }
}

// The inverse of the linear part of the S-box (FIPS 197 5.3.2).
inline void invAffine(AesSlices& s) {
    complement(s);
    const AesSlices q = s;
    for (size_t i = 0; i < 8; ++i) {
        s.planes[i] = q.planes[(i + 2) % 8] ^ q.planes[(i + 5) % 8] ^ q.planes[(i + 7) % 8];
    }
}

}  // namespace

AesSlices sliceBlocks(const uint8_t* blocks) {
    AesSlices s;
    for (size_t block = 0; block < 4; ++block) {
        for (size_t odd = 0; odd < 2; ++odd) {
            const uint8_t* column = blocks + 16 * block + 4 * odd;
            s.planes[4 * odd + block] =
                spread(loadLe<uint32_t>(column)) | spread(loadLe<uint32_t>(column + 8)) << 8;
        }
    }
    transpose(s.planes);
    return s;
}

void unsliceBlocks(AesSlices s, uint8_t* blocks) {
    transpose(s.planes);
    for (size_t block = 0; block < 4; ++block) {
        for (size_t odd = 0; odd < 2; ++odd) {
            uint8_t* column = blocks + 16 * block + 4 * odd;
            storeLe(column, gather(s.planes[4 * odd + block]));
            storeLe(column + 8, gather(s.planes[4 * odd + block] >> 8));
        }
    }
}

void addRoundKey(AesSlices& s, const uint64_t* key) {
    for (size_t i = 0; i < 8; ++i) {
        s.planes[i] ^= key[i];
    }
}

// The circuit of Boyar and Peralta ("A depth-16 circuit for the AES S-box", 2011), with their
// names.
void subBytes(AesSlices& s) {
    const uint64_t x0 = s.planes[7], x1 = s.planes[6], x2 = s.planes[5], x3 = s.planes[4];
    const uint64_t x4 = s.planes[3], x5 = s.planes[2], x6 = s.planes[1], x7 = s.planes[0];

    const uint64_t y14 = x3 ^ x5, y13 = x0 ^ x6, y9 = x0 ^ x3, y8 = x0 ^ x5;
    const uint64_t t0 = x1 ^ x2;
    const uint64_t y1 = t0 ^ x7, y4 = y1 ^ x3, y12 = y13 ^ y14, y2 = y1 ^ x0, y5 = y1 ^ x6;
    const uint64_t y3 = y5 ^ y8;
    const uint64_t t1 = x4 ^ y12;
    const uint64_t y15 = t1 ^ x5, y20 = t1 ^ x1, y6 = y15 ^ x7, y10 = y15 ^ t0, y11 = y20 ^ y9;
    const uint64_t y7 = x7 ^ y11, y17 = y10 ^ y11, y19 = y10 ^ y8, y16 = t0 ^ y11;
    const uint64_t y21 = y13 ^ y16, y18 = x0 ^ y16;

    const uint64_t t2 = y12 & y15, t3 = y3 & y6, t4 = t3 ^ t2, t5 = y4 & x7, t6 = t5 ^ t2;
    const uint64_t t7 = y13 & y16, t8 = y5 & y1, t9 = t8 ^ t7, t10 = y2 & y7, t11 = t10 ^ t7;
    const uint64_t t12 = y9 & y11, t13 = y14 & y17, t14 = t13 ^ t12, t15 = y8 & y10;
    const uint64_t t16 = t15 ^ t12, t17 = t4 ^ t14, t18 = t6 ^ t16, t19 = t9 ^ t14;
    const uint64_t t20 = t11 ^ t16, t21 = t17 ^ y20, t22 = t18 ^ y19, t23 = t19 ^ y21;
    const uint64_t t24 = t20 ^ y18;

    const uint64_t t25 = t21 ^ t22, t26 = t21 & t23, t27 = t24 ^ t26, t28 = t25 & t27;
    const uint64_t t29 = t28 ^ t22, t30 = t23 ^ t24, t31 = t22 ^ t26, t32 = t31 & t30;
    const uint64_t t33 = t32 ^ t24, t34 = t23 ^ t33, t35 = t27 ^ t33, t36 = t24 & t35;
    const uint64_t t37 = t36 ^ t34, t38 = t27 ^ t36, t39 = t29 & t38, t40 = t25 ^ t39;
    const uint64_t t41 = t40 ^ t37, t42 = t29 ^ t33, t43 = t29 ^ t40, t44 = t33 ^ t37;
    const uint64_t t45 = t42 ^ t41;

    const uint64_t z0 = t44 & y15, z1 = t37 & y6, z2 = t33 & x7, z3 = t43 & y16, z4 = t40 & y1;
    const uint64_t z5 = t29 & y7, z6 = t42 & y11, z7 = t45 & y17, z8 = t41 & y10, z9 = t44 & y12;
    const uint64_t z10 = t37 & y3, z11 = t33 & y4, z12 = t43 & y13, z13 = t40 & y5;
    const uint64_t z14 = t29 & y2, z15 = t42 & y9, z16 = t45 & y14, z17 = t41 & y8;

    const uint64_t t46 = z15 ^ z16, t47 = z10 ^ z11, t48 = z5 ^ z13, t49 = z9 ^ z10;
    const uint64_t t50 = z2 ^ z12, t51 = z2 ^ z5, t52 = z7 ^ z8, t53 = z0 ^ z3, t54 = z6 ^ z7;
    const uint64_t t55 = z16 ^ z17, t56 = z12 ^ t48, t57 = t50 ^ t53, t58 = z4 ^ t46;
    const uint64_t t59 = z3 ^ t54, t60 = t46 ^ t57, t61 = z14 ^ t57, t62 = t52 ^ t58;
    const uint64_t t63 = t49 ^ t58, t64 = z4 ^ t59, t65 = t61 ^ t62, t66 = z1 ^ t63;
    const uint64_t t67 = t64 ^ t65;

    const uint64_t s3 = t53 ^ t66;
    s.planes[7] = t59 ^ t63;
    s.planes[6] = t64 ^ ~s3;
    s.planes[5] = t55 ^ ~t67;
    s.planes[4] = s3;
    s.planes[3] = t51 ^ t66;
    s.planes[2] = t47 ^ t65;
    s.planes[1] = t56 ^ ~t62;
    s.planes[0] = t48 ^ ~t60;
}

// Sixteen bits of a plane are a row, four of them a column: row r turns by r columns, that is by 4
// r bits within its sixteen (FIPS 197 5.1.2).
void shiftRows(AesSlices& s) {
    for (uint64_t& x : s.planes) {
        x = (x & 0x000000000000ffff) | (x & 0x00000000fff00000) >> 4 |
            (x & 0x00000000000f0000) << 12 | (x & 0x0000ff0000000000) >> 8 |
            (x & 0x000000ff00000000) << 8 | (x & 0xf000000000000000) >> 12 |
            (x & 0x0fff000000000000) << 4;
    }
}

void invShiftRows(AesSlices& s) {
    for (uint64_t& x : s.planes) {
        x = (x & 0x000000000000ffff) | (x & 0x000000000fff0000) << 4 |
            (x & 0x00000000f0000000) >> 12 | (x & 0x000000ff00000000) << 8 |
            (x & 0x0000ff0000000000) >> 8 | (x & 0x000f000000000000) << 12 |
            (x & 0xfff0000000000000) >> 4;
    }
}

void mixColumns(AesSlices& s) {
    uint64_t below[8], sum[8];  // the byte of the next row; this one plus that
    for (size_t i = 0; i < 8; ++i) {
        below[i] = std::rotr(s.planes[i], 16);
        sum[i] = s.planes[i] ^ below[i];
    }
    for (size_t i = 0; i < 8; ++i) {
        // The planes that the bit shifted out comes back to: x^8 = x^4 + x^3 + x + 1 (FIPS 197
        // 4.2).
        const uint64_t reduced = i == 1 || i == 3 || i == 4 ? sum[7] : 0;
        s.planes[i] = sum[(i + 7) % 8] ^ reduced ^ below[i] ^ std::rotr(sum[i], 32);
    }
}

void invMixColumns(AesSlices& s) {
    // The inverse is mixColumns after a simpler one: four times the sum of a byte and the one two
    // rows on, added to it.
    uint64_t sum[8];
    for (size_t i = 0; i < 8; ++i) {
        sum[i] = s.planes[i] ^ std::rotr(s.planes[i], 32);
    }
    s.planes[0] ^= sum[6];
    s.planes[1] ^= sum[6] ^ sum[7];
    s.planes[2] ^= sum[0] ^ sum[7];
    s.planes[3] ^= sum[1] ^ sum[6];
    s.planes[4] ^= sum[2] ^ sum[6] ^ sum[7];
    s.planes[5] ^= sum[3] ^ sum[7];
    s.planes[6] ^= sum[4];
    s.planes[7] ^= sum[5];
    mixColumns(s);
}

// The inversion in the field is its own inverse, so the forward circuit serves between two inverse
// affine maps.
void invSubBytes(AesSlices& s) {
    invAffine(s);
    subBytes(s);
    invAffine(s);
}

}  // namespace tv::crypto
