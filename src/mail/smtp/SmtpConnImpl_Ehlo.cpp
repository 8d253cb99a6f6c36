// EHLO, HELO where a server knows no better, and what it offers.
#include "base/Ascii.h"
#include "log/LogContextExitor.h"
#include "mail/smtp/SmtpCommand.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "mail/smtp/SmtpFailure.h"
#include "platform/SysHost.h"

namespace tv {

std::string SmtpConnImpl::localHostName(LogBase& log) const {
    if (!settings.heloHostname.empty()) return std::string(settings.heloHostname.utf8());
    if (settings.heloAddress && socket_ && socket_->localAddress()) {
        return smtp::addressLiteral(*socket_->localAddress());
    }
    const LogContextExitor context(log, "getLocalHostname");
    return plat::sysHost().computerName();
}

Failure SmtpConnImpl::ehlo(CallContext& call) {
    const LogContextExitor context(call.log, "ehloCommand");
    return greetServer(call, "EHLO");
}

Failure SmtpConnImpl::ehloOrHelo(CallContext& call) {
    Failure failure = ehlo(call);
    if (!failure.is(Cause::GreetingError)) return failure;
    // A server of RFC 821 knows no EHLO; its refusal of HELO then is what counts.
    const LogContextExitor context(call.log, "heloCommand");
    Failure again = greetServer(call, "HELO");
    // Who ended the connection with its refusal (RFC 5321, 3.8: 421) hears no HELO.
    if (!again.is(Cause::ConnectionLost)) return again;
    call.log.logError(failure.text());
    return failure;
}

Failure SmtpConnImpl::greetServer(CallContext& call, std::string_view verb) {
    const std::string command = smtp::greetingCommand(verb, localHostName(call.log));
    if (Failure failure = sendCmdToSmtp(call, command, false)) {
        call.log.logError("Failed to send EHLO");
        return std::move(failure).at(Stage::Ehlo);
    }
    SmtpResponse reply;
    if (Failure failure = readSmtpResponse(call, trimmed(command), reply)) {
        return std::move(failure).at(Stage::Ehlo);
    }
    if (!reply.isSuccess()) {
        call.log.logError("Non-success EHLO response.");
        return smtp::refused(call.log, Cause::GreetingError,
                             "The server refused " + std::string(verb) + ": ", reply)
            .at(Stage::Ehlo);
    }
    takeCapabilities(call.log, reply);
    return {};
}

void SmtpConnImpl::takeCapabilities(LogBase& log, const SmtpResponse& reply) {
    for (const std::string_view line : smtp::addEhloReply(reply, capabilities_)) {
        log.logInfo("SMTP response is too short.");
        log.logData("smtpResponseLine", line);
    }
    if (settings.authMethod.empty()) return;
    log.logDataX("smtpAuthMethod", settings.authMethod);
    capabilities_.auth = smtp::restrictedTo(settings.authMethod.utf8(), capabilities_.auth);
}

}  // namespace tv
