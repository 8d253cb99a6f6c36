// Access tokens by client credentials: the description, the request, the answer, and logins with
// it.
#include "base/Ascii.h"
#include "log/tvLogger.h"
#include "mail/oauth2/OAuth2ClientCredentials.h"
#include "mail/sasl/Sasl.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "tests/unit/mail/LoginWorld.h"

namespace tv::test {
namespace {

const char* const kDescription =
    R"({"token_endpoint":"http://10.0.0.9/t","client_id":"me","client_secret":"hidden-word"})";
const char* const kForm = "grant_type=client_credentials&client_id=me&client_secret=hidden-word";

TEST(OAuth2, descriptions) {
    struct Row {
        const char* members;
        const char* host;  // "host:port/path", or the fault's end
        const char* form;
    } const rows[] = {
        {R"("token_endpoint":"https://id.test/o/token?x=1#f","client_id":"a b","client_secret":"c&d",
            "scope":"https://o.test/.default","tenant":"\u00e4+~","n":5)",
         "id.test:443/o/token?x=1",
         "grant_type=client_credentials&client_id=a%20b&client_secret=c%26d&scope=https%3A%2F%2F"
         "o.test%2F.default&tenant=%C3%A4%2B~&n=5"},
        {R"("token_endpoint":"HTTPS://[::1]:8443","client_id":"a","client_secret":"b",
            "grant_type":"password")",
         "::1:8443/", "grant_type=client_credentials&client_id=a&client_secret=b"},
        {R"("token_endpoint":"ftp://id.test/","client_id":"a","client_secret":"b")", "https://.",
         nullptr},
        {R"("token_endpoint":"https://u@id.test/","client_id":"a","client_secret":"b")",
         "https://.", nullptr},
        {R"("token_endpoint":"https://id.test:0/","client_id":"a","client_secret":"b")",
         "https://.", nullptr},
        {R"("token_endpoint":"https://id.test:65536/","client_id":"a","client_secret":"b")",
         "https://.", nullptr},
        {R"("token_endpoint":"https://id.test/\r\nX: y","client_id":"a","client_secret":"b")",
         "https://.", nullptr},
        {R"("token_endpoint":"https://[::1/","client_id":"a","client_secret":"b")", "https://.",
         nullptr},
        {R"("token_endpoint":"https","client_id":"a","client_secret":"b")", "https://.", nullptr},
        {R"("token_endpoint":"https:///x","client_id":"a","client_secret":"b")", "https://.",
         nullptr},
        {R"("client_id":"a","client_secret":"b")", "https://.", nullptr},
        {R"("token_endpoint":"https://id.test/","client_secret":"b")", "\"client_secret\".",
         nullptr},
        {R"("token_endpoint":"https://id.test/","client_id":"a","client_secret":5)",
         "\"client_secret\".", nullptr},
        {R"("token_endpoint":"https://id.test/","client_id":"a","client_secret":"b","x":{})",
         "\"x\" is not a text.", nullptr},
        {R"("token_endpoint")", "not a JSON object.", nullptr},
    };
    for (const Row& row : rows) {
        OAuth2Request request;
        const Failure failure =
            readOAuth2Description(std::string("{") + row.members + "}", request);
        EXPECT_EQ(!failure, row.form != nullptr) << row.members;
        if (failure) {
            EXPECT_TRUE(failure.text().ends_with(row.host)) << row.members << failure.text();
            continue;
        }
        EXPECT_EQ(request.host + ":" + std::to_string(request.port) + request.path, row.host);
        EXPECT_EQ(saslText(request.form), row.form);
    }
}

TEST(OAuth2, answers) {
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string token = R"({"access_token":"t","expires_in":3600})";
    struct Row {
        std::string reply;
        const char* result;  // "token lifetime", the fault's end, or "malformed"
    } const rows[] = {
        {ok + "Content-Length: 38\r\n\r\n" + token + "more", "t 3600"},
        {ok + "\r\n" + token, "t 3600"},
        {ok + "Transfer-Encoding: chunked\r\n\r\n1;x=y\r\n{\r\n25\r\n" + token.substr(1) +
             "\r\n0\r\n\r\n",
         "t 3600"},
        {"HTTP/1.1 100 Continue\r\n\r\n" + ok + "\r\n" + R"({"access_token":"t"})", "t 300"},
        {ok + "\r\n" + R"({"access_token":"t","expires_in":"99999999999","token_type":"bEARER"})",
         "t 86400"},
        {ok + "\r\n" + R"({"access_token":"t","token_type":"mac"})", "mac, not Bearer."},
        {ok + "\r\n" + R"({"access_token":5})", "no access token."},
        {ok + "\r\n[]", "no access token."},
        {"HTTP/1.1 401 Unauthorized\r\n\r\n" +
             std::string(R"({"error":"invalid_client","error_description":"No\nsuch"})"),
         "answered 401 invalid_client: No such."},
        {"HTTP/1.0 500 Oops\r\nContent-Length: 0\r\n\r\n", "answered 500."},
        {"HTTP/1.1 302 Found\r\nLocation: https://evil.test/\r\n\r\n", "give the final URL."},
        {"HTTP/1.1 204\r\n\r\n", "answered 204."},
        {ok + "Content-Length: 39\r\n\r\n" + token, "malformed"},
        {ok + "Content-Length: 38\r\nContent-Length: 37\r\n\r\n" + token, "malformed"},
        {ok + "Content-Length: -1\r\n\r\n" + token, "malformed"},
        {ok + "Content-Length: 99999999999999999999\r\n\r\n" + token, "malformed"},
        {ok + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n", "malformed"},
        {ok + "Transfer-Encoding: chunked\r\nContent-Length: 1\r\n\r\n0\r\n\r\n", "malformed"},
        {ok + "Transfer-Encoding: chunked\r\n\r\n2\r\n{}}\r\n0\r\n\r\n", "malformed"},
        {ok + "Transfer-Encoding: chunked\r\n\r\nffffffff\r\n", "malformed"},
        {ok + "no field\r\n\r\n" + token, "malformed"},
        {"HTTP/2 200\r\n\r\n" + token, "malformed"},
        {"220 mail.test ESMTP\r\n\r\n", "malformed"},
        {"", "malformed"},
    };
    for (const Row& row : rows) {
        HttpReply reply;
        std::string result = "malformed";
        if (readHttpReply(row.reply, true, reply) == HttpRead::Complete) {
            OAuth2Token read;
            const Failure failure = readOAuth2Token(reply, read);
            result = failure ? failure.text()
                             : std::string(saslText(read.accessToken)) + " " +
                                   std::to_string(read.lifetimeSeconds);
        }
        EXPECT_TRUE(result.ends_with(row.result)) << row.reply << "\n" << result;
        // A reply of known length is complete at its last byte and not before.
        for (size_t i = 0; i < row.reply.size() && row.reply.starts_with(ok); ++i) {
            const HttpRead part = readHttpReply(row.reply.substr(0, i), false, reply);
            EXPECT_TRUE(part != HttpRead::Complete || row.reply.ends_with("more") ||
                        row.reply.ends_with("0\r\n\r\n"))
                << row.reply.substr(0, i);
        }
    }
}

Turn tokenTurn(const std::string& token, int lifetime) {
    const std::string form = kForm;
    const std::string body =
        "{\"access_token\":\"" + token + "\",\"expires_in\":" + std::to_string(lifetime) + "}";
    return turn(
        "POST /t HTTP/1.1\r\nHost: 10.0.0.9\r\nContent-Type: "
        "application/x-www-form-urlencoded\r\nAccept: application/json\r\nContent-Length: " +
            std::to_string(form.size()) + "\r\nConnection: close\r\n\r\n" + form,
        "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
}

struct TokenWorld : MailWorld {
    Failure failure;

    TokenWorld() {
        connection.settings.smtpHost.setUtf8(kServer);
        connection.settings.userName.setUtf8("tester");
        connection.settings.oauth2Token.setUtf8(kDescription);
        connection.settings.oauth2PlainHttp = true;
    }
    bool logIn(const Turns& turns) {
        serve(offering("XOAUTH2") + turns + Turns{quit()});
        CallContext call{log};
        log.clearLog();
        failure = connection.smtpConnectAndAuthenticate(call, false);
        log.getText(text);
        connection.smtpQuit(call);
        connection.closeSmtpConnection(call);
        EXPECT_FALSE(contains(text, "hidden")) << text;
        EXPECT_FALSE(contains(std::string(connection.sessionLog().text()), "hidden"));
        return !failure;
    }
    void giveToken(const std::string& token, int lifetime = 3600) {
        net.serve("10.0.0.9", 80, {tokenTurn(token, lifetime)});
    }

    SmtpConnImpl connection;
    _tvLogger log;
    Recorded recorded{log};
    std::string text;
};

Turn bearer(const std::string& token, const std::string& reply = "235 welcome\r\n") {
    const std::string text =
        "user=tester\x01"
        "auth=Bearer " +
        token + "\x01\x01";
    return turn("AUTH XOAUTH2 " + base64Encode(text) + "\r\n", reply);
}

TEST(OAuth2, aTokenIsKeptUntilShortlyBeforeItsEnd) {
    TokenWorld world;
    world.giveToken("hidden-1");
    EXPECT_TRUE(world.logIn({bearer("hidden-1")})) << world.text;
    world.clock.advanceMs(3539 * 1000);
    EXPECT_TRUE(world.logIn({bearer("hidden-1")})) << world.text;
    EXPECT_TRUE(contains(world.text, "Using the access token that was fetched before."));
    world.clock.advanceMs(1000);
    world.giveToken("hidden-2", 60);
    EXPECT_TRUE(world.logIn({bearer("hidden-2")})) << world.text;
    world.giveToken("hidden-3");  // one of a minute or less is never kept
    EXPECT_TRUE(world.logIn({bearer("hidden-3")})) << world.text;
    world.connection.settings.oauth2Token.setUtf8(std::string(" ") + kDescription);
    world.giveToken("hidden-4");
    EXPECT_TRUE(world.logIn({bearer("hidden-4")})) << world.text;
}

TEST(OAuth2, aRefusedKeptTokenIsFetchedAgainOnce) {
    TokenWorld world;
    world.giveToken("hidden-1");
    EXPECT_TRUE(world.logIn({bearer("hidden-1")}));
    world.giveToken("hidden-2");
    EXPECT_TRUE(world.logIn(
        {bearer("hidden-1", "334 e30=\r\n"), turn("\r\n", "535 expired\r\n"), bearer("hidden-2")}))
        << world.text;
    world.giveToken("hidden-3");
    EXPECT_FALSE(world.logIn({bearer("hidden-2", "535 no\r\n"), bearer("hidden-3", "535 no\r\n")}));
    world.giveToken("hidden-4");  // a new token that is refused is not worth another
    EXPECT_FALSE(world.logIn({bearer("hidden-4", "535 no\r\n")}));
}

TEST(OAuth2, whatTheEndpointMayDo) {
    struct Row {
        const char* name;
        Turns endpoint;  // empty: nobody listens
        const char* logged;
    };
    const Turn refused = upTo(kForm,
                              "HTTP/1.1 401 No\r\nContent-Length: 58\r\n\r\n"
                              R"({"error":"bad","error_description":"hidden-word is wrong"})");
    const Row rows[] = {
        {"not there", {}, "Connection rejected"},
        {"refuses and echoes", {refused.thenClose()}, "401 bad: {PasswordOrCredentials} is wrong"},
        {"is no HTTP server", {upTo(kForm, "220 mail.test\r\n\r\n")}, "is not one of HTTP"},
        {"closes", {upTo(kForm, "").thenClose()}, "is not one of HTTP"},
        {"says nothing", {upTo(kForm, "").thenStall()}, "did not answer in time"},
        {"drips", {upTo(kForm, "HTTP/1.1 200 OK").drippedBy(29000)}, "did not answer in time"},
        {"says too much", {upTo(kForm, std::string(70000, 'x'))}, "larger than 64 KiB"},
    };
    for (const Row& row : rows) {
        TokenWorld world;
        if (!row.endpoint.empty()) {
            FakeLink& link = world.net.serve("10.0.0.9", 80, row.endpoint);
            link.mayEndEarly = true;
        }
        EXPECT_FALSE(world.logIn({})) << row.name;
        EXPECT_TRUE(contains(world.text, row.logged)) << row.name << "\n" << world.text;
        EXPECT_TRUE(contains(world.text,
                             "Failed to get SMTP OAuth2 access token by client "
                             "credentials."));
        EXPECT_EQ(statusWord(world.failure.cause()), "AuthFailure");
    }
}

TEST(OAuth2, theSecretNeverTravelsInClear) {
    TokenWorld world;
    world.connection.settings.oauth2PlainHttp = false;
    EXPECT_FALSE(world.logIn({}));
    EXPECT_TRUE(contains(world.text, "must begin with https://")) << world.text;
    EXPECT_EQ(world.net.connects.size(), 1u);
}

}  // namespace
}  // namespace tv::test
