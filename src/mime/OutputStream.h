// Where rendered bytes go: a counter, a buffer, a file, the SMTP connection.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "base/Ascii.h"

namespace tv {

class OutputStream {
public:
    virtual ~OutputStream() = default;
    // All of the bytes or failure. After a failure nothing more is written.
    virtual bool write(std::span<const uint8_t> bytes) = 0;

    bool write(std::string_view text) { return write({bytesOf(text), text.size()}); }
};

}  // namespace tv
