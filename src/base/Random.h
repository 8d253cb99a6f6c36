// The library's random source: the system's, for everything that an attacker must not guess.
#pragma once

#include <cstdint>
#include <span>

namespace tv {

// Fills out from the system's source. False if the system failed to deliver: then nothing of what
// stands in out may be used.
bool randomBytes(std::span<uint8_t> out);

}  // namespace tv
