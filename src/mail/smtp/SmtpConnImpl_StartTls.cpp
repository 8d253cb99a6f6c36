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

bool SmtpConnImpl::startTls(CallContext& call, bool ehloFirst, bool& serverRefused) {
    const LogContextExitor context(call.log, "startTLS");
    serverRefused = false;
    if (ehloFirst && !ehlo(call)) {
        closeSmtpConnection(call);
        return false;
    }
    const auto reply = smtpSendGet2(call, "STARTTLS\r\n");
    if (!reply) return false;
    if (reply->isSuccess()) return upgradeToTls(call);
    serverRefused = true;
    call.log.logError("Non-success STARTTLS response.");
    if (reply->statusCode == 503) {
        call.log.logInfo(
            "A 503 \"Bad sequence of commands\" indicates the mail server has not enabled "
            "STARTTLS.");
        call.log.logInfo("The solution is to enable STARTTLS on the mail server.");
        call.log.logInfo(
            "When STARTTLS is enabled on the mail server, you will see STARTTLS listed in the "
            "capabilities/extensions reported in response to the EHLO command.");
    }
    return false;
}

bool SmtpConnImpl::upgradeToTls(CallContext& call) {
    // RFC 3207 section 6: what came in clear after the reply may be an attacker's.
    if (socket_->hasBufferedInput()) {
        fail(call.log, SmtpStatus::StartTlsFailed,
             "The server sent unencrypted data after its reply to STARTTLS.");
        closeSmtpConnection(call);
        return false;
    }
    if (const Failure failure =
            socket_->convertToTls(call, settings.smtpHost.utf8(), settings.idleTimeoutMs)) {
        call.log.logError("Failed to establish TLS connection.");
        helloUnanswered_ = socket_->mayRetryWithoutTls13(call.log, failure);
        fail(call.log, SmtpStatus::StartTlsFailed,
             "The TLS handshake after STARTTLS failed: " + connectFailText(failure) + "." +
                 std::string(settings.startTls ? "" : kUnaskedFor));
        closeSmtpConnection(call);
        return false;
    }
    call.log.logInfo("TLS connection established.");
    // RFC 3207 section 4.2: nothing learnt before the handshake counts.
    capabilities_ = {};
    clearLastReply();
    return true;
}

bool SmtpConnImpl::upgradeForLogin(CallContext& call) {
    bool serverRefused = false;
    const auto upgrade = [&] { return startTls(call, true, serverRefused) && ehloOrHelo(call); };
    return upgrade() || againWithoutTls13(call.log, [&] { return openSession(call) && upgrade(); });
}

// A server that does not answer a hello with TLS 1.3 may answer one without it; what went before on
// the connection has to be said again, too.
bool SmtpConnImpl::againWithoutTls13(LogBase& log, const std::function<bool()>& attempt) {
    if (!std::exchange(helloUnanswered_, false)) return false;
    log.logInfo("Failed to read the TLS server hello.  Retry without TLS 1.3");
    withoutTls13_ = true;
    const bool success = attempt();
    withoutTls13_ = false;
    return success;
}

// Goes on in clear only where the server itself said no.
bool SmtpConnImpl::upgradeIfPossible(CallContext& call) {
    if (socket_->isTls() || !capabilities_.hasStartTls || !settings.startTlsIfPossible) {
        return true;
    }
    call.log.logInfo("This SMTP server supports STARTTLS.  Automatically doing STARTTLS...");
    call.log.logInfo("If you don't want TLS, set mailman.StartTLSifPossible equal to false (or 0)");
    bool serverRefused = false;
    if (!startTls(call, false, serverRefused)) return serverRefused;
    return ehloOrHelo(call);
}

}  // namespace tv
