// The one response: user name and keyed digest of the challenge.
#include "mail/sasl/SaslCramMd5.h"

#include "base/Base64.h"
#include "base/Hex.h"
#include "base/crypto/Hmac.h"
#include "platform/SysWipe.h"

namespace tv {
namespace {

constexpr size_t kMaxChallenge = 65536;  // as much as a reply line holds

}  // namespace

SaslCramMd5::SaslCramMd5(std::string user, SecureBuffer password)
    : SaslMechanism({"CRAM-MD5", "cram-md5", "auth_cram_md5", {}}),
      user_(std::move(user)),
      password_(std::move(password)) {}

Failure SaslCramMd5::begin(LogBase&, SaslTurn& turn) {
    if (user_.empty() || password_.empty() || !saslSendable(user_)) {
        return Failure(Cause::NoCredentials);
    }
    return bareCommand(turn, "AUTH CRAM-MD5", "AUTH CRAM-MD5 failed");
}

Failure SaslCramMd5::respond(LogBase& log, std::string_view challenge, SaslTurn& turn) {
    const auto bytes = base64Decode(challenge, kMaxChallenge, Base64Spaces::Skipped);
    if (!bytes) {
        log.logError("The challenge of the server is no base64 text.");
        return Failure(Cause::ChallengeUnanswerable);
    }
    const auto mac = crypto::Hmac::of(crypto::HashId::kMd5, password_.bytes(), *bytes);
    std::string digits = hexLower(mac);
    SecureBuffer message;
    message.reserve(user_.size() + 1 + digits.size());
    message.append(user_);
    message.append(" ");
    message.append(digits);
    plat::wipe(digits.data(), digits.size());
    turn.text = base64EncodeSecret(message.bytes());
    turn.wanted = SaslWanted::Success;
    turn.replyName = "AUTH CRAM-MD5";
    turn.sendFailure = "Failed to send CRAM-MD5 response";
    return {};
}

}  // namespace tv
