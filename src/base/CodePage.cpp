#include "base/CodePage.h"

#include "base/Ascii.h"
#include "platform/SysCodePage.h"

namespace tv {
namespace {

constexpr char32_t kMalformed = 0xFFFFFFFF;
constexpr char32_t kReplacement = 0xFFFD;

// Takes one code point off the front of text, or one byte and kMalformed.
char32_t takeUtf8(std::string_view& text) {
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t lead = byte(0);
    size_t length = 1;
    char32_t code = lead;
    if (lead >= 0x80) {
        length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
        code = lead & (0xFFu >> (length + 1));
        bool good = lead >= 0xC2 && lead <= 0xF4 && length <= text.size();
        for (size_t i = 1; good && i < length; ++i) {
            good = (byte(i) & 0xC0) == 0x80;
            code = (code << 6) | (byte(i) & 0x3F);
        }
        constexpr char32_t kLowest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (!good || code < kLowest[length] || code > 0x10FFFF ||
            (code >= 0xD800 && code < 0xE000)) {
            code = kMalformed;
            length = 1;
        }
    }
    text.remove_prefix(length);
    return code;
}

}  // namespace

bool isValidUtf8(std::string_view bytes) {
    if (isAscii(bytes)) return true;
    while (!bytes.empty()) {
        if (takeUtf8(bytes) == kMalformed) return false;
    }
    return true;
}

std::u16string utf8ToUtf16(std::string_view utf8) {
    std::u16string out;
    out.reserve(utf8.size());
    while (!utf8.empty()) {
        char32_t code = takeUtf8(utf8);
        if (code == kMalformed) code = kReplacement;
        if (code >= 0x10000) {
            code -= 0x10000;
            out += static_cast<char16_t>(0xD800 + (code >> 10));
            out += static_cast<char16_t>(0xDC00 + (code & 0x3FF));
        } else {
            out += static_cast<char16_t>(code);
        }
    }
    return out;
}

}  // namespace tv
