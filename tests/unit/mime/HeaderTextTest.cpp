// Text on its way into a message: encoded words and folding, parameters, the charset in HTML.
#include "mime/HeaderText.h"

#include <regex>

#include "base/Base64.h"
#include "base/CodePage.h"
#include "mime/CharsetNames.h"
#include "mime/HtmlMeta.h"
#include "mime/ParameterText.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

// The field holds the text in encoded words, each decoded for itself, so a character that was cut
// in two comes out wrong; and no line is too long for them.
void expectWords(const std::string& field, const std::string& text) {
    static const std::regex kWord("=\\?([^?]*)\\?([QB])\\?([^?]*)\\?=");
    std::string decoded;
    for (std::sregex_iterator word(field.begin(), field.end(), kWord), end; word != end; ++word) {
        const std::string coded = word->str(3);
        const std::string bytes = word->str(2) == "B" ? textOf(*base64Decode(coded, coded.size()))
                                                      : decodeQ(replaceAll(coded, "_", " "));
        decoded += codePageToUtf8(codePageOfCharset(word->str(1)), bytes);
    }
    EXPECT_EQ(decoded, text);
    for (const std::string& line : linesOf(field)) {
        EXPECT_LE(line.size(), 76u);
    }
}

// As it stands behind "Subject: ".
TEST(HeaderText, isFoldedOrWrittenInEncodedWords) {
    const std::string x60(60, 'x');
    const std::string x200(200, 'x');
    const struct {
        std::string text;
        std::string lines;
        uint32_t codePage = 65001;
    } rows[] = {
        {"=?utf-8?Q?a?=", "=?utf-8?Q?a?="},
        {x60 + " 123456", x60 + " 123456"},
        {x60 + " 123456 y", x60 + " 123456\r\n y"},
        {x60 + " 1234567", x60 + "\r\n 1234567"},
        {x60 + "123456   y\tz", x60 + "123456\r\n   y\tz"},
        {"a " + x200, "a\r\n " + x200},
        {"あ", "=?shift_jis?B?gqA=?=", 932},
        {"ع", "=?windows-1256?B?2g==?=", 1256},
        {"я", "=?koi8-r?B?0Q==?=", 20866},
        {"я", "=?iso-8859-5?Q?=EF?=", 28595},
        {"é", "=?utf-8?Q?=C3=A9?=", 20127},
        {"é", "=?utf-8?Q?=C3=A9?=", 65000},
        {"!\"(),<>@^`~{|}=?_ \t\x7F", "=?utf-8?Q?!\"(),<>@^`~{|}=3D=3F=5F_=09=7F?="},
    };
    for (const auto& [text, lines, codePage] : rows) {
        std::string out;
        appendHeaderText(text, codePage, 9, out);
        EXPECT_EQ(out, lines);
    }
}

// Texts of every mixture of character widths, written at every column, in pages of each kind; all
// characters of a page; and such as cannot be folded.
TEST(HeaderText, keepsWithinTheLineAndNeverCutsACharacter) {
    const char* const letters[] = {"a", " ", "é", "ő", "漢", "😀", "?", "=", "_"};
    std::vector<std::string> values = {std::string(999, 'x'), "a" + std::string(1500, ' ') + "b",
                                       "bell\a", "del\x7F",
                                       codePageToUtf8(28591, textOf(randomBytesOf(2000)))};
    for (uint32_t size = 1; size < 200; size += 2) {
        values.push_back("é");
        for (const uint8_t byte : randomBytesOf(size, size)) {
            values.back() += letters[byte % std::size(letters)];
        }
        values.back() += 'x';
    }
    for (const std::string& value : values) {
        for (const uint32_t page : {65001u, 28591u, 28592u, 932u, 936u}) {
            std::string out(value.size() % 76, '.');
            appendHeaderText(value, page, out.size(), out);
            expectWords(out, value);
        }
    }
}

TEST(FileName, hasAFormForItsCharacters) {
    const std::string rows[][2] = {
        {"", "x"},
        {"a \"b\"\\.txt", "x; filename=\"a \\\"b\\\"\\\\.txt\""},
        {"a\r\nX: y.txt", "x; filename=\"aX: y.txt\""},
        {std::string(800, 'a'), "x; filename=\"" + std::string(800, 'a') + "\""},
        {"é" + std::string(774, 'a'), "x;\r\n filename*=utf-8''%C3%A9" + std::string(774, 'a')},
        {"é%'*().txt", "x;\r\n filename*=utf-8''%C3%A9%25%27%2A%28%29.txt"},
    };
    for (const auto& [name, value] : rows) {
        EXPECT_EQ(dispositionValue("x", name), value);
        EXPECT_EQ(dispositionValue("x", name, isAscii(name)), value);
    }
    const std::string both = dispositionValue("x", "é\"漢\r\n.png", true);
    EXPECT_EQ(both, "x;\r\n filename*=utf-8''%C3%A9%22%E6%BC%A2.png;\r\n filename=\"_\\\"_.png\"");
}

// Pieces in order, put together, give the name; no line is too long (RFC 2231 section 3). Encoded
// words do for the parameter that older readers know. 255 characters have no shorter form.
TEST(FileName, isCutIntoPiecesWhereItIsVeryLong) {
    const std::string k255 = replaceAll(std::string(255, 'x'), "x", "漢");
    for (const std::string& name : {k255, "é" + std::string(775, 'a'), std::string(801, 'a')}) {
        expectWords(wordParameter("name", name, 65001), name);
        const std::vector<std::string> lines = linesOf(dispositionValue("x", name) + ';');
        std::string joined;
        for (size_t i = 1; i < lines.size(); ++i) {
            const std::string start = " filename*" + std::to_string(i - 1) + "*=";
            EXPECT_LE(lines[i].size(), 76u);
            EXPECT_TRUE(lines[i].starts_with(start) && lines[i].ends_with(';')) << lines[i];
            joined += lines[i].substr(start.size(), lines[i].size() - start.size() - 1);
        }
        EXPECT_EQ(decodeQ(joined, '%'), "utf-8''" + name);
    }
}

// What stands in square brackets, and that alone, is replaced.
TEST(MetaCharset, isFoundAndReplaced) {
    for (const std::string row :
         {"<meta charset='[utf-8]'/>", "<META\r\n CHARSET = \" [utf-8] \" >",
          "<meta content=\"a>b\" charset=\"[utf-7]\">",
          "<meta http-equiv=\"Content-Type\" content=\"text/html; charset = [koi8-u]\">",
          "<meta content='text/html;charset=[Latin1]; x=y' HTTP-EQUIV=content-type>",
          "<meta http-equiv=content-type content=text/html;charset=[big5]>",
          "<meta name=viewport content=\"charset=no\"><meta charset=[koi8-r]>",
          "<!-- <meta charset=a> --><meta charset=[big5]>",
          "<meta charset=Latin2><meta charset=[x]><meta charset=[x]>", "<!-- <meta charset=a>",
          "<metal charset=x><x meta charset=y>",
          "<meta http-equiv=refresh content=\"5; charset=x\">",
          "<meta http-equiv=content-type content=\"charset", "<meta charset=\"\">"}) {
        LogNull log;
        const std::string html = std::regex_replace(row, std::regex("[\\[\\]]"), "");
        std::string out = html;
        EXPECT_EQ(correctMetaCharset(log, html, 28592, out), html != row) << row;
        EXPECT_EQ(out, std::regex_replace(row, std::regex("\\[[^\\]]*\\]"), "iso-8859-2"));
        EXPECT_FALSE(correctMetaCharset(log, std::string(out), 28592, out)) << row;
    }
}

}  // namespace
}  // namespace tv::test
