// Bytes that have arrived and wait to be taken, piece by piece or up to a mark. They may be secret:
// what was taken is wiped when the next bytes come, at the latest. Pure.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "base/DataBuffer.h"
#include "base/SecureBuffer.h"

namespace tv {

class LineBuffer {
public:
    enum class Take { Found, NeedMore, TooLong, NoMemory };

    void append(std::span<const uint8_t> bytes);
    // As append, and empties source: bytes move only where some wait here already.
    void takeFrom(SecureBuffer& source);

    // Moves everything up to and including match to the end of out. NeedMore: match is not there
    // yet. TooLong: it is not within the first maxSize bytes; those are moved all the same.
    // A match that changes between calls without a Found is not supported.
    Take takeUntil(std::string_view match, size_t maxSize, DataBuffer& out);
    // Moves all there is. False where memory does not suffice.
    bool takeAll(DataBuffer& out);

    size_t size() const { return buffer_.size() - taken_; }
    bool empty() const { return size() == 0; }
    void clear();

private:
    bool take(size_t size, DataBuffer& out);

    SecureBuffer buffer_;
    size_t taken_ = 0;     // bytes at the front of buffer_ that are gone
    size_t searched_ = 0;  // bytes behind them known to hold no match
};

}  // namespace tv
