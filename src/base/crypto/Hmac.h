// HMAC (RFC 2104) over any of the hashes.
#pragma once

#include "base/crypto/Hash.h"

namespace tv::crypto {

// Keyed once, it makes any number of MACs; a copy goes on alone.
class Hmac {
public:
    Hmac(HashId id, std::span<const uint8_t> key);

    static DigestBytes of(HashId id, std::span<const uint8_t> key,
                          std::span<const uint8_t> message);

    HashId id() const { return keyedInner_.id(); }
    void update(std::span<const uint8_t> data) { inner_.update(data); }
    // Ends the message; the next one begins, under the same key.
    DigestBytes finish();

private:
    Hash keyedInner_;  // have seen the key block
    Hash keyedOuter_;
    Hash inner_;
};

}  // namespace tv::crypto
