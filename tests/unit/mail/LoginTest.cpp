// Which mechanism logs in, what goes over the wire then, and what a refusal leaves behind.
#include "tests/unit/mail/LoginWorld.h"

namespace tv::test {
namespace {

// Who wants to log in: some of u(ser), p(assword), t(oken), or d(efault) twice.
Properties credentials(std::string_view has) {
    if (has == "dd") return {{"SmtpUsername", "default"}, {"SmtpPassword", "default"}};
    Properties all;
    if (contains(has, "u")) all.emplace_back("SmtpUsername", "tester");
    if (contains(has, "p")) all.emplace_back("SmtpPassword", kPassword);
    if (contains(has, "t")) all.emplace_back("OAuth2AccessToken", kToken);
    return all;
}

struct ChoiceRow {
    const char* name;
    const char* announced;  // the end of the EHLO reply
    const char* has;
    const char* login;
    const char* logged = "";
    const char* method = "";
    const char* options = "";
    const char* word = "Success";  // the message went out
};

void play(const ChoiceRow& row) {
    SCOPED_TRACE(row.name);
    MailWorld world(credentials(row.has));
    world.set("SmtpAuthMethod", row.method);
    world.set("UncommonOptions", row.options);
    world.compose();
    const bool sent = std::string_view(row.word) == "Success";
    world.serve(script(std::string("greet; ehlo 250-x|250 ") + row.announced) + script(row.login) +
                script(sent ? "delivered" : "quit"));
    EXPECT_EQ(world.send(), sent);
    EXPECT_EQ(world.word(), row.word);
    const std::string log = world.logText();
    EXPECT_TRUE(contains(log, row.logged)) << row.logged << log;
    EXPECT_EQ(contains(log, "not encrypted"), *row.login != '\0') << log;
    if (!sent) {
        EXPECT_TRUE(contains(log, "smtpAuth.error: AuthFailure"));
        EXPECT_TRUE(contains(log, "smtpAuth.success: 0"));
        EXPECT_NE(world.transcript(), "");
    }
    expectNothingShown(world);
}

TEST(Login, chosen) {
    const char* const kAll = "AUTH PLAIN CRAM-MD5 NTLM MSN LOGIN XOAUTH2";
    const ChoiceRow rows[] = {
        // nothing to log in with
        {"no credentials", "AUTH LOGIN", "", "",
         "Skipping SMTP authentication because no login/password provided."},
        {"user alone", "AUTH LOGIN", "u", "", "No SMTP password or OAuth2 access token provided."},
        {"password alone", "AUTH LOGIN", "p", "", "No SMTP login provided."},
        {"token alone", "AUTH LOGIN", "t", "", "smtp_user: NULL"},
        {"method none", "AUTH LOGIN", "up", "", "", "none"},
        {"nothing listed", "HELP", "up", "", "Perhaps this server controls access by IP address."},
        {"nothing listed, a token", "HELP", "ut", "",
         "login_method: NONE or already authenticated"},
        {"an empty list", "AUTH", "up", "", "Not authenticating because SmtpAuthMethod is NONE"},
        {"an empty list, the logged-on user", "AUTH", "dd", "", "smtpAuth.method: none"},
        {"a token that serves no mechanism", "AUTH PLAIN CRAM-MD5", "ut", "",
         "login_method: NONE or already authenticated"},
        {"an unknown mechanism alone", "AUTH SCRAM-SHA-256", "up", "",
         "This SMTP server did not list authentication methods."},
        // the order of preference
        {"all", kAll, "up", "by-login", "smtpAuth.method: login"},
        {"all, with a token", kAll, "upt", "xoauth2", "login_method: XOAUTH2"},
        {"a token and LOGIN", "AUTH LOGIN", "ut", "xoauth2", "smtpAuth.method: xoauth2"},
        {"a password and XOAUTH2", "AUTH XOAUTH2", "up", "",
         "login_method: NONE or already authenticated"},
        {"old announcement", "AUTH=LOGIN", "up", "by-login"},
        {"CRAM-MD5 before PLAIN", "AUTH PLAIN CRAM-MD5", "up", "by-cram", "login_method: CRAM_MD5"},
        {"PLAIN before DIGEST-MD5", "AUTH DIGEST-MD5 PLAIN", "up", "plain",
         "smtpAuth.method: plain"},
        {"MSN before CRAM-MD5", "AUTH MSN CRAM-MD5", "up", "by-login", "alt_login_method: LOGIN"},
        {"a token that serves nothing, and a password", "AUTH PLAIN", "upt", "plain"},
        {"DIGEST-MD5, a token", "AUTH DIGEST-MD5", "ut", ""},
        // configured: whatever the server announced
        {"LOGIN", "AUTH PLAIN", "up", "by-login", "auth-method: LOGIN", "login"},
        {"PLAIN", "AUTH LOGIN", "up", "plain", "smtpAuthMethod: PLAIN", "plain"},
        {"PLAIN, nothing listed", "HELP", "up", "plain", "", "plain"},
        {"PLAIN, an empty list", "AUTH", "up", "plain", "", "plain"},
        {"CRAM-MD5", "AUTH LOGIN", "up", "by-cram", "", "cram-md5"},
        {"MSN", "AUTH LOGIN", "up", "by-login", "auth_login_3", "msn"},
        {"OAUTH2", "AUTH PLAIN", "ut", "xoauth2", "", "oauth2"},
        {"XOAUTH2, a password", "AUTH LOGIN", "up", "", "", "xoauth2"},
        {"unknown", "AUTH PLAIN", "up", "plain", "", "scram"},
        {"forced", "HELP", "up", "by-login", "Defaulting to LOGIN authentication method.", "",
         "SmtpForceLoginMethod"},
        {"forced, something listed", "AUTH PLAIN", "up", "plain", "", "", "SmtpForceLoginMethod"},
    };
    for (const ChoiceRow& row : rows) {
        play(row);
    }
}

TEST(Login, chosenInVain) {
    const struct {
        const char* announced;
        const char* logged;
        const char* login = "";
    } rows[] = {
        {"NTLM MSN CRAM-MD5", "Failed to login using NTLM method", "ntlm 504 no"},
        // recognised, not spoken
        {"DIGEST-MD5 GSSAPI KERBEROS_V4 ANONYMOUS", "DIGEST-MD5 login method not supported"},
        {"GSSAPI KERBEROS_V4 ANONYMOUS", "GSSAPI login method not supported"},
        {"KERBEROS_V4 ANONYMOUS", "Kerberos v4 login method not supported"},
        {"ANONYMOUS", "Anonymous login method not supported"},
    };
    for (const auto& row : rows) {
        const std::string announced = std::string("AUTH ") + row.announced;
        play(
            {row.announced, announced.c_str(), "up", row.login, row.logged, "", "", "AuthFailure"});
    }
}

struct DialogueRow {
    const char* name;
    std::string login;
    std::vector<const char*> logged = {};
};

// Plays the dialogues; after a refusal the connection is still good for QUIT.
void play(const char* method, const char* word, const Properties& properties,
          const std::vector<DialogueRow>& rows) {
    for (const DialogueRow& row : rows) {
        SCOPED_TRACE(row.name);
        MailWorld world(properties);
        world.set("SmtpAuthMethod", method);
        world.compose();
        const bool sent = std::string_view(word) == "Success";
        const Turns login = script(row.login);
        const bool open = login.back().after == Ending::None;
        world.serve(offering("LOGIN") + login + script(sent ? "delivered" : open ? "quit" : ""));
        EXPECT_EQ(world.send(), sent);
        EXPECT_EQ(world.word(), word) << world.logText();
        for (const char* wanted : row.logged) {
            EXPECT_TRUE(contains(world.logText(), wanted)) << wanted << world.logText();
        }
        expectNothingShown(world);
    }
}

TEST(Login, byLogin) {
    const char* const check = "Check your username/password or your SMTP server's auth settings";
    const char* const afterUser = "SMTP authentication failed after sending username.";
    const char* const afterPassword = "SMTP authentication failed after sending password.";
    const char* const refused = "The server refused the login by LOGIN: 503 not now";
    play("LOGIN", "Success", withPassword(),
         {{"prompts of any kind",
           "login 334; user 334 !?; password 235 ok",
           {"auth_login:", "smtpAuth.user: tester", "smtpAuth.success: 1"}},
          {"any 2xx", "login; user 250 x; password 299 ok"}});
    play("LOGIN", "AuthFailure", withPassword(),
         {{"command refused",
           "login 503 not now",
           {"AUTH LOGIN failed", "smtpAuth.statusCode: 503", "smtpAuth.error: AuthFailure",
            "Failed to login using LOGIN method", refused}},
          {"235 too early", "login 235 hm", {"AUTH LOGIN failed"}},
          {"user refused", "login; user 535 who", {afterUser, check, "535"}},
          {"password refused",
           "login; user; password 535-5.7.8 no|535 x",
           {afterPassword, check, "smtpAuth.statusCode: 535"}},
          {"one question too many",
           "login; user; password 334 QWdhaW46; cancel",
           {"smtpAuth.statusCode: 334"}},
          {"421 in the middle", "login; user 421 bye !close", {"smtpAuth.statusCode: 421"}}});
    play("LOGIN", "ConnectionLost", withPassword(),
         {{"at the command", "login -!close"},
          {"at the user",
           "login; user -!close",
           {"while waiting for the reply to AUTH LOGIN username"}},
          {"at the password",
           "login; user; password -!reset",
           {"while waiting for the reply to AUTH LOGIN password"}}});
    play("LOGIN", "Timeout", withPassword(),
         {{"at the password", "login; user; password -!stall", {"idleTimeoutMs"}}});
}

TEST(Login, byPlain) {
    play("PLAIN", "AuthFailure", withPassword(),
         {{"refused",
           "plain 535 no",
           {"auth_plain:", "smtpAuth.statusCode: 535", "smtpAuth.error: AuthFailure",
            "Failed to login using PLAIN method"}},
          {"a challenge", "plain 334 |~; cancel", {"334"}}});
    play("PLAIN", "ConnectionLost", withPassword(),
         {{"closed", "plain -!close", {"while waiting for the reply to AUTH PLAIN"}}});
}

TEST(Login, byCramMd5) {
    const char* const failed = "Failed to login using CRAM-MD5 method";
    play("CRAM-MD5", "Success", withPassword(),
         {{"no challenge",
           "cram 334 |~; 'dGVzdGVyIGUzMTdkZmNkODg3ZmY5OWZhNDVlMDA2NTY4ZTY1ZTM4' 235 ok",
           {"auth_cram_md5:"}},
          {"a long challenge", "cram 334 " + std::string(65400, 'A') + "; any 235 ok"}});
    play("CRAM-MD5", "AuthFailure", withPassword(),
         {{"no base64",
           "cram 334 <42@mx.test>; cancel",
           {"The challenge of the server is no base64 text.", failed}},
          {"cut base64", "cram 334 PDQyQG1; cancel"},
          {"refused", "cram 504 no", {"AUTH CRAM-MD5 failed"}},
          {"response refused", "cram; digest 535 no", {"smtpAuth.statusCode: 535"}}});
    play("CRAM-MD5", "ConnectionLost", withPassword(), {{"closed", "cram; digest -!close"}});
    // The example of RFC 2195.
    play("CRAM-MD5", "Success", {{"SmtpUsername", "tim"}, {"SmtpPassword", "tanstaaftanstaaf"}},
         {{"published",
           "cram 334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+; "
           "'dGltIGI5MTNhNjAyYzdlZGE3YTQ5NWI0ZTZlNzMzNGQzODkw' 235 ok"}});
}

TEST(Login, byXoauth2) {
    const std::string error = "xoauth2 334 eyJzdGF0dXMiOiI0MDEiLCJzY2hlbWVzIjoiYmVhcmVyIn0=; '' ";
    play("XOAUTH2", "AuthFailure", withToken(),
         {{"refused",
           "xoauth2 535 no",
           {"auth_xoauth2:", "username: tester", "Failed to login using XOAUTH2 method"}},
          {"an account of the error",
           error + "535 5.7.8 no",
           {R"(xoauth2Error: {"status":"401","schemes":"bearer"})", "535"}},
          {"an unreadable one", "xoauth2 334 {}; '' 535 5.7.8 no"},
          {"and again", error + "334 |~; cancel"}});
    play("XOAUTH2", "Success",
         {{"SmtpUsername", "tester"}, {"OAuth2AccessToken", "Bearer hidden-token"}},
         {{"with its word", "xoauth2"}});
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

TEST(Login, transcript) {
    MailWorld world(withPassword());
    world.compose();
    world.serve(offering("LOGIN") + script("login; user; password 535 5.7.8 no; quit"));
    EXPECT_FALSE(world.send());
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

}  // namespace
}  // namespace tv::test
