// Powers modulo an odd number of up to 8192 bits, in Montgomery form: for RSA and finite-field
// Diffie-Hellman. Where base or exponent is secret, time and memory accesses depend on sizes alone.
#pragma once

#include <cstdint>
#include <span>

#include "base/crypto/BigNum.h"

namespace tv::crypto {

class Montgomery {
public:
    // False unless the modulus is odd and greater than 1.
    bool setModulus(const BigNum& modulus);
    const BigNum& modulus() const { return modulus_; }

    // out = base ^ exponent, all public; base below the modulus, exponent at least 1. out may be
    // base.
    void powPublic(BigNum& out, const BigNum& base, uint64_t exponent) const;
    // The same for a secret base: big-endian, of the modulus' length in bytes, and below it.
    void powSecretBase(BigNum& out, std::span<const uint8_t> base, uint64_t exponent) const;
    // The same for a secret exponent, big-endian. The result goes to bytes of the modulus' length,
    // since the size of a BigNum would show in the time it takes to handle it.
    void powSecretExponent(std::span<uint8_t> out, const BigNum& base,
                           std::span<const uint8_t> exponent) const;

private:
    // All operands have size() limbs of the modulus and lie below it; results may be operands.
    void multiply(Limb* out, const Limb* a, const Limb* b) const;
    void square(Limb* out, const Limb* a) const;
    void reduce(Limb* out, Limb* product) const;  // product of 2 * size() limbs is used up
    // The value times 2^(kLimbBits * size()); public values only.
    void enter(Limb* out, const Limb* value) const;
    // base as it is and after enter.
    void raise(BigNum& out, const Limb* base, const Limb* entered, uint64_t exponent) const;

    BigNum modulus_;
    Limb negatedInverse_ = 0;
};

}  // namespace tv::crypto
