// The texts of the rules.
#include "net/x509/ChainRule.h"

namespace tv::x509 {

std::string_view ruleText(ChainRule rule) {
    switch (rule) {
        case ChainRule::None:
            return "The certificate is trusted.";
        case ChainRule::Unreadable:
            return "The certificate is malformed.";
        case ChainRule::NotYetValid:
            return "The certificate is not valid yet.";
        case ChainRule::Expired:
            return "The certificate has expired.";
        case ChainRule::HostMismatch:
            return "The certificate was issued for another host.";
        case ChainRule::NotForServers:
            return "The certificate may not be used for servers.";
        case ChainRule::UnknownCritical:
            return "The certificate has a critical extension that is not understood.";
        case ChainRule::WeakSignature:
            return "The certificate is signed with an algorithm that is no longer safe.";
        case ChainRule::WeakKey:
            return "The certificate's key is too short or of an unknown kind.";
        case ChainRule::NotAnAuthority:
            return "The issuing certificate is not one of an authority.";
        case ChainRule::MayNotSign:
            return "The issuing certificate may not sign certificates.";
        case ChainRule::PathTooLong:
            return "The chain of certificates is longer than allowed.";
        case ChainRule::NameConstraint:
            return "The certificate's name lies outside what its issuer may name.";
        case ChainRule::BadConstraints:
            return "The certificate's constraints on names are empty, malformed or out of place.";
        case ChainRule::BadSignature:
            return "The certificate's signature is wrong.";
        case ChainRule::UnknownIssuer:
            return "The issuer of the certificate is not known or not trusted.";
        case ChainRule::Disallowed:
            return "The certificate is one that this system distrusts (store \"Disallowed\").";
        case ChainRule::OtherKey:
            return "The server's public key is none of those that are pinned.";
        case ChainRule::TooMuchWork:
            return "The certificates take more work to check than is spent on a server that is not "
                   "trusted yet.";
        case ChainRule::Stopped:
            return "The check of the certificates was stopped before its end.";
    }
    return {};
}

}  // namespace tv::x509
