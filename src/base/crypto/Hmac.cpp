// The key goes through the hash twice at the start; each message then begins with copies of that.
#include "base/crypto/Hmac.h"

namespace tv::crypto {

Hmac::Hmac(HashId id, std::span<const uint8_t> key) : keyedInner_(id), keyedOuter_(id), inner_(id) {
    std::array<uint8_t, kMaxHashBlockSize> block{};
    const std::span<uint8_t> used(block.data(), hashBlockSize(id));
    if (key.size() > used.size()) {
        const DigestBytes digest = Hash::of(id, key);
        std::copy_n(digest.data(), digest.size(), block.begin());
    } else {
        std::copy(key.begin(), key.end(), block.begin());
    }
    // RFC 2104 section 2: the inner pad is 36, the outer 5c.
    for (uint8_t& byte : used) {
        byte ^= 0x36;
    }
    keyedInner_.update(used);
    for (uint8_t& byte : used) {
        byte ^= 0x36 ^ 0x5c;
    }
    keyedOuter_.update(used);
    plat::wipe(block.data(), block.size());
    inner_ = keyedInner_;
}

DigestBytes Hmac::of(HashId id, std::span<const uint8_t> key, std::span<const uint8_t> message) {
    Hmac hmac(id, key);
    hmac.update(message);
    return hmac.finish();
}

DigestBytes Hmac::finish() {
    Hash outer = keyedOuter_;
    outer.update(inner_.finish());
    inner_ = keyedInner_;
    return outer.finish();
}

}  // namespace tv::crypto
