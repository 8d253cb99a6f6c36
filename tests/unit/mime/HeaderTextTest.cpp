// Text on its way into a message: its charset, in header and HTML; encoded words and folding;
// parameters.
#include "mime/HeaderText.h"

#include "mime/CharsetChoice.h"
#include "mime/HtmlMeta.h"
#include "mime/ParameterText.h"
#include "mime/tvContentType.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

// Of 255 characters that have no shorter form.
const std::string kLongName = replaceAll(std::string(255, 'x'), "x", "漢");

void expectWords(const std::string& field, const std::string& text) {
    EXPECT_EQ(decodeWords(field), text);
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
        {"José", "=?iso-8859-1?Q?Jos=E9?=", 28591},
        {"Győr", "=?iso-8859-2?Q?Gy=F5r?=", 28592},
        {"あ", "=?shift_jis?B?gqA=?=", 932},
        {"ع", "=?windows-1256?B?2g==?=", 1256},
        {"я", "=?koi8-r?B?0Q==?=", 20866},
        {"я", "=?iso-8859-5?Q?=EF?=", 28595},
        {"ő", "=?utf-8?Q?=C5=91?=", 28591},
        {"é", "=?utf-8?Q?=C3=A9?=", 0},
        {"é", "=?utf-8?Q?=C3=A9?=", 20127},
        {"é", "=?utf-8?Q?=C3=A9?=", 65000},
        {"é, (b) \"c\"", "=?utf-8?Q?=C3=A9,_(b)_\"c\"?="},
        {"!<>@^`~{|}=?_ \t\x7F", "=?iso-8859-1?Q?!<>@^`~{|}=3D=3F=5F_=09=7F?=", 28591},
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
                                       "bell\a", "del\x7F", ""};
    for (unsigned byte = 0; byte < 256; ++byte) {
        values.back() += codePageToUtf8(28591, std::string(1, static_cast<char>(byte)));
    }
    for (uint32_t size = 1; size < 200; size += 2) {
        values.push_back("é");
        for (const uint8_t byte : randomBytesOf(size, size)) {
            values.back() += letters[byte % std::size(letters)];
        }
        values.back() += 'x';
    }
    for (const std::string& value : values) {
        for (const uint32_t page : {65001u, 28591u, 28592u, 932u, 936u}) {
            std::string out(value.size() % 38, '.');
            appendHeaderText(value, page, out.size(), out);
            expectWords(out, value);
        }
    }
}

TEST(ContentType, writesItsParametersInOrder) {
    _tvContentType type("Multipart/Signed");
    type.setCharset(65001);
    type.boundary = "--1";
    type.name = "számla \"1\".png";
    type.protocol = "application/pkcs7-signature";
    type.micalg = "sha-256";
    type.smimeType = "signed-data";
    type.type = type.reportType = "of other types";
    type.others = {{"x", "a \"b\" \\"}, {"empty", ""}};
    EXPECT_EQ(type.value(28592),
              "multipart/signed; charset=utf-8; boundary=\"--1\";\r\n "
              "name=\"=?iso-8859-2?Q?sz=E1mla_=221=22.png?=\"; "
              "protocol=\"application/pkcs7-signature\"; micalg=sha-256; smime-type=signed-data; "
              "x=\"a \\\"b\\\" \\\\\"");
    type = _tvContentType("image/png");
    type.name = kLongName;
    expectWords(type.value(65001), type.name);
}

TEST(ContentDisposition, namesFilesInAFormForTheirCharacters) {
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
    }
}

// Pieces in order, put together, give the name; no line is too long (RFC 2231 section 3).
TEST(ContentDisposition, cutsVeryLongNamesIntoPieces) {
    for (const std::string& name : {kLongName, "é" + std::string(775, 'a')}) {
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

// The other steps of the ladder are rows of whole messages.
TEST(CharsetChoice, prefersWhatTheMessageNames) {
    const std::pair<uint32_t, _tvEmailCommon> rows[] = {
        {1250, {0, 1250, 0, ""}},
        {28591, {0, 1251, 0, ""}},
        {1252, {0, 0, 1252, ""}},
        {28592, {20127, 0, 0, "ISO-8859-2"}},
    };
    for (auto [chosen, common] : rows) {
        LogNull log;
        chooseCharsetIfNecessary(log, "é", common);
        EXPECT_EQ(common.codePage, chosen);
    }
}

// The first is what the tag names; it alone is replaced.
TEST(MetaCharset, isFoundAndReplaced) {
    const char* const rows[][2] = {
        {"utf-8", "<meta charset='utf-8'/>"},
        {"utf-8", "<META CHARSET=utf-8>"},
        {"utf-8", "<meta\r\n charset = \" utf-8 \" >"},
        {"koi8-u", "<meta http-equiv=\"Content-Type\" content=\"text/html; charset = koi8-u\">"},
        {"Latin1", "<meta content='text/html;charset=Latin1; x=y' HTTP-EQUIV=content-type>"},
        {"big5", "<meta http-equiv=content-type content=text/html;charset=big5>"},
        {"koi8-r", "<meta name=viewport content=\"charset=no\"><meta charset=koi8-r>"},
        {"big5", "<!-- <meta charset=a> --><meta charset=big5>"},
        {"utf-7", "<meta content=\"a>b\" charset=\"utf-7\">"},
        {"", "<!-- <meta charset=a>"},
        {"", "<metal charset=x><x meta charset=y>"},
        {"", "<meta http-equiv=refresh content=\"5; charset=x\">"},
        {"", "<meta"},
        {"", "<meta http-equiv=content-type content=\"charset"},
        {"", "<meta charset=\"\">"},
    };
    for (const auto& [charset, html] : rows) {
        LogNull log;
        std::string out = html;
        EXPECT_EQ(correctMetaCharset(log, html, 28592, out), *charset != '\0') << html;
        EXPECT_EQ(out, *charset ? replaceAll(html, charset, "iso-8859-2") : html);
    }
}

TEST(MetaCharset, isBroughtIntoLineInEveryTag) {
    LogNull log;
    std::string out;
    ASSERT_TRUE(correctMetaCharset(log, "<meta charset=UTF8><meta charset=big5><meta charset=x>",
                                   65001, out));
    EXPECT_EQ(out, "<meta charset=UTF8><meta charset=utf-8><meta charset=utf-8>");
    EXPECT_FALSE(correctMetaCharset(log, std::string(out), 65001, out));
}

}  // namespace
}  // namespace tv::test
