#include "net/LineBuffer.h"

#include <gtest/gtest.h>

#include "base/Ascii.h"

namespace tv {
namespace {

std::span<const uint8_t> bytes(std::string_view text) {
    return {bytesOf(text), text.size()};
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

TEST(LineBuffer, TakesFromAnotherBuffer) {
    for (const std::string waiting : {"", "a", "a\r", "a\r\n", "a\r\nb"}) {
        LineBuffer buffer;
        DataBuffer out;
        buffer.append(bytes(waiting));
        buffer.takeUntil("\r\n", 10, out);
        for (const char* next : {"\nc", "d\r\ne"}) {
            SecureBuffer source(bytes(next));
            buffer.takeFrom(source);
            EXPECT_TRUE(source.empty()) << waiting;
            buffer.takeUntil("\r\n", 10, out);
        }
        EXPECT_TRUE(buffer.takeAll(out));
        EXPECT_EQ(out.text(), waiting + "\ncd\r\ne");
    }
}

}  // namespace
}  // namespace tv
