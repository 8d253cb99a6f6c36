#include "mime/PlainBody.h"

#include <algorithm>

namespace tv {

bool writePlainBody(std::string_view text, bool repairLineEnds, bool dotStuffing,
                    OutputStream& out) {
    size_t written = 0;
    const auto writeUpTo = [&](size_t end, std::string_view then) {
        const bool good = out.write(text.substr(written, end - written)) && out.write(then);
        written = end;
        return good;
    };
    bool lineStart = true;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (lineStart && dotStuffing && c == '.' && !writeUpTo(i, ".")) return false;
        lineStart = c == '\n';
        if (!repairLineEnds || (c != '\r' && c != '\n')) continue;
        lineStart = true;
        if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
            ++i;
            continue;
        }
        if (!writeUpTo(i, "\r\n")) return false;
        written = i + 1;
    }
    return out.write(text.substr(written));
}

size_t longestLine(std::string_view text) {
    size_t longest = 0;
    size_t start = 0;
    while (start <= text.size()) {
        const size_t end = std::min(text.find_first_of("\r\n", start), text.size());
        longest = std::max(longest, end - start);
        start = end + 1;
    }
    return longest;
}

}  // namespace tv
