// Text as NTLM hashes and sends it: UTF-16LE, upper case, the OEM code page. All of it may be part
// of a password, so the results are wiped.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/SecureBuffer.h"

namespace tv::ntlm {

// The simple upper case of the letters of living alphabets; anything else stays.
char16_t upper(char16_t c);

SecureBuffer utf16Le(std::string_view utf8);
SecureBuffer upperUtf16Le(std::string_view utf8);
// Characters without a counterpart become "?".
SecureBuffer oemText(uint32_t codePage, std::string_view utf8);
SecureBuffer upperOemText(uint32_t codePage, std::string_view utf8);

}  // namespace tv::ntlm
