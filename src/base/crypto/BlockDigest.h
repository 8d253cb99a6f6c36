// What all hashes of the MD4 family share: cutting the input into blocks, the padding with the
// message length, and wiping. A Core gives the constants and the compression function:
//     State (array of words), kBlockSize, kDigestSize, kLengthSize, kBigEndian,
//     kInitial, compress(State&, const uint8_t* blocks, size_t count)
#pragma once

#include <algorithm>
#include <array>
#include <span>

#include "base/crypto/Endian.h"
#include "platform/SysWipe.h"

namespace tv::crypto {

// A value: a copy goes on alone, so the hash of a message so far is finish() of a copy.
template <class Core>
class BlockDigest {
public:
    static constexpr size_t kBlockSize = Core::kBlockSize;
    static constexpr size_t kDigestSize = Core::kDigestSize;
    using Digest = std::array<uint8_t, kDigestSize>;

    BlockDigest() = default;
    BlockDigest(const BlockDigest&) = default;
    BlockDigest& operator=(const BlockDigest&) = default;
    ~BlockDigest() {
        plat::wipe(&state_, sizeof state_);
        plat::wipe(&pending_, sizeof pending_);
    }

    static Digest of(std::span<const uint8_t> message) {
        BlockDigest digest;
        digest.update(message);
        return digest.finish();
    }

    void update(std::span<const uint8_t> data) {
        if (data.empty()) return;
        length_ += data.size();
        if (fill_ != 0) {
            const size_t n = std::min(data.size(), kBlockSize - fill_);
            std::copy_n(data.data(), n, pending_.data() + fill_);
            data = data.subspan(n);
            fill_ += n;
            if (fill_ < kBlockSize) return;
            Core::compress(state_, pending_.data(), 1);
        }
        const size_t blocks = data.size() / kBlockSize;
        if (blocks != 0) {
            Core::compress(state_, data.data(), blocks);
            data = data.subspan(blocks * kBlockSize);
        }
        std::copy(data.begin(), data.end(), pending_.data());
        fill_ = data.size();
    }

    // Ends the message. The object is then as new.
    Digest finish() {
        pad();
        Digest out;
        storeState(out);
        state_ = Core::kInitial;
        length_ = 0;
        fill_ = 0;
        return out;
    }

private:
    using Word = typename Core::State::value_type;

    void pad() {
        // A one bit, zeros, and the length in bits at the end of the last block.
        pending_[fill_++] = 0x80;
        if (fill_ > kBlockSize - Core::kLengthSize) {
            std::fill(pending_.begin() + static_cast<std::ptrdiff_t>(fill_), pending_.end(),
                      uint8_t{0});
            Core::compress(state_, pending_.data(), 1);
            fill_ = 0;
        }
        std::fill(pending_.begin() + static_cast<std::ptrdiff_t>(fill_), pending_.end(),
                  uint8_t{0});
        const uint64_t bits = length_ * 8;
        if constexpr (Core::kBigEndian) {
            storeBe(pending_.data() + kBlockSize - 8, bits);
        } else {
            storeLe(pending_.data() + kBlockSize - 8, bits);
        }
        Core::compress(state_, pending_.data(), 1);
    }

    void storeState(Digest& out) const {
        for (size_t i = 0; i < kDigestSize / sizeof(Word); ++i) {
            if constexpr (Core::kBigEndian) {
                storeBe(out.data() + i * sizeof(Word), state_[i]);
            } else {
                storeLe(out.data() + i * sizeof(Word), state_[i]);
            }
        }
    }

    typename Core::State state_ = Core::kInitial;
    std::array<uint8_t, kBlockSize> pending_{};
    size_t fill_ = 0;
    uint64_t length_ = 0;  // bytes; more than 2^61 of them never pass through a mail client
};

}  // namespace tv::crypto
