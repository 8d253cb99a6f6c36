#include "mime/HeaderText.h"

#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

TEST(EncodedWord, EachByteInQ) {
    std::string all;
    for (int byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    const std::string word = encodedWordQ(all, "x");
    EXPECT_EQ(word.substr(0, 5), "=?x?Q");
    EXPECT_EQ(decodeQ(word.substr(6, word.size() - 8)), all);
    EXPECT_EQ(encodedWordQ("!<>@^`~{|}", "x"), "=?x?Q?!<>@^`~{|}?=");
    EXPECT_EQ(encodedWordQ("=?_ \t\x7F\xE9", "x"), "=?x?Q?=3D=3F=5F_=09=7F=E9?=");
}

TEST(EncodedWord, Frames) {
    EXPECT_EQ(encodedWordB("Jos\xC3\xA9", "utf-8"), "=?utf-8?B?Sm9zw6k=?=");
    EXPECT_EQ(encodedWordQ("a", ""), "=?utf-8?Q?a?=");
    EXPECT_EQ(encodedWordB("", ""),
              "=?utf-8?B?"
              "?=");
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

struct WordCase {
    const char* name;
    const char* text;
    uint32_t codePage;
    WordPlace place;
    const char* words;
};

class EncodedWords : public testing::TestWithParam<WordCase> {};

TEST_P(EncodedWords, AreWritten) {
    const WordCase& c = GetParam();
    EXPECT_EQ(encodedWords(c.text, c.codePage, c.place), c.words);
}

INSTANTIATE_TEST_SUITE_P(
    Table, EncodedWords,
    testing::Values(
        WordCase{"utf8_q", "José", 65001, WordPlace::Phrase, "=?utf-8?Q?Jos=C3=A9?="},
        WordCase{"latin1_q", "José", 28591, WordPlace::Text, "=?iso-8859-1?Q?Jos=E9?="},
        WordCase{"latin2_q", "Győr", 28592, WordPlace::Text, "=?iso-8859-2?Q?Gy=F5r?="},
        WordCase{"japanese_b", "あ", 932, WordPlace::Text, "=?shift_jis?B?gqA=?="},
        WordCase{"falls_back_to_utf8", "ő", 28591, WordPlace::Text, "=?utf-8?Q?=C5=91?="},
        WordCase{"no_page_yet", "é", 0, WordPlace::Text, "=?utf-8?Q?=C3=A9?="},
        WordCase{"ascii_page", "é", 20127, WordPlace::Text, "=?utf-8?Q?=C3=A9?="},
        WordCase{"utf7_counts_as_utf8", "é", 65000, WordPlace::Text, "=?utf-8?Q?=C3=A9?="},
        WordCase{"specials_in_text", "é, (b)", 65001, WordPlace::Text, "=?utf-8?Q?=C3=A9,_(b)?="},
        WordCase{"specials_in_phrase", "é, (b) \"c\"", 65001, WordPlace::Phrase,
                 "=?utf-8?Q?=C3=A9=2C_=28b=29_=22c=22?="}),
    CaseName{});

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

struct FoldCase {
    const char* name;
    std::string value;
    std::vector<std::string> lines;  // behind "Subject: "
};

class Folding : public testing::TestWithParam<FoldCase> {};

TEST_P(Folding, AtWhiteSpace) {
    std::string out;
    appendHeaderText(GetParam().value, 65001, 9, out);
    EXPECT_EQ(linesOf(out), GetParam().lines);
}

const std::string kTen = "123456789 ";

INSTANTIATE_TEST_SUITE_P(
    Table, Folding,
    testing::Values(
        FoldCase{"short", "Hello", {"Hello"}},
        FoldCase{
            "exactly_full", std::string(60, 'x') + " 123456", {std::string(60, 'x') + " 123456"}},
        FoldCase{"one_over", std::string(60, 'x') + " 1234567", {std::string(60, 'x'), " 1234567"}},
        FoldCase{"long_word_stays_whole", std::string(200, 'x'), {std::string(200, 'x')}},
        FoldCase{"long_word_behind_short",
                 "a " + std::string(200, 'x'),
                 {"a", " " + std::string(200, 'x')}},
        FoldCase{"several_blanks_stay",
                 std::string(66, 'x') + "   y\tz",
                 {std::string(66, 'x'), "   y\tz"}},
        FoldCase{"looks_encoded", "=?utf-8?Q?a?=", {"=?utf-8?Q?a?="}}),
    CaseName{});

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
