#include "mail/smtp/SmtpCapabilities.h"

#include <gtest/gtest.h>

namespace tv {
namespace {

using Lines = std::vector<std::string>;

// The flags as letters: extensions, then mechanisms.
std::string shown(const SmtpCapabilities& c) {
    std::string out;
    const auto add = [&out](bool flag, const char* name) {
        if (!flag) return;
        if (!out.empty()) out += ' ';
        out += name;
    };
    add(c.has8BitMime, "8bit");
    add(c.hasEnhancedStatusCodes, "codes");
    add(c.hasStartTls, "tls");
    add(c.hasPipelining, "pipe");
    add(c.hasChunking, "chunk");
    add(c.hasSmtpUtf8, "utf8");
    add(c.hasDsn, "dsn");
    add(c.sizeLimit != 0, std::to_string(c.sizeLimit).c_str());
    add(c.authWithoutMechanisms, "noauth");
    add(c.auth.cramMd5, "cram");
    add(c.auth.anonymous, "anon");
    add(c.auth.plain, "plain");
    add(c.auth.login, "login");
    add(c.auth.digestMd5, "digest");
    add(c.auth.gssapi, "gssapi");
    add(c.auth.kerberosV4, "kerberos");
    add(c.auth.ntlm, "ntlm");
    add(c.auth.msn, "msn");
    add(c.auth.xoauth2, "xoauth2");
    return out;
}

TEST(SmtpCapabilities, readEhloReplies) {
    struct {
        Lines lines;
        const char* found;
    } const rows[] = {
        {{"250 mail.test\r\n"}, ""},
        {{"250-mail.test\r\n", "250-8BITMIME\r\n", "250-ENHANCEDSTATUSCODES\r\n",
          "250-STARTTLS\r\n", "250-PIPELINING\r\n", "250-CHUNKING\r\n", "250-SMTPUTF8\r\n",
          "250 DSN\r\n"},
         "8bit codes tls pipe chunk utf8 dsn"},
        {{"250-x\r\n", "250-Pipelining\r\n", "250 size 1000\r\n"}, "pipe 1000"},
        {{"250-SIZE 18446744073709551615\r\n", "250 SIZE  52428800 \r\n"}, "52428800"},
        {{"250-SIZE 1000\r\n", "250 SIZE\r\n"}, ""},  // the last one counts
        {{"250-SIZE 1000\r\n", "250 SIZE 0\r\n"}, ""},
        {{"250-SIZE 18446744073709551616\r\n", "250-SIZE 1k\r\n", "250 SIZES 1000\r\n"}, ""},
        {{"250-x\r\n", "250-XPIPELINING\r\n", "250 X-STARTTLS\r\n"}, ""},
        {{"250-AUTH LOGIN PLAIN\r\n", "250 AUTH=LOGIN\r\n"}, "plain login"},
        {{"250-AUTH=LOGIN PLAIN\r\n", "250 AUTH CRAM-MD5 DIGEST-MD5 GSSAPI NTLM MSN\r\n"},
         "cram plain login digest gssapi ntlm msn"},
        {{"250 AUTH ANONYMOUS XOAUTH2 KERBEROS_V4\r\n"}, "anon kerberos xoauth2"},
        {{"250 AUTH=PLAIN\r\n"}, ""},
        {{"250-x\r\n", "250-auth login\r\n", "250-Auth=Login Plain\r\n",
          "250 aUTH ntlm msn gssapi anonymous cram-md5 Digest-md5 xoauth2 Kerberos_v4\r\n"},
         "cram anon plain login digest gssapi kerberos ntlm msn xoauth2"},
        {{"250-8bitMime\r\n", "250-EnhancedStatusCodes\r\n", "250-starttls\r\n",
          "250-pipelining\r\n", "250-chunking\r\n", "250-smtputf8\r\n", "250 dsn\r\n"},
         "8bit codes tls pipe chunk utf8 dsn"},
        {{"250 auth LOGIN\r\n"}, "login"},
        {{"250 AUTHX LOGIN\r\n"}, ""},
        {{"250 AUTH\r\n"}, "noauth"},
        {{"250 auth \r\n"}, "noauth"},
        {{"250-\r\n", "250\r\n"}, ""},
    };
    for (const auto& row : rows) {
        SmtpCapabilities found;
        EXPECT_TRUE(smtp::addEhloReply({"EHLO", 250, row.lines}, found).empty());
        EXPECT_EQ(shown(found), row.found) << row.lines.back();
    }
}

TEST(SmtpCapabilities, onlyGrow) {
    SmtpCapabilities found;
    smtp::addEhloReply({"EHLO", 250, {"250-AUTH NTLM\r\n", "250 DSN\r\n"}}, found);
    smtp::addEhloReply({"EHLO", 250, {"250 AUTH PLAIN\r\n"}}, found);
    EXPECT_EQ(shown(found), "dsn plain ntlm");
}

}  // namespace
}  // namespace tv
