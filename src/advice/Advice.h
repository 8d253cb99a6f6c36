// What to tell somebody about a failure: what failed, what to change, whether to send it again. One
// table of remedies serves the library, the tools and the documents.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "advice/Finding.h"

namespace tv::advice {

// A row of the table. Pointers and small numbers: the table goes into the DLL.
struct Advice {
    uint16_t code = 0;          // of the reply: 535; 4 or 5: any that begins so; 0: any or none
    Stage stage = Stage::None;  // None: any
    Cause cause = Cause::None;  // None: any
    // One of these stands in words or reply, in any case, short words whole, numbers
    // behind the reply's code; "|" between them, null: as
    // it may be.
    const char* phrases = nullptr;
    const char* change = nullptr;  // what to change; settings in braces
    bool loggedIn = false;         // only where a login is known to have been taken before
};

// All rows; the first that fits counts, and the last fits everything.
std::span<const Advice> advices();
// As many of them as tell what a reply means.
std::span<const Advice> replyAdvices();
const Advice& adviceOn(const Finding& finding);

// What to change, in sentences that name keys of the settings file, or functions of the library.
std::string whatToChange(const Advice& advice);
std::string whatHostsChange(const Advice& advice);
// The words for the settings in braces.
using SettingWords = std::string_view (*)(std::string_view name);
std::string whatToChange(const Advice& advice, SettingWords wordsOf);
inline std::string whatToChange(const Advice& advice, bool namesKeys) {
    return namesKeys ? whatToChange(advice) : whatHostsChange(advice);
}

// What failed, without a verb: "The login".
std::string_view stageWords(Stage stage);
// Whether to send it again, as a sentence.
std::string_view repeatWords(Repeat repeat);

// How many bytes at the front make one character that a terminal would obey: a control, or a mark
// of the writing direction.
size_t obeyedByTerminals(std::string_view text);

// Stage and cause, what to change, whether a repetition is safe: one line, without control
// characters. Empty where nothing failed.
std::string oneSentence(const Finding& finding);

}  // namespace tv::advice
