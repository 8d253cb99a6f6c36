// The field's value put together: parameters in the order that readers are used to.
#include "mime/tvContentType.h"

#include "base/Ascii.h"
#include "base/CodePage.h"
#include "mime/CharsetNames.h"
#include "mime/HeaderText.h"
#include "mime/ParameterText.h"

namespace tv {

void _tvContentType::setMediaType(std::string_view media) {
    mediaType_ = asciiLower(trimmed(withoutControls(media)));
}

void _tvContentType::setCharset(uint32_t codePage) {
    charset_ = {codePage, codePage == 0 ? std::string() : std::string(charsetName(codePage))};
}

std::string _tvContentType::value(uint32_t headerCodePage, bool flowed) const {
    std::string out = mediaType_;
    if (isText() && !withoutCharset) {
        out += "; charset=";
        out += charset_.name.empty() ? charsetName(kCodePageAscii) : charset_.name;
    }
    out += ';';
    if (!boundary.empty()) out += " boundary=" + quotedString(boundary) + ';';
    if (!name.empty()) out += wordParameter("name", name, headerCodePage);
    if (flowed && formatFlowed && is("text/plain")) out += " format=flowed;";  // RFC 3676 section 4
    out.pop_back();
    return out;
}

}  // namespace tv
