// Elliptic-curve Diffie-Hellman with a key for one handshake.
#pragma once

#include <span>

#include "base/SecureBuffer.h"
#include "base/crypto/EcCurve.h"
#include "base/crypto/RandomSource.h"

namespace tv::crypto {

class EcdhKey {
public:
    explicit EcdhKey(EcCurveId curve) : curve_(ecCurve(curve)) {}

    // A fresh private key, uniform in 1 .. order - 1. False if the random source fails.
    bool generate(const RandomSource& random);
    // For tests: a known private key.
    bool setPrivate(std::span<const uint8_t> scalar);

    // Uncompressed; curve's pointBytes() bytes, empty before there is a key.
    std::span<const uint8_t> publicPoint() const { return public_.bytes(); }

    // The x coordinate of the shared point, leading zeros kept (RFC 8422 5.10, RFC 8446 7.4.2).
    // False if there is no key yet or peerPoint is not an uncompressed point of the curve.
    bool derive(SecureBuffer& secret, std::span<const uint8_t> peerPoint) const;

private:
    const EcCurve& curve_;
    SecureBuffer private_, public_;
};

}  // namespace tv::crypto
