// Commands, replies and message data on the open connection, and why they did not go through.
// Connecting and greeting stand in the sources beside this one.
#include "mail/smtp/SmtpConnImpl.h"

#include <algorithm>
#include <utility>

#include "base/Ascii.h"
#include "base/CodePage.h"
#include "log/LogContextExitor.h"
#include "log/LogNull.h"
#include "mail/oauth2/OAuth2ClientCredentials.h"
#include "mail/smtp/ReplyHints.h"
#include "mail/smtp/SmtpCommand.h"
#include "net/stream/SChannelTolvane.h"
#include "net/stream/TotalTimeout.h"
#include "platform/SysClock.h"
#include "platform/SysWipe.h"

namespace tv {
namespace {

constexpr uint32_t kQuitTimeoutMs = 5000;
// However much moves: a whole reply, that to the message itself (RFC 5321 section 4.5.3.2.6), and
// so many bytes sent.
constexpr uint64_t kReplyLimitMs = 300000;
constexpr uint64_t kFinalReplyLimitMs = 600000;
constexpr uint64_t kSendLimitMs = 300000;
constexpr size_t kSendLimitBytes = 65536;
constexpr uint32_t kLastWordsMs = 1000;
constexpr std::string_view kSecret = "{PasswordOrCredentials}";

// Servers answer in any encoding; the log and the transcript are UTF-8.
std::string readable(std::string_view line) {
    return isValidUtf8(line) ? std::string(line) : std::string(XString::fromAnsi(line).utf8());
}

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

std::string awaited(std::string_view command) {
    return command == "greeting" ? "the greeting" : "the reply to " + stepName(command);
}

}  // namespace

SmtpConnImpl::SmtpConnImpl() : tlsSessions_(std::make_shared<TlsSessionSlot>()) {}

SmtpConnImpl::~SmtpConnImpl() {
    if (!isConnected() || unsettled_) return;
    try {
        LogNull quiet;
        CallContext call(quiet);
        const uint32_t idle = settings.idleTimeoutMs;
        settings.idleTimeoutMs = idle == 0 ? kQuitTimeoutMs : std::min(idle, kQuitTimeoutMs);
        const TotalTimeout limit(call, settings.idleTimeoutMs);
        smtpQuit(call);
        closeSmtpConnection(call);
    } catch (...) {  // no memory left to say goodbye
    }
}

bool SmtpConnImpl::sendCmdToSmtp(CallContext& call, std::string_view command, bool secret) {
    return queueCommand(call.log, command, secret) && sendQueued(call);
}

bool SmtpConnImpl::queueCommand(LogBase& log, std::string_view command, bool secret) {
    lastSent_ = Sent::Nothing;
    if (!socket_) return noConnection(log, secret ? kSecret : command);
    if (!queuedBytes_.append(command)) {
        fail(log, SmtpStatus::Failed, "No memory for a command.");
        return false;
    }
    const std::string shown = secret ? std::string(kSecret) : smtp::shownCommand(readable(command));
    sessionLog_.addCommand(shown);
    queue_.push_back({shown, stepName(secret ? kSecret : command)});
    queuedSecret_ = queuedSecret_ || secret;
    return true;
}

bool SmtpConnImpl::sendQueued(CallContext& call) {
    const LogContextExitor context(call.log, "sendCmdToSmtp");
    const std::vector<QueuedCommand> commands = std::exchange(queue_, {});
    if (commands.empty()) return true;
    if (!socket_) return noConnection(call.log, commands.front().name);
    ioFailure_ = IoFailure::None;
    lastReplyCode_ = 0;
    Failure failure = sendBytes(call, queuedBytes_.bytes());
    const bool sent = !failure;
    lastSent_ = sent ? Sent::All : failure.anySent() ? Sent::Part : Sent::Nothing;
    if (std::exchange(queuedSecret_, false)) plat::wipe(queuedBytes_.data(), queuedBytes_.size());
    queuedBytes_.clear();
    if (sent && call.mustStop()) {
        call.log.logError("Aborted by application callback.");
        failIo(call, Failure(Cause::Aborted), "after " + commands.back().name + " was sent");
        return false;
    }
    for (const QueuedCommand& command : commands) {
        const std::string_view event = sent ? "SmtpCmdSent" : "SmtpCmdSendFailed";
        if (call.monitor) call.monitor->textEvent(event, command.shown);
        call.log.logData(event, command.shown);
    }
    if (sent) return true;
    const bool refused = heardLastWords(call, failure) && lastReplyCode_ >= 400;
    failIo(call, failure, "while sending " + commands.front().name);
    if (refused) outcome_.addToReason("The server's last words: " + lastReply_);
    return false;
}

std::optional<SmtpResponse> SmtpConnImpl::readSmtpResponse(CallContext& call,
                                                           std::string_view command) {
    const LogContextExitor context(call.log, "readSmtpResponse");
    lastReplyCode_ = 0;
    ioFailure_ = IoFailure::None;
    const TotalTimeout limit(call, command == "." ? kFinalReplyLimitMs : kReplyLimitMs,
                             settings.idleTimeoutMs);
    SmtpReplyReader reader(command);
    DataBuffer line;
    while (socket_) {
        line.clear();
        const bool isFirst = reader.reply().lines.empty();
        if (!receiveLine(call, command, isFirst, line)) return std::nullopt;
        noteReplyLine(call, line.text());
        const ReplyState state = reader.addLine(line.text());
        if (state == ReplyState::Complete) return acceptReply(call.log, reader.reply());
        if (state != ReplyState::NeedMore) {
            badReply(call, command, faultOf(state), line.text());
            return std::nullopt;
        }
    }
    noConnection(call.log, awaited(command));
    return std::nullopt;
}

bool SmtpConnImpl::receiveLine(CallContext& call, std::string_view command, bool isFirst,
                               DataBuffer& line) {
    constexpr std::string_view kLineEnd = "\r\n";
    const size_t limit = kMaxReplyLine + kLineEnd.size();
    const Failure failure =
        socket_->receiveUntilMatch(call, line, kLineEnd, limit, settings.idleTimeoutMs);
    if (!failure) return true;
    if (failure.is(Cause::LineTooLong)) {
        badReply(call, command, "has a line of more than 64 KiB", line.text().substr(0, 200));
    } else {
        const std::string begun = unfinishedLine(call);
        const bool silent = command == "greeting" && isFirst && begun.empty();
        failIo(call, failure, "while waiting for " + awaited(command) + begun,
               silent ? adviceForSilence() : std::string());
    }
    return false;
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
    constexpr size_t kShown = 100;
    DataBuffer rest;
    if (!socket_->hasBufferedInput() || socket_->receiveBytes(call, rest, 1)) return {};
    const std::string_view line = trimmed(rest.text().substr(0, kShown));
    return " (a line without its end had come: " + readable(line) + ")";
}

void SmtpConnImpl::noteReplyLine(CallContext& call, std::string_view line) {
    const std::string shown = readable(trimmed(line));
    sessionLog_.addReplyLine(shown);
    if (call.monitor) call.monitor->textEvent("SmtpCmdResp", shown);
    call.log.logData("SmtpCmdResp", shown);
    call.log.logData("smtp.lastResponse", shown);
    smtp::logLineHint(call.log, line);
}

void SmtpConnImpl::badReply(CallContext& call, std::string_view command, std::string_view fault,
                            std::string_view line) {
    if (fault == kNoReply) call.log.logError("Unrecognized response from SMTP server");
    call.log.logData("responseLine", readable(trimmed(line)));
    std::string reason = awaited(command) + " " + std::string(fault) + ".";
    reason[0] = asciiUpper(reason[0]);
    fail(call.log, SmtpStatus::Failed, reason);
    closeSmtpConnection(call);
    ioFailure_ = IoFailure::BadReply;
}

std::optional<SmtpResponse> SmtpConnImpl::acceptReply(LogBase& log, SmtpResponse& reply) {
    lastReplyCode_ = reply.statusCode;
    lastStatus_ = reply.statusCode;
    lastReply_ = readable(reply.finalLine());
    log.logDataVerbose("smtpStatusCode", std::to_string(reply.statusCode));
    log.logDataLong("smtp.lastStatus", reply.statusCode);
    smtp::logReplyHints(log, reply);
    if (reply.statusCode >= 400) sessionLog_.markRefusal();
    touch();
    return std::move(reply);
}

std::optional<SmtpResponse> SmtpConnImpl::smtpSendGet2(CallContext& call,
                                                       std::string_view command) {
    if (!sendCmdToSmtp(call, command, false)) return std::nullopt;
    return readSmtpResponse(call, trimmed(command));
}

bool SmtpConnImpl::smtpNoop(CallContext& call) {
    return smtpSendGet2(call, "NOOP\r\n").has_value();
}

bool SmtpConnImpl::smtpRset(CallContext& call) {
    call.log.logInfo("Sending RSET command.");
    const auto reply = smtpSendGet2(call, "RSET\r\n");
    if (reply && reply->isSuccess()) return true;
    closeSmtpConnection(call);
    return false;
}

void SmtpConnImpl::smtpQuit(CallContext& call) {
    smtpSendGet2(call, "QUIT\r\n");
}

bool SmtpConnImpl::sendData(CallContext& call, std::span<const uint8_t> bytes) {
    if (!socket_) return noConnection(call.log, "the message data");
    const Failure failure = sendBytes(call, bytes);
    if (!failure) return true;
    if (heardLastWords(call, failure)) failEarly(call.log);
    failIo(call, failure, "while sending the message data");
    return false;
}

Failure SmtpConnImpl::sendBytes(CallContext& call, std::span<const uint8_t> bytes) {
    const TotalTimeout limit(call, sendLimitMs(bytes.size()), settings.idleTimeoutMs);
    return socket_->sendBytes(call, bytes, settings.idleTimeoutMs);
}

// Systems exist that drop what has come when a reset follows, and a server that refuses often says
// why and resets: after a write that failed, what is still there to be read counts.
bool SmtpConnImpl::heardLastWords(CallContext& call, const Failure& failure) {
    if (call.wasStopped()) return false;
    // After a time-out they had their time to come.
    const uint32_t idleMs = failure.is(Cause::Timeout) ? 1 : settings.idleTimeoutMs;
    const uint32_t limitMs = idleMs == 0 ? kLastWordsMs : std::min(idleMs, kLastWordsMs);
    const TotalTimeout limit(call, limitMs);
    SmtpReplyReader reader("message data");
    ReplyState state = ReplyState::NeedMore;
    DataBuffer line;
    while (state == ReplyState::NeedMore &&
           !socket_->receiveUntilMatch(call, line, "\r\n", kMaxReplyLine, limitMs)) {
        noteReplyLine(call, line.text());
        state = reader.addLine(line.text());
        line.clear();
    }
    return state == ReplyState::Complete && acceptReply(call.log, reader.reply());
}

void SmtpConnImpl::failEarly(LogBase& log) {
    fail(log, SmtpStatus::DataFailure, "A reply came before the end of the message: " + lastReply_);
}

void SmtpConnImpl::setTcpNoDelay(LogBase& log, bool on) {
    if (socket_) socket_->setTcpNoDelay(log, on);
}

void SmtpConnImpl::clearLastReply() {
    lastStatus_ = 0;
    lastReplyCode_ = 0;
    lastReply_.clear();
}

void SmtpConnImpl::setAuthenticated(bool authenticated) {
    authenticated_ = authenticated;
    touch();
}

void SmtpConnImpl::noteNoLogin(LogBase& log, const std::string& why) {
    noLogin_ = "No login was made: " + why;
    log.logInfo(noLogin_);
}

void SmtpConnImpl::fail(LogBase& log, SmtpStatus status, const std::string& reason) {
    log.logError(reason);
    outcome_.fail(status, reason);
}

bool SmtpConnImpl::noConnection(LogBase& log, std::string_view wanted) {
    log.logError("no connection.");
    outcome_.fail(SmtpStatus::ConnectionLost, "No connection for " + stepName(wanted) + ".");
    ioFailure_ = IoFailure::Lost;
    return false;
}

std::string SmtpConnImpl::timeoutText(const Failure& failure) const {
    if (failure.totalMs() > 0) {
        return "The server was too slow: " + durationText(failure.totalMs()) + " were over";
    }
    return "Nothing moved for " + std::to_string(settings.idleTimeoutMs) + " ms";
}

void SmtpConnImpl::failIo(CallContext& call, const Failure& failure, const std::string& step,
                          const std::string& advice) {
    const std::string end = step + "." + advice;
    closeSmtpConnection(call);
    if (failure.is(Cause::Timeout)) {
        ioFailure_ = IoFailure::Timeout;
        call.log.logDataLong("idleTimeoutMs", settings.idleTimeoutMs);
        fail(call.log, SmtpStatus::Timeout, timeoutText(failure) + " " + end);
    } else if (failure.is(Cause::Aborted) || call.wasStopped()) {
        ioFailure_ = IoFailure::Aborted;
        fail(call.log, SmtpStatus::Aborted, "The application stopped the send " + end);
    } else {
        ioFailure_ = IoFailure::Lost;
        fail(call.log, SmtpStatus::ConnectionLost, "The connection was lost " + end);
    }
}

void SmtpConnImpl::touch() {
    lastActivityTickMs_ = plat::sysClock().tickMs();
}

}  // namespace tv
