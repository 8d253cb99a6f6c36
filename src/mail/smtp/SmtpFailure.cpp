// The sentence of a refusal ends with the server's own words.
#include "mail/smtp/SmtpFailure.h"

namespace tv::smtp {

Failure refused(LogBase& log, Cause cause, const std::string& what, const SmtpResponse& reply) {
    return fail(log, cause, what + reply.shownFinalLine())
        .withReply(reply.statusCode, reply.shownLines());
}

Failure repliedEarly(LogBase& log, const SmtpResponse& reply) {
    return refused(log, Cause::DataFailure, "A reply came before the end of the message: ", reply);
}

}  // namespace tv::smtp
