// UTF-8 to UTF-16 and back for calls into the Windows API.
#pragma once

#include <string>
#include <string_view>

namespace tv::plat {

std::wstring widen(std::string_view utf8);
std::string narrow(std::wstring_view wide);

}  // namespace tv::plat
