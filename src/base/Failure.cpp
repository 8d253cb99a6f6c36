// The words of a failure lie on the heap; those of the failure to get any there are made before.
#include "base/Failure.h"

#include <new>
#include <utility>

namespace tv {

struct Failure::Detail {
    Cause cause = Cause::None;
    std::string text;
    uint64_t totalMs = 0;
    bool anySent = false;
};

// Never destroyed: nothing runs at exit or unload. One for all, so nothing is noted in it, and what
// it cannot know it takes for the worse: bytes may have left.
Failure::Detail& Failure::outOfMemory() noexcept {
    alignas(Detail) static unsigned char place[sizeof(Detail)];
    static Detail* const detail = new (place) Detail{Cause::OutOfMemory, {}, 0, true};
    return *detail;
}

void Failure::Release::operator()(Detail* detail) const noexcept {
    if (detail != &outOfMemory()) delete detail;
}

Failure::Failure(Cause cause, std::string text) noexcept
    : detail_(new (std::nothrow) Detail{cause, std::move(text), 0, false}) {
    if (!detail_) detail_.reset(&outOfMemory());
}

Cause Failure::cause() const {
    return detail_ ? detail_->cause : Cause::None;
}

const std::string& Failure::text() const {
    return detail_ ? detail_->text : outOfMemory().text;  // none there: an empty one that lasts
}

uint64_t Failure::totalMs() const {
    return detail_ ? detail_->totalMs : 0;
}

bool Failure::anySent() const {
    return detail_ && detail_->anySent;
}

Failure&& Failure::withTotal(uint64_t ms) && {
    if (detail_ && detail_.get() != &outOfMemory()) detail_->totalMs = ms;
    return std::move(*this);
}

Failure&& Failure::withAnySent(bool any) && {
    if (detail_ && detail_.get() != &outOfMemory()) detail_->anySent = any;
    return std::move(*this);
}

}  // namespace tv
