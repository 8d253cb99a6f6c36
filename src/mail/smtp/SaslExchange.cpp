// The loop between mechanism and server: which reply codes mean "go on", and how an exchange that
// nobody can finish is called off.
#include "mail/smtp/SaslExchange.h"

#include <algorithm>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

#include "base/Ascii.h"
#include "log/LogContextExitor.h"
#include "mail/smtp/SmtpConnImpl.h"
#include "mail/smtp/SmtpFailure.h"

namespace tv {
namespace {

// More turns than any mechanism has; a server may not keep a package talking for ever.
constexpr size_t kMaxTurns = 12;
constexpr int32_t kChallengeCode = 334;  // RFC 4954 section 4

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

    Failure run() {
        const LogContextExitor context(call_.log, mechanism_.names().context);
        Failure failure = converse();
        const std::string_view last = mechanism_.names().failure;
        if (failure && !last.empty()) call_.log.logError(last);
        return std::move(failure).at(Stage::Login);
    }

private:
    Failure converse();
    Failure notReady(Failure failure);
    Failure sendAndRead(const SaslTurn& turn, SmtpResponse& reply);
    Failure send(const SaslTurn& turn);
    Failure refused(const SaslTurn& turn, const SmtpResponse& reply);
    void noteAuthFailure() { call_.log.logData("smtpAuth.error", statusWord(Cause::AuthFailure)); }
    Failure cancelIfAsked();

    SaslMechanism& mechanism_;
    SmtpConnImpl& connection_;
    CallContext& call_;
    bool commandSent_ = false;
    bool serverWaits_ = false;  // its last reply was a challenge
};

Failure SaslExchange::converse() {
    call_.log.logDataX("smtpAuth.user", connection_.settings.userName);
    call_.log.logData("smtpAuth.method", mechanism_.names().method);
    std::string challenge;
    for (size_t i = 0; i < kMaxTurns; ++i) {
        SaslTurn turn;
        Failure failure = commandSent_ ? mechanism_.respond(call_.log, challenge, turn)
                                       : mechanism_.begin(call_.log, turn);
        if (failure) return notReady(std::move(failure));
        std::optional<LogContextExitor> context;
        if (!turn.context.empty()) context.emplace(call_.log, turn.context);
        SmtpResponse reply;
        failure = sendAndRead(turn, reply);
        if (failure) return failure;
        const Verdict verdict = judge(reply, turn.wanted);
        if (verdict == Verdict::Success) {
            if (!turn.success.empty()) call_.log.logInfo(turn.success);
            return {};
        }
        if (verdict == Verdict::Refused) return refused(turn, reply);
        const std::string_view line = trimmed(reply.lines.front());
        challenge = trimmed(line.substr(std::min<size_t>(4, line.size())));
    }
    Failure failure = fail(call_.log, Cause::AuthFailure, "The server asks for more and more.");
    noteAuthFailure();
    std::ignore = cancelIfAsked();
    return failure;
}

// The mechanism has nothing to send. No exchange stays open.
Failure SaslExchange::notReady(Failure failure) {
    if (failure.is(Cause::MechanismUnavailable)) {
        // Where the connection goes as well, no other mechanism can serve.
        Failure lost = cancelIfAsked();
        return lost ? std::move(lost) : std::move(failure);
    }
    const std::string name(mechanism_.names().auth);
    if (failure.is(Cause::NoCredentials)) {
        failure = fail(call_.log, Cause::NoCredentials,
                       "A credential that " + name + " needs is missing or not usable.");
    } else {
        failure = fail(call_.log, Cause::AuthFailure, "The login by " + name + " could not go on.")
                      .at(Stage::Login)
                      .because(failure);
        noteAuthFailure();
    }
    std::ignore = cancelIfAsked();
    return failure;
}

Failure SaslExchange::sendAndRead(const SaslTurn& turn, SmtpResponse& reply) {
    serverWaits_ = false;
    if (Failure failure = send(turn)) {
        if (!turn.sendFailure.empty()) call_.log.logError(turn.sendFailure);
        return failure;
    }
    Failure failure = connection_.readSmtpResponse(call_, turn.replyName, reply);
    serverWaits_ = !failure && reply.statusCode == kChallengeCode;
    return failure;
}

Failure SaslExchange::send(const SaslTurn& turn) {
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

Failure SaslExchange::refused(const SaslTurn& turn, const SmtpResponse& reply) {
    if (!turn.refusal.empty()) call_.log.logError(turn.refusal);
    call_.log.logDataLong("smtpAuth.statusCode", reply.statusCode);
    const std::string name(mechanism_.names().auth);
    Failure failure = smtp::refused(call_.log, Cause::AuthFailure,
                                    "The server refused the login by " + name + ": ", reply);
    noteAuthFailure();
    mechanism_.explainRefusal(call_.log, reply.shownFinalLine());
    std::ignore = cancelIfAsked();
    return failure;
}

// RFC 4954 section 4: "*" ends an exchange that the server wants to go on with; its refusal of that
// is as expected, no reply to it is a failure, which counts where none came before.
Failure SaslExchange::cancelIfAsked() {
    if (!serverWaits_) return {};
    serverWaits_ = false;
    SmtpResponse reply;
    return connection_.smtpSendGet2(call_, "*\r\n", reply);
}

}  // namespace

Failure runSasl(CallContext& call, SaslMechanism& mechanism, SmtpConnImpl& connection) {
    return SaslExchange(call, mechanism, connection).run();
}

}  // namespace tv
