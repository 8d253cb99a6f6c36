// The message of a transaction and its end. Once the terminator has begun to leave, the server may
// have the message whatever comes after.
#include <new>

#include "log/LogContextExitor.h"
#include "mail/smtp/DotStuffer.h"
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
                        smtp::appendToSentMailLog(call_.log, sentMailLog, send_);
    call_.log.logDataLong("mimeDataSize", static_cast<int64_t>(send_.stuffedSize));
    if (!logged) {
        connection_.fail(call_.log, SmtpStatus::RenderFailed,
                         "The message could not be rendered for the sent-mail log.");
    }
    if (!logged || !sendDataToSmtp()) {
        call_.log.logError(call_.wasStopped()
                               ? "Aborted by application callback while sending MIME data."
                               : "Failed when sending MIME body");
        close();
        return false;
    }
    if (finishMessage()) return true;
    close();
    return false;
}

bool SmtpTransfer::sendDataToSmtp() {
    const LogContextExitor context(call_.log, "sendDataToSmtp");
    const bool large = send_.stuffedSize > kLargeTransfer;
    if (large) connection_.setTcpNoDelay(call_.log, false);
    connection_.sessionLog().addDataSize(send_.stuffedSize);
    const bool sent = streamMessage();
    if (large) connection_.setTcpNoDelay(call_.log, true);
    const std::string_view event = sent ? "SmtpDataSent" : "SmtpDataSendFailed";
    if (call_.monitor) call_.monitor->textEvent(event, "...");
    call_.log.logData(event, "...");
    return sent;
}

// Block by block to the server, as long as it keeps silent.
class SmtpTransfer::DataSink final : public OutputStream {
public:
    explicit DataSink(SmtpTransfer& transfer) : transfer_(transfer) {}
    using OutputStream::write;
    bool write(std::span<const uint8_t> block) override {
        if (transfer_.hasWords()) return false;
        if (!transfer_.connection_.sendData(transfer_.call_, block)) return false;
        transfer_.advance(block.size());
        return true;
    }

private:
    SmtpTransfer& transfer_;
};

bool SmtpTransfer::streamMessage() {
    DataSink sink(*this);
    DataBlocks blocks(sink, connection_.settings.sendChunkSize);
    const bool rendered = send_.mimeSource(call_.log, blocks, send_.utf8) && blocks.finish();
    call_.log.logDataLong("numBytesSent", static_cast<int64_t>(blocks.bytesOut()));
    if (rendered && blocks.bytesOut() == send_.stuffedSize) return true;
    // A message that broke off must never get its terminator.
    if (!connection_.isConnected()) return false;
    connection_.fail(call_.log, SmtpStatus::RenderFailed,
                     "The message could not be rendered to its end; it was not finished.");
    return false;
}

// A reply that comes before the end of the message is no reply to it. Most often the server
// refuses what it has seen so far, and nothing more is worth sending.
bool SmtpTransfer::hasWords() {
    if (connection_.isQuiet() || !connection_.hasInput()) return false;
    if (connection_.readSmtpResponse(call_, "the message data")) {
        connection_.failEarly(call_.log);
    }
    close();
    return true;
}

bool SmtpTransfer::answeredTooEarly() {
    if (hasWords()) return true;
    if (connection_.isConnected()) return false;
    connection_.fail(call_.log, SmtpStatus::ConnectionLost,
                     "The server closed the connection before the end of the message.");
    return true;
}

// A host that reads of memory alone would send again: what it must know is made here.
std::optional<SmtpResponse> SmtpTransfer::replyToEnd() {
    try {
        if (!connection_.sendCmdToSmtp(call_, "\r\n.\r\n", false)) return std::nullopt;
        return connection_.readSmtpResponse(call_, ".");
    } catch (const std::bad_alloc&) {
        connection_.fail(call_.log, SmtpStatus::Failed,
                         "No memory for the end of the message data.");
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
        call_.log.logError(kOutcomeUnknown);
    }
    if (call_.wasStopped()) {
        call_.log.logError("Aborted by application callback at DATA terminator.");
        close();
        return left == SmtpConnImpl::Sent::All;  // then the message is with the server
    }
    call_.log.logError(left == SmtpConnImpl::Sent::All
                           ? "SMTP failed when receiving the DATA terminator response."
                           : "SMTP failed when sending DATA terminator.");
    return false;
}

bool SmtpTransfer::judgeFinalReply(const SmtpResponse& reply) {
    if (reply.statusCode < 400) return true;
    call_.log.logError("Non-success DATA terminator response.");
    connection_.fail(call_.log, SmtpStatus::DataFailure,
                     "The message was answered with: " + connection_.lastReply());
    return false;
}

}  // namespace tv
