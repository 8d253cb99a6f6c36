// The transcript of the dialogue: what a host reads after a failed send.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tv {

class SmtpSessionLog {
public:
    void clear();
    // The command as it may be shown, without a line end.
    void addCommand(std::string_view shown);
    // One reply line without its line end.
    void addReplyLine(std::string_view line);
    // The reply that these lines made up refused the command (code 400 or above).
    void markRefusal() { endsInRefusal_ = true; }
    // What stands here belongs to an earlier send or connection; it explains nothing that follows.
    void startAnew() { endsInRefusal_ = false; }
    void addDataSize(uint64_t bytes);
    // What no server said.
    void addRemark(std::string_view word, std::string_view reason);

    bool endsInRefusal() const { return endsInRefusal_; }
    const std::string& text() const { return text_; }

private:
    void addLine(std::string_view line, std::string_view lineEnd);

    std::string text_;
    bool endsInRefusal_ = false;
};

}  // namespace tv
