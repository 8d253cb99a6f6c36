// Text: ASCII, the library's string, dates, Punycode, small letters, code pages.
#include <gtest/gtest.h>

#include <set>

#include "base/Ascii.h"
#include "base/CodePage.h"
#include "base/CodePageTables.h"
#include "base/DateTime.h"
#include "base/Punycode.h"
#include "base/TvString.h"
#include "base/XString.h"
#include "platform/SysCodePage.h"
#include "tests/fixtures/FakeSystem.h"

namespace tv {
namespace {

TEST(Ascii, findsReplacesAndTrims) {
    EXPECT_EQ(replaceAll("aaa", "aa", "b"), "ba");
    EXPECT_EQ(replaceAll("abab", "a", "aa"), "aabaab");
    EXPECT_EQ(replaceAll("abc", "", "x"), "abc");
    EXPECT_EQ(findIgnoreCase("xxAbC", "aBc"), 2u);
    EXPECT_EQ(findIgnoreCase("ab", "abc"), std::string_view::npos);
    EXPECT_FALSE(startsWithIgnoreCase("tex", "text"));
    EXPECT_FALSE(equalsIgnoreCase("[", "{"));  // differ in the bit that case differs in
    for (size_t at = 0; at < 40; ++at) {
        std::string text(40, 'a');
        EXPECT_TRUE(isAscii(text));
        text[at] = '\x80';
        EXPECT_FALSE(isAscii(text)) << at;
    }
}

TEST(XString, takesHostTextInTheRightEncoding) {
    const test::FakeHost host("PC", 1252);
    EXPECT_EQ(XString::fromHost(nullptr, true), "");
    EXPECT_EQ(XString::fromHost("\xC3\xA9", true), "\u00E9");
    EXPECT_EQ(XString::fromHost("\xE9", true), "\u00E9");  // although UTF-8 was announced
    EXPECT_EQ(XString::fromHost("\xC3\xA9", false), "\u00C3\u00A9");
    EXPECT_EQ(XString("\u20AC\u0151").ansi(), "\x80?");
    EXPECT_EQ(TvString(XString("\u00E9"), false).bytes(), "\xE9");
    EXPECT_EQ(TvString(XString("\u00E9"), true).bytes(), "\u00E9");
}

TEST(XString, theSecretMarkTravels) {
    XString secret("0123456789 long enough to live on the heap");
    secret.markSecret();
    XString copy(secret), assigned;
    assigned = secret;
    XString moved(std::move(copy));
    EXPECT_TRUE(assigned.isSecret() && moved.isSecret());
    EXPECT_EQ(moved, secret);
    assigned = XString("open");
    EXPECT_EQ(assigned, "open");
    EXPECT_FALSE(assigned.isSecret());
    moved.setUtf8("pass");  // short enough to live inside the object
    const char* at = moved.utf8().data();
    moved.clear();
    EXPECT_EQ(std::string(at, 4), std::string(4, '\0')) << "left behind";
    EXPECT_TRUE(moved.isSecret());
}

TEST(MailDate, writesLocalTimeAndOffset) {
    const std::pair<plat::CivilTime, const char*> rows[] = {
        {{2024, 2, 29, 23, 59, 60, 4, -210}, "Thu, 29 Feb 2024 23:59:60 -0330"},
        {{2026, 12, 31, 12, 0, 0, 4, -30}, "Thu, 31 Dec 2026 12:00:00 -0030"},
    };
    for (const auto& [time, text] : rows) {
        EXPECT_EQ(mailDate(time), text);
    }
}

// Some labels are samples of RFC 3492 section 7.1, in small letters.
TEST(Punycode, turnsDomainsToAscii) {
    const struct {
        const char* name;
        std::string domain;
        const char* ascii;  // nullptr: refused
    } rows[] = {
        {"every label lower-cased", "WWW.B\u00DCCHER.Example", "www.xn--bcher-kva.example"},
        {"Arabic",
         "\u0644\u064A\u0647\u0645\u0627\u0628\u062A\u0643\u0644\u0645\u0648\u0634\u0639\u0631"
         "\u0628\u064A\u061F",
         "xn--egbpdaj6bu4bxfgehfvwxn"},
        {"Vietnamese", "t\u1EA1isaoh\u1ECDkh\u00F4ngth\u1EC3ch\u1EC9n\u00F3iti\u1EBFngvi\u1EC7t",
         "xn--tisaohkhngthchnitingvit-kjcr8268qyxafd2f1b9g"},
        {"beyond the first plane", "\U0001F600", "xn--e28h"},
        {"ideographic full stop", "\u4F8B\u3002jp", "xn--fsq.jp"},
        {"empty label", "b\u00FCcher..example", nullptr},
        {"dot at the start", ".b\u00FCcher", nullptr},
        {"malformed", "b\xFCx", nullptr},
        {"label too long", std::string(63, 'a') + "\u00E9.com", nullptr},
        {"ASCII label too long beside another", std::string(64, 'a') + ".\u00E9", nullptr},
        {"no domain at all", std::string(3000, 'a') + "\u00E9", nullptr},
    };
    for (const auto& row : rows) {
        std::string out;
        EXPECT_EQ(domainToAscii(row.domain, out), row.ascii != nullptr) << row.name;
        EXPECT_TRUE(!row.ascii || out == row.ascii) << row.name << ": " << out;
    }
}

TEST(LowerCodePoint, knowsPairsAndLeavesTheRest) {
    constexpr std::u32string_view kPairs =
        U"Aa\u00C0\u00E0\u00DE\u00FE\u0150\u0151\u0178\u00FF\u0179\u017A\u0139\u013A\u0218\u0219"
        U"\u0386\u03AC\u038F\u03CE\u03A9\u03C9\u0401\u0451\u042F\u044F\u0490\u0491\u04C0\u04CF"
        U"\u0531\u0561\u1EBE\u1EBF";
    for (size_t i = 0; i < kPairs.size(); i += 2) {
        EXPECT_EQ(lowerCodePoint(kPairs[i]), kPairs[i + 1]) << i;
        EXPECT_EQ(lowerCodePoint(kPairs[i + 1]), kPairs[i + 1]) << i;
    }
    // Signs among the letters, letters of one case, letters without a single small form.
    for (const char32_t code :
         U"\u00D7\u00DF\u00F7\u0130\u0131\u0138\u0149\u03A2\u03C2\u0482\u05D0\u4E2D") {
        EXPECT_EQ(lowerCodePoint(code), code) << std::hex << uint32_t{code};
    }
}

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
        std::string out;
        EXPECT_FALSE(utf8ToCodePage(28591, bad, out) || utf8ToCodePage(932, bad, out)) << bad;
    }
}

// What the page does not hold, bytes without meaning.
enum class Way { Both, ToPage, FromPage };

TEST(CodePage, converts) {
    const struct {
        const char* name;
        uint32_t page;
        Way way;
        std::string_view utf8, bytes;
    } rows[] = {
        {"iso-8859-1", 28591, Way::Both, "Jos\u00E9 \u00FF\u0080\u009F", "Jos\xE9 \xFF\x80\x9F"},
        {"windows-1252", 1252, Way::Both, "\u20AC\u2019\u00E9", "\x80\x92\xE9"},
        {"utf-8", 65001, Way::Both, "\u00E9\U0001F600", "\xC3\xA9\xF0\x9F\x98\x80"},
        {"utf-16", 1200, Way::Both, "\u00E9\U0001F600", {"\xE9\x00\x3D\xD8\x00\xDE", 6}},
        {"big-endian", 1201, Way::Both, "\u00E9\U0001F600", {"\x00\xE9\xD8\x3D\xDE\x00", 6}},
        {"shift-jis by the system", 932, Way::Both, "\u65E5\u672C", "\x93\xFA\x96\x7B"},
        {"no look-alike for o with double acute", 28591, Way::ToPage, "f\u0151", "f?"},
        {"e acute in us-ascii", 20127, Way::ToPage, "caf\u00E9!", "caf?!"},
        {"beyond the first plane", 1252, Way::ToPage, "\U0001F600.", "?."},
        {"a code point equal to an unused byte", 1252, Way::ToPage, "\u0081", "?"},
        {"Japanese page, Korean letter", 932, Way::ToPage, "a\uAC00b", "a?b"},
        {"only the bad line suffers", 932, Way::ToPage, "\u65E5\n\uAC00\n", "\x93\xFA\n?\n"},
        {"Windows' name for a page of its own", 3, Way::ToPage, "a\u00E9", "a?"},
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

// The system's converter is an independent judge of our tables, as far as it knows a page. Windows
// follows older editions of a few; the names that mails carry mean the newer ones.
TEST(CodePage, tablesAgreeWithTheSystem) {
    const std::set<std::pair<unsigned, unsigned>> known = {
        {21866, 0xAE}, {21866, 0xBE}, {28597, 0xA1}, {28597, 0xA2}, {28598, 0xAF}};
    size_t compared = 0;
    for (const CodePageTable& table : codePageTables()) {
        for (unsigned byte = 128; byte < 256; ++byte) {
            const uint16_t code = table.high[byte - 128];
            const std::string bytes(1, static_cast<char>(byte));
            std::u16string system;
            if (code == 0) continue;
            EXPECT_EQ(utf8ToCodePageLossy(table.page, codePageToUtf8(table.page, bytes)), bytes);
            if (known.contains({table.page, byte})) continue;
            if (!plat::systemToUtf16(table.page, bytes, system)) continue;
            EXPECT_EQ(system, std::u16string(1, code)) << table.page << " byte " << byte;
            ++compared;
        }
    }
    EXPECT_GT(compared, 2000u);
}

}  // namespace
}  // namespace tv
