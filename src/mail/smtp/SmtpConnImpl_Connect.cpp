// From nothing to a session that is greeted and logged in: the open one if it still serves, else a
// new one.
#include "base/Ascii.h"
#include "log/LogContextExitor.h"
#include "mail/oauth2/OAuth2ClientCredentials.h"
#include "mail/smtp/SmtpAuth.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "net/ConnectFailure.h"
#include "net/stream/SChannelTolvane.h"
#include "platform/SysClock.h"

namespace tv {
namespace {

constexpr uint64_t kMaxIdleMs = 60000;
constexpr uint32_t kNoLimit = 0xABCD0123;
constexpr uint32_t kLongWaitMs = 21600000;

}  // namespace

bool SmtpConnImpl::smtpConnectAndAuthenticate(CallContext& call, bool skipAuthentication) {
    if (!smtpConnect(call)) return false;
    if (skipAuthentication || settings.authMethod.equalsIgnoreCase("NONE")) return true;
    const bool success = authenticated_ || logIn(call);
    if (!noLogin_.empty()) outcome_.addHint(noLogin_);
    return success;
}

bool SmtpConnImpl::logIn(CallContext& call) {
    noLogin_.clear();
    unsettled_ = true;
    const bool success = smtpAuthenticate(call, *this);
    unsettled_ = false;
    setAuthenticated(success);
    call.log.logDataBool("smtpAuth.success", success);
    return success;
}

bool SmtpConnImpl::smtpConnect(CallContext& call) {
    const LogContextExitor context(call.log, "smtpConnect");
    clearLastReply();
    if (settings.smtpHost.empty()) {
        fail(call.log, SmtpStatus::NoSmtpHostname, "Application did not provide an SMTP hostname.");
        return false;
    }
    call.log.logDataX("smtpHostname", settings.smtpHost);
    call.log.logDataLong("smtpPort", settings.smtpPort);
    if (connectionIsReady(call)) {
        touch();
        return true;
    }
    closeSmtpConnection(call);
    helloUnanswered_ = false;
    const auto open = [&] {
        outcome_.clear();
        return openSession(call);
    };
    if (open() || againWithoutTls13(call.log, open)) return true;
    closeSmtpConnection(call);
    return false;
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
    return {};
}

bool SmtpConnImpl::connectionIsReady(CallContext& call) {
    const LogContextExitor context(call.log, "connectionIsReady");
    const std::string_view changed = socket_ ? changedSetting() : std::string_view();
    if (!changed.empty()) {
        call.log.logInfo(changed);
        call.log.logInfo("Need new SMTP connection...");
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

bool SmtpConnImpl::automaticReset(CallContext& call) {
    const LogContextExitor context(call.log, "autoReset");
    const auto reply = smtpSendGet2(call, "RSET\r\n");
    if (reply && reply->isSuccess()) return true;
    call.log.logInfo("Non-success RSET response.");
    outcome_.clear();  // a new connection follows
    return false;
}

bool SmtpConnImpl::openSession(CallContext& call) {
    if (!openAndGreet(call)) return false;
    if (settings.startTls) {
        bool serverRefused = false;
        if (!startTls(call, true, serverRefused)) {
            if (serverRefused) {
                fail(call.log, SmtpStatus::StartTlsFailed,
                     "The server refused STARTTLS: " + lastReply_);
            }
            return false;
        }
    }
    if (!ehloOrHelo(call)) return false;
    if (!upgradeIfPossible(call)) return false;
    unsettled_ = false;
    touch();
    return true;
}

// Some servers drop the first connection of a client they do not know.
bool SmtpConnImpl::openAndGreet(CallContext& call) {
    if (!openTcp(call)) return false;
    if (smtpGreeting(call)) return true;
    if (call.wasStopped()) return false;
    call.log.logInfo("Failed to get initial SMTP response..");
    call.log.logInfo("Will re-try one time...");
    outcome_.clear();
    if (!openTcp(call)) return false;
    if (smtpGreeting(call)) return true;
    call.log.logError("Failed to get initial SMTP response again.");
    return false;
}

bool SmtpConnImpl::openTcp(CallContext& call) {
    closeSmtpConnection(call);
    sessionLog_.startAnew();
    capabilities_ = {};
    noLogin_.clear();
    made_ = settings;
    unsettled_ = true;
    socket_ = std::make_unique<Socket2>();
    socket_->setConnectTimeoutMs(settings.connectTimeoutMs);
    socket_->setTcpNoDelay(call.log, true);
    TlsChannelSettings& tls = socket_->tlsSettings();
    tls.tlsProtocol = settings.tlsProtocol.utf8();
    tls.requireSslCertVerify = settings.requireSslCertVerify;
    tls.trustAnchorsFile = settings.trustAnchorsFile.utf8();
    tls.sessions = tlsSessions_;
    tls.withoutTls13 = withoutTls13_;
    const Failure failure =
        socket_->connect2(call, settings.smtpHost.utf8(), settings.smtpPort, settings.smtpSsl);
    if (!failure) return true;
    socket_.reset();
    fail(call.log, SmtpStatus::ConnectFailed,
         "No connection to " + std::string(settings.smtpHost.utf8()) + ":" +
             std::to_string(settings.smtpPort) + ": " + connectFailText(failure) + ".");
    return false;
}

bool SmtpConnImpl::smtpGreeting(CallContext& call) {
    const auto reply = readSmtpResponse(call, "greeting");
    if (reply && reply->isSuccess()) return true;
    if (reply) {
        call.log.logError("Failed SMTP greeting response code.");
        fail(call.log, SmtpStatus::GreetingError, "The server greeted with: " + lastReply_);
    }
    return false;
}

bool SmtpConnImpl::oauth2AccessToken(CallContext& call, SecureBuffer& token) {
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
    if (limit == kNoLimit) limit = 0;
    const bool abrupt = !socket_->isTls();
    socket_->close(call, abrupt, limit);
    socket_.reset();
    made_ = SmtpSettings();
}

}  // namespace tv
