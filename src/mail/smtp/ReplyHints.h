// Advice that the log gives for replies whose cause is known.
#pragma once

#include <string_view>

#include "log/LogBase.h"
#include "mail/smtp/SmtpResponse.h"

namespace tv::smtp {

void logLineHint(std::string_view line, LogBase& log);
void logReplyHints(const SmtpResponse& reply, LogBase& log);

}  // namespace tv::smtp
