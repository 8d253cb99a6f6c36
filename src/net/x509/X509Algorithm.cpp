// Object identifiers of signatures and hashes, and the parameters of RSASSA-PSS.
#include "net/x509/X509Algorithm.h"

#include <optional>

namespace tv::x509 {
namespace {

// Object identifiers: RFC 8017 appendix C (1.2.840.113549.1.1.n), RFC 5758 3.2 and RFC 3279 2.2.3
// (ECDSA), RFC 4055 2.1 (hashes).
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

}  // namespace

SignatureAlgorithm readPssParameters(DerReader parameters) {
    DerReader list = parameters.sequence();
    crypto::HashId hash = crypto::HashId::kSha1;
    crypto::HashId maskHash = crypto::HashId::kSha1;
    // RFC 4055, 3.1: SHA-1 and a salt of 20 bytes where the fields are absent, trailer number 1.
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
    if (!known || !list.complete() || hash != maskHash) return {};
    return {SignatureKind::RsaPss, hash, saltSize};
}

SignatureAlgorithm readSignatureAlgorithm(Bytes content) {
    SignatureAlgorithm out;
    DerReader r(content);
    const Bytes oid = r.content(der::kOid);
    const uint8_t rsa = numberBehind(oid, kRsaPrefix);
    if (rsa == kRsassaPssNumber) return readPssParameters(r);
    if (const auto hash = findHash(kRsaHashes, rsa)) {
        out = {SignatureKind::RsaPkcs1, *hash, 0};
    } else if (sameBytes(oid, kEcdsaSha1)) {
        out = {SignatureKind::Ecdsa, crypto::HashId::kSha1, 0};
    } else if (const auto sha2 = findHash(kEcdsaHashes, numberBehind(oid, kEcdsaSha2Prefix))) {
        out = {SignatureKind::Ecdsa, *sha2, 0};
    }
    return out;
}

}  // namespace tv::x509
