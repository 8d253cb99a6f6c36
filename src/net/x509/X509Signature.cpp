// Signatures of certificates; their costs are measured in a 32-bit program, the slowest there is.
#include "net/x509/X509Signature.h"

#include <algorithm>
#include <bit>

#include "base/crypto/Ecdsa.h"
#include "base/crypto/Rsa.h"

namespace tv::x509 {
namespace {

// Whether an RSA key makes signatures of this algorithm. One for RSASSA-PSS alone may name the hash
// and the least salt (RFC 4055, 3.3).
bool mayUse(const PublicKey& key, const SignatureAlgorithm& algorithm) {
    if (key.kind == KeyKind::Rsa) return true;
    if (key.kind != KeyKind::RsaPss || algorithm.kind != SignatureKind::RsaPss) return false;
    return !key.bound ||
           (key.bound->hash == algorithm.hash && algorithm.saltSize >= key.bound->saltSize);
}

uint64_t curveCost(crypto::EcCurveId curve) {
    switch (curve) {
        case crypto::EcCurveId::kSecp256r1:
            return 3000;
        case crypto::EcCurveId::kSecp384r1:
            return 8000;
        case crypto::EcCurveId::kSecp521r1:
            return 70000;
        case crypto::EcCurveId::kBrainpoolP256r1:
            return 10000;
        case crypto::EcCurveId::kBrainpoolP384r1:
            return 28000;
        case crypto::EcCurveId::kBrainpoolP512r1:
            return 61000;
    }
    return 70000;
}

// A squaring for each bit of the exponent, a multiplication for each that is set, and about two to
// get ready; what is longer is refused at once.
uint64_t rsaCost(Bytes modulus, Bytes exponent) {
    // What RsaPublicKey takes, in bytes.
    constexpr size_t kMaxModulus = 1024, kMaxExponent = 4;
    constexpr uint64_t kLimbProductsPerUnit = 55;
    if (modulus.size() > kMaxModulus || exponent.size() > kMaxExponent) return 1;
    uint32_t e = 0;
    for (const uint8_t byte : exponent) {
        e = e << 8 | byte;
    }
    const auto bits = static_cast<uint64_t>(std::bit_width(e));
    const uint64_t products = bits + static_cast<uint64_t>(std::popcount(e)) + 2;
    const uint64_t limbs = modulus.size() / 4 + 1;
    return 100 + products * limbs * limbs / kLimbProductsPerUnit;
}

}  // namespace

ChainRule checkSignature(const Certificate& certificate, const PublicKey& issuerKey) {
    const SignatureAlgorithm& algorithm = certificate.signatureAlgorithm;
    if (algorithm.kind == SignatureKind::Unknown) return ChainRule::WeakSignature;
    if (algorithm.hash == crypto::HashId::kMd5 || algorithm.hash == crypto::HashId::kSha1) {
        return ChainRule::WeakSignature;
    }
    const crypto::DigestBytes digest = crypto::Hash::of(algorithm.hash, certificate.tbs);
    bool good = false;
    if (algorithm.kind == SignatureKind::Ecdsa) {
        good = issuerKey.kind == KeyKind::Ec &&
               crypto::ecdsaVerify(issuerKey.curve, issuerKey.point, digest, certificate.signature);
    } else {
        crypto::RsaPublicKey rsa;
        const bool pss = algorithm.kind == SignatureKind::RsaPss;
        good =
            mayUse(issuerKey, algorithm) && rsa.set(issuerKey.modulus, issuerKey.exponent) &&
            (pss ? rsa.verifyPss(algorithm.hash, digest, algorithm.saltSize, certificate.signature)
                 : rsa.verifyPkcs1(algorithm.hash, digest, certificate.signature));
    }
    return good ? ChainRule::None : ChainRule::BadSignature;
}

uint64_t signatureCost(const Certificate& certificate, const PublicKey& issuerKey) {
    constexpr uint64_t kHashedPerUnit = 8;  // SHA-512
    const uint64_t hashing = certificate.tbs.size() / kHashedPerUnit;
    if (issuerKey.kind == KeyKind::Ec) return hashing + curveCost(issuerKey.curve);
    return hashing + rsaCost(issuerKey.modulus, issuerKey.exponent);
}

}  // namespace tv::x509
