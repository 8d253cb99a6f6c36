// The portable form, block by block, and what the forms for vector units share: the start, the
// powers of r and the end.
#include "base/crypto/Poly1305.h"

#include "base/ConstTime.h"
#include "base/crypto/Endian.h"
#include "platform/SysWipe.h"

namespace tv::crypto {
namespace {

// 16 bytes and the bits above them.
inline Poly1305Number loadNumber(const uint8_t* p, uint32_t top) {
    const uint64_t low = loadLe<uint64_t>(p);
    const uint64_t high = loadLe<uint64_t>(p + 8);
    return {static_cast<uint32_t>(low) & kPoly1305Limb,
            static_cast<uint32_t>(low >> 26) & kPoly1305Limb,
            static_cast<uint32_t>(low >> 52 | high << 12) & kPoly1305Limb,
            static_cast<uint32_t>(high >> 14) & kPoly1305Limb,
            static_cast<uint32_t>(high >> 40) | top << 24};
}

// All limbs but the second end below 2^26.
__attribute__((always_inline)) inline Poly1305Number carryWide(
    const std::array<uint64_t, 5>& limbs) {
    Poly1305Number out;
    uint64_t over = 0;
#pragma GCC unroll 5
    for (size_t i = 0; i < 5; ++i) {
        const uint64_t limb = limbs[i] + over;
        out[i] = static_cast<uint32_t>(limb) & kPoly1305Limb;
        over = limb >> 26;
    }
    const uint64_t low = out[0] + over * 5;
    out[0] = static_cast<uint32_t>(low) & kPoly1305Limb;
    out[1] += static_cast<uint32_t>(low >> 26);
    return out;
}

// All limbs but the lowest end below 2^26.
inline void carry(Poly1305Number& v) {
    uint32_t over = 0;
    for (uint32_t& limb : v) {
        limb += over;
        over = limb >> 26;
        limb &= kPoly1305Limb;
    }
    v[0] += over * 5;
}

// a * b mod 2^130 - 5, partly reduced. Inlined by force: the numbers then stay in registers.
__attribute__((always_inline)) inline Poly1305Number multiply(const Poly1305Number& a,
                                                              const Poly1305Number& b) {
    const auto product = [](uint32_t x, uint32_t y) { return uint64_t{x} * y; };
    // 2^130 is 5: limbs that would stand above it come back five-fold.
    const uint32_t b1 = b[1] * 5, b2 = b[2] * 5, b3 = b[3] * 5, b4 = b[4] * 5;
    const std::array<uint64_t, 5> d = {
        product(a[0], b[0]) + product(a[1], b4) + product(a[2], b3) + product(a[3], b2) +
            product(a[4], b1),
        product(a[0], b[1]) + product(a[1], b[0]) + product(a[2], b4) + product(a[3], b3) +
            product(a[4], b2),
        product(a[0], b[2]) + product(a[1], b[1]) + product(a[2], b[0]) + product(a[3], b4) +
            product(a[4], b3),
        product(a[0], b[3]) + product(a[1], b[2]) + product(a[2], b[1]) + product(a[3], b[0]) +
            product(a[4], b4),
        product(a[0], b[4]) + product(a[1], b[3]) + product(a[2], b[2]) + product(a[3], b[1]) +
            product(a[4], b[0])};
    return carryWide(d);
}

}  // namespace

void startPoly1305(Poly1305State& state, const uint8_t* key) {
    // RFC 8439 2.5: some bits of r are cleared.
    uint8_t clamped[16];
    for (size_t i = 0; i < sizeof clamped; ++i) {
        const uint8_t high = i % 4 == 3 ? 0x0f : 0xff;
        const uint8_t low = i % 4 == 0 && i != 0 ? 0xfc : 0xff;
        clamped[i] = key[i] & high & low;
    }
    state.r = loadNumber(clamped, 0);
    state.sum = {};
    for (size_t i = 0; i < state.pad.size(); ++i) {
        state.pad[i] = loadLe<uint32_t>(key + 16 + 4 * i);
    }
    state.powersMade = false;
    plat::wipe(clamped, sizeof clamped);
}

void absorbPoly1305(Poly1305State& state, const uint8_t* blocks, size_t count) {
    Poly1305Number sum = state.sum;
    for (; count != 0; --count, blocks += 16) {
        const Poly1305Number block = loadNumber(blocks, 1);  // bit 128: RFC 8439 2.5.1
#pragma GCC unroll 5
        for (size_t i = 0; i < 5; ++i) {
            sum[i] += block[i];
        }
        sum = multiply(sum, state.r);
    }
    state.sum = sum;
}

void makePoly1305Powers(Poly1305State& state, std::span<const uint8_t> laneOf) {
    Poly1305Number power = state.r;
    for (const uint8_t lane : laneOf) {
        for (size_t i = 0; i < 5; ++i) {
            state.powers[i][lane] = power[i];
        }
        power = multiply(power, state.r);
    }
    state.powersMade = true;
}

void setPoly1305Sum(Poly1305State& state, const std::array<uint64_t, 5>& limbs) {
    state.sum = carryWide(limbs);
}

void finishPoly1305(Poly1305State& state, uint8_t* tag) {
    Poly1305Number& sum = state.sum;
    carry(sum);
    carry(sum);
    // sum - p, with the sign in the top limb: taken where it is not negative.
    Poly1305Number reduced;
    uint32_t over = 5;
    for (size_t i = 0; i < 5; ++i) {
        reduced[i] = sum[i] + over;
        over = reduced[i] >> 26;
        reduced[i] &= kPoly1305Limb;
    }
    const uint32_t atLeastP = ctIsNonZero(over);
    for (size_t i = 0; i < 5; ++i) {
        sum[i] = ctSelect(atLeastP, reduced[i], sum[i]);
    }
    const uint32_t words[4] = {sum[0] | sum[1] << 26, sum[1] >> 6 | sum[2] << 20,
                               sum[2] >> 12 | sum[3] << 14, sum[3] >> 18 | sum[4] << 8};
    uint64_t total = 0;
    for (size_t i = 0; i < 4; ++i) {
        total += uint64_t{words[i]} + state.pad[i];
        storeLe(tag + 4 * i, static_cast<uint32_t>(total));
        total >>= 32;
    }
    plat::wipe(&state, sizeof state);
}

}  // namespace tv::crypto
