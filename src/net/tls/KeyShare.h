// The client's half of a key exchange over a named group.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "base/SecureBuffer.h"
#include "base/crypto/EcCurve.h"
#include "base/crypto/RandomSource.h"
#include "net/tls/TlsTypes.h"

namespace tv::tls {

class KeyShare {
public:
    virtual ~KeyShare() = default;
    virtual Group group() const = 0;
    // As the group's key_share and ECPoint carry it: 32 bytes, or an uncompressed point.
    virtual const std::vector<uint8_t>& publicKey() const = 0;
    // The shared secret with the peer's public key. False for a key of the wrong size, off the
    // curve, or one that leads to an all-zero result (RFC 7748, 6.1).
    virtual bool derive(std::span<const uint8_t> peerKey, SecureBuffer& shared) const = 0;
};

// A fresh key. nullptr for an unknown group or where the random source fails.
std::unique_ptr<KeyShare> makeKeyShare(Group group, const crypto::RandomSource& random);

Group groupOf(crypto::EcCurveId curve);

// The log's word for a group: "x25519", "secp256r1", ...
std::string_view groupName(Group group);

}  // namespace tv::tls
