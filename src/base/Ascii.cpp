// Searching, comparing and trimming text by ASCII rules: bytes of other characters are equal to
// themselves alone, so UTF-8 passes unharmed.
#include "base/Ascii.h"

#include <cstring>

namespace tv {

bool isAscii(std::string_view text) {
    const auto word = [text](size_t at) {
        uint64_t bytes;
        std::memcpy(&bytes, text.data() + at, sizeof bytes);
        return bytes;
    };
    uint64_t high = 0;
    size_t i = 0;
    for (; i + 32 <= text.size(); i += 32) {
        high |= word(i) | word(i + 8) | word(i + 16) | word(i + 24);
    }
    for (; i + 8 <= text.size(); i += 8) {
        high |= word(i);
    }
    for (; i < text.size(); ++i) {
        high |= static_cast<uint8_t>(text[i]);
    }
    return (high & 0x8080808080808080) == 0;  // the top bit of each byte
}

std::string asciiLower(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        c = asciiLower(c);
    }
    return out;
}

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && startsWithIgnoreCase(a, b);
}

bool startsWithIgnoreCase(std::string_view text, std::string_view prefix) {
    if (text.size() < prefix.size()) return false;
    for (size_t i = 0; i < prefix.size(); ++i) {
        if (text[i] != prefix[i] && asciiLower(text[i]) != asciiLower(prefix[i])) return false;
    }
    return true;
}

size_t findIgnoreCase(std::string_view text, std::string_view wanted) {
    for (size_t at = 0; at + wanted.size() <= text.size(); ++at) {
        if (startsWithIgnoreCase(text.substr(at), wanted)) return at;
    }
    return std::string_view::npos;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::string replaceAll(std::string_view text, std::string_view wanted, std::string_view by) {
    std::string out;
    out.reserve(text.size());
    size_t from = 0;
    for (;;) {
        const size_t at = wanted.empty() ? std::string_view::npos : text.find(wanted, from);
        out.append(text, from, at - from);
        if (at == std::string_view::npos) return out;
        out.append(by);
        from = at + wanted.size();
    }
}

}  // namespace tv
