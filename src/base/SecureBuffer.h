// Bytes of a secret: wiped on destruction, growth, shrinking and reassignment. There is no way to
// print one, and none is compared but in constant time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace tv {

class SecureBuffer {
public:
    SecureBuffer() = default;
    explicit SecureBuffer(size_t size) { resize(size); }
    explicit SecureBuffer(std::span<const uint8_t> bytes) { append(bytes); }
    SecureBuffer(const SecureBuffer& other) { append(other.bytes()); }
    SecureBuffer(SecureBuffer&& other) noexcept;
    SecureBuffer& operator=(const SecureBuffer& other);
    SecureBuffer& operator=(SecureBuffer&& other) noexcept;
    ~SecureBuffer() { release(); }

    const uint8_t* data() const { return block_; }
    uint8_t* data() { return block_; }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    std::span<const uint8_t> bytes() const { return {block_, size_}; }
    std::span<uint8_t> bytes() { return {block_, size_}; }
    uint8_t& operator[](size_t i) { return block_[i]; }
    uint8_t operator[](size_t i) const { return block_[i]; }

    // Running out of memory throws std::bad_alloc and leaves the buffer as it was.
    void reserve(size_t capacity);
    void resize(size_t size);  // new bytes are zero
    void append(std::span<const uint8_t> bytes);
    void append(std::string_view text);
    void push_back(uint8_t byte) { append({&byte, 1}); }
    // The former content is wiped even where the new one is shorter. Not from this buffer itself.
    void assign(std::span<const uint8_t> bytes);
    // Drops the first n bytes (all, when n is larger).
    void removeFront(size_t n) noexcept;
    // Wipes the content and keeps the memory.
    void clear() noexcept;

private:
    void release() noexcept;

    uint8_t* block_ = nullptr;
    size_t size_ = 0;
    size_t capacity_ = 0;
};

}  // namespace tv
