// The transfer encodings of message bodies (RFC 2045) as small machines: bytes go in in pieces of
// any size, and what comes out does not depend on where the pieces were cut.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "base/Base64.h"
#include "mime/OutputStream.h"

namespace tv {

class BodyEncoder {
public:
    virtual ~BodyEncoder() = default;
    // Both: false once the stream behind has failed; nothing more is written then.
    virtual bool put(std::span<const uint8_t> bytes) = 0;
    // Writes what is still held back: the end of the body. One encoder serves one body.
    virtual bool finish() = 0;
};

// Lines of 76 characters, joined by CR LF; none follows the last line.
class Base64BodyEncoder final : public BodyEncoder {
public:
    // The stream outlives the encoder.
    explicit Base64BodyEncoder(OutputStream& out) : out_(out) {}

    bool put(std::span<const uint8_t> bytes) override;
    bool finish() override;

private:
    bool putLines(const uint8_t* in, size_t count);

    static constexpr size_t kStagedLines = 128;  // some 10 kB a write

    OutputStream& out_;
    bool good_ = true;
    size_t held_ = 0;  // a line is written with its break only when more bytes are known to follow
    std::array<uint8_t, kBase64LineBytes> line_;
    std::array<char, kStagedLines * kBase64LineWithBreak> stage_;
};

// Both encodings of whole bodies.
class ContentCoding {
public:
    static bool encodeBase64(std::span<const uint8_t> bytes, OutputStream& out);
    static bool encodeQuotedPrintable(std::span<const uint8_t> bytes, OutputStream& out);
};

}  // namespace tv
