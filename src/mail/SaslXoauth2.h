// XOAUTH2: an OAuth2 access token in the initial response. A refusal may come as a challenge that
// holds the server's account of the error. In place of the token a description of how to get one
// may be given.
#pragma once

#include <functional>
#include <string>

#include "mail/Sasl.h"

namespace tv {

class SaslXoauth2 final : public SaslMechanism {
public:
    // Gets the token that a description stands for; the reason of a failure is in the log.
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
