// Header text that is not plain ASCII as encoded words (RFC 2047), and folding of what is.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tv {

constexpr size_t kHeaderLine = 76;        // RFC 2047 section 2: a line that holds an encoded word
constexpr size_t kEncodedWord = 75;       // and the word itself
constexpr size_t kLongestMailLine = 998;  // RFC 5322 section 2.1.1

// True if text of this code page is better written as Q words than as B words.
bool choosesQ(uint32_t codePage);

// One word, of any length. An empty charset is utf-8.
std::string encodedWordB(std::string_view bytes, std::string_view charset);

// Where a word stands. A phrase (a display name, a quoted parameter) may not hold the characters
// that mean something there (RFC 2047 section 5, rule 3).
enum class WordPlace { Text, Phrase };

// UTF-8 text as encoded words in the given code page, or in utf-8 where that cannot carry it. Words
// are split between characters, have at most room characters (firstRoom the first one) and are
// joined by CR LF and a blank.
std::string encodedWords(std::string_view utf8, uint32_t codePage, WordPlace place,
                         size_t firstRoom = kEncodedWord, size_t room = kEncodedWord);

// True for text that may not stand in a header as it is: bytes above 127, control characters.
bool needsEncoding(std::string_view text);

// Appends an unstructured value to a line that already has column characters: as it is, folded at
// white space, or as encoded words where it needs them or has no place to fold.
void appendHeaderText(std::string_view utf8, uint32_t codePage, size_t column, std::string& out);

// Without CR, LF and NUL, which end a header line and with it what the host meant to say. A line
// break becomes, with the blanks around it, one blank: words do not grow together.
std::string onOneLine(std::string_view text);
// Without any control character; a tab becomes a blank.
std::string withoutControls(std::string_view text);

}  // namespace tv
