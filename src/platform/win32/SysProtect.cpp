// DPAPI, from the system folder.
#include "platform/SysProtect.h"

#include <windows.h>
// dpapi.h needs windows.h before it
#include <dpapi.h>

#include "platform/SysLibrary.h"
#include "platform/SysWipe.h"
#include "platform/win32/WidePath.h"

namespace tv::plat {
namespace {

constexpr DWORD kHow = CRYPTPROTECT_UI_FORBIDDEN | CRYPTPROTECT_LOCAL_MACHINE;

DATA_BLOB blobOf(std::string_view bytes) {
    // Only read, whatever the type says.
    return {static_cast<DWORD>(bytes.size()),
            reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()))};
}

void take(const DATA_BLOB& given, std::string& out) {
    out.assign(reinterpret_cast<const char*>(given.pbData), given.cbData);
    wipe(given.pbData, given.cbData);
    LocalFree(given.pbData);
}

}  // namespace

bool protectForMachine(std::string_view secret, std::string& blob) {
    SysLibrary library;
    std::string reason;
    decltype(&CryptProtectData) protect = nullptr;
    if (!library.open(inSystemFolder(L"\\crypt32.dll"), reason)) return false;
    library.find("CryptProtectData", protect);
    DATA_BLOB in = blobOf(secret), out = {};
    if (!protect || !protect(&in, nullptr, nullptr, nullptr, nullptr, kHow, &out)) return false;
    take(out, blob);
    return true;
}

bool unprotectOfMachine(std::string_view blob, std::string& secret) {
    SysLibrary library;
    std::string reason;
    decltype(&CryptUnprotectData) unprotect = nullptr;
    if (!library.open(inSystemFolder(L"\\crypt32.dll"), reason)) return false;
    library.find("CryptUnprotectData", unprotect);
    DATA_BLOB in = blobOf(blob), out = {};
    if (!unprotect || !unprotect(&in, nullptr, nullptr, nullptr, nullptr, kHow, &out)) return false;
    take(out, secret);
    return true;
}

}  // namespace tv::plat
