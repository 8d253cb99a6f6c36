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
    SocketParams params;
    params.setMonitor(monitor);
    bool success = false;
    if (email.isAlive()) {
        success = sendEmailInner(email, params, log);
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

bool ClsMailMan::sendEmailInner(const ClsEmail& email, SocketParams& params, LogBase& log) {
    const LogContextExitor context(log, "sendEmailInner");
    log.logDataLong("ReadTimeout", smtp_.settings.idleTimeoutMs);
    if (!email.unusableFrom().empty()) {
        smtp_.fail(SmtpStatus::FromFailure,
                   "The sender is no address: \"" + email.unusableFrom() + "\".", log);
        return false;
    }
    SmtpSend send;
    send.pipelining = smtp_.settings.pipelining;
    send.fromAddress = email.getSmtpReversePath(log);
    send.recipients = email.getAllRecipientAddressesA();
    const std::unique_ptr<Email2> prepared =
        email.createEmailForSending(smtp_.settings.autoMessageId, log);
    if (!prepared) {
        log.logError("Failed to render to mime (1)");
        smtp_.outcome().fail(SmtpStatus::RenderFailed, "The message could not be prepared.");
        return false;
    }
    send.mimeSource = [&prepared](OutputStream& out, bool utf8, LogBase& renderLog) {
        const LogContextExitor assembler(renderLog, "mimeAssembler");
        RenderOptions options;
        options.excludedPrefix = "TVX-";
        options.utf8Headers = utf8;
        return prepared->render(out, options, renderLog);
    };
    return sendMimeInner(send, params, log);
}

bool ClsMailMan::sendMimeInner(SmtpSend& send, SocketParams& params, LogBase& log) {
    const LogContextExitor context(log, "sendMimeInner");
    if (!send.measure(log)) {
        smtp_.fail(SmtpStatus::RenderFailed, "The message could not be rendered.", log);
        return false;
    }
    if (params.monitor) {
        log.logDataLong("progressTotal", static_cast<int64_t>(send.progressTotal));
        params.monitor->progress(0, send.progressTotal);
    }
    correctSettings(log);
    bool success = ensureSmtpSession(params, log) && sendOverSession(send, params, log);
    if (!success && send.retryAllowed) success = reconnectAndSend(send, params, log);
    acceptedRecipients_ = send.goodRecipients;
    rejectedRecipients_ = send.badRecipients;
    return success;
}

bool ClsMailMan::ensureSmtpSession(SocketParams& params, LogBase& log) {
    const LogContextExitor context(log, "ensureSmtpSession");
    return smtp_.smtpConnectAndAuthenticate(false, params, log);
}

bool ClsMailMan::sendOverSession(SmtpSend& send, SocketParams& params, LogBase& log) {
    if (stoppedByApplication(params, log)) return false;
    if (SmtpDelivery(smtp_, send, params, log).deliver()) return true;
    hintAtSize(send, log);
    return false;
}

// The size limit does not stop a send: many servers announce one and take more.
void ClsMailMan::hintAtSize(const SmtpSend& send, LogBase& log) {
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
bool ClsMailMan::reconnectAndSend(SmtpSend& send, SocketParams& params, LogBase& log) {
    log.logInfo("Reconnecting to the SMTP server and retrying...");
    send.progressDone = 0;
    smtp_.outcome().clear();
    smtp_.closeSmtpConnection(log, params);
    plat::sysClock().sleepMs(smtp_.settings.retryWaitMs);
    if (stoppedByApplication(params, log)) return false;
    return ensureSmtpSession(params, log) && sendOverSession(send, params, log);
}

bool ClsMailMan::stoppedByApplication(SocketParams& params, LogBase& log) {
    if (!params.checkAbort()) return false;
    smtp_.fail(SmtpStatus::Aborted, "SMTP send aborted by application callback", log);
    return true;
}

}  // namespace tv
