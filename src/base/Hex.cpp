// Hexadecimal digits for logs, traces and tables of published numbers.
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

int digitValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::string hexUpper(std::span<const uint8_t> bytes) {
    return hex(bytes, "0123456789ABCDEF");
}
std::string hexLower(std::span<const uint8_t> bytes) {
    return hex(bytes, "0123456789abcdef");
}

std::optional<std::vector<uint8_t>> hexDecode(std::string_view digits) {
    if (digits.size() % 2 != 0) return std::nullopt;
    std::vector<uint8_t> out;
    out.reserve(digits.size() / 2);
    for (size_t i = 0; i < digits.size(); i += 2) {
        const int high = digitValue(digits[i]);
        const int low = digitValue(digits[i + 1]);
        if (high < 0 || low < 0) return std::nullopt;
        out.push_back(static_cast<uint8_t>(high << 4 | low));
    }
    return out;
}

}  // namespace tv
