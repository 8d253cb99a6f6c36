// The word of all big-number arithmetic: 64 bits where the compiler has 128-bit products, else 32.
// Nothing here branches or indexes on values. Arrays of limbs stand lowest limb first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/ConstTime.h"

namespace tv::crypto {

#if defined(__SIZEOF_INT128__)
using Limb = uint64_t;
__extension__ typedef unsigned __int128 DoubleLimb;
#else
using Limb = uint32_t;
using DoubleLimb = uint64_t;
#endif

inline constexpr size_t kLimbBytes = sizeof(Limb);
inline constexpr size_t kLimbBits = 8 * sizeof(Limb);

constexpr size_t limbsForBits(size_t bits) {
    return (bits + kLimbBits - 1) / kLimbBits;
}

// Returns the low limb of a * b + c + carry; the high limb becomes the new carry.
inline Limb mulAdd(Limb a, Limb b, Limb c, Limb& carry) {
    DoubleLimb sum = static_cast<DoubleLimb>(a) * b + c + carry;
    carry = static_cast<Limb>(sum >> kLimbBits);
    return static_cast<Limb>(sum);
}

// Carry and borrow are 0 or 1, before and after.
inline Limb addCarry(Limb a, Limb b, Limb& carry) {
    DoubleLimb sum = static_cast<DoubleLimb>(a) + b + carry;
    carry = static_cast<Limb>(sum >> kLimbBits);
    return static_cast<Limb>(sum);
}

inline Limb subBorrow(Limb a, Limb b, Limb& borrow) {
    DoubleLimb difference = static_cast<DoubleLimb>(a) - b - borrow;
    borrow = static_cast<Limb>(difference >> kLimbBits) & 1;
    return static_cast<Limb>(difference);
}

// All ones or all zeros, for a bit of 1 or 0.
inline Limb maskIfSet(Limb bit) {
    return ctBarrier(Limb{0} - bit);
}

// out = a + b and a - b over n limbs; the carry or borrow is returned. out may be a or b.
inline Limb addLimbs(Limb* out, const Limb* a, const Limb* b, size_t n) {
    Limb carry = 0;
    for (size_t i = 0; i < n; ++i) {
        out[i] = addCarry(a[i], b[i], carry);
    }
    return carry;
}

inline Limb subLimbs(Limb* out, const Limb* a, const Limb* b, size_t n) {
    Limb borrow = 0;
    for (size_t i = 0; i < n; ++i) {
        out[i] = subBorrow(a[i], b[i], borrow);
    }
    return borrow;
}

inline void selectLimbs(Limb* out, Limb mask, const Limb* ifOnes, const Limb* ifZeros, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        out[i] = ctSelect(mask, ifOnes[i], ifZeros[i]);
    }
}

inline Limb maskIfAllZero(const Limb* a, size_t n) {
    Limb bits = 0;
    for (size_t i = 0; i < n; ++i) {
        bits |= a[i];
    }
    return ctIsZero(bits);
}

// The borrow of a - b: 1 if a < b, else 0.
inline Limb isLess(const Limb* a, const Limb* b, size_t n) {
    Limb borrow = 0;
    for (size_t i = 0; i < n; ++i) {
        subBorrow(a[i], b[i], borrow);
    }
    return borrow;
}

// Big-endian bytes, at most n limbs of them; the rest becomes zero.
void limbsFromBytes(Limb* out, size_t n, std::span<const uint8_t> bigEndian);
// The low bytes of a number, big-endian, as many as out takes.
void limbsToBytes(std::span<uint8_t> out, const Limb* a, size_t n);
// Bits up to the highest one set. Takes time by the value: for public numbers.
size_t bitLength(const Limb* a, size_t n);
// -1 / m modulo 2^kLimbBits, for odd m.
Limb negatedInverse(Limb m);

}  // namespace tv::crypto
