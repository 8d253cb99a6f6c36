// The certificate's own fields and its signature algorithm; extensions stand in a file of theirs.
#include "net/x509/X509Cert.h"

#include <algorithm>

#include "net/x509/X509Extensions.h"
#include "net/x509/X509Name.h"
#include "net/x509/X509Time.h"

namespace tv::x509 {
namespace {

constexpr uint8_t kRsaPrefix[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01};  // + 1 byte
constexpr uint8_t kEcdsaSha2Prefix[] = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x03};  // + 1 byte
constexpr uint8_t kEcdsaSha1[] = {0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x04, 0x01};
constexpr uint8_t kMgf1[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x08};
constexpr uint8_t kSha1[] = {0x2B, 0x0E, 0x03, 0x02, 0x1A};
constexpr uint8_t kSha2Prefix[] = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02};  // + 1 byte

struct NumberedHash {
    uint8_t number;
    crypto::HashId hash;
};

// The last byte of the identifiers that begin with one of the prefixes.
constexpr NumberedHash kRsaHashes[] = {{4, crypto::HashId::kMd5},
                                       {5, crypto::HashId::kSha1},
                                       {11, crypto::HashId::kSha256},
                                       {12, crypto::HashId::kSha384},
                                       {13, crypto::HashId::kSha512}};
constexpr NumberedHash kEcdsaHashes[] = {
    {2, crypto::HashId::kSha256}, {3, crypto::HashId::kSha384}, {4, crypto::HashId::kSha512}};
constexpr NumberedHash kSha2Hashes[] = {
    {1, crypto::HashId::kSha256}, {2, crypto::HashId::kSha384}, {3, crypto::HashId::kSha512}};
constexpr uint8_t kRsassaPssNumber = 10;

// The byte behind the prefix, or 0.
uint8_t numberBehind(Bytes oid, Bytes prefix) {
    const bool fits =
        oid.size() == prefix.size() + 1 && sameBytes(oid.first(prefix.size()), prefix);
    return fits ? oid.back() : uint8_t{0};
}

std::optional<crypto::HashId> findHash(std::span<const NumberedHash> table, uint8_t number) {
    for (const NumberedHash& row : table) {
        if (row.number == number) return row.hash;
    }
    return std::nullopt;
}

std::optional<crypto::HashId> digestAlgorithm(DerReader algorithm) {
    const Bytes oid = algorithm.content(der::kOid);
    if (!algorithm.ok()) return std::nullopt;
    if (sameBytes(oid, kSha1)) return crypto::HashId::kSha1;
    return findHash(kSha2Hashes, numberBehind(oid, kSha2Prefix));
}

// RSASSA-PSS-params (RFC 4055, 3.1). The mask generation must use the same hash.
void readPss(DerReader parameters, SignatureAlgorithm& out) {
    DerReader list = parameters.sequence();
    crypto::HashId hash = crypto::HashId::kSha1;
    crypto::HashId maskHash = crypto::HashId::kSha1;
    uint32_t saltSize = 20;
    bool known = true;
    if (const auto field = list.optional(der::contextConstructed(0))) {
        const auto found = digestAlgorithm(DerReader(*field).sequence());
        known &= found.has_value();
        hash = found.value_or(hash);
    }
    if (const auto field = list.optional(der::contextConstructed(1))) {
        DerReader generator = DerReader(*field).sequence();
        known &= sameBytes(generator.content(der::kOid), kMgf1);
        const auto found = digestAlgorithm(generator.sequence());
        known &= found.has_value();
        maskHash = found.value_or(maskHash);
    }
    if (const auto field = list.optional(der::contextConstructed(2))) {
        DerReader number(*field);
        saltSize = number.smallInteger();
        known &= number.complete();
    }
    if (const auto field = list.optional(der::contextConstructed(3))) {
        DerReader trailer(*field);
        known &= trailer.smallInteger() == 1;
    }
    if (known && list.complete() && hash == maskHash) out = {SignatureKind::RsaPss, hash, saltSize};
}

// The content of an AlgorithmIdentifier.
SignatureAlgorithm readSignatureAlgorithm(Bytes content) {
    SignatureAlgorithm out;
    DerReader r(content);
    const Bytes oid = r.content(der::kOid);
    const uint8_t rsa = numberBehind(oid, kRsaPrefix);
    if (rsa == kRsassaPssNumber) {
        readPss(r, out);
        return out;
    }
    if (const auto hash = findHash(kRsaHashes, rsa)) {
        out = {SignatureKind::RsaPkcs1, *hash, 0};
    } else if (sameBytes(oid, kEcdsaSha1)) {
        out = {SignatureKind::Ecdsa, crypto::HashId::kSha1, 0};
    } else if (const auto sha2 = findHash(kEcdsaHashes, numberBehind(oid, kEcdsaSha2Prefix))) {
        out = {SignatureKind::Ecdsa, *sha2, 0};
    }
    return out;
}

bool readValidity(DerReader validity, Certificate& out) {
    const DerItem from = validity.any();
    const DerItem until = validity.any();
    return validity.complete() && parseTime(from, out.notBefore) && parseTime(until, out.notAfter);
}

bool readTbs(DerReader tbs, Bytes outerAlgorithm, Certificate& out) {
    uint32_t version = 0;  // v1
    if (const auto field = tbs.optional(der::contextConstructed(0))) {
        DerReader number(*field);
        version = number.smallInteger();
        if (!number.complete() || version == 0 || version > 2) return false;
    }
    out.serial = tbs.unsignedInteger();
    const DerItem innerAlgorithm = tbs.item(der::kSequence);
    out.issuer = tbs.item(der::kSequence).whole;
    const DerReader validity = tbs.sequence();
    out.subject = tbs.item(der::kSequence).whole;
    out.subjectPublicKeyInfo = tbs.item(der::kSequence).whole;
    // RFC 5280, 4.1.1.2: the signature algorithm stands in the signed part, too.
    if (!tbs.ok() || !sameBytes(innerAlgorithm.whole, outerAlgorithm)) return false;
    if (!canonicalName(out.issuer, out.issuerName)) return false;
    if (!canonicalName(out.subject, out.subjectName)) return false;
    if (!readValidity(validity, out)) return false;
    if (!parsePublicKey(out.subjectPublicKeyInfo, out.key)) return false;
    tbs.optional(der::context(1));  // unique identifiers
    tbs.optional(der::context(2));
    if (const auto extensions = tbs.optional(der::contextConstructed(3))) {
        if (version != 2 || !parseExtensions(*extensions, out)) return false;
    }
    return tbs.complete();
}

}  // namespace

bool parseCertificate(Bytes der, Certificate& out) {
    out = {};
    out.whole = der;
    DerReader outer(der);
    DerReader cert = outer.sequence();
    const DerItem tbs = cert.item(der::kSequence);
    const DerItem algorithm = cert.item(der::kSequence);
    out.signature = cert.bitString();
    if (!outer.complete() || !cert.complete()) return false;
    out.tbs = tbs.whole;
    out.signatureAlgorithm = readSignatureAlgorithm(algorithm.content);
    return readTbs(DerReader(tbs.content), algorithm.whole, out);
}

}  // namespace tv::x509
