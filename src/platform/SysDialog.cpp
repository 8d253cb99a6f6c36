// The text of a message as one line, for systems and sessions without a box to show it in.
#include "platform/SysDialog.h"

namespace tv::plat {

std::string asOneLine(std::string_view text) {
    std::string line;
    line.reserve(text.size());
    for (const char c : text) {
        const bool isBlank = static_cast<unsigned char>(c) <= ' ' || c == '\x7F';
        if (!isBlank) {
            line += c;
        } else if (!line.empty() && line.back() != ' ') {
            line += ' ';
        }
    }
    if (!line.empty() && line.back() == ' ') line.pop_back();
    return line;
}

}  // namespace tv::plat
