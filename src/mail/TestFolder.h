// Messages that are not sent but laid down in a folder, for hosts to be tried out.
#pragma once

#include <string>

#include "base/Failure.h"
#include "log/LogBase.h"
#include "mail/smtp/SmtpSend.h"

namespace tv {

// Writes the message as a new file "TIME-NUMBER.eml" with its envelope in front: Return-Path and an
// X-Envelope-To for each recipient, all of whom count as accepted. folder: UTF-8, it must exist.
Failure layInTestFolder(LogBase& log, const std::string& folder, SmtpSend& send);

}  // namespace tv
