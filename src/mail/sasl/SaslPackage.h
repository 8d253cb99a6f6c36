// NTLM or MSN through a security package of the system, as the user who is logged on or as another.
#pragma once

#include <memory>

#include "base/XString.h"
#include "mail/sasl/Sasl.h"
#include "platform/SysSecurityPackage.h"

namespace tv {

class SaslPackage final : public SaslMechanism {
public:
    enum class Package : uint8_t { Ntlm, Msn };

    // A user "default" or none is the one who is logged on.
    SaslPackage(Package package, const XString& user, const XString& password,
                const XString& domain, const XString& smtpHost);

    Failure begin(LogBase& log, SaslTurn& turn) override;
    Failure respond(LogBase& log, std::string_view challenge, SaslTurn& turn) override;

private:
    bool openPackage(LogBase& log);
    Failure nextToken(LogBase& log, std::span<const uint8_t> challenge, SaslTurn& turn);

    Package package_;
    XString user_;
    XString password_;
    XString domain_;
    XString smtpHost_;
    std::unique_ptr<plat::SecurityExchange> exchange_;
    bool tokenSent_ = false;
};

}  // namespace tv
