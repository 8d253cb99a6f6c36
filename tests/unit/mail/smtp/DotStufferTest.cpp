// The dots of line starts in every form of the search, and the blocks a message leaves in.
#include "mail/smtp/DotStuffer.h"

#include <gtest/gtest.h>

#include "base/Ascii.h"
#include "mail/smtp/DotStufferScan.h"
#include "tests/fixtures/FormTest.h"
#include "tests/fixtures/TestBytes.h"

namespace tv {

namespace test {
TV_FORMS(LineDotForm, lineDotForms, &Table::find);
}

namespace {

using test::bytesIn;

std::string stuffed(std::string_view text, size_t piece) {
    std::string out;
    DotStuffer stuffer;
    const auto take = [&](std::span<const uint8_t> bytes) {
        out += test::textOf(bytes);
        return true;
    };
    for (size_t at = 0; at < text.size(); at += piece) {
        EXPECT_TRUE(stuffer.stuff(bytesIn(text.substr(at, piece)), take));
        EXPECT_TRUE(stuffer.stuff({}, take));
    }
    return out;
}

class DotStufferForms : public test::FormTest<LineDotForm> {};
TV_FOR_EACH_FORM(DotStufferForms, LineDotForm);

TEST_P(DotStufferForms, doublesTheDotOfEachLine) {
    const std::pair<std::string_view, std::string_view> rows[] = {
        {"", ""},
        {".a\r\n", ".a\r\n"},  // the very first byte stays alone
        {"..\r\n..", "..\r\n..."},
        {"a\r\n.\r\nb", "a\r\n..\r\nb"},
        {"a\n.b", "a\n..b"},
        {"a\r.b", "a\r.b"},
        {"a.b\r\nc.d", "a.b\r\nc.d"},
        {"\n.\n.\n..\n", "\n..\n..\n...\n"},
        {"\r\n.", "\r\n.."},
        {"a.\n", "a.\n"},
    };
    for (const auto& [text, expected] : rows) {
        for (size_t piece = 1; piece <= text.size() + 1; ++piece)
            EXPECT_EQ(stuffed(text, piece), expected) << piece;
    }
    const std::string text = test::randomText(5000, ".\n\r.\nab");
    const std::string whole = stuffed(text, text.size());
    EXPECT_EQ(whole.substr(1), replaceAll(text, "\n.", "\n..").substr(1));
    for (const size_t piece : {1u, 2u, 15u, 16u, 17u, 33u, 1000u})
        EXPECT_EQ(stuffed(text, piece), whole) << piece;
}

TEST_P(DotStufferForms, findsADotAtEveryPlace) {
    for (size_t size = 0; size < 80; ++size) {
        for (size_t at = 0; at + 2 <= size; ++at) {
            std::string text(size, '\n');
            text[0] = '.';
            text[at] = '\n';
            text[at + 1] = '.';
            const uint8_t* in = bytesOf(text);
            ASSERT_EQ(lineDotForms.get().find(in, in + size), in + at + 1) << size << ", " << at;
        }
        const std::string dots(size, '.');
        ASSERT_EQ(lineDotForms.get().find(bytesOf(dots), bytesOf(dots) + size), nullptr);
    }
}

TEST(DotStuffer, stopsWhereAPieceIsRefused) {
    for (const size_t taken : {0u, 1u, 2u}) {
        size_t calls = 0;
        const auto take = [&](std::span<const uint8_t>) { return ++calls <= taken; };
        EXPECT_FALSE(DotStuffer().stuff(bytesIn("a\n.b\n.c"), take)) << taken;
        EXPECT_EQ(calls, taken + 1);
    }
    DotStuffer stuffer;
    EXPECT_TRUE(stuffer.stuff(bytesIn("\n"), [](auto) { return true; }));
    EXPECT_FALSE(stuffer.stuff(bytesIn("."), [](auto) { return false; }));
}

TEST(DataBlocks, areTheSameHoweverTheMessageIsCut) {
    std::string text = test::randomText(150000, ".\n\r.\nab");
    for (int i = 0; i < 150000; ++i)
        text += "\n.";  // nothing grows more
    const std::string whole = stuffed(text, text.size());
    for (const size_t piece : {11u, 65535u, 65536u, 65537u, 100000u, 450000u}) {
        for (const size_t blockSize : {0u, 10u, 32767u, 65536u, 500000u}) {
            test::StringStream sink;
            DataBlocks blocks(sink, blockSize);
            for (size_t at = 0; at < text.size(); at += piece)
                ASSERT_TRUE(blocks.write(std::string_view(text).substr(at, piece)));
            ASSERT_TRUE(blocks.finish());
            ASSERT_TRUE(sink.text == whole) << piece << ", " << blockSize;
            EXPECT_EQ(blocks.bytesOut(), whole.size());
            const size_t size = std::max<size_t>(blockSize, 1);
            EXPECT_EQ(sink.calls, (whole.size() + size - 1) / size);
        }
    }
}

TEST(DataBlocks, leaveTogether) {
    test::StringStream sink;
    DataBlocks blocks(sink, 1000);
    EXPECT_TRUE(blocks.write(std::string(1, 'x')) && blocks.write(std::string(65535, 'x')));
    EXPECT_EQ(sink.calls, 0u);
    EXPECT_TRUE(blocks.write("x"));
    EXPECT_EQ(sink.calls, 65u);
    EXPECT_TRUE(blocks.write(std::string(1000, 'x')) && blocks.handOn());
    EXPECT_EQ(sink.calls, 66u);
    EXPECT_TRUE(blocks.write(std::string(65536, 'x')));
    EXPECT_EQ(sink.calls, 132u);
    EXPECT_TRUE(blocks.finish() && blocks.finish());
    EXPECT_EQ(sink.calls, 133u);
}

TEST(DataBlocks, nothingLeavesAfterARefusal) {
    test::StringStream sink(1);
    DataBlocks blocks(sink, 4);
    EXPECT_TRUE(blocks.write("0123456789"));
    EXPECT_FALSE(blocks.handOn() || blocks.write("x") || blocks.finish());
    EXPECT_EQ(sink.calls, 2u);
    EXPECT_EQ(blocks.bytesOut(), 4u);
}

}  // namespace
}  // namespace tv
