// Libraries by LoadLibrary, with the path in UTF-16.
#include "platform/SysLibrary.h"

#include <windows.h>

#include "platform/SysError.h"
#include "platform/win32/WidePath.h"

namespace tv::plat {

bool SysLibrary::open(std::string_view utf8Path, std::string& error) {
    close();
    handle_ = LoadLibraryW(widen(utf8Path).c_str());
    if (handle_) return true;
    // The system's words have a gap where the file's name belongs, and say nothing of bits.
    error = GetLastError() == ERROR_BAD_EXE_FORMAT
                ? "it is no library for programs of " + std::to_string(8 * sizeof(void*)) + " bits"
                : lastErrorWords();
    return false;
}

void SysLibrary::close() {
    if (handle_) FreeLibrary(static_cast<HMODULE>(handle_));
    handle_ = nullptr;
}

SysLibrary::Function SysLibrary::function(const char* name) const {
    if (!handle_) return nullptr;
    return reinterpret_cast<Function>(GetProcAddress(static_cast<HMODULE>(handle_), name));
}

}  // namespace tv::plat
