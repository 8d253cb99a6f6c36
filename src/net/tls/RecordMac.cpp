// The MAC of CBC records, in a time that depends on the size of the record alone.
#include "net/tls/RecordMac.h"

#include <algorithm>
#include <array>

#include "base/ConstTime.h"

namespace tv::tls {
namespace {

// Sequence number, type, version, length (RFC 5246, 6.2.3.1).
constexpr size_t kPseudoHeaderSize = 13;
constexpr size_t kMaxPadding = 256;  // with the byte that tells its length

std::array<uint8_t, kPseudoHeaderSize> pseudoHeader(uint64_t sequence, const RecordHeader& header,
                                                    uint32_t length) {
    std::array<uint8_t, kPseudoHeaderSize> out{};
    for (size_t i = 0; i < 8; ++i) {
        out[i] = static_cast<uint8_t>(sequence >> (56 - 8 * i));
    }
    const uint16_t version = static_cast<uint16_t>(header.version);
    out[8] = static_cast<uint8_t>(header.type);
    out[9] = static_cast<uint8_t>(version >> 8);
    out[10] = static_cast<uint8_t>(version);
    out[11] = static_cast<uint8_t>(length >> 8);
    out[12] = static_cast<uint8_t>(length);
    return out;
}

// The hash of a key block xored with the pad byte of HMAC.
crypto::Hash keyed(crypto::HashId id, std::span<const uint8_t> key, uint8_t pad) {
    SecureBuffer block(crypto::hashBlockSize(id));
    std::copy(key.begin(), key.end(), block.data());
    for (uint8_t& byte : block.bytes()) {
        byte ^= pad;
    }
    crypto::Hash hash(id);
    hash.update(block.bytes());
    return hash;
}

// All ones if the last bytes are good padding that leaves room for a MAC. Touches every byte that
// could be padding.
uint32_t paddingMask(std::span<const uint8_t> body, size_t macSize) {
    const uint32_t size = static_cast<uint32_t>(body.size());
    const uint32_t padding = body.back();
    uint32_t bad = ctIsLess<uint32_t>(size, padding + 1 + static_cast<uint32_t>(macSize));
    const size_t looked = std::min(kMaxPadding, body.size());
    for (uint32_t i = 0; i < looked; ++i) {
        const uint32_t isPadding = ~ctIsLess<uint32_t>(padding, i);
        bad |= isPadding & ctIsNonZero<uint32_t>(body[body.size() - 1 - i] ^ padding);
    }
    return ~bad;
}

}  // namespace

RecordMac::RecordMac(crypto::HashId hash, std::span<const uint8_t> key)
    : hash_(hash),
      mac_(hash, key),
      // The pads of RFC 2104.
      inner_(keyed(hash, key, 0x36)),
      outer_(keyed(hash, key, 0x5C)) {}

crypto::DigestBytes RecordMac::of(uint64_t sequence, const RecordHeader& header,
                                  std::span<const uint8_t> data) {
    mac_.update(pseudoHeader(sequence, header, static_cast<uint32_t>(data.size())));
    mac_.update(data);
    return mac_.finish();
}

bool RecordMac::checkPadded(uint64_t sequence, const RecordHeader& header,
                            std::span<const uint8_t> body, size_t& size) {
    const size_t macSize = this->size();
    const uint32_t good = paddingMask(body, macSize);
    // Bad padding is treated as none, so that the work stays the same (RFC 5246, 6.2.3.2).
    const uint32_t padding = good & body.back();
    const size_t longest = body.size() - 1 - macSize;
    const size_t shortest = longest - std::min(longest, kMaxPadding - 1);
    const uint32_t length = static_cast<uint32_t>(longest) - padding;

    // The inner hash is ended at every length that is possible, and the one result that counts is
    // picked out with a mask; likewise the MAC that the record carries.
    crypto::Hash running = inner_;
    running.update(pseudoHeader(sequence, header, length));
    running.update(body.first(shortest));
    std::array<uint8_t, crypto::kMaxDigestSize> digest{};
    std::array<uint8_t, crypto::kMaxDigestSize> received{};
    for (size_t at = shortest; at <= longest; ++at) {
        const uint8_t mask =
            static_cast<uint8_t>(ctIsEqual<uint32_t>(static_cast<uint32_t>(at), length));
        crypto::Hash ended = running;
        const crypto::DigestBytes candidate = ended.finish();
        for (size_t i = 0; i < macSize; ++i) {
            digest[i] = static_cast<uint8_t>(digest[i] | (mask & candidate.data()[i]));
            received[i] = static_cast<uint8_t>(received[i] | (mask & body[at + i]));
        }
        if (at < longest) running.update(body.subspan(at, 1));
    }
    crypto::Hash outer = outer_;
    outer.update(std::span<const uint8_t>(digest.data(), macSize));
    const crypto::DigestBytes expected = outer.finish();
    const uint32_t equal = ctEqualMask({received.data(), macSize}, expected.bytes());
    plat::wipe(digest.data(), digest.size());
    plat::wipe(received.data(), received.size());
    size = length;
    return (good & equal) != 0;
}

}  // namespace tv::tls
