// Bodies without a transfer encoding, on their way out.
#pragma once

#include <string_view>

#include "mime/OutputStream.h"

namespace tv {

// Writes the text as it is; on request with bare CRs and LFs as CR LF, and with one more "." in
// front of a line that begins with one (RFC 5321 section 4.5.2).
bool writePlainBody(std::string_view text, bool repairLineEnds, bool dotStuffing,
                    OutputStream& out);

// True if a line has more bytes than that, without its line end.
bool hasLongerLine(std::string_view text, size_t size);

}  // namespace tv
