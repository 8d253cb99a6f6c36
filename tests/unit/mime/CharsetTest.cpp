// The ladder of message charsets, and the META tag of HTML bodies.
#include "mime/CharsetChoice.h"
#include "mime/HtmlMeta.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

struct ChoiceCase {
    const char* name;
    uint32_t before;
    const char* text;
    uint32_t after;
    _tvEmailCommon more = {};
};

class CharsetChoice : public testing::TestWithParam<ChoiceCase> {};

TEST_P(CharsetChoice, Follows) {
    const ChoiceCase& c = GetParam();
    _tvEmailCommon common = c.more;
    common.codePage = c.before;
    LogNull log;
    chooseCharsetIfNecessary(c.text, common, log);
    EXPECT_EQ(common.codePage, c.after);
}

INSTANTIATE_TEST_SUITE_P(
    Table, CharsetChoice,
    testing::Values(
        ChoiceCase{"fresh_empty", 0, "", 0},  //
        ChoiceCase{"fresh_ascii", 0, "a", 20127}, ChoiceCase{"fresh_latin1", 0, "é", 28591},
        ChoiceCase{"fresh_latin2", 0, "ő", 28592}, ChoiceCase{"fresh_cjk", 0, "漢", 65001},
        ChoiceCase{"fresh_euro_is_in_neither", 0, "€", 65001},
        ChoiceCase{"fresh_both_latins_is_utf8", 0, "ñő", 65001},
        ChoiceCase{"detected_used", 0, "ő", 1250, {0, 1250, 0, ""}},
        ChoiceCase{"detected_not_enough", 0, "漢", 65001, {0, 1250, 0, ""}},
        ChoiceCase{"preferred_used", 0, "é", 1252, {0, 0, 1252, ""}},
        ChoiceCase{"ascii_stays", 20127, "a", 20127},
        ChoiceCase{"ascii_to_utf8", 20127, "é", 65001},
        ChoiceCase{"ascii_to_default", 20127, "é", 28591, {0, 0, 0, "ISO-8859-1"}},
        ChoiceCase{"default_not_enough", 20127, "ő", 65001, {0, 0, 0, "iso-8859-1"}},
        ChoiceCase{"latin1_stays", 28591, "ñ", 28591},
        ChoiceCase{"latin1_to_utf8", 28591, "ő", 65001},
        ChoiceCase{"utf8_stays", 65001, "é", 65001}, ChoiceCase{"utf16_stays", 1200, "é", 1200}),
    CaseName{});

struct MetaCase {
    const char* name;
    const char* html;
    const char* charset;
};

class MetaCharset : public testing::TestWithParam<MetaCase> {};

TEST_P(MetaCharset, IsFound) {
    EXPECT_EQ(findMetaCharset(GetParam().html), GetParam().charset);
}

// Everything but the name stays byte for byte.
TEST_P(MetaCharset, IsReplacedAlone) {
    const std::string html = GetParam().html;
    const std::string_view found = findMetaCharset(html);
    std::string out;
    LogNull log;
    if (found.empty()) {
        EXPECT_FALSE(correctMetaCharset(html, 28592, out, log));
        return;
    }
    const auto at = static_cast<size_t>(found.data() - html.data());
    std::string expected = html;
    expected.replace(at, found.size(), "iso-8859-2");
    ASSERT_TRUE(correctMetaCharset(html, 28592, out, log));
    EXPECT_EQ(out, expected);
    EXPECT_FALSE(correctMetaCharset(expected, 28592, out, log));
}

INSTANTIATE_TEST_SUITE_P(
    Table, MetaCharset,
    testing::Values(
        MetaCase{"short_form", "<html><meta charset=\"utf-8\">x", "utf-8"},
        MetaCase{"single_quotes", "<meta charset='utf-8'/>", "utf-8"},
        MetaCase{"no_quotes", "<META CHARSET=utf-8>", "utf-8"},
        MetaCase{"blanks", "<meta\r\n charset = \" utf-8 \" >", "utf-8"},
        MetaCase{"http_equiv",
                 "<meta http-equiv=\"Content-Type\" content=\"text/html; charset=windows-1250\">",
                 "windows-1250"},
        MetaCase{"http_equiv_other_order",
                 "<meta content='text/html;charset=Latin1; x=y' HTTP-EQUIV=content-type>",
                 "Latin1"},
        MetaCase{"unquoted_content",
                 "<meta http-equiv=content-type content=text/html;charset=big5>", "big5"},
        MetaCase{"behind_others",
                 "<meta name=viewport content=\"charset=no\"><meta charset=koi8-r>", "koi8-r"},
        MetaCase{"behind_a_comment", "<!-- <meta charset=a> --><meta charset=b>", "b"},
        MetaCase{"greater_sign_in_quotes", "<meta content=\"a>b\" charset=\"utf-7\">", "utf-7"},
        MetaCase{"only_in_a_comment", "<!-- <meta charset=a> -->", ""},
        MetaCase{"comment_never_ends", "<!-- <meta charset=a>", ""},
        MetaCase{"not_a_meta", "<metal charset=x><x meta charset=y>", ""},
        MetaCase{"text_alone", "charset=utf-8 <p>", ""},
        MetaCase{"refresh", "<meta http-equiv=refresh content=\"5; charset=x\">", ""},
        MetaCase{"cut_off_in_name", "<meta chars", ""}, MetaCase{"cut_off_behind_tag", "<meta", ""},
        MetaCase{"cut_off_in_content", "<meta http-equiv=content-type content=\"charset", ""},
        MetaCase{"empty_name", "<meta charset=\"\">", ""}),
    CaseName{});

TEST(MetaCharset, EveryTagIsBroughtIntoLine) {
    std::string out;
    LogNull log;
    ASSERT_TRUE(correctMetaCharset("<meta charset=UTF8><meta charset=big5><meta charset=x>", 65001,
                                   out, log));
    EXPECT_EQ(out, "<meta charset=UTF8><meta charset=utf-8><meta charset=utf-8>");
}

}  // namespace
}  // namespace tv::test
