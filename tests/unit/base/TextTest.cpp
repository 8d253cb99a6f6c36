// Text: ASCII, the library's string, dates, Punycode, small letters.
#include <gtest/gtest.h>

#include "base/Ascii.h"
#include "base/CodePage.h"
#include "base/DateTime.h"
#include "base/Punycode.h"
#include "base/TvString.h"
#include "base/XString.h"
#include "tests/fixtures/FakeSystem.h"

namespace tv {
namespace {

TEST(Ascii, findsReplacesAndTrims) {
    EXPECT_EQ(trimmed(" \t\r\n a b \n"), "a b");
    EXPECT_EQ(trimmed(" \t"), "");
    EXPECT_EQ(replaceAll("aaa", "aa", "b"), "ba");
    EXPECT_EQ(replaceAll("abab", "a", "aa"), "aabaab");
    EXPECT_EQ(replaceAll("abc", "", "x"), "abc");
    EXPECT_EQ(findIgnoreCase("xxAbC", "aBc"), 2u);
    EXPECT_EQ(findIgnoreCase("ab", "abc"), std::string_view::npos);
    EXPECT_EQ(findIgnoreCase("ab", ""), 0u);
    EXPECT_TRUE(startsWithIgnoreCase("TEXT/plain", "text"));
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
    EXPECT_TRUE(XString::fromHost(nullptr, true).empty());
    EXPECT_TRUE(XString::fromHost(nullptr, false).empty());
    EXPECT_EQ(XString::fromHost("\xC3\xA9", true), "\u00E9");
    EXPECT_EQ(XString::fromHost("\xE9", false), "\u00E9");
    EXPECT_EQ(XString::fromHost("\xE9", true), "\u00E9") << "UTF-8 was announced";
    EXPECT_EQ(XString::fromHost("\xC3\xA9", false), "\u00C3\u00A9");
    EXPECT_EQ(XString("\u20AC\u0151").ansi(), "\x80?");
    EXPECT_EQ(TvString(XString("\u00E9"), false).bytes(), "\xE9");
    EXPECT_EQ(TvString(XString("\u00E9"), true).bytes(), "\u00E9");
    XString text("  Ab\u00C9 \n");
    text.trim();
    text.toUpperAscii();
    text.replaceAll("B", "--");
    EXPECT_EQ(text, "A--\u00C9");
    EXPECT_TRUE(text.equalsIgnoreCase("a--\u00C9"));
}

TEST(XString, theSecretMarkTravels) {
    XString secret("0123456789 long enough to live on the heap");
    secret.markSecret();
    XString copy(secret);
    EXPECT_TRUE(copy.isSecret());
    XString assigned;
    assigned = secret;
    EXPECT_TRUE(assigned.isSecret());
    XString moved(std::move(copy));
    EXPECT_TRUE(moved.isSecret());
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
        {{2026, 11, 14, 9, 5, 7, 6, 60}, "Sat, 14 Nov 2026 09:05:07 +0100"},
        {{2024, 2, 29, 23, 59, 60, 4, -210}, "Thu, 29 Feb 2024 23:59:60 -0330"},
        {{2027, 1, 3, 0, 0, 0, 0, 0}, "Sun, 03 Jan 2027 00:00:00 +0000"},
        {{2026, 6, 1, 12, 0, 0, 1, 825}, "Mon, 01 Jun 2026 12:00:00 +1345"},
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
        {"ASCII stays as it is", "Mail.EXAMPLE.com", "Mail.EXAMPLE.com"},
        {"every label lower-cased", "WWW.B\u00DCCHER.Example", "www.xn--bcher-kva.example"},
        {"Cyrillic", "\u041F\u0440\u0438\u043C\u0435\u0440.\u0420\u0424", "xn--e1afmkfd.xn--p1ai"},
        {"Arabic",
         "\u0644\u064A\u0647\u0645\u0627\u0628\u062A\u0643\u0644\u0645\u0648\u0634\u0639\u0631"
         "\u0628\u064A\u061F",
         "xn--egbpdaj6bu4bxfgehfvwxn"},
        {"Chinese", "\u4ED6\u4EEC\u4E3A\u4EC0\u4E48\u4E0D\u8BF4\u4E2D\u6587",
         "xn--ihqwcrb4cv8a8dqg056pqjye"},
        {"Vietnamese", "t\u1EA1isaoh\u1ECDkh\u00F4ngth\u1EC3ch\u1EC9n\u00F3iti\u1EBFngvi\u1EC7t",
         "xn--tisaohkhngthchnitingvit-kjcr8268qyxafd2f1b9g"},
        {"beyond the first plane", "\U0001F600", "xn--e28h"},
        {"ideographic full stop", "\u4F8B\u3002jp", "xn--fsq.jp"},
        {"dot at the end", "b\u00FCcher.example.", "xn--bcher-kva.example."},
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
        if (row.ascii) {
            EXPECT_EQ(out, row.ascii) << row.name;
        }
    }
}

TEST(LowerCodePoint, knowsPairsAndLeavesTheRest) {
    const std::pair<char32_t, char32_t> rows[] = {
        {U'A', U'a'},     {0x00C0, 0x00E0}, {0x00DE, 0x00FE}, {0x0150, 0x0151}, {0x0178, 0x00FF},
        {0x0179, 0x017A}, {0x0139, 0x013A}, {0x0218, 0x0219}, {0x0386, 0x03AC}, {0x038F, 0x03CE},
        {0x03A9, 0x03C9}, {0x0401, 0x0451}, {0x042F, 0x044F}, {0x0490, 0x0491}, {0x04C0, 0x04CF},
        {0x0531, 0x0561}, {0x1EBE, 0x1EBF},
    };
    for (const auto& [upper, lower] : rows) {
        EXPECT_EQ(lowerCodePoint(upper), lower) << std::hex << uint32_t{upper};
        EXPECT_EQ(lowerCodePoint(lower), lower) << std::hex << uint32_t{lower};
    }
    // Signs among the letters, letters of one case, letters without a single small form.
    for (const char32_t code : {0xD7u, 0xDFu, 0xF7u, 0x130u, 0x131u, 0x138u, 0x149u, 0x3A2u, 0x3C2u,
                                0x482u, 0x5D0u, 0x4E2Du}) {
        EXPECT_EQ(lowerCodePoint(code), code) << std::hex << uint32_t{code};
    }
}

}  // namespace
}  // namespace tv
