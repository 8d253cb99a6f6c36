// The message data of a transaction: the dot at the start of each line doubled (RFC 5321 section
// 4.5.2), the bytes gathered into blocks of one size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "mail/smtp/DotStufferScan.h"
#include "mime/OutputStream.h"

namespace tv {

// Every "\n." becomes "\n..", however the data is cut into pieces. A dot that is the very first
// byte stays alone: rendered messages begin with a header. Nothing is held back. One stuffer serves
// one message.
class DotStuffer {
public:
    // Calls take with each piece of what goes over the line, as long as it gives true.
    template <class Take>
    bool stuff(std::span<const uint8_t> bytes, Take&& take) {
        if (bytes.empty()) return true;
        const uint8_t* from = bytes.data();
        const uint8_t* const end = from + bytes.size();
        if (afterLineFeed_ && *from == '.' && !take(std::span(from, 1))) return false;
        afterLineFeed_ = end[-1] == '\n';
        const LineDotForm& form = lineDotForms.get();
        // Each piece ends with the dot of a line, and the next begins with the same dot again.
        for (const uint8_t* at = from; (at = form.find(at, end)) != nullptr; from = at) {
            if (!take(std::span(from, at + 1))) return false;
        }
        return take(std::span(from, end));
    }

private:
    bool afterLineFeed_ = false;
};

// Where the rendered message is gathered, once, for a sink where each write costs: every write to
// it is one block.
class DataBlocks final : public OutputStream {
public:
    // The sink outlives this.
    DataBlocks(OutputStream& sink, size_t blockSize);

    using OutputStream::write;
    // The message. What goes before and after it in the same blocks is written as it is.
    bool write(std::span<const uint8_t> bytes) override;
    bool writeAsItIs(std::string_view text);
    bool handOn() override;  // the whole blocks
    // Hands on what is left, too. False if this or any block before failed.
    bool finish();
    // Bytes that the sink took.
    uint64_t bytesOut() const { return bytesOut_; }

private:
    bool gather(std::span<const uint8_t> bytes);
    bool handBlock(size_t from, size_t size);

    OutputStream& sink_;
    const size_t blockSize_;
    const size_t capacity_;
    std::unique_ptr<uint8_t[]> bytes_;
    size_t size_ = 0;
    size_t gathered_ = 0;  // of the message since blocks last left
    uint64_t bytesOut_ = 0;
    DotStuffer stuffer_;
    bool good_ = true;
};

}  // namespace tv
