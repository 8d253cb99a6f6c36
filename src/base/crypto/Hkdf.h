// HKDF (RFC 5869): keys from a shared secret.
#pragma once

#include "base/crypto/Hmac.h"

namespace tv::crypto {

// An empty salt stands for one of zeros.
DigestBytes hkdfExtract(HashId id, std::span<const uint8_t> salt, std::span<const uint8_t> secret);

// Fills out. False, and out untouched, if it is longer than 255 digests.
bool hkdfExpand(HashId id, std::span<const uint8_t> pseudoRandomKey, std::span<const uint8_t> info,
                std::span<uint8_t> out);

}  // namespace tv::crypto
