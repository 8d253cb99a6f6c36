#include "mime/ContentCoding.h"

#include <gtest/gtest.h>

#include "base/Ascii.h"
#include "tests/fixtures/Base64FormTest.h"
#include "tests/fixtures/TestBytes.h"

namespace tv {
namespace {

using test::bytesIn;

// The reference: the whole in one line, then broken every 76 characters.
std::string brokenLines(std::span<const uint8_t> bytes) {
    const std::string text = base64Encode(bytes);
    std::string out;
    for (size_t at = 0; at < text.size(); at += 76) {
        if (at != 0) out += "\r\n";
        out += text.substr(at, 76);
    }
    return out;
}

std::string encoded(std::span<const uint8_t> bytes) {
    test::StringStream out;
    EXPECT_TRUE(ContentCoding::encodeBase64(bytes, out));
    return out.text;
}

TEST(Base64Body, BreaksLinesButDoesNotEndInOne) {
    const std::string line(76, 'A');
    const struct {
        size_t zeros;
        std::string text;
    } rows[] = {
        {0, ""},
        {1, "AA=="},
        {2, "AAA="},
        {56, std::string(75, 'A') + "="},
        {57, line},
        {58, line + "\r\nAA=="},
        {114, line + "\r\n" + line},
        {115, line + "\r\n" + line + "\r\nAA=="},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(encoded(std::vector<uint8_t>(row.zeros)), row.text);
    }
}

class Base64BodyForms : public test::FormTest<Base64Form> {};
TV_FOR_EACH_FORM(Base64BodyForms, Base64Form);

TEST_P(Base64BodyForms, EveryLengthInOnePiece) {
    for (size_t size = 0; size < 400; ++size) {
        const std::vector<uint8_t> bytes = test::randomBytesOf(size, 7);
        ASSERT_EQ(encoded(bytes), brokenLines(bytes)) << size;
    }
    const std::vector<uint8_t> large = test::randomBytesOf(100000);
    EXPECT_EQ(encoded(large), brokenLines(large));
}

TEST(Base64Body, TheSameHoweverItIsCut) {
    for (const size_t size : {57u, 58u, 200u, 20000u}) {
        const std::vector<uint8_t> bytes = test::randomBytesOf(size);
        const std::string expected = brokenLines(bytes);
        for (const size_t piece : {1u, 2u, 3u, 19u, 56u, 57u, 58u, 113u, 114u, 115u, 7297u}) {
            test::StringStream out;
            Base64BodyEncoder encoder(out);
            for (size_t at = 0; at < size; at += piece) {
                ASSERT_TRUE(encoder.put(std::span(bytes).subspan(at, std::min(piece, size - at))));
                ASSERT_TRUE(encoder.put({}));
            }
            ASSERT_TRUE(encoder.finish());
            ASSERT_EQ(out.text, expected) << size << " by " << piece;
        }
    }
}

TEST(Base64Body, AFailedStreamFailsTheRest) {
    const std::vector<uint8_t> bytes(40000);
    for (const size_t writes : {0u, 1u, 3u}) {
        test::StringStream out(writes);
        Base64BodyEncoder encoder(out);
        EXPECT_FALSE(encoder.put(bytes)) << writes;
        const size_t calls = out.calls;
        EXPECT_FALSE(encoder.put(bytes));
        EXPECT_FALSE(encoder.finish());
        EXPECT_EQ(out.calls, calls) << "nothing more is written";
    }
    test::StringStream broken(0);
    EXPECT_FALSE(ContentCoding::encodeBase64(bytesIn("short"), broken));
    EXPECT_FALSE(ContentCoding::encodeQuotedPrintable(bytesIn("short"), broken));
}

}  // namespace
}  // namespace tv
