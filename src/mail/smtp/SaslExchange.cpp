// The loop between mechanism and server: which reply codes mean "go on", and how an exchange that
// nobody can finish is called off.
#include "mail/smtp/SaslExchange.h"

#include <algorithm>
#include <optional>

#include "base/Ascii.h"
#include "log/LogContextExitor.h"
#include "mail/smtp/SmtpConnImpl.h"

namespace tv {
namespace {

// More turns than any mechanism has; a server may not keep a package talking for ever.
constexpr size_t kMaxTurns = 12;
constexpr int32_t kChallengeCode = 334;

enum class Verdict { GoOn, Success, Refused };

Verdict judge(const SmtpResponse& reply, SaslWanted wanted) {
    const bool challenge = reply.statusCode == kChallengeCode;
    switch (wanted) {
        case SaslWanted::Challenge:
            return challenge ? Verdict::GoOn : Verdict::Refused;
        case SaslWanted::ChallengeOrSuccess:
            return challenge || reply.isSuccess() ? Verdict::GoOn : Verdict::Refused;
        case SaslWanted::SuccessOrError:
            if (challenge) return Verdict::GoOn;
            return reply.isSuccess() ? Verdict::Success : Verdict::Refused;
        case SaslWanted::Success:
            return reply.isSuccess() ? Verdict::Success : Verdict::Refused;
        case SaslWanted::Success235:
            return reply.statusCode == 235 ? Verdict::Success : Verdict::Refused;
    }
    return Verdict::Refused;
}

class SaslExchange {
public:
    SaslExchange(CallContext& call, SaslMechanism& mechanism, SmtpConnImpl& connection)
        : mechanism_(mechanism), connection_(connection), call_(call) {}

    SaslOutcome run() {
        const LogContextExitor context(call_.log, mechanism_.names().context);
        outcome_.success = converse();
        const std::string_view failure = mechanism_.names().failure;
        if (!outcome_.success && !failure.empty()) call_.log.logError(failure);
        return outcome_;
    }

private:
    bool converse();
    bool isReady(SaslResult result);
    std::optional<SmtpResponse> sendAndRead(const SaslTurn& turn);
    bool send(const SaslTurn& turn);
    void refused(const SaslTurn& turn, const SmtpResponse& reply);
    void authFailure(const std::string& reason);
    void cancelIfAsked();

    SaslMechanism& mechanism_;
    SmtpConnImpl& connection_;
    CallContext& call_;
    SaslOutcome outcome_;
    bool commandSent_ = false;
    bool serverWaits_ = false;  // its last reply was a challenge
};

bool SaslExchange::converse() {
    call_.log.logDataX("smtpAuth.user", connection_.settings.userName);
    call_.log.logData("smtpAuth.method", mechanism_.names().method);
    std::string challenge;
    for (size_t i = 0; i < kMaxTurns; ++i) {
        SaslTurn turn;
        const SaslResult result = commandSent_ ? mechanism_.respond(call_.log, challenge, turn)
                                               : mechanism_.begin(call_.log, turn);
        if (!isReady(result)) return false;
        std::optional<LogContextExitor> context;
        if (!turn.context.empty()) context.emplace(call_.log, turn.context);
        const auto reply = sendAndRead(turn);
        if (!reply) return false;
        const Verdict verdict = judge(*reply, turn.wanted);
        if (verdict == Verdict::Success) {
            if (!turn.success.empty()) call_.log.logInfo(turn.success);
            return true;
        }
        if (verdict == Verdict::Refused) {
            refused(turn, *reply);
            return false;
        }
        const std::string_view line = trimmed(outcome_.firstReplyLine);
        challenge = trimmed(line.substr(std::min<size_t>(4, line.size())));
    }
    authFailure("The server asks for more and more.");
    cancelIfAsked();
    return false;
}

// Otherwise notes the failure and leaves no exchange open.
bool SaslExchange::isReady(SaslResult result) {
    const std::string name(mechanism_.names().auth);
    switch (result) {
        case SaslResult::Send:
            return true;
        case SaslResult::NoCredentials:
            connection_.fail(call_.log, SmtpStatus::NoCredentials,
                             "A credential that " + name + " needs is missing or not usable.");
            break;
        case SaslResult::Unavailable:
            outcome_.unavailable = true;
            break;
        case SaslResult::Failed:
            authFailure("The login by " + name + " could not go on.");
            break;
    }
    cancelIfAsked();
    return false;
}

std::optional<SmtpResponse> SaslExchange::sendAndRead(const SaslTurn& turn) {
    outcome_.firstReplyLine.clear();
    serverWaits_ = false;
    if (!send(turn)) {
        if (!turn.sendFailure.empty()) call_.log.logError(turn.sendFailure);
        return std::nullopt;
    }
    auto reply = connection_.readSmtpResponse(call_, turn.replyName);
    if (!reply) return std::nullopt;
    serverWaits_ = reply->statusCode == kChallengeCode;
    outcome_.firstReplyLine = reply->lines.front();
    return reply;
}

bool SaslExchange::send(const SaslTurn& turn) {
    SecureBuffer line;
    line.reserve(turn.text.size() + 32);
    if (!commandSent_) {
        line.append("AUTH ");
        line.append(mechanism_.names().auth);
        if (!turn.text.empty()) line.append(" ");
    }
    commandSent_ = true;
    line.append(turn.text.bytes());
    line.append("\r\n");
    if (turn.wanted == SaslWanted::Challenge) call_.log.logDataVerbose("expectedNumber", "334");
    if (turn.wanted == SaslWanted::Success235) call_.log.logDataVerbose("expectedNumber", "235");
    return connection_.sendCmdToSmtp(call_, saslText(line), turn.secret);
}

void SaslExchange::refused(const SaslTurn& turn, const SmtpResponse& reply) {
    if (!turn.refusal.empty()) call_.log.logError(turn.refusal);
    call_.log.logDataLong("smtpAuth.statusCode", reply.statusCode);
    const std::string answer = connection_.lastReply();
    authFailure("The server refused the login by " + std::string(mechanism_.names().auth) + ": " +
                answer);
    mechanism_.explainRefusal(call_.log, answer);
    cancelIfAsked();
}

void SaslExchange::authFailure(const std::string& reason) {
    connection_.fail(call_.log, SmtpStatus::AuthFailure, reason);
    call_.log.logData("smtpAuth.error", statusWord(SmtpStatus::AuthFailure));
}

// RFC 4954 section 4: "*" ends an exchange that the server wants to go on with; its refusal of that
// is as expected.
void SaslExchange::cancelIfAsked() {
    if (!serverWaits_) return;
    serverWaits_ = false;
    if (connection_.sendCmdToSmtp(call_, "*\r\n", false)) {
        connection_.readSmtpResponse(call_, "*");
    }
}

}  // namespace

SaslOutcome runSasl(CallContext& call, SaslMechanism& mechanism, SmtpConnImpl& connection) {
    return SaslExchange(call, mechanism, connection).run();
}

}  // namespace tv
