// STARTTLS: where the host wants it, where the server offers it, where a login asks for it, and
// once more without TLS 1.3 where a hello was not answered.
#include <string_view>
#include <utility>

#include "base/Ascii.h"
#include "log/LogContextExitor.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "net/ConnectFailure.h"

namespace tv {
namespace {

// Nothing that the host sets keeps an offer from being taken: the remedy is at the server.
constexpr std::string_view kUnaskedFor =
    " STARTTLS was used because the server offers it: repair TLS on the server, or let it stop "
    "offering STARTTLS.";

}  // namespace

bool SmtpConnImpl::startTls(bool ehloFirst, bool& serverRefused, SocketParams& params,
                            LogBase& log) {
    const LogContextExitor context(log, "startTLS");
    serverRefused = false;
    if (ehloFirst && !ehlo(params, log)) {
        closeSmtpConnection(log, params);
        return false;
    }
    const auto reply = smtpSendGet2("STARTTLS\r\n", params, log);
    if (!reply) return false;
    if (reply->isSuccess()) return upgradeToTls(params, log);
    serverRefused = true;
    log.logError("Non-success STARTTLS response.");
    if (reply->statusCode == 503) {
        log.logInfo(
            "A 503 \"Bad sequence of commands\" indicates the mail server has not enabled "
            "STARTTLS.");
        log.logInfo("The solution is to enable STARTTLS on the mail server.");
        log.logInfo(
            "When STARTTLS is enabled on the mail server, you will see STARTTLS listed in the "
            "capabilities/extensions reported in response to the EHLO command.");
    }
    return false;
}

bool SmtpConnImpl::upgradeToTls(SocketParams& params, LogBase& log) {
    // RFC 3207 section 6: what came in clear after the reply may be an attacker's.
    if (socket_->hasBufferedInput()) {
        fail(SmtpStatus::StartTlsFailed,
             "The server sent unencrypted data after its reply to STARTTLS.", log);
        closeSmtpConnection(log, params);
        return false;
    }
    if (!socket_->convertToTls(settings.smtpHost.utf8(), settings.idleTimeoutMs, log, params)) {
        log.logError("Failed to establish TLS connection.");
        helloUnanswered_ = socket_->mayRetryWithoutTls13(log, params);
        fail(SmtpStatus::StartTlsFailed,
             "The TLS handshake after STARTTLS failed: " + connectFailCause(params) + "." +
                 std::string(settings.startTls ? "" : kUnaskedFor),
             log);
        closeSmtpConnection(log, params);
        return false;
    }
    log.logInfo("TLS connection established.");
    // RFC 3207 section 4.2: nothing learnt before the handshake counts.
    capabilities_ = {};
    clearLastReply();
    return true;
}

bool SmtpConnImpl::upgradeForLogin(SocketParams& params, LogBase& log) {
    bool serverRefused = false;
    const auto upgrade = [&] {
        return startTls(true, serverRefused, params, log) && ehloOrHelo(params, log);
    };
    return upgrade() ||
           againWithoutTls13([&] { return openSession(params, log) && upgrade(); }, log);
}

// A server that does not answer a hello with TLS 1.3 may answer one without it; what went before on
// the connection has to be said again, too.
bool SmtpConnImpl::againWithoutTls13(const std::function<bool()>& attempt, LogBase& log) {
    if (!std::exchange(helloUnanswered_, false)) return false;
    log.logInfo("Failed to read the TLS server hello.  Retry without TLS 1.3");
    withoutTls13_ = true;
    const bool success = attempt();
    withoutTls13_ = false;
    return success;
}

// Goes on in clear only where the server itself said no.
bool SmtpConnImpl::upgradeIfPossible(SocketParams& params, LogBase& log) {
    if (socket_->isTls() || !capabilities_.hasStartTls || !settings.startTlsIfPossible) {
        return true;
    }
    log.logInfo("This SMTP server supports STARTTLS.  Automatically doing STARTTLS...");
    log.logInfo("If you don't want TLS, set mailman.StartTLSifPossible equal to false (or 0)");
    bool serverRefused = false;
    if (!startTls(false, serverRefused, params, log)) return serverRefused;
    return ehloOrHelo(params, log);
}

}  // namespace tv
