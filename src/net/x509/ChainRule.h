// What may be wrong with a chain of certificates.
#pragma once

#include <cstdint>
#include <string_view>

namespace tv::x509 {

enum class ChainRule : uint8_t {
    None,
    Unreadable,
    NotYetValid,
    Expired,
    HostMismatch,
    NotForServers,
    UnknownCritical,
    WeakSignature,
    WeakKey,
    NotAnAuthority,
    MayNotSign,
    PathTooLong,
    NameConstraint,
    BadConstraints,
    BadSignature,
    UnknownIssuer,
    Disallowed,
    OtherKey,
    TooMuchWork,
    Stopped,
};

// One line for the log: what the rule says.
std::string_view ruleText(ChainRule rule);

}  // namespace tv::x509
