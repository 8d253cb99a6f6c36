// The two prompts, whatever they ask, and the advice for services that refuse plain passwords.
#include "mail/sasl/SaslLogin.h"

#include "base/Ascii.h"
#include "base/Base64.h"
#include "log/LogContextExitor.h"

namespace tv {
namespace {

constexpr std::string_view kHostedService = "office365.com";

void adviseHostedService(LogBase& log) {
    const LogContextExitor context(log, "office365_tips");
    log.logInfo("Your office365 account might be requiring MFA (multi-factor authentication).");
    log.logInfo(
        "Change your office365 account settings to allow single-factor authentication (allow "
        "legacy authentication).");
    log.logInfo("Also, you may need to create an App password.");
}

}  // namespace

SaslLogin::SaslLogin(std::string user, SecureBuffer password, std::string smtpHost)
    : SaslMechanism({"LOGIN", "login", "auth_login", {}}),
      user_(std::move(user)),
      password_(std::move(password)),
      smtpHost_(std::move(smtpHost)) {}

Failure SaslLogin::begin(LogBase& log, SaslTurn& turn) {
    if (user_.empty() || password_.empty()) {
        log.logError("Username and/or password is empty");
        return Failure(Cause::NoCredentials);
    }
    if (!saslSendable(user_)) return Failure(Cause::NoCredentials);
    if (log.hasOption("ShowPasswordInLastErrorText")) {
        log.logData("login", user_);
        log.logData("password", saslText(password_));
    }
    return bareCommand(turn, "AUTH LOGIN", "AUTH LOGIN failed");
}

// The server's two questions are asked in many languages: only their order counts.
Failure SaslLogin::respond(LogBase&, std::string_view, SaslTurn& turn) {
    if (step_ == Step::Command) {
        step_ = Step::User;
        turn.text.append(std::string_view(base64Encode(user_)));
        turn.secret = false;
        turn.wanted = SaslWanted::ChallengeOrSuccess;
        turn.replyName = "AUTH LOGIN username";
        turn.refusal = "SMTP authentication failed after sending username.";
        return {};
    }
    step_ = Step::Password;
    turn.text = base64EncodeSecret(password_.bytes());
    turn.wanted = SaslWanted::Success;
    turn.replyName = "AUTH LOGIN password";
    turn.refusal = "SMTP authentication failed after sending password.";
    return {};
}

void SaslLogin::explainRefusal(LogBase& log, std::string_view) {
    if (step_ == Step::Command) return;
    if (step_ == Step::Password && findIgnoreCase(smtpHost_, kHostedService) != std::string::npos) {
        adviseHostedService(log);
    }
    log.logInfo("Check your username/password or your SMTP server's auth settings");
}

}  // namespace tv
