// The ways in which mails hide what is not for the reader: text for the list of messages
// (preheaders), what is for one mail program alone, or for telephones.
#include "mime/HtmlStyle.h"

#include <algorithm>

#include "base/Ascii.h"

namespace tv {
namespace {

// "0", "0px", "0.0em", but not "0.5px".
bool isZero(std::string_view value) {
    if (!value.starts_with('0')) return false;
    const size_t end = std::min(value.find_first_not_of("0."), value.size());
    return end == value.size() || !isAsciiDigit(value[end]);
}

Letters lettersOf(std::string_view size) {
    if (isZero(size)) return Letters::None;
    const bool relative = size.ends_with("em") || size.ends_with('%') || size.ends_with("er");
    return relative || equalsIgnoreCase(size, "inherit") ? Letters::AsAround : Letters::Shown;
}

void apply(std::string_view name, std::string_view value, HtmlStyle& style) {
    const auto is = [&](std::string_view wanted, std::string_view what) {
        return equalsIgnoreCase(name, wanted) && equalsIgnoreCase(value, what);
    };
    const bool vanishes = equalsIgnoreCase(name, "max-height") || equalsIgnoreCase(name, "opacity");
    style.hidden |= is("display", "none") || is("visibility", "hidden") || is("mso-hide", "all") ||
                    (vanishes && isZero(value));
    if (equalsIgnoreCase(name, "font-size")) style.letters = lettersOf(value);
    style.preformatted |= equalsIgnoreCase(name, "white-space") &&
                          startsWithIgnoreCase(value, "pre") && !is("white-space", "pre-line");
}

}  // namespace

HtmlStyle readHtmlStyle(std::string_view declarations) {
    HtmlStyle style;
    while (!declarations.empty()) {
        const std::string_view one = declarations.substr(0, declarations.find(';'));
        declarations.remove_prefix(std::min(one.size() + 1, declarations.size()));
        const size_t colon = one.find(':');
        if (colon == std::string_view::npos) continue;
        const std::string_view value = one.substr(colon + 1);
        apply(trimmed(one.substr(0, colon)), trimmed(value.substr(0, value.find('!'))), style);
    }
    return style;
}

}  // namespace tv
