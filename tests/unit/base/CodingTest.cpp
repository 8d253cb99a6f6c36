// Bytes and values written as text: hexadecimal digits, base64 in every form, JSON.
#include <gtest/gtest.h>

#include <sstream>

#include "base/Base64.h"
#include "base/Hex.h"
#include "base/Json.h"
#include "tests/fixtures/Base64FormTest.h"
#include "tests/fixtures/TestBytes.h"

namespace tv {
namespace {

TEST(Hex, decodesPairsOfDigitsOnly) {
    EXPECT_EQ(hexDecode(""), std::vector<uint8_t>{});
    EXPECT_EQ(hexDecode("09afAF"), (std::vector<uint8_t>{0x09, 0xAF, 0xAF}));
    for (const char* bad : {"0", "0g", "g0", "0x10", " 00", "00 ", "0:", "/0", "@a", "`0"}) {
        EXPECT_FALSE(hexDecode(bad)) << bad;
    }
}

// RFC 4648 section 10, and every value of six bits once.
TEST(Base64, knownTexts) {
    EXPECT_EQ(base64Encode("f"), "Zg==");
    EXPECT_EQ(base64Encode("fo"), "Zm8=");
    EXPECT_EQ(base64Encode(std::string_view(
                  "\x00\x10\x83\x10\x51\x87\x20\x92\x8B\x30\xD3\x8F\x41\x14\x93\x51"
                  "\x55\x97\x61\x96\x9B\x71\xD7\x9F\x82\x18\xA3\x92\x59\xA7\xA2\x9A"
                  "\xAB\xB2\xDB\xAF\xC3\x1C\xB3\xD3\x5D\xB7\xE3\x9E\xBB\xF3\xDF\xBF",
                  48)),
              "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
}

TEST(Base64, whatIsNone) {
    // Cut, foreign characters, padding elsewhere, bits behind the last byte, spaces.
    for (const std::string_view text :
         {"Zm9", "Z", "Zm9*", "Zm9\xC3", "-_-_", "Zg==Zg==", "=Zg=", "Z===", "====", "Zg=g",
          "Zm9=", "Zh==", "Zm9v ", "Zm9v\r\nZm9v"}) {
        EXPECT_FALSE(base64Decode(text, 100)) << text;
    }
    EXPECT_FALSE(base64Decode("Zm9v\v", 100, Base64Spaces::Skipped));
    EXPECT_FALSE(base64Decode("Zm9vYg==", 3)) << "more than the limit";
    EXPECT_EQ(base64Decode(" Zm\t9v\r\nYg= =\n", 4, Base64Spaces::Skipped),
              (std::vector<uint8_t>{'f', 'o', 'o', 'b'}));
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

TEST(Json, membersAreReadInOrder) {
    const auto members = readJsonObject(
        " {\"a\" : \"x\\\"\\\\\\/\\b\\f\\n\\r\\t\", \"b\":-1.5e+3,\"c\":true,\r\n\t\"d\":null,"
        "\"e\":{\"a\":[{}]}, \"f\":[1, \"]\"],\"\\u00e4\\ud83d\\ude00\":\"\\u0041\",\"\":0} ");
    ASSERT_TRUE(members);
    std::string all;
    for (const JsonMember& member : *members) {
        all += member.name + "=" + std::string(member.text()) + ";";
    }
    EXPECT_EQ(all,
              "a=x\"\\/\b\f\n\r\t;b=-1.5e+3;c=true;d=null;e={\"a\":[{}]};f=[1, \"]\"];"
              "\xC3\xA4\xF0\x9F\x98\x80=A;=0;");
    EXPECT_EQ(findMember(*members, "c")->kind, JsonMember::Kind::Bool);
    EXPECT_EQ(findMember(*members, "g"), nullptr);
}

TEST(Json, whatIsNoObject) {
    const auto nested = [](size_t depth) {
        return "{\"a\":" + std::string(depth - 1, '[') + std::string(depth - 1, ']') + "}";
    };
    EXPECT_TRUE(readJsonObject(nested(kMaxJsonDepth)));
    EXPECT_FALSE(readJsonObject(nested(kMaxJsonDepth + 1)) || readJsonObject(nested(60000)));
    const std::string whole = "{\"a\":[1,{\"b\":\"\\u00e4\"}],\"c\":false}";
    ASSERT_TRUE(readJsonObject(whole));
    for (size_t i = 0; i < whole.size(); ++i) {
        EXPECT_FALSE(readJsonObject(whole.substr(0, i))) << i;
    }
    for (const char* text : {"[]", "1", "{} {}", "{,}", "{a:1}", "{\"a\":1 \"b\":2}"}) {
        EXPECT_FALSE(readJsonObject(text)) << text;
    }
    std::istringstream values(
        "1, 01 1. .5 +1 1e tru 'x' \"\\x\" \"\\u12g4\" \"\\ud83d\" \"\\ude00\" \"\\ud83d\\u0041\" "
        "[1,] \"\xFF\" 1,\"\\u0061\":2 \"\1\" {\"b\"} {\"b\":1,}");
    for (std::string value; values >> value;) {
        EXPECT_FALSE(readJsonObject("{\"a\":" + value + "}")) << value;
    }
    EXPECT_FALSE(readJsonObject(std::string_view("{\"a\":\"\0\"}", 9)));
}

}  // namespace
}  // namespace tv
