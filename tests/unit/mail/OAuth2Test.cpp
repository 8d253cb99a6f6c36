// Access tokens by client credentials: the description, the answer, and logins with what it gives.
#include "base/Base64.h"
#include "log/tvLogger.h"
#include "mail/oauth2/OAuth2ClientCredentials.h"
#include "mail/sasl/Sasl.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "tests/unit/mail/MailWorld.h"

namespace tv::test {
namespace {

TEST(OAuth2, descriptions) {
    const char* const tooBad[] = {"https://.", "\"client_secret\".", "\"x\" is not a text.",
                                  "not a JSON object."};
    const struct {
        const char* endpoint;
        const char* members;
        const char* found;  // "host:port/path form", or the end of the fault
    } rows[] = {
        {"https://id.test/o/token?x=1#f",
         R"("client_id":"a b","client_secret":"c&d","scope":"https://o.test/.default",
            "tenant":"\u00e4+~","n":5)",
         "id.test:443/o/token?x=1 grant_type=client_credentials&client_id=a%20b&"
         "client_secret=c%26d&scope=https%3A%2F%2Fo.test%2F.default&tenant=%C3%A4%2B~&n=5"},
        {"HTTPS://[::1]:8443", R"("client_id":"a","client_secret":"b","grant_type":"password")",
         "::1:8443/ grant_type=client_credentials&client_id=a&client_secret=b"},
        {"https://id.test:65535?y", R"("client_id":"a","client_secret":"b")",
         "id.test:65535/?y grant_type=client_credentials&client_id=a&client_secret=b"},
        {"https://id.test/", R"("client_secret":"b")", tooBad[1]},
        {"https://id.test/", R"("client_id":"a","client_secret":5)", tooBad[1]},
        {"https://id.test/", R"("client_id":"a","client_secret":"b","x":{})", tooBad[2]},
        {"https://id.test/", R"("client_id")", tooBad[3]},
        {"", R"("client_id":"a","client_secret":"b")", tooBad[0]},
        {"https", R"("client_id":"a","client_secret":"b")", tooBad[0]},
        {"ftp://id.test/", R"("client_id":"a","client_secret":"b")", tooBad[0]},
        {"https:///x", R"("client_id":"a","client_secret":"b")", tooBad[0]},
        {"https://u@id.test/", R"("client_id":"a","client_secret":"b")", tooBad[0]},
        {"https://id.test:0/", R"("client_id":"a","client_secret":"b")", tooBad[0]},
        {"https://id.test:65536/", R"("client_id":"a","client_secret":"b")", tooBad[0]},
        {R"(https://id.test/\r\nX: y)", R"("client_id":"a","client_secret":"b")", tooBad[0]},
        {"https://[::1/", R"("client_id":"a","client_secret":"b")", tooBad[0]},
        {"https://[::1]8443/", R"("client_id":"a","client_secret":"b")", tooBad[0]},
    };
    for (const auto& row : rows) {
        OAuth2Request request;
        const Failure failure = readOAuth2Description(
            std::string("{\"token_endpoint\":\"") + row.endpoint + "\"," + row.members + "}",
            request);
        const std::string found = request.host + ":" + std::to_string(request.port) + request.path +
                                  " " + std::string(saslText(request.form));
        const bool isBad = std::find(tooBad, std::end(tooBad), row.found) != std::end(tooBad);
        EXPECT_EQ(!failure, !isBad) << row.endpoint;
        const std::string result = failure ? failure.text() : found;
        EXPECT_TRUE(isBad ? result.ends_with(row.found) : result == row.found) << result;
    }
}

TEST(OAuth2, answers) {
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string chunked = ok + "Transfer-Encoding: chunked\r\n";
    const std::string token = R"({"access_token":"t","expires_in":3600})";
    const struct {
        std::string reply;
        const char* result;  // "token lifetime", the end of the fault, or "malformed"
    } rows[] = {
        {ok + "Content-Length: 38\r\n\r\n" + token + "more", "t 3600"},
        {ok + "content-length: 38\r\nContent-Length: 38\r\n\r\n" + token, "t 3600"},
        {ok + "\r\n" + token, "t 3600"},
        {chunked + "\r\n1;x=y\r\n{\r\n25\r\n" + token.substr(1) + "\r\n0\r\n\r\n", "t 3600"},
        {"HTTP/1.1 100 Continue\r\n\r\n" + ok + "\r\n" + R"({"access_token":"t"})", "t 300"},
        {ok + "\r\n" + R"({"access_token":"t","expires_in":"99999999999","token_type":"bEARER"})",
         "t 86400"},
        {ok + "\r\n" + R"({"access_token":"t","token_type":"mac"})", "mac, not Bearer."},
        {ok + "\r\n" + R"({"access_token":5})", "no access token."},
        {ok + "\r\n[]", "no access token."},
        {R"(HTTP/1.1 401 Unauthorized)"
         "\r\n\r\n"
         R"({"error":"invalid_client","error_description":"No\nsuch"})",
         "answered 401 invalid_client: No such."},
        {"HTTP/1.0 500 Oops\r\nContent-Length: 0\r\n\r\n", "answered 500."},
        {"HTTP/1.1 302 Found\r\nLocation: https://evil.test/\r\n\r\n", "give the final URL."},
        {"HTTP/1.1 204\r\n\r\n", "answered 204."},
        {"HTTP/1.1 304 Same\r\nContent-Length: 9\r\n\r\n", "give the final URL."},
        {ok + "Content-Length: 39\r\n\r\n" + token, "malformed"},
        {ok + "Content-Length: 38\r\nContent-Length: 37\r\n\r\n" + token, "malformed"},
        {ok + "Content-Length: -1\r\n\r\n" + token, "malformed"},
        {ok + "Content-Length: 3:\r\n\r\n" + token, "malformed"},
        {ok + "Content-Length: 99999999999999999999\r\n\r\n" + token, "malformed"},
        {ok + "Transfer-Encoding: gzip, chunked\r\n\r\n0\r\n\r\n", "malformed"},
        {chunked + "Content-Length: 1\r\n\r\n0\r\n\r\n", "malformed"},
        {chunked + "\r\n2\r\n{}}\r\n0\r\n\r\n", "malformed"},
        {chunked + "\r\nffffffff\r\n", "malformed"},
        {ok + "no field\r\n\r\n" + token, "malformed"},
        {ok + ": no name\r\n\r\n" + token, "malformed"},
        {"HTTP/1.1 099 Odd\r\n\r\n" + token, "malformed"},
        {"HTTP/1.1 2000\r\n\r\n" + token, "malformed"},
        {"HTTP/2 200\r\n\r\n" + token, "malformed"},
        {"220 mail.test ESMTP\r\n\r\n", "malformed"},
        {"", "malformed"},
    };
    for (const auto& row : rows) {
        HttpReply reply;
        std::string result = "malformed";
        if (readHttpReply(row.reply, true, reply) == HttpRead::Complete) {
            OAuth2Token read;
            const Failure failure = readOAuth2Token(reply, read);
            result = std::string(saslText(read.accessToken)) + " " +
                     std::to_string(read.lifetimeSeconds);
            if (failure) result = failure.text();
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

const char* const kDescription =
    R"({"token_endpoint":"http://10.0.0.9/t","client_id":"me","client_secret":"hidden-word"})";
const char* const kForm = "grant_type=client_credentials&client_id=me&client_secret=hidden-word";

struct TokenWorld : MailWorld {
    TokenWorld() {
        connection.settings.smtpHost.setUtf8(kServer);
        connection.settings.userName.setUtf8("tester");
        connection.settings.oauth2Token.setUtf8(kDescription);
        connection.settings.oauth2PlainHttp = true;
    }
    // The tokens that the client must send, and what the server says to each.
    bool logIn(const std::vector<std::pair<const char*, const char*>>& turns) {
        std::string steps = "auth XOAUTH2; ";
        for (const auto& [token, reply] : turns) {
            const std::string bearer = std::string("user=tester\1auth=Bearer ") + token + "\1\1";
            steps += "'AUTH XOAUTH2 " + base64Encode(bearer) + "' " + reply + "; ";
        }
        serve(steps + "quit");
        CallContext call{log};
        log.clearLog();
        failure = connection.smtpConnectAndAuthenticate(call, false);
        log.getText(text);
        connection.smtpQuit(call);
        connection.closeSmtpConnection(call);
        expectNothingShown(text + connection.sessionLog().text());
        return !failure;
    }
    void giveToken(const std::string& token, int lifetime = 3600) {
        const std::string body =
            "{\"access_token\":\"" + token + "\",\"expires_in\":" + std::to_string(lifetime) + "}";
        const Turn request = turn(
            "POST /t HTTP/1.1\r\nHost: 10.0.0.9\r\n"
            "Content-Type: application/x-www-form-urlencoded\r\nAccept: application/json\r\n"
            "Content-Length: 68\r\nConnection: close\r\n\r\n" +
                std::string(kForm),
            "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                body);
        net.serve("10.0.0.9", 80, {request});
    }

    SmtpConnImpl connection;
    Failure failure;
    _tvLogger log;
    Recorded recorded{log};
    std::string text;
};

TEST(OAuth2, aTokenIsKeptUntilShortlyBeforeItsEnd) {
    TokenWorld world;
    world.giveToken("hidden-token-1");
    EXPECT_TRUE(world.logIn({{"hidden-token-1", "235"}})) << world.text;
    world.clock.advanceMs(3539 * 1000);
    EXPECT_TRUE(world.logIn({{"hidden-token-1", "235"}})) << world.text;
    EXPECT_TRUE(contains(world.text, "Using the access token that was fetched before."));
    world.clock.advanceMs(1000);
    world.giveToken("hidden-token-2", 60);
    EXPECT_TRUE(world.logIn({{"hidden-token-2", "235"}})) << world.text;
    world.giveToken("hidden-token-3");  // one of a minute or less is never kept
    EXPECT_TRUE(world.logIn({{"hidden-token-3", "235"}})) << world.text;
    world.connection.settings.oauth2Token.setUtf8(std::string(" ") + kDescription);
    world.giveToken("hidden-token-4");
    EXPECT_TRUE(world.logIn({{"hidden-token-4", "235"}})) << world.text;
}

TEST(OAuth2, aRefusedKeptTokenIsFetchedAgainOnce) {
    TokenWorld world;
    world.giveToken("hidden-token-1");
    EXPECT_TRUE(world.logIn({{"hidden-token-1", "235"}}));
    world.giveToken("hidden-token-2");
    EXPECT_TRUE(
        world.logIn({{"hidden-token-1", "334 e30=; '' 535 expired"}, {"hidden-token-2", "235"}}))
        << world.text;
    world.giveToken("hidden-token-3");
    EXPECT_FALSE(world.logIn({{"hidden-token-2", "535 no"}, {"hidden-token-3", "535 no"}}));
    world.giveToken("hidden-token-4");  // a new token that is refused is not worth another
    EXPECT_FALSE(world.logIn({{"hidden-token-4", "535 no"}}));
}

TEST(OAuth2, whatTheEndpointMayDo) {
    const Turn refused = upTo(kForm,
                              "HTTP/1.1 401 No\r\nContent-Length: 58\r\n\r\n"
                              R"({"error":"bad","error_description":"hidden-word is wrong"})");
    const struct {
        const char* name;
        Turns endpoint;  // empty: nobody listens
        const char* logged;
    } rows[] = {
        {"not there", {}, "Connection rejected"},
        {"refuses and echoes", {refused.thenClose()}, "401 bad: {PasswordOrCredentials} is wrong"},
        {"is no HTTP server", {upTo(kForm, "220 mail.test\r\n\r\n")}, "is not one of HTTP"},
        {"closes", {upTo(kForm, "").thenClose()}, "is not one of HTTP"},
        {"says nothing", {upTo(kForm, "").thenStall()}, "did not answer in time"},
        {"drips", {upTo(kForm, "HTTP/1.1 200 OK").drippedBy(29000)}, "did not answer in time"},
        {"says too much", {upTo(kForm, std::string(70000, 'x'))}, "larger than 64 KiB"},
        {"speaks no TLS", {upTo("", "")}, "must begin with https://"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TokenWorld world;
        const bool inClear = row.name != std::string_view("speaks no TLS");
        world.connection.settings.oauth2PlainHttp = inClear;
        if (!row.endpoint.empty()) {
            world.net.serve("10.0.0.9", 80, row.endpoint).mayEndEarly = true;
        }
        EXPECT_FALSE(world.logIn({}));
        EXPECT_TRUE(contains(world.text, row.logged)) << world.text;
        EXPECT_TRUE(
            contains(world.text, "Failed to get SMTP OAuth2 access token by client credentials."));
        EXPECT_EQ(statusWord(world.failure.cause()), "AuthFailure");
        EXPECT_EQ(world.net.connects.size(), inClear ? 2u : 1u);
    }
}

}  // namespace
}  // namespace tv::test
