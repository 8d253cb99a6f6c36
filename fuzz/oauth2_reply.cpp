// The answer of a token endpoint, whole and in two pieces, and descriptions of a request.
#include "Target.h"
#include "mail/oauth2/OAuth2Messages.h"

void tv::take(Input input) {
    const std::string_view text = textOf(input);
    HttpReply reply;
    OAuth2Token token;
    OAuth2Request request;
    const bool isDescription = text.starts_with('{');
    if (!isDescription) {
        for (const size_t part : {text.size() / 2, text.size()}) {
            readHttpReply(text.substr(0, part), false, reply);
        }
        require(readHttpReply(text, true, reply) != HttpRead::NeedMore);
    }
    const Failure failure =
        isDescription ? readOAuth2Description(text, request) : readOAuth2Token(reply, token);
    if (failure) return require(!failure.text().empty());
    if (!isDescription) return require(!token.accessToken.empty());
    // Nothing of a description can add a header.
    const SecureBuffer http = oauth2HttpRequest(request);
    const Input head(http.data(), http.size() - request.form.size());
    require(std::ranges::count(head, '\n') == 7 && textOf(head).ends_with("\r\n\r\n"));
}
