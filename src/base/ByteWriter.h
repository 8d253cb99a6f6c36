// Builds binary messages: numbers of both byte orders, and vectors whose length stands before them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "base/Ascii.h"
#include "base/SecureBuffer.h"

namespace tv {

inline void appendBytes(std::vector<uint8_t>& out, std::span<const uint8_t> bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}
inline void appendBytes(SecureBuffer& out, std::span<const uint8_t> bytes) {
    out.append(bytes);
}

template <class Buffer>
class BasicByteWriter {
public:
    // False once a number or a length was too large for its place; the message is then worthless.
    bool ok() const { return ok_; }
    size_t size() const { return out_.size(); }
    std::span<const uint8_t> bytes() const { return {out_.data(), out_.size()}; }
    // Hands the message over; the writer is then as new.
    Buffer take() {
        ok_ = true;
        return std::exchange(out_, Buffer());
    }

    // Big-endian unless the name says otherwise.
    void u8(uint64_t value) { number(1, value); }
    void u16(uint64_t value) { number(2, value); }
    void u24(uint64_t value) { number(3, value); }
    void u32(uint64_t value) { number(4, value); }
    void u64(uint64_t value) { number(8, value); }
    void u16le(uint64_t value) { numberLe(2, value); }
    void u32le(uint64_t value) { numberLe(4, value); }
    void u64le(uint64_t value) { numberLe(8, value); }
    void zeros(size_t n) { out_.resize(out_.size() + n); }
    void append(std::span<const uint8_t> data) { appendBytes(out_, data); }
    void append(std::string_view text) { append({bytesOf(text), text.size()}); }

    // A big-endian length of 1 to 4 bytes, then what write writes.
    template <class Write>
    void vector(size_t lengthBytes, Write write) {
        const size_t start = size();
        zeros(lengthBytes);
        write();
        put(start, lengthBytes, size() - start - lengthBytes);
    }
    void vector8(std::span<const uint8_t> data) { countedBytes(1, data); }
    void vector16(std::span<const uint8_t> data) { countedBytes(2, data); }
    void vector24(std::span<const uint8_t> data) { countedBytes(3, data); }

    // Replaces a number that was written at the position before.
    void patchU16le(size_t position, uint64_t value) { putLe(position, 2, value); }
    void patchU32le(size_t position, uint64_t value) { putLe(position, 4, value); }

private:
    void countedBytes(size_t lengthBytes, std::span<const uint8_t> data) {
        number(lengthBytes, data.size());
        append(data);
    }
    void number(size_t size, uint64_t value) {
        const size_t start = out_.size();
        zeros(size);
        put(start, size, value);
    }
    void numberLe(size_t size, uint64_t value) {
        const size_t start = out_.size();
        zeros(size);
        putLe(start, size, value);
    }
    void put(size_t start, size_t size, uint64_t value) {
        check(start, size, value);
        for (size_t i = size; ok_ && i-- != 0; value >>= 8) {
            out_[start + i] = static_cast<uint8_t>(value);
        }
    }
    void putLe(size_t start, size_t size, uint64_t value) {
        check(start, size, value);
        for (size_t i = 0; ok_ && i < size; ++i, value >>= 8) {
            out_[start + i] = static_cast<uint8_t>(value);
        }
    }
    void check(size_t start, size_t size, uint64_t value) {
        const bool fits = size == 8 || (value >> (8 * size)) == 0;
        ok_ = ok_ && fits && start <= out_.size() && size <= out_.size() - start;
    }

    Buffer out_;
    bool ok_ = true;
};

using ByteWriter = BasicByteWriter<std::vector<uint8_t>>;
// For messages that hold secrets.
using SecureByteWriter = BasicByteWriter<SecureBuffer>;

}  // namespace tv
