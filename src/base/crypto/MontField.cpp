// Products, sums and inverses of the elements of a field; for public numbers a faster inverse.
#include "base/crypto/MontField.h"

#include <algorithm>
#include <bit>

namespace tv::crypto {

namespace {

// Whole limbs, then bits, so that an odd number is left of one that is not zero. The bits are
// counted. Public numbers only, like the next one.
size_t dropZeros(EcNumber& a, size_t n) {
    size_t dropped = 0;
    while (a[0] == 0) {
        std::copy(a.begin() + 1, a.begin() + static_cast<ptrdiff_t>(n), a.begin());
        a[n - 1] = 0;
        dropped += kLimbBits;
    }
    const auto bits = static_cast<size_t>(std::countr_zero(a[0]));
    if (bits == 0) return dropped;
    for (size_t i = 0; i < n; ++i) {
        a[i] = a[i] >> bits | (i + 1 < n ? a[i + 1] << (kLimbBits - bits) : 0);
    }
    return dropped + bits;
}

void shiftUp(EcNumber& a, size_t bits, size_t n) {
    for (; bits >= kLimbBits; bits -= kLimbBits) {
        std::copy_backward(a.begin(), a.begin() + static_cast<ptrdiff_t>(n) - 1,
                           a.begin() + static_cast<ptrdiff_t>(n));
        a[0] = 0;
    }
    if (bits == 0) return;
    for (size_t i = n; i-- != 0;) {
        a[i] = a[i] << bits | (i != 0 ? a[i - 1] >> (kLimbBits - bits) : 0);
    }
}

}  // namespace

MontField::MontField(std::span<const uint8_t> modulus) : n_(limbsForBits(8 * modulus.size())) {
    limbsFromBytes(modulus_.data(), n_, modulus);
    negatedInverse_ = negatedInverse(modulus_[0]);
    // 1 doubled as often as the factor of the form has bits, and again, is its square.
    Element power{1};
    for (size_t i = 0; i < 2 * n_ * kLimbBits; ++i) {
        if (i == n_ * kLimbBits) one_ = power;
        power = add(power, power);
    }
    factorSquared_ = power;
}

MontField::Element MontField::mul(const Element& a, const Element& b) const {
    const size_t n = n_;
    Element t{};
    Limb overflow = 0;
    for (size_t i = 0; i < n; ++i) {
        // Row i of the product and the multiple of the modulus that clears the lowest limb.
        Limb carry = 0, carry2 = 0;
        const Limb factor = b[i];
        const Limb low = mulAdd(a[0], factor, t[0], carry);
        const Limb multiple = low * negatedInverse_;
        mulAdd(multiple, modulus_[0], low, carry2);
        for (size_t j = 1; j < n; ++j) {
            const Limb sum = mulAdd(a[j], factor, t[j], carry);
            t[j - 1] = mulAdd(multiple, modulus_[j], sum, carry2);
        }
        Limb carry3 = 0, carry4 = 0;
        t[n - 1] = addCarry(addCarry(overflow, carry, carry3), carry2, carry4);
        overflow = carry3 + carry4;
    }
    return subtractOnce(t, overflow);
}

MontField::Element MontField::add(const Element& a, const Element& b) const {
    Element sum{};
    const Limb carry = addLimbs(sum.data(), a.data(), b.data(), n_);
    return subtractOnce(sum, carry);
}

MontField::Element MontField::sub(const Element& a, const Element& b) const {
    Element r{};
    const Limb mask = maskIfSet(subLimbs(r.data(), a.data(), b.data(), n_));
    Limb carry = 0;
    for (size_t i = 0; i < n_; ++i) {
        r[i] = addCarry(r[i], mask & modulus_[i], carry);
    }
    return r;
}

MontField::Element MontField::select(Limb mask, const Element& ifOnes,
                                     const Element& ifZeros) const {
    Element r{};
    selectLimbs(r.data(), mask, ifOnes.data(), ifZeros.data(), n_);
    return r;
}

// value + carry * 2^(kLimbBits * n), below twice the modulus, reduced.
MontField::Element MontField::subtractOnce(const EcNumber& value, Limb carry) const {
    Element r{};
    const Limb borrow = subLimbs(r.data(), value.data(), modulus_.data(), n_);
    return select(maskIfSet(borrow & (1 ^ carry)), value, r);
}

// a ^ (p - 2), by windows of four bits of the public p.
MontField::Element MontField::invert(const Element& a) const {
    EcNumber exponent = modulus_;
    exponent[0] -= 2;  // both moduli and orders of our curves end in more than 2
    std::array<Element, 16> power;
    power[0] = one_;
    for (size_t i = 1; i < power.size(); ++i) {
        power[i] = mul(power[i - 1], a);
    }
    Element r = one_;
    for (size_t bit = n_ * kLimbBits; bit != 0;) {
        bit -= 4;
        for (int i = 0; i < 4; ++i) {
            r = square(r);
        }
        r = mul(r, power[(exponent[bit / kLimbBits] >> (bit % kLimbBits)) & 15]);
    }
    return r;
}

// Euclid's algorithm with halvings, where in place of one side's halving the other side's factor is
// doubled: a * x = -u * 2^k and a * y = v * 2^k modulo the modulus, which is u * y + v * x. So x
// and y never exceed it.
EcNumber MontField::invertPublic(const EcNumber& plain) const {
    const size_t n = n_;
    EcNumber u = modulus_, v = plain, x{}, y{1};
    size_t k = dropZeros(v, n);
    while (u != v) {
        const bool uIsLarger = isLess(v.data(), u.data(), n) != 0;
        EcNumber &larger = uIsLarger ? u : v, &smaller = uIsLarger ? v : u;
        EcNumber &grows = uIsLarger ? x : y, &doubles = uIsLarger ? y : x;
        subLimbs(larger.data(), larger.data(), smaller.data(), n);
        addLimbs(grows.data(), grows.data(), doubles.data(), n);
        const size_t zeros = dropZeros(larger, n);
        shiftUp(doubles, zeros, n);
        k += zeros;
    }
    // Both are 1 now and y is 2^k / a. Two products take 2^-k away; the second one adds a power
    // that must fit in n limbs.
    for (; k <= n * kLimbBits; ++k) {
        y = add(y, y);
    }
    const size_t rest = 2 * n * kLimbBits - k;
    EcNumber power{};
    power[rest / kLimbBits] = Limb{1} << (rest % kLimbBits);
    return mul(mul(y, {1}), power);
}

}  // namespace tv::crypto
