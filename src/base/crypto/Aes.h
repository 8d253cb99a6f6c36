// The block cipher AES (FIPS 197) with keys of 16, 24 or 32 bytes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/Dispatch.h"

namespace tv::crypto {

constexpr size_t kMaxAesRounds = 14;

// An expanded key, arranged as the form that made it likes it.
struct AesKey {
    alignas(64) std::array<uint64_t, 8 * (kMaxAesRounds + 1)> words{};
    size_t rounds = 0;  // 10, 12 or 14
};

struct AesForm {
    const char* name;
    bool (*usable)();
    void (*expand)(AesKey& out, std::span<const uint8_t> key);
    // Independent blocks of 16 bytes; out may be in.
    void (*encrypt)(const AesKey& key, const uint8_t* in, uint8_t* out, size_t count);
    void (*decrypt)(const AesKey& key, const uint8_t* in, uint8_t* out, size_t count);
};

extern const AesForm kAesPortable;
extern const AesForm kAesNi;
extern Dispatch<AesForm> aesForms;

class Aes {
public:
    static constexpr size_t kBlockSize = 16;

    explicit Aes(std::span<const uint8_t> key) : form_(&aesForms.get()) {
        form_->expand(key_, key);
    }
    Aes(const Aes&) = default;
    Aes& operator=(const Aes&) = default;
    ~Aes();

    // Independent blocks; out may be in.
    void encryptBlocks(const uint8_t* in, uint8_t* out, size_t count) const {
        form_->encrypt(key_, in, out, count);
    }
    void decryptBlocks(const uint8_t* in, uint8_t* out, size_t count) const {
        form_->decrypt(key_, in, out, count);
    }

private:
    const AesForm* form_;
    AesKey key_;
};

// The round keys as FIPS 197 5.2 has them, four bytes to a word in memory order. Returns the number
// of rounds. subWord applies the S-box to each byte of a word.
size_t expandAesKey(std::span<const uint8_t> key, uint32_t (*subWord)(uint32_t),
                    std::span<uint32_t, 4 * (kMaxAesRounds + 1)> out);

}  // namespace tv::crypto
