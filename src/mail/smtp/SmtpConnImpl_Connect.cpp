// From nothing to a session that is greeted and logged in: the open one if it still serves, else a
// new one.
#include "base/Ascii.h"
#include "log/LogContextExitor.h"
#include "mail/oauth2/OAuth2ClientCredentials.h"
#include "mail/smtp/SmtpAuth.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "mail/smtp/SmtpFailure.h"
#include "net/ConnectFailure.h"
#include "net/stream/SChannelTolvane.h"
#include "net/tls/Handshake.h"
#include "net/x509/ServerEndPoint.h"
#include "platform/SysClock.h"

namespace tv {
namespace {

// Servers may hang up after five minutes of silence (RFC 5321 section 4.5.3.2.7), and many do
// sooner.
constexpr uint64_t kMaxIdleMs = 60000;
// Idle time-outs with a meaning of their own when a TLS connection is closed: 0 means six hours,
// the value for a single look no limit.
constexpr uint32_t kLongWaitMs = 21600000;
constexpr uint32_t kSingleLook = 0xABCD0123;

}  // namespace

Failure SmtpConnImpl::smtpConnectAndAuthenticate(CallContext& call, bool skipAuthentication) {
    if (Failure failure = smtpConnect(call)) return failure;
    if (skipAuthentication || settings.authMethod.equalsIgnoreCase("NONE")) return {};
    Failure failure = authenticated_ ? Failure() : logIn(call);
    if (failure && !noLogin_.empty()) failure.addHint(noLogin_);
    return failure;
}

Failure SmtpConnImpl::logIn(CallContext& call) {
    noLogin_.clear();
    unsettled_ = true;
    Failure failure = smtpAuthenticate(call, *this);
    unsettled_ = false;
    setAuthenticated(!failure);
    // The server may have a new certificate, which a resumed TLS session does not show.
    if (failure && settings.channelBinding != ChannelBinding::No) {
        tlsSessions_ = std::make_shared<TlsSessionSlot>();
    }
    call.log.logDataBool("smtpAuth.success", !failure);
    return failure;
}

Failure SmtpConnImpl::smtpConnect(CallContext& call) {
    const LogContextExitor context(call.log, "smtpConnect");
    if (settings.smtpHost.empty()) {
        return fail(call.log, Cause::NoSmtpHostname,
                    "Application did not provide an SMTP hostname.");
    }
    call.log.logDataX("smtpHostname", settings.smtpHost);
    call.log.logDataLong("smtpPort", settings.smtpPort);
    if (connectionIsReady(call)) {
        touch();
        return {};
    }
    closeSmtpConnection(call);
    Failure failure =
        againWithoutTls13(call.log, openSession(call), [&] { return openSession(call); });
    if (failure) closeSmtpConnection(call);
    return failure;
}

std::string_view SmtpConnImpl::changedSetting() const {
    if (settings.smtpHost != made_.smtpHost) return "SMTP host changed.";
    if (settings.smtpPort != made_.smtpPort) return "SMTP port changed.";
    if (settings.smtpSsl != made_.smtpSsl || settings.startTls != made_.startTls ||
        settings.requireSslCertVerify != made_.requireSslCertVerify ||
        settings.trustAnchorsFile != made_.trustAnchorsFile ||
        settings.tlsProtocol != made_.tlsProtocol) {
        return "SMTP TLS settings changed.";
    }
    if (settings.authMethod != made_.authMethod) return "SMTP auth method changed.";
    if (authenticated_ && !made_.authMethod.equalsIgnoreCase("NONE")) {
        if (settings.userName != made_.userName) return "SMTP username changed.";
        if (settings.password != made_.password) return "SMTP password changed.";
    }
    if (settings.oauth2Token != made_.oauth2Token) return "SMTP OAuth2 access token changed.";
    if (settings.loginDomain != made_.loginDomain) return "SMTP login domain changed.";
    if (settings.revision != made_.revision) return "The settings file changed.";
    return {};
}

bool SmtpConnImpl::isUsedUp() const {
    const uint64_t limit = capabilities_.transactionLimit;
    return settings.heedLimits && limit > 0 && transactions_ >= limit;
}

bool SmtpConnImpl::seemsReady() const {
    return isConnected() && !unsettled_ && !isUsedUp() && changedSetting().empty();
}

bool SmtpConnImpl::connectionIsReady(CallContext& call) {
    const LogContextExitor context(call.log, "connectionIsReady");
    const std::string_view changed = socket_ ? changedSetting() : std::string_view();
    if (!changed.empty()) {
        call.log.logInfo(changed);
        call.log.logInfo("Need new SMTP connection...");
        return false;
    }
    if (socket_ && isUsedUp()) {
        call.log.logInfo("The server allows no more messages on this connection (LIMITS).");
        smtpQuit(call);
        return false;
    }
    // An end of stream or a word out of turn (a 421 of a server that gave up waiting) shows here.
    if (!isConnected() || unsettled_ || !socket_->isQuiet()) {
        call.log.logInfo("No connection, need new SMTP connection.");
        return false;
    }
    if (settings.autoReset && !automaticReset(call)) return false;
    if (plat::sysClock().tickMs() - lastActivityTickMs_ >= kMaxIdleMs) {
        call.log.logInfo("Reconnecting because the connection has been idle for too long.");
        return false;
    }
    call.log.logInfo("Using existing/open SMTP connection to send email.");
    return true;
}

// Where it fails, a new connection follows.
bool SmtpConnImpl::automaticReset(CallContext& call) {
    const LogContextExitor context(call.log, "autoReset");
    SmtpResponse reply;
    const Failure failure = smtpSendGet2(call, "RSET\r\n", reply);
    if (!failure && reply.isSuccess()) return true;
    call.log.logInfo("Non-success RSET response.");
    return false;
}

Failure SmtpConnImpl::openSession(CallContext& call) {
    if (Failure failure = openAndGreet(call)) return failure;
    if (settings.startTls) {
        Failure failure = startTls(call, true);
        if (failure.is(Cause::StartTlsRefused)) call.log.logError(failure.text());
        if (failure) return failure;
    }
    if (Failure failure = ehloOrHelo(call)) return failure;
    if (Failure failure = upgradeIfPossible(call)) return failure;
    unsettled_ = false;
    touch();
    return {};
}

// Some servers drop the first connection of a client they do not know.
Failure SmtpConnImpl::openAndGreet(CallContext& call) {
    if (Failure failure = openTcp(call)) return failure;
    Failure failure = smtpGreeting(call);
    if (!failure || call.wasStopped()) return failure;
    call.log.logInfo("Failed to get initial SMTP response..");
    call.log.logInfo("Will re-try one time...");
    if (Failure again = openTcp(call)) return again;
    failure = smtpGreeting(call);
    if (failure) call.log.logError("Failed to get initial SMTP response again.");
    return failure;
}

Failure SmtpConnImpl::openTcp(CallContext& call) {
    closeSmtpConnection(call);
    sessionLog_.startAnew();
    capabilities_ = {};
    noLogin_.clear();
    peer_ = {};
    transactions_ = 0;
    made_ = settings;
    unsettled_ = true;
    socket_ = std::make_unique<Socket2>();
    socket_->setConnectTimeoutMs(settings.connectTimeoutMs);
    socket_->setOnlyFamily(settings.onlyFamily);
    socket_->setLocalAddress(settings.localAddress.utf8());
    socket_->setTcpNoDelay(call.log, true);
    TlsChannelSettings& tls = socket_->tlsSettings();
    tls.tlsProtocol = settings.tlsProtocol.utf8();
    tls.requireSslCertVerify = settings.requireSslCertVerify;
    tls.trustAnchorsFile = settings.trustAnchorsFile.utf8();
    tls.furtherAnchorsFile = settings.furtherAnchorsFile.utf8();
    tls.pinnedKeys = settings.pinnedKeys;
    tls.oldSuites = settings.oldSuites;
    tls.sessions = tlsSessions_;
    tls.withoutTls13 = withoutTls13_;
    const Failure failure =
        socket_->connect2(call, settings.smtpHost.utf8(), settings.smtpPort, settings.smtpSsl);
    if (!failure) {
        notePeer();
        return {};
    }
    socket_.reset();
    return fail(call.log, Cause::ConnectFailed,
                "No connection to " + std::string(settings.smtpHost.utf8()) + ":" +
                    std::to_string(settings.smtpPort) + ": " + connectFailText(failure) + ".")
        .because(failure);
}

void SmtpConnImpl::notePeer() {
    peer_.address = socket_->remoteIp();
    const tls::Negotiated* secure = socket_->negotiated();
    if (!secure) return;
    peer_.tls = tls::versionName(secure->version);
    if (secure->suite) peer_.tls += ' ' + std::string(secure->suite->name);
}

std::vector<uint8_t> SmtpConnImpl::channelBinding() const {
    const tls::Negotiated* secure = socket_ ? socket_->negotiated() : nullptr;
    if (!secure || secure->leaf.empty()) return {};
    return x509::serverEndPoint(secure->leaf);
}

void SmtpConnImpl::noteLogin(std::string_view mechanism, std::string_view user) {
    peer_.login = std::string(mechanism) + ' ' + std::string(user);
}

Failure SmtpConnImpl::smtpGreeting(CallContext& call) {
    SmtpResponse reply;
    if (Failure failure = readSmtpResponse(call, "greeting", reply)) {
        return std::move(failure).at(Stage::Greeting);
    }
    if (reply.isSuccess()) return {};
    call.log.logError("Failed SMTP greeting response code.");
    return smtp::refused(call.log, Cause::GreetingError, "The server greeted with: ", reply);
}

Failure SmtpConnImpl::oauth2AccessToken(CallContext& call, SecureBuffer& token) {
    if (!tokenSource_ || tokenSource_->description() != settings.oauth2Token) {
        tokenSource_ = std::make_unique<OAuth2ClientCredentials>(settings.oauth2Token);
    }
    OAuth2Transport transport;
    transport.connectTimeoutMs = settings.connectTimeoutMs;
    transport.idleTimeoutMs = settings.idleTimeoutMs;
    transport.tlsProtocol = settings.tlsProtocol.utf8();
    transport.trustAnchorsFile = settings.trustAnchorsFile.utf8();
    transport.plainAllowed = settings.oauth2PlainHttp;
    return tokenSource_->accessToken(call, transport, token);
}

bool SmtpConnImpl::oauth2TokenRefused() {
    return tokenSource_ && tokenSource_->description() == settings.oauth2Token &&
           tokenSource_->tokenRefused();
}

void SmtpConnImpl::closeSmtpConnection(CallContext& call) {
    unsettled_ = false;
    authenticated_ = false;
    queue_.clear();
    queuedBytes_.clear();
    if (!socket_) return;
    uint32_t limit = settings.idleTimeoutMs;
    if (limit == 0) limit = kLongWaitMs;
    if (limit == kSingleLook) limit = 0;
    const bool abrupt = !socket_->isTls();
    socket_->close(call, abrupt, limit);
    socket_.reset();
    made_ = SmtpSettings();
}

}  // namespace tv
