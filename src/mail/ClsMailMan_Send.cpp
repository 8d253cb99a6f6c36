// One send from the prepared message to its outcome: session, transaction, the one second try, and
// the last lines of the transcript.
#include <optional>
#include <tuple>

#include "log/Fail.h"
#include "log/LogContextExitor.h"
#include "log/LogNull.h"
#include "mail/ClsMailMan.h"
#include "mail/MessageOverlay.h"
#include "mail/SendRecord.h"
#include "mail/SettingsOverlay.h"
#include "mail/TestFolder.h"
#include "mail/smtp/SmtpDelivery.h"
#include "mime/ClsEmail.h"
#include "mime/Email2.h"
#include "net/stream/TotalTimeout.h"
#include "platform/SysClock.h"

namespace tv {

bool ClsMailMan::SendEmail(const ClsEmail& email, ProgressMonitor* monitor) {
    Operation operation(*this, "SendEmail");
    LogBase& log = operation.log();
    lastFailure_ = {};
    smtp_.sessionLog().startAnew();
    acceptedRecipients_.clear();
    rejectedRecipients_.clear();
    CallContext call(log);
    call.setMonitor(monitor);
    SettingsOverlay overlay(smtp_.settings, file_.get());
    lastFailure_ = overlay.lay(log);
    call.names = overlay.names();
    std::optional<TotalTimeout> limit;
    if (const uint32_t ms = smtp_.settings.totalTimeoutMs; ms > 0) {
        limit.emplace(call, trialMs_ < ms ? ms - trialMs_ : 1);
    }
    trialMs_ = 0;
    SmtpSend send;
    const uint64_t startMs = plat::sysClock().tickMs();
    if (!lastFailure_) lastFailure_ = sendEmailInner(call, email, send);
    if (lastFailure_) tellTranscript(lastFailure_);
    if (send.recipients.empty()) {  // it did not come so far
        recordUnsent(log, email, {}, lastFailure_, startMs);
    } else {
        recordSend(log, send, smtp_.peer(), lastFailure_, startMs);
    }
    return operation.finish(!lastFailure_);
}

void ClsMailMan::noteUnsent(const ClsEmail& email, const Failure& failure) {
    const std::lock_guard guard(lock_);
    trialMs_ = 0;
    LogNull quiet;
    SettingsOverlay overlay(smtp_.settings, file_.get());
    std::ignore = overlay.lay(quiet);
    recordUnsent(quiet, email, {}, failure, plat::sysClock().tickMs());
}

// The line tells from whom and to whom it was to go.
void ClsMailMan::recordUnsent(LogBase& log, const ClsEmail& email, const SmtpConnImpl::Peer& peer,
                              const Failure& failure, uint64_t startMs) {
    if (!file_ || !file_->sends || !email.isAlive()) return;
    LogNull quiet;
    SmtpSend send;
    std::ignore = prepare(quiet, email, send);
    recordSend(log, send, peer, failure, startMs);
}

void ClsMailMan::recordSend(LogBase& log, const SmtpSend& send, const SmtpConnImpl::Peer& peer,
                            const Failure& failure, uint64_t startMs) {
    if (!file_ || !file_->sends) return;
    SendRecord record;
    record.isTest = file_->testFolder.has_value() || file_->redirect.has_value();
    record.ms = plat::sysClock().tickMs() - startMs;
    if (!file_->testFolder) {
        record.server = std::string(smtp_.settings.smtpHost.utf8()) + ':' +
                        std::to_string(smtp_.settings.smtpPort);
        record.address = peer.address;
        record.tls = peer.tls;
        record.login = peer.login;
    }
    appendToSends(log, *file_->sends, file_->logSize.value_or(0), sendLine(record, send, failure));
}

// A host that judges by the transcript must find a failure there, and its cause.
void ClsMailMan::tellTranscript(const Failure& failure) {
    const bool broke = failure.is(Cause::ConnectionLost) || failure.is(Cause::Timeout);
    auto& transcript = smtp_.sessionLog();
    if (broke || !transcript.endsInRefusal()) {
        transcript.addRemark(statusWord(failure.cause()), failure.text());
    }
    for (const std::string& hint : failure.hints()) {
        transcript.addRemark(hint, {});
    }
}

Failure ClsMailMan::sendEmailInner(CallContext& call, const ClsEmail& email, SmtpSend& send) {
    if (!email.isAlive()) {
        call.log.logError("bad CLS arg (1)");
        return Failure(Cause::Internal, "The message object is not alive.");
    }
    const LogContextExitor context(call.log, "sendEmailInner");
    call.log.logDataLong("ReadTimeout", smtp_.settings.idleTimeoutMs);
    if (!email.unusableFrom().empty() && !(file_ && file_->fromAlways)) {
        return fail(call.log, Cause::FromFailure,
                    "The sender is no address: \"" + email.unusableFrom() + "\".");
    }
    send.pipelining = smtp_.settings.pipelining;
    const std::unique_ptr<Email2> prepared = prepare(call.log, email, send);
    if (!prepared) return Failure(Cause::RenderFailed, "The message could not be prepared.");
    const bool brackets = file_ && file_->angleBrackets == settings::AngleBrackets::Always;
    send.mimeSource = [&prepared, brackets](LogBase& renderLog, OutputStream& out, bool utf8) {
        const LogContextExitor assembler(renderLog, "mimeAssembler");
        RenderOptions options;
        options.excludedPrefix = "TVX-";
        options.utf8Headers = utf8;
        options.angleBrackets = brackets;
        return prepared->render(renderLog, out, options);
    };
    if (!file_ || !file_->testFolder) return sendMimeInner(call, send);
    Failure failure = layInTestFolder(call.log, *file_->testFolder, send);
    acceptedRecipients_ = send.goodRecipients;
    return failure;
}

// The copy that is sent, and its envelope; null where memory or the random source fails.
std::unique_ptr<Email2> ClsMailMan::prepare(LogBase& log, const ClsEmail& email, SmtpSend& send) {
    send.fromAddress = email.getSmtpReversePath(log);
    send.recipients = email.getAllRecipientAddressesA();
    std::unique_ptr<Email2> prepared =
        email.createEmailForSending(log, smtp_.settings.autoMessageId);
    if (!prepared) {
        log.logError("Failed to render to mime (1)");
        return nullptr;
    }
    if (!file_) return prepared;
    if (!layOverMessage(log, *file_, *prepared)) return nullptr;
    layOverEnvelope(log, *file_, *prepared, send);
    return prepared;
}

Failure ClsMailMan::sendMimeInner(CallContext& call, SmtpSend& send) {
    const LogContextExitor context(call.log, "sendMimeInner");
    if (!send.measure(call.log)) {
        return fail(call.log, Cause::RenderFailed, "The message could not be rendered.");
    }
    if (call.monitor) {
        call.log.logDataLong("progressTotal", static_cast<int64_t>(send.progressTotal));
        call.monitor->progress(0, send.progressTotal);
    }
    correctSettings(call.log);
    Failure failure = ensureSmtpSession(call);
    if (!failure) failure = sendOverSession(call, send);
    if (failure.mayReconnect()) failure = reconnectAndSend(call, send);
    acceptedRecipients_ = send.goodRecipients;
    rejectedRecipients_ = send.badRecipients;
    return failure;
}

Failure ClsMailMan::ensureSmtpSession(CallContext& call) {
    const LogContextExitor context(call.log, "ensureSmtpSession");
    return smtp_.smtpConnectAndAuthenticate(call, false);
}

Failure ClsMailMan::sendOverSession(CallContext& call, SmtpSend& send) {
    Failure failure = stoppedByApplication(call);
    if (!failure && smtp_.settings.heedSizeLimit) {
        const std::string tooLarge = sizeComplaint(send);
        if (!tooLarge.empty()) failure = fail(call.log, Cause::MessageTooLarge, tooLarge);
    }
    const bool begun = !failure;
    if (begun) failure = SmtpDelivery(call, smtp_, send).deliver();
    if (failure && !smtp_.noLogin().empty()) failure.addHint(smtp_.noLogin());
    if (failure && begun) hintAtSize(call.log, send, failure);
    return failure;
}

// That the message is larger than the server announced to take, or nothing.
std::string ClsMailMan::sizeComplaint(const SmtpSend& send) const {
    const uint64_t limit = smtp_.capabilities().sizeLimit;
    const uint64_t size = send.mimeSize + 2;  // with its last line end (RFC 1870 section 5)
    if (limit == 0 || size <= limit) return {};
    return "The message has " + std::to_string(size) + " bytes; the server takes " +
           std::to_string(limit) + " at most, as it announced (SIZE).";
}

// Unless it is to be heeded, the limit does not stop a send: many servers announce one and take
// more.
void ClsMailMan::hintAtSize(LogBase& log, const SmtpSend& send, Failure& failure) {
    const std::string hint = sizeComplaint(send);
    if (hint.empty()) return;
    log.logError(hint);
    failure.addHint(hint);
}

// The one second try. The server cannot have the message: the first never came so far.
Failure ClsMailMan::reconnectAndSend(CallContext& call, SmtpSend& send) {
    call.log.logInfo("Reconnecting to the SMTP server and retrying...");
    send.progressDone = 0;
    smtp_.closeSmtpConnection(call);
    plat::sysClock().sleepMs(smtp_.settings.retryWaitMs);
    if (Failure stopped = stoppedByApplication(call)) return stopped;
    Failure failure = ensureSmtpSession(call);
    return failure ? std::move(failure) : sendOverSession(call, send);
}

Failure ClsMailMan::stoppedByApplication(CallContext& call) {
    if (!call.mustStop()) return {};
    return fail(call.log, Cause::Aborted, "SMTP send aborted by application callback");
}

}  // namespace tv
