// What surrounds the transaction: the trial connection, STARTTLS, and host texts that try
// to speak SMTP themselves.
#include "tests/unit/mail/MailDialogue.h"

namespace tv::test {
namespace {

TEST(Verify, greetsAndLeaves) {
    MailWorld world(Properties{{"SmtpUsername", "u"}, {"SmtpPassword", "wrong"}});
    world.serve({greeting(), ehlo("250-x\r\n250 AUTH LOGIN\r\n"), quit()});
    EXPECT_TRUE(world.mailMan.VerifySmtpConnection());
    EXPECT_TRUE(contains(world.logText(), "initSmtp:"));
    EXPECT_TRUE(contains(world.logText(), "Success."));
    EXPECT_FALSE(contains(world.logText(), "wrong"));
    EXPECT_EQ(world.transcript(), "") << "the transcript is the send's";
}

TEST(Verify, leavesTheOpenConnectionAlone) {
    MailWorld world;
    world.compose();
    FakeLink& own = world.serve(opened() + Turns{mailFrom(), rcptTo(), data(), message(),
                                                 mailFrom(), rcptTo(), data(), message(), quit()});
    world.serve(trialTurns());
    EXPECT_TRUE(world.mailMan.SendEmail(world.email));
    EXPECT_TRUE(world.mailMan.VerifySmtpConnection());
    EXPECT_FALSE(own.closedByClient);
    EXPECT_TRUE(world.mailMan.SendEmail(world.email));
}

TEST(Verify, correctsSettingsForGood) {
    MailWorld world(Properties{{"SmtpPort", "110"}, {"SmtpSsl", "1"}});
    world.serve(trialTurns());
    EXPECT_TRUE(world.mailMan.VerifySmtpConnection());
    EXPECT_EQ(world.mailMan.settings().smtpPort, 25);
    EXPECT_FALSE(world.mailMan.settings().smtpSsl);
    EXPECT_TRUE(
        contains(world.logText(), "AutoFix: Port 110 is for POP3.  Using port 25 for SMTP."));

    MailWorld unfixed(
        Properties{{"SmtpPort", "2525"}, {"AutoFix", "0"}, {"SmtpSsl", "1"}, {"StartTLS", "1"}});
    unfixed.serve({greeting(), ehlo(), turn("STARTTLS\r\n", "502 no\r\n")}, 2525);
    EXPECT_FALSE(unfixed.mailMan.VerifySmtpConnection());
    EXPECT_FALSE(unfixed.mailMan.settings().smtpSsl) << "both flags: STARTTLS was meant";
}

TEST(Verify, failureIsInTheLog) {
    MailWorld world;
    world.net.refuse(kServer, 25);
    EXPECT_FALSE(world.mailMan.VerifySmtpConnection());
    const std::string log = world.logText();
    EXPECT_TRUE(contains(log, "No connection to 10.0.0.1:25: Connection rejected."));
    EXPECT_TRUE(contains(log, "Failed."));
    EXPECT_EQ(world.transcript(), "");
}

TEST(StartTls, refusalEndsTheSendAndNeverGoesOnInClear) {
    const struct {
        const char* reply;
        const char* logged;
    } rows[] = {
        {"454 not now\r\n", "The server refused STARTTLS: 454 not now"},
        {"503 bad sequence\r\n", "The solution is to enable STARTTLS on the mail server."},
    };
    for (const auto& row : rows) {
        MailWorld world(Properties{{"StartTLS", "1"}});
        world.compose();
        FakeLink& link = world.serve({greeting(), ehlo(), turn("STARTTLS\r\n", row.reply)});
        EXPECT_FALSE(world.mailMan.SendEmail(world.email));
        EXPECT_EQ(world.word(), "StartTlsFailed");
        EXPECT_TRUE(contains(world.logText(), "Non-success STARTTLS response."));
        EXPECT_TRUE(contains(world.logText(), row.logged)) << world.logText();
        EXPECT_TRUE(world.transcript().ends_with(row.reply));
        EXPECT_TRUE(link.closedByClient);
    }
}

TEST(StartTls, ehloBeforeItMayFail) {
    MailWorld world(Properties{{"StartTLS", "1"}});
    world.compose();
    world.serve({greeting(), ehlo("502 what\r\n")});
    EXPECT_FALSE(world.mailMan.SendEmail(world.email));
    EXPECT_EQ(world.word(), "GreetingError");
}

// An attacker's words may stand between the reply and the handshake.
TEST(StartTls, clearTextAfterTheReplyIsRefused) {
    MailWorld world(Properties{{"StartTLS", "1"}});
    world.compose();
    world.serve({greeting(), ehlo(), turn("STARTTLS\r\n", "220 go\r\n250 injected\r\n")});
    EXPECT_FALSE(world.mailMan.SendEmail(world.email));
    EXPECT_EQ(world.word(), "StartTlsFailed");
    EXPECT_TRUE(world.transcript().ends_with(
        "StartTlsFailed: The server sent unencrypted data after its reply to STARTTLS.\r\n"));
}

TEST(StartTls, aFailedHandshakeEndsTheSession) {
    MailWorld world(Properties{{"StartTLS", "1"}, {"ReadTimeout", "1000"}});
    world.compose();
    FakeLink& link =
        world.serve({greeting(), ehlo(), turn("STARTTLS\r\n", "220 go\r\n"), silence()});
    EXPECT_FALSE(world.mailMan.SendEmail(world.email));
    EXPECT_EQ(world.word(), "StartTlsFailed");
    EXPECT_TRUE(contains(world.logText(), "Failed to establish TLS connection."));
    EXPECT_TRUE(world.transcript().ends_with(
        "220 go\r\nStartTlsFailed: The TLS handshake after STARTTLS failed: Timeout in the TLS "
        "handshake.\r\n"));
    EXPECT_TRUE(link.closedByClient);
    EXPECT_FALSE(contains(link.fromClient, "MAIL FROM"));
}

// Offered but not demanded: a refusal goes on in clear, and a host may say it wants none of it.
TEST(StartTls, ifPossible) {
    for (const bool wanted : {true, false}) {
        MailWorld world;
        if (!wanted) world.mailMan.setProperty("StartTLSifPossible", XString("0"));
        world.compose();
        Turns turns = {greeting(), ehlo("250-x\r\n250 STARTTLS\r\n")};
        if (wanted) turns.push_back(turn("STARTTLS\r\n", "503 bad sequence\r\n"));
        world.serve(turns + Turns{mailFrom(), rcptTo(), data(), message(), quit()});
        EXPECT_TRUE(world.mailMan.SendEmail(world.email));
        EXPECT_EQ(contains(world.logText(), "Automatically doing STARTTLS..."), wanted);
    }
}

TEST(Injection, noSetterAddsACommandOrAHeader) {
    const std::string evil = "\r\nRSET\r\nMAIL FROM:<evil@evil.test>\r\nX-Evil: 1\n\rBcc: evil";
    const std::vector<std::string> setters = {
        "HeloHostname",
        "SmtpUsername",
        "SmtpPassword",
        "SmtpAuthMethod",
        "LoginDomain",
        "DsnRet",
        "DsnEnvid",
        "DsnNotify",
        "OAuth2AccessToken",
        "SmtpHost",
        "from",
        "to",
        "cc",
        "bcc",
        "subject",
        "displayName",
    };
    for (const std::string& setter : setters) {
        SCOPED_TRACE(setter);
        MailWorld world;
        world.net.name(kServer, {kServer});
        ClsEmail& email = world.email;
        email.put_FromAddress(XString(setter == "from" ? kSender + evil : kSender));
        email.put_Subject(XString(setter == "subject" ? "Subject" + evil : "Subject"));
        email.SetHtmlBody(XString("<p>Body</p>"));
        const XString name(setter == "displayName" ? "Name" + evil : "");
        email.AddTo(name, XString(setter == "to" ? kFirst + evil : kFirst));
        if (setter == "cc") email.AddCC(XString(), XString(kSecond + evil));
        if (setter == "bcc") email.AddBcc(XString(), XString(kSecond + evil));
        world.mailMan.setProperty(setter, XString((setter == "SmtpHost" ? kServer : "x") + evil));

        // Whatever comes is answered line by line, as a real server would.
        Turns turns = {greeting(), upTo("\r\n", "250-x\r\n250 DSN\r\n"), upTo("\r\n", "250 ok\r\n"),
                       upTo("\r\n", "250 ok\r\n")};
        if (setter == "cc" || setter == "bcc") turns.push_back(upTo("\r\n", "250 ok\r\n"));
        turns = turns + Turns{data(), message(), quit()};
        FakeLink& link = world.serve(turns);
        link.mayEndEarly = setter == "SmtpHost" || setter == "to" || setter == "from";
        const bool sent = world.mailMan.SendEmail(email);
        if (setter != "SmtpHost" && !sent) {
            // Refusing the address is as good an answer.
            EXPECT_TRUE(setter == "to" || setter == "from" || setter == "cc") << world.transcript();
        }
        size_t commands = 0;
        const std::string client = link.fromClient.substr(0, link.fromClient.find("DATA\r\n"));
        for (size_t at = 0; (at = client.find('\n', at)) != std::string::npos; ++at) {
            ++commands;
        }
        EXPECT_EQ(commands, link.fromClient.empty() ? 0u : turns.size() - 4);
        EXPECT_FALSE(contains(link.fromClient, "\nX-Evil")) << link.fromClient;
        EXPECT_FALSE(contains(link.fromClient, "\nBcc: evil")) << link.fromClient;
        EXPECT_FALSE(contains(link.fromClient, "\rBcc: evil")) << link.fromClient;
        EXPECT_FALSE(contains(link.fromClient, "\nRSET")) << link.fromClient;
    }
}

}  // namespace
}  // namespace tv::test
