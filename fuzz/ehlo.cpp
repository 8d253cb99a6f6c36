// The capability parser on any EHLO reply: announcing more never takes anything away, and the
// mechanism chosen is one that was offered.
#include "Target.h"
#include "mail/smtp/SmtpAuth.h"
#include "mail/smtp/SmtpCapabilities.h"

void tv::take(Input input) {
    SmtpResponse reply;
    for (std::string_view rest = textOf(input);
         !rest.empty() && reply.lines.size() < kMaxReplyLines;) {
        reply.lines.emplace_back(takeLine(rest));
    }
    SmtpCapabilities found;
    for (const std::string_view line : smtp::addEhloReply(reply, found)) {
        require(line.size() < 3);
    }
    SmtpCapabilities again = found;
    smtp::addEhloReply(reply, again);
    require(again == found);
    if (reply.lines.empty()) return;
    const AuthMechanisms left = smtp::restrictedTo(reply.lines.front(), found.auth);
    require(left.any() == (smtp::chooseMechanism(left, true, true) != AuthMechanism::None));
}
