// Bytes as hexadecimal digits and back.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace tv {

std::string hexUpper(std::span<const uint8_t> bytes);
std::string hexLower(std::span<const uint8_t> bytes);

}  // namespace tv
