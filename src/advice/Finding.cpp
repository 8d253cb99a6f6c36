// A failure's own account of itself.
#include "advice/Finding.h"

#include "base/Ascii.h"

namespace tv::advice {
namespace {

// Appended, not assigned and returned: this goes into the DLL.
void addWords(const Failure& failure, std::string& words) {
    words += failure.text();
    if (words.empty()) words.append(tlsSentence(failure.root()));
    if (words.empty()) words.append(connectWords(failure.root()));
    if (words.empty()) words.append(statusWord(failure.cause()));
    for (const std::string& hint : failure.hints()) {
        words.append(words.ends_with('.') ? " " : ". ").append(hint);
    }
}

}  // namespace

Finding findingOf(const Failure& failure, bool loggedIn) {
    Finding finding;
    if (!failure) return finding;
    finding.stage = failure.stage();
    finding.cause = failure.root();
    finding.repeat = failure.repeat();
    finding.replyCode = failure.replyCode();
    addWords(failure, finding.words);
    finding.reply.append(failure.reply());
    finding.loggedIn = loggedIn;
    return finding;
}

std::string_view behindPlace(std::string_view sentence) {
    if (!sentence.starts_with("No connection to ")) return {};
    for (size_t at = sentence.find(": "); at != std::string_view::npos;
         at = sentence.find(": ", at + 1)) {
        if (at > 0 && isAsciiDigit(sentence[at - 1])) return sentence.substr(at + 2);
    }
    return {};
}

}  // namespace tv::advice
