// Settings as hosts give them: tidied texts, corrections of port and TLS flags, properties by name.
#include <gtest/gtest.h>

#include "mail/AutoFix.h"
#include "mail/ClsMailMan.h"
#include "mail/MailManText.h"
#include "tests/fixtures/FakeSystem.h"

namespace tv {
namespace {

TEST(AutoFix, correctsPortAndFlags) {
    const char* const prevention = "To prevent auto-fix, set the AutoFix property = False/0";
    const char* const pop = "AutoFix: Port 110 is for POP3.  Using port 25 for SMTP.";
    const char* const imap = "AutoFix: Port 143 is for IMAP.  Using port 25 for SMTP.";
    const char* const implicit = "AutoFix: SMTP port 465 is typically for implicit SSL/TLS.";
    const char* const plain =
        "AutoFix: SMTP port 25 is typically for unencrypted or explicit SSL/TLS.";
    const char* const submission =
        "AutoFix: SMTP port 587 requires explicit SSL/TLS for this mail server.";
    const struct {
        const char* host;
        std::string before, after;                 // port and flags
        std::vector<std::string_view> lines = {};  // each with the prevention behind it
    } rows[] = {
        {"h", "110", "25", {pop}},
        {"h", "110 ssl starttls", "25 starttls", {pop, plain}},
        {"h", "143 starttls", "25 starttls", {imap}},
        {"h", "465 ssl", "465 ssl"},
        {"h", "465", "465 ssl", {implicit}},
        {"h", "465 ssl starttls", "465 ssl", {implicit}},
        {"h", "25 ssl", "25", {plain}},
        {"h", "587 ssl", "587 ssl"},
        {"smtp.gmail.com", "587 ssl", "587 starttls", {submission}},
        {"smtp.office365.com", "587", "587 starttls", {submission}},
        {"smtp.gmail.com", "587 starttls", "587 starttls"},
        {"h", "2525 ssl starttls", "2525 ssl starttls"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.host + row.before);
        SmtpSettings settings;
        settings.smtpHost.setUtf8(row.host);
        settings.smtpPort = std::stoi(row.before);
        settings.smtpSsl = row.before.find(" ssl") != std::string::npos;
        settings.startTls = row.before.find(" starttls") != std::string::npos;
        std::vector<std::string_view> lines;
        for (const std::string_view line : row.lines)
            lines.insert(lines.end(), {line, prevention});
        EXPECT_EQ(smtp::autoFix(settings), lines);
        EXPECT_EQ(std::to_string(settings.smtpPort) + (settings.smtpSsl ? " ssl" : "") +
                      (settings.startTls ? " starttls" : ""),
                  row.after);
        EXPECT_TRUE(smtp::autoFix(settings).empty()) << "second time";
        smtp::settleTlsFlags(settings);
        EXPECT_FALSE(settings.smtpSsl && settings.startTls);
    }
}

TEST(MailManText, tidiesHosts) {
    const struct {
        uint32_t codePage;
        const char* given;
        const char* wanted;
    } rows[] = {
        {1252, " \tMail.TEST\r\n", "mail.test"},
        {1252, "HTTPS://mail.test/", "mail.test"},
        {1252, "http://a.http://b/c", "a.bc"},
        {1252, "MÖW.test", "möw.test"},
        {1252, "ß.test", "ÿ.test"},  // 0xDF becomes 0xFF
        {1250, "Ő.test", "ő.test"},
        {65001, "MÖW.test", "möw.test"},
        {65001, "ß.test", "ß.test"},
        {65001, "Ő.test", "Ő.test"},  // beyond U+00DE: as it is
        {932, "ア.TEST", "ア.test"},
        {1252, "ŐÖ.TEST", "Őö.test"},  // not in the page
    };
    for (const auto& row : rows) {
        EXPECT_EQ(smtp::tidySmtpHost(XString(row.given), row.codePage).utf8(), row.wanted)
            << row.codePage << " " << row.given;
    }
}

TEST(MailManText, tidiesAuthMethods) {
    const std::pair<const char*, const char*> rows[] = {
        {" login\t", "LOGIN"},    {"cram-md5", "CRAM-MD5"},
        {"auth plain", "PLAIN"},  {"use ntlm", "NTLM"},
        {"nonsense", "NONSENSE"}, {"plain or login", "LOGIN"},
        {"some thing", ""},       {"", ""},
    };
    for (const auto& [given, wanted] : rows)
        EXPECT_EQ(smtp::tidyAuthMethod(XString(given)).utf8(), wanted) << given;
}

TEST(ClsMailMan, propertiesByName) {
    ClsMailMan mailMan;
    for (const std::string_view name : ClsMailMan::propertyNames())
        EXPECT_TRUE(mailMan.setProperty(name, XString("1"))) << name;
    const SmtpSettings& settings = mailMan.settings();
    EXPECT_TRUE(settings.password.isSecret() && settings.oauth2Token.isSecret());
    EXPECT_TRUE(mailMan.setProperty("SmtpPort", 0));  // keeps the old one
    EXPECT_EQ(settings.smtpPort, 1);
    for (const char* port : {"2147483647", "-2147483648", "-3"})
        EXPECT_TRUE(mailMan.setProperty("SmtpPort", XString(port))) << port;
    EXPECT_TRUE(mailMan.setProperty("ReadTimeout", 4294967295));
    const std::pair<const char*, const char*> refused[] = {
        {"smtpport", "25"},         {"NoSuchThing", "1"},        {"SmtpPort", "25x"},
        {"SmtpPort", "2147483648"}, {"SmtpPort", "-2147483649"}, {"SmtpSsl", "2"},
        {"SmtpSsl", "-1"},          {"ReadTimeout", "-1"},       {"ReadTimeout", "4294967296"},
        {"ReadTimeout", ""},        {"VerboseLogging", "loud"},
    };
    for (const auto& [name, value] : refused)
        EXPECT_FALSE(mailMan.setProperty(name, XString(value))) << name << "=" << value;
    EXPECT_EQ(settings.smtpPort, -3);
    EXPECT_TRUE(settings.smtpSsl);
    EXPECT_EQ(settings.idleTimeoutMs, 4294967295u);
}

}  // namespace
}  // namespace tv
