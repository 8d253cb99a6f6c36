// A non-negative integer of at most 8192 bits, for moduli and residues of RSA and finite-field
// Diffie-Hellman. Everything from outside passes fromBytes, which checks the size first.
#pragma once

#include <cstdint>
#include <span>

#include "base/crypto/Limb.h"

namespace tv::crypto {

class BigNum {
public:
    // The largest group of RFC 7919, and more than any RSA key in use.
    static constexpr size_t kMaxBits = 8192;
    static constexpr size_t kMaxLimbs = kMaxBits / kLimbBits;

    BigNum() = default;
    BigNum(const BigNum& other) { *this = other; }
    BigNum& operator=(const BigNum& other);
    ~BigNum() { clear(); }

    // False, leaving zero, if the bytes (big-endian, leading zeros allowed) need more than
    // kMaxBits.
    bool fromBytes(std::span<const uint8_t> bigEndian);
    void fromLimbs(const Limb* limbs, size_t n);  // n at most kMaxLimbs
    // Fills out from the right; false if the value is too long for it.
    bool toBytes(std::span<uint8_t> out) const;
    void clear();  // wipes

    // The size of the value shows in these; callers use them on public numbers only.
    size_t size() const { return size_; }
    size_t bits() const { return bitLength(limbs_, size_); }
    bool isZero() const { return size_ == 0; }
    bool isOdd() const { return size_ > 0 && (limbs_[0] & 1) != 0; }
    bool isLessThan(const BigNum& other) const;
    // The value in n limbs, n at least size() and at most kMaxLimbs.
    void toLimbs(Limb* out, size_t n) const;
    const Limb* limbs() const { return limbs_; }

private:
    Limb limbs_[kMaxLimbs];  // size_ of them count
    size_t size_ = 0;        // no zero limb on top
};

}  // namespace tv::crypto
