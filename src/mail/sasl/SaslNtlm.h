// NTLM with a user name and password, in messages of our own making.
#pragma once

#include "base/XString.h"
#include "mail/sasl/ClsNtlm.h"
#include "mail/sasl/Sasl.h"

namespace tv {

class SaslNtlm final : public SaslMechanism {
public:
    SaslNtlm(const XString& user, const XString& password, const XString& domain);

    SaslResult begin(LogBase& log, SaslTurn& turn) override;
    SaslResult respond(LogBase& log, std::string_view challenge, SaslTurn& turn) override;
    void explainRefusal(LogBase& log, std::string_view reply) override;

private:
    enum class Step : uint8_t { Command, Type1, Type3 };

    SaslResult sendType1(LogBase& log, SaslTurn& turn);
    SaslResult sendType3(LogBase& log, std::string_view challenge, SaslTurn& turn);

    XString user_;
    XString password_;
    XString domain_;
    ClsNtlm ntlm_;
    Step step_ = Step::Command;
};

}  // namespace tv
