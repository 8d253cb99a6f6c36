#include "platform/win32/WidePath.h"

#include <windows.h>

namespace tv::plat {

std::wstring widen(std::string_view utf8) {
    const int length = static_cast<int>(utf8.size());
    const int size = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
    std::wstring wide(size > 0 ? static_cast<size_t>(size) : 0, L'\0');
    if (size > 0) {
        MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, wide.data(), size);
    }
    return wide;
}

std::string narrow(std::wstring_view wide) {
    const int length = static_cast<int>(wide.size());
    const int size =
        WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
    std::string utf8(size > 0 ? static_cast<size_t>(size) : 0, '\0');
    if (size > 0) {
        WideCharToMultiByte(CP_UTF8, 0, wide.data(), length, utf8.data(), size, nullptr, nullptr);
    }
    return utf8;
}

}  // namespace tv::plat
