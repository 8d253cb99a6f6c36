// A plain text that says what an HTML document says.
#pragma once

#include <string>
#include <string_view>

namespace tv {

// Both are UTF-8; lines end with LF, also the last one. Empty where nothing is for readers. Any
// input is an HTML document. Time and memory are linear, and the text has at most the bytes of the
// document, those of its links once more, and 64 KB.
std::string htmlToText(std::string_view html);

}  // namespace tv
