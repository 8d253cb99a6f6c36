// CRAM-MD5 (RFC 2195): proves the password without showing it.
#pragma once

#include <string>

#include "mail/sasl/Sasl.h"

namespace tv {

class SaslCramMd5 final : public SaslMechanism {
public:
    SaslCramMd5(std::string user, SecureBuffer password);

    Failure begin(LogBase& log, SaslTurn& turn) override;
    Failure respond(LogBase& log, std::string_view challenge, SaslTurn& turn) override;

private:
    std::string user_;
    SecureBuffer password_;
};

}  // namespace tv
