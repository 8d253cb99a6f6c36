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

bool SmtpConnImpl::ehlo(SocketParams& params, LogBase& log) {
    const LogContextExitor context(log, "ehloCommand");
    return greetServer("EHLO", params, log);
}

bool SmtpConnImpl::ehloOrHelo(SocketParams& params, LogBase& log) {
    if (ehlo(params, log)) return true;
    if (lastReplyCode_ == 0) return false;
    // A server of RFC 821 knows no EHLO; its refusal of HELO then is what counts.
    const LogContextExitor context(log, "heloCommand");
    outcome_.clear();
    return greetServer("HELO", params, log);
}

bool SmtpConnImpl::greetServer(std::string_view verb, SocketParams& params, LogBase& log) {
    lastReplyCode_ = 0;
    const std::string command = smtp::greetingCommand(verb, localHostName(log));
    if (!sendCmdToSmtp(command, false, log, params)) {
        log.logError("Failed to send EHLO");
        return false;
    }
    const auto reply = readSmtpResponse(trimmed(command), params, log);
    if (!reply) return false;
    if (!reply->isSuccess()) {
        log.logError("Non-success EHLO response.");
        fail(SmtpStatus::GreetingError,
             "The server refused " + std::string(verb) + ": " + lastReply_, log);
        return false;
    }
    takeCapabilities(*reply, log);
    return true;
}

void SmtpConnImpl::takeCapabilities(const SmtpResponse& reply, LogBase& log) {
    for (const std::string_view line : smtp::addEhloReply(reply, capabilities_)) {
        log.logInfo("SMTP response is too short.");
        log.logData("smtpResponseLine", line);
    }
    if (settings.authMethod.empty()) return;
    log.logDataX("smtpAuthMethod", settings.authMethod);
    capabilities_.auth = smtp::restrictedTo(settings.authMethod.utf8(), capabilities_.auth);
}

}  // namespace tv
