// The file to which every transferred message is appended: whole messages with their attachments,
// as they were sent, so without the blind recipients and without the password of the login.
#pragma once

#include <string_view>

#include "log/LogBase.h"
#include "mail/smtp/SmtpSend.h"

namespace tv::smtp {

// Writes one whole entry, after waiting at most two seconds for another process that writes its
// own. A file that cannot be opened or written is skipped; false only where the message itself does
// not render.
bool appendToSentMailLog(LogBase& log, std::string_view path, const SmtpSend& send);

}  // namespace tv::smtp
