// Conversions by way of UTF-16, each step wiped. Upper case is that of single characters, as NTLM
// knows it.
#include "mail/sasl/NtlmText.h"

#include <string>

#include "base/CodePage.h"
#include "platform/SysWipe.h"

namespace tv::ntlm {
namespace {

// Lower-case letters from first to last, every step-th of them, and the way to their capitals.
struct LetterRange {
    char16_t first;
    char16_t last;
    uint8_t step;
    int16_t distance;
};

constexpr LetterRange kLetters[] = {
    {0x61, 0x7A, 1, -32},    {0xE0, 0xF6, 1, -32},    {0xF8, 0xFE, 1, -32},
    {0xFF, 0xFF, 1, 121},    {0x101, 0x12F, 2, -1},   {0x133, 0x137, 2, -1},
    {0x13A, 0x148, 2, -1},   {0x14B, 0x177, 2, -1},   {0x17A, 0x17E, 2, -1},
    {0x1A1, 0x1A5, 2, -1},   {0x1B0, 0x1B0, 1, -1},   {0x1CE, 0x1DC, 2, -1},
    {0x1DF, 0x1EF, 2, -1},   {0x1F9, 0x21F, 2, -1},   {0x223, 0x233, 2, -1},
    {0x3AC, 0x3AC, 1, -38},  {0x3AD, 0x3AF, 1, -37},  {0x3B1, 0x3C1, 1, -32},
    {0x3C2, 0x3C2, 1, -31},  {0x3C3, 0x3CB, 1, -32},  {0x3CC, 0x3CC, 1, -64},
    {0x3CD, 0x3CE, 1, -63},  {0x430, 0x44F, 1, -32},  {0x450, 0x45F, 1, -80},
    {0x461, 0x481, 2, -1},   {0x48B, 0x4BF, 2, -1},   {0x4C2, 0x4CE, 2, -1},
    {0x4CF, 0x4CF, 1, -15},  {0x4D1, 0x52F, 2, -1},   {0x561, 0x586, 1, -48},
    {0x1E01, 0x1E95, 2, -1}, {0x1EA1, 0x1EFF, 2, -1},
};

template <class Text>
void wipeText(Text& text) {
    plat::wipe(text.data(), text.size() * sizeof(text[0]));
}

SecureBuffer littleEndian(std::u16string_view text) {
    SecureBuffer out(text.size() * 2);
    for (size_t i = 0; i < text.size(); ++i) {
        out[2 * i] = static_cast<uint8_t>(text[i] & 0xFF);
        out[2 * i + 1] = static_cast<uint8_t>(text[i] >> 8);
    }
    return out;
}

std::u16string upperUtf16(std::string_view utf8) {
    std::u16string text = utf8ToUtf16(utf8);
    for (char16_t& c : text) {
        c = upper(c);
    }
    return text;
}

}  // namespace

char16_t upper(char16_t c) {
    for (const LetterRange& range : kLetters) {
        if (c < range.first) return c;
        if (c <= range.last && (c - range.first) % range.step == 0) {
            return static_cast<char16_t>(c + range.distance);
        }
    }
    return c;
}

SecureBuffer utf16Le(std::string_view utf8) {
    std::u16string text = utf8ToUtf16(utf8);
    SecureBuffer out = littleEndian(text);
    wipeText(text);
    return out;
}

SecureBuffer upperUtf16Le(std::string_view utf8) {
    std::u16string text = upperUtf16(utf8);
    SecureBuffer out = littleEndian(text);
    wipeText(text);
    return out;
}

SecureBuffer oemText(uint32_t codePage, std::string_view utf8) {
    std::string text = utf8ToCodePageLossy(codePage, utf8);
    SecureBuffer out;
    out.append(std::string_view(text));
    wipeText(text);
    return out;
}

SecureBuffer upperOemText(uint32_t codePage, std::string_view utf8) {
    std::u16string wide = upperUtf16(utf8);
    std::string narrow = utf16ToUtf8(wide);
    SecureBuffer out = oemText(codePage, narrow);
    wipeText(wide);
    wipeText(narrow);
    return out;
}

}  // namespace tv::ntlm
