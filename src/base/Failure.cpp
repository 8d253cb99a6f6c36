// The words of a failure lie on the heap; those of the failure to get any there are made before.
#include "base/Failure.h"

#include <new>
#include <utility>

namespace tv {

struct Failure::Detail {
    Cause cause = Cause::None;
    std::string text = {};
    uint64_t totalMs = 0;
    bool anySent = false;
    bool outcomeUnknown = false;
    bool mayReconnect = false;
    Cause root = Cause::None;
    Stage stage = Stage::None;
    int32_t replyCode = 0;
    std::string reply = {};
    std::vector<std::string> hints = {};
};

// Never destroyed: nothing runs at exit or unload. One for all, so nothing is noted in it, and what
// it cannot know it takes for the worse: bytes may have left.
Failure::Detail& Failure::outOfMemory() noexcept {
    alignas(Detail) static unsigned char place[sizeof(Detail)];
    static Detail* const detail = new (place) Detail{Cause::OutOfMemory, {}, 0, true, true};
    return *detail;
}

void Failure::Release::operator()(Detail* detail) const noexcept {
    if (detail != &outOfMemory()) delete detail;
}

Failure::Failure(Cause cause, std::string text) noexcept
    : detail_(new (std::nothrow) Detail{cause, std::move(text)}) {
    if (!detail_) detail_.reset(&outOfMemory());
}

const Failure::Detail& Failure::detail() const {
    alignas(Detail) static unsigned char place[sizeof(Detail)];
    static const Detail* const none = new (place) Detail;  // not destroyed, either
    return detail_ ? *detail_ : *none;
}

Failure::Detail* Failure::own() {
    return detail_.get() == &outOfMemory() ? nullptr : detail_.get();
}

Cause Failure::cause() const {
    return detail().cause;
}

const std::string& Failure::text() const {
    return detail().text;
}

Cause Failure::root() const {
    return detail().root == Cause::None ? cause() : detail().root;
}

Stage Failure::stage() const {
    if (detail().stage != Stage::None) return detail().stage;
    const Stage below = stageOf(root());
    return below == Stage::None ? stageOf(cause()) : below;
}

Repeat Failure::repeat() const {
    if (detail().outcomeUnknown) return Repeat::Unknown;
    if (replyCode() < 400) return Repeat::NothingSent;
    return replyCode() < 500 ? Repeat::RefusedForNow : Repeat::RefusedForGood;
}

bool Failure::mayReconnect() const {
    return detail().mayReconnect;
}

int32_t Failure::replyCode() const {
    return detail().replyCode;
}

const std::string& Failure::reply() const {
    return detail().reply;
}

const std::vector<std::string>& Failure::hints() const {
    return detail().hints;
}

uint64_t Failure::totalMs() const {
    return detail().totalMs;
}

bool Failure::anySent() const {
    return detail().anySent;
}

Failure&& Failure::withTotal(uint64_t ms) && {
    if (Detail* detail = own()) detail->totalMs = ms;
    return std::move(*this);
}

Failure&& Failure::withAnySent(bool any) && {
    if (Detail* detail = own()) detail->anySent = any;
    return std::move(*this);
}

Failure&& Failure::withReply(int32_t code, std::string lines) && {
    if (Detail* detail = own()) {
        detail->replyCode = code;
        detail->reply = std::move(lines);
    }
    return std::move(*this);
}

Failure&& Failure::withReconnect(bool may) && {
    if (Detail* detail = own()) detail->mayReconnect = may;
    return std::move(*this);
}

Failure&& Failure::because(const Failure& below) && {
    if (Detail* detail = own()) {
        detail->root = below.root();
        if (detail->stage == Stage::None) detail->stage = below.detail().stage;
    }
    return std::move(*this);
}

Failure&& Failure::because(Cause below) && {
    if (Detail* detail = own()) detail->root = below;
    return std::move(*this);
}

Failure&& Failure::at(Stage stage) && {
    Detail* detail = own();
    if (detail && detail->stage == Stage::None) detail->stage = stage;
    return std::move(*this);
}

void Failure::addSentence(std::string_view sentence) {
    Detail* detail = own();
    if (!detail) return;
    std::string& text = detail->text;
    if (!text.empty()) text += text.back() == '.' ? " " : ". ";
    text += sentence;
}

void Failure::addHint(std::string sentence) {
    if (Detail* detail = own()) detail->hints.push_back(std::move(sentence));
}

void Failure::setOutcomeUnknown() {
    if (Detail* detail = own()) detail->outcomeUnknown = true;
}

}  // namespace tv
