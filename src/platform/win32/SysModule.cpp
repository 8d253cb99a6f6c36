// The loader's word, and the environment of the process.
#include "platform/SysModule.h"

#include <windows.h>

#include "platform/win32/WidePath.h"

namespace tv::plat {
namespace {

constexpr DWORD kLongest = 32768;  // of paths and of variables

}  // namespace

std::string modulePath() {
    HMODULE module = nullptr;
    constexpr DWORD kHow =
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT;
    if (!GetModuleHandleExW(kHow, reinterpret_cast<LPCWSTR>(&modulePath), &module)) return {};
    std::wstring path(kLongest, L'\0');
    const DWORD size = GetModuleFileNameW(module, path.data(), kLongest);
    path.resize(size < kLongest ? size : 0);
    return narrow(path);
}

std::string trustedVariable(const char* name) {
    std::wstring value(kLongest, L'\0');
    const DWORD size = GetEnvironmentVariableW(widen(name).c_str(), value.data(), kLongest);
    value.resize(size < kLongest ? size : 0);
    return narrow(value);
}

std::string machineSettingsPath() {
    return {};
}

}  // namespace tv::plat
