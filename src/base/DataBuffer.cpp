// Growth by realloc, so that a failure comes back as false and the old content stays.
#include "base/DataBuffer.h"

#include <cstdlib>
#include <cstring>

#include "base/Ascii.h"

namespace tv {

DataBuffer::~DataBuffer() {
    std::free(block_);
}

bool DataBuffer::reserve(size_t capacity) {
    if (capacity <= capacity_) return true;
    void* block = std::realloc(block_, capacity);
    if (!block) return false;
    block_ = static_cast<uint8_t*>(block);
    capacity_ = capacity;
    return true;
}

bool DataBuffer::grow(size_t needed) {
    if (needed <= capacity_) return true;
    // Half as much again makes many small appends cheap; where memory is short, what is needed must
    // do.
    const size_t half = capacity_ / 2;
    const size_t generous = capacity_ <= SIZE_MAX - half ? capacity_ + half : needed;
    if (generous > needed && reserve(generous)) return true;
    return reserve(needed);
}

bool DataBuffer::append(std::span<const uint8_t> bytes) {
    if (bytes.empty()) return true;
    if (bytes.size() > SIZE_MAX - size_ || !grow(size_ + bytes.size())) return false;
    std::memcpy(block_ + size_, bytes.data(), bytes.size());
    size_ += bytes.size();
    return true;
}

bool DataBuffer::append(std::string_view text) {
    return append({bytesOf(text), text.size()});
}

bool DataBuffer::resize(size_t size) {
    if (size > size_) {
        if (!grow(size)) return false;
        std::memset(block_ + size_, 0, size - size_);
    }
    size_ = size;
    return true;
}

}  // namespace tv
