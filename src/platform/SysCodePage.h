// The system's own converter between code pages and UTF-16, for pages that have no table here.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tv::plat {

// Both convert the whole text without best fit and fail where a character has no counterpart or the
// page is unknown to the system. Windows: MultiByteToWideChar and WideCharToMultiByte with a check
// by round trip; POSIX: iconv.
bool systemToUtf16(uint32_t codePage, std::string_view bytes, std::u16string& out);
bool systemFromUtf16(uint32_t codePage, std::u16string_view text, std::string& out);

}  // namespace tv::plat
