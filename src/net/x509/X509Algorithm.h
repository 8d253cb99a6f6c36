// Algorithms of signatures as certificates name them (RFC 3279, RFC 4055, RFC 5758).
#pragma once

#include <cstdint>

#include "base/crypto/Hash.h"
#include "net/x509/DerReader.h"

namespace tv::x509 {

enum class SignatureKind : uint8_t { Unknown, RsaPkcs1, RsaPss, Ecdsa };

struct SignatureAlgorithm {
    SignatureKind kind = SignatureKind::Unknown;
    crypto::HashId hash = crypto::HashId::kSha256;
    uint32_t saltSize = 0;  // PSS
};

// Takes the content of an AlgorithmIdentifier.
SignatureAlgorithm readSignatureAlgorithm(Bytes content);

// RSASSA-PSS-params (RFC 4055, 3.1), of a signature or of a key. Unknown where they are malformed
// or ask for something else than MGF1 with the hash of the message.
SignatureAlgorithm readPssParameters(DerReader parameters);

}  // namespace tv::x509
