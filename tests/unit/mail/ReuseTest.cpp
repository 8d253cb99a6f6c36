// When an open connection serves the next send, and what makes a new one.
#include <functional>

#include "tests/unit/mail/MailDialogue.h"

namespace tv::test {
namespace {

Turns transaction() {
    return {mailFrom(), rcptTo(), data(), message()};
}

TEST(Reuse, secondSendNeedsNoGreeting) {
    MailWorld world;
    world.compose();
    world.serve(opened() + transaction() + transaction() + Turns{quit()});
    EXPECT_TRUE(world.mailMan.SendEmail(world.email));
    world.mailMan.ClearSmtpSessionLog();
    world.clock.advanceMs(59999);
    EXPECT_TRUE(world.mailMan.SendEmail(world.email));
    EXPECT_TRUE(contains(world.logText(), "Using existing/open SMTP connection to send email."));
    EXPECT_TRUE(world.transcript().starts_with("MAIL FROM:"));
    EXPECT_EQ(world.net.connects.size(), 1u);
}

TEST(Reuse, refusedTransactionLeavesTheConnection) {
    MailWorld world;
    world.compose();
    world.serve(opened() + Turns{mailFrom("550 no\r\n"), rset()} + transaction() + Turns{quit()});
    EXPECT_FALSE(world.mailMan.SendEmail(world.email));
    EXPECT_TRUE(world.mailMan.SendEmail(world.email));
}

TEST(Reuse, refusedMessageDoesNot) {
    MailWorld world;
    world.compose();
    world.serve(opened() + Turns{mailFrom(), rcptTo(), data(), message("554 no\r\n")});
    world.serve(wholeSend());
    EXPECT_FALSE(world.mailMan.SendEmail(world.email));
    EXPECT_TRUE(world.mailMan.SendEmail(world.email));
}

struct Change {
    const char* name;
    std::function<void(MailWorld&)> make;
    const char* logged;  // nullptr: the connection is used again
};

void set(MailWorld& world, const char* name, const char* value) {
    world.mailMan.setProperty(name, XString(value));
}

TEST(Reuse, changesThatMatter) {
    const Change rows[] = {
        {"nothing", [](MailWorld&) {}, nullptr},
        {"port", [](MailWorld& w) { set(w, "SmtpPort", "2525"); }, "SMTP port changed."},
        {"host", [](MailWorld& w) { set(w, "SmtpHost", "mail.test"); }, "SMTP host changed."},
        {"host in capitals", [](MailWorld& w) { set(w, "SmtpHost", " HTTP://10.0.0.1/ "); },
         nullptr},
        {"method", [](MailWorld& w) { set(w, "SmtpAuthMethod", "login"); },
         "SMTP auth method changed."},
        {"user", [](MailWorld& w) { set(w, "SmtpUsername", "u"); }, "SMTP username changed."},
        {"password", [](MailWorld& w) { set(w, "SmtpPassword", "p"); }, "SMTP password changed."},
        {"token", [](MailWorld& w) { set(w, "OAuth2AccessToken", "t"); },
         "SMTP OAuth2 access token changed."},
        {"domain", [](MailWorld& w) { set(w, "LoginDomain", "d"); }, "SMTP login domain changed."},
        {"idle", [](MailWorld& w) { w.clock.advanceMs(60000); },
         "Reconnecting because the connection has been idle for too long."},
    };
    for (const Change& row : rows) {
        SCOPED_TRACE(row.name);
        MailWorld world;
        world.net.name("mail.test", {kServer});
        world.compose();
        const Turns again = transaction() + Turns{quit()};
        FakeLink& first = world.serve(opened() + transaction() + again);
        first.mayEndEarly = true;
        FakeLink* second = nullptr;
        if (row.logged) {
            const int port = std::string_view(row.name) == "port" ? 2525 : 25;
            second = &world.serve(wholeSend(), port);
        }
        EXPECT_TRUE(world.mailMan.SendEmail(world.email));
        row.make(world);
        EXPECT_TRUE(world.mailMan.SendEmail(world.email)) << world.logText();
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
        world.serve(opened() + transaction(), 2525);
        const bool startTls = std::string_view(flag) == "StartTLS";
        if (startTls) {
            world.serve({greeting(), ehlo("250 STARTTLS\r\n"), turn("STARTTLS\r\n", "454 no\r\n")},
                        2525);
        } else {
            world.serve({silence()}, 2525);
        }
        EXPECT_TRUE(world.mailMan.SendEmail(world.email));
        world.mailMan.setProperty(flag, 1);
        EXPECT_FALSE(world.mailMan.SendEmail(world.email));
        EXPECT_TRUE(contains(world.logText(), "SMTP TLS settings changed."));
        EXPECT_EQ(world.word(), startTls ? "StartTlsFailed" : "ConnectFailed");
    }
}

TEST(Reuse, aConnectionThatIsNoLongerQuietIsDropped) {
    struct {
        const char* name;
        Turn last;
    } const rows[] = {
        {"closed", message().thenClose()},
        {"reset", message().thenReset()},
        {"a word out of turn", message("250 taken\r\n421 timeout\r\n")},
        {"half a word", message("250 taken\r\n4")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        MailWorld world;
        world.compose();
        world.serve(opened() + Turns{mailFrom(), rcptTo(), data(), row.last});
        world.serve(wholeSend());
        EXPECT_TRUE(world.mailMan.SendEmail(world.email));
        EXPECT_TRUE(world.mailMan.SendEmail(world.email));
        EXPECT_TRUE(contains(world.logText(), "No connection, need new SMTP connection."));
        EXPECT_TRUE(world.clock.sleeps.empty()) << "found before anything was sent";
    }
}

TEST(Reuse, aConnectionThatDiesAtTheSecondSendIsRetried) {
    MailWorld world;
    world.compose();
    world.serve(opened() + transaction() + Turns{mailFrom("").thenClose()});
    FakeLink& second = world.serve(wholeSend());
    EXPECT_TRUE(world.mailMan.SendEmail(world.email));
    EXPECT_TRUE(world.mailMan.SendEmail(world.email));
    EXPECT_EQ(world.clock.sleeps, std::vector<uint32_t>{500});
    EXPECT_FALSE(messageOf(second).empty());
}

TEST(Reuse, automaticReset) {
    const struct {
        Turn answer;
        bool reused;
    } rows[] = {{rset(), true}, {rset("500 what\r\n"), false}, {rset("").thenClose(), false}};
    for (const auto& row : rows) {
        MailWorld world(Properties{{"AutoSmtpRset", "1"}});
        world.compose();
        const Turns start = opened() + transaction() + Turns{row.answer};
        if (row.reused) {
            world.serve(start + transaction() + Turns{quit()});
        } else {
            world.serve(start);
            world.serve(wholeSend());
        }
        EXPECT_TRUE(world.mailMan.SendEmail(world.email));
        EXPECT_TRUE(world.mailMan.SendEmail(world.email));
        EXPECT_EQ(contains(world.logText(), "Non-success RSET response."), !row.reused);
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
        const Turns begin = opened() + transaction();
        FakeLink* first = nullptr;
        FakeLink* second = nullptr;
        if (retried) {
            first = &world.serve(begin + Turns{mailFrom(), rcptTo(), data("").thenClose()});
            second = &world.serve(wholeSend());
        } else {
            first = second = &world.serve(begin + transaction() + Turns{quit()});
        }
        EXPECT_TRUE(world.mailMan.SendEmail(world.email));
        EXPECT_TRUE(world.mailMan.SendEmail(world.email));
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
        world.serve(opened() + transaction() + Turns{turn("QUIT\r\n", ""), silence()});
        EXPECT_TRUE(mailMan->SendEmail(world.email));
        const uint64_t before = world.clock.nowNs;
        mailMan.reset();
        const uint64_t waitedMs = (world.clock.nowNs - before) / 1000000;
        EXPECT_EQ(waitedMs, std::string_view(timeout) == "1000" ? 1000u : 5000u);
    }
}

}  // namespace
}  // namespace tv::test
