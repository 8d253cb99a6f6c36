// Elliptic curves in short Weierstrass form over prime fields, of prime order (cofactor 1): what
// ECDH and ECDSA verification need of them. Numbers are big-endian byte strings of fixed length,
// points are in uncompressed form (04, x, y: SEC 1, 2.3.3) and no other.
#pragma once

#include <cstdint>
#include <span>

#include "base/crypto/EcForms.h"

namespace tv::crypto {

enum class EcCurveId : uint8_t {
    kSecp256r1,
    kSecp384r1,
    kSecp521r1,
    kBrainpoolP256r1,
    kBrainpoolP384r1,
    kBrainpoolP512r1,
};

// Takes numbers and points in and out and checks them; the work on points is done by EcOps.
class EcCurve {
public:
    // member: where a form keeps its functions for this curve; null for one that has but portable
    // ones.
    EcCurve(const EcParams& params, const EcOps* EcForm::*member)
        : curve_(params), member_(member) {}

    // Length of a coordinate and of a scalar: the same on each of our curves.
    size_t fieldBytes() const { return curve_.bytes(); }
    size_t pointBytes() const { return 1 + 2 * fieldBytes(); }

    // Whether the bytes are a point of the curve other than infinity. For public points.
    bool isPoint(std::span<const uint8_t> point) const;
    // Whether the scalar lies in 1 .. order - 1. Constant time in the scalar (the answer is
    // public).
    bool isScalar(std::span<const uint8_t> scalar) const;

    // outPoint = scalar * base point. Constant time in the scalar. False if it is out of range.
    bool multiplyBase(std::span<uint8_t> outPoint, std::span<const uint8_t> scalar) const;
    // outX = x of scalar * point. Constant time in the scalar. False if the scalar is out of range
    // or the point not on the curve.
    bool multiply(std::span<uint8_t> outX, std::span<const uint8_t> scalar,
                  std::span<const uint8_t> point) const;
    // ECDSA (FIPS 186-5, 6.4.2): r and s of fieldBytes() bytes, the digest of the message, the
    // signer's point. Takes time by the values, which are all public.
    bool verify(std::span<const uint8_t> r, std::span<const uint8_t> s,
                std::span<const uint8_t> digest, std::span<const uint8_t> point) const;

private:
    const EcOps& ops() const { return member_ ? *(ecForms.get().*member_) : kEcPortableOps; }
    bool takeScalar(EcNumber& out, std::span<const uint8_t> bytes) const;
    bool takeElement(EcNumber& out, const uint8_t* bytes) const;
    bool hasX(const uint8_t* x, const uint8_t* zz, const EcNumber& r) const;

    Weierstrass curve_;
    const EcOps* EcForm::*member_;
};

const EcCurve& ecCurve(EcCurveId id);

}  // namespace tv::crypto
