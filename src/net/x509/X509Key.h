// The public key in a certificate.
#pragma once

#include <cstdint>

#include "base/crypto/EcCurve.h"
#include "net/x509/DerReader.h"

namespace tv::x509 {

enum class KeyKind : uint8_t { Unknown, Rsa, RsaPss, Ec };

// Views into the certificate. A key of another kind or on another curve is read as Unknown.
struct PublicKey {
    KeyKind kind = KeyKind::Unknown;
    Bytes modulus;   // RSA, big-endian, without a leading zero
    Bytes exponent;  // RSA
    crypto::EcCurveId curve = crypto::EcCurveId::kSecp256r1;  // EC
    Bytes point;                                              // EC, as it stands
};

// Takes a SubjectPublicKeyInfo with its tag and length. False where it is malformed.
bool parsePublicKey(Bytes subjectPublicKeyInfo, PublicKey& out);

// Finds the SubjectPublicKeyInfo of a certificate and reads it, looking at nothing else: serial
// numbers, dates and extensions may be as odd as they like. For connections that do not verify.
bool findPublicKey(Bytes certificate, PublicKey& out);

}  // namespace tv::x509
