// Doubles the dot at the start of each line on its way into the SMTP data (RFC 5321 section 4.5.2).
#pragma once

#include <cstdint>
#include <span>

#include "mime/OutputStream.h"

namespace tv {

// Every "\n." becomes "\n..", however the data is cut into pieces. A dot that is the very first
// byte stays alone: rendered messages begin with a header. Nothing is held back.
class DotStuffer final : public OutputStream {
public:
    // The stream outlives the stuffer.
    explicit DotStuffer(OutputStream& out) : out_(out) {}

    using OutputStream::write;
    bool write(std::span<const uint8_t> bytes) override;
    // The next byte is the first of another message.
    void restart() { afterLineFeed_ = false; }

private:
    OutputStream& out_;
    bool afterLineFeed_ = false;
};

}  // namespace tv
