// Encoded words, folding, and what may not stand in a header at all.
#include "mime/HeaderText.h"

#include <algorithm>

#include "base/Ascii.h"
#include "base/Base64.h"
#include "base/CodePage.h"
#include "mime/CharsetNames.h"

namespace tv {
namespace {

// No charset of ours for encoded words: few readers know it.
constexpr uint32_t kCodePageUtf7 = 65000;

constexpr bool isControl(char c) {
    const auto byte = static_cast<uint8_t>(c);
    return byte < 32 || byte == 127;
}

// RFC 2047 section 4.2. In a phrase the specials are coded, too; section 5 (3) would code more.
constexpr bool isPlainInQ(char c, WordPlace place) {
    if (place == WordPlace::Phrase &&
        std::string_view("()<>@,;:\\\"[]").find(c) != std::string_view::npos) {
        return false;
    }
    return c >= 33 && c <= 126 && c != '=' && c != '?' && c != '_';
}

std::string wordFrame(std::string_view charset, char coding, std::string_view text) {
    std::string word = "=?";
    word += charset.empty() ? "utf-8" : charset;
    word += '?';
    word += coding;
    word += '?';
    word += text;
    word += "?=";
    return word;
}

std::string wordQ(std::string_view bytes, std::string_view charset, WordPlace place) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const char c : bytes) {
        if (c == ' ') {
            text += '_';
        } else if (isPlainInQ(c, place)) {
            text += c;
        } else {
            const auto byte = static_cast<uint8_t>(c);
            text += '=';
            text += kDigits[byte >> 4];
            text += kDigits[byte & 15];
        }
    }
    return wordFrame(charset, 'Q', text);
}

// Bytes of the character at the front; of one byte and its followers where the text is malformed.
size_t characterLength(std::string_view utf8) {
    size_t length = 1;
    // RFC 3629 section 3: no more than four, and all but the first begin with the bits 10.
    while (length < utf8.size() && length < 4 && (utf8[length] & 0xC0) == 0x80) {
        ++length;
    }
    return length;
}

// Makes words of pieces of one text.
class WordMaker {
public:
    WordMaker(std::string_view utf8, uint32_t codePage, WordPlace place) : place_(place) {
        std::string probe;
        const bool fits = codePage != 0 && codePage != kCodePageUtf7 &&
                          codePage != kCodePageAscii && utf8ToCodePage(codePage, utf8, probe);
        codePage_ = fits ? codePage : kCodePageUtf8;
    }

    std::string word(std::string_view utf8) const {
        const std::string_view charset = charsetName(codePage_);
        std::string bytes(utf8);
        if (codePage_ != kCodePageUtf8) utf8ToCodePage(codePage_, utf8, bytes);
        return choosesQ(codePage_) ? wordQ(bytes, charset, place_) : encodedWordB(bytes, charset);
    }

private:
    WordPlace place_;
    uint32_t codePage_;
};

// A piece of a text that may be folded in front of its leading white space.
size_t foldablePiece(std::string_view text) {
    size_t length = 0;
    while (length < text.size() && isBlank(text[length])) {
        ++length;
    }
    while (length < text.size() && !isBlank(text[length])) {
        ++length;
    }
    return length;
}

bool foldsIntoLines(std::string_view text, size_t column) {
    while (!text.empty()) {
        const size_t piece = foldablePiece(text);
        if (column + piece > kLongestMailLine) return false;
        text.remove_prefix(piece);
        column = 0;
    }
    return true;
}

void appendFolded(std::string_view text, size_t column, std::string& out) {
    bool first = true;
    while (!text.empty()) {
        const size_t piece = foldablePiece(text);
        if (!first && column + piece > kHeaderLine) {
            out += "\r\n";
            column = 0;
        }
        out += text.substr(0, piece);
        text.remove_prefix(piece);
        column += piece;
        first = false;
    }
}

}  // namespace

bool choosesQ(uint32_t codePage) {
    switch (codePage) {
        case 932:    // Shift JIS
        case 936:    // GBK
        case 949:    // Korean
        case 950:    // Big5
        case 874:    // Thai
        case 1361:   // Johab
        case 52936:  // HZ
        case kCodePageUtf16Le:
        case kCodePageUtf16Be:
        case 28596:  // Arabic
        case 1256:   // Arabic of Windows
        case 20866:  // KOI8-R
        case 21866:  // KOI8-U
            return false;
        default:
            // Between them: ISO 2022, EUC, GB 18030 and their kin.
            return codePage < 50001 || codePage > 64999;
    }
}

std::string encodedWordB(std::string_view bytes, std::string_view charset) {
    return wordFrame(charset, 'B', base64Encode(bytes));
}

std::string encodedWords(std::string_view utf8, uint32_t codePage, WordPlace place,
                         size_t firstRoom, size_t room) {
    const WordMaker maker(utf8, codePage, place);
    std::string out;
    size_t roomNow = firstRoom;
    while (!utf8.empty()) {
        size_t taken = characterLength(utf8);
        std::string word = maker.word(utf8.substr(0, taken));
        while (taken < utf8.size()) {
            const size_t next = taken + characterLength(utf8.substr(taken));
            std::string longer = maker.word(utf8.substr(0, next));
            if (longer.size() > roomNow) break;
            word = std::move(longer);
            taken = next;
        }
        if (!out.empty()) out += "\r\n ";
        out += word;
        utf8.remove_prefix(taken);
        roomNow = room;
    }
    return out;
}

bool needsEncoding(std::string_view text) {
    return !isAscii(text) ||
           std::any_of(text.begin(), text.end(), [](char c) { return c != '\t' && isControl(c); });
}

void appendHeaderText(std::string_view utf8, uint32_t codePage, size_t column, std::string& out) {
    const bool plain = !needsEncoding(utf8);
    if (plain && column + utf8.size() <= kHeaderLine) {
        out += utf8;
        return;
    }
    if (plain && foldsIntoLines(utf8, column)) {
        appendFolded(utf8, column, out);
        return;
    }
    constexpr size_t kTooFarRight = 36;  // a word of the longest charset name would not fit
    if (column > kTooFarRight) {
        out += "\r\n ";
        column = 1;
    }
    const size_t left = kHeaderLine - column;
    out += encodedWords(utf8, codePage, WordPlace::Text, std::min(left, kEncodedWord));
}

std::string onOneLine(std::string_view text) {
    const bool isOne = std::none_of(text.begin(), text.end(),
                                    [](char c) { return c == '\r' || c == '\n' || c == '\0'; });
    if (isOne) return std::string(text);
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const size_t blanks = i;
        bool breaks = false;
        for (; i < text.size() && isBlank(text[i]); ++i) {
            breaks = breaks || text[i] == '\r' || text[i] == '\n';
        }
        out += breaks ? std::string_view(" ") : text.substr(blanks, i - blanks);
        if (i < text.size() && text[i] != '\0') out += text[i];
    }
    return out;
}

std::string withoutControls(std::string_view text) {
    std::string out(text);
    if (std::none_of(text.begin(), text.end(), isControl)) return out;
    std::replace(out.begin(), out.end(), '\t', ' ');
    std::erase_if(out, isControl);
    return out;
}

}  // namespace tv
