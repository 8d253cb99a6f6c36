// The portable search for the dots of line starts, and the one place where a message is gathered
// into blocks.
#include "mail/smtp/DotStuffer.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace tv {
namespace {

// Blocks leave when so much of the message has come since the last ones left, or when the message
// ends, and not one by one as they fill: the log shows a failure to send within that part of the
// message that was rendered then.
constexpr size_t kGathered = 65536;
// That much, every second byte a dot to be doubled, fits in beside a block that is not full.
constexpr size_t kRoom = kGathered / 2 * 3;

size_t withRoom(size_t blockSize) {
    return std::min(blockSize, SIZE_MAX - kRoom) + kRoom;
}

const uint8_t* findPortable(const uint8_t* in, const uint8_t* end) {
    while (end - in >= 2) {
        // The last byte is left out: what follows it is not known yet.
        const void* found = std::memchr(in, '\n', static_cast<size_t>(end - in) - 1);
        if (!found) return nullptr;
        const uint8_t* lineFeed = static_cast<const uint8_t*>(found);
        if (lineFeed[1] == '.') return lineFeed + 1;
        in = lineFeed + 1;
    }
    return nullptr;
}

// Fastest first.
constexpr const LineDotForm* kForms[] = {
#if defined(__x86_64__) || defined(__i386__)
    &kLineDotSse2,
#endif
    &kLineDotPortable,
};

}  // namespace

constinit const LineDotForm kLineDotPortable = {"portable", alwaysUsable, findPortable};

constinit Dispatch<LineDotForm> lineDotForms{kForms};

DataBlocks::DataBlocks(OutputStream& sink, size_t blockSize)
    : sink_(sink), blockSize_(std::max<size_t>(blockSize, 1)), capacity_(withRoom(blockSize_)) {}

bool DataBlocks::write(std::span<const uint8_t> bytes) {
    if (gathered_ + bytes.size() > kGathered && !handOn()) return false;
    gathered_ += bytes.size();
    if (!stuffer_.stuff(bytes, [&](std::span<const uint8_t> piece) { return gather(piece); })) {
        return false;
    }
    return bytes.size() < kGathered || handOn();
}

bool DataBlocks::writeAsItIs(std::string_view text) {
    return gather({bytesOf(text), text.size()});
}

bool DataBlocks::gather(std::span<const uint8_t> bytes) {
    if (!bytes_) bytes_.reset(new (std::nothrow) uint8_t[capacity_]);
    good_ = good_ && bytes_;
    while (good_ && !bytes.empty()) {
        if (size_ == capacity_ && !handOn()) return false;
        const size_t size = std::min(bytes.size(), capacity_ - size_);
        std::memcpy(bytes_.get() + size_, bytes.data(), size);
        size_ += size;
        bytes = bytes.subspan(size);
    }
    return good_;
}

bool DataBlocks::handOn() {
    size_t done = 0;
    for (; good_ && size_ - done >= blockSize_; done += blockSize_) {
        good_ = handBlock(done, blockSize_);
    }
    size_ -= done;
    if (done != 0) std::memmove(bytes_.get(), bytes_.get() + done, size_);
    gathered_ = 0;
    return good_;
}

bool DataBlocks::finish() {
    if (handOn() && size_ != 0) good_ = handBlock(0, size_);
    size_ = 0;
    return good_;
}

bool DataBlocks::handBlock(size_t from, size_t size) {
    if (!sink_.write({bytes_.get() + from, size})) return false;
    bytesOut_ += size;
    return true;
}

}  // namespace tv
