#include "mail/smtp/SmtpCommand.h"

#include <gtest/gtest.h>

namespace tv::smtp {
namespace {

struct Pair {
    std::string given;
    std::string wanted;
};

TEST(SmtpCommand, greetingNameKeepsWhatANameMayHold) {
    const Pair rows[] = {
        {"MYHOST", "MYHOST"},
        {"my_host", "myhost"},
        {" host-1.test ", "host-1.test"},
        {"a\r\nMAIL FROM:<x>", "aMAILFROMx"},
        {"g\xC3\xA9p", "gp"},
        {"___", "localhost"},
        {"", "localhost"},
        {std::string("a\0b", 3), "ab"},
    };
    for (const Pair& row : rows) {
        EXPECT_EQ(greetingCommand("EHLO", row.given), "EHLO " + row.wanted + "\r\n");
    }
}

TEST(SmtpCommand, recipientIsTheBareAddress) {
    const Pair rows[] = {
        {"a@b.c", "a@b.c"},
        {"<a@b.c>", "a@b.c"},
        {"a@b.c>;", "a@b.c"},
        {"a@b.c;>;>", "a@b.c"},
        {"<<a@b.c>>", "a@b.c"},
        {" <a@b.c> ; ", "a@b.c"},
        {"Anna <a@b.c>", "a@b.c"},
        {"\"Anna <x@y>\" <a@b.c>;", "a@b.c"},
        {"\"a<b\"@c.d", "\"a<b\"@c.d"},
        {"a@b.c\r\nRCPT TO:<x@y.z>", "a@b.c"},
        {"a@b.c\r\nDATA", "a@b.c"},
        {std::string("a@b\0.c", 6), ""},
        {"a@bücher.example", "a@xn--bcher-kva.example"},
        {"a@BÜCHER.Example", "a@xn--bcher-kva.example"},
        {"a@example.xn--p1ai", "a@example.xn--p1ai"},
        {"bücher@example.test", "bücher@example.test"},
        {"bücher", "bücher"},
        {"", ""},
        {"<>", ""},
    };
    for (const Pair& row : rows) {
        const std::string address = recipientAddress(row.given);
        EXPECT_EQ(address, row.wanted) << row.given;
        EXPECT_EQ(rcptToCommand(address, ""), "RCPT TO:<" + row.wanted + ">\r\n");
        EXPECT_EQ(recipientAddress(address), address) << "not stable: " << row.given;
    }
}

TEST(SmtpCommand, senderGoesIntoThePath) {
    const Pair rows[] = {
        {"a@b.c", "MAIL FROM:<a@b.c>\r\n"},
        {"", "MAIL FROM:<>\r\n"},
        {"Anna <a@b.c>", "MAIL FROM:<a@b.c>\r\n"},
        {"a@b.c\r\nRSET", "MAIL FROM:<a@b.c>\r\n"},
        {"a@bücher.example", "MAIL FROM:<a@xn--bcher-kva.example>\r\n"},
    };
    for (const Pair& row : rows) {
        EXPECT_EQ(mailFromCommand(row.given, {}), row.wanted);
    }
}

TEST(SmtpCommand, parametersFollowThePath) {
    EXPECT_EQ(mailFromCommand("ü@b", {.ret = "FULL", .smtpUtf8 = true}),
              "MAIL FROM:<ü@b> RET=FULL BODY=8BITMIME SMTPUTF8\r\n");
    EXPECT_EQ(mailFromCommand("a@b", {"HDRS", "id1"}), "MAIL FROM:<a@b> RET=HDRS ENVID=id1\r\n");
    EXPECT_EQ(mailFromCommand("a@b", {"", "id\r\nDATA"}), "MAIL FROM:<a@b> ENVID=idDATA\r\n");
    EXPECT_EQ(mailFromCommand("a@b", {"\r\n", "\n"}), "MAIL FROM:<a@b>\r\n");
    EXPECT_EQ(rcptToCommand("a@b", "SUCCESS\r\n"), "RCPT TO:<a@b> NOTIFY=SUCCESS\r\n");
}

TEST(SmtpCommand, shownFormSpellsLineEnds) {
    EXPECT_EQ(shownCommand("EHLO x\r\n"), "EHLO x<CRLF>");
    EXPECT_EQ(shownCommand("\r\n.\r\n"), "<CRLF>.<CRLF>");
}

}  // namespace
}  // namespace tv::smtp
