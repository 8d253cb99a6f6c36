#include "mime/OutputStream.h"

namespace tv {

bool BlockStream::write(std::span<const uint8_t> bytes) {
    if (!good_) return false;
    if (block_.size() + bytes.size() > kBlock && !flush()) return false;
    if (bytes.size() >= kBlock) return good_ = behind_.write(bytes);
    return good_ = block_.reserve(kBlock) && block_.append(bytes);
}

bool BlockStream::flush() {
    if (good_ && !block_.empty()) {
        good_ = behind_.write(block_.bytes());
        block_.clear();
    }
    return good_;
}

}  // namespace tv
