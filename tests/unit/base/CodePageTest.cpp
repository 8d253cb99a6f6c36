// Text between code pages and UTF-8.
#include "base/CodePage.h"

#include <gtest/gtest.h>

#include "base/CodePageTables.h"
#include "platform/SysCodePage.h"

namespace tv {
namespace {

struct Conversion {
    const char* name;
    uint32_t page;
    std::string_view utf8, bytes;
};

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

TEST(CodePage, convertsBothWaysWithoutLoss) {
    const Conversion rows[] = {
        {"us-ascii", 20127, "plain ~", "plain ~"},
        {"iso-8859-1", 28591, "Jos\u00E9 \u00FF\u0080\u009F", "Jos\xE9 \xFF\x80\x9F"},
        {"iso-8859-2", 28592, "\u0151 \u0171 \u00E9", "\xF5 \xFB \xE9"},
        {"windows-1252", 1252, "\u20AC\u2019\u00E9", "\x80\x92\xE9"},
        {"utf-8", 65001, "\u00E9\U0001F600", "\xC3\xA9\xF0\x9F\x98\x80"},
        {"utf-16", 1200, "\u00E9\U0001F600", {"\xE9\x00\x3D\xD8\x00\xDE", 6}},
        {"utf-16 big-endian", 1201, "\u00E9\U0001F600", {"\x00\xE9\xD8\x3D\xDE\x00", 6}},
        {"shift-jis by the system", 932, "\u65E5\u672C", "\x93\xFA\x96\x7B"},
    };
    for (const Conversion& row : rows) {
        std::string out;
        EXPECT_TRUE(utf8ToCodePage(row.page, row.utf8, out)) << row.name;
        EXPECT_EQ(out, row.bytes) << row.name;
        EXPECT_EQ(utf8ToCodePageLossy(row.page, row.utf8), row.bytes) << row.name;
        EXPECT_EQ(codePageToUtf8(row.page, row.bytes), row.utf8) << row.name;
    }
    for (size_t size = 0; size < 200; ++size) {
        const std::string x(size, 'x'), y(size, 'y');
        ASSERT_EQ(codePageToUtf8(1252, x + '\xE9' + y), x + "\u00E9" + y);
        ASSERT_EQ(utf8ToCodePageLossy(1252, x + "\u00E9" + y), x + '\xE9' + y);
    }
}

TEST(CodePage, whatThePageDoesNotHold) {
    const Conversion rows[] = {
        {"no look-alike for o with double acute", 28591, "f\u0151", "f?"},
        {"the same in windows-1252", 1252, "f\u0151", "f?"},
        {"e acute in us-ascii", 20127, "caf\u00E9!", "caf?!"},
        {"quotes in iso-8859-2", 28592, "\u201Ex\u201D", "?x?"},
        {"beyond the first plane", 1252, "\U0001F600.", "?."},
        {"a code point equal to an unused byte", 1252, "\u0081", "?"},
        {"Japanese page, Korean letter", 932, "a\uAC00b", "a?b"},
        {"only the bad line suffers", 932, "\u65E5\n\uAC00\n", "\x93\xFA\n?\n"},
        {"no page at all", 0, "a\u00E9", "a?"},
        {"what Windows takes for the OEM page", 1, "a\u00E9", "a?"},
        {"what Windows takes for the thread's page", 3, "a\u00E9", "a?"},
        {"no such page", 12345, "a\u00E9", "a?"},
    };
    for (const Conversion& row : rows) {
        std::string out;
        EXPECT_FALSE(utf8ToCodePage(row.page, row.utf8, out)) << row.name;
        EXPECT_EQ(utf8ToCodePageLossy(row.page, row.utf8), row.bytes) << row.name;
    }
}

TEST(CodePage, bytesWithoutMeaning) {
    const Conversion rows[] = {
        {"us-ascii", 20127, "a\uFFFDz", "a\xE9z"},
        {"windows-1252, unused", 1252, "\uFFFD", "\x81"},
        {"utf-8, cut", 65001, "a\uFFFD", "a\xC3"},
        {"utf-16, odd", 1200, "a\uFFFD", {"a\0b", 3}},
        {"utf-16, unpaired", 1200, "\uFFFDz", {"\x3D\xD8z\0", 4}},
        {"utf-16, two second halves", 1201, "\uFFFD\uFFFD", "\xDE\x01\xDE\x02"},
        {"utf-16, pair reversed", 1201, "\uFFFD\uFFFD", "\xDE\x01\xD8\x3D"},
        {"shift-jis, cut at the end of a line", 932, "\u65E5\n\uFFFD\n", "\x93\xFA\n\x93\n"},
        {"no such page", 12345, "a\uFFFD", "a\xE9"},
        {"no page at all", 0, "a\uFFFD", "a\xE9"},
    };
    for (const Conversion& row : rows) {
        EXPECT_EQ(codePageToUtf8(row.page, row.bytes), row.utf8) << row.name;
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
