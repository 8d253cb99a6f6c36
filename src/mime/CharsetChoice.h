// The one charset of a message: raised, text by text, to what all of them need.
#pragma once

#include <string_view>

#include "log/LogBase.h"
#include "mime/tvEmailCommon.h"

namespace tv {

// Lets a text body, a subject or a display name (UTF-8) have its say in the message code page.
void chooseCharsetIfNecessary(LogBase& log, std::string_view utf8, _tvEmailCommon& common);

}  // namespace tv
