// The private key by rejection of draws out of range, and the shared secret.
#include "base/crypto/Ecdh.h"

namespace tv::crypto {

namespace {

// A draw is out of range with a chance of 2^-32 to 1/3 by curve; a good source never comes near.
constexpr int kMaxDraws = 128;

}  // namespace

bool EcdhKey::generate(const RandomSource& random) {
    SecureBuffer draw(curve_.fieldBytes());
    for (int i = 0; i < kMaxDraws; ++i) {
        if (!random(draw.bytes())) return false;
        // The order of secp521r1, the only one of 66 bytes, fills one bit of its first byte, the
        // others fill it whole.
        if (draw.size() == 66) draw[0] &= 1;
        if (setPrivate(draw.bytes())) return true;
    }
    return false;
}

bool EcdhKey::setPrivate(std::span<const uint8_t> scalar) {
    if (!curve_.isScalar(scalar)) return false;
    private_.assign(scalar);
    public_.resize(curve_.pointBytes());
    return curve_.multiplyBase(public_.bytes(), scalar);
}

bool EcdhKey::derive(SecureBuffer& secret, std::span<const uint8_t> peerPoint) const {
    if (private_.empty()) return false;
    secret.clear();
    secret.resize(curve_.fieldBytes());
    return curve_.multiply(secret.bytes(), private_.bytes(), peerPoint);
}

}  // namespace tv::crypto
