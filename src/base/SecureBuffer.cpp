// Growth into a new block, with the old one wiped; what is dropped is wiped where it stood.
#include "base/SecureBuffer.h"

#include <cstring>
#include <utility>

#include "base/Ascii.h"
#include "platform/SysWipe.h"

namespace tv {

SecureBuffer::SecureBuffer(SecureBuffer&& other) noexcept
    : block_(std::exchange(other.block_, nullptr)),
      size_(std::exchange(other.size_, 0)),
      capacity_(std::exchange(other.capacity_, 0)) {}

SecureBuffer& SecureBuffer::operator=(const SecureBuffer& other) {
    if (this != &other) assign(other.bytes());
    return *this;
}

SecureBuffer& SecureBuffer::operator=(SecureBuffer&& other) noexcept {
    if (this != &other) {
        release();
        block_ = std::exchange(other.block_, nullptr);
        size_ = std::exchange(other.size_, 0);
        capacity_ = std::exchange(other.capacity_, 0);
    }
    return *this;
}

void SecureBuffer::reserve(size_t capacity) {
    if (capacity <= capacity_) return;
    uint8_t* block = new uint8_t[capacity];
    const size_t size = size_;
    if (size != 0) std::memcpy(block, block_, size);
    release();
    block_ = block;
    size_ = size;
    capacity_ = capacity;
}

void SecureBuffer::resize(size_t size) {
    if (size > size_) {
        reserve(size);
        std::memset(block_ + size_, 0, size - size_);
    } else if (size < size_) {
        plat::wipe(block_ + size, size_ - size);
    }
    size_ = size;
}

void SecureBuffer::append(std::span<const uint8_t> bytes) {
    if (bytes.empty()) return;
    const size_t size = size_ + bytes.size();
    // Doubling keeps the number of moves small; each leaves a block behind that has to be wiped.
    if (size > capacity_) reserve(size > capacity_ * 2 ? size : capacity_ * 2);
    std::memcpy(block_ + size_, bytes.data(), bytes.size());
    size_ = size;
}

void SecureBuffer::append(std::string_view text) {
    append({bytesOf(text), text.size()});
}

void SecureBuffer::assign(std::span<const uint8_t> bytes) {
    reserve(bytes.size());
    clear();
    append(bytes);
}

void SecureBuffer::removeFront(size_t n) noexcept {
    if (n >= size_) return clear();
    if (n == 0) return;
    std::memmove(block_, block_ + n, size_ - n);
    plat::wipe(block_ + size_ - n, n);
    size_ -= n;
}

void SecureBuffer::clear() noexcept {
    if (size_ != 0) plat::wipe(block_, size_);
    size_ = 0;
}

void SecureBuffer::release() noexcept {
    clear();
    delete[] block_;
    block_ = nullptr;
    capacity_ = 0;
}

}  // namespace tv
