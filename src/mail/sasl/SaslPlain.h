// PLAIN (RFC 4616): everything in the initial response.
#pragma once

#include <string>

#include "mail/sasl/Sasl.h"

namespace tv {

class SaslPlain final : public SaslMechanism {
public:
    SaslPlain(std::string user, SecureBuffer password);

    Failure begin(LogBase& log, SaslTurn& turn) override;
    Failure respond(LogBase& log, std::string_view challenge, SaslTurn& turn) override;

private:
    std::string user_;
    SecureBuffer password_;
};

}  // namespace tv
