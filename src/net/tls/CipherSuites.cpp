// The table of cipher suites in its groups, and the order in which a hello offers them.
#include "net/tls/CipherSuites.h"

#include <algorithm>
#include <utility>

namespace tv::tls {
namespace {

// Numbers and names of the IANA registry (RFC 8446 B.4, RFC 5246 A.5, RFC 5288, RFC 5289, RFC 7905,
// RFC 8422). Sizes in bytes: key, fixed IV, explicit IV, tag. Within a group the order is drawn
// anew for each hello; suites that stand in two groups count where they come first.
// clang-format off
constexpr CipherSuite kGroup1[] = {
    {0x1301, "TLS_AES_128_GCM_SHA256", KeyExchangeKind::Tls13,
     BulkCipher::AesGcm, 16, 12, 0, 16, std::nullopt, crypto::HashId::kSha256, Version::Tls13},
    {0x1303, "TLS_CHACHA20_POLY1305_SHA256", KeyExchangeKind::Tls13,
     BulkCipher::ChaCha20Poly1305, 32, 12, 0, 16, std::nullopt, crypto::HashId::kSha256, Version::Tls13},
    {0x1302, "TLS_AES_256_GCM_SHA384", KeyExchangeKind::Tls13,
     BulkCipher::AesGcm, 32, 12, 0, 16, std::nullopt, crypto::HashId::kSha384, Version::Tls13},
    {0xC02B, "TLS_ECDHE_ECDSA_WITH_AES_128_GCM_SHA256", KeyExchangeKind::EcdheEcdsa,
     BulkCipher::AesGcm, 16, 4, 8, 16, std::nullopt, crypto::HashId::kSha256, Version::Tls12},
    {0xCCA8, "TLS_ECDHE_RSA_WITH_CHACHA20_POLY1305_SHA256", KeyExchangeKind::EcdheRsa,
     BulkCipher::ChaCha20Poly1305, 32, 12, 0, 16, std::nullopt, crypto::HashId::kSha256, Version::Tls12},
    {0xCCA9, "TLS_ECDHE_ECDSA_WITH_CHACHA20_POLY1305_SHA256", KeyExchangeKind::EcdheEcdsa,
     BulkCipher::ChaCha20Poly1305, 32, 12, 0, 16, std::nullopt, crypto::HashId::kSha256, Version::Tls12},
    {0xCCAA, "TLS_DHE_RSA_WITH_CHACHA20_POLY1305_SHA256", KeyExchangeKind::DheRsa,
     BulkCipher::ChaCha20Poly1305, 32, 12, 0, 16, std::nullopt, crypto::HashId::kSha256, Version::Tls12},
};

constexpr CipherSuite kGroup2[] = {
    {0xC013, "TLS_ECDHE_RSA_WITH_AES_128_CBC_SHA", KeyExchangeKind::EcdheRsa,
     BulkCipher::AesCbc, 16, 0, 16, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
    {0x0033, "TLS_DHE_RSA_WITH_AES_128_CBC_SHA", KeyExchangeKind::DheRsa,
     BulkCipher::AesCbc, 16, 0, 16, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
    {0x002F, "TLS_RSA_WITH_AES_128_CBC_SHA", KeyExchangeKind::Rsa,
     BulkCipher::AesCbc, 16, 0, 16, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
    {0xC014, "TLS_ECDHE_RSA_WITH_AES_256_CBC_SHA", KeyExchangeKind::EcdheRsa,
     BulkCipher::AesCbc, 32, 0, 16, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
    {0x0039, "TLS_DHE_RSA_WITH_AES_256_CBC_SHA", KeyExchangeKind::DheRsa,
     BulkCipher::AesCbc, 32, 0, 16, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
    {0x0035, "TLS_RSA_WITH_AES_256_CBC_SHA", KeyExchangeKind::Rsa,
     BulkCipher::AesCbc, 32, 0, 16, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
    {0xC027, "TLS_ECDHE_RSA_WITH_AES_128_CBC_SHA256", KeyExchangeKind::EcdheRsa,
     BulkCipher::AesCbc, 16, 0, 16, 32, crypto::HashId::kSha256, crypto::HashId::kSha256, Version::Tls12},
    {0x0067, "TLS_DHE_RSA_WITH_AES_128_CBC_SHA256", KeyExchangeKind::DheRsa,
     BulkCipher::AesCbc, 16, 0, 16, 32, crypto::HashId::kSha256, crypto::HashId::kSha256, Version::Tls12},
    {0x003C, "TLS_RSA_WITH_AES_128_CBC_SHA256", KeyExchangeKind::Rsa,
     BulkCipher::AesCbc, 16, 0, 16, 32, crypto::HashId::kSha256, crypto::HashId::kSha256, Version::Tls12},
    {0x006B, "TLS_DHE_RSA_WITH_AES_256_CBC_SHA256", KeyExchangeKind::DheRsa,
     BulkCipher::AesCbc, 32, 0, 16, 32, crypto::HashId::kSha256, crypto::HashId::kSha256, Version::Tls12},
    {0x003D, "TLS_RSA_WITH_AES_256_CBC_SHA256", KeyExchangeKind::Rsa,
     BulkCipher::AesCbc, 32, 0, 16, 32, crypto::HashId::kSha256, crypto::HashId::kSha256, Version::Tls12},
    {0xC028, "TLS_ECDHE_RSA_WITH_AES_256_CBC_SHA384", KeyExchangeKind::EcdheRsa,
     BulkCipher::AesCbc, 32, 0, 16, 48, crypto::HashId::kSha384, crypto::HashId::kSha384, Version::Tls12},
    {0xC02F, "TLS_ECDHE_RSA_WITH_AES_128_GCM_SHA256", KeyExchangeKind::EcdheRsa,
     BulkCipher::AesGcm, 16, 4, 8, 16, std::nullopt, crypto::HashId::kSha256, Version::Tls12},
    {0x009E, "TLS_DHE_RSA_WITH_AES_128_GCM_SHA256", KeyExchangeKind::DheRsa,
     BulkCipher::AesGcm, 16, 4, 8, 16, std::nullopt, crypto::HashId::kSha256, Version::Tls12},
    {0x009C, "TLS_RSA_WITH_AES_128_GCM_SHA256", KeyExchangeKind::Rsa,
     BulkCipher::AesGcm, 16, 4, 8, 16, std::nullopt, crypto::HashId::kSha256, Version::Tls12},
    {0xC030, "TLS_ECDHE_RSA_WITH_AES_256_GCM_SHA384", KeyExchangeKind::EcdheRsa,
     BulkCipher::AesGcm, 32, 4, 8, 16, std::nullopt, crypto::HashId::kSha384, Version::Tls12},
    {0x009F, "TLS_DHE_RSA_WITH_AES_256_GCM_SHA384", KeyExchangeKind::DheRsa,
     BulkCipher::AesGcm, 32, 4, 8, 16, std::nullopt, crypto::HashId::kSha384, Version::Tls12},
    {0x009D, "TLS_RSA_WITH_AES_256_GCM_SHA384", KeyExchangeKind::Rsa,
     BulkCipher::AesGcm, 32, 4, 8, 16, std::nullopt, crypto::HashId::kSha384, Version::Tls12},
    {0xC02B, "TLS_ECDHE_ECDSA_WITH_AES_128_GCM_SHA256", KeyExchangeKind::EcdheEcdsa,
     BulkCipher::AesGcm, 16, 4, 8, 16, std::nullopt, crypto::HashId::kSha256, Version::Tls12},
    {0xC009, "TLS_ECDHE_ECDSA_WITH_AES_128_CBC_SHA", KeyExchangeKind::EcdheEcdsa,
     BulkCipher::AesCbc, 16, 0, 16, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
    {0xC023, "TLS_ECDHE_ECDSA_WITH_AES_128_CBC_SHA256", KeyExchangeKind::EcdheEcdsa,
     BulkCipher::AesCbc, 16, 0, 16, 32, crypto::HashId::kSha256, crypto::HashId::kSha256, Version::Tls12},
    {0xC00A, "TLS_ECDHE_ECDSA_WITH_AES_256_CBC_SHA", KeyExchangeKind::EcdheEcdsa,
     BulkCipher::AesCbc, 32, 0, 16, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
    {0xC024, "TLS_ECDHE_ECDSA_WITH_AES_256_CBC_SHA384", KeyExchangeKind::EcdheEcdsa,
     BulkCipher::AesCbc, 32, 0, 16, 48, crypto::HashId::kSha384, crypto::HashId::kSha384, Version::Tls12},
    {0xC02C, "TLS_ECDHE_ECDSA_WITH_AES_256_GCM_SHA384", KeyExchangeKind::EcdheEcdsa,
     BulkCipher::AesGcm, 32, 4, 8, 16, std::nullopt, crypto::HashId::kSha384, Version::Tls12},
};

constexpr CipherSuite kGroup3[] = {
    {0xC012, "TLS_ECDHE_RSA_WITH_3DES_EDE_CBC_SHA", KeyExchangeKind::EcdheRsa,
     BulkCipher::TripleDesCbc, 24, 0, 8, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
    {0x0016, "TLS_DHE_RSA_WITH_3DES_EDE_CBC_SHA", KeyExchangeKind::DheRsa,
     BulkCipher::TripleDesCbc, 24, 0, 8, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
    {0x000A, "TLS_RSA_WITH_3DES_EDE_CBC_SHA", KeyExchangeKind::Rsa,
     BulkCipher::TripleDesCbc, 24, 0, 8, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
    {0xC011, "TLS_ECDHE_RSA_WITH_RC4_128_SHA", KeyExchangeKind::EcdheRsa,
     BulkCipher::Rc4, 16, 0, 0, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
    {0x0005, "TLS_RSA_WITH_RC4_128_SHA", KeyExchangeKind::Rsa,
     BulkCipher::Rc4, 16, 0, 0, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
    {0x0004, "TLS_RSA_WITH_RC4_128_MD5", KeyExchangeKind::Rsa,
     BulkCipher::Rc4, 16, 0, 0, 16, crypto::HashId::kMd5, crypto::HashId::kSha256, Version::Tls10},
    {0x0015, "TLS_DHE_RSA_WITH_DES_CBC_SHA", KeyExchangeKind::DheRsa,
     BulkCipher::DesCbc, 8, 0, 8, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
    {0x0009, "TLS_RSA_WITH_DES_CBC_SHA", KeyExchangeKind::Rsa,
     BulkCipher::DesCbc, 8, 0, 8, 20, crypto::HashId::kSha1, crypto::HashId::kSha256, Version::Tls10},
};

// clang-format on

struct SuiteGroup {
    std::span<const CipherSuite> rows;
    size_t swaps;
};

// About as many swaps as a group has rows.
constexpr SuiteGroup kGroups[] = {{kGroup1, 8}, {kGroup2, 32}, {kGroup3, 8}};

bool passes(const CipherSuite& suite, const SuiteFilter& filter) {
    if (suite.minVersion > filter.maxVersion) return false;
    // A suite of TLS 1.3 is good for nothing else, and no other suite is good for TLS 1.3.
    if (!suite.isTls13() && filter.minVersion >= Version::Tls13) return false;
    if (!filter.gcm && suite.bulk == BulkCipher::AesGcm) return false;
    if (!filter.dhe && suite.keyExchange == KeyExchangeKind::DheRsa) return false;
    if (!filter.old && suite.isOld()) return false;
    return filter.ecdhe || !suite.isEcdhe();
}

}  // namespace

const CipherSuite* findCipherSuite(uint16_t id) {
    for (const SuiteGroup& group : kGroups) {
        for (const CipherSuite& suite : group.rows) {
            if (suite.id == id) return &suite;
        }
    }
    return nullptr;
}

std::vector<const CipherSuite*> offeredSuites(const SuiteFilter& filter, const DrawBelow& draw) {
    std::vector<const CipherSuite*> offered;
    for (const SuiteGroup& group : kGroups) {
        std::vector<const CipherSuite*> order;
        for (const CipherSuite& suite : group.rows) {
            order.push_back(&suite);
        }
        const uint32_t count = static_cast<uint32_t>(order.size());
        for (size_t i = 0; i < group.swaps; ++i) {
            const uint32_t a = draw(count);
            const uint32_t b = draw(count);
            if (a != b) std::swap(order[a], order[b]);
        }
        for (const CipherSuite* suite : order) {
            const bool known = std::any_of(offered.begin(), offered.end(), [&](const auto* other) {
                return other->id == suite->id;
            });
            if (!known && passes(*suite, filter)) offered.push_back(suite);
        }
    }
    // A key may be for signing alone (RFC 5246, 7.4.2), and a server that takes the client's first
    // suite need not heed it.
    if (filter.signingFirst) {
        std::stable_partition(offered.begin(), offered.end(), [](const CipherSuite* suite) {
            return suite->keyExchange != KeyExchangeKind::Rsa;
        });
    }
    return offered;
}

}  // namespace tv::tls
