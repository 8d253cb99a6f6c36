// Keys and shared secrets by whichever form of the multiplication suits the CPU.
#include "base/crypto/X25519.h"

#include "base/ConstTime.h"
#include "base/crypto/WipeStack.h"
#include "platform/SysWipe.h"

namespace tv::crypto {

namespace {

void multiply(uint8_t* out, X25519Bytes privateKey, X25519Bytes peer) {
    x25519Forms.get().multiply(out, privateKey.data(), peer.data());
    // The deepest form takes less; see wipeStack.
    wipeStack<12288>();
}

}  // namespace

bool x25519(std::span<uint8_t, kX25519Size> secret, X25519Bytes privateKey, X25519Bytes peer) {
    multiply(secret.data(), privateKey, peer);
    uint32_t bits = 0;
    for (uint8_t byte : secret) {
        bits |= byte;
    }
    return ctIsZero(bits) == 0;
}

void x25519Public(std::span<uint8_t, kX25519Size> out, X25519Bytes privateKey) {
    // RFC 7748 4.1: u = 9.
    constexpr uint8_t kBasePoint[kX25519Size] = {9};
    multiply(out.data(), privateKey, kBasePoint);
}

X25519Key::~X25519Key() {
    plat::wipe(private_.data(), private_.size());
}

bool X25519Key::generate(const RandomSource& random) {
    if (!random(private_)) return false;
    x25519Public(public_, private_);
    return true;
}

namespace {

// Fastest first. With 64-bit products the vectors do not pay.
constexpr const X25519Form* kForms[] = {
#if defined(__SIZEOF_INT128__)
    &kX25519Radix51,
#endif
#if defined(__x86_64__) || defined(__i386__)
    &kX25519Avx2,
    &kX25519Sse2,
#endif
    &kX25519Radix25,
};

}  // namespace

constinit Dispatch<X25519Form> x25519Forms{kForms};

}  // namespace tv::crypto
