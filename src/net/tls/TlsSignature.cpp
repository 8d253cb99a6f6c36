// The schemes that are offered, which keys they fit, and the check of a server's signature.
#include "net/tls/TlsSignature.h"

#include <optional>
#include <vector>

#include "base/ByteWriter.h"
#include "base/crypto/Ecdsa.h"
#include "base/crypto/Rsa.h"

namespace tv::tls {
namespace {

enum class Kind : uint8_t { RsaPkcs1, RsaPss, Ecdsa };

struct Scheme {
    SignatureScheme scheme;
    Kind kind;
    crypto::HashId hash;
    std::optional<crypto::EcCurveId> curve;  // that TLS 1.3 binds the scheme to
};

// What every hello offers, each where its version allows it; MD5 is offered and never taken.
constexpr Scheme kSchemes[] = {
    {SignatureScheme::RsaPkcs1Sha1, Kind::RsaPkcs1, crypto::HashId::kSha1, {}},
    {SignatureScheme::RsaPkcs1Sha256, Kind::RsaPkcs1, crypto::HashId::kSha256, {}},
    {SignatureScheme::RsaPkcs1Sha384, Kind::RsaPkcs1, crypto::HashId::kSha384, {}},
    {SignatureScheme::RsaPkcs1Sha512, Kind::RsaPkcs1, crypto::HashId::kSha512, {}},
    {SignatureScheme::RsaPssRsaeSha256, Kind::RsaPss, crypto::HashId::kSha256, {}},
    {SignatureScheme::RsaPssRsaeSha384, Kind::RsaPss, crypto::HashId::kSha384, {}},
    {SignatureScheme::RsaPssRsaeSha512, Kind::RsaPss, crypto::HashId::kSha512, {}},
    {SignatureScheme::EcdsaSha1, Kind::Ecdsa, crypto::HashId::kSha1, {}},
    {SignatureScheme::EcdsaSecp256r1Sha256, Kind::Ecdsa, crypto::HashId::kSha256,
     crypto::EcCurveId::kSecp256r1},
    {SignatureScheme::EcdsaSecp384r1Sha384, Kind::Ecdsa, crypto::HashId::kSha384,
     crypto::EcCurveId::kSecp384r1},
    {SignatureScheme::EcdsaSecp521r1Sha512, Kind::Ecdsa, crypto::HashId::kSha512,
     crypto::EcCurveId::kSecp521r1},
};

const Scheme* findScheme(SignatureScheme scheme) {
    for (const Scheme& row : kSchemes) {
        if (row.scheme == scheme) return &row;
    }
    return nullptr;
}

bool verify(const Scheme& scheme, const x509::PublicKey& key, std::span<const uint8_t> data,
            std::span<const uint8_t> signature) {
    const crypto::DigestBytes digest = crypto::Hash::of(scheme.hash, data);
    if (scheme.kind == Kind::Ecdsa) {
        return key.kind == x509::KeyKind::Ec &&
               crypto::ecdsaVerify(key.curve, key.point, digest, signature);
    }
    crypto::RsaPublicKey rsa;
    if (key.kind != x509::KeyKind::Rsa || !rsa.set(key.modulus, key.exponent)) return false;
    return scheme.kind == Kind::RsaPss
               ? rsa.verifyPss(scheme.hash, digest, digest.size(), signature)
               : rsa.verifyPkcs1(scheme.hash, digest, signature);
}

bool verifyLegacy(const x509::PublicKey& key, std::span<const uint8_t> data,
                  std::span<const uint8_t> signature) {
    const crypto::DigestBytes sha1 = crypto::Hash::of(crypto::HashId::kSha1, data);
    if (key.kind == x509::KeyKind::Ec) {
        return crypto::ecdsaVerify(key.curve, key.point, sha1, signature);
    }
    crypto::RsaPublicKey rsa;
    if (key.kind != x509::KeyKind::Rsa || !rsa.set(key.modulus, key.exponent)) return false;
    ByteWriter both;
    both.append(crypto::Hash::of(crypto::HashId::kMd5, data).bytes());
    both.append(sha1.bytes());
    return rsa.verifyPkcs1Md5Sha1(both.bytes(), signature);
}

}  // namespace

bool schemeFits13(SignatureScheme scheme, const x509::PublicKey& key) {
    const Scheme* row = findScheme(scheme);
    if (!row) return false;
    if (row->kind == Kind::RsaPss) return key.kind == x509::KeyKind::Rsa;
    return row->kind == Kind::Ecdsa && row->curve && key.kind == x509::KeyKind::Ec &&
           key.curve == *row->curve;
}

bool schemeFits12(SignatureScheme scheme, const x509::PublicKey& key) {
    const Scheme* row = findScheme(scheme);
    if (!row) return false;
    return key.kind == (row->kind == Kind::Ecdsa ? x509::KeyKind::Ec : x509::KeyKind::Rsa);
}

bool verifyServerSignature13(SignatureScheme scheme, const x509::PublicKey& key,
                             std::span<const uint8_t> transcriptHash,
                             std::span<const uint8_t> signature) {
    if (!schemeFits13(scheme, key)) return false;
    ByteWriter data;  // RFC 8446, 4.4.3: 64 blanks, the context, a zero, the hash
    for (int i = 0; i < 64; ++i) {
        data.u8(0x20);
    }
    data.append("TLS 1.3, server CertificateVerify");
    data.u8(0);
    data.append(transcriptHash);
    return verify(*findScheme(scheme), key, data.bytes(), signature);
}

bool verifyServerSignature12(Version version, SignatureScheme scheme, const x509::PublicKey& key,
                             std::span<const uint8_t> data, std::span<const uint8_t> signature) {
    if (version < Version::Tls12) return verifyLegacy(key, data, signature);
    const Scheme* row = findScheme(scheme);
    return row && verify(*row, key, data, signature);
}

}  // namespace tv::tls
