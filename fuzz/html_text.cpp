// Any bytes as HTML: a text that is not larger than they allow, without controls, with no blanks
// behind its lines, and valid UTF-8 where they are.
#include "Target.h"
#include "base/CodePage.h"
#include "mime/HtmlToText.h"

void tv::take(Input input) {
    const std::string_view html = textOf(input);
    std::string text = htmlToText(html);
    require(text.size() <= 2 * html.size() + size_t{64} * 1024);
    require(!isValidUtf8(html) || isValidUtf8(text));
    require(text.empty() || text.ends_with('\n'));
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view line = takeLine(rest);
        require(!line.ends_with(" \n"));
        for (const char c : line.substr(0, line.size() - 1)) {
            require(static_cast<uint8_t>(c) >= ' ' || c == '\t');
        }
    }
}
