#include "base/Hex.h"

namespace tv {
namespace {

std::string hex(std::span<const uint8_t> bytes, const char* digits) {
    std::string out;
    out.reserve(bytes.size() * 2);
    for (const uint8_t byte : bytes) {
        out += digits[byte >> 4];
        out += digits[byte & 15];
    }
    return out;
}

}  // namespace

std::string hexUpper(std::span<const uint8_t> bytes) { return hex(bytes, "0123456789ABCDEF"); }
std::string hexLower(std::span<const uint8_t> bytes) { return hex(bytes, "0123456789abcdef"); }

}  // namespace tv
