// Tokens from the package to the server and back, until the package says that it is done.
#include "mail/sasl/SaslPackage.h"

#include <string>
#include <vector>

#include "base/Ascii.h"
#include "base/Base64.h"
#include "log/LogContextExitor.h"
#include "mail/sasl/NtlmVersion.h"
#include "platform/SysHost.h"
#include "platform/SysWipe.h"

namespace tv {
namespace {

constexpr size_t kMaxToken = 65536;  // as much as a reply line holds

const SaslMechanism::Names& namesOf(SaslPackage::Package package) {
    static constexpr SaslMechanism::Names kNtlm = {"NTLM", "ntlm", "auth_ntlm",
                                                   "NTLM authentication failed"};
    static constexpr SaslMechanism::Names kMsn = {"MSN", "msn", "auth_msn",
                                                  "MSN authentication failed"};
    return package == SaslPackage::Package::Ntlm ? kNtlm : kMsn;
}

}  // namespace

SaslPackage::SaslPackage(Package package, const XString& user, const XString& password,
                         const XString& domain, const XString& smtpHost)
    : SaslMechanism(namesOf(package)),
      package_(package),
      user_(user),
      password_(password),
      domain_(domain),
      smtpHost_(smtpHost) {}

Failure SaslPackage::begin(LogBase& log, SaslTurn& turn) {
    if (user_.empty() || password_.empty()) return Failure(Cause::NoCredentials);
    if (package_ == Package::Ntlm) return bareCommand(turn, "AUTH NTLM", "AUTH NTLM failed");
    if (!openPackage(log)) return Failure(Cause::MechanismUnavailable);
    return bareCommand(turn, "AUTH MSN", "AUTH MSN failed");
}

Failure SaslPackage::respond(LogBase& log, std::string_view challenge, SaslTurn& turn) {
    if (!exchange_) {
        log.logInfo("Using Microsoft SSPI NTLM.");
        if (!openPackage(log)) return Failure(Cause::MechanismUnavailable);
    }
    const LogContextExitor context(log, "sspiAuthenticate");
    if (!tokenSent_) {
        tokenSent_ = true;
        return nextToken(log, {}, turn);
    }
    const auto bytes = base64Decode(challenge, kMaxToken, Base64Spaces::Skipped);
    if (!bytes) {
        log.logError("The challenge of the server is no base64 text.");
        return Failure(Cause::ChallengeUnanswerable);
    }
    return nextToken(log, *bytes, turn);
}

bool SaslPackage::openPackage(LogBase& log) {
    plat::SecurityIdentity identity;
    const std::string_view user = trimmed(user_.utf8());
    const bool loggedOn = user.empty() || equalsIgnoreCase(user, "default");
    if (!loggedOn) identity = {user_.utf8(), password_.utf8(), domain_.utf8()};
    std::string error;
    exchange_ = plat::sysSecurity().begin(names().auth, "SMTP/" + std::string(smtpHost_.utf8()),
                                          loggedOn ? nullptr : &identity, error);
    if (!exchange_) {
        log.logInfo("The security package of the system is not available.");
        log.logData("securityPackage", error);
        return false;
    }
    if (!domain_.empty()) log.logDataX("smtpAuth.domain", domain_);
    log.logData("smtpAuth.ntlmImpl", "microsoftSspi");
    log.logDataLong("smtpAuth.ntlmVersion", defaultNtlmVersion());
    log.logData("smtpAuth.computerName", plat::sysHost().computerName());
    return true;
}

Failure SaslPackage::nextToken(LogBase& log, std::span<const uint8_t> challenge, SaslTurn& turn) {
    using State = plat::SecurityExchange::State;
    std::vector<uint8_t> token;
    std::string error;
    const State state = exchange_->next(challenge, token, error);
    if (state == State::Failed) {
        log.logError("The security package of the system cannot answer.");
        log.logData("securityPackage", error);
        return Failure(Cause::ChallengeUnanswerable);
    }
    turn.text = base64EncodeSecret(token);
    plat::wipe(token.data(), token.size());
    turn.secret = !challenge.empty();  // the first token only offers
    const bool last = state == State::Done;
    turn.wanted = last ? SaslWanted::Success : SaslWanted::Challenge;
    turn.replyName = last ? "sendFinal" : "exchangePackage";
    turn.context = last ? "NtlmSendFinal" : "NtlmExchangePackage";
    turn.sendFailure = last ? "sendFinal: failed to send package on socket"
                            : "exchangePackage: failed to send package on socket";
    turn.refusal = last ? "Logon denied.  Check username, password, and domain"
                        : "exchangePackage: failed to get success response";
    return {};
}

}  // namespace tv
