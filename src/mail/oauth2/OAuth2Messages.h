// The client-credentials grant of OAuth 2.0 (RFC 6749, section 4.4): the description that a host
// gives in place of a token, the request for a token, and its answer. Pure.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/Failure.h"
#include "base/SecureBuffer.h"
#include "mail/oauth2/HttpReply.h"

namespace tv {

struct OAuth2Request {
    bool secure = true;  // https
    std::string host;    // without the brackets of an IPv6 address
    int port = 443;
    std::string path;  // with its query
    std::string clientId;
    std::string scope;
    SecureBuffer clientSecret;
    SecureBuffer form;  // the body of the request
};

struct OAuth2Token {
    SecureBuffer accessToken;
    uint32_t lifetimeSeconds = 0;
};

// The text describes a request and is no token itself.
bool isOAuth2Description(std::string_view text);

// A JSON object with "token_endpoint" (a URL), "client_id" and "client_secret"; "scope" and any
// other text, number or boolean go into the request as they are. A failure says in a sentence what
// to change.
Failure readOAuth2Description(std::string_view json, OAuth2Request& request);

// The whole HTTP request, which holds the secret.
SecureBuffer oauth2HttpRequest(const OAuth2Request& request);

// The token of the answer (RFC 6749, section 5). A failure says why in a sentence, with the
// server's own account of an error.
Failure readOAuth2Token(const HttpReply& reply, OAuth2Token& token);

}  // namespace tv
