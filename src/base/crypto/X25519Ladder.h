// The Montgomery ladder of RFC 7748 section 5 over any field representation Fe, which has
//     fromBytes, toBytes, one(), zero(), +, -, *, square(), times121665(), swapIf(mask, a, b)
#pragma once

#include <cstdint>

#include "base/ConstTime.h"
#include "platform/SysWipe.h"

namespace tv::crypto {

template <class Fe>
Fe squareTimes(Fe a, int times) {
    for (int i = 0; i < times; ++i) {
        a = a.square();
    }
    return a;
}

// 1 / a (0 for 0), as a ^ (2^255 - 21). Names tell the exponent: a40 is a ^ (2^40 - 1).
template <class Fe>
Fe invert(const Fe& a) {
    const Fe a2 = a.square();
    const Fe a9 = squareTimes(a2, 2) * a;
    const Fe a11 = a9 * a2;
    const Fe ones5 = a11.square() * a9;
    const Fe ones10 = squareTimes(ones5, 5) * ones5;
    const Fe ones20 = squareTimes(ones10, 10) * ones10;
    const Fe ones40 = squareTimes(ones20, 20) * ones20;
    const Fe ones50 = squareTimes(ones40, 10) * ones10;
    const Fe ones100 = squareTimes(ones50, 50) * ones50;
    const Fe ones200 = squareTimes(ones100, 100) * ones100;
    const Fe ones250 = squareTimes(ones200, 50) * ones50;
    return squareTimes(ones250, 5) * a11;
}

// Bit i of the clamped scalar (RFC 7748 5, decodeScalar25519), for i up to 254.
inline uint32_t clampedBit(const uint8_t* scalar, int i) {
    if (i < 3) return 0;
    if (i == 254) return 1;
    return static_cast<uint32_t>(scalar[i / 8] >> (i % 8)) & 1;
}

template <class Fe>
void x25519Ladder(uint8_t* out, const uint8_t* scalar, const uint8_t* u) {
    struct State {
        Fe x1, x2, z2, x3, z3;
        ~State() { plat::wipe(static_cast<void*>(this), sizeof *this); }
    };
    State s{Fe::fromBytes(u), Fe::one(), Fe::zero(), Fe::fromBytes(u), Fe::one()};
    uint32_t swapped = 0;
    for (int i = 254; i >= 0; --i) {
        const uint32_t bit = clampedBit(scalar, i);
        const uint32_t mask = ctBarrier(uint32_t{0} - (swapped ^ bit));
        Fe::swapIf(mask, s.x2, s.x3);
        Fe::swapIf(mask, s.z2, s.z3);
        swapped = bit;
        const Fe a = s.x2 + s.z2, b = s.x2 - s.z2;
        const Fe da = (s.x3 - s.z3) * a, cb = (s.x3 + s.z3) * b;
        const Fe aa = a.square(), bb = b.square(), e = aa - bb;
        s.x3 = (da + cb).square();
        s.z3 = s.x1 * (da - cb).square();
        s.x2 = aa * bb;
        s.z2 = e * (aa + e.times121665());
    }
    // The lowest bit of a clamped scalar is 0: the last step left nothing swapped.
    const Fe result = s.x2 * invert(s.z2);
    result.toBytes(out);
}

}  // namespace tv::crypto
