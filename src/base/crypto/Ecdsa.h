// ECDSA signatures in the form of TLS and certificates (RFC 3279 2.2.3).
#pragma once

#include <cstdint>
#include <span>

#include "base/crypto/EcCurve.h"

namespace tv::crypto {

// Whether signature, the DER of SEQUENCE { INTEGER r, INTEGER s }, is the signature of the message
// with this digest by the owner of point (uncompressed). Strict: one encoding of each signature, no
// bytes after it. Longer digests than the order are cut, as FIPS 186-5 says.
bool ecdsaVerify(EcCurveId curve, std::span<const uint8_t> point, std::span<const uint8_t> digest,
                 std::span<const uint8_t> signature);

}  // namespace tv::crypto
