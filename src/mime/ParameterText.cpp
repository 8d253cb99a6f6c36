// One text in the three forms that readers understand: quoted, as encoded words, and in pieces of
// RFC 2231.
#include "mime/ParameterText.h"

#include "base/Ascii.h"
#include "mime/HeaderText.h"

namespace tv {
namespace {

// Longer values are cut into pieces. Readers exist that know no pieces: no file name of ordinary
// length has them. A line could hold 998 (RFC 5322 section 2.1.1).
constexpr size_t kLongestWhole = 800;
// With " filename*10*=" and a coded character that begins at its end still 76 columns.
constexpr size_t kPiece = 58;

// RFC 2231 section 7: attribute-char.
constexpr bool isAttributeChar(char c) {
    return isAsciiAlnum(c) || std::string_view("!#$&+-.^_`|~").find(c) != std::string_view::npos;
}

std::string percentEncoded(char c) {
    if (isAttributeChar(c)) return std::string(1, c);
    constexpr char kDigits[] = "0123456789ABCDEF";
    const auto byte = static_cast<uint8_t>(c);
    return {'%', kDigits[byte >> 4], kDigits[byte & 15]};
}

// RFC 2231 section 4.1: the charset stands in the first piece alone.
std::string inPieces(std::string_view name, std::string_view utf8) {
    std::string out;
    size_t number = 0;
    std::string piece = "utf-8''";
    const auto close = [&] {
        out += "\r\n " + std::string(name) + '*' + std::to_string(number++) + "*=" + piece;
        piece.clear();
    };
    for (const char c : utf8) {
        if (piece.size() >= kPiece) {
            close();
            out += ';';
        }
        piece += percentEncoded(c);
    }
    close();
    return out;
}

}  // namespace

std::string quotedString(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + '"';
}

std::string wordParameter(std::string_view name, std::string_view utf8, uint32_t codePage) {
    const std::string text = withoutControls(utf8);
    const std::string start = ' ' + std::string(name) + '=';
    if (!needsEncoding(text) && text.size() <= kLongestWhole) {
        return start + quotedString(text) + ';';
    }
    const size_t room = kHeaderLine - start.size() - 3;  // two quotes and the semicolon
    return "\r\n" + start + '"' + encodedWords(text, codePage, WordPlace::Phrase, room, room) +
           "\";";
}

std::string extendedParameter(std::string_view name, std::string_view utf8) {
    const std::string text = withoutControls(utf8);
    if (!needsEncoding(text) && text.size() <= kLongestWhole) {
        return ' ' + std::string(name) + '=' + quotedString(text);
    }
    std::string whole = "\r\n " + std::string(name) + "*=utf-8''";
    for (const char c : text) {
        whole += percentEncoded(c);
    }
    return whole.size() <= kLongestWhole ? whole : inPieces(name, text);
}

std::string dispositionValue(std::string_view disposition, std::string_view fileName,
                             bool asciiToo) {
    std::string value(disposition);
    if (fileName.empty()) return value;
    value += ';' + extendedParameter("filename", fileName);
    const std::string text = withoutControls(fileName);
    if (!asciiToo || isAscii(text) || text.size() > kLongestWhole) return value;
    std::string ascii;
    for (const char c : text) {
        const auto byte = static_cast<uint8_t>(c);
        if (byte < 0x80) ascii += c;
        if (byte >= 0xC0) ascii += '_';  // the first of a character's bytes
    }
    // Which of two names counts is settled for HTTP alone (RFC 6266 section 4.3: the extended one).
    // Mail readers that go by the order take the first, so that here is the true one.
    return value + ";\r\n" + extendedParameter("filename", ascii);
}

}  // namespace tv
