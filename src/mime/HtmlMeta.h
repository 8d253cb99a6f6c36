// The charset that an HTML document names in its META tags.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "log/LogBase.h"

namespace tv {

// A charset name in a document, without its quotes; empty, with a null pointer, if there is none.
// Known are <meta charset="X"> and <meta http-equiv="content-type" content="...; charset=X">.
// Looks at what begins at or behind the offset.
std::string_view findMetaCharset(std::string_view html, size_t from = 0);

// True if a META tag named another charset than that of the code page: out is then the document
// with the name replaced and all else byte for byte. out is untouched otherwise.
bool correctMetaCharset(LogBase& log, std::string_view html, uint32_t codePage, std::string& out);

}  // namespace tv
