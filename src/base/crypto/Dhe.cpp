// Diffie-Hellman over a prime field: the key pair, the peer's value checked, the shared secret.
#include "base/crypto/Dhe.h"

#include <algorithm>

#include "base/ConstTime.h"
#include "base/crypto/WipeStack.h"

namespace tv::crypto {

namespace {

// At least twice the strength of the group (RFC 7919 5.2), in whole bytes.
size_t exponentBytes(size_t groupBits) {
    if (groupBits <= 2048) return 32;
    if (groupBits <= 4096) return 44;
    return 56;
}

// 1 < value < p - 1
bool isInside(const BigNum& value, const BigNum& p) {
    if (value.bits() < 2 || !value.isLessThan(p)) return false;
    // p is odd, so p - 1 differs from it in the lowest bit alone.
    Limb limbs[BigNum::kMaxLimbs];
    p.toLimbs(limbs, p.size());
    limbs[0] ^= 1;
    BigNum top;
    top.fromLimbs(limbs, p.size());
    return value.isLessThan(top);
}

}  // namespace

Dhe::Check Dhe::setServerParams(std::span<const uint8_t> p, std::span<const uint8_t> g,
                                std::span<const uint8_t> ys) {
    BigNum modulus;
    if (!modulus.fromBytes(p)) return Check::GroupTooLarge;
    if (modulus.bits() < kMinBits) return Check::GroupTooSmall;
    if (!group_.setModulus(modulus)) return Check::BadGroup;
    if (!generator_.fromBytes(g) || !isInside(generator_, modulus)) return Check::BadGroup;
    return peer_.fromBytes(ys) && isInside(peer_, modulus) ? Check::Ok : Check::BadPeerKey;
}

bool Dhe::generate(const RandomSource& random) {
    private_.resize(exponentBytes(bits()));
    if (!random(private_.bytes())) {
        private_.clear();
        return false;
    }
    private_[0] |= 0x80;  // never zero
    public_.resize(bytes());
    group_.powSecretExponent(public_.bytes(), generator_, private_.bytes());
    wipeStack<Montgomery::kStackTaken>();
    return true;
}

bool Dhe::derive(SecureBuffer& padded) const {
    if (private_.empty()) return false;
    padded.clear();
    padded.resize(bytes());
    group_.powSecretExponent(padded.bytes(), peer_, private_.bytes());
    wipeStack<Montgomery::kStackTaken>();
    uint32_t others = 0;
    for (size_t i = 0; i + 1 < padded.size(); ++i) {
        others |= padded[i];
    }
    return (ctIsZero(others) & ctIsLess(uint32_t{padded[padded.size() - 1]}, uint32_t{2})) == 0;
}

bool Dhe::deriveStripped(SecureBuffer& stripped) const {
    SecureBuffer padded;
    if (!derive(padded)) return false;
    // The number of leading zeros shows in the length of the PRF's key and so in its time; the
    // protocol asks for it, and a fresh key in every handshake makes it worthless to others.
    const auto first = std::find_if(padded.bytes().begin(), padded.bytes().end(),
                                    [](uint8_t byte) { return byte != 0; });
    stripped.assign(padded.bytes().subspan(static_cast<size_t>(first - padded.bytes().begin())));
    return true;
}

}  // namespace tv::crypto
