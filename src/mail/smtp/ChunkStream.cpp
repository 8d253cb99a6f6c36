#include "mail/smtp/ChunkStream.h"

#include <algorithm>
#include <utility>

namespace tv {

ChunkStream::ChunkStream(size_t chunkSize, Sink sink)
    : chunkSize_(std::max<size_t>(chunkSize, 1)), sink_(std::move(sink)) {}

bool ChunkStream::write(std::span<const uint8_t> bytes) {
    while (!failed_ && !bytes.empty()) {
        const size_t size = std::min(bytes.size(), chunkSize_ - pending_.size());
        const std::span<const uint8_t> piece = bytes.first(size);
        bytes = bytes.subspan(size);
        failed_ = size == chunkSize_ ? !hand(piece) : !collect(piece);
    }
    return !failed_;
}

bool ChunkStream::finish() {
    if (!failed_ && !pending_.empty()) failed_ = !hand(pending_.bytes());
    pending_.clear();
    return !failed_;
}

bool ChunkStream::collect(std::span<const uint8_t> bytes) {
    if (pending_.empty() && !pending_.reserve(chunkSize_)) return false;
    if (!pending_.append(bytes)) return false;
    if (pending_.size() < chunkSize_) return true;
    const bool taken = hand(pending_.bytes());
    pending_.clear();
    return taken;
}

bool ChunkStream::hand(std::span<const uint8_t> chunk) {
    if (!sink_(chunk)) return false;
    bytesOut_ += chunk.size();
    return true;
}

}  // namespace tv
