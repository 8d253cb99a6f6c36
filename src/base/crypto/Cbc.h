// Cipher block chaining over any block cipher with kBlockSize, encryptBlocks and decryptBlocks.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <span>

#include "base/crypto/Endian.h"
#include "platform/SysWipe.h"

namespace tv::crypto {

// Whole blocks only: padding is the business of the protocol above.
template <class Cipher>
class Cbc {
public:
    static constexpr size_t kBlockSize = Cipher::kBlockSize;

    // The initialisation vector stays zero until setIv.
    explicit Cbc(std::span<const uint8_t> key) : cipher_(key) {}

    void setIv(std::span<const uint8_t, kBlockSize> iv) {
        std::copy(iv.begin(), iv.end(), chain_.begin());
    }

    // In place; data is a multiple of the block size. The last cipher block is the vector of the
    // next call, as TLS 1.0 wants it.
    void encrypt(std::span<uint8_t> data) {
        const uint8_t* before = chain_.data();
        for (uint8_t* p = data.data(); p != data.data() + data.size(); p += kBlockSize) {
            xorInto(p, before, kBlockSize);
            cipher_.encryptBlocks(p, p, 1);
            before = p;
        }
        std::memmove(chain_.data(), before, kBlockSize);
    }

    void decrypt(std::span<uint8_t> data) {
        std::array<uint8_t, kBatch * kBlockSize> plain;
        while (!data.empty()) {
            const size_t n = std::min(data.size(), plain.size());
            cipher_.decryptBlocks(data.data(), plain.data(), n / kBlockSize);
            xorInto(plain.data(), chain_.data(), kBlockSize);
            xorInto(plain.data() + kBlockSize, data.data(), n - kBlockSize);
            std::memcpy(chain_.data(), data.data() + n - kBlockSize, kBlockSize);
            std::memcpy(data.data(), plain.data(), n);
            data = data.subspan(n);
        }
        plat::wipe(plain.data(), plain.size());
    }

private:
    // Blocks decrypted at once, for the forms that work side by side.
    static constexpr size_t kBatch = 32;

    // size is a multiple of 8, as every block size is.
    static void xorInto(uint8_t* to, const uint8_t* from, size_t size) {
        for (size_t i = 0; i < size; i += 8) {
            storeLe(to + i, loadLe<uint64_t>(to + i) ^ loadLe<uint64_t>(from + i));
        }
    }

    Cipher cipher_;
    std::array<uint8_t, kBlockSize> chain_{};
};

}  // namespace tv::crypto
