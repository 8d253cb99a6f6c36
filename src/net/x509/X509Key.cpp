// SubjectPublicKeyInfo of RSA and EC keys (RFC 3279, RFC 4055, RFC 5480).
// Every other kind of key is read as Unknown.
#include "net/x509/X509Key.h"

#include <optional>

namespace tv::x509 {
namespace {

// Contents of the object identifiers: RFC 8017 appendix C, RFC 5480 2.1.1 and 2.1.1.1, RFC
// 5639 4.1.
constexpr uint8_t kRsaEncryption[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01};
constexpr uint8_t kRsassaPss[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0A};
constexpr uint8_t kEcPublicKey[] = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x02, 0x01};
constexpr uint8_t kSecp256r1[] = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07};
constexpr uint8_t kSecp384r1[] = {0x2B, 0x81, 0x04, 0x00, 0x22};
constexpr uint8_t kSecp521r1[] = {0x2B, 0x81, 0x04, 0x00, 0x23};
constexpr uint8_t kBrainpoolP256r1[] = {0x2B, 0x24, 0x03, 0x03, 0x02, 0x08, 0x01, 0x01, 0x07};
constexpr uint8_t kBrainpoolP384r1[] = {0x2B, 0x24, 0x03, 0x03, 0x02, 0x08, 0x01, 0x01, 0x0B};
constexpr uint8_t kBrainpoolP512r1[] = {0x2B, 0x24, 0x03, 0x03, 0x02, 0x08, 0x01, 0x01, 0x0D};

std::optional<crypto::EcCurveId> curveOf(Bytes oid) {
    const struct {
        Bytes oid;
        crypto::EcCurveId curve;
    } kCurves[] = {
        {kSecp256r1, crypto::EcCurveId::kSecp256r1},
        {kSecp384r1, crypto::EcCurveId::kSecp384r1},
        {kSecp521r1, crypto::EcCurveId::kSecp521r1},
        {kBrainpoolP256r1, crypto::EcCurveId::kBrainpoolP256r1},
        {kBrainpoolP384r1, crypto::EcCurveId::kBrainpoolP384r1},
        {kBrainpoolP512r1, crypto::EcCurveId::kBrainpoolP512r1},
    };
    for (const auto& row : kCurves) {
        if (sameBytes(row.oid, oid)) return row.curve;
    }
    return std::nullopt;
}

bool readRsa(Bytes bits, PublicKey& out) {
    DerReader outer(bits);
    DerReader key = outer.sequence();
    out.modulus = key.unsignedInteger();
    out.exponent = key.unsignedInteger();
    return outer.complete() && key.complete();
}

}  // namespace

bool parsePublicKey(Bytes subjectPublicKeyInfo, PublicKey& out) {
    out = {};
    DerReader outer(subjectPublicKeyInfo);
    DerReader info = outer.sequence();
    DerReader algorithm = info.sequence();
    const Bytes bits = info.bitString();
    const Bytes oid = algorithm.content(der::kOid);
    if (!outer.complete() || !info.complete() || !algorithm.ok()) return false;

    if (sameBytes(oid, kRsaEncryption)) {
        out.kind = KeyKind::Rsa;
        return readRsa(bits, out);
    }
    if (sameBytes(oid, kRsassaPss)) {
        if (!algorithm.atEnd()) out.bound = readPssParameters(algorithm);
        const bool known = !out.bound || out.bound->kind == SignatureKind::RsaPss;
        if (known) out.kind = KeyKind::RsaPss;
        return readRsa(bits, out);
    }
    if (sameBytes(oid, kEcPublicKey)) {
        const Bytes curve = algorithm.content(der::kOid);
        if (!algorithm.complete()) return true;  // explicit parameters: a key of no use here
        const std::optional<crypto::EcCurveId> known = curveOf(curve);
        if (!known) return true;
        out.kind = KeyKind::Ec;
        out.curve = *known;
        out.point = bits;
    }
    return true;
}

bool findPublicKey(Bytes certificate, PublicKey& out) {
    DerReader outer(certificate);
    DerReader cert = outer.sequence();
    DerReader tbs = cert.sequence();
    tbs.optional(der::contextConstructed(0));  // version
    tbs.any();                                 // serial number
    tbs.any();                                 // signature algorithm
    tbs.any();                                 // issuer
    tbs.any();                                 // validity
    tbs.any();                                 // subject
    const DerItem info = tbs.item(der::kSequence);
    return cert.ok() && tbs.ok() && parsePublicKey(info.whole, out);
}

}  // namespace tv::x509
