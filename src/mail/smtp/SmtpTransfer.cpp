// The envelope of a transaction, one command after the other or in flights (RFC 2920), up to the
// reply to DATA.
#include "mail/smtp/SmtpTransfer.h"

#include <algorithm>

#include "log/LogContextExitor.h"
#include "mail/smtp/SmtpCommand.h"

namespace tv {
namespace {

// More commands than this do not leave without reading replies: both sides would wait for each
// other once every buffer between them is full (RFC 2920 section 3.1).
constexpr size_t kFlightRecipients = 1000;

constexpr int32_t kServiceClosing = 421;
constexpr int32_t kTryAgain = 451;
constexpr int32_t kTooMany = 452;
constexpr int32_t kTooManyOfOld = 552;  // by RFC 821
constexpr int32_t kGoAhead = 354;

}  // namespace

bool SmtpTransfer::sendSmtpEmail() {
    const LogContextExitor context(call_.log, "sendSmtpEmail");
    connection_.clearLastReply();
    send_.retryAllowed = false;
    connection_.setUnsettled(true);
    const bool pipelined = connection_.capabilities().hasPipelining && send_.pipelining;
    if (!(pipelined ? sendWithPipelining() : sendNonPipelining())) {
        connection_.setUnsettled(false);
        advance(SmtpSend::kEnvelopeShare);
        if (!call_.wasStopped() && call_.mustStop()) {
            connection_.fail(call_.log, SmtpStatus::Aborted, "Aborted by application callback.");
        }
        return false;
    }
    bool success = true;
    if (send_.checkRecipientsOnly) {
        connection_.smtpRset(call_);
    } else {
        success = transferMessage();
    }
    connection_.setUnsettled(false);
    return success;
}

bool SmtpTransfer::sendNonPipelining() {
    if (!smtpMailFrom()) return false;
    if (!sendRecipients()) return false;
    if (send_.checkRecipientsOnly) return true;
    return checkAccepted() && smtpData();
}

bool SmtpTransfer::smtpMailFrom() {
    if (!queueMailFrom() || !connection_.sendQueued(call_)) {
        call_.log.logError("Failed to send " + senderStep());
        return noteLostCommand();
    }
    const auto reply = connection_.readSmtpResponse(call_, senderStep());
    if (!reply) return noteLostCommand();
    if (reply->isSuccess()) return true;
    send_.retryAllowed = reply->statusCode == kServiceClosing || reply->statusCode == kTryAgain;
    return refuse(SmtpStatus::FromFailure, senderStep());
}

bool SmtpTransfer::queueMailFrom() {
    const LogContextExitor context(call_.log, "smtpMailFrom");
    call_.log.logData("mailFrom", send_.fromAddress);
    if (send_.fromAddress.empty()) {
        connection_.outcome().fail(SmtpStatus::NoFrom, "The message has no sender.");
        call_.log.logInfo("Warning: No From Address");
    }
    smtp::FromParameters parameters;
    parameters.smtpUtf8 = send_.utf8;
    if (connection_.capabilities().hasDsn) {
        parameters.ret = connection_.settings.dsnRet.utf8();
        parameters.envid = connection_.settings.dsnEnvid.utf8();
    }
    return connection_.queueCommand(call_.log, smtp::mailFromCommand(send_.fromAddress, parameters),
                                    false);
}

bool SmtpTransfer::sendRecipients() {
    const LogContextExitor context(call_.log, "rcptTo");
    for (const std::string& recipient : transaction_.recipients) {
        if (!sendRcptTo(recipient)) {
            call_.log.logError("Failed to send RCPT TO command.");
            return noteLostCommand();
        }
        if (!readRcptTo(recipient)) {
            call_.log.logError("Failed to read RCPT TO response.");
            return noteLostCommand();
        }
    }
    return true;
}

bool SmtpTransfer::sendRcptTo(const std::string& recipient) {
    const LogContextExitor context(call_.log, "sendRcptTo");
    if (queueRcptTo(recipient) && connection_.sendQueued(call_)) return true;
    if (call_.wasStopped()) {
        call_.log.logError("Aborted by application callback when sending RCPT TO");
    } else {
        call_.log.logError("Failed to send " + recipientStep(recipient));
    }
    return false;
}

bool SmtpTransfer::queueRcptTo(const std::string& recipient) {
    const std::string_view notify = connection_.capabilities().hasDsn
                                        ? connection_.settings.dsnNotify.utf8()
                                        : std::string_view();
    return connection_.queueCommand(call_.log, smtp::rcptToCommand(recipient, notify), false);
}

bool SmtpTransfer::readRcptTo(const std::string& recipient) {
    const LogContextExitor context(call_.log, "readRcptTo");
    const auto reply = connection_.readSmtpResponse(call_, recipientStep(recipient));
    if (!reply) return false;
    advance(SmtpSend::kRecipientShare);
    if (call_.mustStop()) {
        connection_.fail(call_.log, SmtpStatus::Aborted,
                         "Aborted by application callback after receiving RCPT TO response.");
        close();
        return false;
    }
    if (reply->isSuccess()) {
        call_.log.logData("recipient", recipient);
        transaction_.accepted.push_back(recipient);
        return true;
    }
    if (reply->statusCode == kServiceClosing) send_.retryAllowed = true;
    lastRefusal_ = recipientStep(recipient) + " was answered with: " + connection_.lastReply();
    // RFC 5321 section 4.5.3.1.10: the server has no room for more, but for those it has taken.
    const bool full = reply->statusCode == kTooMany || reply->statusCode == kTooManyOfOld;
    if (full && !transaction_.accepted.empty()) {
        call_.log.logData("too_many_recipients", recipient);
        transaction_.tooMany.push_back(recipient);
        return true;
    }
    call_.log.logData("bad_address", recipient);
    transaction_.refused.push_back(recipient);
    return true;
}

bool SmtpTransfer::checkAccepted() {
    if (transaction_.accepted.empty()) return noValidRecipients();
    if (transaction_.accepted.size() < transaction_.recipients.size() &&
        connection_.settings.requireAllRecipients) {
        connection_.fail(call_.log, SmtpStatus::SomeBadRecipients,
                         "Not all recipients were accepted. " + lastRefusal_);
        connection_.smtpRset(call_);
        return false;
    }
    return true;
}

bool SmtpTransfer::smtpData() {
    const auto reply = connection_.smtpSendGet2(call_, "DATA\r\n");
    if (!reply) return noteLostCommand();
    if (reply->statusCode == kGoAhead) return true;
    if (reply->statusCode == kServiceClosing) send_.retryAllowed = true;
    call_.log.logError("Non-success DATA response.");
    return refuse(SmtpStatus::DataFailure, "DATA");
}

bool SmtpTransfer::sendWithPipelining() {
    Mail mail = Mail::Accepted;
    size_t first = 0;
    do {
        const bool withMail = first == 0;
        if (withMail && !queueMailFrom()) return noteLostCommand();
        const size_t end = queueFlight(first);
        if (!sendFlight()) return false;
        if (withMail) mail = readPipelinedMailReply();
        if (mail == Mail::Unusable) return false;
        if (!readFlightReplies(first, end, mail == Mail::Refused)) return false;
        first = end;
    } while (first < transaction_.recipients.size() && mail == Mail::Accepted);
    if (send_.checkRecipientsOnly || first < transaction_.recipients.size()) {
        if (mail == Mail::Accepted) return true;
        connection_.smtpRset(call_);
        return false;
    }
    return readPipelinedDataReply(mail == Mail::Refused);
}

// Queues the next recipients and, with the last of them, DATA. Returns where the flight ends.
size_t SmtpTransfer::queueFlight(size_t first) {
    const size_t end = std::min(transaction_.recipients.size(), first + kFlightRecipients);
    for (size_t i = first; i < end; ++i) {
        const LogContextExitor context(call_.log, "sendRcptTo");
        if (!queueRcptTo(transaction_.recipients[i])) return end;
    }
    if (end == transaction_.recipients.size() && !send_.checkRecipientsOnly) {
        connection_.queueCommand(call_.log, "DATA\r\n", false);
    }
    return end;
}

bool SmtpTransfer::sendFlight() {
    if (connection_.sendQueued(call_)) return true;
    if (call_.wasStopped()) {
        call_.log.logError("Aborted by application callback when sending RCPT TO");
    } else {
        call_.log.logError("Failed to send " + senderStep());
        call_.log.logError("Failed to send RCPT TO command.");
    }
    return noteLostCommand();
}

SmtpTransfer::Mail SmtpTransfer::readPipelinedMailReply() {
    const auto reply = connection_.readSmtpResponse(call_, senderStep());
    if (!reply) {
        if (connection_.settings.userName.empty()) {
            call_.log.logInfo("Note: Your application did not provide an SMTP username.");
            call_.log.logInfo("The lack of an SMTP login name could be the cause of this error.");
        }
        noteLostCommand();
        return Mail::Unusable;
    }
    if (reply->isSuccess()) return Mail::Accepted;
    if (reply->statusCode == kGoAhead) {
        strange354(SmtpStatus::FromFailure);
        return Mail::Unusable;
    }
    send_.retryAllowed = reply->statusCode == kServiceClosing || reply->statusCode == kTryAgain;
    connection_.fail(call_.log, SmtpStatus::FromFailure,
                     senderStep() + " was answered with: " + connection_.lastReply());
    return Mail::Refused;
}

bool SmtpTransfer::readFlightReplies(size_t first, size_t end, bool mailRefused) {
    for (size_t i = first; i < end; ++i) {
        const std::string& recipient = transaction_.recipients[i];
        if (!readRcptTo(recipient)) {
            call_.log.logError("Failed to read RCPT TO response.");
            if (!mailRefused) noteLostCommand();
            return false;
        }
        if (connection_.lastReplyCode() == kGoAhead) return strange354(SmtpStatus::DataFailure);
    }
    return true;
}

// The server takes what follows for the message although replies are missing: the two sides no
// longer speak of the same command.
bool SmtpTransfer::strange354(SmtpStatus status) {
    call_.log.logInfo("Strange that a 354 response was already received.");
    call_.log.logInfo(
        "Try turning off the mailman.SmtpPipelining property by setting it equal to false/0.");
    connection_.fail(call_.log, status,
                     "The replies to the pipelined commands came out of order: 354 too early.");
    close();
    return false;
}

bool SmtpTransfer::readPipelinedDataReply(bool mailRefused) {
    const auto reply = connection_.readSmtpResponse(call_, "DATA");
    if (!reply) {
        if (!mailRefused) noteLostCommand();
        return false;
    }
    if (reply->statusCode != kGoAhead) {
        if (reply->statusCode == kServiceClosing) send_.retryAllowed = true;
        if (transaction_.accepted.empty() && !mailRefused) return noValidRecipients();
        call_.log.logError("Non-success DATA response.");
        return refuse(SmtpStatus::DataFailure, "DATA");
    }
    if (transaction_.accepted.empty()) return endEmptyMessage();
    if (!mailRefused) return true;
    close();  // somebody would get the message of a refused sender
    return false;
}

// The server waits for a message that nobody would get: the dot alone ends it (RFC 2920 section
// 3.1). Its reply changes nothing.
bool SmtpTransfer::endEmptyMessage() {
    connection_.fail(call_.log, SmtpStatus::NoValidRecipients,
                     "No recipient was accepted. " + lastRefusal_);
    const auto reply = connection_.smtpSendGet2(call_, ".\r\n");
    const bool over = reply && (reply->isSuccess() || reply->statusCode >= 400);
    if (!over || reply->statusCode == kServiceClosing) close();
    return false;
}

bool SmtpTransfer::refuse(SmtpStatus status, const std::string& what) {
    connection_.fail(call_.log, status, what + " was answered with: " + connection_.lastReply());
    connection_.smtpRset(call_);
    return false;
}

bool SmtpTransfer::noValidRecipients() {
    call_.log.logError("No valid recipients");
    connection_.fail(call_.log, SmtpStatus::NoValidRecipients,
                     "No recipient was accepted. " + lastRefusal_);
    connection_.smtpRset(call_);
    return false;
}

// Nothing of the message has been sent yet: a lost connection allows another try. A recipient
// refused just before may be why it was lost.
bool SmtpTransfer::noteLostCommand() {
    if (!lastRefusal_.empty()) {
        connection_.outcome().addToReason("Before that, " + lastRefusal_);
        call_.log.logError("Before that, " + lastRefusal_);
    }
    if (connection_.ioFailure() == SmtpConnImpl::IoFailure::Lost) send_.retryAllowed = true;
    return false;
}

void SmtpTransfer::advance(uint64_t amount) {
    send_.progressDone += amount;
    if (call_.monitor) call_.monitor->progress(send_.progressDone, send_.progressTotal);
}

std::string SmtpTransfer::senderStep() const {
    return "MAIL FROM:<" + send_.fromAddress + ">";
}

std::string SmtpTransfer::recipientStep(const std::string& recipient) const {
    return "RCPT TO:<" + recipient + ">";
}

}  // namespace tv
