// Keeping the last error text: one owner for the current text, one for each thread that was given
// an earlier one.
#include "plugin/LastError.h"

#include <new>
#include <utility>

#include "platform/SysThread.h"

namespace tv {
namespace {

constexpr char kFailed[] = "Sending failed: ";

}  // namespace

LastError::LastError()
    : outOfMemory_(std::make_shared<const std::string>(std::string(kFailed) + "Out of memory.")) {}

void LastError::set(std::string text) {
    replaceBy(text.empty() ? nullptr : std::make_shared<const std::string>(std::move(text)));
}

void LastError::setReason(const char* reason) {
    try {
        set(std::string(kFailed) + reason);
    } catch (const std::bad_alloc&) {
        replaceBy(outOfMemory_);
    }
}

void LastError::replaceBy(Text text) {
    const std::lock_guard guard(lock_);
    text_.swap(text);
}

const char* LastError::text() {
    const std::lock_guard guard(lock_);
    Given& mine = placeOf(plat::currentThread());
    mine.askedAt = ++asked_;
    mine.text = text_;
    return mine.text ? mine.text->c_str() : "";
}

// The thread's own, or that of the thread which has not asked for longest.
LastError::Given& LastError::placeOf(uint64_t thread) {
    Given* oldest = given_.data();
    for (Given& given : given_) {
        if (given.thread == thread) return given;
        if (given.askedAt < oldest->askedAt) oldest = &given;
    }
    oldest->thread = thread;
    return *oldest;
}

}  // namespace tv
