// Advice that the log gives for replies whose cause is known.
#pragma once

#include <string_view>

#include "log/LogBase.h"
#include "mail/smtp/SmtpResponse.h"

namespace tv::smtp {

void logLineHint(LogBase& log, std::string_view line);
void logReplyHints(LogBase& log, const SmtpResponse& reply);

}  // namespace tv::smtp
