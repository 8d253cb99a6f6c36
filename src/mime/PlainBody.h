// Bodies without a transfer encoding, on their way out.
#pragma once

#include <string_view>

#include "mime/OutputStream.h"

namespace tv {

// Writes the text with bare CRs and LFs as CR LF.
bool writePlainBody(std::string_view text, OutputStream& out);

// True if a line has more bytes than that, without its line end.
bool hasLongerLine(std::string_view text, size_t size);

}  // namespace tv
