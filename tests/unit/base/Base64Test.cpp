#include "base/Base64.h"

#include <gtest/gtest.h>

#include "base/Ascii.h"
#include "base/ConstTime.h"
#include "tests/fixtures/Base64FormTest.h"
#include "tests/fixtures/CpuForms.h"
#include "tests/fixtures/TestBytes.h"

namespace tv {
namespace {

TEST(Base64, EncodesKnownVectors) {
    const struct {
        std::string_view bytes;
        std::string_view text;
    } rows[] = {
        {"", ""},
        {"f", "Zg=="},
        {"fo", "Zm8="},
        {"foo", "Zm9v"},
        {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="},
        {"foobar", "Zm9vYmFy"},
        {std::string_view("\0user\0pa\xC3\xA9", 10), "AHVzZXIAcGHDqQ=="},
        // Every value of six bits once.
        {std::string_view("\x00\x10\x83\x10\x51\x87\x20\x92\x8B\x30\xD3\x8F\x41\x14\x93\x51"
                          "\x55\x97\x61\x96\x9B\x71\xD7\x9F\x82\x18\xA3\x92\x59\xA7\xA2\x9A"
                          "\xAB\xB2\xDB\xAF\xC3\x1C\xB3\xD3\x5D\xB7\xE3\x9E\xBB\xF3\xDF\xBF",
                          48),
         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(base64Encode(row.bytes), row.text);
        const SecureBuffer secret = base64EncodeSecret({bytesOf(row.bytes), row.bytes.size()});
        EXPECT_TRUE(ctEqual(secret.bytes(), {bytesOf(row.text), row.text.size()})) << row.text;
        const auto decoded = base64Decode(row.text, row.bytes.size());
        ASSERT_TRUE(decoded) << row.text;
        EXPECT_EQ(test::textOf(*decoded), row.bytes);
    }
}

TEST(Base64, SecretFormGivesTheSameForEveryByte) {
    const std::vector<uint8_t> bytes = test::randomBytesOf(3 * 4096 + 1);
    const SecureBuffer secret = base64EncodeSecret(bytes);
    EXPECT_EQ(test::textOf(secret.bytes()), base64Encode(bytes));
}

TEST(Base64, RefusesWhatIsNone) {
    const struct {
        const char* name;
        std::string_view text;
    } rows[] = {
        {"cut", "Zm9"},
        {"one character", "Z"},
        {"foreign character", "Zm9*"},
        {"foreign high byte", "Zm9\xC3"},
        {"url alphabet", "-_-_"},
        {"NUL", std::string_view("Zm9\0", 4)},
        {"padding in the middle", "Zg==Zg=="},
        {"padding in front", "=Zg="},
        {"three pads", "Z==="},
        {"only pads", "===="},
        {"pad before last", "Zg=g"},
        {"bits behind the last byte, one pad", "Zm9="},
        {"bits behind the last byte, two pads", "Zh=="},
        {"space", "Zm9v "},
        {"line break", "Zm9v\r\nZm9v"},
    };
    for (const auto& row : rows) {
        EXPECT_FALSE(base64Decode(row.text, 100)) << row.name;
    }
}

TEST(Base64, SkipsSpacesOnlyWhereAsked) {
    const auto decoded = base64Decode(" Zm\t9v\r\nYg= =\n", 4, Base64Spaces::Skipped);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(test::textOf(*decoded), "foob");
    EXPECT_FALSE(base64Decode("Zm9v\v", 100, Base64Spaces::Skipped));
}

TEST(Base64, HoldsTheLimit) {
    EXPECT_TRUE(base64Decode("Zm9vYg==", 4));
    EXPECT_FALSE(base64Decode("Zm9vYg==", 3));
    EXPECT_TRUE(base64Decode("", 0));
}

TEST(Base64, TakesTheWidestVectorsThatTheMachineHas) {
    const struct {
        bool CpuFeatures::*needed;
        CpuFeatures features;
        const char* name;
    } rows[] = {
        {nullptr, {}, "portable"},
        {&CpuFeatures::ssse3, test::ssse3Features(), "ssse3"},
        {&CpuFeatures::avx2, test::avx2Features(), "avx2"},
        {&CpuFeatures::avx512Vbmi, test::avx512Features(), "avx512-vbmi"},
    };
    for (const auto& row : rows) {
        if (row.needed && !(detectedCpuFeatures().*row.needed)) continue;
        const test::CpuLimit limit(row.features);
        EXPECT_STREQ(base64Forms.get().name, row.name);
    }
}

class Base64Forms : public test::FormTest<Base64Form> {};
TV_FOR_EACH_FORM(Base64Forms, Base64Form);

TEST_P(Base64Forms, GivesWhatThePortableFormGives) {
    const Base64Form& form = base64Forms.get();
    const Base64Form& portable = kBase64Portable;
    if (GetParam() != &portable) {
        EXPECT_NE(GetParam()->encodeGroups, portable.encodeGroups);
        EXPECT_NE(GetParam()->encodeLines, portable.encodeLines);
    }
    // Blocks of the exact size: the sanitizer sees a read or write of one byte too many.
    for (size_t groups = 0; groups < 150; ++groups) {
        const std::vector<uint8_t> in = test::randomBytesOf(groups * 3);
        std::vector<char> expected(groups * 4);
        std::vector<char> actual(groups * 4);
        portable.encodeGroups(in.data(), groups, expected.data());
        form.encodeGroups(in.data(), groups, actual.data());
        ASSERT_EQ(actual, expected) << groups;
    }
    for (size_t lines = 0; lines < 20; ++lines) {
        const std::vector<uint8_t> in = test::randomBytesOf(lines * kBase64LineBytes);
        std::vector<char> expected(lines * kBase64LineWithBreak);
        std::vector<char> actual(lines * kBase64LineWithBreak);
        portable.encodeLines(in.data(), lines, expected.data());
        form.encodeLines(in.data(), lines, actual.data());
        ASSERT_EQ(actual, expected) << lines;
    }
}

TEST_P(Base64Forms, DecodesBackEveryLength) {
    for (size_t size = 0; size < 300; ++size) {
        const std::vector<uint8_t> bytes = test::randomBytesOf(size);
        const std::string text = base64Encode(bytes);
        ASSERT_EQ(text.size(), base64Length(size));
        const auto decoded = base64Decode(text, size);
        ASSERT_TRUE(decoded) << size;
        ASSERT_EQ(*decoded, bytes);
    }
}

}  // namespace
}  // namespace tv
