// Scalars of curves as sums of few signed digits.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "base/crypto/Limb.h"

namespace tv::crypto {

// Replaces an odd scalar by order - scalar, which is even. Returns the mask of "was odd". Constant
// time.
template <size_t N>
Limb makeEven(std::array<Limb, N>& scalar, const std::array<Limb, N>& order) {
    std::array<Limb, N> other;
    subLimbs(other.data(), order.data(), scalar.data(), N);
    const Limb odd = maskIfSet(scalar[0] & 1);
    selectLimbs(scalar.data(), odd, other.data(), scalar.data(), N);
    return odd;
}

struct SignedWindow {
    Limb size;      // 0 .. 2^(width - 1)
    Limb negative;  // mask
};

// Digit i of the scalar in base 2^width, as one of -2^(width - 1) .. 2^(width - 1). Constant time
// in the scalar.
template <size_t width, size_t N>
SignedWindow signedWindow(const std::array<Limb, N>& scalar, size_t i) {
    // Bits width * i - 1 to width * i + width - 1; zeros beyond the scalar's ends. They stand for
    // -2^width b5 + .. + 2 b1 + b0, rounded up and halved.
    constexpr Limb kMask = (Limb{1} << (width + 1)) - 1;
    Limb bits = scalar[0] << 1;
    if (i != 0) {
        const size_t low = width * i - 1, limb = low / kLimbBits, shift = low % kLimbBits;
        bits = limb < N ? scalar[limb] >> shift : 0;
        if (shift + width + 1 > kLimbBits && limb + 1 < N) {
            bits |= scalar[limb + 1] << (kLimbBits - shift);
        }
    }
    bits &= kMask;
    const Limb negative = maskIfSet(bits >> width);
    const Limb size = ctSelect(negative, kMask - bits, bits);
    return {(size >> 1) + (size & 1), negative};
}

// The digits of a number in non-adjacent form, lowest first: odd ones below 2^(width - 1) in size,
// and zeros. Takes time by the number: for public ones.
template <size_t N>
std::vector<int8_t> signedDigits(const std::array<Limb, N>& number, int width) {
    std::vector<int8_t> digits;
    digits.reserve(N * kLimbBits + 1);
    const Limb mask = (Limb{1} << width) - 1;
    Limb carry = 0;
    for (size_t i = 0; i < N * kLimbBits; ++i) {
        const size_t limb = i / kLimbBits, shift = i % kLimbBits;
        if ((number[limb] >> shift & 1) == carry) {
            digits.push_back(0);
            continue;
        }
        Limb bits = number[limb] >> shift;
        if (shift != 0 && limb + 1 < N) bits |= number[limb + 1] << (kLimbBits - shift);
        const int digit = static_cast<int>((bits & mask) + carry);
        const bool negative = digit >> (width - 1) != 0;
        digits.push_back(static_cast<int8_t>(negative ? digit - (1 << width) : digit));
        carry = negative ? 1 : 0;
        for (int k = 1; k < width && i + 1 < N * kLimbBits; ++k, ++i) {
            digits.push_back(0);
        }
    }
    if (carry != 0) digits.push_back(1);
    return digits;
}

}  // namespace tv::crypto
