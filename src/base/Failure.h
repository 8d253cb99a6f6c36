// What went wrong, as one value that a call gives back: made once, at the lowest place that
// understands it, and carried up by return. It writes no log.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/Cause.h"

namespace tv {

// As wide as a pointer; none where nothing failed. Where there is no memory for what is to be
// noted, it is one OutOfMemory that all share, in which nothing can be noted.
class [[nodiscard]] Failure {
public:
    Failure() = default;
    // text: what stands behind the cause, UTF-8; a clause on a connection, sentences on a send;
    // empty where the cause says it all.
    explicit Failure(Cause cause, std::string text = {}) noexcept;

    // True where something failed.
    explicit operator bool() const { return detail_ != nullptr; }
    Cause cause() const;
    bool is(Cause cause) const { return this->cause() == cause; }
    const std::string& text() const;
    // Where a failure below is what stands behind it: the cause of that one; else its own.
    Cause root() const;
    // The one that was noted, else that of the root.
    Stage stage() const;
    Repeat repeat() const;
    // A new connection at once may do better, and cannot deliver twice.
    bool mayReconnect() const;
    // What the server said to it, where it did: the code, and the lines with LF between them.
    int32_t replyCode() const;
    const std::string& reply() const;
    // What may lie behind it, in sentences of their own.
    const std::vector<std::string>& hints() const;

    // Of a Timeout: the total time-out that ended it, in ms; 0: nothing moved.
    uint64_t totalMs() const;
    // Of a send: some of the bytes may have left. OutOfMemory cannot tell, so it says they may.
    bool anySent() const;

    Failure&& withTotal(uint64_t ms) &&;
    Failure&& withAnySent(bool any) &&;
    Failure&& withReply(int32_t code, std::string lines) &&;
    Failure&& withReconnect(bool may) &&;
    // below: None changes nothing.
    Failure&& because(const Failure& below) &&;
    Failure&& because(Cause below) &&;
    // Where it happened, unless that is known already; None changes nothing.
    Failure&& at(Stage stage) &&;

    // What else is to be said, as a sentence of its own.
    void addSentence(std::string_view sentence);
    void addHint(std::string sentence);
    // The server may have the message.
    void setOutcomeUnknown();

private:
    struct Detail;
    struct Release {
        void operator()(Detail* detail) const noexcept;
    };

    static Detail& outOfMemory() noexcept;
    const Detail& detail() const;
    Detail* own();  // null where nothing can be noted

    std::unique_ptr<Detail, Release> detail_;
};

static_assert(sizeof(Failure) == sizeof(void*));

}  // namespace tv
