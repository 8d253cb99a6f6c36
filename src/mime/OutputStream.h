// Where rendered bytes go: a counter, a buffer, a file, the SMTP connection.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "base/Ascii.h"
#include "base/DataBuffer.h"

namespace tv {

class OutputStream {
public:
    virtual ~OutputStream() = default;
    // All of the bytes or failure. After a failure nothing more is written.
    virtual bool write(std::span<const uint8_t> bytes) = 0;
    // The message is rendered to its end: a stream that gathers hands on what is ready.
    virtual bool handOn() { return true; }

    bool write(std::string_view text) { return write({bytesOf(text), text.size()}); }
};

// Keeps nothing but the number of bytes.
class CountingStream final : public OutputStream {
public:
    using OutputStream::write;
    bool write(std::span<const uint8_t> bytes) override {
        count_ += bytes.size();
        return true;
    }
    uint64_t count() const { return count_; }

private:
    uint64_t count_ = 0;
};

// Appends to a buffer, which outlives the stream; fails where memory ends.
class BufferStream final : public OutputStream {
public:
    explicit BufferStream(DataBuffer& buffer) : buffer_(buffer) {}
    using OutputStream::write;
    bool write(std::span<const uint8_t> bytes) override { return buffer_.append(bytes); }

private:
    DataBuffer& buffer_;
};

}  // namespace tv
