// Character references of HTML: "&eacute;", "&#233;", "&#xE9;".
#pragma once

#include <string>
#include <string_view>

namespace tv {

// The number of bytes of the reference that a text begins with, whose UTF-8 is appended to out; 0
// where it begins with none, and out is untouched. What is appended is never longer than that.
size_t takeHtmlEntity(std::string_view text, std::string& out);

// A text with its references replaced; what is none stays as it is.
std::string withoutHtmlEntities(std::string_view text);

}  // namespace tv
