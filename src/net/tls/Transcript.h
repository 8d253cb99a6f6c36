// The hash over all handshake messages so far. Until version and suite are known the messages
// themselves are kept.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "base/crypto/Hash.h"
#include "net/tls/TlsTypes.h"

namespace tv::tls {

class Transcript {
public:
    // Whole handshake messages, headers included.
    void add(std::span<const uint8_t> message);
    // Version and suite are settled: from here on only the hash is kept. TLS 1.0 and 1.1 take MD5
    // and SHA-1 together (RFC 4346, 7.4.9).
    void settle(Version version, crypto::HashId hash);
    // Replaces the first ClientHello, which is all that was added, by its hash (RFC 8446, 4.4.1).
    void restartForRetry(crypto::HashId hash);
    // The hash of everything added; MD5 followed by SHA-1 below TLS 1.2. Only once settled.
    std::vector<uint8_t> hash() const;
    // The hash of everything added and these bytes, before the suite is settled: for a binder.
    std::vector<uint8_t> hashWith(crypto::HashId hash, std::span<const uint8_t> more) const;

private:
    std::vector<uint8_t> kept_;
    std::optional<crypto::Hash> first_;   // MD5 below TLS 1.2, else the suite's
    std::optional<crypto::Hash> second_;  // SHA-1 below TLS 1.2
};

}  // namespace tv::tls
