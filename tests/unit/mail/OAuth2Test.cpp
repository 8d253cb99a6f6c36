// Access tokens by client credentials: the description and the answer.
#include <gtest/gtest.h>

#include "mail/oauth2/HttpReply.h"
#include "mail/oauth2/OAuth2Messages.h"
#include "mail/sasl/Sasl.h"

namespace tv {
namespace {

TEST(OAuth2, descriptions) {
    const std::string secret = R"("client_id":"a","client_secret":"b")";
    const struct {
        const char* endpoint;
        std::string members;
        const char* found;  // "host:port/path form", or the end of the fault
    } rows[] = {
        {"https://id.test/o/token?x=1#f",
         R"("client_id":"a b","client_secret":"c&d","scope":"https://o.test/.default",
            "tenant":"\u00e4+~","n":5)",
         "id.test:443/o/token?x=1 grant_type=client_credentials&client_id=a%20b&"
         "client_secret=c%26d&scope=https%3A%2F%2Fo.test%2F.default&tenant=%C3%A4%2B~&n=5"},
        {"HTTPS://[::1]:8443", secret + R"(,"grant_type":"password")",
         "::1:8443/ grant_type=client_credentials&client_id=a&client_secret=b"},
        {"https://id.test:65535?y", secret,
         "id.test:65535/?y grant_type=client_credentials&client_id=a&client_secret=b"},
        {"https://id.test/", R"("client_secret":"b")", "\"client_secret\"."},
        {"https://id.test/", R"("client_id":"a","client_secret":5)", "\"client_secret\"."},
        {"https://id.test/", secret + R"(,"x":{})", "\"x\" is not a text."},
        {"https://id.test/", R"("client_id")", "not a JSON object."},
        {"https", secret, "https://."},
        {"ftp://id.test/", secret, "https://."},
        {"https:///x", secret, "https://."},
        {"https://u@id.test/", secret, "https://."},
        {"https://id.test:0/", secret, "https://."},
        {"https://id.test:65536/", secret, "https://."},
        {R"(https://id.test/\r\nX: y)", secret, "https://."},
        {"https://[::1/", secret, "https://."},
        {"https://[::1]8443/", secret, "https://."},
        {"https://[::1%25a]/", secret, "https://."},
    };
    for (const auto& row : rows) {
        OAuth2Request request;
        const Failure failure = readOAuth2Description(
            std::string(R"({"token_endpoint":")") + row.endpoint + "\"," + row.members + "}",
            request);
        const std::string found = request.host + ":" + std::to_string(request.port) + request.path +
                                  " " + std::string(saslText(request.form));
        EXPECT_TRUE(failure ? failure.text().ends_with(row.found) : found == row.found)
            << row.endpoint << row.members << failure.text();
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
        {ok + "Content-Length: 2:\r\n\r\n" + token, "malformed"},
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

}  // namespace
}  // namespace tv
