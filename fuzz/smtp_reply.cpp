// The reply reader on anything a server may send: never reads past a line, keeps its limits, and
// gives a code only to what it calls complete.
#include <cstdlib>
#include <string_view>

#include "log/tvLogger.h"
#include "mail/smtp/ReplyHints.h"
#include "mail/smtp/SmtpResponse.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

// The next line with its line end, or what is left.
std::string_view takeLine(std::string_view& rest) {
    const size_t end = rest.find("\r\n");
    const size_t size = end == std::string_view::npos ? rest.size() : end + 2;
    const std::string_view line = rest.substr(0, size);
    rest.remove_prefix(size);
    return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    while (!rest.empty()) {
        tv::SmtpReplyReader reader("FUZZ");
        tv::ReplyState state = tv::ReplyState::NeedMore;
        while (state == tv::ReplyState::NeedMore && !rest.empty()) {
            state = reader.addLine(takeLine(rest));
        }
        const tv::SmtpResponse& reply = reader.reply();
        require(reply.lines.size() <= tv::kMaxReplyLines);
        require((state == tv::ReplyState::Complete) == (reply.statusCode > 0));
        require(reply.statusCode >= 0 && reply.statusCode <= 999);
        if (state != tv::ReplyState::Complete) continue;
        require(reply.shownFinalLine().substr(0, 3) ==
                std::string_view(reply.lines.back()).substr(0, 3));
        tv::_tvLogger log;
        tv::smtp::logReplyHints(log, reply);
    }
    return 0;
}
