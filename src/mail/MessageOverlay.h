// What a settings file says of messages, laid over the copy that is sent.
#pragma once

#include "mail/smtp/SmtpSend.h"
#include "mime/Email2.h"
#include "settings/Settings.h"

namespace tv {

// The fields of the header (sender, where replies go, number, further ones) and the text beside the
// HTML body. False if memory ends.
bool layOverMessage(LogBase& log, const settings::Settings& file, Email2& message);

// Sender and recipients of the envelope; warns where they are others than the host program's. To be
// called after layOverMessage.
void layOverEnvelope(LogBase& log, const settings::Settings& file, const Email2& message,
                     SmtpSend& send);

}  // namespace tv
