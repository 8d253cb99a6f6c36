// Tells the user of the host about a failure that no export can report.
#pragma once

#include <string>
#include <string_view>

#include "platform/Replaceable.h"

namespace tv::plat {

class SysDialog {
public:
    virtual ~SysDialog() = default;
    // Windows: a modal message box with an OK button; where nobody could see and close it (a
    // service), one line to the debugger output. Elsewhere: one line on stderr.
    // titleBytes goes to the system as it stands, in no particular encoding; the text is UTF-8.
    virtual void showError(const char* titleBytes, std::string_view text) = 0;
};

SysDialog& sysDialog();

// For tests: as replaceSysClock.
inline SysDialog* replaceSysDialog(SysDialog* dialog) {
    return Replaceable<SysDialog>::replace(dialog);
}

// A text of several indented lines as one line without control characters; the lines are parted by
// one blank each.
std::string asOneLine(std::string_view text);

}  // namespace tv::plat
