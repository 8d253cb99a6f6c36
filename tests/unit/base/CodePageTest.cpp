// Text between code pages and UTF-8.
#include "base/CodePage.h"

#include <gtest/gtest.h>

#include "base/CodePageTables.h"
#include "platform/SysCodePage.h"

namespace tv {
namespace {

TEST(CodePage, knowsWellFormedUtf8) {
    // The ends of each length and around the surrogates.
    for (const char* good : {"", "plain", "\xC2\x80 \xDF\xBF", "\xE0\xA0\x80 \xED\x9F\xBF",
                             "\xEE\x80\x80 \xEF\xBF\xBF", "\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF"}) {
        EXPECT_TRUE(isValidUtf8(good)) << good;
    }
    // Lone, overlong, surrogates, too large, cut, broken by a letter.
    for (const char* bad :
         {"\x80", "\xC0\x80", "\xC1\xBF", "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80",
          "\xED\xBF\xBF", "\xF4\x90\x80\x80", "\xF5\x80\x80\x80", "\xF8\x88\x80\x80\x80", "a\xC3",
          "a\xE2\x82", "a\xF0\x9F\x98", "\xE2\x82z", "\xFF"}) {
        EXPECT_FALSE(isValidUtf8(bad)) << bad;
        for (const uint32_t page : {20127u, 28591u, 1252u, 437u, 65001u, 1200u, 932u}) {
            std::string out;
            EXPECT_FALSE(utf8ToCodePage(page, bad, out)) << page << ": " << bad;
        }
    }
}

enum class Way { Both, ToPage, FromPage };  // what the page does not hold, bytes without meaning

TEST(CodePage, converts) {
    const struct {
        const char* name;
        uint32_t page;
        Way way;
        std::string_view utf8, bytes;
    } rows[] = {
        {"us-ascii", 20127, Way::Both, "plain ~", "plain ~"},
        {"iso-8859-1", 28591, Way::Both, "Jos\u00E9 \u00FF\u0080\u009F", "Jos\xE9 \xFF\x80\x9F"},
        {"windows-1252", 1252, Way::Both, "\u20AC\u2019\u00E9", "\x80\x92\xE9"},
        {"utf-8", 65001, Way::Both, "\u00E9\U0001F600", "\xC3\xA9\xF0\x9F\x98\x80"},
        {"utf-16", 1200, Way::Both, "\u00E9\U0001F600", {"\xE9\x00\x3D\xD8\x00\xDE", 6}},
        {"big-endian", 1201, Way::Both, "\u00E9\U0001F600", {"\x00\xE9\xD8\x3D\xDE\x00", 6}},
        {"shift-jis by the system", 932, Way::Both, "\u65E5\u672C", "\x93\xFA\x96\x7B"},
        {"no look-alike for o with double acute", 28591, Way::ToPage, "f\u0151", "f?"},
        {"the same in windows-1252", 1252, Way::ToPage, "f\u0151", "f?"},
        {"e acute in us-ascii", 20127, Way::ToPage, "caf\u00E9!", "caf?!"},
        {"beyond the first plane", 1252, Way::ToPage, "\U0001F600.", "?."},
        {"a code point equal to an unused byte", 1252, Way::ToPage, "\u0081", "?"},
        {"Japanese page, Korean letter", 932, Way::ToPage, "a\uAC00b", "a?b"},
        {"only the bad line suffers", 932, Way::ToPage, "\u65E5\n\uAC00\n", "\x93\xFA\n?\n"},
        {"no page at all", 0, Way::ToPage, "a\u00E9", "a?"},
        {"Windows' name for its OEM page", 1, Way::ToPage, "a\u00E9", "a?"},
        {"Windows' name for its thread's page", 3, Way::ToPage, "a\u00E9", "a?"},
        {"no such page", 12345, Way::ToPage, "a\u00E9", "a?"},
        {"us-ascii, high byte", 20127, Way::FromPage, "a\uFFFDz", "a\xE9z"},
        {"windows-1252, unused byte", 1252, Way::FromPage, "\uFFFD", "\x81"},
        {"utf-8, cut", 65001, Way::FromPage, "a\uFFFD", "a\xC3"},
        {"utf-16, odd", 1200, Way::FromPage, "a\uFFFD", {"a\0b", 3}},
        {"utf-16, unpaired", 1200, Way::FromPage, "\uFFFDz", {"\x3D\xD8z\0", 4}},
        {"two second halves", 1201, Way::FromPage, "\uFFFD\uFFFD", "\xDE\x01\xDE\x02"},
        {"pair reversed", 1201, Way::FromPage, "\uFFFD\uFFFD", "\xDE\x01\xD8\x3D"},
        {"cut at the end of a line", 932, Way::FromPage, "\u65E5\n\uFFFD\n", "\x93\xFA\n\x93\n"},
        {"bytes of no such page", 12345, Way::FromPage, "a\uFFFD", "a\xE9"},
        {"bytes of no page at all", 0, Way::FromPage, "a\uFFFD", "a\xE9"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::string out;
        if (row.way != Way::ToPage) {
            EXPECT_EQ(codePageToUtf8(row.page, row.bytes), row.utf8);
        }
        if (row.way != Way::FromPage) {
            EXPECT_EQ(utf8ToCodePage(row.page, row.utf8, out), row.way == Way::Both);
            EXPECT_EQ(utf8ToCodePageLossy(row.page, row.utf8), row.bytes);
            EXPECT_TRUE(row.way != Way::Both || out == row.bytes);
        }
    }
    for (size_t size = 0; size < 200; ++size) {
        const std::string x(size, 'x'), y(size, 'y');
        ASSERT_EQ(codePageToUtf8(1252, x + '\xE9' + y), x + "\u00E9" + y);
        ASSERT_EQ(utf8ToCodePageLossy(1252, x + "\u00E9" + y), x + '\xE9' + y);
    }
}

// Windows follows older editions of a few pages; the names that mails carry mean the newer ones.
bool isKnownDifference(uint32_t page, unsigned byte) {
    return (page == 21866 && (byte == 0xAE || byte == 0xBE)) ||
           (page == 28597 && (byte == 0xA1 || byte == 0xA2)) || (page == 28598 && byte == 0xAF);
}

// The system's converter is an independent judge of our tables, as far as it knows a page.
TEST(CodePage, tablesAgreeWithTheSystem) {
    size_t compared = 0;
    for (const CodePageTable& table : codePageTables()) {
        for (unsigned byte = 128; byte < 256; ++byte) {
            const uint16_t code = table.high[byte - 128];
            const std::string bytes(1, static_cast<char>(byte));
            std::u16string system;
            if (code == 0) continue;
            EXPECT_EQ(utf8ToCodePageLossy(table.page, codePageToUtf8(table.page, bytes)), bytes);
            if (isKnownDifference(table.page, byte)) continue;
            if (!plat::systemToUtf16(table.page, bytes, system)) continue;
            EXPECT_EQ(system, std::u16string(1, code)) << table.page << " byte " << byte;
            ++compared;
        }
    }
    EXPECT_GT(compared, 2000u);
}

}  // namespace
}  // namespace tv
