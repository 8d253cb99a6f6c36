// What surrounds the transaction: the trial connection, STARTTLS, and host texts that try
// to speak SMTP themselves.
#include <algorithm>

#include "tests/unit/mail/MailDialogue.h"

namespace tv::test {
namespace {

TEST(Verify, greetsAndLeaves) {
    MailWorld world(Properties{{"SmtpUsername", "u"}, {"SmtpPassword", "wrong"}});
    world.serve("greet; ehlo 250-x|250 AUTH LOGIN; quit");
    EXPECT_TRUE(world.mailMan.VerifySmtpConnection());
    EXPECT_TRUE(contains(world.logText(), "initSmtp:"));
    EXPECT_TRUE(contains(world.logText(), "Success."));
    EXPECT_FALSE(contains(world.logText(), "wrong"));
    EXPECT_EQ(world.transcript(), "") << "the transcript is the send's";
}

TEST(Verify, leavesTheOpenConnectionAlone) {
    MailWorld world;
    world.compose();
    FakeLink& own = world.serve("open; transaction; transaction; quit");
    world.serve("trial");
    EXPECT_TRUE(world.send());
    EXPECT_TRUE(world.mailMan.VerifySmtpConnection());
    EXPECT_FALSE(own.closedByClient);
    EXPECT_TRUE(world.send());
}

TEST(Verify, correctsSettingsForGood) {
    MailWorld world(Properties{{"SmtpPort", "110"}, {"SmtpSsl", "1"}});
    world.serve("trial");
    EXPECT_TRUE(world.mailMan.VerifySmtpConnection());
    EXPECT_EQ(world.mailMan.settings().smtpPort, 25);
    EXPECT_FALSE(world.mailMan.settings().smtpSsl);
    EXPECT_TRUE(
        contains(world.logText(), "AutoFix: Port 110 is for POP3.  Using port 25 for SMTP."));

    MailWorld unfixed(
        Properties{{"SmtpPort", "2525"}, {"AutoFix", "0"}, {"SmtpSsl", "1"}, {"StartTLS", "1"}});
    unfixed.serve("open; 'STARTTLS' 502 no", 2525);
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

// An attacker's words may stand between the reply and the handshake.
TEST(StartTls, clearTextAfterTheReplyIsRefused) {
    MailWorld world(Properties{{"StartTLS", "1"}});
    world.compose();
    world.serve("open; 'STARTTLS' 220 go|250 injected");
    EXPECT_FALSE(world.send());
    EXPECT_EQ(world.word(), "StartTlsFailed");
    EXPECT_TRUE(world.transcript().ends_with(
        "StartTlsFailed: The server sent unencrypted data after its reply to STARTTLS.\r\n"));
}

// Nobody answers the hello: everything is said again, the second hello is without TLS 1.3.
TEST(StartTls, anUnansweredHelloIsRepeatedWithoutTls13) {
    constexpr std::string_view kSupportedVersions("\x00\x2b\x00\x09\x08\x03\x04", 7);
    constexpr std::string_view kFallback("\x56\x00\x01\x00", 4);
    const struct {
        const char* name;
        const char* steps;
        const char* cause;
        const char* policy;
        size_t connections;
        const char* verify = "0";
    } kRows[] = {
        {"silence", "open; 'STARTTLS' 220 go; silence", "Timeout in the TLS handshake", "", 2},
        {"end of stream", "open; 'STARTTLS' 220 go !close", "", "", 2},
        {"verified", "open; 'STARTTLS' 220 go !close", "", "", 2, "1"},
        {"no TLS 1.3 wanted", "open; 'STARTTLS' 220 go !close", "", "TLS 1.2 or lower", 1, "1"},
    };
    for (const auto& row : kRows) {
        MailWorld world(Properties{{"StartTLS", "1"}, {"ReadTimeout", "1000"}});
        world.set("TlsProtocol", row.policy);
        world.set("RequireSslCertVerify", row.verify);
        world.compose();
        std::vector<FakeLink*> links;
        for (size_t i = 0; i < row.connections; ++i) {
            links.push_back(&world.serve(row.steps));
        }
        EXPECT_FALSE(world.send());
        EXPECT_EQ(world.net.connects.size(), row.connections) << row.name;
        EXPECT_EQ(world.word(), "StartTlsFailed") << row.name;
        EXPECT_TRUE(contains(world.logText(), "Failed to establish TLS connection."));
        EXPECT_EQ(contains(world.logText(),
                           "Failed to read the TLS server hello.  Retry without TLS 1.3"),
                  row.connections == 2);
        EXPECT_TRUE(contains(world.transcript(),
                             "220 go\r\nStartTlsFailed: The TLS handshake after STARTTLS failed: " +
                                 std::string(row.cause)))
            << world.transcript();
        for (const FakeLink* link : links) {
            EXPECT_TRUE(contains(link->fromClient, "STARTTLS\r\n\x16\x03")) << row.name;
            EXPECT_EQ(contains(link->fromClient, kSupportedVersions),
                      link == links.front() && row.connections == 2)
                << row.name;
            EXPECT_EQ(contains(link->fromClient, kFallback),
                      link != links.front() && row.verify == std::string_view("1"))
                << row.name;
            EXPECT_TRUE(link->closedByClient);
            EXPECT_FALSE(contains(link->fromClient, "MAIL FROM"));
        }
    }
}

TEST(Injection, noSetterAddsACommandOrAHeader) {
    const std::string evil = "\r\nRSET\r\nMAIL FROM:<evil@evil.test>\r\nX-Evil: 1\n\rBcc: evil";
    const std::vector<std::string> setters = {"HeloHostname",
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
                                              "displayName"};
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

        // Whatever comes is answered line by line, as a real server would. In a text of recipients
        // a line break parts two: the evil one is a recipient more, and nothing else.
        const bool copied = setter == "cc" || setter == "bcc";
        const Turns turns =
            script("greet; any 250-x|250 DSN; any; any") + script(copied ? "any" : "") +
            script(copied || setter == "to" ? "any" : "") + script("data; text; quit");
        FakeLink& link = world.serve(turns);
        link.mayEndEarly = setter == "SmtpHost" || setter == "to" || setter == "from";
        const bool sent = world.mailMan.SendEmail(email);
        if (setter != "SmtpHost" && !sent) {
            // Refusing the address is as good an answer.
            EXPECT_TRUE(setter == "to" || setter == "from" || setter == "cc") << world.transcript();
        }
        const std::string client = link.fromClient.substr(0, link.fromClient.find("DATA\r\n"));
        const auto commands = static_cast<size_t>(std::count(client.begin(), client.end(), '\n'));
        EXPECT_EQ(commands, link.fromClient.empty() ? 0u : turns.size() - 4);
        for (const char* line : {"\nX-Evil", "\nBcc: evil", "\rBcc: evil", "\nRSET"}) {
            EXPECT_FALSE(contains(link.fromClient, line)) << link.fromClient;
        }
    }
}

}  // namespace
}  // namespace tv::test
