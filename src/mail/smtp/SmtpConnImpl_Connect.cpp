// From nothing to a session that is greeted and logged in: the open one if it still serves, else a
// new one.
#include "base/Ascii.h"
#include "log/LogContextExitor.h"
#include "mail/smtp/SmtpAuth.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "net/ConnectFailure.h"
#include "platform/SysClock.h"

namespace tv {
namespace {

constexpr uint64_t kMaxIdleMs = 60000;
constexpr uint32_t kNoLimit = 0xABCD0123;
constexpr uint32_t kLongWaitMs = 21600000;

}  // namespace

bool SmtpConnImpl::smtpConnectAndAuthenticate(bool skipAuthentication, SocketParams& params,
                                              LogBase& log) {
    if (!smtpConnect(params, log)) return false;
    if (skipAuthentication || settings.authMethod.equalsIgnoreCase("NONE")) return true;
    const bool success = authenticated_ || logIn(params, log);
    if (!noLogin_.empty()) outcome_.addHint(noLogin_);
    return success;
}

bool SmtpConnImpl::logIn(SocketParams& params, LogBase& log) {
    noLogin_.clear();
    unsettled_ = true;
    const bool success = smtpAuthenticate(*this, params, log);
    unsettled_ = false;
    setAuthenticated(success);
    log.logDataBool("smtpAuth.success", success);
    return success;
}

bool SmtpConnImpl::smtpConnect(SocketParams& params, LogBase& log) {
    const LogContextExitor context(log, "smtpConnect");
    clearLastReply();
    if (settings.smtpHost.empty()) {
        fail(SmtpStatus::NoSmtpHostname, "Application did not provide an SMTP hostname.", log);
        return false;
    }
    log.logDataX("smtpHostname", settings.smtpHost);
    log.logDataLong("smtpPort", settings.smtpPort);
    if (connectionIsReady(params, log)) {
        touch();
        return true;
    }
    closeSmtpConnection(log, params);
    helloUnanswered_ = false;
    const auto open = [&] {
        outcome_.clear();
        return openSession(params, log);
    };
    if (open() || againWithoutTls13(open, log)) return true;
    closeSmtpConnection(log, params);
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

bool SmtpConnImpl::connectionIsReady(SocketParams& params, LogBase& log) {
    const LogContextExitor context(log, "connectionIsReady");
    const std::string_view changed = socket_ ? changedSetting() : std::string_view();
    if (!changed.empty()) {
        log.logInfo(changed);
        log.logInfo("Need new SMTP connection...");
        return false;
    }
    // An end of stream or a word out of turn (a 421 of a server that gave up waiting) shows here.
    if (!isConnected() || unsettled_ || !socket_->isQuiet()) {
        log.logInfo("No connection, need new SMTP connection.");
        return false;
    }
    if (settings.autoReset && !automaticReset(params, log)) return false;
    if (plat::sysClock().tickMs() - lastActivityTickMs_ >= kMaxIdleMs) {
        log.logInfo("Reconnecting because the connection has been idle for too long.");
        return false;
    }
    log.logInfo("Using existing/open SMTP connection to send email.");
    return true;
}

bool SmtpConnImpl::automaticReset(SocketParams& params, LogBase& log) {
    const LogContextExitor context(log, "autoReset");
    const auto reply = smtpSendGet2("RSET\r\n", params, log);
    if (reply && reply->isSuccess()) return true;
    log.logInfo("Non-success RSET response.");
    outcome_.clear();  // a new connection follows
    return false;
}

bool SmtpConnImpl::openSession(SocketParams& params, LogBase& log) {
    if (!openAndGreet(params, log)) return false;
    if (settings.startTls) {
        bool serverRefused = false;
        if (!startTls(true, serverRefused, params, log)) {
            if (serverRefused) {
                fail(SmtpStatus::StartTlsFailed, "The server refused STARTTLS: " + lastReply_, log);
            }
            return false;
        }
    }
    if (!ehloOrHelo(params, log)) return false;
    if (!upgradeIfPossible(params, log)) return false;
    unsettled_ = false;
    touch();
    return true;
}

// Some servers drop the first connection of a client they do not know.
bool SmtpConnImpl::openAndGreet(SocketParams& params, LogBase& log) {
    if (!openTcp(params, log)) return false;
    if (smtpGreeting(params, log)) return true;
    if (params.aborted) return false;
    log.logInfo("Failed to get initial SMTP response..");
    log.logInfo("Will re-try one time...");
    outcome_.clear();
    if (!openTcp(params, log)) return false;
    if (smtpGreeting(params, log)) return true;
    log.logError("Failed to get initial SMTP response again.");
    return false;
}

bool SmtpConnImpl::openTcp(SocketParams& params, LogBase& log) {
    closeSmtpConnection(log, params);
    params.clearOutcome();
    sessionLog_.startAnew();
    capabilities_ = {};
    noLogin_.clear();
    made_ = settings;
    unsettled_ = true;
    socket_ = std::make_unique<Socket2>();
    socket_->setConnectTimeoutMs(settings.connectTimeoutMs);
    socket_->setTcpNoDelay(true, log);
    TlsChannelSettings& tls = socket_->tlsSettings();
    tls.tlsProtocol = settings.tlsProtocol.utf8();
    tls.requireSslCertVerify = settings.requireSslCertVerify;
    tls.trustAnchorsFile = settings.trustAnchorsFile.utf8();
    tls.sessions = tlsSessions_;
    tls.withoutTls13 = withoutTls13_;
    if (socket_->connect2(settings.smtpHost.utf8(), settings.smtpPort, settings.smtpSsl, log,
                          params)) {
        return true;
    }
    socket_.reset();
    fail(SmtpStatus::ConnectFailed,
         "No connection to " + std::string(settings.smtpHost.utf8()) + ":" +
             std::to_string(settings.smtpPort) + ": " + connectFailCause(params) + ".",
         log);
    return false;
}

bool SmtpConnImpl::smtpGreeting(SocketParams& params, LogBase& log) {
    const auto reply = readSmtpResponse("greeting", params, log);
    if (reply && reply->isSuccess()) return true;
    if (reply) {
        log.logError("Failed SMTP greeting response code.");
        fail(SmtpStatus::GreetingError, "The server greeted with: " + lastReply_, log);
    }
    return false;
}

bool SmtpConnImpl::oauth2AccessToken(SecureBuffer& token, SocketParams& params, LogBase& log) {
    if (!tokenSource_ || tokenSource_->description() != settings.oauth2Token) {
        tokenSource_ = std::make_unique<OAuth2ClientCredentials>(settings.oauth2Token);
    }
    OAuth2Transport transport;
    transport.connectTimeoutMs = settings.connectTimeoutMs;
    transport.idleTimeoutMs = settings.idleTimeoutMs;
    transport.tlsProtocol = settings.tlsProtocol.utf8();
    transport.trustAnchorsFile = settings.trustAnchorsFile.utf8();
    transport.plainAllowed = settings.oauth2PlainHttp;
    return tokenSource_->accessToken(transport, token, log, params);
}

bool SmtpConnImpl::oauth2TokenRefused() {
    return tokenSource_ && tokenSource_->description() == settings.oauth2Token &&
           tokenSource_->tokenRefused();
}

void SmtpConnImpl::closeSmtpConnection(LogBase& log, SocketParams& params) {
    unsettled_ = false;
    authenticated_ = false;
    queue_.clear();
    queuedBytes_.clear();
    if (!socket_) return;
    uint32_t limit = settings.idleTimeoutMs;
    if (limit == 0) limit = kLongWaitMs;
    if (limit == kNoLimit) limit = 0;
    const bool abrupt = !socket_->isTls();
    socket_->close(abrupt, limit, log, params);
    socket_.reset();
    made_ = SmtpSettings();
}

}  // namespace tv
