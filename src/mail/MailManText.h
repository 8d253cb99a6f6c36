// How the mail manager tidies the texts that a host sets.
#pragma once

#include <cstdint>

#include "base/XString.h"

namespace tv::smtp {

// A host name as it may stand in a settings field: lower-cased, without scheme, slashes and white
// space around it. codePage is the one in which the host program writes.
XString tidySmtpHost(const XString& host, uint32_t codePage);

// Upper-cased. A description in several words comes down to the mechanism it names.
XString tidyAuthMethod(const XString& method);

}  // namespace tv::smtp
