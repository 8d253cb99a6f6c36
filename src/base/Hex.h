// Bytes as hexadecimal digits and back.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tv {

std::string hexUpper(std::span<const uint8_t> bytes);
std::string hexLower(std::span<const uint8_t> bytes);

// Digits of either case, two for each byte and nothing between; else nothing.
std::optional<std::vector<uint8_t>> hexDecode(std::string_view digits);

}  // namespace tv
