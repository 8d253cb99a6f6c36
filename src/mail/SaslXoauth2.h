// XOAUTH2: an OAuth2 access token in the initial response. A refusal may come as a challenge that
// holds the server's account of the error.
#pragma once

#include <string>

#include "mail/Sasl.h"

namespace tv {

class SaslXoauth2 final : public SaslMechanism {
public:
    SaslXoauth2(std::string user, SecureBuffer token);

    SaslResult begin(SaslTurn& turn, LogBase& log) override;
    SaslResult respond(std::string_view challenge, SaslTurn& turn, LogBase& log) override;

private:
    std::string user_;
    SecureBuffer token_;
};

}  // namespace tv
