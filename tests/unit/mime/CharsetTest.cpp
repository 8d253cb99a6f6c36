// The ladder of message charsets, and the META tag of HTML bodies.
#include "mime/CharsetChoice.h"
#include "mime/HtmlMeta.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

TEST(CharsetChoice, Follows) {
    const struct {
        uint32_t before;
        const char* text;
        uint32_t after;
        _tvEmailCommon more = {};
    } rows[] = {
        {0, "", 0},
        {0, "a", 20127},
        {0, "é", 28591},
        {0, "ő", 28592},
        {0, "漢", 65001},
        {0, "€", 65001},
        {0, "ñő", 65001},
        {0, "ő", 1250, {0, 1250, 0, ""}},
        {0, "漢", 65001, {0, 1250, 0, ""}},
        {0, "é", 1252, {0, 0, 1252, ""}},
        {20127, "a", 20127},
        {20127, "é", 65001},
        {20127, "é", 28591, {0, 0, 0, "ISO-8859-1"}},
        {20127, "ő", 65001, {0, 0, 0, "iso-8859-1"}},
        {28591, "ñ", 28591},
        {28591, "ő", 65001},
        {65001, "é", 65001},
        {1200, "é", 1200},
    };
    for (const auto& row : rows) {
        _tvEmailCommon common = row.more;
        common.codePage = row.before;
        LogNull log;
        chooseCharsetIfNecessary(log, row.text, common);
        EXPECT_EQ(common.codePage, row.after) << row.before << ": " << row.text;
    }
}

// Found, and replaced alone: everything but the name stays byte for byte.
TEST(MetaCharset, IsFoundAndReplaced) {
    const struct {
        std::string html;
        const char* charset;
    } rows[] = {
        {"<html><meta charset=\"utf-8\">x", "utf-8"},
        {"<meta charset='utf-8'/>", "utf-8"},
        {"<META CHARSET=utf-8>", "utf-8"},
        {"<meta\r\n charset = \" utf-8 \" >", "utf-8"},
        {"<meta http-equiv=\"Content-Type\" content=\"text/html; charset=windows-1250\">",
         "windows-1250"},
        {"<meta content='text/html;charset=Latin1; x=y' HTTP-EQUIV=content-type>", "Latin1"},
        {"<meta http-equiv=content-type content=text/html;charset=big5>", "big5"},
        {"<meta name=viewport content=\"charset=no\"><meta charset=koi8-r>", "koi8-r"},
        {"<!-- <meta charset=a> --><meta charset=b>", "b"},
        {"<meta content=\"a>b\" charset=\"utf-7\">", "utf-7"},
        {"<!-- <meta charset=a> -->", ""},
        {"<!-- <meta charset=a>", ""},
        {"<metal charset=x><x meta charset=y>", ""},
        {"charset=utf-8 <p>", ""},
        {"<meta http-equiv=refresh content=\"5; charset=x\">", ""},
        {"<meta chars", ""},
        {"<meta", ""},
        {"<meta http-equiv=content-type content=\"charset", ""},
        {"<meta charset=\"\">", ""},
    };
    for (const auto& [html, charset] : rows) {
        SCOPED_TRACE(html);
        const std::string_view found = findMetaCharset(html);
        EXPECT_EQ(found, charset);
        std::string out;
        std::string expected = html;
        LogNull log;
        if (!found.empty()) {
            const auto at = static_cast<size_t>(found.data() - html.data());
            expected.replace(at, found.size(), "iso-8859-2");
            ASSERT_TRUE(correctMetaCharset(log, html, 28592, out));
            EXPECT_EQ(out, expected);
        }
        EXPECT_FALSE(correctMetaCharset(log, expected, 28592, out));
    }
}

TEST(MetaCharset, EveryTagIsBroughtIntoLine) {
    std::string out;
    LogNull log;
    ASSERT_TRUE(correctMetaCharset(log, "<meta charset=UTF8><meta charset=big5><meta charset=x>",
                                   65001, out));
    EXPECT_EQ(out, "<meta charset=UTF8><meta charset=utf-8><meta charset=utf-8>");
}

}  // namespace
}  // namespace tv::test
