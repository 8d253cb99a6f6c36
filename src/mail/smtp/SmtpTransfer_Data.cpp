// The message of a transaction and its end. Once the terminator has begun to leave, the server may
// have the message whatever comes after.
#include <new>
#include <utility>

#include "log/LogContextExitor.h"
#include "mail/smtp/DotStuffer.h"
#include "mail/smtp/SentMailLog.h"
#include "mail/smtp/SmtpFailure.h"
#include "mail/smtp/SmtpTransfer.h"

namespace tv {
namespace {

// Above this the bytes are better left to the system's own packing.
constexpr uint64_t kLargeTransfer = 10000;

constexpr std::string_view kOutcomeUnknown =
    "The server may have the message: sending it again may deliver it twice.";

// The time in which a server judges a whole message may be another one than that of other replies.
class AcceptanceTime {
public:
    explicit AcceptanceTime(SmtpSettings& settings)
        : settings_(settings), usual_(settings.idleTimeoutMs) {
        if (settings.acceptanceTimeoutMs > 0) settings.idleTimeoutMs = settings.acceptanceTimeoutMs;
    }
    ~AcceptanceTime() { settings_.idleTimeoutMs = usual_; }
    AcceptanceTime(const AcceptanceTime&) = delete;
    AcceptanceTime& operator=(const AcceptanceTime&) = delete;

private:
    SmtpSettings& settings_;
    const uint32_t usual_;
};

}  // namespace

// The server waits for the message. From here on no failure asks for a second try: what breaks off
// after the terminator began may have been accepted.
Failure SmtpTransfer::transferMessage() {
    const std::string_view sentMailLog = connection_.settings.sentMailLogFile.utf8();
    const bool logged = sentMailLog.empty() || transaction_.isFurther ||
                        smtp::appendToSentMailLog(call_.log, sentMailLog, send_);
    call_.log.logDataLong("mimeDataSize", static_cast<int64_t>(send_.stuffedSize));
    Failure failure = logged ? sendDataToSmtp()
                             : fail(call_.log, Cause::RenderFailed,
                                    "The message could not be rendered for the sent-mail log.");
    if (failure) {
        call_.log.logError(call_.wasStopped()
                               ? "Aborted by application callback while sending MIME data."
                               : "Failed when sending MIME body");
    } else {
        failure = finishMessage();
    }
    if (failure) close();
    return failure;
}

Failure SmtpTransfer::sendDataToSmtp() {
    const LogContextExitor context(call_.log, "sendDataToSmtp");
    const bool large = send_.stuffedSize > kLargeTransfer;
    if (large) connection_.setTcpNoDelay(call_.log, false);
    connection_.sessionLog().addDataSize(send_.stuffedSize);
    Failure failure = streamMessage();
    if (large) connection_.setTcpNoDelay(call_.log, true);
    const std::string_view event = failure ? "SmtpDataSendFailed" : "SmtpDataSent";
    if (call_.monitor) call_.monitor->textEvent(event, "...");
    call_.log.logData(event, "...");
    return failure;
}

// Block by block to the server, as long as it keeps silent. Nothing is taken after a failure.
class SmtpTransfer::DataSink final : public OutputStream {
public:
    explicit DataSink(SmtpTransfer& transfer) : transfer_(transfer) {}
    using OutputStream::write;
    bool write(std::span<const uint8_t> block) override {
        failure = transfer_.earlyWords();
        if (!failure) failure = transfer_.connection_.sendData(transfer_.call_, block);
        if (failure) return false;
        transfer_.advance(block.size());
        return true;
    }

    Failure failure;

private:
    SmtpTransfer& transfer_;
};

Failure SmtpTransfer::streamMessage() {
    DataSink sink(*this);
    DataBlocks blocks(sink, connection_.settings.sendChunkSize);
    const bool rendered = send_.mimeSource(call_.log, blocks, send_.utf8) && blocks.finish();
    call_.log.logDataLong("numBytesSent", static_cast<int64_t>(blocks.bytesOut()));
    if (sink.failure) return std::move(sink.failure).at(Stage::Data);
    if (rendered && blocks.bytesOut() == send_.stuffedSize) return {};
    // A message that broke off must never get its terminator.
    return fail(call_.log, Cause::RenderFailed,
                "The message could not be rendered to its end; it was not finished.");
}

// A reply that comes before the end of the message is no reply to it. Most often the server
// refuses what it has seen so far, and nothing more is worth sending.
Failure SmtpTransfer::earlyWords() {
    if (connection_.isQuiet() || !connection_.hasInput()) return {};
    SmtpResponse reply;
    Failure failure = connection_.readSmtpResponse(call_, "the message data", reply);
    if (!failure) failure = smtp::repliedEarly(call_.log, reply);
    close();
    return failure;
}

Failure SmtpTransfer::answeredTooEarly() {
    Failure failure = earlyWords();
    if (!failure && !connection_.isConnected()) {
        failure = fail(call_.log, Cause::ConnectionLost,
                       "The server closed the connection before the end of the message.");
    }
    return std::move(failure).at(Stage::Data);
}

// A host that reads of memory alone would send again: what it must know is made here.
Failure SmtpTransfer::replyToEnd(SmtpResponse& reply) {
    try {
        Failure failure = connection_.sendCmdToSmtp(call_, "\r\n.\r\n", false);
        if (failure) return failure;
        const AcceptanceTime patience(connection_.settings);
        return connection_.readSmtpResponse(call_, ".", reply);
    } catch (const std::bad_alloc&) {
        return fail(call_.log, Cause::OutOfMemory, "No memory for the end of the message data.");
    }
}

Failure SmtpTransfer::finishMessage() {
    using Sent = SmtpConnImpl::Sent;
    if (Failure failure = answeredTooEarly()) return failure;
    SmtpResponse reply;
    Failure failure = replyToEnd(reply).at(Stage::Acceptance);
    if (!failure) return judgeFinalReply(reply);
    const Sent left = connection_.lastSent();
    if (left != Sent::Nothing && failure.replyCode() < 400) {  // no refusal in the last words
        failure.addSentence(kOutcomeUnknown);
        failure.setOutcomeUnknown();
        call_.log.logError(kOutcomeUnknown);
    }
    if (call_.wasStopped()) {
        call_.log.logError("Aborted by application callback at DATA terminator.");
        close();
        return left == Sent::All ? Failure() : std::move(failure);  // all: the server has it
    }
    call_.log.logError(left == Sent::All
                           ? "SMTP failed when receiving the DATA terminator response."
                           : "SMTP failed when sending DATA terminator.");
    return failure;
}

Failure SmtpTransfer::judgeFinalReply(const SmtpResponse& reply) {
    send_.finalReply = reply.shownFinalLine();
    if (reply.statusCode < 400) return {};
    call_.log.logError("Non-success DATA terminator response.");
    return answeredWith(Cause::DataFailure, "The message", reply).at(Stage::Acceptance);
}

}  // namespace tv
