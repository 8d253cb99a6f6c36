// The Montgomery ladder with the four coordinates of its two points side by side in the lanes of a
// vector register: (x2, z2, x3, z3). One step is three products of four lanes each. To be included
// after TV_LANES_TARGET is set, see Fe25.h.
#pragma once

#include "base/crypto/Fe25.h"
#include "base/crypto/X25519Ladder.h"

namespace tv::crypto {
namespace {

// (a, b, c, d) -> (a + b, a - b, c + d, c - d)
template <class V>
TV_LANES_TARGET Fe25<V> sumsAndDifferences(const Fe25<V>& a) {
    Fe25<V> r;
    for (size_t i = 0; i < kFe25Limbs; ++i) {
        const V swapped = V::template permute<1, 0, 3, 2>(a.v[i]);
        const V minus = V::sub(Fe25<V>::twiceP(i), a.v[i]);
        r.v[i] = V::add(swapped, V::template blend<0b1010>(a.v[i], minus));
    }
    return r;
}

// Changes the two points where the mask is all ones.
template <class V>
TV_LANES_TARGET void swapPointsIf(V mask, Fe25<V>& a) {
    for (size_t i = 0; i < kFe25Limbs; ++i) {
        const V difference = V::differ(a.v[i], V::template permute<2, 3, 0, 1>(a.v[i]));
        a.v[i] = V::differ(a.v[i], V::both(mask, difference));
    }
}

template <class V>
TV_LANES_TARGET Fe25<V> ladderStep(const Fe25<V>& points, const Fe25<V>& lastFactor, V a24) {
    const Fe25<V> s = sumsAndDifferences(points);
    Fe25<V> right;
    for (size_t i = 0; i < kFe25Limbs; ++i) {
        right.v[i] = V::template permute<0, 1, 1, 0>(s.v[i]);
    }
    // (aa, bb, cb, da) in the names of RFC 7748, then (aa, e, da + cb, da - cb) and, with a24 =
    // (0, 121665, 1, 1), (bb, aa + a24 e, da + cb, da - cb).
    const Fe25<V> q = s * right, h = sumsAndDifferences(q);
    Fe25<V> left;
    V sums[kFe25Limbs];
    for (size_t i = 0; i < kFe25Limbs; ++i) {
        left.v[i] = V::template blend<0b0001>(h.v[i], q.v[i]);
        const V swapped = V::template permute<1, 0, 3, 2>(q.v[i]);
        const V product = V::mul(h.v[i], a24);
        sums[i] = V::add(product, V::template blend<0b1100>(swapped, V::all(0)));
    }
    return (left * Fe25<V>::carried(sums)) * lastFactor;
}

template <class V>
TV_LANES_TARGET void x25519LanesLadder(uint8_t* out, const uint8_t* scalar, const uint8_t* u) {
    struct State {
        Fe25<V> points, lastFactor;
        uint64_t limbs[kFe25Limbs];
        ~State() { plat::wipe(static_cast<void*>(this), sizeof *this); }
    } s;
    fe25Load(s.limbs, u);
    for (size_t i = 0; i < kFe25Limbs; ++i) {
        const uint64_t one = i == 0 ? 1 : 0, x1 = s.limbs[i];
        const uint64_t start[4] = {one, 0, x1, one}, factor[4] = {one, one, one, x1};
        s.points.v[i] = V::load(start);
        s.lastFactor.v[i] = V::load(factor);
    }
    const uint64_t factors[4] = {0, 121665, 1, 1};
    const V a24 = V::load(factors);
    uint32_t swapped = 0;
    for (int i = 254; i >= 0; --i) {
        const uint32_t bit = clampedBit(scalar, i);
        swapPointsIf(V::all(ctBarrier(uint64_t{0} - (swapped ^ bit))), s.points);
        swapped = bit;
        s.points = ladderStep(s.points, s.lastFactor, a24);
    }
    // x2 / z2, in every lane.
    Fe25<V> x2, z2;
    for (size_t i = 0; i < kFe25Limbs; ++i) {
        x2.v[i] = V::template permute<0, 0, 0, 0>(s.points.v[i]);
        z2.v[i] = V::template permute<1, 1, 1, 1>(s.points.v[i]);
    }
    const Fe25<V> result = x2 * invert(z2);
    for (size_t i = 0; i < kFe25Limbs; ++i) {
        uint64_t lanes[4];
        V::store(lanes, result.v[i]);
        s.limbs[i] = lanes[0];
    }
    fe25Store(out, s.limbs);
}

}  // namespace
}  // namespace tv::crypto
