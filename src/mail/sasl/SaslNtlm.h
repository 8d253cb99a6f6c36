// NTLM with a user name and password, in messages of our own making.
#pragma once

#include "base/XString.h"
#include "mail/sasl/ClsNtlm.h"
#include "mail/sasl/Sasl.h"

namespace tv {

class SaslNtlm final : public SaslMechanism {
public:
    SaslNtlm(const XString& user, const XString& password, const XString& domain);

    SaslResult begin(SaslTurn& turn, LogBase& log) override;
    SaslResult respond(std::string_view challenge, SaslTurn& turn, LogBase& log) override;
    void explainRefusal(std::string_view reply, LogBase& log) override;

private:
    enum class Step : uint8_t { Command, Type1, Type3 };

    SaslResult sendType1(SaslTurn& turn, LogBase& log);
    SaslResult sendType3(std::string_view challenge, SaslTurn& turn, LogBase& log);

    XString user_;
    XString password_;
    XString domain_;
    ClsNtlm ntlm_;
    Step step_ = Step::Command;
};

}  // namespace tv
