#include "mime/HeaderText.h"

#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

constexpr uint32_t kLatin1 = 28591;

TEST(EncodedWord, EachByteInQ) {
    const auto wordOf = [](std::string_view bytes) {
        return encodedWords(codePageToUtf8(kLatin1, bytes), kLatin1, WordPlace::Text, 999);
    };
    const std::string start = "=?iso-8859-1?Q?";
    for (int byte = 0; byte < 256; ++byte) {
        const std::string one(1, static_cast<char>(byte));
        const std::string word = wordOf(one);
        EXPECT_EQ(word.substr(0, start.size()), start) << byte;
        EXPECT_EQ(decodeQ(word.substr(start.size(), word.size() - start.size() - 2)), one);
    }
    EXPECT_EQ(wordOf("!<>@^`~{|}"), start + "!<>@^`~{|}?=");
    EXPECT_EQ(wordOf("=?_ \t\x7F\xE9"), start + "=3D=3F=5F_=09=7F=E9?=");
}

TEST(EncodedWord, Frames) {
    EXPECT_EQ(encodedWordB("Jos\xC3\xA9", "utf-8"), "=?utf-8?B?Sm9zw6k=?=");
    EXPECT_EQ(encodedWordB("", ""), std::string("=?utf-8?B?") + "?=");
}

TEST(EncodedWord, BOrQByCodePage) {
    for (const uint32_t page : {932u, 936u, 949u, 950u, 874u, 1361u, 52936u, 50001u, 64999u, 50220u,
                                1200u, 1201u, 28596u, 1256u, 20866u, 21866u}) {
        EXPECT_FALSE(choosesQ(page)) << page;
    }
    for (const uint32_t page :
         {0u, 437u, 1250u, 1252u, 1255u, 20127u, 28591u, 28592u, 28595u, 50000u, 65000u, 65001u}) {
        EXPECT_TRUE(choosesQ(page)) << page;
    }
}

TEST(EncodedWords, AreWritten) {
    constexpr auto kText = WordPlace::Text;
    constexpr auto kPhrase = WordPlace::Phrase;
    const struct {
        const char* text;
        uint32_t codePage;
        WordPlace place;
        const char* words;
    } rows[] = {
        {"José", 65001, kPhrase, "=?utf-8?Q?Jos=C3=A9?="},
        {"José", 28591, kText, "=?iso-8859-1?Q?Jos=E9?="},
        {"Győr", 28592, kText, "=?iso-8859-2?Q?Gy=F5r?="},
        {"あ", 932, kText, "=?shift_jis?B?gqA=?="},
        {"ő", 28591, kText, "=?utf-8?Q?=C5=91?="},
        {"é", 0, kText, "=?utf-8?Q?=C3=A9?="},
        {"é", 20127, kText, "=?utf-8?Q?=C3=A9?="},
        {"é", 65000, kText, "=?utf-8?Q?=C3=A9?="},
        {"é, (b)", 65001, kText, "=?utf-8?Q?=C3=A9,_(b)?="},
        {"é, (b) \"c\"", 65001, kPhrase, "=?utf-8?Q?=C3=A9=2C_=28b=29_=22c=22?="},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(encodedWords(row.text, row.codePage, row.place), row.words);
    }
}

// Texts of every mixture of character widths, written at every column, in pages of each kind.
TEST(EncodedWords, KeepWithinTheLineAndNeverCutACharacter) {
    const std::vector<std::string> letters = {"a", " ", "é", "ő", "漢", "😀", "?", "=", "_"};
    uint32_t seed = 1;
    for (const uint32_t page : {65001u, 28591u, 28592u, 932u, 936u}) {
        for (size_t size = 1; size < 200; size += 7) {
            std::string value;
            for (size_t i = 0; i < size; ++i) {
                seed = seed * 1664525 + 1013904223;
                value += letters[(seed >> 16) % letters.size()];
            }
            value = "é" + value + "x";
            const size_t column = size % 34;
            std::string out(column, '.');
            appendHeaderText(value, page, column, out);
            EXPECT_EQ(decodeWords(out), value);
            for (const std::string& line : linesOf(out)) {
                EXPECT_LE(line.size(), 76u);
            }
        }
    }
}

TEST(HeaderText, MalformedUtf8StillEnds) {
    const std::string broken(500, '\x80');
    std::string out;
    appendHeaderText(broken, 65001, 9, out);
    for (const std::string& line : linesOf(out)) {
        EXPECT_LE(line.size(), 76u);
    }
}

TEST(HeaderText, FoldsAtWhiteSpace) {
    const std::string x60(60, 'x');
    const std::string x200(200, 'x');
    const struct {
        std::string value;
        std::string lines;  // behind "Subject: "
    } rows[] = {
        {"Hello", "Hello"},
        {x60 + " 123456", x60 + " 123456"},
        {x60 + " 1234567", x60 + "\r\n 1234567"},
        {x200, x200},
        {"a " + x200, "a\r\n " + x200},
        {x60 + "123456   y\tz", x60 + "123456\r\n   y\tz"},
        {"=?utf-8?Q?a?=", "=?utf-8?Q?a?="},
    };
    for (const auto& row : rows) {
        std::string out;
        appendHeaderText(row.value, 65001, 9, out);
        EXPECT_EQ(out, row.lines);
    }
}

TEST(HeaderText, WhatCannotBeFoldedIsEncoded) {
    for (const std::string& value : {std::string(990, 'x'), "a" + std::string(1500, ' ') + "b",
                                     std::string("bell\a"), std::string("del\x7F")}) {
        std::string out = "Subject: ";
        appendHeaderText(value, 28591, out.size(), out);
        EXPECT_EQ(decodeWords(out), value);
        for (const std::string& line : linesOf(out)) {
            EXPECT_LE(line.size(), 76u);
        }
    }
}

}  // namespace
}  // namespace tv::test
