// The two steps of HKDF: extract is one MAC, expand a chain of them.
#include "base/crypto/Hkdf.h"

namespace tv::crypto {

DigestBytes hkdfExtract(HashId id, std::span<const uint8_t> salt, std::span<const uint8_t> secret) {
    // HMAC pads a key with zeros, so the empty key is the salt of zeros already.
    return Hmac::of(id, salt, secret);
}

bool hkdfExpand(HashId id, std::span<const uint8_t> pseudoRandomKey, std::span<const uint8_t> info,
                std::span<uint8_t> out) {
    // RFC 5869 2.3: the block counter is one byte.
    if (out.size() > 255 * digestSize(id)) return false;
    Hmac hmac(id, pseudoRandomKey);
    DigestBytes block;
    for (uint8_t counter = 1; !out.empty(); ++counter) {
        hmac.update(block);
        hmac.update(info);
        hmac.update({&counter, 1});
        block = hmac.finish();
        const size_t n = std::min(out.size(), block.size());
        std::copy_n(block.data(), n, out.begin());
        out = out.subspan(n);
    }
    return true;
}

}  // namespace tv::crypto
