// Limbs to bytes and back, their length in bits, and the constant of Montgomery's form.
#include "base/crypto/Limb.h"

namespace tv::crypto {

void limbsFromBytes(Limb* out, size_t n, std::span<const uint8_t> bigEndian) {
    for (size_t i = 0; i < n; ++i) {
        out[i] = 0;
    }
    const size_t size = bigEndian.size();
    for (size_t i = 0; i < size && i < n * kLimbBytes; ++i) {
        const Limb byte = bigEndian[size - 1 - i];
        out[i / kLimbBytes] |= byte << (8 * (i % kLimbBytes));
    }
}

void limbsToBytes(std::span<uint8_t> out, const Limb* a, size_t n) {
    const size_t size = out.size();
    for (size_t i = 0; i < size; ++i) {
        const Limb limb = i / kLimbBytes < n ? a[i / kLimbBytes] : 0;
        out[size - 1 - i] = static_cast<uint8_t>(limb >> (8 * (i % kLimbBytes)));
    }
}

size_t bitLength(const Limb* a, size_t n) {
    while (n > 0 && a[n - 1] == 0) {
        --n;
    }
    if (n == 0) return 0;
    size_t bits = (n - 1) * kLimbBits;
    for (Limb top = a[n - 1]; top != 0; top >>= 1) {
        ++bits;
    }
    return bits;
}

Limb negatedInverse(Limb m) {
    // Newton's step doubles the number of correct low bits; m itself is right in three.
    Limb inverse = m;
    for (size_t bits = 3; bits < kLimbBits; bits *= 2) {
        inverse *= 2 - m * inverse;
    }
    return Limb{0} - inverse;
}

}  // namespace tv::crypto
