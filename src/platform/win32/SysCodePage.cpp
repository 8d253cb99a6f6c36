// Code pages by the system's converter, strictly: a look-alike counts as a failure.
#include "platform/SysCodePage.h"

#include <windows.h>

namespace tv::plat {
namespace {

bool decode(uint32_t codePage, DWORD flags, std::string_view bytes, std::u16string& out) {
    out.clear();
    if (bytes.empty()) return true;
    const int length = static_cast<int>(bytes.size());
    const int size = MultiByteToWideChar(codePage, flags, bytes.data(), length, nullptr, 0);
    if (size <= 0) return false;
    out.resize(static_cast<size_t>(size));
    return MultiByteToWideChar(codePage, flags, bytes.data(), length,
                               reinterpret_cast<wchar_t*>(out.data()), size) == size;
}

}  // namespace

bool systemToUtf16(uint32_t codePage, std::string_view bytes, std::u16string& out) {
    if (bytes.size() > INT32_MAX) return false;
    // Some pages, those of ISO 2022 among them, take no flags.
    return decode(codePage, MB_ERR_INVALID_CHARS, bytes, out) ||
           (GetLastError() == ERROR_INVALID_FLAGS && decode(codePage, 0, bytes, out));
}

bool systemFromUtf16(uint32_t codePage, std::u16string_view text, std::string& out) {
    out.clear();
    if (text.empty()) return true;
    if (text.size() > INT32_MAX / 4) return false;  // bytes to a unit at most
    const wchar_t* wide = reinterpret_cast<const wchar_t*>(text.data());
    const int length = static_cast<int>(text.size());
    const int size = WideCharToMultiByte(codePage, 0, wide, length, nullptr, 0, nullptr, nullptr);
    if (size <= 0) return false;
    out.resize(static_cast<size_t>(size));
    WideCharToMultiByte(codePage, 0, wide, length, out.data(), size, nullptr, nullptr);
    // The converter replaces what it cannot carry by a look-alike and reports success: read it
    // back.
    std::u16string back;
    return systemToUtf16(codePage, out, back) && back == text;
}

}  // namespace tv::plat
