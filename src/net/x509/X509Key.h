// The public key in a certificate, and what its owner binds it to.
// Read whole with the certificate, or found alone where nobody verifies.
#pragma once

#include <cstdint>
#include <optional>

#include "base/crypto/EcCurve.h"
#include "net/x509/DerReader.h"
#include "net/x509/X509Algorithm.h"

namespace tv::x509 {

enum class KeyKind : uint8_t { Unknown, Rsa, RsaPss, Ec };

// Views into the certificate. A key of another kind or on another curve is read as Unknown.
struct PublicKey {
    KeyKind kind = KeyKind::Unknown;
    Bytes modulus;   // RSA, big-endian, without a leading zero
    Bytes exponent;  // RSA
    // RsaPss: the hash of every signature and its least salt, where the key names them.
    std::optional<SignatureAlgorithm> bound;
    crypto::EcCurveId curve = crypto::EcCurveId::kSecp256r1;  // EC
    Bytes point;                                              // EC, as it stands
};

// Takes a SubjectPublicKeyInfo with its tag and length. False where it is malformed.
bool parsePublicKey(Bytes subjectPublicKeyInfo, PublicKey& out);

// Finds the SubjectPublicKeyInfo of a certificate and reads it, looking at nothing else: serial
// numbers, dates and extensions may be as odd as they like. For connections that do not verify.
bool findPublicKey(Bytes certificate, PublicKey& out);

}  // namespace tv::x509
