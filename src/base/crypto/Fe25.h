// The field of Curve25519 in ten limbs of 26 and 25 bits in turn, for machines whose products are
// 32 x 32 -> 64 bits. A limb is a V: one 64-bit number, or several side by side in a vector
// register (several field elements at once). V has
//     add, sub, both (and), mul (of the low halves), shl<n>, shr<n>, all(number)
// Each file that includes this gets a copy of its own, compiled for the instruction set it names in
// TV_LANES_TARGET; hence the unnamed namespace.
//
// Bounds: products give limbs below 2^26 + 2^18 and 2^25 + 2^18; one addition or subtraction of
// such is what a product, and one product is what a subtraction, takes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "base/crypto/Endian.h"

#ifndef TV_LANES_TARGET
#define TV_LANES_TARGET
#endif

namespace tv::crypto {
namespace {

constexpr size_t kFe25Limbs = 10;
constexpr int fe25Bits(size_t limb) {
    return limb % 2 == 0 ? 26 : 25;
}
constexpr uint64_t fe25Mask(size_t limb) {
    return (uint64_t{1} << fe25Bits(limb)) - 1;
}

// The top bit is ignored.
[[maybe_unused]] void fe25Load(uint64_t* out, const uint8_t* in) {
    int at = 0;
    for (size_t i = 0; i < kFe25Limbs; ++i) {
        // The eight bytes that hold the limb; the last ones of the input for the last limbs.
        const int byte = at / 8 < 24 ? at / 8 : 24;
        out[i] = (loadLe<uint64_t>(in + byte) >> (at - 8 * byte)) & fe25Mask(i);
        at += fe25Bits(i);
    }
}

// Writes the smallest value of the residue; limbs below 2^28.
[[maybe_unused]] void fe25Store(uint8_t* out, uint64_t* t) {
    uint64_t carry = 0;
    for (int round = 0; round < 2; ++round) {
        for (size_t i = 0; i < kFe25Limbs; ++i) {
            t[i] += carry;
            carry = t[i] >> fe25Bits(i);
            t[i] &= fe25Mask(i);
        }
        carry *= 19;  // 2^255 is 19
    }
    t[0] += carry;
    // Now below 2^255 + a little: subtract p if adding 19 reaches 2^255.
    uint64_t quotient = 19;
    for (size_t i = 0; i < kFe25Limbs; ++i) {
        quotient = (t[i] + quotient) >> fe25Bits(i);
    }
    uint64_t pending = 19 * quotient, word = 0;
    int fill = 0;
    for (size_t i = 0; i < kFe25Limbs; ++i) {
        pending += t[i];
        word |= (pending & fe25Mask(i)) << fill;
        pending >>= fe25Bits(i);
        for (fill += fe25Bits(i); fill >= 8; fill -= 8) {
            *out++ = static_cast<uint8_t>(word);
            word >>= 8;
        }
    }
    *out = static_cast<uint8_t>(word);
}

template <class V>
class Fe25 {
public:
    TV_LANES_TARGET static Fe25 constant(uint64_t small) {
        Fe25 r;
        r.v[0] = V::all(small);
        for (size_t i = 1; i < kFe25Limbs; ++i) {
            r.v[i] = V::all(0);
        }
        return r;
    }
    TV_LANES_TARGET static Fe25 zero() { return constant(0); }
    TV_LANES_TARGET static Fe25 one() { return constant(1); }

    TV_LANES_TARGET friend Fe25 operator+(const Fe25& a, const Fe25& b) {
        Fe25 r;
        for (size_t i = 0; i < kFe25Limbs; ++i) {
            r.v[i] = V::add(a.v[i], b.v[i]);
        }
        return r;
    }

    // Adds twice p so that no limb goes below zero.
    TV_LANES_TARGET friend Fe25 operator-(const Fe25& a, const Fe25& b) {
        Fe25 r;
        for (size_t i = 0; i < kFe25Limbs; ++i) {
            r.v[i] = V::sub(V::add(a.v[i], twiceP(i)), b.v[i]);
        }
        return r;
    }

    TV_LANES_TARGET friend Fe25 operator*(const Fe25& f, const Fe25& g) {
        return product(f, g, std::make_index_sequence<kFe25Limbs>());
    }

    TV_LANES_TARGET Fe25 square() const { return *this * *this; }

    // factor below 2^17, possibly another one in each lane.
    TV_LANES_TARGET Fe25 timesSmall(V factor) const {
        V h[kFe25Limbs];
        for (size_t i = 0; i < kFe25Limbs; ++i) {
            h[i] = V::mul(v[i], factor);
        }
        return carried(h);
    }
    // (486662 - 2) / 4, of the curve's equation (RFC 7748 section 5).
    TV_LANES_TARGET Fe25 times121665() const { return timesSmall(V::all(121665)); }

    TV_LANES_TARGET static V twiceP(size_t limb) {
        // p is all ones but for its lowest limb, which is 18 less: 2^255 - 19.
        return V::all(2 * (limb == 0 ? fe25Mask(0) - 18 : fe25Mask(limb)));
    }

    // Sums of products back to limbs: two chains of carries side by side, so that one's latency
    // hides the other's.
    TV_LANES_TARGET static Fe25 carried(V* h) {
        for (size_t i = 0; i < 5; ++i) {
            carryOut(h, i);
            carryOut(h, i + 5);
        }
        carryOut(h, 5);
        carryOut(h, 0);
        Fe25 r;
        for (size_t i = 0; i < kFe25Limbs; ++i) {
            r.v[i] = h[i];
        }
        return r;
    }

    V v[kFe25Limbs];

private:
    TV_LANES_TARGET static void carryOut(V* h, size_t i) {
        const V carry = i % 2 == 0 ? V::template shr<26>(h[i]) : V::template shr<25>(h[i]);
        h[i] = V::both(h[i], V::all(fe25Mask(i)));
        if (i + 1 < kFe25Limbs) {
            h[i + 1] = V::add(h[i + 1], carry);
        } else {  // 19-fold
            const V twice = V::add(carry, carry), more = V::add(carry, V::template shl<3>(twice));
            h[0] = V::add(h[0], V::add(twice, more));
        }
    }

    // Factors of one product: limbs, doubled odd limbs of the left one (two odd limbs meet half a
    // bit too low), 19-fold ones of the right one (what passes 2^255 comes back 19-fold).
    struct Factors {
        const V *f, *g;
        V f2[kFe25Limbs], g19[kFe25Limbs];
    };

    template <size_t K, size_t I>
    TV_LANES_TARGET static V term(const Factors& x) {
        constexpr size_t J = (K + kFe25Limbs - I) % kFe25Limbs;
        return V::mul(I % 2 == 1 && J % 2 == 1 ? x.f2[I] : x.f[I], I > K ? x.g19[J] : x.g[J]);
    }

    template <size_t K, size_t... I>
    TV_LANES_TARGET static V column(const Factors& x, std::index_sequence<I...>) {
        V sum = term<K, 0>(x);
        ((I != 0 ? void(sum = V::add(sum, term<K, I>(x))) : void()), ...);
        return sum;
    }

    template <size_t... K>
    TV_LANES_TARGET static Fe25 product(const Fe25& f, const Fe25& g,
                                        std::index_sequence<K...> all) {
        Factors x;
        x.f = f.v;
        x.g = g.v;
        for (size_t i = 1; i < kFe25Limbs; i += 2) {
            x.f2[i] = V::add(f.v[i], f.v[i]);
        }
        for (size_t i = 1; i < kFe25Limbs; ++i) {
            x.g19[i] = V::mul(g.v[i], V::all(19));
        }
        V h[kFe25Limbs] = {column<K>(x, all)...};
        return carried(h);
    }
};

}  // namespace
}  // namespace tv::crypto
