// The dots of line starts in every form of the search, and the blocks a message leaves in.
#include "mail/smtp/DotStuffer.h"

#include <gtest/gtest.h>

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

// The very first byte stays alone.
std::string reference(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i)
        out += i > 0 && text.substr(i - 1, 2) == "\n." ? ".." : std::string(1, text[i]);
    return out;
}

class DotStufferForms : public test::FormTest<LineDotForm> {};
TV_FOR_EACH_FORM(DotStufferForms, LineDotForm);

TEST_P(DotStufferForms, doublesTheDotOfEachLine) {
    for (uint32_t size = 0; size < 80; ++size) {
        std::vector<std::string> texts = {std::string(size, '.'),
                                          test::randomText(size, ".\n\r.\nab", size)};
        for (size_t at = 1; at < size; ++at) {  // a dot at every place
            texts.emplace_back(size, at % 2 ? '\n' : 'a').replace(at - 1, 2, "\n.");
            texts.back()[0] = at == 1 ? '\n' : '.';
        }
        for (const std::string& text : texts) {
            for (const size_t piece : {1u, 2u, size / 2 + 1, size + 1})
                ASSERT_EQ(stuffed(text, piece), reference(text)) << piece;
        }
    }
}

TEST(DotStuffer, stopsWhereAPieceIsRefused) {
    for (const size_t taken : {0u, 1u, 2u}) {
        DotStuffer stuffer;
        EXPECT_TRUE(stuffer.stuff(bytesIn("\n"), [](auto) { return true; }));
        size_t calls = 0;
        const auto take = [&](std::span<const uint8_t>) { return ++calls <= taken; };
        EXPECT_FALSE(stuffer.stuff(bytesIn(".b\n.c"), take)) << taken;
        EXPECT_EQ(calls, taken + 1);
    }
}

TEST(DataBlocks, areTheSameHoweverTheMessageIsCut) {
    std::string text = test::randomText(150000, ".\n\r.\nab");
    for (int i = 0; i < 150000; ++i)
        text += "\n.";  // nothing grows more
    const std::string whole = reference(text);
    for (const size_t piece : {11u, 65535u, 65536u, 65537u, 450000u}) {
        for (const size_t blockSize : {0u, 10u, 32767u, 500000u}) {
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
    for (const auto& [bytes, calls] :
         {std::pair{1u, 0u}, {65535u, 0u}, {1u, 65u}, {1000u, 65u}, {65536u, 132u}}) {
        EXPECT_TRUE(blocks.write(std::string(bytes, 'x')));
        EXPECT_EQ(sink.calls, calls);
    }
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
