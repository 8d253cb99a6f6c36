#include "base/CodePage.h"

#include <gtest/gtest.h>

#include "base/CodePageTables.h"
#include "platform/SysCodePage.h"

namespace tv {
namespace {

TEST(CodePage, KnowsWellFormedUtf8) {
    const struct {
        const char* name;
        std::string_view bytes;
        bool valid;
    } rows[] = {
        {"empty", "", true},
        {"ascii", "plain", true},
        {"two bytes", "\xC2\x80 \xDF\xBF", true},
        {"three bytes", "\xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80 \xEF\xBF\xBF", true},
        {"four bytes", "\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF", true},
        {"lone continuation", "\x80", false},
        {"overlong two", "\xC0\x80", false},
        {"overlong two, last", "\xC1\xBF", false},
        {"overlong three", "\xE0\x9F\xBF", false},
        {"overlong four", "\xF0\x8F\xBF\xBF", false},
        {"first surrogate", "\xED\xA0\x80", false},
        {"last surrogate", "\xED\xBF\xBF", false},
        {"above the last code point", "\xF4\x90\x80\x80", false},
        {"five bytes", "\xF8\x88\x80\x80\x80", false},
        {"cut after one of two", "a\xC3", false},
        {"cut after two of three", "a\xE2\x82", false},
        {"cut after three of four", "a\xF0\x9F\x98", false},
        {"broken by a letter", "\xE2\x82z", false},
        {"FF", "\xFF", false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(isValidUtf8(row.bytes), row.valid) << row.name;
    }
}

struct Conversion {
    const char* name;
    uint32_t page;
    std::string_view utf8;
    std::string_view bytes;
};

const Conversion kExact[] = {
    {"us-ascii", 20127, "plain ~", "plain ~"},
    {"iso-8859-1", 28591, "Jos\u00E9 \u00FF", "Jos\xE9 \xFF"},
    {"iso-8859-1 controls", 28591, "\u0080\u009F", "\x80\x9F"},
    {"iso-8859-2", 28592, "\u0151 \u0171 \u00E9", "\xF5 \xFB \xE9"},
    {"iso-8859-5", 28595, "\u0416", "\xB6"},
    {"iso-8859-15", 28605, "\u20AC", "\xA4"},
    {"windows-1250", 1250, "\u0150\u201E", "\xD5\x84"},
    {"windows-1251", 1251, "\u041F\u0440", "\xCF\xF0"},
    {"windows-1252", 1252, "\u20AC\u2019\u00E9", "\x80\x92\xE9"},
    {"windows-1253", 1253, "\u03A9", "\xD9"},
    {"windows-1254", 1254, "\u0130\u015F", "\xDD\xFE"},
    {"windows-1257", 1257, "\u0101", "\xE2"},
    {"cp437", 437, "\u00E9\u2500", "\x82\xC4"},
    {"cp850", 850, "\u00E9\u00D7", "\x82\x9E"},
    {"cp852", 852, "\u0151", "\x8B"},
    {"utf-8", 65001, "\u00E9\U0001F600", "\xC3\xA9\xF0\x9F\x98\x80"},
    {"utf-16", 1200, "\u00E9\U0001F600", "\xE9\x00\x3D\xD8\x00\xDE"},
    {"utf-16 big-endian", 1201, "\u00E9\U0001F600", "\x00\xE9\xD8\x3D\xDE\x00"},
    {"shift-jis by the system", 932, "\u65E5\u672C", "\x93\xFA\x96\x7B"},
};

TEST(CodePage, ConvertsBothWaysWithoutLoss) {
    for (const Conversion& row : kExact) {
        // The literals of UTF-16 rows hold NULs.
        const std::string_view bytes = row.page == 1200 || row.page == 1201
                                           ? std::string_view(row.bytes.data(), 6)
                                           : row.bytes;
        std::string out;
        EXPECT_TRUE(utf8ToCodePage(row.page, row.utf8, out)) << row.name;
        EXPECT_EQ(out, bytes) << row.name;
        EXPECT_EQ(utf8ToCodePageLossy(row.page, row.utf8), bytes) << row.name;
        EXPECT_EQ(codePageToUtf8(row.page, bytes), row.utf8) << row.name;
    }
}

TEST(CodePage, RefusesWhatThePageDoesNotHold) {
    const struct {
        const char* name;
        uint32_t page;
        std::string_view utf8;
        std::string_view lossy;
    } rows[] = {
        {"no look-alike for o with double acute", 28591, "f\u0151", "f?"},
        {"the same in windows-1252", 1252, "f\u0151", "f?"},
        {"o with double acute in cp437", 437, "f\u0151", "f?"},
        {"e acute in us-ascii", 20127, "caf\u00E9!", "caf?!"},
        {"euro in iso-8859-1", 28591, "5 \u20AC", "5 ?"},
        {"quotes in iso-8859-2", 28592, "\u201Ex\u201D", "?x?"},
        {"beyond the first plane", 1252, "\U0001F600.", "?."},
        {"a code point equal to an unused byte", 1252, "\u0081", "?"},
        {"Japanese page, Korean letter", 932, "a\uAC00b", "a?b"},
        {"only the bad line suffers", 932, "\u65E5\n\uAC00\n", "\x93\xFA\n?\n"},
    };
    for (const auto& row : rows) {
        std::string out;
        EXPECT_FALSE(utf8ToCodePage(row.page, row.utf8, out)) << row.name;
        EXPECT_EQ(utf8ToCodePageLossy(row.page, row.utf8), row.lossy) << row.name;
    }
}

TEST(CodePage, MalformedTextNeverConvertsExactly) {
    for (const uint32_t page : {20127u, 28591u, 1252u, 437u, 65001u, 1200u, 932u}) {
        std::string out;
        EXPECT_FALSE(utf8ToCodePage(page, "ab\xC3", out)) << page;
        EXPECT_FALSE(utf8ToCodePage(page, "\xED\xA0\x80", out)) << page;
    }
}

TEST(CodePage, BytesWithoutMeaningBecomeTheReplacementCharacter) {
    const struct {
        const char* name;
        uint32_t page;
        std::string_view bytes;
        std::string_view utf8;
    } rows[] = {
        {"us-ascii", 20127, "a\xE9z", "a\uFFFDz"},
        {"windows-1252, unused", 1252, "\x81", "\uFFFD"},
        {"windows-1253, unused", 1253, "\xD2", "\uFFFD"},
        {"utf-8, cut", 65001, "a\xC3", "a\uFFFD"},
        {"utf-16, odd", 1200, std::string_view("a\0b", 3), "a\uFFFD"},
        {"utf-16, unpaired", 1200, std::string_view("\x3D\xD8z\0", 4), "\uFFFDz"},
        {"utf-16, two second halves", 1201, "\xDE\x01\xDE\x02", "\uFFFD\uFFFD"},
        {"utf-16, pair reversed", 1201, "\xDE\x01\xD8\x3D", "\uFFFD\uFFFD"},
        {"shift-jis, cut at the end of a line", 932, "\x93\xFA\n\x93\n", "\u65E5\n\uFFFD\n"},
        {"no such page", 12345, "a\xE9", "a\uFFFD"},
        {"no page at all", 0, "a\xE9", "a\uFFFD"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(codePageToUtf8(row.page, row.bytes), row.utf8) << row.name;
    }
}

TEST(CodePage, UnknownPagesHoldNothing) {
    std::string out;
    for (const uint32_t page : {0u, 1u, 3u, 42u, 12345u}) {
        EXPECT_FALSE(utf8ToCodePage(page, "a\u00E9", out)) << page;
        EXPECT_EQ(utf8ToCodePageLossy(page, "a\u00E9"), "a?") << page;
    }
}

// Windows follows older editions of a few pages; the names that mails carry mean the newer ones.
bool isKnownDifference(uint32_t page, unsigned byte) {
    return (page == 21866 && (byte == 0xAE || byte == 0xBE)) ||
           (page == 28597 && (byte == 0xA1 || byte == 0xA2)) || (page == 28598 && byte == 0xAF);
}

// The system's converter is an independent judge of our tables, as far as it knows a page.
TEST(CodePage, TablesAgreeWithTheSystem) {
    size_t compared = 0;
    for (const CodePageTable& table : codePageTables()) {
        for (unsigned i = 0; i < 128; ++i) {
            if (table.high[i] == 0 || isKnownDifference(table.page, 128 + i)) continue;
            const char byte = static_cast<char>(128 + i);
            std::u16string system;
            if (!plat::systemToUtf16(table.page, {&byte, 1}, system)) continue;
            EXPECT_EQ(system, std::u16string(1, static_cast<char16_t>(table.high[i])))
                << table.page << " byte " << 128 + i;
            ++compared;
        }
    }
    EXPECT_GT(compared, 2000u);
}

TEST(CodePage, TableOrderFindsEveryByte) {
    uint32_t before = 0;
    for (const CodePageTable& table : codePageTables()) {
        EXPECT_GT(table.page, before);
        before = table.page;
        for (unsigned i = 0; i < 128; ++i) {
            if (table.high[i] == 0) continue;
            const std::string bytes(1, static_cast<char>(128 + i));
            std::string back;
            ASSERT_TRUE(utf8ToCodePage(table.page, codePageToUtf8(table.page, bytes), back));
            ASSERT_EQ(back, bytes) << table.page;
        }
    }
}

TEST(CodePage, LongTextsKeepEveryByte) {
    for (size_t size = 0; size < 200; ++size) {
        std::string bytes(size, 'x');
        bytes += '\xE9';
        bytes.append(size, 'y');
        std::string expected(size, 'x');
        expected += "\u00E9" + std::string(size, 'y');
        ASSERT_EQ(codePageToUtf8(1252, bytes), expected);
        ASSERT_EQ(utf8ToCodePageLossy(1252, expected), bytes);
    }
}

}  // namespace
}  // namespace tv
