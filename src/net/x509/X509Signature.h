// The signature of one certificate under the key of another, and what its check costs.
#pragma once

#include <cstdint>

#include "net/x509/ChainRule.h"
#include "net/x509/X509Cert.h"

namespace tv::x509 {

// Whether issuer's key made the certificate's signature, with an algorithm that is still good.
ChainRule checkSignature(const Certificate& certificate, const PublicKey& issuerKey);

// The units of a WorkBudget that checkSignature takes, at most.
uint64_t signatureCost(const Certificate& certificate, const PublicKey& issuerKey);

}  // namespace tv::x509
