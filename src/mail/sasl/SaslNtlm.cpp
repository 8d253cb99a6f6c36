// First message, challenge, answer; and what a refusal most often means.
#include "mail/sasl/SaslNtlm.h"

#include "platform/SysHost.h"

namespace tv {

SaslNtlm::SaslNtlm(const XString& user, const XString& password, const XString& domain,
                   int32_t version)
    : SaslMechanism({"NTLM", "ntlm", "auth_ntlm", "NTLM authentication failed"}),
      user_(user),
      password_(password),
      domain_(domain),
      version_(version) {}

void SaslNtlm::bindTo(std::span<const uint8_t> channelBinding) {
    ntlm_.put_ChannelBinding(channelBinding);
}

Failure SaslNtlm::begin(LogBase&, SaslTurn& turn) {
    if (user_.empty() || password_.empty() || !saslSendable(user_.utf8())) {
        return Failure(Cause::NoCredentials);
    }
    return bareCommand(turn, "AUTH NTLM", "AUTH NTLM failed");
}

Failure SaslNtlm::respond(LogBase& log, std::string_view challenge, SaslTurn& turn) {
    return step_ == Step::Command ? sendType1(log, turn) : sendType3(log, challenge, turn);
}

Failure SaslNtlm::sendType1(LogBase& log, SaslTurn& turn) {
    step_ = Step::Type1;
    log.logInfo("Using Tolvane NTLM...");
    const XString computer(plat::sysHost().computerName());
    log.logDataX("computerName", computer);
    ntlm_.put_UserName(user_);
    ntlm_.put_Password(password_);
    ntlm_.put_Domain(domain_);
    ntlm_.put_Workstation(computer);
    ntlm_.put_NtlmVersion(version_);
    if (!domain_.empty()) log.logDataX("smtpAuth.domain", domain_);
    log.logData("smtpAuth.ntlmImpl", "tolvane");
    log.logDataLong("smtpAuth.ntlmVersion", version_);
    log.logDataX("smtpAuth.computerName", computer);
    std::string message;
    if (!ntlm_.genType1(log, message)) return Failure(Cause::ChallengeUnanswerable);
    turn.text.append(std::string_view(message));
    turn.secret = false;
    turn.wanted = SaslWanted::Challenge;
    turn.replyName = "NTLM TYPE1";
    turn.sendFailure = "Failed to send NTLM TYPE1 message to SMTP server.";
    turn.refusal = "Failed to get NTLM successful TYPE1 response from SMTP server.";
    return {};
}

Failure SaslNtlm::sendType3(LogBase& log, std::string_view challenge, SaslTurn& turn) {
    step_ = Step::Type3;
    log.logData("NtlmChallenge", challenge);
    if (!ntlm_.genType3(log, challenge, turn.text)) return Failure(Cause::ChallengeUnanswerable);
    turn.wanted = SaslWanted::Success235;
    turn.replyName = "NTLM TYPE3";
    turn.success = "NTLM authentication succeeded.";
    turn.sendFailure = "Failed to send NTLM TYPE3 message to SMTP server.";
    return {};
}

void SaslNtlm::explainRefusal(LogBase& log, std::string_view reply) {
    if (step_ != Step::Type3) return;
    log.logData("response", reply);
    log.logError("Logon denied.  Check username, password, and domain");
}

}  // namespace tv
