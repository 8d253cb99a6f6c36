// A bounded cursor over bytes from outside. A read beyond the end makes it fail for good: from then
// on every read gives zero or nothing, so that a parser may read on and ask once at its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tv {

class ByteReader {
public:
    ByteReader() = default;
    explicit ByteReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    bool ok() const { return ok_; }
    bool atEnd() const { return left() == 0; }
    // Everything read well and nothing left over.
    bool complete() const { return ok_ && atEnd(); }
    void fail() {
        ok_ = false;
        at_ = bytes_.size();
    }

    size_t left() const { return bytes_.size() - at_; }
    size_t position() const { return at_; }
    void seek(size_t position) {
        if (!ok_ || position > bytes_.size()) return fail();
        at_ = position;
    }

    // Big-endian unless the name says otherwise.
    uint8_t u8() { return static_cast<uint8_t>(number(1)); }
    uint16_t u16() { return static_cast<uint16_t>(number(2)); }
    uint32_t u24() { return static_cast<uint32_t>(number(3)); }
    uint32_t u32() { return static_cast<uint32_t>(number(4)); }
    uint64_t u64() { return number(8); }
    uint16_t u16le() { return static_cast<uint16_t>(numberLe(2)); }
    uint32_t u32le() { return static_cast<uint32_t>(numberLe(4)); }
    uint64_t u64le() { return numberLe(8); }

    // A view of the next n bytes.
    std::span<const uint8_t> bytes(size_t n) {
        if (n > left()) {
            fail();
            return {};
        }
        at_ += n;
        return bytes_.subspan(at_ - n, n);
    }
    void skip(size_t n) { bytes(n); }
    std::span<const uint8_t> rest() { return bytes(left()); }

    // A length in 1, 2 or 3 big-endian bytes, then so many bytes.
    std::span<const uint8_t> vector8() { return bytes(u8()); }
    std::span<const uint8_t> vector16() { return bytes(u16()); }
    std::span<const uint8_t> vector24() { return bytes(u24()); }

private:
    uint64_t number(size_t size) {
        uint64_t value = 0;
        for (const uint8_t byte : bytes(size)) {
            value = (value << 8) | byte;
        }
        return value;
    }
    uint64_t numberLe(size_t size) {
        uint64_t value = 0;
        unsigned shift = 0;
        for (const uint8_t byte : bytes(size)) {
            value |= static_cast<uint64_t>(byte) << shift;
            shift += 8;
        }
        return value;
    }

    std::span<const uint8_t> bytes_;
    size_t at_ = 0;
    bool ok_ = true;
};

}  // namespace tv
