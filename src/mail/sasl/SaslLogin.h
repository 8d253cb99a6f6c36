// LOGIN: user name and password, each in a line of its own.
#pragma once

#include <string>

#include "mail/sasl/Sasl.h"

namespace tv {

class SaslLogin final : public SaslMechanism {
public:
    SaslLogin(std::string user, SecureBuffer password, std::string smtpHost);

    Failure begin(LogBase& log, SaslTurn& turn) override;
    Failure respond(LogBase& log, std::string_view challenge, SaslTurn& turn) override;
    void explainRefusal(LogBase& log, std::string_view reply) override;

private:
    enum class Step : uint8_t { Command, User, Password };

    std::string user_;
    SecureBuffer password_;
    std::string smtpHost_;
    Step step_ = Step::Command;
};

}  // namespace tv
