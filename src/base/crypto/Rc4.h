// RC4, for the suites of servers that have nothing better.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace tv::crypto {

// The one cipher here that is not constant-time: its state is a table indexed by secret bytes, and
// no other way to compute it is known that anybody could use.
class Rc4 {
public:
    // The key has 1 to 256 bytes.
    explicit Rc4(std::span<const uint8_t> key);
    Rc4(const Rc4&) = default;
    Rc4& operator=(const Rc4&) = default;
    ~Rc4();

    // Encrypts or decrypts in place; the key stream goes on from call to call.
    void apply(std::span<uint8_t> data);

private:
    std::array<uint8_t, 256> state_;
    uint8_t i_ = 0;
    uint8_t j_ = 0;
};

}  // namespace tv::crypto
