// Base64 and quoted-printable bodies: their lines, and that pieces of any size give the same.
#include "mime/ContentCoding.h"

#include "mime/QuotedPrintable.h"
#include "tests/fixtures/Base64FormTest.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

std::string encoded(std::string_view text, bool base64, size_t piece = 1 << 20) {
    StringStream out;
    std::unique_ptr<BodyEncoder> encoder = std::make_unique<QuotedPrintableEncoder>(out);
    if (base64) encoder = std::make_unique<Base64BodyEncoder>(out);
    for (size_t at = 0; at < text.size(); at += piece) {
        EXPECT_TRUE(encoder->put(bytesIn(text.substr(at, piece))) && encoder->put({}));
    }
    EXPECT_TRUE(encoder->finish());
    return out.text;
}

class Base64BodyForms : public FormTest<Base64Form> {};
TV_FOR_EACH_FORM(Base64BodyForms, Base64Form);

// The reference: the whole in one line, then broken every 76 characters.
TEST_P(Base64BodyForms, everyLengthInLinesOf76) {
    for (size_t size = 0; size < 20000; size += size < 400 ? 1 : 1999) {
        const std::vector<uint8_t> bytes = randomBytesOf(size, 7);
        std::string lines = base64Encode(bytes);
        for (size_t at = 76; at < lines.size(); at += 78) {
            lines.insert(at, "\r\n");
        }
        ASSERT_EQ(encoded(textOf(bytes), true), lines) << size;
    }
}

TEST(QuotedPrintable, encodesByTheRules) {
    const std::string x70(70, 'x');
    const struct {
        const char* name;
        std::string text;
        std::string expected;
    } rows[] = {
        {"controls and DEL", std::string("\0\x01\x1F\x7F", 4), "=00=01=1F=7F"},
        {"only the last of blanks", "a b\tc  \t\r\n\r\nb", "a b\tc  =09\r\n\r\nb"},
        {"half breaks", "a \n\rb \r\r\nc\r", "a =0A=0Db =0D\r\nc=0D"},
        {"dots at the start", "..a.b\r\n.\r\n", "=2E.a.b\r\n=2E\r\n"},
        {"From at the start", "From me\r\nFrom ", "=46rom me\r\n=46rom=20"},
        {"From without its blank", "From\tme Fromage", "From\tme Fromage"},
        {"from elsewhere", "from me From b", "from me From b"},
        // Lengths: x70 and five more fill 75 columns.
        {"coded to 75", x70 + "12\xE9z", x70 + "12=E9=\r\nz"},
        {"coded to 76, last of the line", x70 + "123\xE9\r\nz", x70 + "123=E9\r\nz"},
        {"coded to 76, more follows", x70 + "123\xE9z", x70 + "123=\r\n=E9z"},
        {"blank to 76, last of the line", x70 + "123 \r\n", x70 + "123=20\r\n"},
        {"blank to 77, last of the line", x70 + "1234 \r\n", x70 + "1234=\r\n=20\r\n"},
        {"blank at the last column", x70 + "1234 z", x70 + "1234 =\r\nz"},
        {"From after a soft break", x70 + "12345From z", x70 + "12345=\r\n=46rom z"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(encoded(row.text, false), row.expected) << row.name;
    }
}

// Any reader may rely on these lines, and what it reads is what was there.
void expectSafeLines(const std::string& coded, std::string_view text) {
    ASSERT_EQ(decodeQ(coded), text);
    for (const std::string& line : linesOf(coded)) {
        ASSERT_LE(line.size(), 76u) << line;
        ASSERT_FALSE(line.starts_with('.') || line.starts_with("From ")) << line;
        ASSERT_FALSE(line.ends_with(' ') || line.ends_with('\t')) << line;
        for (const char c : line) {
            ASSERT_TRUE((c >= ' ' && c <= '~') || c == '\t');
        }
    }
    ASSERT_FALSE(coded.ends_with("=\r\n")) << "a soft break with nothing behind it";
}

TEST(BodyEncoder, givesTheSameHoweverItsInputIsCut) {
    constexpr std::string_view kAlphabets[] = {
        "ab .", "F\r\n", "From \r\n.", "a \t\r\n", "x\xE9=.", {"kmo. From \r\n=\xC3\0", 15}};
    uint32_t seed = 0;
    for (const std::string_view alphabet : kAlphabets) {
        for (const size_t size : {1u, 5u, 57u, 58u, 74u, 75u, 76u, 77u, 400u, 9000u}) {
            const std::string text = randomText(size, alphabet, ++seed);
            expectSafeLines(encoded(text, false), text);
            for (const size_t piece :
                 {1u, 2u, 3u, 4u, 5u, 6u, 19u, 56u, 57u, 58u, 77u, 115u, 4095u, 4097u, 7297u}) {
                for (const bool base64 : {false, true}) {
                    ASSERT_EQ(encoded(text, base64, piece), encoded(text, base64))
                        << "alphabet " << alphabet << " size " << size << " by " << piece;
                }
            }
        }
    }
}

}  // namespace
}  // namespace tv::test
