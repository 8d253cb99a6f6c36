// Commands, replies and message data on the open connection, and why they did not go through.
// Connecting and greeting stand in the sources beside this one.
#include "mail/smtp/SmtpConnImpl.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "base/Ascii.h"
#include "log/LogContextExitor.h"
#include "log/LogNull.h"
#include "mail/oauth2/OAuth2ClientCredentials.h"
#include "mail/sasl/Sasl.h"
#include "mail/smtp/ReplyHints.h"
#include "mail/smtp/SmtpCommand.h"
#include "mail/smtp/SmtpFailure.h"
#include "net/stream/SChannelTolvane.h"
#include "net/stream/TotalTimeout.h"
#include "platform/SysClock.h"
#include "platform/SysWipe.h"

namespace tv {
namespace {

// A host that ends waits for the server no longer than its user does.
constexpr uint32_t kQuitTimeoutMs = 5000;
// However much moves: a whole reply, that to the message itself (RFC 5321 section 4.5.3.2.6), and
// so many bytes sent.
constexpr uint64_t kReplyLimitMs = 300000;
constexpr uint64_t kFinalReplyLimitMs = 600000;
constexpr uint64_t kSendLimitMs = 300000;
constexpr size_t kSendLimitBytes = 65536;
// What a server said before it broke off is on its way already.
constexpr uint32_t kLastWordsMs = 1000;
constexpr size_t kShownOfLongLine = 200;
constexpr std::string_view kSecret = "{PasswordOrCredentials}";

// How failures name a command and what is expected after it.
std::string stepName(std::string_view command) {
    const std::string_view name = trimmed(command);
    return name == "." ? "the end of the message data" : std::string(name);
}

uint64_t sendLimitMs(size_t bytes) {
    return (bytes / kSendLimitBytes + 1) * kSendLimitMs;
}

constexpr std::string_view kNoReply = "is no line of an SMTP server";

std::string_view faultOf(ReplyState state) {
    static_assert(kMaxReplyLines == 1000 && kMaxReplyBytes == 1 << 20 && kMaxReplyLine == 1 << 16);
    if (state == ReplyState::TooManyLines) return "has more than 1000 lines";
    return state == ReplyState::TooLarge ? "has more than 1 MiB" : kNoReply;
}

// Of a command or a response to a challenge: the part with the credential.
std::string_view lastWord(std::string_view line) {
    line = trimmed(line);
    return line.substr(line.find_last_of(' ') + 1);
}

std::string awaited(std::string_view command) {
    return command == "greeting" ? "the greeting" : "the reply to " + stepName(command);
}

}  // namespace

SmtpConnImpl::SmtpConnImpl() : tlsSessions_(std::make_shared<TlsSessionSlot>()) {}

void SmtpConnImpl::forgetSecrets() {
    tlsSessions_ = std::make_shared<TlsSessionSlot>();
    tokenSource_.reset();
}

SmtpConnImpl::~SmtpConnImpl() {
    try {
        sayGoodbye();
    } catch (...) {  // no memory left for it
    }
}

void SmtpConnImpl::sayGoodbye() {
    if (!isConnected() || unsettled_) return;
    LogNull quiet;
    CallContext call(quiet);
    const uint32_t idle = settings.idleTimeoutMs;
    settings.idleTimeoutMs = idle == 0 ? kQuitTimeoutMs : std::min(idle, kQuitTimeoutMs);
    const TotalTimeout limit(call, settings.idleTimeoutMs);
    smtpQuit(call);
    closeSmtpConnection(call);
    settings.idleTimeoutMs = idle;
}

Failure SmtpConnImpl::sendCmdToSmtp(CallContext& call, std::string_view command, bool secret) {
    Failure failure = queueCommand(call.log, command, secret);
    return failure ? std::move(failure) : sendQueued(call);
}

Failure SmtpConnImpl::queueCommand(LogBase& log, std::string_view command, bool secret) {
    lastSent_ = Sent::Nothing;
    if (!socket_) return noConnection(log, secret ? kSecret : command);
    if (!queuedBytes_.append(command)) {
        return fail(log, Cause::OutOfMemory, "No memory for a command.");
    }
    const std::string shown = secret ? std::string(kSecret) : smtp::shownCommand(readable(command));
    sessionLog_.addCommand(shown);
    queue_.push_back({shown, stepName(secret ? kSecret : command)});
    queuedSecret_ = queuedSecret_ || secret;
    credential_.clear();
    if (secret) credential_.append(lastWord(command));
    return {};
}

Failure SmtpConnImpl::sendQueued(CallContext& call) {
    const LogContextExitor context(call.log, "sendCmdToSmtp");
    const std::vector<QueuedCommand> commands = std::exchange(queue_, {});
    if (commands.empty()) return {};
    if (!socket_) return noConnection(call.log, commands.front().name);
    const Failure failure = sendBytes(call, queuedBytes_.bytes());
    lastSent_ = !failure ? Sent::All : failure.anySent() ? Sent::Part : Sent::Nothing;
    if (std::exchange(queuedSecret_, false)) plat::wipe(queuedBytes_.data(), queuedBytes_.size());
    queuedBytes_.clear();
    if (!failure && call.mustStop()) {
        call.log.logError("Aborted by application callback.");
        return failIo(call, Failure(Cause::Aborted), "after " + commands.back().name + " was sent");
    }
    for (const QueuedCommand& command : commands) {
        const std::string_view event = failure ? "SmtpCmdSendFailed" : "SmtpCmdSent";
        if (call.monitor) call.monitor->textEvent(event, command.shown);
        call.log.logData(event, command.shown);
    }
    if (!failure) return {};
    const std::optional<SmtpResponse> words = lastWords(call, failure);
    Failure lost = failIo(call, failure, "while sending " + commands.front().name);
    if (!words || words->statusCode < 400) return lost;
    lost.addSentence("The server's last words: " + words->shownFinalLine());
    return std::move(lost).withReply(words->statusCode, words->shownLines());
}

Failure SmtpConnImpl::readSmtpResponse(CallContext& call, std::string_view command,
                                       SmtpResponse& reply) {
    const LogContextExitor context(call.log, "readSmtpResponse");
    const TotalTimeout limit(call, command == "." ? kFinalReplyLimitMs : kReplyLimitMs,
                             settings.idleTimeoutMs);
    SmtpReplyReader reader(command);
    DataBuffer line;
    while (socket_) {
        line.clear();
        const bool isFirst = reader.reply().lines.empty();
        if (Failure failure = receiveLine(call, command, isFirst, line)) return failure;
        if (!hideCredential(line))
            return fail(call.log, Cause::OutOfMemory, "No memory for a reply.");
        noteReplyLine(call, line.text());
        const ReplyState state = reader.addLine(line.text());
        if (state == ReplyState::Complete) {
            reply = std::move(reader.reply());
            acceptReply(call.log, reply);
            return {};
        }
        if (state != ReplyState::NeedMore) {
            return badReply(call, command, faultOf(state), line.text());
        }
    }
    return noConnection(call.log, awaited(command));
}

Failure SmtpConnImpl::receiveLine(CallContext& call, std::string_view command, bool isFirst,
                                  DataBuffer& line) {
    constexpr std::string_view kLineEnd = "\r\n";
    const size_t limit = kMaxReplyLine + kLineEnd.size();
    const Failure failure =
        socket_->receiveUntilMatch(call, line, kLineEnd, limit, settings.idleTimeoutMs);
    if (!failure) return {};
    if (failure.is(Cause::LineTooLong)) {
        return badReply(call, command, "has a line of more than 64 KiB",
                        line.text().substr(0, kShownOfLongLine));
    }
    const std::string begun = unfinishedLine(call);
    const bool silent = command == "greeting" && isFirst && begun.empty();
    return failIo(call, failure, "while waiting for " + awaited(command) + begun,
                  silent ? adviceForSilence() : std::string());
}

// A server of TLS waits for the client's first word, as a server without waits for nobody.
std::string SmtpConnImpl::adviceForSilence() const {
    constexpr int32_t kRelayPort = 25, kSubmissionPort = 587;  // never TLS from the first byte
    const int32_t port = settings.smtpPort;
    if (settings.smtpSsl || port == kRelayPort || port == kSubmissionPort) return {};
    return " If port " + std::to_string(port) + " expects TLS from the first byte, switch SSL on.";
}

// What had come of a line that never ended: a server that forgets its CR shows here.
std::string SmtpConnImpl::unfinishedLine(CallContext& call) {
    constexpr size_t kShown = 100;  // enough to know the line by
    DataBuffer rest;
    if (!socket_->hasBufferedInput() || socket_->receiveBytes(call, rest, 1)) return {};
    const std::string_view line = trimmed(rest.text().substr(0, kShown));
    return " (a line without its end had come: " + readable(line) + ")";
}

// A server that says again what it was sent would put the password into every log. Base64 of a few
// letters may stand in any reply, and a challenge has to stay as it is (RFC 4954, 4).
bool SmtpConnImpl::hideCredential(DataBuffer& line) const {
    constexpr size_t kTelling = 8;
    const std::string_view credential = saslText(credential_);
    if (credential.size() < kTelling || line.text().find(credential) == std::string_view::npos ||
        line.text().starts_with('3')) {
        return true;
    }
    const std::string shown = replaceAll(line.text(), credential, kSecret);
    plat::wipe(line.data(), line.size());
    line.clear();
    return line.append(shown);
}

void SmtpConnImpl::noteReplyLine(CallContext& call, std::string_view line) {
    const std::string shown = readable(trimmed(line));
    sessionLog_.addReplyLine(shown);
    if (call.monitor) call.monitor->textEvent("SmtpCmdResp", shown);
    call.log.logData("SmtpCmdResp", shown);
    call.log.logData("smtp.lastResponse", shown);
    smtp::logLineHint(call.log, line);
}

Failure SmtpConnImpl::badReply(CallContext& call, std::string_view command, std::string_view fault,
                               std::string_view line) {
    if (fault == kNoReply) call.log.logError("Unrecognized response from SMTP server");
    call.log.logData("responseLine", readable(trimmed(line)));
    std::string reason = awaited(command) + " " + std::string(fault) + ".";
    reason[0] = asciiUpper(reason[0]);
    Failure failure = fail(call.log, Cause::BadReply, std::move(reason));
    closeSmtpConnection(call);
    return failure;
}

void SmtpConnImpl::acceptReply(LogBase& log, const SmtpResponse& reply) {
    log.logDataVerbose("smtpStatusCode", std::to_string(reply.statusCode));
    log.logDataLong("smtp.lastStatus", reply.statusCode);
    smtp::logReplyHints(log, reply);
    if (reply.statusCode >= 400) sessionLog_.markRefusal();
    touch();
}

Failure SmtpConnImpl::smtpSendGet2(CallContext& call, std::string_view command,
                                   SmtpResponse& reply) {
    Failure failure = sendCmdToSmtp(call, command, false);
    return failure ? std::move(failure) : readSmtpResponse(call, trimmed(command), reply);
}

void SmtpConnImpl::smtpRset(CallContext& call) {
    call.log.logInfo("Sending RSET command.");
    SmtpResponse reply;
    const Failure failure = smtpSendGet2(call, "RSET\r\n", reply);
    if (failure || !reply.isSuccess()) closeSmtpConnection(call);
}

void SmtpConnImpl::smtpQuit(CallContext& call) {
    SmtpResponse reply;
    std::ignore = smtpSendGet2(call, "QUIT\r\n", reply);  // the connection ends either way
}

Failure SmtpConnImpl::sendData(CallContext& call, std::span<const uint8_t> bytes) {
    if (!socket_) return noConnection(call.log, "the message data");
    const Failure failure = sendBytes(call, bytes);
    if (!failure) return {};
    const std::optional<SmtpResponse> words = lastWords(call, failure);
    Failure early = words ? smtp::repliedEarly(call.log, *words) : Failure();
    Failure lost = failIo(call, failure, "while sending the message data");
    return early ? std::move(early) : std::move(lost);
}

Failure SmtpConnImpl::sendBytes(CallContext& call, std::span<const uint8_t> bytes) {
    const TotalTimeout limit(call, sendLimitMs(bytes.size()), settings.idleTimeoutMs);
    return socket_->sendBytes(call, bytes, settings.idleTimeoutMs);
}

// Systems exist that drop what has come when a reset follows, and a server that refuses often says
// why and resets: after a write that failed, what is still there to be read counts.
std::optional<SmtpResponse> SmtpConnImpl::lastWords(CallContext& call, const Failure& failure) {
    if (call.wasStopped()) return std::nullopt;
    // After a time-out they had their time to come.
    const uint32_t idleMs = failure.is(Cause::Timeout) ? 1 : settings.idleTimeoutMs;
    const uint32_t limitMs = idleMs == 0 ? kLastWordsMs : std::min(idleMs, kLastWordsMs);
    const TotalTimeout limit(call, limitMs);
    SmtpReplyReader reader("message data");
    ReplyState state = ReplyState::NeedMore;
    DataBuffer line;
    while (state == ReplyState::NeedMore &&
           !socket_->receiveUntilMatch(call, line, "\r\n", kMaxReplyLine, limitMs) &&
           hideCredential(line)) {
        noteReplyLine(call, line.text());
        state = reader.addLine(line.text());
        line.clear();
    }
    if (state != ReplyState::Complete) return std::nullopt;
    acceptReply(call.log, reader.reply());
    return std::move(reader.reply());
}

void SmtpConnImpl::setTcpNoDelay(LogBase& log, bool on) {
    if (socket_) socket_->setTcpNoDelay(log, on);
}

void SmtpConnImpl::setAuthenticated(bool authenticated) {
    authenticated_ = authenticated;
    touch();
}

void SmtpConnImpl::noteNoLogin(LogBase& log, const std::string& why) {
    noLogin_ = "No login was made: " + why;
    log.logInfo(noLogin_);
}

Failure SmtpConnImpl::noConnection(LogBase& log, std::string_view wanted) {
    log.logError("no connection.");
    return Failure(Cause::ConnectionLost, "No connection for " + stepName(wanted) + ".");
}

std::string SmtpConnImpl::timeoutText(const Failure& failure) const {
    if (failure.totalMs() > 0) {
        return "The server was too slow: " + durationText(failure.totalMs()) + " were over";
    }
    return "Nothing moved for " + std::to_string(settings.idleTimeoutMs) + " ms";
}

Failure SmtpConnImpl::failIo(CallContext& call, const Failure& failure, const std::string& step,
                             const std::string& advice) {
    const std::string end = " " + step + "." + advice;
    closeSmtpConnection(call);
    if (failure.is(Cause::Timeout)) {
        call.log.logDataLong("idleTimeoutMs", settings.idleTimeoutMs);
        return fail(call.log, Cause::Timeout, timeoutText(failure) + end);
    }
    if (failure.is(Cause::Aborted) || call.wasStopped()) {
        return fail(call.log, Cause::Aborted, "The application stopped the send" + end);
    }
    // A failure with words of its own says why.
    std::string text =
        failure.text().empty() ? "The connection was lost" + end : failure.text() + ".";
    return fail(call.log, Cause::ConnectionLost, std::move(text)).because(failure);
}

void SmtpConnImpl::touch() {
    lastActivityTickMs_ = plat::sysClock().tickMs();
}

}  // namespace tv
