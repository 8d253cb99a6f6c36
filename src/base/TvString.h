// Text on its way to the host: 8-bit, zero-terminated, in the encoding that the host reads.
#pragma once

#include <string>

#include "base/XString.h"

namespace tv {

class TvString {
public:
    TvString() = default;
    // As UTF-8 or in the ANSI code page, by the flag of the wrapper that hands it out.
    TvString(const XString& text, bool asUtf8)
        : bytes_(asUtf8 ? std::string(text.utf8()) : text.ansi()) {}

    const char* c_str() const { return bytes_.c_str(); }
    const std::string& bytes() const { return bytes_; }
    bool empty() const { return bytes_.empty(); }

private:
    std::string bytes_;
};

}  // namespace tv
