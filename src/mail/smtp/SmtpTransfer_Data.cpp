// The message of a transaction and its end. Once the terminator has begun to leave, the server may
// have the message whatever comes after.
#include <new>

#include "log/LogContextExitor.h"
#include "mail/smtp/ChunkStream.h"
#include "mail/smtp/SentMailLog.h"
#include "mail/smtp/SmtpTransfer.h"

namespace tv {
namespace {

// Above this the bytes are better left to the system's own packing.
constexpr uint64_t kLargeTransfer = 10000;

constexpr std::string_view kOutcomeUnknown =
    "The server may have the message: sending it again may deliver it twice.";

}  // namespace

// The server waits for the message. From here on no second try is allowed: what breaks off after
// the terminator began may have been accepted.
bool SmtpTransfer::transferMessage() {
    send_.retryAllowed = false;
    const std::string_view sentMailLog = connection_.settings.sentMailLogFile.utf8();
    const bool logged = sentMailLog.empty() || transaction_.isFurther ||
                        smtp::appendToSentMailLog(sentMailLog, send_, log_);
    log_.logDataLong("mimeDataSize", static_cast<int64_t>(send_.stuffedSize));
    if (!logged) {
        connection_.fail(SmtpStatus::RenderFailed,
                         "The message could not be rendered for the sent-mail log.", log_);
    }
    if (!logged || !sendDataToSmtp()) {
        log_.logError(params_.aborted ? "Aborted by application callback while sending MIME data."
                                      : "Failed when sending MIME body");
        close();
        return false;
    }
    if (finishMessage()) return true;
    close();
    return false;
}

bool SmtpTransfer::sendDataToSmtp() {
    const LogContextExitor context(log_, "sendDataToSmtp");
    const bool large = send_.stuffedSize > kLargeTransfer;
    if (large) connection_.setTcpNoDelay(false, log_);
    connection_.sessionLog().addDataSize(send_.stuffedSize);
    const bool sent = streamMessage();
    if (large) connection_.setTcpNoDelay(true, log_);
    const std::string_view event = sent ? "SmtpDataSent" : "SmtpDataSendFailed";
    if (params_.monitor) params_.monitor->textEvent(event, "...");
    log_.logData(event, "...");
    return sent;
}

bool SmtpTransfer::streamMessage() {
    ChunkStream chunks(connection_.settings.sendChunkSize, [&](std::span<const uint8_t> chunk) {
        if (hasWords()) return false;
        if (!connection_.sendData(chunk, params_, log_)) return false;
        advance(chunk.size());
        return true;
    });
    const bool rendered = send_.renderStuffed(chunks, log_) && chunks.finish();
    log_.logDataLong("numBytesSent", static_cast<int64_t>(chunks.bytesOut()));
    if (rendered && chunks.bytesOut() == send_.stuffedSize) return true;
    // A message that broke off must never get its terminator.
    if (!connection_.isConnected()) return false;
    connection_.fail(SmtpStatus::RenderFailed,
                     "The message could not be rendered to its end; it was not finished.", log_);
    return false;
}

// A reply that comes before the end of the message is no reply to it. Most often the server
// refuses what it has seen so far, and nothing more is worth sending.
bool SmtpTransfer::hasWords() {
    if (connection_.isQuiet() || !connection_.hasInput()) return false;
    if (connection_.readSmtpResponse("the message data", params_, log_)) {
        connection_.failEarly(log_);
    }
    close();
    return true;
}

bool SmtpTransfer::answeredTooEarly() {
    if (hasWords()) return true;
    if (connection_.isConnected()) return false;
    connection_.fail(SmtpStatus::ConnectionLost,
                     "The server closed the connection before the end of the message.", log_);
    return true;
}

// A host that reads of memory alone would send again: what it must know is made here.
std::optional<SmtpResponse> SmtpTransfer::replyToEnd() {
    try {
        if (!connection_.sendCmdToSmtp("\r\n.\r\n", false, log_, params_)) return std::nullopt;
        return connection_.readSmtpResponse(".", params_, log_);
    } catch (const std::bad_alloc&) {
        connection_.fail(SmtpStatus::Failed, "No memory for the end of the message data.", log_);
        return std::nullopt;
    }
}

bool SmtpTransfer::finishMessage() {
    if (answeredTooEarly()) return false;
    const auto reply = replyToEnd();
    const SmtpConnImpl::Sent left = connection_.lastSent();
    if (reply) return judgeFinalReply(*reply);
    const bool refused = connection_.lastReplyCode() >= 400;  // by the last words
    if (left != SmtpConnImpl::Sent::Nothing && !refused) {
        connection_.outcome().addToReason(kOutcomeUnknown);
        log_.logError(kOutcomeUnknown);
    }
    if (params_.aborted) {
        log_.logError("Aborted by application callback at DATA terminator.");
        close();
        return left == SmtpConnImpl::Sent::All;  // then the message is with the server
    }
    log_.logError(left == SmtpConnImpl::Sent::All
                      ? "SMTP failed when receiving the DATA terminator response."
                      : "SMTP failed when sending DATA terminator.");
    return false;
}

bool SmtpTransfer::judgeFinalReply(const SmtpResponse& reply) {
    if (reply.statusCode < 400) return true;
    log_.logError("Non-success DATA terminator response.");
    connection_.fail(SmtpStatus::DataFailure,
                     "The message was answered with: " + connection_.lastReply(), log_);
    return false;
}

}  // namespace tv
