#include "mail/smtp/ChunkStream.h"

#include <gtest/gtest.h>

#include "log/LogNull.h"
#include "mail/smtp/SmtpSend.h"

namespace tv {
namespace {

std::string numbered(size_t size) {
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        text += static_cast<char>('a' + i % 26);
    }
    return text;
}

TEST(ChunkStream, givesTheSameBlocksHoweverItIsFed) {
    const std::string text = numbered(103);
    for (size_t piece = 1; piece <= text.size(); ++piece) {
        std::string out;
        std::vector<size_t> sizes;
        ChunkStream stream(10, [&](std::span<const uint8_t> chunk) {
            out.append(chunk.begin(), chunk.end());
            sizes.push_back(chunk.size());
            return true;
        });
        for (size_t at = 0; at < text.size(); at += piece) {
            ASSERT_TRUE(stream.write(std::string_view(text).substr(at, piece)));
        }
        ASSERT_TRUE(stream.finish());
        EXPECT_EQ(out, text);
        EXPECT_EQ(stream.bytesOut(), text.size());
        ASSERT_EQ(sizes.size(), 11u);
        EXPECT_EQ(std::vector<size_t>(10, 10), std::vector<size_t>(sizes.begin(), sizes.end() - 1));
    }
}

TEST(ChunkStream, stopsAtTheFirstRefusal) {
    size_t calls = 0;
    ChunkStream stream(4, [&](std::span<const uint8_t>) { return ++calls < 2; });
    EXPECT_FALSE(stream.write("0123456789"));
    EXPECT_FALSE(stream.write("x"));
    EXPECT_FALSE(stream.finish());
    EXPECT_TRUE(stream.failed());
    EXPECT_EQ(calls, 2u);
    EXPECT_EQ(stream.bytesOut(), 4u);
}

TEST(ChunkStream, withoutBytesNothingIsHandedOn) {
    ChunkStream stream(4, [](std::span<const uint8_t>) { return false; });
    EXPECT_TRUE(stream.finish());
}

TEST(SmtpSend, learnsItsSizes) {
    LogNull log;
    SmtpSend send;
    send.recipients = {"a", "b"};
    ASSERT_TRUE(send.mimeData.append("A: b\r\n\r\n.x\r\n..\r\n"));
    ASSERT_TRUE(send.measure(log));
    EXPECT_EQ(send.mimeSize, 16u);
    EXPECT_EQ(send.stuffedSize, 18u);
    EXPECT_EQ(send.progressTotal, 16u + 180u + 160u);

    SmtpSend empty;
    empty.mimeSource = [](LogBase&, OutputStream&, bool) { return true; };
    EXPECT_FALSE(empty.measure(log));
    SmtpSend failing;
    failing.mimeSource = [](LogBase&, OutputStream& out, bool) { return out.write("A"), false; };
    EXPECT_FALSE(failing.measure(log));
    SmtpSend none;
    EXPECT_FALSE(none.measure(log));
}

}  // namespace
}  // namespace tv
