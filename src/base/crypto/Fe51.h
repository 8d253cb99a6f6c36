// The field of Curve25519, integers modulo 2^255 - 19, in five limbs of 51 bits: for machines with
// 64 x 64 -> 128 bit products. Limbs stay below 2^52 after a product and below 2^54 after one
// addition or subtraction, which a product takes.
#pragma once

#include <cstring>

#include "base/ConstTime.h"
#include "base/crypto/Endian.h"
#include "base/crypto/Limb.h"

namespace tv::crypto {

class Fe51 {
public:
    static Fe51 zero() { return {}; }
    static Fe51 one() {
        Fe51 r;
        r.v_[0] = 1;
        return r;
    }

    // The top bit is ignored.
    static Fe51 fromBytes(const uint8_t* in) {
        const uint64_t w0 = loadLe<uint64_t>(in), w1 = loadLe<uint64_t>(in + 8);
        const uint64_t w2 = loadLe<uint64_t>(in + 16), w3 = loadLe<uint64_t>(in + 24);
        Fe51 r;
        r.v_[0] = w0 & kMask;
        r.v_[1] = (w0 >> 51 | w1 << 13) & kMask;
        r.v_[2] = (w1 >> 38 | w2 << 26) & kMask;
        r.v_[3] = (w2 >> 25 | w3 << 39) & kMask;
        r.v_[4] = (w3 >> 12) & kMask;
        return r;
    }

    void toBytes(uint8_t* out) const {
        uint64_t t[5];
        std::memcpy(t, v_, sizeof t);
        carry(t);
        carry(t);
        // Now below 2^255 + a little: subtract p if adding 19 reaches 2^255.
        uint64_t quotient = (t[0] + 19) >> 51;
        for (int i = 1; i < 5; ++i) {
            quotient = (t[i] + quotient) >> 51;
        }
        t[0] += 19 * quotient;
        for (int i = 0; i < 4; ++i) {
            t[i + 1] += t[i] >> 51;
            t[i] &= kMask;
        }
        t[4] &= kMask;
        storeLe(out, t[0] | t[1] << 51);
        storeLe(out + 8, t[1] >> 13 | t[2] << 38);
        storeLe(out + 16, t[2] >> 26 | t[3] << 25);
        storeLe(out + 24, t[3] >> 39 | t[4] << 12);
    }

    friend Fe51 operator+(const Fe51& a, const Fe51& b) {
        Fe51 r;
        for (int i = 0; i < 5; ++i) {
            r.v_[i] = a.v_[i] + b.v_[i];
        }
        return r;
    }

    // Adds four times p so that no limb goes below zero.
    friend Fe51 operator-(const Fe51& a, const Fe51& b) {
        Fe51 r;
        r.v_[0] = a.v_[0] + 4 * (kMask - 18) - b.v_[0];
        for (int i = 1; i < 5; ++i) {
            r.v_[i] = a.v_[i] + 4 * kMask - b.v_[i];
        }
        return r;
    }

    friend Fe51 operator*(const Fe51& f, const Fe51& g) {
        const uint64_t *a = f.v_, *b = g.v_;
        const uint64_t b1 = 19 * b[1], b2 = 19 * b[2], b3 = 19 * b[3], b4 = 19 * b[4];
        DoubleLimb t[5];
        t[0] = wide(a[0], b[0]) + wide(a[1], b4) + wide(a[2], b3) + wide(a[3], b2) + wide(a[4], b1);
        t[1] =
            wide(a[0], b[1]) + wide(a[1], b[0]) + wide(a[2], b4) + wide(a[3], b3) + wide(a[4], b2);
        t[2] = wide(a[0], b[2]) + wide(a[1], b[1]) + wide(a[2], b[0]) + wide(a[3], b4) +
               wide(a[4], b3);
        t[3] = wide(a[0], b[3]) + wide(a[1], b[2]) + wide(a[2], b[1]) + wide(a[3], b[0]) +
               wide(a[4], b4);
        t[4] = wide(a[0], b[4]) + wide(a[1], b[3]) + wide(a[2], b[2]) + wide(a[3], b[1]) +
               wide(a[4], b[0]);
        return fromProduct(t);
    }

    Fe51 square() const {
        const uint64_t* a = v_;
        const uint64_t d0 = 2 * a[0], d1 = 2 * a[1], a3 = 19 * a[3], a4 = 19 * a[4];
        DoubleLimb t[5];
        t[0] = wide(a[0], a[0]) + wide(d1, a4) + wide(2 * a[2], a3);
        t[1] = wide(d0, a[1]) + wide(2 * a[2], a4) + wide(a[3], a3);
        t[2] = wide(d0, a[2]) + wide(a[1], a[1]) + wide(2 * a[3], a4);
        t[3] = wide(d0, a[3]) + wide(d1, a[2]) + wide(a[4], a4);
        t[4] = wide(d0, a[4]) + wide(d1, a[3]) + wide(a[2], a[2]);
        return fromProduct(t);
    }

    // (486662 - 2) / 4, of the curve's equation (RFC 7748 section 5).
    Fe51 times121665() const {
        DoubleLimb t[5];
        for (int i = 0; i < 5; ++i) {
            t[i] = wide(v_[i], 121665);
        }
        return fromProduct(t);
    }

    static void swapIf(uint32_t mask, Fe51& a, Fe51& b) {
        const uint64_t wideMask = ctBarrier(uint64_t{mask} << 32 | mask);
        for (int i = 0; i < 5; ++i) {
            const uint64_t difference = wideMask & (a.v_[i] ^ b.v_[i]);
            a.v_[i] ^= difference;
            b.v_[i] ^= difference;
        }
    }

private:
    static constexpr uint64_t kMask = (uint64_t{1} << 51) - 1;

    static DoubleLimb wide(uint64_t a, uint64_t b) { return static_cast<DoubleLimb>(a) * b; }

    static void carry(uint64_t* t) {
        for (int i = 0; i < 4; ++i) {
            t[i + 1] += t[i] >> 51;
            t[i] &= kMask;
        }
        t[0] += 19 * (t[4] >> 51);
        t[4] &= kMask;
    }

    static Fe51 fromProduct(DoubleLimb* t) {
        Fe51 r;
        for (int i = 0; i < 4; ++i) {
            t[i + 1] += static_cast<uint64_t>(t[i] >> 51);
            r.v_[i] = static_cast<uint64_t>(t[i]) & kMask;
        }
        r.v_[4] = static_cast<uint64_t>(t[4]) & kMask;
        r.v_[0] += 19 * static_cast<uint64_t>(t[4] >> 51);
        r.v_[1] += r.v_[0] >> 51;
        r.v_[0] &= kMask;
        return r;
    }

    uint64_t v_[5] = {};
};

}  // namespace tv::crypto
