// X25519 with 32-bit products: the form that every machine runs.
#include "base/crypto/Fe25.h"
#include "base/crypto/X25519.h"
#include "base/crypto/X25519Ladder.h"

namespace tv::crypto {

namespace {

struct OneLane {
    static OneLane all(uint64_t number) { return {number}; }
    static OneLane mul(OneLane a, OneLane b) {
        return {uint64_t{static_cast<uint32_t>(a.w)} * static_cast<uint32_t>(b.w)};
    }
    template <int n>
    static OneLane shl(OneLane a) {
        return {a.w << n};
    }
    template <int n>
    static OneLane shr(OneLane a) {
        return {a.w >> n};
    }
    static OneLane add(OneLane a, OneLane b) { return {a.w + b.w}; }
    static OneLane sub(OneLane a, OneLane b) { return {a.w - b.w}; }
    static OneLane both(OneLane a, OneLane b) { return {a.w & b.w}; }

    uint64_t w;
};

class Element : public Fe25<OneLane> {
public:
    Element(const Fe25<OneLane>& other) : Fe25<OneLane>(other) {}

    static Element fromBytes(const uint8_t* in) {
        uint64_t limbs[kFe25Limbs];
        fe25Load(limbs, in);
        Element r = zero();
        for (size_t i = 0; i < kFe25Limbs; ++i) {
            r.v[i].w = limbs[i];
        }
        return r;
    }

    void toBytes(uint8_t* out) const {
        uint64_t limbs[kFe25Limbs];
        for (size_t i = 0; i < kFe25Limbs; ++i) {
            limbs[i] = v[i].w;
        }
        fe25Store(out, limbs);
    }

    static Element zero() { return constant(0); }
    static Element one() { return constant(1); }
    Element square() const { return *this * *this; }

    static void swapIf(uint32_t mask, Element& a, Element& b) {
        for (size_t i = 0; i < kFe25Limbs; ++i) {
            const uint64_t difference = mask & (a.v[i].w ^ b.v[i].w);  // limbs are below 2^32
            a.v[i].w ^= difference;
            b.v[i].w ^= difference;
        }
    }
};

}  // namespace

constinit const X25519Form kX25519Radix25 = {"radix25", alwaysUsable, x25519Ladder<Element>};

}  // namespace tv::crypto
