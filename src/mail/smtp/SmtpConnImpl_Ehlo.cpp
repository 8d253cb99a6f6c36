// EHLO, HELO where a server knows no better, and what it offers.
#include "base/Ascii.h"
#include "log/LogContextExitor.h"
#include "mail/smtp/SmtpCommand.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "platform/SysHost.h"

namespace tv {

std::string SmtpConnImpl::localHostName(LogBase& log) const {
    if (!settings.heloHostname.empty()) return std::string(settings.heloHostname.utf8());
    const LogContextExitor context(log, "getLocalHostname");
    return plat::sysHost().computerName();
}

bool SmtpConnImpl::ehlo(CallContext& call) {
    const LogContextExitor context(call.log, "ehloCommand");
    return greetServer(call, "EHLO");
}

bool SmtpConnImpl::ehloOrHelo(CallContext& call) {
    if (ehlo(call)) return true;
    if (lastReplyCode_ == 0) return false;
    // A server of RFC 821 knows no EHLO; its refusal of HELO then is what counts.
    const LogContextExitor context(call.log, "heloCommand");
    outcome_.clear();
    return greetServer(call, "HELO");
}

bool SmtpConnImpl::greetServer(CallContext& call, std::string_view verb) {
    lastReplyCode_ = 0;
    const std::string command = smtp::greetingCommand(verb, localHostName(call.log));
    if (!sendCmdToSmtp(call, command, false)) {
        call.log.logError("Failed to send EHLO");
        return false;
    }
    const auto reply = readSmtpResponse(call, trimmed(command));
    if (!reply) return false;
    if (!reply->isSuccess()) {
        call.log.logError("Non-success EHLO response.");
        fail(call.log, SmtpStatus::GreetingError,
             "The server refused " + std::string(verb) + ": " + lastReply_);
        return false;
    }
    takeCapabilities(call.log, *reply);
    return true;
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
