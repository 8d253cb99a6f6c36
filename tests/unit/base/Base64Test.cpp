// Base64: every length in every form, and what is none.
#include "base/Base64.h"

#include <gtest/gtest.h>

#include "base/Ascii.h"
#include "tests/fixtures/Base64FormTest.h"
#include "tests/fixtures/TestBytes.h"

namespace tv {
namespace {

// RFC 4648 section 10, a login, and every value of six bits once.
TEST(Base64, knownTexts) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {std::string_view("\0user\0pa\xC3\xA9", 10), "AHVzZXIAcGHDqQ=="},
        {std::string_view("\x00\x10\x83\x10\x51\x87\x20\x92\x8B\x30\xD3\x8F\x41\x14\x93\x51"
                          "\x55\x97\x61\x96\x9B\x71\xD7\x9F\x82\x18\xA3\x92\x59\xA7\xA2\x9A"
                          "\xAB\xB2\xDB\xAF\xC3\x1C\xB3\xD3\x5D\xB7\xE3\x9E\xBB\xF3\xDF\xBF",
                          48),
         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"},
    };
    for (const auto& [bytes, text] : rows) {
        EXPECT_EQ(base64Encode(bytes), text);
        EXPECT_EQ(test::textOf(base64EncodeSecret(test::bytesIn(bytes)).bytes()), text);
        const auto decoded = base64Decode(text, bytes.size());
        ASSERT_TRUE(decoded) << text;
        EXPECT_EQ(test::textOf(*decoded), bytes);
    }
}

TEST(Base64, whatIsNone) {
    // Cut, foreign characters, padding elsewhere, bits behind the last byte, spaces.
    for (const std::string_view text :
         {"Zm9", "Z", "Zm9*", "Zm9\xC3", "-_-_", "Zg==Zg==", "=Zg=", "Z===", "====", "Zg=g",
          "Zm9=", "Zh==", "Zm9v ", "Zm9v\r\nZm9v"}) {
        EXPECT_FALSE(base64Decode(text, 100)) << text;
    }
    EXPECT_FALSE(base64Decode(std::string_view("Zm9\0", 4), 100));
    EXPECT_FALSE(base64Decode("Zm9v\v", 100, Base64Spaces::Skipped));
    EXPECT_FALSE(base64Decode("Zm9vYg==", 3)) << "more than the limit";
    const auto spaced = base64Decode(" Zm\t9v\r\nYg= =\n", 4, Base64Spaces::Skipped);
    ASSERT_TRUE(spaced);
    EXPECT_EQ(test::textOf(*spaced), "foob");
}

class Base64Forms : public test::FormTest<Base64Form> {};
TV_FOR_EACH_FORM(Base64Forms, Base64Form);

// Blocks of the exact size: the sanitizer sees a read or write of one byte too many.
TEST_P(Base64Forms, likeThePortableForm) {
    const Base64Form& form = base64Forms.get();
    for (size_t size = 0; size < 1200; ++size) {
        const std::vector<uint8_t> in = test::randomBytesOf(size);
        const size_t groups = size / 3, lines = size / kBase64LineBytes;
        std::vector<char> expected(groups * 4), actual(groups * 4);
        kBase64Portable.encodeGroups(in.data() + size % 3, groups, expected.data());
        form.encodeGroups(in.data() + size % 3, groups, actual.data());
        ASSERT_EQ(actual, expected) << size;
        expected.resize(lines * kBase64LineWithBreak);
        actual.resize(expected.size());
        const uint8_t* from = in.data() + size % kBase64LineBytes;
        kBase64Portable.encodeLines(from, lines, expected.data());
        form.encodeLines(from, lines, actual.data());
        ASSERT_EQ(actual, expected) << size;
        const std::string text = base64Encode(in);
        ASSERT_EQ(text.size(), base64Length(size));
        ASSERT_EQ(test::textOf(base64EncodeSecret(in).bytes()), text);
        ASSERT_EQ(base64Decode(text, size), in);
    }
}

}  // namespace
}  // namespace tv
