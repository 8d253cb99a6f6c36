// The error of the thread in words.
#include "platform/SysError.h"

#include <windows.h>

#include "platform/win32/WidePath.h"

namespace tv::plat {

std::string lastErrorWords() {
    const DWORD error = GetLastError();
    wchar_t text[512];
    constexpr DWORD kHow = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
    const DWORD size = FormatMessageW(kHow, nullptr, error, 0, text, 512, nullptr);
    std::string words = narrow(std::wstring_view(text, size));
    words.erase(words.find_last_not_of(".\r\n ") + 1);
    return words.empty() ? "Windows error " + std::to_string(error) : words;
}

}  // namespace tv::plat
