// A failure's own account of itself.
#include "advice/Finding.h"

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

}  // namespace tv::advice
