// Corrections of ports and TLS flags that cannot go together.
#pragma once

#include <string_view>
#include <vector>

#include "mail/smtp/SmtpSettings.h"

namespace tv::smtp {

// Corrects the settings for good and returns the lines that tell of it, in order; leaves alone what
// fixPort and fixEncryption of the settings say.
std::vector<std::string_view> autoFix(SmtpSettings& settings);

// With both TLS flags on only one can be meant: port 465 speaks TLS from the first byte.
void settleTlsFlags(SmtpSettings& settings);

}  // namespace tv::smtp
