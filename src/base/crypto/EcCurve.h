// Elliptic curves in short Weierstrass form over prime fields, of prime order (cofactor 1): what
// ECDH and ECDSA verification need of them. Numbers are big-endian byte strings of fixed length,
// points are in uncompressed form (04, x, y: SEC 1, 2.3.3) and no other.
#pragma once

#include <cstdint>
#include <span>

namespace tv::crypto {

enum class EcCurveId : uint8_t {
    kSecp256r1,
    kSecp384r1,
    kSecp521r1,
    kBrainpoolP256r1,
    kBrainpoolP384r1,
    kBrainpoolP512r1,
};

class EcCurve {
public:
    virtual ~EcCurve() = default;

    // Length of a coordinate and of a scalar: the same on each of our curves.
    virtual size_t fieldBytes() const = 0;
    size_t pointBytes() const { return 1 + 2 * fieldBytes(); }

    // Whether the bytes are a point of the curve other than infinity. For public points.
    virtual bool isPoint(std::span<const uint8_t> point) const = 0;
    // Whether the scalar lies in 1 .. order - 1. Constant time in the scalar (the answer is
    // public).
    virtual bool isScalar(std::span<const uint8_t> scalar) const = 0;

    // outPoint = scalar * base point. Constant time in the scalar. False if it is out of range.
    virtual bool multiplyBase(std::span<uint8_t> outPoint,
                              std::span<const uint8_t> scalar) const = 0;
    // outX = x of scalar * point. Constant time in the scalar. False if the scalar is out of range
    // or the point not on the curve.
    virtual bool multiply(std::span<uint8_t> outX, std::span<const uint8_t> scalar,
                          std::span<const uint8_t> point) const = 0;
    // ECDSA (FIPS 186-5, 6.4.2): r and s of fieldBytes() bytes, the digest of the message, the
    // signer's point. Takes time by the values, which are all public.
    virtual bool verify(std::span<const uint8_t> r, std::span<const uint8_t> s,
                        std::span<const uint8_t> digest, std::span<const uint8_t> point) const = 0;
};

const EcCurve& ecCurve(EcCurveId id);

}  // namespace tv::crypto
