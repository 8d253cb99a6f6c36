#include "mail/smtp/DotStuffer.h"

#include <gtest/gtest.h>

#include "base/Ascii.h"
#include "mail/smtp/DotStufferScan.h"
#include "tests/fixtures/CpuForms.h"
#include "tests/fixtures/TestBytes.h"

namespace tv {
namespace {

using test::bytesIn;

std::string stuffed(std::string_view text, size_t piece) {
    test::StringStream out;
    DotStuffer stuffer(out);
    for (size_t at = 0; at < text.size(); at += piece) {
        EXPECT_TRUE(stuffer.write(text.substr(at, piece)));
        EXPECT_TRUE(stuffer.write(std::string_view()));
    }
    return out.text;
}

class DotStufferForms : public test::CpuFormTest {};

TEST_P(DotStufferForms, DoublesTheDotOfEachLine) {
    const struct {
        const char* name;
        std::string_view text;
        std::string_view expected;
    } rows[] = {
        {"empty", "", ""},
        {"no dots", "a\r\nb\r\n", "a\r\nb\r\n"},
        {"very first byte", ".a\r\n", ".a\r\n"},
        {"first dot of two", "..\r\n..", "..\r\n..."},
        {"line start", "a\r\n.b", "a\r\n..b"},
        {"end of data in the text", "a\r\n.\r\nb", "a\r\n..\r\nb"},
        {"after a bare LF", "a\n.b", "a\n..b"},
        {"after a bare CR", "a\r.b", "a\r.b"},
        {"inside", "a.b\r\nc.d", "a.b\r\nc.d"},
        {"several", "\n.\n.\n..\n", "\n..\n..\n...\n"},
        {"last byte", "\r\n.", "\r\n.."},
        {"line feed last", "a.\n", "a.\n"},
    };
    for (const auto& row : rows) {
        for (size_t piece = 1; piece <= row.text.size() + 1; ++piece) {
            EXPECT_EQ(stuffed(row.text, piece), row.expected) << row.name << " by " << piece;
        }
    }
}

TEST_P(DotStufferForms, FindsADotAtEveryPlace) {
    for (size_t size = 0; size < 80; ++size) {
        for (size_t at = 0; at + 2 <= size; ++at) {
            std::string text(size, '\n');
            text[0] = '.';
            text[at] = '\n';
            text[at + 1] = '.';
            const uint8_t* in = bytesOf(text);
            ASSERT_EQ(findLineDot(in, in + size), in + at + 1) << size << ", " << at;
        }
        const std::string dots(size, '.');
        ASSERT_EQ(findLineDot(bytesOf(dots), bytesOf(dots) + size), nullptr);
    }
}

TEST_P(DotStufferForms, TheSameHoweverItIsCut) {
    const std::string text = test::randomText(5000, ".\n\r.\nab");
    const std::string whole = stuffed(text, text.size());
    EXPECT_EQ(whole.substr(1), replaceAll(text, "\n.", "\n..").substr(1));
    for (const size_t piece : {1u, 2u, 15u, 16u, 17u, 33u, 1000u}) {
        EXPECT_EQ(stuffed(text, piece), whole) << piece;
    }
}

INSTANTIATE_TEST_SUITE_P(Cpu, DotStufferForms, testing::ValuesIn(test::kCpuForms),
                         test::CpuFormTest::nameOf);

TEST(DotStuffer, RestartsForTheNextMessage) {
    test::StringStream out;
    DotStuffer stuffer(out);
    stuffer.write(std::string_view("a\r\n"));
    stuffer.restart();
    stuffer.write(std::string_view(".b"));
    EXPECT_EQ(out.text, "a\r\n.b");
}

TEST(DotStuffer, AFailedStreamIsReported) {
    for (const size_t writes : {0u, 1u, 2u}) {
        test::StringStream out(writes);
        DotStuffer stuffer(out);
        EXPECT_FALSE(stuffer.write(std::string_view("a\n.b\n.c"))) << writes;
        EXPECT_EQ(out.calls, writes + 1);
    }
    test::StringStream out(1);
    DotStuffer stuffer(out);
    EXPECT_TRUE(stuffer.write(std::string_view("\n")));
    EXPECT_FALSE(stuffer.write(std::string_view(".")));
}

}  // namespace
}  // namespace tv
