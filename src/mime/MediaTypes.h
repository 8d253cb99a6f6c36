// From the extension of a file name to its media type.
#pragma once

#include <string_view>

namespace tv {

// By what follows the last dot, in any case; "application/octet-stream" where there is no dot or
// the extension is unknown.
std::string_view mediaTypeOfPath(std::string_view path);

}  // namespace tv
