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
    // What powers of secrets take of the stack, with some room to spare, for wipeStack.
    static constexpr size_t kStackTaken = 12288;
    // The same with secrets, which are big-endian bytes since the size of a BigNum shows in the
    // time it takes to handle it. out has the modulus' length. A secret base too, and is below it.
    void powSecretBase(std::span<uint8_t> out, std::span<const uint8_t> base,
                       uint64_t exponent) const;
    void powSecretExponent(std::span<uint8_t> out, const BigNum& base,
                           std::span<const uint8_t> exponent) const;

private:
    // Room for a product, which the caller wipes where it was of secrets.
    using Product = Limb[2 * BigNum::kMaxLimbs];

    // All operands have as many limbs as the modulus and lie below it; results may be operands.
    void multiply(Limb* out, const Limb* a, const Limb* b, Product& product) const;
    void square(Limb* out, const Limb* a, Product& product) const;
    void reduce(Limb* out, Product& product) const;
    // The value times 2^(kLimbBits * size()); public values only.
    void enter(Limb* out, const Limb* value) const;
    // base as it is and after enter; out is neither.
    void raise(Limb* out, const Limb* base, const Limb* entered, uint64_t exponent,
               Product& product) const;

    BigNum modulus_;
    Limb negatedInverse_ = 0;
};

}  // namespace tv::crypto
