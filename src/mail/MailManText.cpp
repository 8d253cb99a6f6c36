// Hosts lose schemes, slashes and capitals, those beyond ASCII too; methods of login are found in
// whatever stands around them.
#include "mail/MailManText.h"

#include <algorithm>
#include <string>

#include "base/Ascii.h"
#include "base/CodePage.h"

namespace tv::smtp {
namespace {

// Pages in which a byte from 0xC0 on may be part of a longer character.
bool isMultiByte(uint32_t codePage) {
    static constexpr uint32_t kPages[] = {932,   936,   949,   950,   1361,  20932,
                                          51932, 51936, 51949, 54936, 65000, kCodePageUtf8};
    return std::find(std::begin(kPages), std::end(kPages), codePage) != std::end(kPages);
}

// Capitals of the upper half stand 32 below their small letters in the Western pages.
std::string lowerBytes(std::string_view bytes) {
    std::string out = asciiLower(bytes);
    for (char& c : out) {
        const uint8_t byte = static_cast<uint8_t>(c);
        if (byte >= 0xC0 && byte <= 0xDF) c = static_cast<char>(byte + 0x20);
    }
    return out;
}

// The same letters as code points U+00C0 to U+00DE, whose UTF-8 is 0xC3 and one more byte.
std::string lowerCodePoints(std::string_view utf8) {
    std::string out = asciiLower(utf8);
    for (size_t i = 0; i + 1 < out.size(); ++i) {
        const uint8_t next = static_cast<uint8_t>(out[i + 1]);
        if (static_cast<uint8_t>(out[i]) == 0xC3 && next >= 0x80 && next <= 0x9E) {
            out[i + 1] = static_cast<char>(next + 0x20);
        }
    }
    return out;
}

XString lowered(const XString& text, uint32_t codePage) {
    std::string bytes;
    if (isAscii(text.utf8()) || isMultiByte(codePage) ||
        !utf8ToCodePage(codePage, text.utf8(), bytes)) {
        return XString(lowerCodePoints(text.utf8()));
    }
    return XString(codePageToUtf8(codePage, lowerBytes(bytes)));
}

}  // namespace

XString tidySmtpHost(const XString& host, uint32_t codePage) {
    XString tidy = lowered(host, codePage);
    tidy.replaceAll("http://", "");
    tidy.replaceAll("https://", "");
    tidy.replaceAll("/", "");
    tidy.trim();
    return tidy;
}

XString tidyAuthMethod(const XString& method) {
    XString tidy = method;
    tidy.trim();
    tidy.toUpperAscii();
    if (tidy.utf8().find(' ') == std::string_view::npos) return tidy;
    for (const std::string_view known : {"LOGIN", "PLAIN", "NTLM"}) {
        if (tidy.utf8().find(known) != std::string_view::npos) return XString(known);
    }
    return XString();
}

}  // namespace tv::smtp
