// One send from the prepared message to its outcome: session, transaction, the one second try, and
// the last lines of the transcript.
#include "log/LogContextExitor.h"
#include "mail/ClsMailMan.h"
#include "mail/smtp/SmtpDelivery.h"
#include "mime/ClsEmail.h"
#include "mime/Email2.h"
#include "platform/SysClock.h"

namespace tv {

bool ClsMailMan::SendEmail(const ClsEmail& email, ProgressMonitor* monitor) {
    Operation operation(*this, "SendEmail");
    LogBase& log = operation.log();
    smtp_.outcome().clear();
    smtp_.sessionLog().startAnew();
    acceptedRecipients_.clear();
    rejectedRecipients_.clear();
    CallContext call(log);
    call.setMonitor(monitor);
    bool success = false;
    if (email.isAlive()) {
        success = sendEmailInner(call, email);
    } else {
        log.logError("bad CLS arg (1)");
        smtp_.outcome().fail(SmtpStatus::InternalFailure, "The message object is not alive.");
    }
    closeOutcome(success);
    return operation.finish(success);
}

// A host that judges by the transcript must find a failure there, and its cause.
void ClsMailMan::closeOutcome(bool success) {
    SmtpOutcome& outcome = smtp_.outcome();
    outcome.settle(success);
    if (success) return;
    const SmtpStatus status = outcome.status();
    const bool broke = status == SmtpStatus::ConnectionLost || status == SmtpStatus::Timeout;
    auto& transcript = smtp_.sessionLog();
    if (broke || !transcript.endsInRefusal()) {
        transcript.addRemark(statusWord(status), outcome.reason());
    }
    for (const std::string& hint : outcome.hints()) {
        transcript.addRemark(hint, {});
    }
}

bool ClsMailMan::sendEmailInner(CallContext& call, const ClsEmail& email) {
    const LogContextExitor context(call.log, "sendEmailInner");
    call.log.logDataLong("ReadTimeout", smtp_.settings.idleTimeoutMs);
    if (!email.unusableFrom().empty()) {
        smtp_.fail(call.log, SmtpStatus::FromFailure,
                   "The sender is no address: \"" + email.unusableFrom() + "\".");
        return false;
    }
    SmtpSend send;
    send.pipelining = smtp_.settings.pipelining;
    send.fromAddress = email.getSmtpReversePath(call.log);
    send.recipients = email.getAllRecipientAddressesA();
    const std::unique_ptr<Email2> prepared =
        email.createEmailForSending(call.log, smtp_.settings.autoMessageId);
    if (!prepared) {
        call.log.logError("Failed to render to mime (1)");
        smtp_.outcome().fail(SmtpStatus::RenderFailed, "The message could not be prepared.");
        return false;
    }
    send.mimeSource = [&prepared](LogBase& renderLog, OutputStream& out, bool utf8) {
        const LogContextExitor assembler(renderLog, "mimeAssembler");
        RenderOptions options;
        options.excludedPrefix = "TVX-";
        options.utf8Headers = utf8;
        return prepared->render(renderLog, out, options);
    };
    return sendMimeInner(call, send);
}

bool ClsMailMan::sendMimeInner(CallContext& call, SmtpSend& send) {
    const LogContextExitor context(call.log, "sendMimeInner");
    if (!send.measure(call.log)) {
        smtp_.fail(call.log, SmtpStatus::RenderFailed, "The message could not be rendered.");
        return false;
    }
    if (call.monitor) {
        call.log.logDataLong("progressTotal", static_cast<int64_t>(send.progressTotal));
        call.monitor->progress(0, send.progressTotal);
    }
    correctSettings(call.log);
    bool success = ensureSmtpSession(call) && sendOverSession(call, send);
    if (!success && send.retryAllowed) success = reconnectAndSend(call, send);
    acceptedRecipients_ = send.goodRecipients;
    rejectedRecipients_ = send.badRecipients;
    return success;
}

bool ClsMailMan::ensureSmtpSession(CallContext& call) {
    const LogContextExitor context(call.log, "ensureSmtpSession");
    return smtp_.smtpConnectAndAuthenticate(call, false);
}

bool ClsMailMan::sendOverSession(CallContext& call, SmtpSend& send) {
    if (stoppedByApplication(call)) return false;
    if (SmtpDelivery(call, smtp_, send).deliver()) return true;
    hintAtSize(call.log, send);
    return false;
}

// The size limit does not stop a send: many servers announce one and take more.
void ClsMailMan::hintAtSize(LogBase& log, const SmtpSend& send) {
    const uint64_t limit = smtp_.capabilities().sizeLimit;
    const uint64_t size = send.mimeSize + 2;  // with its last line end (RFC 1870 section 5)
    if (limit == 0 || size <= limit) return;
    const std::string hint = "The message has " + std::to_string(size) +
                             " bytes; the server takes " + std::to_string(limit) +
                             " at most, as it announced (SIZE).";
    log.logError(hint);
    smtp_.outcome().addHint(hint);
}

// The one second try. The server cannot have the message: the first never came so far.
bool ClsMailMan::reconnectAndSend(CallContext& call, SmtpSend& send) {
    call.log.logInfo("Reconnecting to the SMTP server and retrying...");
    send.progressDone = 0;
    smtp_.outcome().clear();
    smtp_.closeSmtpConnection(call);
    plat::sysClock().sleepMs(smtp_.settings.retryWaitMs);
    if (stoppedByApplication(call)) return false;
    return ensureSmtpSession(call) && sendOverSession(call, send);
}

bool ClsMailMan::stoppedByApplication(CallContext& call) {
    if (!call.mustStop()) return false;
    smtp_.fail(call.log, SmtpStatus::Aborted, "SMTP send aborted by application callback");
    return true;
}

}  // namespace tv
