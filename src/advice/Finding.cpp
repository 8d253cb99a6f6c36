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
    if (!failure) return {};
    return {failure.stage(),     failure.root(),   failure.repeat(),
            failure.replyCode(), wordsOf(failure), failure.reply()};
}

}  // namespace tv::advice
