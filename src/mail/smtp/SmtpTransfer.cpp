// The envelope of a transaction, one command after the other or in flights (RFC 2920), up to the
// reply to DATA.
#include "mail/smtp/SmtpTransfer.h"

#include <algorithm>
#include <utility>

#include "log/LogContextExitor.h"
#include "mail/smtp/SmtpCommand.h"
#include "mail/smtp/SmtpFailure.h"

namespace tv {
namespace {

// More commands than this do not leave without reading replies: both sides would wait for each
// other once every buffer between them is full (RFC 2920 section 3.1).
constexpr size_t kFlightRecipients = 1000;

// Reply codes of RFC 5321 section 4.2.3.
constexpr int32_t kServiceClosing = 421;
constexpr int32_t kTryAgain = 451;
constexpr int32_t kTooMany = 452;
constexpr int32_t kTooManyOfOld = 552;  // by RFC 821
constexpr int32_t kGoAhead = 354;

}  // namespace

Failure SmtpTransfer::sendSmtpEmail() {
    const LogContextExitor context(call_.log, "sendSmtpEmail");
    connection_.setUnsettled(true);
    connection_.countTransaction();
    const bool pipelined = connection_.capabilities().hasPipelining && send_.pipelining;
    Failure failure = pipelined ? sendWithPipelining() : sendNonPipelining();
    if (failure) {
        connection_.setUnsettled(false);
        advance(SmtpSend::kEnvelopeShare);
        if (!call_.wasStopped() && call_.mustStop()) {
            call_.log.logError("Aborted by application callback.");
        }
        return std::move(failure).withReconnect(mayReconnect_);
    }
    if (send_.checkRecipientsOnly) {
        connection_.smtpRset(call_);
    } else {
        failure = transferMessage();
    }
    connection_.setUnsettled(false);
    return failure;
}

Failure SmtpTransfer::sendNonPipelining() {
    if (Failure failure = smtpMailFrom()) return failure;
    if (Failure failure = sendRecipients()) return failure;
    if (send_.checkRecipientsOnly) return {};
    Failure failure = checkAccepted();
    return failure ? std::move(failure) : smtpData();
}

Failure SmtpTransfer::smtpMailFrom() {
    Failure failure = queueMailFrom();
    if (!failure) failure = connection_.sendQueued(call_);
    if (failure) {
        call_.log.logError("Failed to send " + senderStep());
        return lostCommand(std::move(failure)).at(Stage::Sender);
    }
    SmtpResponse reply;
    failure = connection_.readSmtpResponse(call_, senderStep(), reply);
    if (failure) return lostCommand(std::move(failure)).at(Stage::Sender);
    if (reply.isSuccess()) return {};
    mayReconnect_ = reply.statusCode == kServiceClosing || reply.statusCode == kTryAgain;
    return refuse(Cause::FromFailure, senderStep(), reply);
}

Failure SmtpTransfer::queueMailFrom() {
    const LogContextExitor context(call_.log, "smtpMailFrom");
    call_.log.logData("mailFrom", send_.fromAddress);
    if (send_.fromAddress.empty()) call_.log.logInfo("Warning: No From Address");
    if (!connection_.settings.dsnNotify.empty() && !connection_.capabilities().hasDsn) {
        call_.log.logInfo(
            "Warning: No delivery report is asked for: the server does not offer DSN.");
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

Failure SmtpTransfer::sendRecipients() {
    const LogContextExitor context(call_.log, "rcptTo");
    for (const std::string& recipient : transaction_.recipients) {
        if (Failure failure = sendRcptTo(recipient)) {
            call_.log.logError("Failed to send RCPT TO command.");
            return lostCommand(std::move(failure)).at(Stage::Recipients);
        }
        SmtpResponse reply;
        if (Failure failure = readRcptTo(recipient, reply)) {
            call_.log.logError("Failed to read RCPT TO response.");
            return lostCommand(std::move(failure));
        }
    }
    return {};
}

Failure SmtpTransfer::sendRcptTo(const std::string& recipient) {
    const LogContextExitor context(call_.log, "sendRcptTo");
    Failure failure = queueRcptTo(recipient);
    if (!failure) failure = connection_.sendQueued(call_);
    if (failure) {
        call_.log.logError(call_.wasStopped()
                               ? "Aborted by application callback when sending RCPT TO"
                               : "Failed to send " + recipientStep(recipient));
    }
    return failure;
}

Failure SmtpTransfer::queueRcptTo(const std::string& recipient) {
    const std::string_view notify = connection_.capabilities().hasDsn
                                        ? connection_.settings.dsnNotify.utf8()
                                        : std::string_view();
    return connection_.queueCommand(call_.log, smtp::rcptToCommand(recipient, notify), false);
}

// Fails where no reply came; what it says is noted in the transaction.
Failure SmtpTransfer::readRcptTo(const std::string& recipient, SmtpResponse& reply) {
    const LogContextExitor context(call_.log, "readRcptTo");
    Failure failure = connection_.readSmtpResponse(call_, recipientStep(recipient), reply);
    if (failure) return std::move(failure).at(Stage::Recipients);
    advance(SmtpSend::kRecipientShare);
    send_.codes.emplace_back(recipient, reply.statusCode);
    if (call_.mustStop()) {
        failure = fail(call_.log, Cause::Aborted,
                       "Aborted by application callback after receiving RCPT TO response.");
        close();
        return std::move(failure).at(Stage::Recipients);
    }
    if (reply.isSuccess()) {
        call_.log.logData("recipient", recipient);
        transaction_.accepted.push_back(recipient);
        return {};
    }
    if (reply.statusCode == kServiceClosing) mayReconnect_ = true;
    lastRefusal_ = recipientStep(recipient) + " was answered with: " + reply.shownFinalLine();
    refusedReply_ = reply;
    // RFC 5321 section 4.5.3.1.10: the server has no room for more, but for those it has taken.
    const bool full = reply.statusCode == kTooMany || reply.statusCode == kTooManyOfOld;
    if (full && !transaction_.accepted.empty()) {
        call_.log.logData("too_many_recipients", recipient);
        transaction_.tooMany.push_back(recipient);
        return {};
    }
    call_.log.logData("bad_address", recipient);
    transaction_.refused.push_back(recipient);
    return {};
}

Failure SmtpTransfer::checkAccepted() {
    if (transaction_.accepted.empty()) return noValidRecipients();
    if (transaction_.accepted.size() == transaction_.recipients.size() ||
        !connection_.settings.requireAllRecipients) {
        return {};
    }
    Failure failure =
        recipientsRefused(Cause::SomeBadRecipients, "Not all recipients were accepted. ");
    connection_.smtpRset(call_);
    return failure;
}

Failure SmtpTransfer::smtpData() {
    SmtpResponse reply;
    Failure failure = connection_.smtpSendGet2(call_, "DATA\r\n", reply);
    if (failure) return lostCommand(std::move(failure)).at(Stage::Data);
    if (reply.statusCode == kGoAhead) return {};
    if (reply.statusCode == kServiceClosing) mayReconnect_ = true;
    call_.log.logError("Non-success DATA response.");
    return refuse(Cause::DataFailure, "DATA", reply);
}

// The refusal of the sender is what is told, whatever the replies to the rest of its flight say.
Failure SmtpTransfer::sendWithPipelining() {
    Failure failure = sendFlights();
    return senderRefusal_ ? std::move(senderRefusal_) : std::move(failure);
}

Failure SmtpTransfer::sendFlights() {
    size_t first = 0;
    do {
        const bool withMail = first == 0;
        if (withMail) {
            if (Failure failure = queueMailFrom()) {
                return lostCommand(std::move(failure)).at(Stage::Sender);
            }
        }
        const size_t end = queueFlight(first);
        if (Failure failure = sendFlight()) return failure;
        if (withMail) {
            if (Failure failure = readPipelinedMailReply()) return failure;
        }
        if (Failure failure = readFlightReplies(first, end)) return failure;
        first = end;
    } while (first < transaction_.recipients.size() && !senderRefusal_);
    const bool all = first == transaction_.recipients.size();
    if (all && dataIsPipelined()) return readPipelinedDataReply();
    if (senderRefusal_) {
        connection_.smtpRset(call_);
        return {};
    }
    if (send_.checkRecipientsOnly) return {};
    Failure failure = checkAccepted();
    return failure ? std::move(failure) : smtpData();
}

// DATA leaves with the last recipients, before anything is known of them.
bool SmtpTransfer::dataIsPipelined() const {
    return !send_.checkRecipientsOnly && !connection_.settings.dataAfterRecipients;
}

// Queues the next recipients and, with the last of them, DATA. Returns where the flight ends.
size_t SmtpTransfer::queueFlight(size_t first) {
    const size_t end = std::min(transaction_.recipients.size(), first + kFlightRecipients);
    Failure failure;
    for (size_t i = first; i < end && !failure; ++i) {
        const LogContextExitor context(call_.log, "sendRcptTo");
        failure = queueRcptTo(transaction_.recipients[i]);
    }
    if (!failure && end == transaction_.recipients.size() && dataIsPipelined()) {
        failure = connection_.queueCommand(call_.log, "DATA\r\n", false);
    }
    return end;
}

Failure SmtpTransfer::sendFlight() {
    Failure failure = connection_.sendQueued(call_);
    if (!failure) return {};
    if (call_.wasStopped()) {
        call_.log.logError("Aborted by application callback when sending RCPT TO");
    } else {
        call_.log.logError("Failed to send " + senderStep());
        call_.log.logError("Failed to send RCPT TO command.");
    }
    return lostCommand(std::move(failure)).at(Stage::Sender);
}

// Fails where the connection does not serve any longer; a refusal is kept.
Failure SmtpTransfer::readPipelinedMailReply() {
    SmtpResponse reply;
    if (Failure failure = connection_.readSmtpResponse(call_, senderStep(), reply)) {
        if (connection_.settings.userName.empty()) {
            call_.log.logInfo("Note: Your application did not provide an SMTP username.");
            call_.log.logInfo("The lack of an SMTP login name could be the cause of this error.");
        }
        return lostCommand(std::move(failure)).at(Stage::Sender);
    }
    if (reply.isSuccess()) return {};
    if (reply.statusCode == kGoAhead) return strange354(Cause::FromFailure);
    mayReconnect_ = reply.statusCode == kServiceClosing || reply.statusCode == kTryAgain;
    senderRefusal_ = answeredWith(Cause::FromFailure, senderStep(), reply);
    return {};
}

Failure SmtpTransfer::readFlightReplies(size_t first, size_t end) {
    for (size_t i = first; i < end; ++i) {
        SmtpResponse reply;
        if (Failure failure = readRcptTo(transaction_.recipients[i], reply)) {
            call_.log.logError("Failed to read RCPT TO response.");
            return senderRefusal_ ? std::move(failure) : lostCommand(std::move(failure));
        }
        if (reply.statusCode == kGoAhead) return strange354(Cause::DataFailure);
    }
    return {};
}

// The server takes what follows for the message although replies are missing: the two sides no
// longer speak of the same command.
Failure SmtpTransfer::strange354(Cause cause) {
    call_.log.logInfo("Strange that a 354 response was already received.");
    call_.log.logInfo(
        "Try turning off the mailman.SmtpPipelining property by setting it equal to false/0.");
    Failure failure =
        fail(call_.log, cause,
             "The replies to the pipelined commands came out of order: 354 too early.");
    close();
    return failure;
}

Failure SmtpTransfer::readPipelinedDataReply() {
    SmtpResponse reply;
    if (Failure failure = connection_.readSmtpResponse(call_, "DATA", reply)) {
        if (senderRefusal_) return failure;
        return lostCommand(std::move(failure)).at(Stage::Data);
    }
    if (reply.statusCode != kGoAhead) {
        if (reply.statusCode == kServiceClosing) mayReconnect_ = true;
        if (transaction_.accepted.empty() && !senderRefusal_) return noValidRecipients();
        call_.log.logError("Non-success DATA response.");
        return refuse(Cause::DataFailure, "DATA", reply);
    }
    if (transaction_.accepted.empty()) return endEmptyMessage();
    if (senderRefusal_) close();  // somebody would get the message of a refused sender
    return {};
}

// The server waits for a message that nobody would get: the dot alone ends it (RFC 2920 section
// 3.1). Its reply changes nothing.
Failure SmtpTransfer::endEmptyMessage() {
    Failure failure = recipientsRefused(Cause::NoValidRecipients, "No recipient was accepted. ");
    SmtpResponse reply;
    const Failure lost = connection_.smtpSendGet2(call_, ".\r\n", reply);
    const bool over = !lost && (reply.isSuccess() || reply.statusCode >= 400);
    if (!over || reply.statusCode == kServiceClosing) close();
    return failure;
}

Failure SmtpTransfer::answeredWith(Cause cause, const std::string& what,
                                   const SmtpResponse& reply) {
    return smtp::refused(call_.log, cause, what + " was answered with: ", reply);
}

Failure SmtpTransfer::refuse(Cause cause, const std::string& what, const SmtpResponse& reply) {
    Failure failure = answeredWith(cause, what, reply);
    connection_.smtpRset(call_);
    return failure;
}

// With the last refusal, which stands for the others.
Failure SmtpTransfer::recipientsRefused(Cause cause, const std::string& sentence) {
    return fail(call_.log, cause, sentence + lastRefusal_)
        .withReply(refusedReply_.statusCode, refusedReply_.shownLines());
}

Failure SmtpTransfer::noValidRecipients() {
    call_.log.logError("No valid recipients");
    Failure failure = recipientsRefused(Cause::NoValidRecipients, "No recipient was accepted. ");
    connection_.smtpRset(call_);
    return failure;
}

// Nothing of the message has been sent yet: a lost connection allows another try. A recipient
// refused just before may be why it was lost.
Failure SmtpTransfer::lostCommand(Failure failure) {
    if (!lastRefusal_.empty()) {
        failure.addSentence("Before that, " + lastRefusal_);
        call_.log.logError("Before that, " + lastRefusal_);
    }
    if (failure.is(Cause::ConnectionLost)) mayReconnect_ = true;
    return failure;
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
