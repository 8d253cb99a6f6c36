// What a send knows of its message before it begins.
#include "mail/smtp/SmtpSend.h"

#include <gtest/gtest.h>

#include "log/LogNull.h"

namespace tv {
namespace {

TEST(SmtpSend, learnsItsSizes) {
    LogNull log;
    SmtpSend send;
    send.recipients = {"a", "b"};
    send.mimeSource = [](LogBase&, OutputStream& out, bool) {
        return out.write("A: b\r\n\r\n.x\r\n") && out.write("..\r\n");
    };
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
}

}  // namespace
}  // namespace tv
