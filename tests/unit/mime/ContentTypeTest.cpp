// Content-Type and Content-Disposition values, and the table of media types behind them.
#include "mime/MediaTypes.h"
#include "mime/ParameterText.h"
#include "mime/tvContentType.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

TEST(MediaTypes, ByExtension) {
    const struct {
        const char* path;
        const char* type;
    } cases[] = {
        {"photo.jpg", "image/jpeg"},
        {"C:\\pics\\logo.PNG", "image/png"},
        {"a.b.Csv", "text/csv"},
        {"x.cdf", "application/x-cdf"},
        {"x.p7m", "application/x-pkcs7-mime"},
        {"x.p7c", "application/x-pkcs7-mime"},
        {"x.pko", "application/ynd.ms-pkipko"},
        {"x.movie", "video/x-gi-movie"},
        {"x.xof", "x-world/x-vrml"},
        {"archive.7z", "application/octet-stream"},
        {"photo", "application/octet-stream"},
        {"dir.txt/photo", "application/octet-stream"},
        {"trailing.", "application/octet-stream"},
        {"", "application/octet-stream"},
        {".txt", "text/plain"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(mediaTypeOfPath(c.path), c.type) << c.path;
    }
}

TEST(ContentType, Values) {
    _tvContentType html("Text/HTML");
    EXPECT_EQ(html.value(65001), "text/html; charset=us-ascii");
    html.setCharset(65001);
    EXPECT_EQ(html.value(65001), "text/html; charset=utf-8");

    _tvContentType mixed("multipart/mixed");
    mixed.boundary = "------------000102030405060708090001";
    mixed.type = "not written";
    mixed.setCharset(28591);
    EXPECT_EQ(mixed.value(65001),
              "multipart/mixed; boundary=\"------------000102030405060708090001\"");

    _tvContentType image("image/png");
    image.setCharset(28591);
    image.name = "logo.png";
    EXPECT_EQ(image.value(28591), "image/png; name=\"logo.png\"");

    _tvContentType headers("text/rfc822-headers");
    EXPECT_EQ(headers.value(0), "text/rfc822-headers");
}

TEST(ContentType, AllParametersInOrder) {
    _tvContentType signedType("multipart/signed");
    signedType.setCharset(65001);
    signedType.protocol = "application/pkcs7-signature";
    signedType.micalg = "sha-256";
    signedType.smimeType = "signed-data";
    signedType.reportType = "only in reports";
    signedType.others = {{"x", "a \"b\" \\"}, {"empty", ""}};
    EXPECT_EQ(signedType.value(65001),
              "multipart/signed; charset=utf-8; protocol=\"application/pkcs7-signature\"; "
              "micalg=sha-256; smime-type=signed-data; x=\"a \\\"b\\\" \\\\\"");

    _tvContentType plain("text/plain");
    plain.formatFlowed = true;
    EXPECT_EQ(plain.value(0), "text/plain; charset=us-ascii; format=flowed");
    EXPECT_EQ(plain.value(0, false), "text/plain; charset=us-ascii");
}

TEST(ContentDisposition, FileNames) {
    const struct {
        std::string name;
        const char* value;
    } cases[] = {
        {"", "attachment"},
        {"report.txt", "attachment; filename=\"report.txt\""},
        {"a \"b\"\\.txt", "attachment; filename=\"a \\\"b\\\"\\\\.txt\""},
        {"a\r\nX: y.txt", "attachment; filename=\"aX: y.txt\""},
        {"é ő.txt", "attachment;\r\n filename*=utf-8''%C3%A9%20%C5%91.txt"},
        {"é%'*().txt", "attachment;\r\n filename*=utf-8''%C3%A9%25%27%2A%28%29.txt"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(dispositionValue("attachment", c.name), c.value);
    }
}

// Pieces in order, put together, give the name; no line is too long (RFC 2231 section 3).
TEST(ContentDisposition, VeryLongNamesComeInPieces) {
    std::string name;
    for (int i = 0; i < 255; ++i) {
        name += "漢";
    }
    const std::vector<std::string> lines = linesOf(dispositionValue("attachment", name));
    std::string joined;
    for (size_t i = 1; i < lines.size(); ++i) {
        EXPECT_LE(lines[i].size(), 76u);
        const std::string start = " filename*" + std::to_string(i - 1) + "*=";
        ASSERT_TRUE(lines[i].starts_with(start)) << lines[i];
        std::string piece = lines[i].substr(start.size());
        if (i + 1 < lines.size()) {
            ASSERT_TRUE(piece.ends_with(";"));
            piece.pop_back();
        }
        joined += piece;
    }
    EXPECT_TRUE(joined.starts_with("utf-8''"));
    EXPECT_EQ(decodeQ(replaceAll(joined.substr(7), "%", "=")), name);
}

TEST(ContentType, NamesOutsideAsciiAreWords) {
    _tvContentType type("application/pdf");
    type.name = "számla \"1\".pdf";
    EXPECT_EQ(type.value(28592),
              "application/pdf;\r\n name=\"=?iso-8859-2?Q?sz=E1mla_=221=22.pdf?=\"");
    type.name.clear();
    for (int i = 0; i < 255; ++i) {
        type.name += "漢";
    }
    const std::string value = type.value(65001);
    EXPECT_EQ(decodeWords(value), type.name);
    for (const std::string& line : linesOf(value)) {
        EXPECT_LE(line.size(), 76u);
    }
}

}  // namespace
}  // namespace tv::test
