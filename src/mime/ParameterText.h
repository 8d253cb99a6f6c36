// Parameter values of structured fields (RFC 2045 section 5.1, RFC 2231).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tv {

// In double quotes, with quotes and backslashes escaped.
std::string quotedString(std::string_view text);

// " name=\"value\";" with a value outside ASCII as encoded words, which then stand on lines of
// their own (in front of them CR LF instead of nothing). The form that older readers know.
std::string wordParameter(std::string_view name, std::string_view utf8, uint32_t codePage);

// " name=\"value\"", or " name*=utf-8''value" for a value outside ASCII, on a line of its own and
// cut into numbered pieces where it would be very long (RFC 2231 section 3).
std::string extendedParameter(std::string_view name, std::string_view utf8);

// The value of a Content-Disposition field; fileName may be empty. asciiToo: a name outside ASCII
// is followed by one with "_" in the place of what is none.
std::string dispositionValue(std::string_view disposition, std::string_view fileName,
                             bool asciiToo = false);

}  // namespace tv
