// The answer of a token endpoint, whole and in two pieces, and descriptions of a request.
#include <cstdlib>
#include <string>
#include <string_view>

#include "mail/oauth2/OAuth2Messages.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

void readAnswer(std::string_view received) {
    tv::HttpReply reply;
    for (const size_t part : {received.size() / 2, received.size()}) {
        tv::readHttpReply(received.substr(0, part), false, reply);
    }
    require(tv::readHttpReply(received, true, reply) != tv::HttpRead::NeedMore);
    tv::OAuth2Token token;
    const tv::Failure failure = tv::readOAuth2Token(reply, token);
    require(failure ? !failure.text().empty() : !token.accessToken.empty());
}

void readDescription(std::string_view text) {
    tv::OAuth2Request request;
    if (const tv::Failure failure = tv::readOAuth2Description(text, request)) {
        return require(!failure.text().empty());
    }
    // Nothing of the description can add a header.
    const tv::SecureBuffer http = tv::oauth2HttpRequest(request);
    const std::string_view whole(reinterpret_cast<const char*>(http.data()), http.size());
    const std::string_view head = whole.substr(0, whole.size() - request.form.size());
    size_t lines = 0;
    for (const char c : head) {
        lines += c == '\n';
    }
    require(lines == 7 && head.ends_with("\r\n\r\n"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (text.starts_with("{")) {
        readDescription(text);
    } else {
        readAnswer(text);
    }
    return 0;
}
