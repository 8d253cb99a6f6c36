// Text between code pages and UTF-8 or UTF-16. Our own tables come first, then the system's pages;
// a page that neither knows is taken for ASCII.
#include "base/CodePage.h"

#include <algorithm>
#include <span>

#include "base/Ascii.h"
#include "base/CodePageTables.h"
#include "platform/SysCodePage.h"

namespace tv {
namespace {

constexpr char32_t kMalformed = 0xFFFFFFFF;  // beyond every code point
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
        // RFC 3629 section 4: C0 and C1 begin overlong forms alone, F5 and above nothing.
        bool good = lead >= 0xC2 && lead <= 0xF4 && length <= text.size();
        for (size_t i = 1; good && i < length; ++i) {
            good = (byte(i) & 0xC0) == 0x80;
            code = (code << 6) | (byte(i) & 0x3F);
        }
        // The lowest code point that needs so many bytes; below it the form is overlong.
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

// RFC 2781 section 2.1: ten bits to each surrogate. D7C0 is D800 with the 10000 already taken off.
void appendUtf16(char32_t code, std::u16string& out) {
    if (code >= 0x10000) {
        out += static_cast<char16_t>(0xD7C0 + (code >> 10));
        code = 0xDC00 + (code & 0x3FF);
    }
    out += static_cast<char16_t>(code);
}

// Takes one code point off the front of UTF-16 text; U+FFFD for an unpaired surrogate.
char32_t takeUtf16(std::u16string_view& text) {
    const char32_t first = text[0];
    text.remove_prefix(1);
    if (first < 0xD800 || first >= 0xE000) return first;
    if (first >= 0xDC00 || text.empty() || (text[0] & 0xFC00) != 0xDC00) return kReplacement;
    const char32_t second = text[0];
    text.remove_prefix(1);
    return 0x10000 + ((first & 0x3FF) << 10 | (second & 0x3FF));
}

std::string onlyWellFormed(std::string_view bytes) {
    if (isValidUtf8(bytes)) return std::string(bytes);
    std::string out;
    out.reserve(bytes.size());
    while (!bytes.empty()) {
        const char32_t code = takeUtf8(bytes);
        appendUtf8(code == kMalformed ? kReplacement : code, out);
    }
    return out;
}

std::string fromUtf16Bytes(std::string_view bytes, bool bigEndian) {
    std::u16string text;
    text.reserve(bytes.size() / 2);
    const size_t low = bigEndian ? 1 : 0;
    for (size_t i = 0; i + 2 <= bytes.size(); i += 2) {
        const auto byte = [&](size_t at) { return static_cast<uint8_t>(bytes[i + at]); };
        text += static_cast<char16_t>(byte(1 - low) << 8 | byte(low));
    }
    std::string out = utf16ToUtf8(text);
    if (bytes.size() % 2 != 0) appendUtf8(kReplacement, out);
    return out;
}

std::string toUtf16Bytes(std::u16string_view text, bool bigEndian) {
    std::string out;
    out.reserve(text.size() * 2);
    for (const char16_t unit : text) {
        const char high = static_cast<char>(unit >> 8);
        const char low = static_cast<char>(unit & 0xFF);
        out += bigEndian ? high : low;
        out += bigEndian ? low : high;
    }
    return out;
}

// The part of text up to its first byte above 127.
std::string_view asciiPrefix(std::string_view text) {
    // isAscii looks at whole words: long steps first, then the last bytes singly.
    constexpr size_t kStep = 64;
    size_t size = 0;
    while (text.size() - size >= kStep && isAscii(text.substr(size, kStep))) {
        size += kStep;
    }
    while (size < text.size() && static_cast<uint8_t>(text[size]) < 0x80) {
        ++size;
    }
    return text.substr(0, size);
}

// us-ascii: nothing above 127.
constexpr CodePageTable kAsciiTable = {kCodePageAscii, 0, {}, {}};

// The own table of a page; nullptr if there is none.
const CodePageTable* tableOf(uint32_t codePage) {
    if (codePage == kCodePageAscii) return &kAsciiTable;
    for (const CodePageTable& table : codePageTables()) {
        if (table.page == codePage) return &table;
    }
    return nullptr;
}

std::string tableToUtf8(const CodePageTable& table, std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() + bytes.size() / 8);
    while (!bytes.empty()) {
        const std::string_view plain = asciiPrefix(bytes);
        out += plain;
        bytes.remove_prefix(plain.size());
        if (bytes.empty()) break;
        const char32_t code = table.high[static_cast<uint8_t>(bytes[0]) - 128];
        appendUtf8(code != 0 ? code : kReplacement, out);
        bytes.remove_prefix(1);
    }
    return out;
}

// The byte of a code point above 127; 0 if the page does not hold it.
char byteOf(const CodePageTable& table, char32_t code) {
    const std::span order(table.byCode, table.used);
    const auto found = std::lower_bound(
        order.begin(), order.end(), code,
        [&](uint8_t index, char32_t wanted) { return table.high[index] < wanted; });
    if (found == order.end() || table.high[*found] != code) return 0;
    return static_cast<char>(128 + *found);
}

// Characters that the page does not hold become instead; with instead = 0 they end the conversion.
bool tableFromUtf8(const CodePageTable& table, std::string_view utf8, char instead,
                   std::string& out) {
    out.clear();
    out.reserve(utf8.size());
    while (!utf8.empty()) {
        const std::string_view plain = asciiPrefix(utf8);
        out += plain;
        utf8.remove_prefix(plain.size());
        if (utf8.empty()) break;
        char byte = byteOf(table, takeUtf8(utf8));
        if (byte == 0) byte = instead;
        if (byte == 0) return false;
        out += byte;
    }
    return true;
}

// Small numbers mean "the page of this system" to some systems; a text must not depend on that. 37
// (EBCDIC) is the lowest number of a real page, 42 stands for the characters of a symbol font.
bool systemMayKnow(uint32_t codePage) {
    return codePage >= 37 && codePage != 42;
}

bool fromSystem(uint32_t codePage, std::string_view bytes, std::string& out) {
    std::u16string text;
    if (!systemMayKnow(codePage) || !plat::systemToUtf16(codePage, bytes, text)) return false;
    out += utf16ToUtf8(text);
    return true;
}

bool toSystem(uint32_t codePage, std::string_view utf8, std::string& out) {
    return systemMayKnow(codePage) && plat::systemFromUtf16(codePage, utf8ToUtf16(utf8), out);
}

bool systemKnows(uint32_t codePage) {
    std::string out;
    return fromSystem(codePage, "A", out);
}

// The line at the front of text with its line feed, which no page uses inside a character.
std::string_view takeLine(std::string_view& text) {
    const size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end == std::string_view::npos ? end : end + 1);
    text.remove_prefix(line.size());
    return line;
}

// One by one the shortest sequence that the system understands; a byte that begins none is lost.
void lineFromSystem(uint32_t codePage, std::string_view line, std::string& out) {
    constexpr size_t kLongestCharacter = 4;  // of GB 18030
    while (!line.empty()) {
        size_t size = 1;
        while (size <= kLongestCharacter && !fromSystem(codePage, line.substr(0, size), out)) {
            ++size;
        }
        if (size > kLongestCharacter) {
            appendUtf8(kReplacement, out);
            size = 1;
        }
        line.remove_prefix(std::min(size, line.size()));
    }
}

void lineToSystem(uint32_t codePage, std::string_view line, std::string& out) {
    while (!line.empty()) {
        std::string_view rest = line;
        takeUtf8(rest);
        std::string converted;
        const bool good = toSystem(codePage, line.substr(0, line.size() - rest.size()), converted);
        out += good ? converted : "?";
        line = rest;
    }
}

}  // namespace

// RFC 3629 section 3.
void appendUtf8(char32_t code, std::string& out) {
    const auto add = [&](char32_t byte) { out += static_cast<char>(byte); };
    if (code < 0x80) {
        add(code);
    } else if (code < 0x800) {
        add(0xC0 | code >> 6);
        add(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        add(0xE0 | code >> 12);
        add(0x80 | (code >> 6 & 0x3F));
        add(0x80 | (code & 0x3F));
    } else {
        add(0xF0 | code >> 18);
        add(0x80 | (code >> 12 & 0x3F));
        add(0x80 | (code >> 6 & 0x3F));
        add(0x80 | (code & 0x3F));
    }
}

bool isValidUtf8(std::string_view bytes) {
    if (isAscii(bytes)) return true;
    while (!bytes.empty()) {
        if (takeUtf8(bytes) == kMalformed) return false;
    }
    return true;
}

std::string codePageToUtf8(uint32_t codePage, std::string_view bytes) {
    if (codePage == kCodePageUtf8) return onlyWellFormed(bytes);
    if (codePage == kCodePageUtf16Le) return fromUtf16Bytes(bytes, false);
    if (codePage == kCodePageUtf16Be) return fromUtf16Bytes(bytes, true);
    if (const CodePageTable* table = tableOf(codePage)) return tableToUtf8(*table, bytes);
    std::string out;
    if (fromSystem(codePage, bytes, out)) return out;
    if (!systemKnows(codePage)) return tableToUtf8(kAsciiTable, bytes);
    while (!bytes.empty()) {
        const std::string_view line = takeLine(bytes);
        // Only lines that do not convert as a whole are taken apart.
        if (!fromSystem(codePage, line, out)) lineFromSystem(codePage, line, out);
    }
    return out;
}

bool utf8ToCodePage(uint32_t codePage, std::string_view utf8, std::string& out) {
    if (const CodePageTable* table = tableOf(codePage)) return tableFromUtf8(*table, utf8, 0, out);
    if (!isValidUtf8(utf8)) return false;
    if (codePage == kCodePageUtf8) {
        out = utf8;
        return true;
    }
    if (codePage == kCodePageUtf16Le || codePage == kCodePageUtf16Be) {
        out = toUtf16Bytes(utf8ToUtf16(utf8), codePage == kCodePageUtf16Be);
        return true;
    }
    return toSystem(codePage, utf8, out);
}

std::string utf8ToCodePageLossy(uint32_t codePage, std::string_view utf8) {
    std::string out;
    if (const CodePageTable* table = tableOf(codePage)) {
        tableFromUtf8(*table, utf8, '?', out);
        return out;
    }
    if (utf8ToCodePage(codePage, utf8, out)) return out;
    const std::string wellFormed = onlyWellFormed(utf8);
    if (utf8ToCodePage(codePage, wellFormed, out)) return out;
    if (!systemKnows(codePage)) return utf8ToCodePageLossy(kCodePageAscii, wellFormed);
    out.clear();
    std::string_view rest = wellFormed;
    while (!rest.empty()) {
        const std::string_view line = takeLine(rest);
        std::string converted;
        if (toSystem(codePage, line, converted)) {
            out += converted;
        } else {
            lineToSystem(codePage, line, out);
        }
    }
    return out;
}

std::u16string utf8ToUtf16(std::string_view utf8) {
    std::u16string out;
    out.reserve(utf8.size());
    while (!utf8.empty()) {
        const char32_t code = takeUtf8(utf8);
        appendUtf16(code == kMalformed ? kReplacement : code, out);
    }
    return out;
}

std::string utf16ToUtf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size() + text.size() / 2);
    while (!text.empty()) {
        appendUtf8(takeUtf16(text), out);
    }
    return out;
}

}  // namespace tv
