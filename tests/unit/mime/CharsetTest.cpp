// The ladder of message charsets, and the META tag of HTML bodies.
#include "mime/CharsetChoice.h"
#include "mime/HtmlMeta.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

TEST(CharsetChoice, climbsTheLadder) {
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

// The first is what the tag names; it alone is replaced.
TEST(MetaCharset, isFoundAndReplaced) {
    const char* const rows[][2] = {
        {"utf-8", "<html><meta charset=\"utf-8\">x"},
        {"utf-8", "<meta charset='utf-8'/>"},
        {"utf-8", "<META CHARSET=utf-8>"},
        {"utf-8", "<meta\r\n charset = \" utf-8 \" >"},
        {"koi8-u", "<meta http-equiv=\"Content-Type\" content=\"text/html; charset=koi8-u\">"},
        {"Latin1", "<meta content='text/html;charset=Latin1; x=y' HTTP-EQUIV=content-type>"},
        {"big5", "<meta http-equiv=content-type content=text/html;charset=big5>"},
        {"koi8-r", "<meta name=viewport content=\"charset=no\"><meta charset=koi8-r>"},
        {"big5", "<!-- <meta charset=a> --><meta charset=big5>"},
        {"utf-7", "<meta content=\"a>b\" charset=\"utf-7\">"},
        {"", "<!-- <meta charset=a>"},
        {"", "<metal charset=x><x meta charset=y>"},
        {"", "charset=utf-8 <p>"},
        {"", "<meta http-equiv=refresh content=\"5; charset=x\">"},
        {"", "<meta chars"},
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
