// X25519 (RFC 7748): Diffie-Hellman over Curve25519. Constant time in the private key and the
// peer's value.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "base/Dispatch.h"
#include "base/crypto/RandomSource.h"

namespace tv::crypto {

inline constexpr size_t kX25519Size = 32;
using X25519Bytes = std::span<const uint8_t, kX25519Size>;

// The shared secret. Every peer value is taken as it is (RFC 7748 5). False when the secret is all
// zero, as a peer value of low order makes it (RFC 8446 7.4.2): then it must not be used.
bool x25519(std::span<uint8_t, kX25519Size> secret, X25519Bytes privateKey, X25519Bytes peer);
// The public value of a private key.
void x25519Public(std::span<uint8_t, kX25519Size> out, X25519Bytes privateKey);

// A key pair for one handshake; the private half is wiped with the object.
class X25519Key {
public:
    X25519Key() = default;
    X25519Key(const X25519Key&) = delete;
    X25519Key& operator=(const X25519Key&) = delete;
    ~X25519Key();

    bool generate(const RandomSource& random);
    X25519Bytes publicValue() const { return public_; }
    bool derive(std::span<uint8_t, kX25519Size> secret, X25519Bytes peer) const {
        return x25519(secret, private_, peer);
    }

private:
    std::array<uint8_t, kX25519Size> private_{};
    std::array<uint8_t, kX25519Size> public_{};
};

// out = scalar * u; the scalar is clamped, the top bit of u ignored.
struct X25519Form {
    const char* name;
    bool (*usable)();
    void (*multiply)(uint8_t* out, const uint8_t* scalar, const uint8_t* u);
};

// Only those of the machine at hand exist: radix51 on 64-bit ones, the vector forms on x86.
extern const X25519Form kX25519Avx2, kX25519Sse2, kX25519Radix51, kX25519Radix25;
extern Dispatch<X25519Form> x25519Forms;

}  // namespace tv::crypto
