// XOAUTH2: an OAuth2 access token in the initial response. A refusal may come as a challenge that
// holds the server's account of the error.
#pragma once

#include <functional>
#include <string>

#include "mail/sasl/Sasl.h"

namespace tv {

class SaslXoauth2 final : public SaslMechanism {
public:
    // Puts the token that a description stands for in its place; the reason of a failure is in the
    // log. None where the token was given itself.
    using TokenSource = std::function<bool(SecureBuffer& token, LogBase& log)>;

    SaslXoauth2(std::string user, SecureBuffer token, TokenSource source);

    SaslResult begin(SaslTurn& turn, LogBase& log) override;
    SaslResult respond(std::string_view challenge, SaslTurn& turn, LogBase& log) override;

private:
    std::string user_;
    SecureBuffer token_;
    TokenSource source_;
};

}  // namespace tv
