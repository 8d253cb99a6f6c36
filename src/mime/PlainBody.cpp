// Line ends made CR LF on the way, and the search for a line too long for a body to go plain.
#include "mime/PlainBody.h"

#include <algorithm>

namespace tv {
namespace {

// Finds line ends from left to right with the library's fast search for one character.
class LineEnds {
public:
    explicit LineEnds(std::string_view text) : text_(text) {}

    // The next CR or LF at or behind the position, or the end. Positions only grow.
    size_t next(size_t at) {
        if (!searched_ || lineFeed_ < at) lineFeed_ = std::min(text_.find('\n', at), text_.size());
        searched_ = true;
        return at + std::min(text_.substr(at, lineFeed_ - at).find('\r'), lineFeed_ - at);
    }

private:
    std::string_view text_;
    size_t lineFeed_ = 0;
    bool searched_ = false;
};

}  // namespace

bool writePlainBody(std::string_view text, OutputStream& out) {
    size_t written = 0;
    LineEnds ends(text);
    for (size_t i = 0; (i = ends.next(i)) < text.size();) {
        const bool isPair = text.substr(i).starts_with("\r\n");
        i += isPair ? 2 : 1;
        if (isPair) continue;
        if (!out.write(text.substr(written, i - 1 - written)) || !out.write("\r\n")) return false;
        written = i;
    }
    return out.write(text.substr(written));
}

bool hasLongerLine(std::string_view text, size_t size) {
    while (text.size() > size) {
        size_t next = size + 1;  // behind the last line end that comes in time
        while (next > 0 && text[next - 1] != '\r' && text[next - 1] != '\n') {
            --next;
        }
        if (next == 0) return true;
        text.remove_prefix(next);
    }
    return false;
}

}  // namespace tv
