// The capability parser on any EHLO reply: announcing more never takes anything away, and the
// mechanism chosen is one that was offered.
#include "Target.h"
#include "mail/smtp/SmtpAuth.h"
#include "mail/smtp/SmtpCapabilities.h"

void tv::take(Input input) {
    std::string_view rest = textOf(input);
    SmtpResponse reply;
    while (!rest.empty() && reply.lines.size() < kMaxReplyLines) {
        reply.lines.emplace_back(takeLine(rest, "\n"));
    }
    SmtpCapabilities found;
    for (const std::string_view line : smtp::addEhloReply(reply, found)) {
        require(line.size() < 3);
    }
    SmtpCapabilities again = found;
    smtp::addEhloReply(reply, again);
    require(again == found);

    const std::string method = reply.lines.empty() ? std::string() : reply.lines.front();
    const AuthMechanisms left = smtp::restrictedTo(method, found.auth);
    const bool nothing = smtp::chooseMechanism(left, true, true) == AuthMechanism::None;
    require(nothing == !left.any());
}
