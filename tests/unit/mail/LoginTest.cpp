// Which mechanism logs in, what goes over the wire then, and what a refusal leaves behind.
#include "tests/unit/mail/LoginWorld.h"

namespace tv::test {
namespace {

struct ChoiceRow {
    const char* name;
    const char* announced;  // the end of the EHLO reply
    Properties properties;
    Turns login;
    const char* word;  // "Success": the message went out
    const char* logged;
};

TEST(Login, choice) {
    const Turns none;
    const ChoiceRow rows[] = {
        // nothing to log in with
        {"no credentials",
         "AUTH LOGIN",
         {},
         none,
         "Success",
         "Skipping SMTP authentication because no login/password provided."},
        {"user alone",
         "AUTH LOGIN",
         {{"SmtpUsername", "tester"}},
         none,
         "Success",
         "No SMTP password or OAuth2 access token provided."},
        {"password alone",
         "AUTH LOGIN",
         {{"SmtpPassword", kPassword}},
         none,
         "Success",
         "No SMTP login provided."},
        {"token alone",
         "AUTH LOGIN",
         {{"OAuth2AccessToken", kToken}},
         none,
         "Success",
         "smtp_user: NULL"},
        {"method none", "AUTH LOGIN", withPassword({{"SmtpAuthMethod", "none"}}), none, "Success",
         ""},
        {"nothing listed", "HELP", withPassword(), none, "Success",
         "Perhaps this server controls access by IP address."},
        {"nothing listed, a token", "HELP", withToken(), none, "Success",
         "login_method: NONE or already authenticated"},
        {"an empty list", "AUTH", withPassword(), none, "Success",
         "Not authenticating because SmtpAuthMethod is NONE"},
        {"an empty list, the logged-on user",
         "AUTH",
         {{"SmtpUsername", "default"}, {"SmtpPassword", "default"}},
         none,
         "Success",
         "smtpAuth.method: none"},
        {"a token that serves no mechanism", "AUTH PLAIN CRAM-MD5", withToken(), none, "Success",
         "login_method: NONE or already authenticated"},
        {"an unknown mechanism alone", "AUTH SCRAM-SHA-256", withPassword(), none, "Success",
         "This SMTP server did not list authentication methods."},
        // the order of preference
        {"all", "AUTH PLAIN CRAM-MD5 NTLM MSN LOGIN XOAUTH2", withPassword(), loginTurns(),
         "Success", "smtpAuth.method: login"},
        {"all, with a token",
         "AUTH PLAIN CRAM-MD5 NTLM MSN LOGIN XOAUTH2",
         withPassword({{"OAuth2AccessToken", kToken}}),
         {xoauth2Turn()},
         "Success",
         "login_method: XOAUTH2"},
        {"a token and LOGIN",
         "AUTH LOGIN",
         withToken(),
         {xoauth2Turn()},
         "Success",
         "smtpAuth.method: xoauth2"},
        {"a password and XOAUTH2", "AUTH XOAUTH2", withPassword(), none, "Success",
         "login_method: NONE or already authenticated"},
        {"old announcement", "AUTH=LOGIN", withPassword(), loginTurns(), "Success", ""},
        {"CRAM-MD5 before PLAIN", "AUTH PLAIN CRAM-MD5", withPassword(), cramTurns(), "Success",
         "login_method: CRAM_MD5"},
        {"PLAIN before DIGEST-MD5",
         "AUTH DIGEST-MD5 PLAIN",
         withPassword(),
         {plainTurn()},
         "Success",
         "smtpAuth.method: plain"},
        {"NTLM before CRAM-MD5",
         "AUTH NTLM CRAM-MD5",
         withPassword(),
         {turn("AUTH NTLM\r\n", "504 no\r\n")},
         "AuthFailure",
         "Failed to login using NTLM method"},
        {"MSN before CRAM-MD5", "AUTH MSN CRAM-MD5", withPassword(), loginTurns(), "Success",
         "alt_login_method: LOGIN"},
        // recognised, not spoken
        {"DIGEST-MD5", "AUTH DIGEST-MD5 GSSAPI KERBEROS_V4 ANONYMOUS", withPassword(), none,
         "AuthFailure", "DIGEST-MD5 login method not supported"},
        {"GSSAPI", "AUTH GSSAPI KERBEROS_V4 ANONYMOUS", withPassword(), none, "AuthFailure",
         "GSSAPI login method not supported"},
        {"KERBEROS_V4", "AUTH KERBEROS_V4 ANONYMOUS", withPassword(), none, "AuthFailure",
         "Kerberos v4 login method not supported"},
        {"ANONYMOUS", "AUTH ANONYMOUS", withPassword(), none, "AuthFailure",
         "Anonymous login method not supported"},
        {"DIGEST-MD5, a token", "AUTH DIGEST-MD5", withToken(), none, "Success", ""},
        // configured: whatever the server announced
        {"LOGIN configured", "AUTH PLAIN", withPassword({{"SmtpAuthMethod", "login"}}),
         loginTurns(), "Success", "auth-method: LOGIN"},
        {"PLAIN configured",
         "AUTH LOGIN",
         withPassword({{"SmtpAuthMethod", "plain"}}),
         {plainTurn()},
         "Success",
         "smtpAuthMethod: PLAIN"},
        {"PLAIN configured, nothing listed",
         "HELP",
         withPassword({{"SmtpAuthMethod", "plain"}}),
         {plainTurn()},
         "Success",
         ""},
        {"PLAIN configured, an empty list",
         "AUTH",
         withPassword({{"SmtpAuthMethod", "plain"}}),
         {plainTurn()},
         "Success",
         ""},
        {"CRAM-MD5 configured", "AUTH LOGIN", withPassword({{"SmtpAuthMethod", "cram-md5"}}),
         cramTurns(), "Success", ""},
        {"MSN configured", "AUTH LOGIN", withPassword({{"SmtpAuthMethod", "msn"}}), loginTurns(),
         "Success", "auth_login_3"},
        {"OAUTH2 configured",
         "AUTH PLAIN",
         withToken({{"SmtpAuthMethod", "oauth2"}}),
         {xoauth2Turn()},
         "Success",
         ""},
        {"XOAUTH2 configured, a password", "AUTH LOGIN",
         withPassword({{"SmtpAuthMethod", "xoauth2"}}), none, "Success", ""},
        {"unknown configured",
         "AUTH PLAIN",
         withPassword({{"SmtpAuthMethod", "scram"}}),
         {plainTurn()},
         "Success",
         ""},
        {"forced", "HELP", withPassword({{"UncommonOptions", "SmtpForceLoginMethod"}}),
         loginTurns(), "Success", "Defaulting to LOGIN authentication method."},
        {"forced, something listed",
         "AUTH PLAIN",
         withPassword({{"UncommonOptions", "SmtpForceLoginMethod"}}),
         {plainTurn()},
         "Success",
         ""},
    };
    for (const ChoiceRow& row : rows) {
        SCOPED_TRACE(row.name);
        MailWorld world(row.properties);
        world.compose();
        const bool sent = std::string_view(row.word) == "Success";
        world.serve(Turns{greeting(), ehlo("250-x\r\n250 " + std::string(row.announced) + "\r\n")} +
                    row.login + (sent ? delivered() : Turns{quit()}));
        EXPECT_EQ(world.mailMan.SendEmail(world.email), sent);
        EXPECT_EQ(world.word(), row.word);
        EXPECT_TRUE(contains(world.logText(), row.logged)) << row.logged << world.logText();
        EXPECT_EQ(contains(world.logText(), "not encrypted"), !row.login.empty())
            << world.logText();
        if (!sent) {
            EXPECT_TRUE(contains(world.logText(), "smtpAuth.error: AuthFailure"));
            EXPECT_TRUE(contains(world.logText(), "smtpAuth.success: 0"));
            EXPECT_NE(world.transcript(), "");
        }
        expectNothingShown(world);
    }
}

struct DialogueRow {
    const char* name;
    const char* method;
    Turns login;
    const char* word;
    std::vector<const char*> logged;
};

// Plays the dialogues; after a refusal the connection is still good for QUIT.
void play(const std::vector<DialogueRow>& rows, const Properties& properties) {
    for (const DialogueRow& row : rows) {
        SCOPED_TRACE(row.name);
        MailWorld world(properties);
        world.mailMan.setProperty("SmtpAuthMethod", XString(row.method));
        world.compose();
        const bool sent = std::string_view(row.word) == "Success";
        const bool open = row.login.back().after == Ending::None;
        Turns ending;
        if (sent) ending = delivered();
        if (!sent && open) ending = {quit()};
        world.serve(offering("LOGIN") + row.login + ending);
        EXPECT_EQ(world.mailMan.SendEmail(world.email), sent);
        EXPECT_EQ(world.word(), row.word) << world.logText();
        for (const char* wanted : row.logged) {
            EXPECT_TRUE(contains(world.logText(), wanted)) << wanted << world.logText();
        }
        expectNothingShown(world);
    }
}

Turn cancelled() {
    return turn("*\r\n", "501 cancelled\r\n");
}

TEST(Login, byLogin) {
    const Turn command = loginTurns()[0];
    const Turn user = loginTurns()[1];
    const auto userReply = [](const char* reply) { return turn("dGVzdGVy\r\n", reply); };
    const auto passwordReply = [](const char* reply) {
        return turn("aGlkZGVuLXdvcmQ=\r\n", reply);
    };
    const char* const check = "Check your username/password or your SMTP server's auth settings";
    play(
        {{"prompts of any kind",
          "LOGIN",
          {turn("AUTH LOGIN\r\n", "334\r\n"), userReply("334 !?\r\n"), passwordReply("235 ok\r\n")},
          "Success",
          {"auth_login:", "smtpAuth.user: tester", "smtpAuth.success: 1"}},
         {"any 2xx",
          "LOGIN",
          {command, userReply("250 x\r\n"), passwordReply("299 ok\r\n")},
          "Success",
          {}},
         {"command refused",
          "LOGIN",
          {turn("AUTH LOGIN\r\n", "503 not now\r\n")},
          "AuthFailure",
          {"AUTH LOGIN failed", "smtpAuth.statusCode: 503", "smtpAuth.error: AuthFailure",
           "Failed to login using LOGIN method",
           "The server refused the login by LOGIN: 503 not now"}},
         {"235 too early",
          "LOGIN",
          {turn("AUTH LOGIN\r\n", "235 hm\r\n")},
          "AuthFailure",
          {"AUTH LOGIN failed"}},
         {"user refused",
          "LOGIN",
          {command, userReply("535 who\r\n")},
          "AuthFailure",
          {"SMTP authentication failed after sending username.", check, "535"}},
         {"password refused",
          "LOGIN",
          {command, user, passwordReply("535-5.7.8 no\r\n535 x\r\n")},
          "AuthFailure",
          {"SMTP authentication failed after sending password.", check,
           "smtpAuth.statusCode: 535"}},
         {"one question too many",
          "LOGIN",
          {command, user, passwordReply("334 QWdhaW46\r\n"), cancelled()},
          "AuthFailure",
          {"smtpAuth.statusCode: 334"}},
         {"421 in the middle",
          "LOGIN",
          {command, userReply("421 bye\r\n").thenClose()},
          "AuthFailure",
          {"smtpAuth.statusCode: 421"}},
         {"closed", "LOGIN", {turn("AUTH LOGIN\r\n", "").thenClose()}, "ConnectionLost", {}},
         {"closed at the user",
          "LOGIN",
          {command, userReply("").thenClose()},
          "ConnectionLost",
          {"while waiting for the reply to AUTH LOGIN username"}},
         {"closed at the password",
          "LOGIN",
          {command, user, passwordReply("").thenReset()},
          "ConnectionLost",
          {"while waiting for the reply to AUTH LOGIN password"}},
         {"silent at the password",
          "LOGIN",
          {command, user, passwordReply("").thenStall()},
          "Timeout",
          {"idleTimeoutMs"}}},
        withPassword());
}

TEST(Login, byPlain) {
    play({{"refused",
           "PLAIN",
           {plainTurn("535 no\r\n")},
           "AuthFailure",
           {"auth_plain:", "smtpAuth.statusCode: 535", "smtpAuth.error: AuthFailure",
            "Failed to login using PLAIN method"}},
          {"a challenge", "PLAIN", {plainTurn("334 \r\n"), cancelled()}, "AuthFailure", {"334"}},
          {"closed",
           "PLAIN",
           {plainTurn("").thenClose()},
           "ConnectionLost",
           {"while waiting for the reply to AUTH PLAIN"}}},
         withPassword());
}

TEST(Login, byCramMd5) {
    const auto challenged = [](const std::string& challenge) {
        return turn("AUTH CRAM-MD5\r\n", "334 " + challenge + "\r\n");
    };
    const std::string huge(65400, 'A');
    play({{"no challenge",
           "CRAM-MD5",
           {challenged(""),
            turn("dGVzdGVyIGUzMTdkZmNkODg3ZmY5OWZhNDVlMDA2NTY4ZTY1ZTM4\r\n", "235 ok\r\n")},
           "Success",
           {"auth_cram_md5:"}},
          {"a long challenge",
           "CRAM-MD5",
           {challenged(huge), upTo("\r\n", "235 ok\r\n")},
           "Success",
           {}},
          {"no base64",
           "CRAM-MD5",
           {challenged("<42@mx.test>"), cancelled()},
           "AuthFailure",
           {"The challenge of the server is no base64 text.",
            "Failed to login using CRAM-MD5 method"}},
          {"cut base64", "CRAM-MD5", {challenged("PDQyQG1"), cancelled()}, "AuthFailure", {}},
          {"refused",
           "CRAM-MD5",
           {turn("AUTH CRAM-MD5\r\n", "504 no\r\n")},
           "AuthFailure",
           {"AUTH CRAM-MD5 failed"}},
          {"response refused",
           "CRAM-MD5",
           {cramTurns()[0], turn(cramTurns()[1].expect, "535 no\r\n")},
           "AuthFailure",
           {"smtpAuth.statusCode: 535"}},
          {"closed",
           "CRAM-MD5",
           {cramTurns()[0], turn(cramTurns()[1].expect, "").thenClose()},
           "ConnectionLost",
           {}}},
         withPassword());
    // The example of RFC 2195.
    play({{"published",
           "CRAM-MD5",
           {challenged("PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+"),
            turn("dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw\r\n", "235 ok\r\n")},
           "Success",
           {}}},
         {{"SmtpUsername", "tim"}, {"SmtpPassword", "tanstaaftanstaaf"}});
}

TEST(Login, byXoauth2) {
    const Turn error = xoauth2Turn("334 eyJzdGF0dXMiOiI0MDEiLCJzY2hlbWVzIjoiYmVhcmVyIn0=\r\n");
    play({{"refused",
           "XOAUTH2",
           {xoauth2Turn("535 no\r\n")},
           "AuthFailure",
           {"auth_xoauth2:", "username: tester", "Failed to login using XOAUTH2 method"}},
          {"an account of the error",
           "XOAUTH2",
           {error, turn("\r\n", "535 5.7.8 no\r\n")},
           "AuthFailure",
           {R"(xoauth2Error: {"status":"401","schemes":"bearer"})", "535"}},
          {"an unreadable one",
           "XOAUTH2",
           {xoauth2Turn("334 {}\r\n"), turn("\r\n", "535 5.7.8 no\r\n")},
           "AuthFailure",
           {}},
          {"and again",
           "XOAUTH2",
           {error, turn("\r\n", "334 \r\n"), cancelled()},
           "AuthFailure",
           {}}},
         withToken());
    play({{"with its word", "XOAUTH2", {xoauth2Turn()}, "Success", {}}},
         {{"SmtpUsername", "tester"}, {"OAuth2AccessToken", "Bearer hidden-token"}});
}

TEST(Login, whatCannotBeSentIsNotTried) {
    const struct {
        const char* method;
        std::string user, password, token;
        const char* word;
    } rows[] = {
        {"LOGIN", "te\r\nQUIT", "p", "", "NoCredentials"},
        {"LOGIN", std::string("te\0st", 5), "p", "", "NoCredentials"},
        {"PLAIN", "te\nst", "p", "", "NoCredentials"},
        {"PLAIN", "tester", std::string("p\0q", 3), "", "NoCredentials"},
        {"CRAM-MD5", "te\rst", "p", "", "NoCredentials"},
        {"NTLM", "te\nst", "p", "", "NoCredentials"},
        {"XOAUTH2", "te\nst", "", "t", "NoCredentials"},
        {"XOAUTH2", "te\x01st", "", "t", "NoCredentials"},
        {"XOAUTH2", "tester", "",
         "t\x01"
         "auth=x",
         "NoCredentials"},
        {"XOAUTH2", "tester", "", "t\r\nRSET", "NoCredentials"},
        {"XOAUTH2", "tester", "", " {\"client_id\":\"x\"} ", "AuthFailure"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.method + (" " + row.user));
        MailWorld world(Properties{{"SmtpAuthMethod", row.method}});
        world.mailMan.setProperty("SmtpUsername", XString(row.user));
        world.mailMan.setProperty("SmtpPassword", XString(row.password));
        world.mailMan.setProperty("OAuth2AccessToken", XString(row.token));
        world.compose();
        world.serve(offering("LOGIN") + Turns{quit()});
        EXPECT_FALSE(world.mailMan.SendEmail(world.email));
        EXPECT_EQ(world.word(), row.word);
        EXPECT_TRUE(contains(world.transcript(), row.word)) << world.transcript();
    }
}

TEST(Login, textsAsBytes) {
    const struct {
        const char* user;
        const char* password;
        const char* option;
        const char* userLine;
        const char* passwordLine;
    } rows[] = {
        {"Jürgen", "pässe", "", "SsO8cmdlbg==\r\n", "cMOkc3Nl\r\n"},
        {"Jürgen", "pässe", "SmtpLoginAnsi", "SvxyZ2Vu\r\n", "cORzc2U=\r\n"},
        {"a\"b\\c'd", " p\xC3\xA4ss\r\n\t\x7F", "", "YSJiXGMnZA==\r\n", "IHDDpHNzDQoJfw==\r\n"},
    };
    for (const auto& row : rows) {
        MailWorld world(Properties{{"SmtpUsername", row.user},
                                   {"SmtpPassword", row.password},
                                   {"UncommonOptions", row.option}});
        world.compose();
        world.serve(offering("LOGIN") +
                    Turns{loginTurns()[0], turn(row.userLine, "334 \r\n"),
                          turn(row.passwordLine, "235 ok\r\n")} +
                    delivered());
        EXPECT_TRUE(world.mailMan.SendEmail(world.email)) << row.user << row.option;
    }
    // One line, however long.
    MailWorld world;
    const std::string user(1000, 'u');
    const std::string password(1000, 'p');
    world.mailMan.setProperty("SmtpUsername", XString(user));
    world.mailMan.setProperty("SmtpPassword", XString(password));
    world.compose();
    world.serve(
        offering("PLAIN") +
        Turns{turn("AUTH PLAIN " + base64Encode(user + '\0' + user + '\0' + password) + "\r\n",
                   "235 ok\r\n")} +
        delivered());
    EXPECT_TRUE(world.mailMan.SendEmail(world.email));
}

TEST(Login, transcript) {
    MailWorld world(withPassword());
    world.compose();
    world.serve(offering("LOGIN") + Turns{loginTurns()[0], loginTurns()[1],
                                          turn("aGlkZGVuLXdvcmQ=\r\n", "535 5.7.8 no\r\n"),
                                          quit()});
    EXPECT_FALSE(world.mailMan.SendEmail(world.email));
    EXPECT_TRUE(
        world.transcript().ends_with("AUTH LOGIN<CRLF>\r\n334 VXNlcm5hbWU6\r\n"
                                     "dGVzdGVy<CRLF>\r\n334 UGFzc3dvcmQ6\r\n"
                                     "{PasswordOrCredentials}\r\n535 5.7.8 no\r\n"))
        << world.transcript();
    expectNothingShown(world);
}

TEST(Login, thePasswordShowsOnlyWhereAskedFor) {
    MailWorld world(withPassword({{"UncommonOptions", "ShowPasswordInLastErrorText"}}));
    world.compose();
    world.serve(offering("LOGIN") + loginTurns() + delivered());
    EXPECT_TRUE(world.mailMan.SendEmail(world.email));
    EXPECT_TRUE(contains(world.logText(), "login: tester"));
    EXPECT_TRUE(contains(world.logText(), "password: hidden-word"));
    EXPECT_FALSE(contains(world.transcript(), "aGlkZGVuLXdvcmQ"));
}

TEST(Login, theHostedServiceHasTips) {
    for (const bool hosted : {true, false}) {
        const std::string host = hosted ? "smtp.Office365.com" : "mail.test";
        MailWorld world(withPassword());
        world.mailMan.setProperty("SmtpHost", XString(host));
        world.net.name(hosted ? "smtp.office365.com" : host, {kServer});
        world.compose();
        world.serve(offering("LOGIN") + Turns{loginTurns()[0], loginTurns()[1],
                                              turn("aGlkZGVuLXdvcmQ=\r\n", "535 5.7.8 no\r\n"),
                                              quit()});
        EXPECT_FALSE(world.mailMan.SendEmail(world.email));
        EXPECT_EQ(contains(world.logText(), "office365_tips:"), hosted);
        EXPECT_EQ(contains(world.logText(), "Also, you may need to create an App password."),
                  hosted);
    }
}

// The login is tried again over TLS or not at all.
TEST(Login, aServerThatWantsStartTlsFirst) {
    const Turn wants =
        turn("AUTH LOGIN\r\n", "530-Must issue a STARTTLS command first\r\n530 x\r\n");
    const Turn ehloAgain = ehlo("250-mail.test\r\n250 AUTH LOGIN\r\n");
    const struct {
        const char* what;
        const char* property;
        Turns after;
    } rows[] = {
        {"refused", "SmtpAuthMethod", {ehloAgain, turn("STARTTLS\r\n", "503 no\r\n"), quit()}},
        {"no handshake",
         "SmtpAuthMethod",
         {ehloAgain, turn("STARTTLS\r\n", "220 go\r\n").thenClose()}},
        {"no greeting", "SmtpAuthMethod", {ehlo("502 no\r\n")}},
        {"no word of it", "SmtpAuthMethod", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        MailWorld world(withPassword({{row.property, ""}}));
        world.compose();
        Turns turns = offering("LOGIN");
        if (row.after.empty()) {
            turns = turns + Turns{turn("AUTH LOGIN\r\n", "530 no\r\n530 STARTTLS\r\n"), quit()};
        } else {
            turns = turns + Turns{wants} + row.after;
        }
        FakeLink& link = world.serve(turns);
        link.mayEndEarly = row.after.empty();
        EXPECT_FALSE(world.mailMan.SendEmail(world.email));
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
    const Turn refusal = plainTurn("454 later\r\n");
    world.serve(offering("PLAIN") + Turns{refusal, refusal, plainTurn()} + delivered());
    EXPECT_FALSE(world.mailMan.SendEmail(world.email));
    EXPECT_FALSE(world.mailMan.SendEmail(world.email)) << "never goes on without the login";
    EXPECT_EQ(world.word(), "AuthFailure");
    EXPECT_TRUE(world.mailMan.SendEmail(world.email));
    expectNothingShown(world);
}

TEST(Login, onceForAllMessages) {
    MailWorld world(withPassword());
    world.compose();
    world.serve(offering("LOGIN") + loginTurns() + Turns{mailFrom(), rcptTo(), data(), message()} +
                delivered());
    EXPECT_TRUE(world.mailMan.SendEmail(world.email));
    EXPECT_TRUE(world.mailMan.SendEmail(world.email));
}

}  // namespace
}  // namespace tv::test
