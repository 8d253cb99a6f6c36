// Quoted-printable (RFC 2045 section 6.7) with lines of at most 76 characters, and with line starts
// that neither SMTP nor a mailbox file takes for something of their own ("." and "From ").
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "mime/ContentCoding.h"

namespace tv {

class QuotedPrintableEncoder final : public BodyEncoder {
public:
    // The stream outlives the encoder.
    explicit QuotedPrintableEncoder(OutputStream& out) : out_(out) {}

    bool put(std::span<const uint8_t> bytes) override;
    bool finish() override;

private:
    // How far beyond an input byte one must see to encode it: "From " and a blank before CR LF.
    static constexpr size_t kLookAhead = 4;
    // Together they stay in the first cache of a processor, and a write is rare.
    static constexpr size_t kInput = 4096;
    static constexpr size_t kStage = 8192;
    static constexpr size_t kLargestStep = 80;  // staged at once: a line, or a break and an item

    void encodeHeld(bool last);
    size_t copyPlainRun(const uint8_t* in, size_t size);
    size_t codeRun(const uint8_t* in, size_t size);
    size_t encodeItem(const uint8_t* in, size_t size);
    void stage(std::string_view text);
    void flush();

    OutputStream& out_;
    bool good_ = true;
    size_t column_ = 0;
    size_t held_ = 0;
    size_t staged_ = 0;
    std::array<uint8_t, kInput> input_;
    std::array<char, kStage> stage_;
};

}  // namespace tv
