// Integers modulo an odd number of fixed size, in Montgomery form (a * 2^(kLimbBits * N)): for the
// fields and orders of elliptic curves. Elements are always fully reduced. Constant time, except
// where a comment says otherwise.
#pragma once

#include <array>
#include <span>

#include "base/crypto/Limb.h"

namespace tv::crypto {

template <size_t N>
class MontField {
public:
    static constexpr size_t kLimbs = N;
    using Element = std::array<Limb, N>;

    // The modulus, big-endian, of at most N limbs; its highest limb is not zero.
    explicit MontField(std::span<const uint8_t> modulus) {
        limbsFromBytes(modulus_.data(), N, modulus);
        negatedInverse_ = negatedInverse(modulus_[0]);
        // 1 doubled as often as the factor of the form has bits, and again, is its square.
        Element power{1};
        for (size_t i = 0; i < 2 * N * kLimbBits; ++i) {
            if (i == N * kLimbBits) one_ = power;
            power = add(power, power);
        }
        factorSquared_ = power;
    }

    const Element& modulus() const { return modulus_; }
    const Element& one() const { return one_; }
    static Element zero() { return {}; }

    Element mul(const Element& a, const Element& b) const {
        std::array<Limb, N + 1> t{};
        Limb overflow = 0;
#pragma GCC unroll 32
        for (size_t i = 0; i < N; ++i) {
            Limb carry = 0;
#pragma GCC unroll 32
            for (size_t j = 0; j < N; ++j) {
                t[j] = mulAdd(a[j], b[i], t[j], carry);
            }
            Limb carry2 = 0;
            t[N] = addCarry(overflow, carry, carry2);
            overflow = carry2;
            const Limb m = t[0] * negatedInverse_;
            carry = 0;
            mulAdd(m, modulus_[0], t[0], carry);
#pragma GCC unroll 32
            for (size_t j = 1; j < N; ++j) {
                t[j - 1] = mulAdd(m, modulus_[j], t[j], carry);
            }
            carry2 = 0;
            t[N - 1] = addCarry(t[N], carry, carry2);
            overflow += carry2;
        }
        Element r;
        std::copy(t.begin(), t.begin() + N, r.begin());
        return subtractOnce(r, overflow);
    }
    Element square(const Element& a) const {
        return mul(a, a);
    }

    Element add(const Element& a, const Element& b) const {
        Element sum;
        const Limb carry = addLimbs(sum.data(), a.data(), b.data(), N);
        return subtractOnce(sum, carry);
    }

    Element sub(const Element& a, const Element& b) const {
        Element r, back;
        const Limb mask = maskIfSet(subLimbs(r.data(), a.data(), b.data(), N));
        for (size_t i = 0; i < N; ++i) {
            back[i] = mask & modulus_[i];
        }
        addLimbs(r.data(), r.data(), back.data(), N);
        return r;
    }

    Element negate(const Element& a) const {
        return sub(zero(), a);
    }

    static Limb isZero(const Element& a) {
        return maskIfAllZero(a.data(), N);
    }
    static Element select(Limb mask, const Element& ifOnes, const Element& ifZeros) {
        Element r;
        selectLimbs(r.data(), mask, ifOnes.data(), ifZeros.data(), N);
        return r;
    }

    // Plain numbers below the modulus to elements and back.
    Element enter(const Element& plain) const {
        return mul(plain, factorSquared_);
    }
    Element leave(const Element& a) const {
        Element one{};
        one[0] = 1;
        return mul(a, one);
    }
    // A number below twice the modulus, reduced.
    Element reduceOnce(const Element& plain) const {
        return subtractOnce(plain, 0);
    }

    // 1 / a for a prime modulus, 0 for 0: a ^ (p - 2), by windows of four bits of the public p.
    Element invert(const Element& a) const {
        Element exponent = modulus_;
        exponent[0] -= 2;  // both moduli and orders of our curves end in more than 2
        std::array<Element, 16> power;
        power[0] = one_;
        for (size_t i = 1; i < power.size(); ++i) {
            power[i] = mul(power[i - 1], a);
        }
        Element r = one_;
        for (size_t bit = N * kLimbBits; bit != 0;) {
            bit -= 4;
            const size_t digit = (exponent[bit / kLimbBits] >> (bit % kLimbBits)) & 15;
            for (int i = 0; i < 4; ++i) {
                r = square(r);
            }
            if (digit != 0) r = mul(r, power[digit]);
        }
        return r;
    }

    // 1 / a modulo the (odd, prime) modulus for a plain number other than 0. Takes time by the
    // number: for public ones. Euclid's algorithm with halvings in place of divisions: the
    // invariants are x * a = u and y * a = v.
    Element invertPublic(const Element& plain) const {
        Element u = plain, v = modulus_, x{1}, y{};
        const Element one{1};
        while (u != one && v != one) {
            halveWhileEven(u, x);
            halveWhileEven(v, y);
            if (isLess(u.data(), v.data(), N) == 0) {
                subLimbs(u.data(), u.data(), v.data(), N);
                x = sub(x, y);
            } else {
                subLimbs(v.data(), v.data(), u.data(), N);
                y = sub(y, x);
            }
        }
        return u == one ? x : y;
    }

private:
    // value + carry * 2^(kLimbBits * N), below twice the modulus, reduced.
    Element subtractOnce(const Element& value, Limb carry) const {
        Element r;
        const Limb borrow = subLimbs(r.data(), value.data(), modulus_.data(), N);
        return select(maskIfSet(borrow & (1 ^ carry)), value, r);
    }

    void halveWhileEven(Element& even, Element& factor) const {
        while ((even[0] & 1) == 0) {
            halve(even, 0);
            const bool odd = (factor[0] & 1) != 0;
            halve(factor, odd ? addLimbs(factor.data(), factor.data(), modulus_.data(), N) : 0);
        }
    }

    static void halve(Element& a, Limb top) {
        for (size_t i = 0; i < N; ++i) {
            const Limb above = i + 1 < N ? a[i + 1] : top;
            a[i] = a[i] >> 1 | above << (kLimbBits - 1);
        }
    }

    Element modulus_{}, one_{}, factorSquared_{};
    Limb negatedInverse_ = 0;
};

}  // namespace tv::crypto
