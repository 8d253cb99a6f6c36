// Values of header fields: encoded words and folding, parameters, media types.
#include "mime/HeaderText.h"

#include "mime/MediaTypes.h"
#include "mime/ParameterText.h"
#include "mime/tvContentType.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

std::string repeated(size_t count, const std::string& text) {
    std::string out;
    while (count-- != 0) {
        out += text;
    }
    return out;
}

void expectWords(const std::string& field, const std::string& text) {
    EXPECT_EQ(decodeWords(field), text);
    for (const std::string& line : linesOf(field)) {
        EXPECT_LE(line.size(), 76u);
    }
}

TEST(HeaderText, isWrittenInEncodedWords) {
    const struct {
        const char* text;
        uint32_t codePage;
        const char* words;
        WordPlace place = WordPlace::Text;
    } rows[] = {
        {"José", 28591, "=?iso-8859-1?Q?Jos=E9?="},
        {"Győr", 28592, "=?iso-8859-2?Q?Gy=F5r?="},
        {"あ", 932, "=?shift_jis?B?gqA=?="},
        {"ع", 1256, "=?windows-1256?B?2g==?="},
        {"я", 20866, "=?koi8-r?B?0Q==?="},
        {"я", 28595, "=?iso-8859-5?Q?=EF?="},
        {"ő", 28591, "=?utf-8?Q?=C5=91?="},
        {"é", 0, "=?utf-8?Q?=C3=A9?="},
        {"é", 20127, "=?utf-8?Q?=C3=A9?="},
        {"é", 65000, "=?utf-8?Q?=C3=A9?="},
        {"é, (b) \"c\"", 65001, "=?utf-8?Q?=C3=A9,_(b)_\"c\"?="},
        {"é, (b) \"c\"", 65001, "=?utf-8?Q?=C3=A9=2C_=28b=29_=22c=22?=", WordPlace::Phrase},
        {"!<>@^`~{|}=?_ \t\x7F", 28591, "=?iso-8859-1?Q?!<>@^`~{|}=3D=3F=5F_=09=7F?="},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(encodedWords(row.text, row.codePage, row.place), row.words);
    }
    std::string all;
    for (unsigned byte = 0; byte < 256; ++byte) {
        all += static_cast<char>(byte);
    }
    expectWords(encodedWords(codePageToUtf8(28591, all), 28591, WordPlace::Text),
                codePageToUtf8(28591, all));
}

// Texts of every mixture of character widths, written at every column, in pages of each kind; and
// such as cannot be folded.
TEST(HeaderText, keepsWithinTheLineAndNeverCutsACharacter) {
    const char* const letters[] = {"a", " ", "é", "ő", "漢", "😀", "?", "=", "_"};
    std::vector<std::string> values = {std::string(999, 'x'), "a" + std::string(1500, ' ') + "b",
                                       "bell\a", "del\x7F"};
    uint32_t seed = 1;
    for (size_t size = 1; size < 200; size += 2) {
        values.push_back("é");
        for (size_t i = 0; i < size; ++i) {
            seed = seed * 1664525 + 1013904223;
            values.back() += letters[(seed >> 16) % std::size(letters)];
        }
        values.back() += 'x';
    }
    for (const std::string& value : values) {
        for (const uint32_t page : {65001u, 28591u, 28592u, 932u, 936u}) {
            const size_t column = value.size() % 38;
            std::string out(column, '.');
            appendHeaderText(value, page, column, out);
            expectWords(out, value);
        }
    }
}

TEST(HeaderText, foldsAtWhiteSpace) {
    const std::string x60(60, 'x');
    const std::string x200(200, 'x');
    const std::string rows[][2] = {
        // value, lines behind "Subject: "
        {x60 + " 123456", x60 + " 123456"},
        {x60 + " 1234567", x60 + "\r\n 1234567"},
        {x200, x200},
        {"a " + x200, "a\r\n " + x200},
        {x60 + "123456   y\tz", x60 + "123456\r\n   y\tz"},
        {"=?utf-8?Q?a?=", "=?utf-8?Q?a?="},
    };
    for (const auto& [value, lines] : rows) {
        std::string out;
        appendHeaderText(value, 65001, 9, out);
        EXPECT_EQ(out, lines);
    }
}

TEST(MediaTypes, areThoseOfTheExtension) {
    const char* const rows[][2] = {
        {"C:\\pics\\a.b.PNG", "image/png"},
        {"x.cdf", "application/x-cdf"},
        {"x.p7m", "application/x-pkcs7-mime"},
        {"x.pko", "application/ynd.ms-pkipko"},
        {"x.movie", "video/x-gi-movie"},
        {"x.xof", "x-world/x-vrml"},
        {".txt", "text/plain"},
        {"archive.7z", "application/octet-stream"},
        {"dir.txt/photo", "application/octet-stream"},
        {"trailing.", "application/octet-stream"},
    };
    for (const auto& [path, type] : rows) {
        EXPECT_EQ(mediaTypeOfPath(path), type) << path;
    }
}

TEST(ContentType, writesItsParametersInOrder) {
    _tvContentType type("Text/Plain");
    type.formatFlowed = true;
    EXPECT_EQ(type.value(0), "text/plain; charset=us-ascii; format=flowed");
    EXPECT_EQ(type.value(0, false), "text/plain; charset=us-ascii");
    EXPECT_EQ(_tvContentType("text/rfc822-headers").value(0), "text/rfc822-headers");
    type = _tvContentType("multipart/mixed");
    type.boundary = "--1";
    type.type = "not written";
    type.setCharset(28591);
    EXPECT_EQ(type.value(0), "multipart/mixed; boundary=\"--1\"");
    type = _tvContentType("multipart/signed");
    type.setCharset(65001);
    type.protocol = "application/pkcs7-signature";
    type.micalg = "sha-256";
    type.smimeType = "signed-data";
    type.reportType = "only in reports";
    type.others = {{"x", "a \"b\" \\"}, {"empty", ""}};
    EXPECT_EQ(type.value(0),
              "multipart/signed; charset=utf-8; protocol=\"application/pkcs7-signature\"; "
              "micalg=sha-256; smime-type=signed-data; x=\"a \\\"b\\\" \\\\\"");
    type = _tvContentType("image/png");
    type.setCharset(28591);
    type.name = "számla \"1\".png";
    EXPECT_EQ(type.value(28592), "image/png;\r\n name=\"=?iso-8859-2?Q?sz=E1mla_=221=22.png?=\"");
    type.name = repeated(255, "漢");
    expectWords(type.value(65001), type.name);
}

TEST(ContentDisposition, namesFilesInAFormForTheirCharacters) {
    const std::string rows[][2] = {
        {"", "x"},
        {"a \"b\"\\.txt", "x; filename=\"a \\\"b\\\"\\\\.txt\""},
        {"a\r\nX: y.txt", "x; filename=\"aX: y.txt\""},
        {std::string(800, 'a'), "x; filename=\"" + std::string(800, 'a') + "\""},
        {"é%'*().txt", "x;\r\n filename*=utf-8''%C3%A9%25%27%2A%28%29.txt"},
    };
    for (const auto& [name, value] : rows) {
        EXPECT_EQ(dispositionValue("x", name), value);
    }
}

// Pieces in order, put together, give the name; no line is too long (RFC 2231 section 3).
TEST(ContentDisposition, cutsVeryLongNamesIntoPieces) {
    for (const std::string& name : {repeated(255, "漢"), std::string(801, 'a')}) {
        std::string coded = dispositionValue("x", name) + ';';
        for (size_t i = 0, at = 2; at < coded.size(); ++i) {
            const std::string start = "\r\n filename*" + std::to_string(i) + "*=";
            ASSERT_EQ(coded.substr(at, start.size()), start);
            coded.erase(at, start.size());
            const size_t end = coded.find(';', at);
            EXPECT_LE(start.size() - 2 + end + 1 - at, 76u);
            coded.erase(end, 1);
            at = end;
        }
        EXPECT_EQ(coded.substr(0, 9), "x;utf-8''");
        EXPECT_EQ(decodeQ(coded.substr(9), '%'), name);
    }
}

}  // namespace
}  // namespace tv::test
