// AES-GCM (NIST SP 800-38D) with the full tag of 16 bytes.
#pragma once

#include "base/crypto/Aes.h"

namespace tv::crypto {

// The key of the cipher and powers of the hash key, arranged as the form that made them likes it.
struct GcmKey {
    AesKey aes;
    alignas(64) std::array<uint64_t, 32> hash{};
};

// One message under way.
struct GcmState {
    std::array<uint8_t, 16> counter;  // of the next block
    std::array<uint8_t, 16> sum;      // the hash so far
};

struct GcmForm {
    const char* name;
    bool (*usable)();
    void (*expand)(GcmKey& out, std::span<const uint8_t> key);
    void (*encryptBlock)(const GcmKey& key, const uint8_t* in, uint8_t* out);
    // Whole blocks into the sum.
    void (*hash)(const GcmKey& key, uint8_t* sum, const uint8_t* blocks, size_t count);
    // Whole blocks through the cipher, and the cipher text into the sum; out may be in.
    void (*encrypt)(const GcmKey& key, GcmState& state, const uint8_t* in, uint8_t* out,
                    size_t count);
    void (*decrypt)(const GcmKey& key, GcmState& state, const uint8_t* in, uint8_t* out,
                    size_t count);
};

extern const GcmForm kGcmPortable;
extern const GcmForm kGcmAesNi;
extern const GcmForm kGcmVaes;
extern Dispatch<GcmForm> gcmForms;

// One key; any number of messages, each under a nonce of its own.
class AesGcm {
public:
    static constexpr size_t kTagSize = 16;
    static constexpr size_t kNonceSize = 12;  // of TLS; any other size but zero works too

    explicit AesGcm(std::span<const uint8_t> key) : form_(&gcmForms.get()) {
        form_->expand(key_, key);
    }
    AesGcm(const AesGcm&) = default;
    AesGcm& operator=(const AesGcm&) = default;
    ~AesGcm();

    // out has the size of plain and may be plain itself.
    void seal(std::span<const uint8_t> nonce, std::span<const uint8_t> additional,
              std::span<const uint8_t> plain, uint8_t* out, std::span<uint8_t, kTagSize> tag) const;

    // out has the size of cipher and may be cipher itself. False if the tag does not fit, or the
    // nonce is empty: out then holds zeros.
    [[nodiscard]] bool open(std::span<const uint8_t> nonce, std::span<const uint8_t> additional,
                            std::span<const uint8_t> cipher, std::span<const uint8_t, kTagSize> tag,
                            uint8_t* out) const;

private:
    enum class Direction { Encrypt, Decrypt };

    // Sets the counter block before the first of the text, with an empty sum.
    void start(GcmState& state, std::span<const uint8_t> nonce) const;
    void hashPadded(GcmState& state, std::span<const uint8_t> data) const;
    void cryptTail(GcmState& state, Direction direction, std::span<const uint8_t> in,
                   uint8_t* out) const;
    void crypt(Direction direction, std::span<const uint8_t> nonce,
               std::span<const uint8_t> additional, std::span<const uint8_t> in, uint8_t* out,
               uint8_t* tag) const;

    const GcmForm* form_;
    GcmKey key_;
};

}  // namespace tv::crypto
