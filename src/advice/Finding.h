// What is known of a failure, be it from the value itself or read out of what a host was told.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/Failure.h"

namespace tv::advice {

struct Finding {
    Stage stage = Stage::None;
    Cause cause = Cause::None;  // the root; None: nothing failed
    Repeat repeat = Repeat::NothingSent;
    int32_t replyCode = 0;  // 0: the server said nothing to it
    std::string words;      // the sentence that says the cause, and what may lie behind it; UTF-8
    std::string reply;      // the server's lines with LF between them

    bool loggedIn = false;  // the server is known to have taken a login before

    explicit operator bool() const { return cause != Cause::None; }
};

// loggedIn: the server had taken a login on that connection.
Finding findingOf(const Failure& failure, bool loggedIn = false);

// Of the text of getLastError, made UTF-8. A transcript (after a failed send) says it in its last
// line, before what may lie behind it; an account (after a failed trial) in the last line that is
// neither frame nor fact. None for an empty text; Internal where nothing is recognised.
Finding findingIn(std::string_view lastError);

// What follows the place in "No connection to HOST:PORT: clause"; empty for other sentences.
std::string_view behindPlace(std::string_view sentence);

// The line of the text that says it, trimmed, by the rule that hosts go by.
std::string_view tellingLine(std::string_view lastError);

}  // namespace tv::advice
