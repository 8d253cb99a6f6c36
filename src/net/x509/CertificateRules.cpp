// Times, keys, usages and names of single certificates, and the words for what is wrong.
#include "net/x509/CertificateRules.h"

#include "net/x509/HostMatch.h"
#include "net/x509/X509Name.h"
#include "net/x509/X509Time.h"

namespace tv::x509 {
namespace {

// Shorter keys have been factored (RSA-250 has 829 bits).
constexpr size_t kMinRsaBits = 1024;

bool holds(const Fault& fault) {
    return fault.rule == ChainRule::None;
}

Fault judgeTime(const Certificate& certificate, int64_t now) {
    if (now < certificate.notBefore) return {ChainRule::NotYetValid, &certificate};
    if (now > certificate.notAfter) return {ChainRule::Expired, &certificate};
    return {};
}

bool isForServers(const Certificate& certificate) {
    return !certificate.limitsExtendedUsage || certificate.allowsServerAuth;
}

// The names of one kind, as far as they go into a line.
std::string namesOf(const Certificate& certificate, GeneralName::Kind kind) {
    constexpr size_t kMostText = 400;  // certificates may hold hundreds of names
    std::string names;
    for (const GeneralName& name : certificate.altNames) {
        if (name.kind != kind) continue;
        if (!names.empty()) names += ", ";
        if (kind == GeneralName::Kind::Ip) {
            names += addressText(name.value);
        } else {
            names.append(reinterpret_cast<const char*>(name.value.data()), name.value.size());
        }
        if (names.size() > kMostText) return names.substr(0, kMostText) + "...";
    }
    return names;
}

// The host beside what it was held against: names of its own kind.
std::string mismatchText(const Certificate& certificate, std::string_view host) {
    const bool isAddress = !addressBytes(host).empty();
    std::string names =
        namesOf(certificate, isAddress ? GeneralName::Kind::Ip : GeneralName::Kind::Dns);
    const bool hasCommonName = !commonName(certificate.subject).empty();
    if (!certificate.hasAltNames && !isAddress && hasCommonName) {
        names = nameText(certificate.subject);
    }
    if (!names.empty()) return std::string(host) + " is none of: " + names;
    return std::string(host) + ": the certificate names no " + (isAddress ? "IP address" : "host");
}

std::string detailOf(const Fault& fault, std::string_view host) {
    const Certificate& certificate = *fault.certificate;
    switch (fault.rule) {
        case ChainRule::NotYetValid:
        case ChainRule::Expired:
            return timeText(certificate.notBefore) + " to " + timeText(certificate.notAfter);
        case ChainRule::WeakKey:
            return certificate.key.kind == KeyKind::Unknown
                       ? "a kind of key, or parameters of it, that are not known"
                       : std::to_string(certificate.key.modulus.size() * 8) + " bits";
        case ChainRule::HostMismatch:
            return mismatchText(certificate, host);
        case ChainRule::NameConstraint:
            return nameText(fault.authority->subject);
        default:
            return {};
    }
}

}  // namespace

Fault judgeKey(const Certificate& certificate) {
    const PublicKey& key = certificate.key;
    const bool isStrong = key.kind == KeyKind::Ec ||
                          (key.kind != KeyKind::Unknown && key.modulus.size() * 8 >= kMinRsaBits);
    return isStrong ? Fault() : Fault{ChainRule::WeakKey, &certificate};
}

Fault judgeLeaf(const Certificate& leaf, std::string_view host, int64_t nowSeconds) {
    Fault fault = judgeTime(leaf, nowSeconds);
    if (holds(fault)) fault = judgeKey(leaf);
    if (!holds(fault)) return fault;
    if (leaf.hasUnknownCritical) return {ChainRule::UnknownCritical, &leaf};
    // RFC 5280, 4.2.1.10: for authorities alone.
    if (leaf.hasNameConstraints) return {ChainRule::BadConstraints, &leaf};
    const bool maySignOrDecrypt =
        !leaf.keyUsage || (*leaf.keyUsage & (kDigitalSignature | kKeyEncipherment)) != 0;
    if (!isForServers(leaf) || !maySignOrDecrypt) return {ChainRule::NotForServers, &leaf};
    if (!matchesHost(leaf, host)) return {ChainRule::HostMismatch, &leaf};
    return {};
}

Fault judgeAuthority(const Certificate& issuer, size_t issuersBelow, int64_t nowSeconds) {
    const Fault time = judgeTime(issuer, nowSeconds);
    if (!holds(time)) return time;
    if (issuer.hasUnknownCritical) return {ChainRule::UnknownCritical, &issuer};
    if (!issuer.isCa) return {ChainRule::NotAnAuthority, &issuer};
    if (issuer.keyUsage && (*issuer.keyUsage & kKeyCertSign) == 0) {
        return {ChainRule::MayNotSign, &issuer};
    }
    if (!isForServers(issuer)) return {ChainRule::NotForServers, &issuer};
    if (issuer.pathLength && issuersBelow > *issuer.pathLength) {
        return {ChainRule::PathTooLong, &issuer};
    }
    if (issuer.hasBadConstraints) return {ChainRule::BadConstraints, &issuer};
    return {};
}

ChainVerdict verdictOf(const Fault& fault, std::string_view host) {
    ChainVerdict verdict;
    verdict.broken = fault.rule;
    if (!fault.certificate) return verdict;
    verdict.subject = nameText(fault.certificate->subject);
    verdict.issuer = nameText(fault.certificate->issuer);
    verdict.detail = detailOf(fault, host);
    return verdict;
}

}  // namespace tv::x509
