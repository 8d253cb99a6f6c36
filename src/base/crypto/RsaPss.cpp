// RSASSA-PSS verification (RFC 8017 8.1.2, 9.1.2).
#include <algorithm>

#include "base/crypto/Rsa.h"

namespace tv::crypto {

namespace {

// out ^= MGF1(seed) (RFC 8017 B.2.1).
void xorMask(HashId hash, std::span<const uint8_t> seed, std::span<uint8_t> out) {
    const size_t digestSize = crypto::digestSize(hash);
    for (size_t at = 0, counter = 0; at < out.size(); at += digestSize, ++counter) {
        const uint8_t number[4] = {0, 0, static_cast<uint8_t>(counter >> 8),
                                   static_cast<uint8_t>(counter)};
        Hash state(hash);
        state.update(seed);
        state.update(number);
        const DigestBytes block = state.finish();
        for (size_t i = 0; i < digestSize && at + i < out.size(); ++i) {
            out[at + i] ^= block.data()[i];
        }
    }
}

}  // namespace

bool RsaPublicKey::verifyPss(HashId hash, std::span<const uint8_t> digest, size_t saltSize,
                             std::span<const uint8_t> signature) const {
    const size_t digestSize = crypto::digestSize(hash);
    if (digest.size() != digestSize) return false;
    uint8_t opened[BigNum::kMaxBits / 8];
    if (!open(signature, {opened, bytes()})) return false;

    // The encoded message is one bit shorter than the modulus, and so may be one byte shorter.
    const size_t usedBits = bits() - 1;
    const size_t size = (usedBits + 7) / 8;
    if (size != bytes() && opened[0] != 0) return false;
    const std::span<uint8_t> encoded(opened + bytes() - size, size);
    // RFC 8017 9.1.2, steps 3 and 4: room for hash, salt, the one before it and the trailer bc.
    if (saltSize > size || size < digestSize + saltSize + 2 || encoded.back() != 0xbc) return false;
    const std::span<uint8_t> masked = encoded.first(size - digestSize - 1);
    const std::span<const uint8_t> check = encoded.subspan(masked.size(), digestSize);
    const auto unusedBits = static_cast<uint8_t>(~(0xff >> (8 * size - usedBits)));
    if ((masked[0] & unusedBits) != 0) return false;
    xorMask(hash, check, masked);
    masked[0] = static_cast<uint8_t>(masked[0] & ~unusedBits);

    // Zeros, a one, the salt.
    const auto separator = masked.end() - static_cast<std::ptrdiff_t>(saltSize) - 1;
    if (std::any_of(masked.begin(), separator, [](uint8_t byte) { return byte != 0; }))
        return false;
    if (*separator != 0x01) return false;
    const uint8_t zeros[8] = {};  // RFC 8017 9.1.2, step 12
    Hash state(hash);
    state.update(zeros);
    state.update(digest);
    state.update(masked.last(saltSize));
    const DigestBytes expected = state.finish();
    return std::equal(check.begin(), check.end(), expected.data());
}

}  // namespace tv::crypto
