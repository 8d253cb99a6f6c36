// Domain names with letters outside ASCII in the form that DNS and mail servers know.
#pragma once

#include <string>
#include <string_view>

namespace tv {

// RFC 3492: the ASCII form of a label, without any prefix. False where numbers would overflow.
bool punycodeEncode(std::u32string_view label, std::string& out);

// The ASCII form of a domain: a pure ASCII domain stays as it is; otherwise each label is
// lower-cased, and one with other letters becomes "xn--" and its Punycode. The ideographic full
// stops count as dots (RFC 3490 section 3.1). False, with out unspecified, for malformed UTF-8, for
// an empty label (one dot may end the domain) and for labels over 63 characters.
//
// Lower-casing knows Latin, Greek, Cyrillic and Armenian. There is no composition of accents
// (a letter typed as base letter and combining mark stays two), no width folding, and no check
// whether a registry would allow the name.
bool domainToAscii(std::string_view utf8, std::string& out);

// The simple lower-case letter of a code point; itself where it has none known here.
char32_t lowerCodePoint(char32_t code);

}  // namespace tv
