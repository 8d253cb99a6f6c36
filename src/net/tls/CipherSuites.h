// The cipher suites this client knows, and the order in which one ClientHello offers them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "base/crypto/Hash.h"
#include "net/tls/TlsTypes.h"

namespace tv::tls {

enum class KeyExchangeKind : uint8_t { Tls13, EcdheRsa, EcdheEcdsa, DheRsa, Rsa };
enum class BulkCipher : uint8_t { AesGcm, ChaCha20Poly1305, AesCbc, TripleDesCbc, DesCbc, Rc4 };

struct CipherSuite {
    uint16_t id;
    std::string_view name;
    KeyExchangeKind keyExchange;
    BulkCipher bulk;
    uint8_t keySize;
    uint8_t fixedIvSize;   // from the key block; the whole nonce in TLS 1.3
    uint8_t recordIvSize;  // explicit in each record (TLS 1.2 AEAD; CBC from TLS 1.1 on)
    uint8_t tagSize;       // AEAD tag or MAC
    std::optional<crypto::HashId> mac;  // of CBC and stream suites
    crypto::HashId hash;                // of the key schedule, from TLS 1.2 on
    Version minVersion;

    bool isAead() const { return !mac; }
    bool isTls13() const { return keyExchange == KeyExchangeKind::Tls13; }
    // What no server of the last ten years needs.
    bool isOld() const {
        return keyExchange == KeyExchangeKind::Rsa || keyExchange == KeyExchangeKind::DheRsa ||
               bulk == BulkCipher::TripleDesCbc || bulk == BulkCipher::DesCbc ||
               bulk == BulkCipher::Rc4;
    }
    bool isEcdhe() const {
        return keyExchange == KeyExchangeKind::EcdheRsa ||
               keyExchange == KeyExchangeKind::EcdheEcdsa;
    }
};

// nullptr for a suite this client does not know.
const CipherSuite* findCipherSuite(uint16_t id);

struct SuiteFilter {
    Version minVersion = Version::Tls10;  // of the versions offered
    Version maxVersion = Version::Tls13;
    bool gcm = true;
    bool dhe = true;
    bool ecdhe = true;
    bool old = true;            // RC4, DES, 3DES, MD5, static RSA, DHE
    bool signingFirst = false;  // suites whose server signs nothing stand last
};

// Draws a number below its argument.
using DrawBelow = std::function<uint32_t(uint32_t)>;

// The suites one ClientHello offers: each of the table's three groups shuffled by its fixed number
// of random swaps and put behind the one before it, rows that the filter refuses and repeated rows
// left out. With signingFirst, that order is kept within each of the two parts.
std::vector<const CipherSuite*> offeredSuites(const SuiteFilter& filter, const DrawBelow& draw);

}  // namespace tv::tls
