// Settings as hosts give them: tidied texts, corrections of port and TLS flags, properties by name.
#include <gtest/gtest.h>

#include "mail/AutoFix.h"
#include "mail/ClsMailMan.h"
#include "mail/MailManText.h"
#include "tests/fixtures/FakeSystem.h"

namespace tv {
namespace {

constexpr const char* kPrevention = "To prevent auto-fix, set the AutoFix property = False/0";

TEST(AutoFix, correctsPortAndFlags) {
    using Lines = std::vector<std::string_view>;
    const Lines pop = {"AutoFix: Port 110 is for POP3.  Using port 25 for SMTP.", kPrevention};
    const Lines imap = {"AutoFix: Port 143 is for IMAP.  Using port 25 for SMTP.", kPrevention};
    const Lines implicit = {"AutoFix: SMTP port 465 is typically for implicit SSL/TLS.",
                            kPrevention};
    const Lines plain = {"AutoFix: SMTP port 25 is typically for unencrypted or explicit SSL/TLS.",
                         kPrevention};
    const Lines submission = {
        "AutoFix: SMTP port 587 requires explicit SSL/TLS for this mail server.", kPrevention};
    const Lines popAndPlain = {pop[0], kPrevention, plain[0], kPrevention};
    const struct {
        const char* host;
        int32_t port;
        bool ssl, startTls;
        int32_t portAfter;
        bool sslAfter, startTlsAfter;
        Lines lines;
    } rows[] = {
        {"h", 110, false, false, 25, false, false, pop},
        {"h", 110, true, true, 25, false, true, popAndPlain},
        {"h", 143, false, true, 25, false, true, imap},
        {"h", 465, true, false, 465, true, false, {}},
        {"h", 465, false, true, 465, true, false, implicit},
        {"h", 465, false, false, 465, true, false, implicit},
        {"h", 465, true, true, 465, true, false, implicit},
        {"h", 25, true, false, 25, false, false, plain},
        {"h", 25, false, true, 25, false, true, {}},
        {"h", 587, true, false, 587, true, false, {}},
        {"smtp.gmail.com", 587, true, false, 587, false, true, submission},
        {"smtp.office365.com", 587, false, false, 587, false, true, submission},
        {"smtp.gmail.com", 587, false, true, 587, false, true, {}},
        {"h", 2525, true, true, 2525, true, true, {}},
        {"h", -1, true, false, -1, true, false, {}},
    };
    for (const auto& row : rows) {
        SmtpSettings settings;
        settings.smtpHost.setUtf8(row.host);
        settings.smtpPort = row.port;
        settings.smtpSsl = row.ssl;
        settings.startTls = row.startTls;
        EXPECT_EQ(smtp::autoFix(settings), row.lines) << row.port;
        EXPECT_EQ(settings.smtpPort, row.portAfter);
        EXPECT_EQ(settings.smtpSsl, row.sslAfter) << row.port;
        EXPECT_EQ(settings.startTls, row.startTlsAfter) << row.port;
        EXPECT_TRUE(smtp::autoFix(settings).empty()) << "second time: " << row.port;
    }
}

TEST(AutoFix, oneTlsFlagIsLeft) {
    for (const int32_t port : {465, 2525}) {
        SmtpSettings settings;
        settings.smtpPort = port;
        settings.smtpSsl = settings.startTls = true;
        smtp::settleTlsFlags(settings);
        EXPECT_EQ(settings.smtpSsl, port == 465);
        EXPECT_EQ(settings.startTls, port != 465);
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
        {1252, "httphttp://://x", "http:x"},
        {1252, "M\xC3\x96W.test", "m\xC3\xB6w.test"},  // Ö, 0xD6 in the page
        {1252, "\xC3\x9F.test", "\xC3\xBF.test"},      // 0xDF becomes 0xFF
        {1250, "\xC5\x90.test", "\xC5\x91.test"},      // Ő, 0xD5 in the page
        {1251, "\xD0\x90.test", "\xD0\xB0.test"},      // А, 0xC0 in the page
        {65001, "M\xC3\x96W.test", "m\xC3\xB6w.test"},
        {65001, "\xC3\x9F.test", "\xC3\x9F.test"},
        {65001, "\xC5\x90.test", "\xC5\x90.test"},  // beyond U+00DE: as it is
        {932, "\xE3\x82\xA2.TEST", "\xE3\x82\xA2.test"},
        {1252, "\xC5\x90\xC3\x96.TEST", "\xC5\x90\xC3\xB6.test"},  // not in the page
        {65001, "", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(smtp::tidySmtpHost(XString(row.given), row.codePage).utf8(), row.wanted)
            << row.codePage << " " << row.given;
    }
}

TEST(MailManText, tidiesAuthMethods) {
    const struct {
        const char* given;
        const char* wanted;
    } rows[] = {
        {" login\t", "LOGIN"},    {"cram-md5", "CRAM-MD5"},
        {"auth plain", "PLAIN"},  {"plain or login", "LOGIN"},
        {"use ntlm", "NTLM"},     {"some thing", ""},
        {"nonsense", "NONSENSE"}, {"", ""},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(smtp::tidyAuthMethod(XString(row.given)).utf8(), row.wanted) << row.given;
    }
}

TEST(ClsMailMan, propertiesByName) {
    ClsMailMan mailMan;
    const SmtpSettings& settings = mailMan.settings();
    EXPECT_TRUE(mailMan.setProperty("SmtpPort", 2525));
    EXPECT_TRUE(mailMan.setProperty("SmtpPort", 0));  // keeps the old one
    EXPECT_EQ(settings.smtpPort, 2525);
    EXPECT_TRUE(mailMan.setProperty("SmtpPort", -3));
    EXPECT_EQ(settings.smtpPort, -3);
    EXPECT_TRUE(mailMan.setProperty("SmtpSsl", 1));
    EXPECT_TRUE(settings.smtpSsl);
    EXPECT_TRUE(mailMan.setProperty("SmtpAuthMethod", XString(" auth ntlm ")));
    EXPECT_TRUE(settings.authMethod == "NTLM");
    EXPECT_TRUE(mailMan.setProperty("ReadTimeout", 4294967295));
    EXPECT_EQ(settings.idleTimeoutMs, 4294967295u);

    const struct {
        const char* name;
        const char* value;
    } refused[] = {
        {"smtpport", "25"}, {"NoSuchThing", "1"},  {"SmtpPort", "25x"},
        {"SmtpPort", ""},   {"SmtpSsl", "2"},      {"SmtpPort", "2147483648"},
        {"SmtpSsl", "yes"}, {"ReadTimeout", "-1"}, {"ReadTimeout", "4294967296"},
    };
    for (const auto& row : refused) {
        EXPECT_FALSE(mailMan.setProperty(row.name, XString(row.value))) << row.name;
    }
    EXPECT_EQ(settings.smtpPort, -3);
    EXPECT_TRUE(settings.smtpSsl);
}

TEST(ClsMailMan, secretsStaySecret) {
    ClsMailMan mailMan;
    mailMan.setProperty("SmtpPassword", XString("pw"));
    mailMan.setProperty("OAuth2AccessToken", XString("token"));
    EXPECT_TRUE(mailMan.settings().password.isSecret());
    EXPECT_TRUE(mailMan.settings().oauth2Token.isSecret());
}

TEST(ClsMailMan, everyPropertyTakesAValue) {
    ClsMailMan mailMan;
    for (const std::string_view name : ClsMailMan::propertyNames()) {
        EXPECT_TRUE(mailMan.setProperty(name, XString("1"))) << name;
    }
}

}  // namespace
}  // namespace tv
