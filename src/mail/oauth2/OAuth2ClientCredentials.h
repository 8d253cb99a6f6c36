// Gets access tokens by the client-credentials grant of OAuth 2.0 and keeps the newest one.
#pragma once

#include <cstdint>
#include <string>

#include "base/XString.h"
#include "log/LogBase.h"
#include "mail/oauth2/OAuth2Messages.h"
#include "net/stream/CallContext.h"

namespace tv {

// How the token endpoint is reached. Its certificate is always verified: the request carries the
// client's secret.
struct OAuth2Transport {
    uint32_t connectTimeoutMs = 30000;
    uint32_t idleTimeoutMs = 30000;  // also for request and answer as a whole
    std::string tlsProtocol;         // a version policy; empty: TLS 1.0 to 1.3
    std::string trustAnchorsFile;    // PEM; empty: the system's anchors
    bool plainAllowed = false;       // "http" endpoints, for tests
};

class OAuth2ClientCredentials {
public:
    explicit OAuth2ClientCredentials(const XString& description);

    // What the object was made for.
    const XString& description() const { return description_; }

    // The kept token while it lives, else a new one.
    Failure accessToken(CallContext& call, const OAuth2Transport& transport, SecureBuffer& token);
    // The server refused the last token. True if that one had been kept: a new one may serve.
    bool tokenRefused();

private:
    Failure fetch(CallContext& call, const OAuth2Transport& transport, OAuth2Token& token);

    XString description_;
    OAuth2Token token_;
    uint64_t fetchedTickMs_ = 0;
    bool lastWasKept_ = false;
};

}  // namespace tv
