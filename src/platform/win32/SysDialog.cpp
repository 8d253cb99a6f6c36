// The message box, and the debugger's output where a box would have no one to close it.
#include "platform/SysDialog.h"

#include <windows.h>

#include "platform/Replaceable.h"
#include "platform/win32/WidePath.h"

namespace tv::plat {
namespace {

// A service runs on a window station that no user ever sees: a message box there blocks for ever.
bool somebodyCanSee() {
    USEROBJECTFLAGS flags = {};
    const HWINSTA station = GetProcessWindowStation();
    return station &&
           GetUserObjectInformationW(station, UOI_FLAGS, &flags, sizeof flags, nullptr) &&
           (flags.dwFlags & WSF_VISIBLE) != 0;
}

class MessageBoxDialog final : public SysDialog {
public:
    void showError(const char* titleBytes, std::string_view text) override {
        if (somebodyCanSee()) {
            MessageBoxA(nullptr, toAnsi(text).c_str(), titleBytes, MB_OK);
        } else {
            OutputDebugStringA(toAnsi("emailsending: " + asOneLine(text) + "\n").c_str());
        }
    }
};

}  // namespace

SysDialog& sysDialog() {
    return Replaceable<SysDialog>::get<MessageBoxDialog>();
}

}  // namespace tv::plat
