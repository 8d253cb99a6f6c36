// One SMTP reply, and the reader that puts it together from its lines.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tv {

struct SmtpResponse {
    std::string command;  // what it answers, for the log
    int32_t statusCode = 0;
    std::vector<std::string> lines;  // as received: code, separator, text, line end

    bool isSuccess() const { return statusCode >= 200 && statusCode <= 299; }
    // The final line, and all of them with LF between, readable.
    std::string shownFinalLine() const;
    std::string shownLines() const;
};

// Servers write in any encoding; the log and the transcript are UTF-8.
std::string readable(std::string_view line);

// Limits of what a server may say in one reply. RFC 5321 4.5.3.1.5 allows 512 bytes a line.
constexpr size_t kMaxReplyLine = 65536;  // without the line end
constexpr size_t kMaxReplyLines = 1000;
constexpr size_t kMaxReplyBytes = 1048576;

enum class ReplyState { NeedMore, Complete, Malformed, TooManyLines, TooLarge };

class SmtpReplyReader {
public:
    explicit SmtpReplyReader(std::string_view command) { reply_.command = command; }

    // Takes one line with its line end. After anything but NeedMore no further line is taken.
    ReplyState addLine(std::string_view line);
    const SmtpResponse& reply() const { return reply_; }
    SmtpResponse& reply() { return reply_; }

private:
    SmtpResponse reply_;
    size_t size_ = 0;
};

}  // namespace tv
