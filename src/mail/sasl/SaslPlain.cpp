// The one message: an empty identity, user name and password, parted by NUL.
#include "mail/sasl/SaslPlain.h"

#include "base/Base64.h"

namespace tv {

SaslPlain::SaslPlain(std::string user, SecureBuffer password)
    : SaslMechanism({"PLAIN", "plain", "auth_plain", {}}),
      user_(std::move(user)),
      password_(std::move(password)) {}

Failure SaslPlain::begin(LogBase&, SaslTurn& turn) {
    const bool nulInside = saslText(password_).find('\0') != std::string_view::npos;
    if (user_.empty() || password_.empty() || !saslSendable(user_) || nulInside) {
        return Failure(Cause::NoCredentials);
    }
    SecureBuffer message;
    message.reserve(2 * user_.size() + 2 + password_.size());
    message.append(user_);  // acts for itself
    message.push_back(0);
    message.append(user_);
    message.push_back(0);
    message.append(password_.bytes());
    turn.text = base64EncodeSecret(message.bytes());
    turn.wanted = SaslWanted::Success;
    turn.replyName = "AUTH PLAIN";
    turn.sendFailure = "Failed to send AUTH PLAIN to SMTP server.";
    return {};
}

Failure SaslPlain::respond(LogBase&, std::string_view, SaslTurn&) {
    return Failure(Cause::ChallengeUnanswerable);  // nothing is left to say
}

}  // namespace tv
