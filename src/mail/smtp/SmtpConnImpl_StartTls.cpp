// STARTTLS: where the host wants it, where the server offers it, where a login asks for it, and
// once more without TLS 1.3 where a hello was not answered.
#include <string_view>
#include <utility>

#include "base/Ascii.h"
#include "log/LogContextExitor.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "mail/smtp/SmtpFailure.h"
#include "net/AgainWithoutTls13.h"
#include "net/ConnectFailure.h"

namespace tv {
namespace {

// Nothing that the host sets keeps an offer from being taken: the remedy is at the server.
constexpr std::string_view kUnaskedFor =
    " STARTTLS was used because the server offers it: repair TLS on the server, or let it stop "
    "offering STARTTLS.";

}  // namespace

Failure SmtpConnImpl::startTls(CallContext& call, bool ehloFirst) {
    const LogContextExitor context(call.log, "startTLS");
    if (ehloFirst) {
        if (Failure failure = ehlo(call)) {
            closeSmtpConnection(call);
            return failure;
        }
    }
    SmtpResponse reply;
    if (Failure failure = smtpSendGet2(call, "STARTTLS\r\n", reply)) {
        return std::move(failure).at(Stage::StartTls);
    }
    if (reply.isSuccess()) return upgradeToTls(call);
    call.log.logError("Non-success STARTTLS response.");
    if (reply.statusCode == 503) {
        call.log.logInfo(
            "A 503 \"Bad sequence of commands\" indicates the mail server has not enabled "
            "STARTTLS.");
        call.log.logInfo("The solution is to enable STARTTLS on the mail server.");
        call.log.logInfo(
            "When STARTTLS is enabled on the mail server, you will see STARTTLS listed in the "
            "capabilities/extensions reported in response to the EHLO command.");
    }
    return Failure(Cause::StartTlsRefused, "The server refused STARTTLS: " + reply.shownFinalLine())
        .withReply(reply.statusCode, reply.shownLines());
}

Failure SmtpConnImpl::upgradeToTls(CallContext& call) {
    // RFC 3207 section 6: what came in clear after the reply may be an attacker's.
    if (socket_->hasBufferedInput()) {
        Failure failure = fail(call.log, Cause::StartTlsFailed,
                               "The server sent unencrypted data after its reply to STARTTLS.");
        closeSmtpConnection(call);
        return failure;
    }
    if (const Failure below =
            socket_->convertToTls(call, settings.smtpHost.utf8(), settings.idleTimeoutMs)) {
        call.log.logError("Failed to establish TLS connection.");
        Failure failure =
            fail(call.log, Cause::StartTlsFailed,
                 "The TLS handshake after STARTTLS failed: " + connectFailText(below) + "." +
                     std::string(settings.startTls ? "" : kUnaskedFor))
                .because(below);
        closeSmtpConnection(call);
        return failure;
    }
    call.log.logInfo("TLS connection established.");
    notePeer();
    // RFC 3207 section 4.2: nothing learnt before the handshake counts.
    capabilities_ = {};
    return {};
}

Failure SmtpConnImpl::upgradeForLogin(CallContext& call) {
    const auto upgrade = [&] {
        Failure failure = startTls(call, true);
        return failure ? std::move(failure) : ehloOrHelo(call);
    };
    return againWithoutTls13(call.log, upgrade(), [&] {
        Failure failure = openSession(call);
        return failure ? std::move(failure) : upgrade();
    });
}

// What went before STARTTLS has to be said again, too. A connection that begins with TLS has had
// its second try.
Failure SmtpConnImpl::againWithoutTls13(LogBase& log, Failure first,
                                        const std::function<Failure()>& attempt) {
    if (!first.is(Cause::StartTlsFailed)) return first;
    return tv::againWithoutTls13(log, settings.tlsProtocol.utf8(), withoutTls13_, std::move(first),
                                 attempt);
}

// Goes on in clear only where the server itself said no.
Failure SmtpConnImpl::upgradeIfPossible(CallContext& call) {
    if (socket_->isTls() || !capabilities_.hasStartTls || !settings.startTlsIfPossible) return {};
    call.log.logInfo("This SMTP server supports STARTTLS.  Automatically doing STARTTLS...");
    call.log.logInfo("If you don't want TLS, set mailman.StartTLSifPossible equal to false (or 0)");
    Failure failure = startTls(call, false);
    if (failure.is(Cause::StartTlsRefused)) return {};
    return failure ? std::move(failure) : ehloOrHelo(call);
}

}  // namespace tv
