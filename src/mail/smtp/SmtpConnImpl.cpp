// Commands, replies and message data on the open connection, and why they did not go through.
// Connecting and greeting stand in the sources beside this one.
#include "mail/smtp/SmtpConnImpl.h"

#include <algorithm>
#include <utility>

#include "base/Ascii.h"
#include "base/CodePage.h"
#include "log/LogContextExitor.h"
#include "log/LogNull.h"
#include "mail/smtp/ReplyHints.h"
#include "mail/smtp/SmtpCommand.h"
#include "net/stream/WholeLimit.h"
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

SmtpConnImpl::~SmtpConnImpl() {
    if (!isConnected() || unsettled_) return;
    try {
        LogNull log;
        SocketParams params;
        const uint32_t idle = settings.idleTimeoutMs;
        settings.idleTimeoutMs = idle == 0 ? kQuitTimeoutMs : std::min(idle, kQuitTimeoutMs);
        const WholeLimit limit(params, settings.idleTimeoutMs);
        smtpQuit(log, params);
        closeSmtpConnection(log, params);
    } catch (...) {  // no memory left to say goodbye
    }
}

bool SmtpConnImpl::sendCmdToSmtp(std::string_view command, bool secret, LogBase& log,
                                 SocketParams& params) {
    return queueCommand(command, secret, log) && sendQueued(log, params);
}

bool SmtpConnImpl::queueCommand(std::string_view command, bool secret, LogBase& log) {
    lastSent_ = Sent::Nothing;
    if (!socket_) return noConnection(secret ? kSecret : command, log);
    if (!queuedBytes_.append(command)) {
        fail(SmtpStatus::Failed, "No memory for a command.", log);
        return false;
    }
    const std::string shown = secret ? std::string(kSecret) : smtp::shownCommand(readable(command));
    sessionLog_.addCommand(shown);
    queue_.push_back({shown, stepName(secret ? kSecret : command)});
    queuedSecret_ = queuedSecret_ || secret;
    return true;
}

bool SmtpConnImpl::sendQueued(LogBase& log, SocketParams& params) {
    const LogContextExitor context(log, "sendCmdToSmtp");
    const std::vector<QueuedCommand> commands = std::exchange(queue_, {});
    if (commands.empty()) return true;
    if (!socket_) return noConnection(commands.front().name, log);
    params.timedOut = false;
    ioFailure_ = IoFailure::None;
    lastReplyCode_ = 0;
    const bool sent = sendBytes(queuedBytes_.bytes(), params, log);
    lastSent_ = sent ? Sent::All : params.anySent ? Sent::Part : Sent::Nothing;
    if (std::exchange(queuedSecret_, false)) plat::wipe(queuedBytes_.data(), queuedBytes_.size());
    queuedBytes_.clear();
    if (sent && params.checkAbort()) {
        log.logError("Aborted by application callback.");
        failIo("after " + commands.back().name + " was sent", params, log);
        return false;
    }
    for (const QueuedCommand& command : commands) {
        const std::string_view event = sent ? "SmtpCmdSent" : "SmtpCmdSendFailed";
        if (params.monitor) params.monitor->textEvent(event, command.shown);
        log.logData(event, command.shown);
    }
    if (sent) return true;
    const bool refused = heardLastWords(params, log) && lastReplyCode_ >= 400;
    failIo("while sending " + commands.front().name, params, log);
    if (refused) outcome_.addToReason("The server's last words: " + lastReply_);
    return false;
}

std::optional<SmtpResponse> SmtpConnImpl::readSmtpResponse(std::string_view command,
                                                           SocketParams& params, LogBase& log) {
    const LogContextExitor context(log, "readSmtpResponse");
    lastReplyCode_ = 0;
    ioFailure_ = IoFailure::None;
    const WholeLimit limit(params, command == "." ? kFinalReplyLimitMs : kReplyLimitMs,
                           settings.idleTimeoutMs);
    SmtpReplyReader reader(command);
    DataBuffer line;
    while (socket_) {
        line.clear();
        const bool isFirst = reader.reply().lines.empty();
        if (!receiveLine(command, isFirst, line, params, log)) return std::nullopt;
        noteReplyLine(line.text(), params, log);
        const ReplyState state = reader.addLine(line.text());
        if (state == ReplyState::Complete) return acceptReply(reader.reply(), log);
        if (state != ReplyState::NeedMore) {
            badReply(command, faultOf(state), line.text(), params, log);
            return std::nullopt;
        }
    }
    noConnection(awaited(command), log);
    return std::nullopt;
}

bool SmtpConnImpl::receiveLine(std::string_view command, bool isFirst, DataBuffer& line,
                               SocketParams& params, LogBase& log) {
    constexpr std::string_view kLineEnd = "\r\n";
    const size_t limit = kMaxReplyLine + kLineEnd.size();
    params.timedOut = false;
    if (socket_->receiveUntilMatch(line, kLineEnd, limit, settings.idleTimeoutMs, log, params)) {
        return true;
    }
    if (line.size() >= limit) {
        badReply(command, "has a line of more than 64 KiB", line.text().substr(0, 200), params,
                 log);
    } else {
        const std::string begun = unfinishedLine(params, log);
        const bool silent = command == "greeting" && isFirst && begun.empty();
        failIo("while waiting for " + awaited(command) + begun, params, log,
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
std::string SmtpConnImpl::unfinishedLine(SocketParams& params, LogBase& log) {
    constexpr size_t kShown = 100;
    DataBuffer rest;
    if (!socket_->hasBufferedInput() || !socket_->receiveBytes(rest, 1, log, params)) return {};
    const std::string_view line = trimmed(rest.text().substr(0, kShown));
    return " (a line without its end had come: " + readable(line) + ")";
}

void SmtpConnImpl::noteReplyLine(std::string_view line, SocketParams& params, LogBase& log) {
    const std::string shown = readable(trimmed(line));
    sessionLog_.addReplyLine(shown);
    if (params.monitor) params.monitor->textEvent("SmtpCmdResp", shown);
    log.logData("SmtpCmdResp", shown);
    log.logData("smtp.lastResponse", shown);
    smtp::logLineHint(line, log);
}

void SmtpConnImpl::badReply(std::string_view command, std::string_view fault, std::string_view line,
                            SocketParams& params, LogBase& log) {
    if (fault == kNoReply) log.logError("Unrecognized response from SMTP server");
    log.logData("responseLine", readable(trimmed(line)));
    std::string reason = awaited(command) + " " + std::string(fault) + ".";
    reason[0] = asciiUpper(reason[0]);
    fail(SmtpStatus::Failed, reason, log);
    closeSmtpConnection(log, params);
    ioFailure_ = IoFailure::BadReply;
}

std::optional<SmtpResponse> SmtpConnImpl::acceptReply(SmtpResponse& reply, LogBase& log) {
    lastReplyCode_ = reply.statusCode;
    lastStatus_ = reply.statusCode;
    lastReply_ = readable(reply.finalLine());
    log.logDataVerbose("smtpStatusCode", std::to_string(reply.statusCode));
    log.logDataLong("smtp.lastStatus", reply.statusCode);
    smtp::logReplyHints(reply, log);
    if (reply.statusCode >= 400) sessionLog_.markRefusal();
    touch();
    return std::move(reply);
}

std::optional<SmtpResponse> SmtpConnImpl::smtpSendGet2(std::string_view command,
                                                       SocketParams& params, LogBase& log) {
    if (!sendCmdToSmtp(command, false, log, params)) return std::nullopt;
    return readSmtpResponse(trimmed(command), params, log);
}

bool SmtpConnImpl::smtpNoop(LogBase& log, SocketParams& params) {
    return smtpSendGet2("NOOP\r\n", params, log).has_value();
}

bool SmtpConnImpl::smtpRset(LogBase& log, SocketParams& params) {
    log.logInfo("Sending RSET command.");
    const auto reply = smtpSendGet2("RSET\r\n", params, log);
    if (reply && reply->isSuccess()) return true;
    closeSmtpConnection(log, params);
    return false;
}

void SmtpConnImpl::smtpQuit(LogBase& log, SocketParams& params) {
    smtpSendGet2("QUIT\r\n", params, log);
}

bool SmtpConnImpl::sendData(std::span<const uint8_t> bytes, SocketParams& params, LogBase& log) {
    if (!socket_) return noConnection("the message data", log);
    params.timedOut = false;
    if (sendBytes(bytes, params, log)) return true;
    if (heardLastWords(params, log)) failEarly(log);
    failIo("while sending the message data", params, log);
    return false;
}

bool SmtpConnImpl::sendBytes(std::span<const uint8_t> bytes, SocketParams& params, LogBase& log) {
    const WholeLimit limit(params, sendLimitMs(bytes.size()), settings.idleTimeoutMs);
    return socket_->sendBytes(bytes, settings.idleTimeoutMs, log, params);
}

// Systems exist that drop what has come when a reset follows, and a server that refuses often says
// why and resets: after a write that failed, what is still there to be read counts.
bool SmtpConnImpl::heardLastWords(SocketParams& params, LogBase& log) {
    if (params.aborted) return false;
    const bool timedOut = params.timedOut;
    const uint32_t idleMs = timedOut ? 1 : settings.idleTimeoutMs;  // they had their time to come
    const uint32_t limitMs = idleMs == 0 ? kLastWordsMs : std::min(idleMs, kLastWordsMs);
    const WholeLimit limit(params, limitMs);
    const uint64_t overranMs = params.overranMs;
    SmtpReplyReader reader("message data");
    ReplyState state = ReplyState::NeedMore;
    DataBuffer line;
    while (state == ReplyState::NeedMore &&
           socket_->receiveUntilMatch(line, "\r\n", kMaxReplyLine, limitMs, log, params)) {
        noteReplyLine(line.text(), params, log);
        state = reader.addLine(line.text());
        line.clear();
    }
    params.timedOut = timedOut;
    params.overranMs = overranMs;
    return state == ReplyState::Complete && acceptReply(reader.reply(), log);
}

void SmtpConnImpl::failEarly(LogBase& log) {
    fail(SmtpStatus::DataFailure, "A reply came before the end of the message: " + lastReply_, log);
}

void SmtpConnImpl::setTcpNoDelay(bool on, LogBase& log) {
    if (socket_) socket_->setTcpNoDelay(on, log);
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

void SmtpConnImpl::noteNoLogin(const std::string& why, LogBase& log) {
    noLogin_ = "No login was made: " + why;
    log.logInfo(noLogin_);
}

void SmtpConnImpl::fail(SmtpStatus status, const std::string& reason, LogBase& log) {
    log.logError(reason);
    outcome_.fail(status, reason);
}

bool SmtpConnImpl::noConnection(std::string_view wanted, LogBase& log) {
    log.logError("no connection.");
    outcome_.fail(SmtpStatus::ConnectionLost, "No connection for " + stepName(wanted) + ".");
    ioFailure_ = IoFailure::Lost;
    return false;
}

std::string SmtpConnImpl::timeoutText(const SocketParams& params) const {
    if (params.overranMs > 0) {
        return "The server was too slow: " + durationText(params.overranMs) + " were over";
    }
    return "Nothing moved for " + std::to_string(settings.idleTimeoutMs) + " ms";
}

void SmtpConnImpl::failIo(const std::string& step, SocketParams& params, LogBase& log,
                          const std::string& advice) {
    const std::string end = step + "." + advice;
    const bool timedOut = params.timedOut;
    const bool aborted = params.aborted;
    closeSmtpConnection(log, params);
    if (timedOut) {
        ioFailure_ = IoFailure::Timeout;
        log.logDataLong("idleTimeoutMs", settings.idleTimeoutMs);
        fail(SmtpStatus::Timeout, timeoutText(params) + " " + end, log);
    } else if (aborted) {
        ioFailure_ = IoFailure::Aborted;
        fail(SmtpStatus::Aborted, "The application stopped the send " + end, log);
    } else {
        ioFailure_ = IoFailure::Lost;
        fail(SmtpStatus::ConnectionLost, "The connection was lost " + end, log);
    }
    params.timedOut = timedOut;
    params.aborted = aborted;
}

void SmtpConnImpl::touch() {
    lastActivityTickMs_ = plat::sysClock().tickMs();
}

}  // namespace tv
