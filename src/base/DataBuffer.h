// A growable byte buffer. Running out of memory is an answer, not an exception: attachments may be
// larger than a 32-bit host can hold.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace tv {

class DataBuffer {
public:
    DataBuffer() = default;
    DataBuffer(const DataBuffer&) = delete;
    DataBuffer& operator=(const DataBuffer&) = delete;
    ~DataBuffer();

    const uint8_t* data() const { return block_; }
    uint8_t* data() { return block_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    std::span<const uint8_t> bytes() const { return {block_, size_}; }
    std::string_view text() const { return {reinterpret_cast<const char*>(block_), size_}; }

    // All of these leave the buffer as it was and return false where memory does not suffice.
    bool reserve(size_t capacity);
    bool append(std::span<const uint8_t> bytes);  // not from this buffer itself
    bool append(std::string_view text);
    bool resize(size_t size);  // new bytes are zero

    void clear() { size_ = 0; }

private:
    bool grow(size_t needed);

    uint8_t* block_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

}  // namespace tv
