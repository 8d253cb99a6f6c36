// When an open connection serves the next send, and what makes a new one.
#include "tests/unit/mail/MailDialogue.h"

namespace tv::test {
namespace {

TEST(Reuse, secondSendNeedsNoGreeting) {
    MailWorld world;
    world.compose();
    world.serve("open; transaction; transaction; quit");
    EXPECT_TRUE(world.send());
    world.mailMan.ClearSmtpSessionLog();
    world.clock.advanceMs(59999);
    EXPECT_TRUE(world.send());
    EXPECT_TRUE(contains(world.logText(), "Using existing/open SMTP connection to send email."));
    EXPECT_TRUE(world.transcript().starts_with("MAIL FROM:"));
    EXPECT_EQ(world.net.connects.size(), 1u);
}

TEST(Reuse, refusedTransactionLeavesTheConnection) {
    MailWorld world;
    world.compose();
    world.serve("open; mail 550 no; rset; transaction; quit");
    EXPECT_FALSE(world.send());
    EXPECT_TRUE(world.send());
}

TEST(Reuse, refusedMessageDoesNot) {
    MailWorld world;
    world.compose();
    world.serve("open; mail; rcpt; data; text 554 no");
    world.serve("whole");
    EXPECT_FALSE(world.send());
    EXPECT_TRUE(world.send());
}

TEST(Reuse, changesThatMatter) {
    const struct {
        const char* property;  // nullptr: time passes
        const char* value;
        const char* logged;  // nullptr: the connection is used again
    } rows[] = {
        {"SmtpPort", "25", nullptr},
        {"SmtpPort", "2525", "SMTP port changed."},
        {"SmtpHost", "mail.test", "SMTP host changed."},
        {"SmtpHost", " HTTP://10.0.0.1/ ", nullptr},
        {"SmtpAuthMethod", "login", "SMTP auth method changed."},
        {"SmtpUsername", "u", "SMTP username changed."},
        {"SmtpPassword", "p", "SMTP password changed."},
        {"OAuth2AccessToken", "t", "SMTP OAuth2 access token changed."},
        {"LoginDomain", "d", "SMTP login domain changed."},
        {"RequireSslCertVerify", "1", "SMTP TLS settings changed."},
        {"TrustAnchorsFile", "other.pem", "SMTP TLS settings changed."},
        {"TlsProtocol", "TLS 1.2 or higher", "SMTP TLS settings changed."},
        {nullptr, "60000", "Reconnecting because the connection has been idle for too long."},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.value);
        MailWorld world;
        world.net.name("mail.test", {kServer});
        world.compose();
        FakeLink& first = world.serve("open; transaction; transaction; quit");
        first.mayEndEarly = true;
        FakeLink* second = nullptr;
        if (row.logged) {
            const int port = std::string_view(row.value) == "2525" ? 2525 : 25;
            second = &world.serve("whole", port);
        }
        EXPECT_TRUE(world.send());
        if (row.property) {
            world.set(row.property, row.value);
        } else {
            world.clock.advanceMs(60000);
        }
        EXPECT_TRUE(world.send()) << world.logText();
        if (row.logged) {
            EXPECT_TRUE(contains(world.logText(), row.logged)) << world.logText();
            EXPECT_TRUE(first.closedByClient);
            EXPECT_TRUE(second->connected);
        } else {
            EXPECT_EQ(world.net.connects.size(), 1u);
        }
    }
}

// Neither flag leads anywhere without TLS, but neither may fall back to the plain connection.
TEST(Reuse, tlsFlagsNeverKeepThePlainConnection) {
    for (const char* flag : {"SmtpSsl", "StartTLS"}) {
        SCOPED_TRACE(flag);
        MailWorld world(Properties{{"SmtpPort", "2525"}});
        world.compose();
        world.serve("open; transaction", 2525);
        const bool startTls = std::string_view(flag) == "StartTLS";
        world.serve(startTls ? "greet; ehlo 250 STARTTLS; 'STARTTLS' 454 no" : "silence", 2525);
        EXPECT_TRUE(world.send());
        world.mailMan.setProperty(flag, 1);
        EXPECT_FALSE(world.send());
        EXPECT_TRUE(contains(world.logText(), "SMTP TLS settings changed."));
        EXPECT_EQ(world.word(), startTls ? "StartTlsFailed" : "ConnectFailed");
    }
}

TEST(Reuse, aConnectionThatIsNoLongerQuietIsDropped) {
    struct {
        const char* name;
        const char* last;
    } const rows[] = {
        {"closed", "text !close"},
        {"reset", "text !reset"},
        {"a word out of turn", "text 250 taken|421 timeout"},
        {"half a word", "text 250 taken|4~"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        MailWorld world;
        world.compose();
        world.serve(script("open; mail; rcpt; data") + script(row.last));
        world.serve("whole");
        EXPECT_TRUE(world.send());
        EXPECT_TRUE(world.send());
        EXPECT_TRUE(contains(world.logText(), "No connection, need new SMTP connection."));
        EXPECT_TRUE(world.clock.sleeps.empty()) << "found before anything was sent";
    }
}

TEST(Reuse, aConnectionThatDiesAtTheSecondSendIsRetried) {
    MailWorld world;
    world.compose();
    world.serve("open; transaction; mail -!close");
    FakeLink& second = world.serve("whole");
    EXPECT_TRUE(world.send());
    EXPECT_TRUE(world.send());
    EXPECT_EQ(world.clock.sleeps, std::vector<uint32_t>{500});
    EXPECT_FALSE(messageOf(second).empty());
}

TEST(Reuse, automaticReset) {
    for (const char* answer : {"rset", "rset 500 what", "rset -!close"}) {
        const bool reused = std::string_view(answer) == "rset";
        MailWorld world(Properties{{"AutoSmtpRset", "1"}});
        world.compose();
        const Turns start = script("open; transaction") + script(answer);
        world.serve(reused ? start + script("delivered") : start);
        if (!reused) world.serve("whole");
        EXPECT_TRUE(world.send());
        EXPECT_TRUE(world.send());
        EXPECT_EQ(contains(world.logText(), "Non-success RSET response."), !reused);
    }
}

// A second try carries the identifiers of the first: none is drawn anew.
TEST(Reuse, eachSendHasItsOwnIdentifierAndARetryKeepsIt) {
    size_t drawn[2] = {};
    for (const bool retried : {false, true}) {
        MailWorld world;
        world.random.bytes.clear();
        for (int i = 0; i < 251; ++i) {
            world.random.bytes.push_back(static_cast<uint8_t>(i));
        }
        world.compose();
        FakeLink* first = &world.serve(retried ? "open; transaction; mail; rcpt; data -!close"
                                               : "open; transaction; transaction; quit");
        FakeLink* second = retried ? &world.serve("whole") : first;
        EXPECT_TRUE(world.send());
        EXPECT_TRUE(world.send());
        drawn[retried] = world.random.given;
        if (retried) {
            EXPECT_TRUE(contains(messageOf(*second), "Message-ID:"));
            EXPECT_NE(messageOf(*first), messageOf(*second));
        }
    }
    EXPECT_EQ(drawn[0], drawn[1]);
}

TEST(Reuse, destructionSaysQuitAndWaitsAtMostFiveSeconds) {
    for (const char* timeout : {"0", "30000", "1000"}) {
        MailWorld world(Properties{{"ReadTimeout", timeout}});
        SCOPED_TRACE(timeout);
        auto mailMan = std::make_unique<ClsMailMan>();
        mailMan->setProperty("SmtpHost", XString(kServer));
        mailMan->setProperty("ReadTimeout", XString(timeout));
        world.compose();
        world.serve(script("open; transaction") +
                    Turns{turn("QUIT\r\n", "221 byte by byte\r\n").drippedBy(900)});
        EXPECT_TRUE(mailMan->SendEmail(world.email));
        const uint64_t before = world.clock.nowNs;
        mailMan.reset();
        const uint64_t waitedMs = (world.clock.nowNs - before) / 1000000;
        EXPECT_EQ(waitedMs, std::string_view(timeout) == "1000" ? 1000u : 5000u);
    }
}

}  // namespace
}  // namespace tv::test
