// A failure's own account of itself.
#include "advice/Finding.h"

namespace tv::advice {
namespace {

std::string wordsOf(const Failure& failure) {
    std::string words = failure.text();
    if (words.empty()) words = tlsSentence(failure.root());
    if (words.empty()) words = connectWords(failure.root());
    if (words.empty()) words = statusWord(failure.cause());
    for (const std::string& hint : failure.hints()) {
        words += words.ends_with('.') ? " " : ". ";
        words += hint;
    }
    return words;
}

}  // namespace

Finding findingOf(const Failure& failure) {
    Finding finding;
    if (!failure) return finding;
    finding.stage = failure.stage();
    finding.cause = failure.root();
    finding.repeat = failure.repeat();
    finding.replyCode = failure.replyCode();
    finding.words = wordsOf(failure);
    finding.reply = failure.reply();
    return finding;
}

}  // namespace tv::advice
