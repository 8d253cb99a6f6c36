// Numbers in and out of bytes and limbs; every change wipes what stood there before.
#include "base/crypto/BigNum.h"

#include <algorithm>

#include "platform/SysWipe.h"

namespace tv::crypto {

BigNum& BigNum::operator=(const BigNum& other) {
    if (this != &other) {
        clear();
        fromLimbs(other.limbs_, other.size_);
    }
    return *this;
}

bool BigNum::fromBytes(std::span<const uint8_t> bigEndian) {
    clear();
    while (!bigEndian.empty() && bigEndian.front() == 0) {
        bigEndian = bigEndian.subspan(1);
    }
    if (bigEndian.size() > kMaxBits / 8) return false;
    size_ = limbsForBits(bigEndian.size() * 8);
    limbsFromBytes(limbs_, size_, bigEndian);
    return true;
}

void BigNum::fromLimbs(const Limb* limbs, size_t n) {
    while (n > 0 && limbs[n - 1] == 0) {
        --n;
    }
    size_ = n;
    std::copy(limbs, limbs + n, limbs_);
}

bool BigNum::toBytes(std::span<uint8_t> out) const {
    if (bits() > out.size() * 8) return false;
    limbsToBytes(out, limbs_, size_);
    return true;
}

void BigNum::clear() {
    plat::wipe(limbs_, size_ * sizeof(Limb));
    size_ = 0;
}

bool BigNum::isLessThan(const BigNum& other) const {
    if (size_ != other.size_) return size_ < other.size_;
    return isLess(limbs_, other.limbs_, size_) == 1;
}

void BigNum::toLimbs(Limb* out, size_t n) const {
    std::copy(limbs_, limbs_ + size_, out);
    std::fill(out + size_, out + n, Limb{0});
}

}  // namespace tv::crypto
