// Four elements of a prime field side by side in the lanes of vector registers, in Montgomery form
// with limbs of 27 bits. For primes whose increment p + 1 is a sum of few powers of two, as those
// of the NIST curves are. To be included after TV_LANES_TARGET is set, see Fe25.h.
//
// Bounds. "Tight" is what a product gives: limbs below 2^27, value below 1.1 p. A product
// takes limbs up to 2^29 on both sides and, with R = 2^(27 kLimbs) above 2^14 p, values whose
// multiples of p have a product up to 1600.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "base/crypto/Limb.h"

namespace tv::crypto {
namespace {

constexpr int kLaneBits = 27;
constexpr uint64_t kLaneMask = (uint64_t{1} << kLaneBits) - 1;

// A power of two with its sign.
struct SignedPower {
    int exponent;
    int sign;
};

// Prime has: kLimbs, kPlusOne (the powers whose sum is p + 1).
template <class Prime>
struct PrimeLimbs {
    static constexpr size_t kLimbs = Prime::kLimbs;
    using Limbs = std::array<uint64_t, kLimbs>;

    // 2^shift * p or 2^shift * (p + 1), all limbs but the highest below 2^27.
    static constexpr Limbs multiple(int shift, bool plusOne) {
        std::array<int64_t, kLimbs> sum{};
        for (const SignedPower& power : Prime::kPlusOne) {
            const int at = power.exponent + shift;
            sum[static_cast<size_t>(at / kLaneBits)] += int64_t{power.sign} << (at % kLaneBits);
        }
        if (!plusOne) sum[0] -= int64_t{1} << shift;  // shift below 27
        Limbs out{};
        int64_t carry = 0;
        for (size_t i = 0; i < kLimbs; ++i) {
            const int64_t limb = sum[i] + carry;
            const bool last = i + 1 == kLimbs;
            out[i] = static_cast<uint64_t>(last ? limb : limb & int64_t{kLaneMask});
            carry = last ? 0 : limb >> kLaneBits;
        }
        return out;
    }

    static constexpr Limbs kPlusOne = multiple(0, true);
    static constexpr Limbs kPrime = multiple(0, false);

    // 2^shift * p with all limbs but the highest raised by 2^bits, for subtractions that shall not
    // go below zero.
    static constexpr Limbs raised(int shift, int bits) {
        Limbs out = multiple(shift, false);
        for (size_t i = 0; i + 1 < kLimbs; ++i) {
            out[i] += uint64_t{1} << bits;
            out[i + 1] -= uint64_t{1} << (bits - kLaneBits);
        }
        return out;
    }
};

template <class V, class Prime>
class FieldLanes {
    using P = PrimeLimbs<Prime>;

public:
    static constexpr size_t kLimbs = Prime::kLimbs;

    TV_LANES_TARGET static FieldLanes zero() {
        FieldLanes r;
        for (V& limb : r.v) {
            limb = V::all(0);
        }
        return r;
    }

    // Not inline: a point formula has up to five, of thousands of bytes each.
    TV_LANES_TARGET __attribute__((noinline)) friend FieldLanes operator*(const FieldLanes& a,
                                                                          const FieldLanes& b) {
        return product(a, b, std::make_index_sequence<2 * kLimbs - 1>());
    }

    TV_LANES_TARGET friend FieldLanes operator+(const FieldLanes& a, const FieldLanes& b) {
        FieldLanes r;
        for (size_t i = 0; i < kLimbs; ++i) {
            r.v[i] = V::add(a.v[i], b.v[i]);
        }
        return r;
    }

    // plus + k - minus, where k is 16 p with limbs of 2^31: for what a few tight elements add up to
    // (limbs below 2^31, value below 15 p). Only in the lanes of the mask; the others become plus.
    TV_LANES_TARGET static FieldLanes difference(const FieldLanes& plus, const FieldLanes& minus,
                                                 V lanes) {
        constexpr auto kRaised = P::raised(4, 31);
        FieldLanes r;
        for (size_t i = 0; i < kLimbs; ++i) {
            const V less = V::sub(V::all(kRaised[i]), minus.v[i]);
            r.v[i] = V::add(plus.v[i], V::both(less, lanes));
        }
        return r;
    }

    // a - b for tight ones; a product takes the result.
    TV_LANES_TARGET static FieldLanes minus(const FieldLanes& a, const FieldLanes& b) {
        constexpr auto kRaised = P::raised(2, 28);
        FieldLanes r;
        for (size_t i = 0; i < kLimbs; ++i) {
            r.v[i] = V::add(a.v[i], V::sub(V::all(kRaised[i]), b.v[i]));
        }
        return r;
    }

    // Small factors, one for each lane.
    TV_LANES_TARGET FieldLanes times(V factors) const {
        FieldLanes r;
        for (size_t i = 0; i < kLimbs; ++i) {
            r.v[i] = V::mul(v[i], factors);
        }
        return r;
    }

    // Limbs of up to 2^32 back to 27 bits and a little.
    TV_LANES_TARGET FieldLanes carried() const {
        FieldLanes r;
        r.v[0] = V::both(v[0], V::all(kLaneMask));
        for (size_t i = 1; i < kLimbs; ++i) {
            const V low = i + 1 < kLimbs ? V::both(v[i], V::all(kLaneMask)) : v[i];
            r.v[i] = V::add(low, V::template shr<kLaneBits>(v[i - 1]));
        }
        return r;
    }

    template <int L0, int L1, int L2, int L3>
    TV_LANES_TARGET FieldLanes permuted() const {
        FieldLanes r;
        for (size_t i = 0; i < kLimbs; ++i) {
            r.v[i] = V::template permute<L0, L1, L2, L3>(v[i]);
        }
        return r;
    }

    // Lane i is b's where bit i of the mask is set, else a's.
    template <int mask>
    TV_LANES_TARGET static FieldLanes blend(const FieldLanes& a, const FieldLanes& b) {
        FieldLanes r;
        for (size_t i = 0; i < kLimbs; ++i) {
            r.v[i] = V::template blend<mask>(a.v[i], b.v[i]);
        }
        return r;
    }

    // ifOnes where the mask is all ones, ifZeros where it is zero.
    TV_LANES_TARGET static FieldLanes select(V mask, const FieldLanes& ifOnes,
                                             const FieldLanes& ifZeros) {
        FieldLanes r;
        for (size_t i = 0; i < kLimbs; ++i) {
            const V different = V::differ(ifOnes.v[i], ifZeros.v[i]);
            r.v[i] = V::differ(ifZeros.v[i], V::both(mask, different));
        }
        return r;
    }

    V v[kLimbs];

private:
    // One column of the product after the other, lowest first, and in the lower half at once the
    // multiple of p that makes the column's limb zero: as p ends in 27 ones, that is the limb times
    // (p + 1) with the limb taken away. Few numbers are alive at a time.
    struct Columns {
        const FieldLanes &a, &b;
        V* multiples;
        FieldLanes& result;
        V carry;
    };

    template <size_t K, size_t... I>
    TV_LANES_TARGET static void column(Columns& c, std::index_sequence<I...>) {
        V sum = V::all(0);
        (addTerm<K, I>(sum, c), ...);
        (addMultiple<K, kLimbs - 1 - I>(sum, c), ...);
        sum = V::add(sum, c.carry);  // last, as it comes last
        const V limb = V::both(sum, V::all(kLaneMask));
        (K < kLimbs ? c.multiples[K % kLimbs] : c.result.v[K % kLimbs]) = limb;
        c.carry = V::template shr<kLaneBits>(sum);
    }

    template <size_t K, size_t I>
    TV_LANES_TARGET static void addTerm(V& sum, const Columns& c) {
        if constexpr (I <= K && K - I < kLimbs) sum = V::add(sum, V::mul(c.a.v[I], c.b.v[K - I]));
    }

    template <size_t K, size_t J>
    TV_LANES_TARGET static void addMultiple(V& sum, const Columns& c) {
        if constexpr (P::kPlusOne[J] != 0 && J <= K && K - J < kLimbs) {
            sum = V::add(sum, V::mul(c.multiples[K - J], V::all(P::kPlusOne[J])));
        }
    }

    template <size_t... K>
    TV_LANES_TARGET static FieldLanes product(const FieldLanes& a, const FieldLanes& b,
                                              std::index_sequence<K...>) {
        FieldLanes result;
        V multiples[kLimbs];
        Columns c{a, b, multiples, result, V::all(0)};
        (column<K>(c, std::make_index_sequence<kLimbs>()), ...);
        result.v[kLimbs - 1] = c.carry;
        return result;
    }
};

// Numbers to limbs and back.
template <size_t kLimbs>
void laneLimbsFromBytes(uint64_t* out, const uint8_t* bigEndian, size_t size) {
    uint64_t pending = 0;
    int bits = 0;
    size_t limb = 0;
    for (size_t i = 0; i < size; ++i) {
        pending |= uint64_t{bigEndian[size - 1 - i]} << bits;
        bits += 8;
        if (bits >= kLaneBits) {
            out[limb++] = pending & kLaneMask;
            pending >>= kLaneBits;
            bits -= kLaneBits;
        }
    }
    out[limb++] = pending;
    while (limb < kLimbs) {
        out[limb++] = 0;
    }
}

// Limbs of a value below 4 p, not yet carried, to the smallest number of the residue. Constant
// time.
template <class Prime>
void laneLimbsToBytes(uint8_t* bigEndian, size_t size, uint64_t* t) {
    using P = PrimeLimbs<Prime>;
    constexpr size_t kLimbs = P::kLimbs;
    for (size_t i = 0; i + 1 < kLimbs; ++i) {
        t[i + 1] += t[i] >> kLaneBits;
        t[i] &= kLaneMask;
    }
    // Below 4 p: p comes off three times at most.
    for (int round = 0; round < 3; ++round) {
        uint64_t less[kLimbs];
        uint64_t borrow = 0;
        for (size_t i = 0; i < kLimbs; ++i) {
            const uint64_t difference = t[i] - P::kPrime[i] - borrow;
            borrow = difference >> 63;
            less[i] = i + 1 < kLimbs ? difference & kLaneMask : difference;
        }
        const uint64_t keep = ctBarrier(uint64_t{0} - borrow);
        for (size_t i = 0; i < kLimbs; ++i) {
            t[i] = ctSelect(keep, t[i], less[i]);
        }
    }
    uint64_t pending = 0;
    int bits = 0;
    size_t limb = 0;
    for (size_t i = 0; i < size; ++i) {
        if (bits < 8 && limb < kLimbs) {
            pending |= t[limb++] << bits;
            bits += kLaneBits;
        }
        bigEndian[size - 1 - i] = static_cast<uint8_t>(pending);
        pending >>= 8;
        bits -= 8;
    }
}

}  // namespace
}  // namespace tv::crypto
