// Conversions by the system, and the form of long paths.
#include "platform/win32/WidePath.h"

#include <windows.h>

namespace tv::plat {
namespace {

// The system counts in int, and takes what is negative for a text that ends at a zero.
constexpr size_t kLongest = INT32_MAX;

std::string toCodePage(UINT codePage, std::wstring_view wide) {
    if (wide.size() > kLongest) return {};
    const int length = static_cast<int>(wide.size());
    const int size =
        WideCharToMultiByte(codePage, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
    std::string bytes(size > 0 ? static_cast<size_t>(size) : 0, '\0');
    if (size > 0) {
        WideCharToMultiByte(codePage, 0, wide.data(), length, bytes.data(), size, nullptr, nullptr);
    }
    return bytes;
}

}  // namespace

std::wstring widen(std::string_view utf8) {
    if (utf8.size() > kLongest) return {};
    const int length = static_cast<int>(utf8.size());
    const int size = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, nullptr, 0);
    std::wstring wide(size > 0 ? static_cast<size_t>(size) : 0, L'\0');
    if (size > 0) {
        MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, wide.data(), size);
    }
    return wide;
}

std::wstring widePath(std::string_view utf8) {
    const std::wstring path = widen(utf8);
    // How long it is in full counts; with its end, as MAX_PATH does.
    const DWORD needed = GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (needed <= MAX_PATH) return path;
    std::wstring full(needed, L'\0');
    const DWORD size = GetFullPathNameW(path.c_str(), needed, full.data(), nullptr);
    if (size == 0 || size >= needed) return path;
    full.resize(size);
    if (full.starts_with(L"\\\\?\\") || full.starts_with(L"\\\\.\\")) return path;
    if (full.starts_with(L"\\\\")) return L"\\\\?\\UNC" + full.substr(1);
    return L"\\\\?\\" + full;
}

std::string narrow(std::wstring_view wide) {
    return toCodePage(CP_UTF8, wide);
}

std::string toAnsi(std::string_view utf8) {
    return toCodePage(CP_ACP, widen(utf8));
}

std::string inSystemFolder(const wchar_t* name) {
    wchar_t path[MAX_PATH + 1];
    const UINT size = GetSystemDirectoryW(path, MAX_PATH);
    if (size == 0 || size >= MAX_PATH) return {};
    return narrow(std::wstring(path, size) + name);
}

}  // namespace tv::plat
