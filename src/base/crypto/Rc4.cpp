// The key schedule and the key stream of RC4.
#include "base/crypto/Rc4.h"

#include <utility>

#include "platform/SysWipe.h"

namespace tv::crypto {

Rc4::Rc4(std::span<const uint8_t> key) {
    for (size_t i = 0; i < state_.size(); ++i) {
        state_[i] = static_cast<uint8_t>(i);
    }
    uint8_t j = 0;
    for (size_t i = 0; i < state_.size(); ++i) {
        j = static_cast<uint8_t>(j + state_[i] + key[i % key.size()]);
        std::swap(state_[i], state_[j]);
    }
}

Rc4::~Rc4() {
    plat::wipe(state_.data(), state_.size());
}

void Rc4::apply(std::span<uint8_t> data) {
    for (uint8_t& byte : data) {
        ++i_;
        j_ = static_cast<uint8_t>(j_ + state_[i_]);
        std::swap(state_[i_], state_[j_]);
        byte ^= state_[static_cast<uint8_t>(state_[i_] + state_[j_])];
    }
}

}  // namespace tv::crypto
