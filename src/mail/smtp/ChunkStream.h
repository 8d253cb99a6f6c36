// Collects rendered bytes into blocks of one size, for sinks where each write costs.
#pragma once

#include <functional>

#include "base/DataBuffer.h"
#include "mime/OutputStream.h"

namespace tv {

class ChunkStream final : public OutputStream {
public:
    using Sink = std::function<bool(std::span<const uint8_t>)>;

    ChunkStream(size_t chunkSize, Sink sink);

    using OutputStream::write;
    bool write(std::span<const uint8_t> bytes) override;
    // Hands on what is left. False if this or any block before failed.
    bool finish();
    // The sink refused a block, or there was no memory for one.
    bool failed() const { return failed_; }
    // Bytes that the sink took.
    uint64_t bytesOut() const { return bytesOut_; }

private:
    bool collect(std::span<const uint8_t> bytes);
    bool hand(std::span<const uint8_t> chunk);

    size_t chunkSize_;
    Sink sink_;
    DataBuffer pending_;
    uint64_t bytesOut_ = 0;
    bool failed_ = false;
};

}  // namespace tv
