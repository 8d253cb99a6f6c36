// Base64 and quoted-printable bodies: their lines, and that pieces of any size give the same.
#include "mime/ContentCoding.h"

#include "mime/HeaderText.h"
#include "mime/QuotedPrintable.h"
#include "tests/unit/mime/MimeSupport.h"

namespace tv::test {
namespace {

template <class Encoder>
std::string encoded(std::string_view text, size_t piece = 1 << 20) {
    StringStream out;
    Encoder encoder(out);
    for (size_t at = 0; at < text.size(); at += piece) {
        EXPECT_TRUE(encoder.put(bytesIn(text.substr(at, piece))) && encoder.put({}));
    }
    EXPECT_TRUE(encoder.finish());
    return out.text;
}

constexpr size_t kPieces[] = {1, 2, 3, 4, 5, 6, 19, 56, 57, 58, 77, 115, 4095, 4097, 7297, 1 << 20};

// The reference: the whole in one line, then broken every 76 characters.
TEST(Base64Body, hasLinesOf76HoweverItsInputIsCut) {
    for (size_t size = 0; size < 20000; size += size < 400 ? 1 : 1999) {
        const std::string text = textOf(randomBytesOf(size, 7));
        std::string lines = base64Encode(text);
        for (size_t at = 76; at < lines.size(); at += 78) {
            lines.insert(at, "\r\n");
        }
        for (const size_t piece : kPieces) {
            ASSERT_EQ(encoded<Base64BodyEncoder>(text, piece), lines) << size << " by " << piece;
        }
    }
}

TEST(QuotedPrintable, codesNoMoreThanItMust) {
    const std::string x70(70, 'x');
    const std::pair<std::string, std::string> rows[] = {
        {std::string("\0\x01\x1F\x7F~", 5), "=00=01=1F=7F~"},
        {"a b\tc  \t\r\n\r\nb. .", "a b\tc  =09\r\n\r\nb. ."},
        {"From me From b\r\nFrom\tme Fromage\r\nFrom ",
         "=46rom me From b\r\nFrom\tme Fromage\r\n=46rom=20"},
        // Lengths: x70 and five more fill 75 columns; only the end of a line may have the 76th.
        {x70 + "12\xE9z", x70 + "12=E9=\r\nz"},
        {x70 + "123\xE9z", x70 + "123=\r\n=E9z"},
        {x70 + "123 \r\n", x70 + "123=20\r\n"},
        {x70 + "1234 z", x70 + "1234 =\r\nz"},
        {x70 + "12345From z", x70 + "12345=\r\n=46rom z"},
    };
    for (const auto& [text, lines] : rows) {
        EXPECT_EQ(encoded<QuotedPrintableEncoder>(text), lines);
    }
}

// Any reader may rely on these lines, and what it reads is what was there.
TEST(QuotedPrintable, hasSafeLinesHoweverItsInputIsCut) {
    constexpr std::string_view kAlphabets[] = {
        "ab .", "F\r\n", "From \r\n.", "a \t\r\n", "x\xE9=.", {"kmo. From \r\n=\xC3\0", 15}};
    uint32_t seed = 0;
    for (const std::string_view alphabet : kAlphabets) {
        for (const size_t size : {1u, 5u, 57u, 58u, 74u, 75u, 76u, 77u, 400u, 9000u}) {
            const std::string text = randomText(size, alphabet, ++seed);
            const std::string coded = encoded<QuotedPrintableEncoder>(text);
            ASSERT_EQ(decodeQ(coded), text);
            for (const std::string& line : linesOf(coded)) {
                ASSERT_LE(line.size(), 76u) << line;
                ASSERT_FALSE(line.starts_with('.') || line.starts_with("From ")) << line;
                ASSERT_FALSE(line.ends_with(' ') || line.ends_with('\t')) << line;
                ASSERT_TRUE(isAscii(line) && replaceAll(line, "\t", " ") == withoutControls(line));
            }
            ASSERT_FALSE(coded.ends_with("=\r\n")) << "a soft break with nothing behind it";
            for (const size_t piece : kPieces) {
                ASSERT_EQ(encoded<QuotedPrintableEncoder>(text, piece), coded)
                    << alphabet << " size " << size << " by " << piece;
            }
        }
    }
}

}  // namespace
}  // namespace tv::test
