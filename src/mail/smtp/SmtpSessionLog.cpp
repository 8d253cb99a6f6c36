// Line ends of the transcript, and whether its last lines refuse.
#include "mail/smtp/SmtpSessionLog.h"

#include <algorithm>

namespace tv {

void SmtpSessionLog::clear() {
    text_.clear();
    endsInRefusal_ = false;
}

void SmtpSessionLog::addCommand(std::string_view shown) {
    addLine(shown, "\r\n");
}

void SmtpSessionLog::addReplyLine(std::string_view line) {
    addLine(line, "\r\n");
}

void SmtpSessionLog::addDataSize(uint64_t bytes) {
    addLine("{" + std::to_string(bytes) + " bytes}", "\n");
}

void SmtpSessionLog::addRemark(std::string_view word, std::string_view reason) {
    std::string line(word);
    if (!reason.empty()) {
        line += ": ";
        line += reason;
    }
    addLine(line, "\r\n");
}

void SmtpSessionLog::addLine(std::string_view line, std::string_view lineEnd) {
    endsInRefusal_ = false;
    const auto before = static_cast<std::ptrdiff_t>(text_.size());
    text_ += line;
    // The host reads the transcript as a zero-terminated string.
    text_.erase(std::remove(text_.begin() + before, text_.end(), '\0'), text_.end());
    text_ += lineEnd;
}

}  // namespace tv
