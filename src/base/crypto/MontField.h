// Integers modulo an odd number of up to 521 bits, in Montgomery form: for the fields and orders of
// elliptic curves. Elements are always fully reduced. Constant time, except where a comment says
// otherwise.
#pragma once

#include <array>
#include <span>

#include "base/crypto/Limb.h"

namespace tv::crypto {

// secp521r1 is the largest of our curves.
inline constexpr size_t kMaxEcLimbs = limbsForBits(521);
// The lowest limb first; zeros above the limbs that the curve uses.
using EcNumber = std::array<Limb, kMaxEcLimbs>;

class MontField {
public:
    using Element = EcNumber;

    // The modulus, big-endian; its first byte is not zero.
    explicit MontField(std::span<const uint8_t> modulus);

    // How many limbs count; an element stands for itself times 2^(kLimbBits * limbs()).
    size_t limbs() const { return n_; }
    const EcNumber& modulus() const { return modulus_; }
    const Element& one() const { return one_; }

    Element mul(const Element& a, const Element& b) const;
    Element square(const Element& a) const { return mul(a, a); }
    Element add(const Element& a, const Element& b) const;
    Element sub(const Element& a, const Element& b) const;
    Element negate(const Element& a) const { return sub({}, a); }

    Limb isZero(const Element& a) const { return maskIfAllZero(a.data(), n_); }
    Element select(Limb mask, const Element& ifOnes, const Element& ifZeros) const;

    // Plain numbers below the modulus to elements and back.
    Element enter(const EcNumber& plain) const { return mul(plain, factorSquared_); }
    EcNumber leave(const Element& a) const { return mul(a, {1}); }
    // A number below twice the modulus, reduced.
    EcNumber reduceOnce(const EcNumber& plain) const { return subtractOnce(plain, 0); }

    // 1 / a for a prime modulus, 0 for 0.
    Element invert(const Element& a) const;
    // 1 / a for a plain number other than 0. Takes time by the number: for public ones.
    EcNumber invertPublic(const EcNumber& plain) const;

private:
    Element subtractOnce(const EcNumber& value, Limb carry) const;

    size_t n_;
    EcNumber modulus_{};
    Element one_{}, factorSquared_{};
    Limb negatedInverse_;
};

}  // namespace tv::crypto
