#include "mime/QuotedPrintable.h"

#include <gtest/gtest.h>

#include "base/Ascii.h"
#include "tests/fixtures/TestBytes.h"

namespace tv {
namespace {

using test::bytesIn;

std::string encoded(std::string_view text) {
    test::StringStream out;
    EXPECT_TRUE(ContentCoding::encodeQuotedPrintable(bytesIn(text), out));
    return out.text;
}

std::string repeated(size_t n, std::string_view text) {
    std::string out;
    for (; n != 0; --n) {
        out += text;
    }
    return out;
}

TEST(QuotedPrintable, EncodesByTheRules) {
    const std::string x70(70, 'x');
    const struct {
        const char* name;
        std::string text;
        std::string expected;
    } rows[] = {
        {"empty", "", ""},
        {"plain", "Hello, world~!", "Hello, world~!"},
        {"equals sign", "a=b", "a=3Db"},
        {"high bytes", "Jos\xC3\xA9", "Jos=C3=A9"},
        {"controls and DEL", std::string("\0\x01\x1F\x7F", 4), "=00=01=1F=7F"},
        {"blanks inside stay", "a b\tc", "a b\tc"},
        {"blank before a break", "a b \r\n", "a b=20\r\n"},
        {"only the last of several blanks", "a  \t\r\nb", "a  =09\r\nb"},
        {"blank at the end", "a ", "a=20"},
        {"tab at the end", "a\t", "a=09"},
        {"blank alone", " ", "=20"},
        {"blank before a lone CR", "a \rb", "a =0Db"},
        {"blank before a lone LF", "a \nb", "a =0Ab"},
        {"lone CR and LF", "a\rb\nc", "a=0Db=0Ac"},
        {"LF CR", "a\n\rb", "a=0A=0Db"},
        {"CR CR LF", "a\r\r\nb", "a=0D\r\nb"},
        {"CR at the end", "a\r", "a=0D"},
        {"breaks", "a\r\n\r\nb\r\n", "a\r\n\r\nb\r\n"},
        {"dot at the start", ".a", "=2Ea"},
        {"dot alone on a line", "a\r\n.\r\n", "a\r\n=2E\r\n"},
        {"dot inside", "a.b", "a.b"},
        {"second dot of a line", "..", "=2E."},
        {"From at the start", "From me", "=46rom me"},
        {"From after a break", "a\r\nFrom me", "a\r\n=46rom me"},
        {"From and the end", "From ", "=46rom=20"},
        {"From before a break", "From \r\n", "=46rom=20\r\n"},
        {"From without its blank", "From\tme Fromage", "From\tme Fromage"},
        {"from in small letters", "from me", "from me"},
        {"From inside", "a From b", "a From b"},
        // Lengths: x70 and five more fill 75 columns.
        {"75 and the end", x70 + "12345", x70 + "12345"},
        {"75 and a break", x70 + "12345\r\nz", x70 + "12345\r\nz"},
        {"76 plain", x70 + "123456", x70 + "12345=\r\n6"},
        {"76 plain and a break", x70 + "123456\r\n", x70 + "12345=\r\n6\r\n"},
        {"coded to 75", x70 + "12\xE9z", x70 + "12=E9=\r\nz"},
        {"coded to 76, last of the line", x70 + "123\xE9\r\nz", x70 + "123=E9\r\nz"},
        {"coded to 76, last of all", x70 + "123\xE9", x70 + "123=E9"},
        {"coded to 76, more follows", x70 + "123\xE9z", x70 + "123=\r\n=E9z"},
        {"coded to 77", x70 + "1234\xE9\r\n", x70 + "1234=\r\n=E9\r\n"},
        {"coded at a full line", x70 + "12345\xE9", x70 + "12345=\r\n=E9"},
        {"blank to 76, last of the line", x70 + "123 \r\n", x70 + "123=20\r\n"},
        {"blank to 77, last of the line", x70 + "1234 \r\n", x70 + "1234=\r\n=20\r\n"},
        {"blank at the last column", x70 + "1234 z", x70 + "1234 =\r\nz"},
        {"blank after a full line", x70 + "12345 \r\n", x70 + "12345=\r\n=20\r\n"},
        {"dot after a soft break", x70 + "12345.z", x70 + "12345=\r\n=2Ez"},
        {"From after a soft break", x70 + "12345From z", x70 + "12345=\r\n=46rom z"},
        {"many blanks", "a" + std::string(80, ' ') + "b",
         "a" + std::string(74, ' ') + "=\r\n" + std::string(6, ' ') + "b"},
        {"100 x", std::string(100, 'x'), std::string(75, 'x') + "=\r\n" + std::string(25, 'x')},
        {"30 coded", repeated(30, "\xE9"), repeated(25, "=E9") + "=\r\n" + repeated(5, "=E9")},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(encoded(row.text), row.expected) << row.name;
    }
}

// A reader written from the standard alone.
std::string decoded(std::string_view text) {
    const auto value = [](char c) {
        return static_cast<size_t>(std::string_view("0123456789ABCDEF").find(c));
    };
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '=') {
            out += text[i];
        } else if (text.substr(i + 1, 2) == "\r\n") {
            i += 2;
        } else {
            out += static_cast<char>(value(text.at(i + 1)) * 16 + value(text.at(i + 2)));
            i += 2;
        }
    }
    return out;
}

// What any reader may rely on.
void expectSafeLines(std::string_view text) {
    for (size_t from = 0; from <= text.size();) {
        const size_t end = std::min(text.find("\r\n", from), text.size());
        const std::string_view line = text.substr(from, end - from);
        ASSERT_LE(line.size(), 76u) << line;
        ASSERT_FALSE(line.starts_with('.') || line.starts_with("From ")) << line;
        ASSERT_FALSE(line.ends_with(' ') || line.ends_with('\t')) << line;
        ASSERT_EQ(line.find_first_of("\r\n"), std::string_view::npos) << line;
        for (const char c : line) {
            ASSERT_TRUE((c >= ' ' && c <= '~') || c == '\t');
        }
        from = end + 2;
    }
    ASSERT_FALSE(text.ends_with("=\r\n")) << "a soft break with nothing behind it";
}

TEST(QuotedPrintable, ReadsBackAndIsTheSameHoweverItIsCut) {
    const std::string_view alphabets[] = {
        "ab .", "F\r\n", "From \r\n.", "a \t\r\n", "x\xE9=", "abcdefghij klmno. From \r\n=\xC3\x00",
    };
    uint32_t seed = 0;
    for (const std::string_view alphabet : alphabets) {
        for (const size_t size : {1u, 5u, 74u, 75u, 76u, 77u, 400u, 9000u}) {
            const std::string text = test::randomText(size, alphabet, ++seed);
            const std::string whole = encoded(text);
            ASSERT_EQ(decoded(whole), text) << "alphabet " << alphabet << " size " << size;
            expectSafeLines(whole);
            for (const size_t piece : {1u, 2u, 3u, 4u, 5u, 6u, 77u, 4095u, 4097u}) {
                test::StringStream out;
                QuotedPrintableEncoder encoder(out);
                for (size_t at = 0; at < size; at += piece) {
                    ASSERT_TRUE(encoder.put(bytesIn(text.substr(at, piece))));
                    ASSERT_TRUE(encoder.put({}));
                }
                ASSERT_TRUE(encoder.finish());
                ASSERT_EQ(out.text, whole) << "alphabet " << alphabet << " by " << piece;
            }
        }
    }
}

TEST(QuotedPrintable, EveryCutOfATellingText) {
    const std::string text =
        "From a \r\nFrom \r\n.\r\n\r\r\n \t\r\n" + std::string(72, 'x') + "\xE9\r\nFrom";
    const std::string whole = encoded(text);
    for (size_t first = 0; first <= text.size(); ++first) {
        for (size_t second = first; second <= text.size(); ++second) {
            test::StringStream out;
            QuotedPrintableEncoder encoder(out);
            encoder.put(bytesIn(text.substr(0, first)));
            encoder.put(bytesIn(text.substr(first, second - first)));
            encoder.put(bytesIn(text.substr(second)));
            encoder.finish();
            ASSERT_EQ(out.text, whole) << first << ", " << second;
        }
    }
}

TEST(QuotedPrintable, AFailedStreamFailsTheRest) {
    const std::string text(50000, '\xE9');
    for (const size_t writes : {0u, 2u}) {
        test::StringStream out(writes);
        QuotedPrintableEncoder encoder(out);
        EXPECT_FALSE(encoder.put(bytesIn(text)));
        const size_t calls = out.calls;
        EXPECT_FALSE(encoder.put(bytesIn(text)));
        EXPECT_FALSE(encoder.finish());
        EXPECT_EQ(out.calls, calls);
    }
}

}  // namespace
}  // namespace tv
