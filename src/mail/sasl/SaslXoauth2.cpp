// The one message of XOAUTH2, and the empty line that answers an account of the error.
#include "mail/sasl/SaslXoauth2.h"

#include "base/Base64.h"
#include "base/CodePage.h"

namespace tv {
namespace {

constexpr size_t kMaxErrorText = 8192;  // shown in the log
constexpr char kSeparator = '\x01';     // ends each field of the message

bool sendable(std::string_view text) {
    return saslSendable(text) && text.find(kSeparator) == std::string_view::npos;
}

}  // namespace

SaslXoauth2::SaslXoauth2(std::string user, SecureBuffer token, TokenSource source)
    : SaslMechanism({"XOAUTH2", "xoauth2", "auth_xoauth2", {}}),
      user_(std::move(user)),
      token_(std::move(token)),
      source_(std::move(source)) {}

Failure SaslXoauth2::begin(LogBase& log, SaslTurn& turn) {
    if (user_.empty() || token_.empty()) {
        log.logError("Username and/or access token is empty");
        return Failure(Cause::NoCredentials);
    }
    if (Failure failure = source_ ? source_(token_) : Failure()) {
        log.logError("Failed to get SMTP OAuth2 access token by client credentials.");
        return failure;
    }
    const std::string_view token = saslText(token_);
    if (!sendable(user_) || !sendable(token)) return Failure(Cause::NoCredentials);
    log.logData("username", user_);
    SecureBuffer message;
    message.reserve(user_.size() + token.size() + 32);
    message.append("user=");
    message.append(user_);
    message.append("\x01");
    message.append(token.starts_with("Bearer ") ? "auth=" : "auth=Bearer ");
    message.append(token);
    message.append("\x01\x01");
    turn.text = base64EncodeSecret(message.bytes());
    turn.wanted = SaslWanted::SuccessOrError;
    turn.replyName = "AUTH XOAUTH2";
    turn.sendFailure = "Failed to send AUTH XOAUTH2 to SMTP server.";
    return {};
}

// The refusal itself follows once the error was acknowledged with an empty line.
Failure SaslXoauth2::respond(LogBase& log, std::string_view challenge, SaslTurn& turn) {
    const auto error = base64Decode(challenge, kMaxErrorText, Base64Spaces::Skipped);
    if (error) {
        const std::string text(error->begin(), error->end());
        log.logData("xoauth2Error", codePageToUtf8(kCodePageUtf8, text));
    }
    turn.secret = false;
    turn.wanted = SaslWanted::Success;
    turn.replyName = "AUTH XOAUTH2";
    return {};
}

}  // namespace tv
