// Text between Windows code pages and UTF-8. The pages that decide how a message goes out have
// tables of their own and so give the same answer on every system; the rest is the system's.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tv {

constexpr uint32_t kCodePageAscii = 20127;  // Windows' numbers of code pages
constexpr uint32_t kCodePageLatin1 = 28591;
constexpr uint32_t kCodePageLatin2 = 28592;
constexpr uint32_t kCodePageUtf8 = 65001;
constexpr uint32_t kCodePageUtf16Le = 1200;
constexpr uint32_t kCodePageUtf16Be = 1201;

// True if the bytes are well-formed UTF-8 (RFC 3629: no overlong forms, no surrogates).
bool isValidUtf8(std::string_view bytes);

// Appends the UTF-8 of a code point, which must be no surrogate.
void appendUtf8(char32_t code, std::string& out);

// UTF-8 of bytes in a code page. Whatever has no meaning in the page becomes U+FFFD.
std::string codePageToUtf8(uint32_t codePage, std::string_view bytes);

// The text in a code page. False, with out unspecified, where any character has no counterpart or
// the text is not well-formed: nothing is replaced by a look-alike.
bool utf8ToCodePage(uint32_t codePage, std::string_view utf8, std::string& out);

// As utf8ToCodePage, with "?" for what the page does not hold. For texts that only people read.
std::string utf8ToCodePageLossy(uint32_t codePage, std::string_view utf8);

// UTF-16 of UTF-8 text; malformed sequences become U+FFFD.
std::u16string utf8ToUtf16(std::string_view utf8);
// UTF-8 of UTF-16 text; unpaired surrogates become U+FFFD.
std::string utf16ToUtf8(std::u16string_view text);

}  // namespace tv
