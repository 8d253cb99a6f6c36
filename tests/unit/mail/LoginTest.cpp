// Logins beyond the dialogues of logins.txt: what cannot be sent, texts as bytes, secrets, retries.
#include "tests/unit/mail/LoginWorld.h"

namespace tv::test {
namespace {

TEST(Login, aLongChallenge) {
    MailWorld world(withPassword());
    world.compose();
    world.serve(offering("CRAM-MD5") +
                script("cram 334 " + std::string(65400, 'A') + "; any 235 ok; delivered"));
    EXPECT_TRUE(world.send());
}

TEST(Login, whatCannotBeSentIsNotTried) {
    const std::string forged =
        "t\x01"
        "auth=x";
    const struct {
        const char* method;
        std::string user, password, token = "";
        const char* word = "NoCredentials";
    } rows[] = {
        {"LOGIN", "te\r\nQUIT", "p"},
        {"LOGIN", std::string("te\0st", 5), "p"},
        {"PLAIN", "te\nst", "p"},
        {"PLAIN", "tester", std::string("p\0q", 3)},
        {"CRAM-MD5", "te\rst", "p"},
        {"NTLM", "te\nst", "p"},
        {"XOAUTH2", "te\nst", "", "t"},
        {"XOAUTH2", "te\x01st", "", "t"},
        {"XOAUTH2", "tester", "", forged},
        {"XOAUTH2", "tester", "", "t\r\nRSET"},
        {"XOAUTH2", "tester", "", " {\"client_id\":\"x\"} ", "AuthFailure"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.method + (" " + row.user));
        MailWorld world(Properties{{"SmtpAuthMethod", row.method}});
        world.set("SmtpUsername", row.user);
        world.set("SmtpPassword", row.password);
        world.set("OAuth2AccessToken", row.token);
        world.compose();
        world.serve(offering("LOGIN") + script("quit"));
        EXPECT_FALSE(world.send());
        EXPECT_EQ(world.word(), row.word);
        EXPECT_TRUE(contains(world.transcript(), row.word)) << world.transcript();
    }
}

TEST(Login, textsAsBytes) {
    const struct {
        const char* user;
        const char* password;
        const char* option;
        const char* login;
    } rows[] = {
        {"Jürgen", "pässe", "", "login; 'SsO8cmdlbg==' 334; 'cMOkc3Nl' 235"},
        {"Jürgen", "pässe", "SmtpLoginAnsi", "login; 'SvxyZ2Vu' 334; 'cORzc2U=' 235"},
        {"a\"b\\c'd", " p\xC3\xA4ss\r\n\t\x7F", "",
         "login; 'YSJiXGMnZA==' 334; 'IHDDpHNzDQoJfw==' 235"},
    };
    for (const auto& row : rows) {
        MailWorld world(Properties{{"SmtpUsername", row.user},
                                   {"SmtpPassword", row.password},
                                   {"UncommonOptions", row.option}});
        world.compose();
        world.serve(offering("LOGIN") + script(row.login) + script("delivered"));
        EXPECT_TRUE(world.send()) << row.user << row.option;
    }
    // One line, however long.
    MailWorld world;
    const std::string user(1000, 'u');
    const std::string password(1000, 'p');
    world.set("SmtpUsername", user);
    world.set("SmtpPassword", password);
    world.compose();
    const std::string line = base64Encode(user + '\0' + user + '\0' + password);
    world.serve(offering("PLAIN") + script("'AUTH PLAIN " + line + "' 235 ok; delivered"));
    EXPECT_TRUE(world.send());
}

TEST(Login, thePasswordShowsOnlyWhereAskedFor) {
    MailWorld world(withPassword({{"UncommonOptions", "ShowPasswordInLastErrorText"}}));
    world.compose();
    world.serve(offering("LOGIN") + script("by-login; delivered"));
    EXPECT_TRUE(world.send());
    EXPECT_TRUE(contains(world.logText(), "login: tester"));
    EXPECT_TRUE(contains(world.logText(), "password: hidden-word"));
    EXPECT_FALSE(contains(world.transcript(), "aGlkZGVuLXdvcmQ"));
}

TEST(Login, theHostedServiceHasTips) {
    for (const bool hosted : {true, false}) {
        const std::string host = hosted ? "smtp.Office365.com" : "mail.test";
        MailWorld world(withPassword());
        world.set("SmtpHost", host);
        world.net.name(hosted ? "smtp.office365.com" : host, {kServer});
        world.compose();
        world.serve(offering("LOGIN") + script("login; user; password 535 5.7.8 no; quit"));
        EXPECT_FALSE(world.send());
        EXPECT_EQ(contains(world.logText(), "office365_tips:"), hosted);
        EXPECT_EQ(contains(world.logText(), "Also, you may need to create an App password."),
                  hosted);
    }
}

// The login is tried again over TLS or not at all.
TEST(Login, aServerThatWantsStartTlsFirst) {
    const std::string wants = "login 530-Must issue a STARTTLS command first|530 x; ";
    const std::string hello = "ehlo 250-mail.test|250 AUTH LOGIN; ";
    const struct {
        const char* what;
        std::string steps;
    } rows[] = {
        {"refused", wants + hello + "'STARTTLS' 503 no; quit"},
        {"no handshake", wants + hello + "'STARTTLS' 220 go !close"},
        {"no greeting", wants + "ehlo 502 no"},
        {"no word of it", "login 530 no|530 STARTTLS; quit"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        MailWorld world(withPassword());
        world.compose();
        FakeLink& link = world.serve(offering("LOGIN") + script(row.steps));
        link.mayEndEarly = row.what == std::string_view("no word of it");
        // A hello without an answer: once more on a new connection, without TLS 1.3.
        if (row.what == std::string_view("no handshake")) {
            world.serve(offering("LOGIN") + script(hello + "'STARTTLS' 220 go !close"));
        }
        EXPECT_FALSE(world.send());
        EXPECT_EQ(world.word(), "AuthFailure");
        EXPECT_EQ(link.fromClient.find("AUTH LOGIN"), link.fromClient.rfind("AUTH LOGIN"));
        EXPECT_FALSE(contains(link.fromClient, "MAIL FROM"));
        EXPECT_TRUE(contains(world.logText(), "Failed to login using LOGIN method"));
        expectNothingShown(world);
    }
}

TEST(Login, aFailedOneIsTriedAgainOnTheOpenConnection) {
    MailWorld world(withPassword());
    world.compose();
    world.serve(offering("PLAIN") + script("plain 454 later; plain 454 later; plain; delivered"));
    EXPECT_FALSE(world.send());
    EXPECT_FALSE(world.send()) << "never goes on without the login";
    EXPECT_EQ(world.word(), "AuthFailure");
    EXPECT_TRUE(world.send());
    expectNothingShown(world);
}

TEST(Login, onceForAllMessages) {
    MailWorld world(withPassword());
    world.compose();
    world.serve(offering("LOGIN") + script("by-login; transaction; delivered"));
    EXPECT_TRUE(world.send());
    EXPECT_TRUE(world.send());
}

// What explains the failures on a connection, used again or not, explains none beyond it.
TEST(Login, theReasonForNoneGoesWithTheConnection) {
    MailWorld world(Properties{{"SmtpUsername", "tester"}});
    world.compose();
    world.serve(offering("LOGIN") + script("transaction; mail 530 no; rset; quit"));
    EXPECT_TRUE(world.send());
    EXPECT_FALSE(world.send());
    const std::string reason = "the password is empty; the server offers LOGIN.\r\n";
    EXPECT_TRUE(world.transcript().ends_with(reason)) << world.transcript();
    world.set("SmtpHost", "");
    EXPECT_FALSE(world.send());
    EXPECT_FALSE(world.transcript().ends_with(reason)) << world.transcript();
}

}  // namespace
}  // namespace tv::test
