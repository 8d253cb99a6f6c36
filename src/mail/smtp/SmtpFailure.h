// Failures that a reply of the server is.
#pragma once

#include <string>

#include "log/Fail.h"
#include "mail/smtp/SmtpResponse.h"

namespace tv::smtp {

// The reply said no; what it answered stands before it in the sentence.
Failure refused(LogBase& log, Cause cause, const std::string& what, const SmtpResponse& reply);
// The reply came before the end of the message.
Failure repliedEarly(LogBase& log, const SmtpResponse& reply);

}  // namespace tv::smtp
