// Character classes and case of ASCII, independent of any locale.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tv {

constexpr bool isAsciiUpper(char c) {
    return c >= 'A' && c <= 'Z';
}
constexpr bool isAsciiLower(char c) {
    return c >= 'a' && c <= 'z';
}
constexpr bool isAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}
constexpr bool isAsciiAlnum(char c) {
    return isAsciiUpper(c) || isAsciiLower(c) || isAsciiDigit(c);
}
constexpr char asciiLower(char c) {
    return isAsciiUpper(c) ? static_cast<char>(c + 32) : c;
}
constexpr char asciiUpper(char c) {
    return isAsciiLower(c) ? static_cast<char>(c - 32) : c;
}

// White space as host texts and SMTP replies hold it: space, tab, CR, LF.
constexpr bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// True if no byte is above 127.
bool isAscii(std::string_view text);

std::string asciiLower(std::string_view text);
bool equalsIgnoreCase(std::string_view a, std::string_view b);
bool startsWithIgnoreCase(std::string_view text, std::string_view prefix);
// Position of the first occurrence or npos.
size_t findIgnoreCase(std::string_view text, std::string_view wanted);

// Without white space at both ends.
std::string_view trimmed(std::string_view text);
// Every occurrence of wanted replaced, from left to right, without looking at what was put in.
std::string replaceAll(std::string_view text, std::string_view wanted, std::string_view by);

// The bytes of a text, for interfaces that take bytes.
inline const uint8_t* bytesOf(std::string_view text) {
    return reinterpret_cast<const uint8_t*>(text.data());
}

}  // namespace tv
