// The authenticated cipher ChaCha20-Poly1305 (RFC 8439).
#pragma once

#include <array>
#include <span>

#include "base/Dispatch.h"
#include "base/crypto/Poly1305.h"

namespace tv::crypto {

// Constants, key, block counter, nonce (RFC 8439 2.3).
using ChaChaState = std::array<uint32_t, 16>;

struct ChaChaForm {
    const char* name;
    bool (*usable)();
    // Whole blocks of 64 bytes through the key stream; the counter of the state moves on. out may
    // be in.
    void (*apply)(ChaChaState& state, const uint8_t* in, uint8_t* out, size_t count);
    // Whole blocks of 16 bytes into the sum.
    void (*absorb)(Poly1305State& state, const uint8_t* blocks, size_t count);
};

extern const ChaChaForm kChaChaPortable;
extern const ChaChaForm kChaChaAvx2;
extern const ChaChaForm kChaChaAvx512;
extern Dispatch<ChaChaForm> chaChaForms;

// One key; any number of messages, each under a nonce of its own. The face of AesGcm, for which
// templates take it; what stands behind has nothing in common.
class ChaCha20Poly1305 {
public:
    static constexpr size_t kKeySize = 32;
    static constexpr size_t kNonceSize = 12;
    static constexpr size_t kTagSize = 16;

    explicit ChaCha20Poly1305(std::span<const uint8_t> key);  // kKeySize bytes
    ChaCha20Poly1305(const ChaCha20Poly1305&) = default;
    ChaCha20Poly1305& operator=(const ChaCha20Poly1305&) = default;
    ~ChaCha20Poly1305();

    // out has the size of plain and may be plain itself. The nonce has kNonceSize bytes.
    void seal(std::span<const uint8_t> nonce, std::span<const uint8_t> additional,
              std::span<const uint8_t> plain, uint8_t* out, std::span<uint8_t, kTagSize> tag) const;

    // out has the size of cipher and may be cipher itself. False if the tag does not fit, or the
    // nonce is of another size: out then holds zeros.
    [[nodiscard]] bool open(std::span<const uint8_t> nonce, std::span<const uint8_t> additional,
                            std::span<const uint8_t> cipher, std::span<const uint8_t, kTagSize> tag,
                            uint8_t* out) const;

private:
    enum class Direction { Encrypt, Decrypt };

    // Sets the state to the first block of the text and starts the sum with the block before it.
    void start(ChaChaState& state, Poly1305State& sum, std::span<const uint8_t> nonce) const;
    void absorbPadded(Poly1305State& sum, std::span<const uint8_t> data) const;
    void crypt(Direction direction, std::span<const uint8_t> nonce,
               std::span<const uint8_t> additional, std::span<const uint8_t> in, uint8_t* out,
               uint8_t* tag) const;

    const ChaChaForm* form_;
    std::array<uint32_t, 8> key_;
};

}  // namespace tv::crypto
