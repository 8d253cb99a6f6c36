// A number as the fewest hexadecimal digits. Not by printf, here or elsewhere: the one that a
// static Windows build links carries the conversion of floating point, 25 KB.
#pragma once

#include <charconv>
#include <cstdint>
#include <iterator>
#include <string>

namespace tv::plat {

inline std::string hexNumber(uint32_t number) {
    char digits[8];
    return {digits, std::to_chars(std::begin(digits), std::end(digits), number, 16).ptr};
}

}  // namespace tv::plat
