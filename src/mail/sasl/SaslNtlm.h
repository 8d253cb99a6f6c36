// NTLM with a user name and password, in messages of our own making.
#pragma once

#include "base/XString.h"
#include "mail/sasl/ClsNtlm.h"
#include "mail/sasl/NtlmVersion.h"
#include "mail/sasl/Sasl.h"

namespace tv {

class SaslNtlm final : public SaslMechanism {
public:
    SaslNtlm(const XString& user, const XString& password, const XString& domain,
             int32_t version = defaultNtlmVersion());
    // As ClsNtlm::put_ChannelBinding.
    void bindTo(std::span<const uint8_t> channelBinding);

    Failure begin(LogBase& log, SaslTurn& turn) override;
    Failure respond(LogBase& log, std::string_view challenge, SaslTurn& turn) override;
    void explainRefusal(LogBase& log, std::string_view reply) override;

private:
    enum class Step : uint8_t { Command, Type1, Type3 };

    Failure sendType1(LogBase& log, SaslTurn& turn);
    Failure sendType3(LogBase& log, std::string_view challenge, SaslTurn& turn);

    XString user_;
    XString password_;
    XString domain_;
    const int32_t version_;
    ClsNtlm ntlm_;
    Step step_ = Step::Command;
};

}  // namespace tv
