// Checks a server's signature over handshake data with the key of its certificate.
#pragma once

#include <cstdint>
#include <span>

#include "net/tls/TlsTypes.h"
#include "net/x509/X509Key.h"

namespace tv::tls {

// TLS 1.3 allows PSS, and ECDSA with the curve that the scheme names (RFC 8446, 4.2.3, 4.4.3);
// TLS 1.2 every scheme but MD5, and its hash does not bind the curve.
bool schemeFits13(SignatureScheme scheme, const x509::PublicKey& key);
bool schemeFits12(SignatureScheme scheme, const x509::PublicKey& key);

// TLS 1.3, CertificateVerify: the scheme must fit the key.
bool verifyServerSignature13(SignatureScheme scheme, const x509::PublicKey& key,
                             std::span<const uint8_t> transcriptHash,
                             std::span<const uint8_t> signature);

// TLS 1.2 and before, ServerKeyExchange: data is both randoms and the parameters. Before TLS 1.2
// there is no scheme: RSA signs MD5 and SHA-1 together, ECDSA signs SHA-1. MD5 alone is refused.
bool verifyServerSignature12(Version version, SignatureScheme scheme, const x509::PublicKey& key,
                             std::span<const uint8_t> data, std::span<const uint8_t> signature);

}  // namespace tv::tls
