// Taking by size and by mark; what was searched already is not searched again.
#include "net/LineBuffer.h"

#include <algorithm>
#include <utility>

namespace tv {

void LineBuffer::append(std::span<const uint8_t> bytes) {
    buffer_.removeFront(std::exchange(taken_, 0));
    buffer_.append(bytes);
}

void LineBuffer::takeFrom(SecureBuffer& source) {
    if (empty()) {
        std::swap(buffer_, source);
    } else {
        append(source.bytes());
    }
    source.clear();
}

LineBuffer::Take LineBuffer::takeUntil(std::string_view match, size_t maxSize, DataBuffer& out) {
    const std::string_view text =
        std::string_view(reinterpret_cast<const char*>(buffer_.data()), buffer_.size())
            .substr(taken_, maxSize);
    // The end of what was searched may hold the beginning of the match.
    const size_t overlap = match.empty() ? 0 : match.size() - 1;
    const size_t at = text.find(match, searched_ - std::min(searched_, overlap));
    if (at != std::string_view::npos) {
        return take(at + match.size(), out) ? Take::Found : Take::NoMemory;
    }
    if (text.size() == maxSize) return take(maxSize, out) ? Take::TooLong : Take::NoMemory;
    searched_ = text.size();
    return Take::NeedMore;
}

bool LineBuffer::takeAll(DataBuffer& out) {
    return take(size(), out);
}

void LineBuffer::clear() {
    buffer_.clear();
    taken_ = 0;
    searched_ = 0;
}

bool LineBuffer::take(size_t size, DataBuffer& out) {
    if (!out.append(buffer_.bytes().subspan(taken_, size))) return false;
    taken_ += size;
    searched_ = 0;
    if (taken_ == buffer_.size()) clear();
    return true;
}

}  // namespace tv
