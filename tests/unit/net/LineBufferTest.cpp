#include "net/LineBuffer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/Ascii.h"

namespace tv {
namespace {

std::span<const uint8_t> bytes(std::string_view text) {
    return {bytesOf(text), text.size()};
}

// However the stream is cut, the same lines come out.
TEST(LineBuffer, LinesDoNotDependOnTheCuts) {
    const std::string stream = "220 a\r\n250-b\r250\n\r\n\r\n\r\r\n250 c\r\nrest";
    const std::vector<std::string> expected = {"220 a\r\n", "250-b\r250\n\r\n", "\r\n", "\r\r\n",
                                               "250 c\r\n"};
    for (size_t step = 1; step <= stream.size(); ++step) {
        LineBuffer buffer;
        std::vector<std::string> lines;
        for (size_t at = 0; at < stream.size(); at += step) {
            buffer.append(bytes(std::string_view(stream).substr(at, step)));
            for (;;) {
                DataBuffer line;
                if (buffer.takeUntil("\r\n", 100, line) != LineBuffer::Take::Found) break;
                lines.emplace_back(line.text());
            }
        }
        EXPECT_EQ(lines, expected) << "step " << step;
        DataBuffer rest;
        EXPECT_TRUE(buffer.takeAll(rest));
        EXPECT_EQ(rest.text(), "rest");
        EXPECT_TRUE(buffer.empty());
    }
}

TEST(LineBuffer, SizeLimit) {
    const struct {
        const char* name;
        const char* stream;
        size_t maxSize;
        LineBuffer::Take take;
        const char* taken;
        size_t left;
    } kCases[] = {
        {"fits exactly", "abc\r\nx", 5, LineBuffer::Take::Found, "abc\r\n", 1},
        {"match straddles the limit", "abc\r\nx", 4, LineBuffer::Take::TooLong, "abc\r", 2},
        {"no match within the limit", "abcdef", 4, LineBuffer::Take::TooLong, "abcd", 2},
        {"could still fit", "abc", 5, LineBuffer::Take::NeedMore, "", 3},
        {"nothing there", "", 5, LineBuffer::Take::NeedMore, "", 0},
    };
    for (const auto& c : kCases) {
        LineBuffer buffer;
        DataBuffer out;
        buffer.append(bytes(c.stream));
        EXPECT_EQ(buffer.takeUntil("\r\n", c.maxSize, out), c.take) << c.name;
        EXPECT_EQ(out.text(), c.taken) << c.name;
        EXPECT_EQ(buffer.size(), c.left) << c.name;
    }
}

}  // namespace
}  // namespace tv
