// What the fuzz targets share: each is one function over an input, and may take it apart by lines.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

using Input = std::span<const uint8_t>;

namespace tv {
void take(Input input);  // the target
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tv::take({data, size});
    return 0;
}

inline void require(bool holds) {
    if (!holds) std::abort();
}

inline std::string_view textOf(Input input) {
    return {reinterpret_cast<const char*>(input.data()), input.size()};
}

// The next line with its end, or what is left.
inline std::string_view takeLine(std::string_view& rest) {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    const size_t size = std::min(line.size() + 1, rest.size());
    rest.remove_prefix(size);
    return {line.data(), size};
}

// A header field: folded where it is broken at all, and no line too long for mail.
inline void requireSound(std::string_view field) {
    require(field.find('\0') == std::string_view::npos);
    while (!field.empty()) {
        const std::string_view line = field.substr(0, field.find_first_of("\r\n"));
        require(line.size() <= 998);
        field.remove_prefix(line.size());
        require(field.empty() || field.starts_with("\r\n ") || field.starts_with("\r\n\t"));
        field.remove_prefix(std::min<size_t>(field.size(), 2));
    }
}
