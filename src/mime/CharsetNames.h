// The names that MIME gives to Windows code pages.
#pragma once

#include <cstdint>
#include <string_view>

namespace tv {

// Not of Windows: 8-bit text of which nobody has said what it is (RFC 1428 section 2).
constexpr uint32_t kCodePageUnknown8Bit = 1;

// Lower-case name ("iso-8859-2"); "utf-8" for a code page without a name here.
std::string_view charsetName(uint32_t codePage);

// The code page of a charset name in any case, common aliases included; 0 for an unknown one.
uint32_t codePageOfCharset(std::string_view name);

}  // namespace tv
