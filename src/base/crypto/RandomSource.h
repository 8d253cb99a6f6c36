// Where key generation and encryption get their random bytes from: handed in by the caller, so
// that this room stays free of the system and tests can repeat a run.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

namespace tv::crypto {

// Fills the span; false if it could not, then nothing in the span may be used.
using RandomSource = std::function<bool(std::span<uint8_t>)>;

}  // namespace tv::crypto
