// Judging reply lines one by one (RFC 5321 section 4.2), as patiently as servers of all ages need
// it, within limits.
#include "mail/smtp/SmtpResponse.h"

#include "base/Ascii.h"
#include "base/CodePage.h"
#include "base/XString.h"

namespace tv {
namespace {

std::string_view withoutLineEnd(std::string_view line) {
    while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) {
        line.remove_suffix(1);
    }
    return line;
}

// The reply code, or 0 where the line does not begin with one (RFC 5321 4.2).
int32_t codeOf(std::string_view line) {
    if (line.size() < 3) return 0;
    int32_t code = 0;
    for (const char c : line.substr(0, 3)) {
        if (!isAsciiDigit(c)) return 0;
        code = code * 10 + (c - '0');
    }
    return code;
}

}  // namespace

std::string readable(std::string_view line) {
    return isValidUtf8(line) ? std::string(line) : std::string(XString::fromAnsi(line).utf8());
}

std::string SmtpResponse::shownFinalLine() const {
    return lines.empty() ? std::string() : readable(withoutLineEnd(lines.back()));
}

std::string SmtpResponse::shownLines() const {
    std::string text;
    for (const std::string& line : lines) {
        if (!text.empty()) text += '\n';
        text += readable(withoutLineEnd(line));
    }
    return text;
}

ReplyState SmtpReplyReader::addLine(std::string_view line) {
    const std::string_view text = withoutLineEnd(line);
    size_ += line.size();
    if (text.size() > kMaxReplyLine || size_ > kMaxReplyBytes) return ReplyState::TooLarge;
    if (reply_.lines.size() == kMaxReplyLines) return ReplyState::TooManyLines;
    reply_.lines.emplace_back(line);
    const int32_t code = codeOf(text);
    if (code == 0) return ReplyState::Malformed;
    // Some servers end a bare code with a NUL, or with a line end that is not quite one.
    const char separator = text.size() > 3 ? text[3] : ' ';
    if (separator == '-') return ReplyState::NeedMore;
    if (separator != ' ' && separator != '\r' && separator != '\n' && separator != '\0') {
        return ReplyState::Malformed;
    }
    reply_.statusCode = code;
    return ReplyState::Complete;
}

}  // namespace tv
