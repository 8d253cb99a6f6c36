// The reply reader on anything a server may send: never reads past a line, keeps its limits, and
// gives a code only to what it calls complete.
#include "Target.h"
#include "log/tvLogger.h"
#include "mail/smtp/ReplyHints.h"
#include "mail/smtp/SmtpResponse.h"

void tv::take(Input input) {
    for (std::string_view rest = textOf(input); !rest.empty();) {
        SmtpReplyReader reader("FUZZ");
        ReplyState state = ReplyState::NeedMore;
        while (state == ReplyState::NeedMore && !rest.empty()) {
            state = reader.addLine(takeLine(rest));
        }
        const SmtpResponse& reply = reader.reply();
        require(reply.lines.size() <= kMaxReplyLines);
        require((state == ReplyState::Complete) == (reply.statusCode > 0));
        require(reply.statusCode >= 0 && reply.statusCode <= 999);
        if (state != ReplyState::Complete) continue;
        require(reply.shownFinalLine().substr(0, 3) == reply.lines.back().substr(0, 3));
        _tvLogger log;
        smtp::logReplyHints(log, reply);
    }
}
