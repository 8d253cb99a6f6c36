// The field's value put together: parameters in the order that readers are used to.
#include "mime/tvContentType.h"

#include "base/Ascii.h"
#include "base/CodePage.h"
#include "mime/CharsetNames.h"
#include "mime/HeaderText.h"
#include "mime/ParameterText.h"

namespace tv {
namespace {

void appendQuoted(std::string_view name, std::string_view value, std::string& out) {
    if (value.empty()) return;
    out += ' ' + std::string(name) + '=' + quotedString(withoutControls(value)) + ';';
}

void appendBare(std::string_view name, std::string_view value, std::string& out) {
    if (value.empty()) return;
    out += ' ' + std::string(name) + '=' + withoutControls(value) + ';';
}

}  // namespace

void _tvContentType::setMediaType(std::string_view media) {
    mediaType_ = asciiLower(trimmed(withoutControls(media)));
}

void _tvContentType::setCharset(uint32_t codePage) {
    charset_ = {codePage, codePage == 0 ? std::string() : std::string(charsetName(codePage))};
}

// Of the last two no RFC asks it; receivers have been seeing it.
bool _tvContentType::carriesCharset() const {
    return mediaType_.starts_with("text") || mediaType_ == "multipart/signed" ||
           mediaType_.starts_with("message");
}

std::string _tvContentType::value(uint32_t headerCodePage, bool flowed) const {
    std::string out = mediaType_;
    if (carriesCharset()) {
        const bool unset = charset_.name.empty();
        if (!unset) {
            out += "; charset=" + charset_.name;
        } else if (mediaType_.starts_with("text") &&
                   mediaType_.find("rfc822-headers") == std::string::npos) {
            out += "; charset=" + std::string(charsetName(kCodePageAscii));
        }
    }
    out += ';';
    if (!isMultipart()) appendQuoted("type", type, out);
    if (is("multipart/report")) appendQuoted("report-type", reportType, out);
    appendQuoted("boundary", boundary, out);
    if (!name.empty()) out += wordParameter("name", name, headerCodePage);
    appendQuoted("protocol", protocol, out);
    appendBare("micalg", micalg, out);
    appendBare("smime-type", smimeType, out);
    // RFC 3676 section 4
    if (flowed && formatFlowed && is("text/plain")) appendBare("format", "flowed", out);
    for (const auto& [parameter, text] : others) {
        appendQuoted(parameter, text, out);
    }
    std::string_view result = trimmed(out);
    if (result.ends_with(';')) result = trimmed(result.substr(0, result.size() - 1));
    return std::string(result);
}

}  // namespace tv
