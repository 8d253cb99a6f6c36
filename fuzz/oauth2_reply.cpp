// The answer of a token endpoint, whole and in two pieces, and descriptions of a request.
#include "Target.h"
#include "mail/oauth2/OAuth2Messages.h"

void tv::take(Input input) {
    const std::string_view text = textOf(input);
    if (text.starts_with('{')) {
        OAuth2Request request;
        if (const Failure failure = readOAuth2Description(text, request)) {
            return require(!failure.text().empty());
        }
        // Nothing of a description can add a header.
        const SecureBuffer http = oauth2HttpRequest(request);
        const Input head(http.data(), http.size() - request.form.size());
        return require(std::ranges::count(head, '\n') == 7 && textOf(head).ends_with("\r\n\r\n"));
    }
    HttpReply reply;
    OAuth2Token token;
    readHttpReply(text.substr(0, text.size() / 2), false, reply);
    readHttpReply(text, false, reply);
    require(readHttpReply(text, true, reply) != HttpRead::NeedMore);
    const Failure failure = readOAuth2Token(reply, token);
    require(failure ? !failure.text().empty() : !token.accessToken.empty());
}
