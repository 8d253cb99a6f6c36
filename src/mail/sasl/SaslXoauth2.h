// XOAUTH2: an OAuth2 access token in the initial response. A refusal may come as a challenge that
// holds the server's account of the error.
#pragma once

#include <functional>
#include <string>

#include "mail/sasl/Sasl.h"

namespace tv {

class SaslXoauth2 final : public SaslMechanism {
public:
    // Puts the token that a description stands for in its place. None where the token was given
    // itself.
    using TokenSource = std::function<Failure(SecureBuffer& token)>;

    SaslXoauth2(std::string user, SecureBuffer token, TokenSource source);

    Failure begin(LogBase& log, SaslTurn& turn) override;
    Failure respond(LogBase& log, std::string_view challenge, SaslTurn& turn) override;

private:
    std::string user_;
    SecureBuffer token_;
    TokenSource source_;
};

}  // namespace tv
