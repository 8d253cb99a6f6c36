// The one exchange with the token endpoint, bounded in time and size, and how long the token that
// it gives is kept.
#include "mail/oauth2/OAuth2ClientCredentials.h"

#include <utility>

#include "base/Ascii.h"
#include "base/DataBuffer.h"
#include "log/Fail.h"
#include "log/LogContextExitor.h"
#include "net/Socket2.h"
#include "net/stream/SChannelTolvane.h"
#include "net/stream/TotalTimeout.h"
#include "platform/SysClock.h"
#include "platform/SysWipe.h"

namespace tv {
namespace {

constexpr size_t kMaxReply = 65536;        // tokens have some KiB
constexpr uint32_t kNoTimeoutMs = 300000;  // for the exchange, where the settings name no limit
constexpr uint32_t kMarginSeconds = 60;    // a token is not used in the last minute of its life

// What comes from the endpoint is secret until it is known to be an error.
struct ReplyBytes {
    ReplyBytes() { data.reserve(kMaxReply + 65536); }  // no growth, no copies left behind
    ~ReplyBytes() { plat::wipe(data.data(), data.size()); }
    DataBuffer data;
};

Failure readReply(CallContext& call, Socket2& socket, uint32_t limitMs, HttpReply& reply) {
    ReplyBytes received;
    for (;;) {
        const Failure failure = socket.receiveBytes(call, received.data, limitMs);
        if (failure.is(Cause::Timeout) || (failure && call.wasStopped())) {
            return fail(call.log, call.wasStopped() ? Cause::Aborted : Cause::Timeout,
                        "The token endpoint did not answer in time.");
        }
        if (received.data.size() > kMaxReply) {
            return fail(call.log, Cause::OAuth2Answer,
                        "The token endpoint's answer is larger than 64 KiB.");
        }
        const bool closed = static_cast<bool>(failure);
        switch (readHttpReply(received.data.text(), closed, reply)) {
            case HttpRead::Complete:
                return {};
            case HttpRead::Malformed:
                return fail(call.log, Cause::OAuth2Answer,
                            "The token endpoint's answer is not one of HTTP.");
            case HttpRead::NeedMore:
                break;
        }
    }
}

Failure post(CallContext& call, const OAuth2Request& request, const OAuth2Transport& transport,
             HttpReply& reply) {
    Socket2 socket;
    socket.setConnectTimeoutMs(transport.connectTimeoutMs);
    TlsChannelSettings& tls = socket.tlsSettings();
    tls.tlsProtocol = transport.tlsProtocol;
    tls.trustAnchorsFile = transport.trustAnchorsFile;
    tls.requireSslCertVerify = true;
    Failure failure = socket.connect2(call, request.host, request.port, request.secure);
    if (failure) return failure;
    const uint32_t limitMs = transport.idleTimeoutMs ? transport.idleTimeoutMs : kNoTimeoutMs;
    const SecureBuffer bytes = oauth2HttpRequest(request);
    const TotalTimeout limit(call, limitMs);
    failure = socket.sendBytes(call, bytes.bytes(), limitMs);
    if (!failure) failure = readReply(call, socket, limitMs, reply);
    socket.close(call, true, 0);
    return failure;
}

// A server may echo what it was given.
std::string withoutSecret(const std::string& text, const SecureBuffer& secret) {
    const std::string_view word(reinterpret_cast<const char*>(secret.data()), secret.size());
    return replaceAll(text, word, "{PasswordOrCredentials}");
}

}  // namespace

OAuth2ClientCredentials::OAuth2ClientCredentials(const XString& description)
    : description_(description) {
    description_.markSecret();
}

Failure OAuth2ClientCredentials::accessToken(CallContext& call, const OAuth2Transport& transport,
                                             SecureBuffer& token) {
    const LogContextExitor context(call.log, "oauth2ClientCredentials");
    const uint64_t ageMs = plat::sysClock().tickMs() - fetchedTickMs_;
    const uint32_t lifetime = token_.lifetimeSeconds;
    lastWasKept_ = !token_.accessToken.empty() && lifetime > kMarginSeconds &&
                   ageMs < uint64_t{lifetime - kMarginSeconds} * 1000;
    if (lastWasKept_) {
        call.log.logInfo("Using the access token that was fetched before.");
    } else {
        OAuth2Token fetched;
        if (Failure failure = fetch(call, transport, fetched)) return failure;
        token_ = std::move(fetched);
        fetchedTickMs_ = plat::sysClock().tickMs();
    }
    token = token_.accessToken;
    return {};
}

bool OAuth2ClientCredentials::tokenRefused() {
    token_ = {};
    return std::exchange(lastWasKept_, false);
}

Failure OAuth2ClientCredentials::fetch(CallContext& call, const OAuth2Transport& transport,
                                       OAuth2Token& token) {
    OAuth2Request request;
    if (Failure failure = readOAuth2Description(description_.utf8(), request)) {
        call.log.logError(failure.text());
        return failure;
    }
    if (!request.secure && !transport.plainAllowed) {
        return fail(call.log, Cause::OAuth2Description,
                    "The token endpoint must begin with https://: the request holds a secret.");
    }
    call.log.logData("tokenEndpointHost", request.host);
    call.log.logDataLong("tokenEndpointPort", request.port);
    call.log.logData("client_id", request.clientId);
    call.log.logData("scope", request.scope);
    HttpReply reply;
    if (Failure failure = post(call, request, transport, reply)) return failure;
    if (const Failure failure = readOAuth2Token(reply, token)) {
        return fail(call.log, failure.cause(), withoutSecret(failure.text(), request.clientSecret));
    }
    call.log.logDataLong("expires_in", token.lifetimeSeconds);
    return {};
}

}  // namespace tv
