// The lines of SMTP by themselves: commands, replies, what EHLO announces, and the sizes that a
// send knows of its message.
#include <gtest/gtest.h>

#include "base/Ascii.h"
#include "log/LogNull.h"
#include "mail/smtp/SmtpCapabilities.h"
#include "mail/smtp/SmtpCommand.h"
#include "mail/smtp/SmtpSend.h"

namespace tv::smtp {
namespace {

using Pairs = std::pair<std::string, std::string>[];

TEST(SmtpCommand, takesNothingButItsArgument) {
    const Pairs names = {{"MYHOST", "MYHOST"},
                         {"my_host", "myhost"},
                         {" host-1.test ", "host-1.test"},
                         {"a\r\nMAIL FROM:<x>", "aMAILFROMx"},
                         {"g\xC3\xA9p", "gp"},
                         {"___", "localhost"},
                         {"", "localhost"},
                         {std::string("a\0b", 3), "ab"}};
    for (const auto& [given, wanted] : names)
        EXPECT_EQ(greetingCommand("EHLO", given), "EHLO " + wanted + "\r\n");
    const Pairs recipients = {{"\"Anna <x@y>\" <a@b.c>;", "a@b.c"},
                              {"a@b.c\r\nRCPT TO:<x@y.z>", "a@b.c"},
                              {std::string("a@b\0.c", 6), ""},
                              {"a@BÜCHER.Example", "a@xn--bcher-kva.example"},
                              {"bücher@example.test", "bücher@example.test"}};
    for (const auto& [given, wanted] : recipients)
        EXPECT_EQ(recipientAddress(given), wanted) << given;
    EXPECT_EQ(rcptToCommand("a@b", "SUCCESS\r\n"), "RCPT TO:<a@b> NOTIFY=SUCCESS\r\n");
    const struct {
        std::string given;
        FromParameters parameters;
        const char* path;
    } senders[] = {
        {"", {}, "<>"},
        {"Anna <a@b.c>", {}, "<a@b.c>"},
        {"a@b.c\r\nRSET", {}, "<a@b.c>"},
        {"a@bücher.example", {}, "<a@xn--bcher-kva.example>"},
        {"ü@b", {.ret = "FULL", .smtpUtf8 = true}, "<ü@b> RET=FULL BODY=8BITMIME SMTPUTF8"},
        {"a@b", {"HDRS", "id1"}, "<a@b> RET=HDRS ENVID=id1"},
        {"a@b", {"", "id\r\nDATA"}, "<a@b> ENVID=idDATA"},
        {"a@b", {"\r\n", "\n"}, "<a@b>"}};
    for (const auto& row : senders) {
        EXPECT_EQ(mailFromCommand(row.given, row.parameters),
                  "MAIL FROM:" + std::string(row.path) + "\r\n");
    }
}

ReplyState read(SmtpReplyReader& reader, const std::string& lines) {
    ReplyState state = ReplyState::NeedMore;
    for (size_t at = 0, end; at < lines.size(); at = end + 2) {
        EXPECT_EQ(state, ReplyState::NeedMore) << at;
        end = lines.find("\r\n", at);
        state = reader.addLine(lines.substr(at, end + 2 - at));
        if (state == ReplyState::TooLarge || state == ReplyState::TooManyLines) break;
    }
    return state;
}

std::string repeated(const std::string& text, size_t count) {
    std::string out;
    while (count-- > 0)
        out += text;
    return out;
}

TEST(SmtpReplyReader, judgesReplies) {
    const std::string eighteen = repeated("250-" + std::string(59996, 'a') + "\r\n", 18);
    const struct {
        const char* name;
        std::string lines;
        ReplyState state;
        int32_t code = 0;
    } rows[] = {
        {"one line", "250 ok\r\n", ReplyState::Complete, 250},
        {"two lines", "250-A\r\n250 B\r\n", ReplyState::Complete, 250},
        {"code alone", "250\r\n", ReplyState::Complete, 250},
        {"code and blank", "354 \r\n", ReplyState::Complete, 354},
        {"code and NUL", std::string("250\0x\r\n", 7), ReplyState::Complete, 250},
        {"the last line's code counts", "250-A\r\n550 B\r\n", ReplyState::Complete, 550},
        {"unfinished", "250-A\r\n", ReplyState::NeedMore},
        {"unfinished bare", "250-\r\n", ReplyState::NeedMore},
        {"two digits", "25\r\n", ReplyState::Malformed},
        {"empty", "\r\n", ReplyState::Malformed},
        {"other separator", "250_ok\r\n", ReplyState::Malformed},
        {"tab", "250\tok\r\n", ReplyState::Malformed},
        {"four digits", "2500 ok\r\n", ReplyState::Malformed},
        {"letters", "abc ok\r\n", ReplyState::Malformed},
        {"sign", "-50 ok\r\n", ReplyState::Malformed},
        {"blank first", " 250 ok\r\n", ReplyState::Malformed},
        {"code nought", "000 ok\r\n", ReplyState::Malformed},
        {"junk after a continuation", "250-A\r\njunk\r\n", ReplyState::Malformed},
        {"longest line", "250 " + std::string(65532, 'a') + "\r\n", ReplyState::Complete, 250},
        {"longer line", "250 " + std::string(65533, 'a') + "\r\n", ReplyState::TooLarge},
        {"most lines", repeated("250-\r\n", 999) + "250 \r\n", ReplyState::Complete, 250},
        {"more lines", repeated("250-\r\n", 1000) + "250 \r\n", ReplyState::TooManyLines},
        {"too much in all", eighteen, ReplyState::TooLarge},
    };
    for (const auto& row : rows) {
        SmtpReplyReader reader("X");
        EXPECT_EQ(read(reader, row.lines), row.state) << row.name;
        EXPECT_TRUE(row.state > ReplyState::Malformed || reader.reply().statusCode == row.code);
    }
    for (const int32_t code : {0, 199, 200, 299, 300, 354, 550, -250})
        EXPECT_EQ((SmtpResponse{"", code, {}}.isSuccess()), code == 200 || code == 299) << code;
}

TEST(SmtpCapabilities, readEhloReplies) {
    using C = SmtpCapabilities;
    using M = AuthMechanisms;
    const std::pair<bool C::*, const char*> extensions[] = {
        {&C::has8BitMime, " 8bit"},  {&C::hasEnhancedStatusCodes, " codes"},
        {&C::hasStartTls, " tls"},   {&C::hasPipelining, " pipe"},
        {&C::hasChunking, " chunk"}, {&C::hasSmtpUtf8, " utf8"},
        {&C::hasDsn, " dsn"},        {&C::authWithoutMechanisms, " noauth"}};
    const std::pair<bool M::*, const char*> mechanisms[] = {
        {&M::cramMd5, " cram"},   {&M::anonymous, " anon"},      {&M::plain, " plain"},
        {&M::login, " login"},    {&M::digestMd5, " digest"},    {&M::gssapi, " gssapi"},
        {&M::ntlm, " ntlm"},      {&M::kerberosV4, " kerberos"}, {&M::msn, " msn"},
        {&M::xoauth2, " xoauth2"}};
    // The lines behind their codes; all that is found, the size last.
    const std::pair<std::vector<std::string>, std::string> rows[] = {
        {{"mail.test"}, ""},
        {{"x", "8BITMIME", "ENHANCEDSTATUSCODES", "STARTTLS", "PIPELINING", "CHUNKING", "SMTPUTF8",
          "DSN"},
         " 8bit codes tls pipe chunk utf8 dsn"},
        {{"8bitMime", "EnhancedStatusCodes", "starttls", "pipelining", "chunking", "smtputf8",
          "dsn"},
         " 8bit codes tls pipe chunk utf8 dsn"},
        {{"x", "Pipelining", "size 1000"}, " pipe 1000"},
        {{"SIZE 18446744073709551615", "SIZE  52428800 "}, " 52428800"},
        {{"SIZE 1000", "SIZE"}, ""},  // the last one counts
        {{"SIZE 1000", "SIZE 0"}, ""},
        {{"SIZE 18446744073709551616", "SIZE 1k", "SIZES 1000"}, ""},
        {{"XPIPELINING", "X-STARTTLS", "AUTHX LOGIN", "AUTH=PLAIN"}, ""},
        {{"AUTH LOGIN PLAIN", "AUTH=LOGIN"}, " plain login"},
        {{"AUTH NTLM", "DSN", "AUTH=LOGIN PLAIN", "AUTH CRAM-MD5 DIGEST-MD5 GSSAPI MSN"},
         " dsn cram plain login digest gssapi ntlm msn"},
        {{"AUTH ANONYMOUS XOAUTH2 KERBEROS_V4"}, " anon kerberos xoauth2"},
        {{"aUTH ntlm msn gssapi anonymous cram-md5 Digest-md5 xoauth2 Kerberos_v4 login plain"},
         " cram anon plain login digest gssapi ntlm kerberos msn xoauth2"},
        {{"AUTH"}, " noauth"},
        {{"auth "}, " noauth"},
        {{"", ""}, ""},
    };
    for (const auto& [lines, wanted] : rows) {
        SmtpResponse reply{"EHLO", 250, {}};
        for (const std::string& line : lines)
            reply.lines.push_back((&line == &lines.back() ? "250 " : "250-") + line + "\r\n");
        C found;
        EXPECT_TRUE(addEhloReply(reply, found).empty());
        std::string shown;
        for (const auto& [flag, name] : extensions)
            shown += found.*flag ? name : "";
        for (const auto& [flag, name] : mechanisms)
            shown += found.auth.*flag ? name : "";
        if (found.sizeLimit != 0) shown += " " + std::to_string(found.sizeLimit);
        EXPECT_EQ(shown, wanted) << lines.back();
    }
}

TEST(SmtpSend, learnsItsSizes) {
    LogNull log;
    for (const char* message : {"A: b\r\n\r\n.x\r\n..\r\n", ""}) {
        for (const bool rendered : {true, false}) {
            SmtpSend send;
            send.recipients = {"a", "b"};
            send.mimeSource = [&](LogBase&, OutputStream& out, bool) {
                return out.write(message) && rendered;
            };
            const bool good = *message && rendered;
            EXPECT_EQ(send.measure(log), good);
            EXPECT_EQ(send.mimeSize, good ? 16u : 0u);
            EXPECT_EQ(send.stuffedSize, good ? 18u : 0u);
            EXPECT_EQ(send.progressTotal == 16u + 180u + 160u, good);
        }
    }
}

}  // namespace
}  // namespace tv::smtp
