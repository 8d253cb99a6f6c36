// The search for a path and the rules that each certificate on it must keep.
#include "net/x509/X509Chain.h"

#include <algorithm>

#include "base/crypto/Ecdsa.h"
#include "base/crypto/Rsa.h"
#include "net/x509/HostMatch.h"
#include "net/x509/NameConstraints.h"
#include "net/x509/X509Name.h"
#include "net/x509/X509Time.h"

namespace tv::x509 {
namespace {

constexpr size_t kMaxSent = 64;
constexpr size_t kMaxDepth = 8;
constexpr int kMaxSignatureChecks = 100;
constexpr size_t kMinRsaBits = 1024;

ChainVerdict broken(ChainRule rule, const Certificate& certificate, std::string detail = {}) {
    return {rule, nameText(certificate.subject), nameText(certificate.issuer), std::move(detail)};
}

ChainVerdict checkTime(const Certificate& certificate, int64_t now) {
    const std::string span =
        timeText(certificate.notBefore) + " to " + timeText(certificate.notAfter);
    if (now < certificate.notBefore) return broken(ChainRule::NotYetValid, certificate, span);
    if (now > certificate.notAfter) return broken(ChainRule::Expired, certificate, span);
    return {};
}

ChainVerdict checkKey(const Certificate& certificate) {
    const PublicKey& key = certificate.key;
    if (key.kind == KeyKind::Unknown) {
        return broken(ChainRule::WeakKey, certificate, "of a kind or with parameters not known");
    }
    if (key.kind == KeyKind::Ec || key.modulus.size() * 8 >= kMinRsaBits) return {};
    return broken(ChainRule::WeakKey, certificate,
                  std::to_string(key.modulus.size() * 8) + " bits");
}

std::string namesOf(const Certificate& certificate) {
    std::string names;
    if (!certificate.hasAltNames) return nameText(certificate.subject);
    for (const GeneralName& name : certificate.altNames) {
        if (name.kind != GeneralName::Kind::Dns) continue;
        if (!names.empty()) names += ", ";
        names.append(reinterpret_cast<const char*>(name.value.data()), name.value.size());
        if (names.size() > 400) return names + ", ...";
    }
    return names;
}

ChainVerdict judgeLeaf(const Certificate& leaf, std::string_view host, int64_t now) {
    ChainVerdict verdict = checkTime(leaf, now);
    if (verdict.trusted()) verdict = checkKey(leaf);
    if (!verdict.trusted()) return verdict;
    if (leaf.hasUnknownCritical) return broken(ChainRule::UnknownCritical, leaf);
    if (leaf.hasNameConstraints) return broken(ChainRule::BadConstraints, leaf);
    if (leaf.limitsExtendedUsage && !leaf.allowsServerAuth) {
        return broken(ChainRule::NotForServers, leaf);
    }
    if (leaf.keyUsage && (*leaf.keyUsage & (kDigitalSignature | kKeyEncipherment)) == 0) {
        return broken(ChainRule::NotForServers, leaf);
    }
    if (!matchesHost(leaf, host)) {
        return broken(ChainRule::HostMismatch, leaf,
                      std::string(host) + " is none of: " + namesOf(leaf));
    }
    return {};
}

bool keyIdsFit(const Certificate& certificate, const Certificate& issuer) {
    return certificate.authorityKeyId.empty() || issuer.subjectKeyId.empty() ||
           sameBytes(certificate.authorityKeyId, issuer.subjectKeyId);
}

// How much a fault tells: the longer the path to it the more, and of two at the same place the one
// of a certificate that did sign, before one of a namesake, before the want of any issuer.
size_t weightOf(ChainRule rule, size_t pathSize) {
    const size_t kind = rule == ChainRule::UnknownIssuer  ? 1
                        : rule == ChainRule::BadSignature ? 2
                                                          : 3;
    return pathSize * 4 + kind;
}

// Depth first over everything that could have issued the last certificate of the path. Where none
// holds, the fault of the best path is told.
class PathBuilder {
public:
    PathBuilder(std::vector<Certificate> sent, std::string_view host, int64_t now,
                const AnchorSource& anchors)
        : sent_(std::move(sent)), host_(host), now_(now), anchors_(anchors) {}

    ChainVerdict build() {
        path_.push_back(&sent_.front());
        if (extend()) return {};
        return best_;
    }

private:
    void note(ChainVerdict verdict) {
        const size_t weight = weightOf(verdict.broken, path_.size());
        if (weight <= bestWeight_) return;
        bestWeight_ = weight;
        best_ = std::move(verdict);
    }

    bool extend() {
        const Certificate& last = *path_.back();
        if (endsAtAnchor(last)) return true;
        if (path_.size() == kMaxDepth) {
            note(broken(ChainRule::PathTooLong, last));
            return false;
        }
        for (const Certificate& candidate : sent_) {
            if (candidate.subjectName != last.issuerName || isOnPath(candidate)) continue;
            if (!keyIdsFit(last, candidate) || !mayIssue(candidate, last)) continue;
            path_.push_back(&candidate);
            if (extend()) return true;
            path_.pop_back();
        }
        note(broken(ChainRule::UnknownIssuer, last));
        return false;
    }

    // The same name with the same key leads nowhere that it has not led to already.
    bool isOnPath(const Certificate& candidate) const {
        return std::any_of(path_.begin(), path_.end(), [&](const Certificate* other) {
            return other->subjectName == candidate.subjectName &&
                   sameBytes(other->subjectPublicKeyInfo, candidate.subjectPublicKeyInfo);
        });
    }

    bool endsAtAnchor(const Certificate& last) {
        // The server may show the anchor itself, or be one.
        for (const Bytes der : anchors_.findBySubject(last.subjectName)) {
            if (sameBytes(der, last.whole)) return true;
        }
        for (const Bytes der : anchors_.findBySubject(last.issuerName)) {
            Certificate anchor;
            if (parseCertificate(der, anchor) && mayIssue(anchor, last)) return true;
        }
        return false;
    }

    // What an issuer of the last certificate must be, given the path below it. Who did not sign is
    // a namesake, and its other faults tell nothing.
    bool mayIssue(const Certificate& issuer, const Certificate& last) {
        ChainVerdict verdict = checkKey(issuer);
        if (verdict.trusted() && !isSignedBy(last, issuer.key)) return false;
        if (verdict.trusted()) verdict = checkTime(issuer, now_);
        if (verdict.trusted()) verdict = judgeAuthority(issuer);
        if (verdict.trusted()) return true;
        note(std::move(verdict));
        return false;
    }

    ChainVerdict judgeAuthority(const Certificate& issuer) const {
        if (issuer.hasUnknownCritical) return broken(ChainRule::UnknownCritical, issuer);
        if (!issuer.isCa) return broken(ChainRule::NotAnAuthority, issuer);
        if (issuer.keyUsage && (*issuer.keyUsage & kKeyCertSign) == 0) {
            return broken(ChainRule::MayNotSign, issuer);
        }
        if (issuer.limitsExtendedUsage && !issuer.allowsServerAuth) {
            return broken(ChainRule::NotForServers, issuer);
        }
        // Self-issued certificates do not count against the length (RFC 5280, 6.1.4).
        const auto below = std::count_if(path_.begin() + 1, path_.end(),
                                         [](const Certificate* c) { return !c->isSelfIssued(); });
        if (issuer.pathLength && static_cast<size_t>(below) > *issuer.pathLength) {
            return broken(ChainRule::PathTooLong, issuer);
        }
        if (issuer.hasBadConstraints) return broken(ChainRule::BadConstraints, issuer);
        if (!issuer.hasNameConstraints) return {};
        for (const Certificate* certificate : path_) {
            const bool isLeaf = certificate == path_.front();
            const bool exempt = !isLeaf && certificate->isSelfIssued();
            if (!exempt && !mayName(issuer, *certificate, isLeaf ? host_ : std::string_view())) {
                return broken(ChainRule::NameConstraint, *certificate, nameText(issuer.subject));
            }
        }
        return {};
    }

    bool isSignedBy(const Certificate& certificate, const PublicKey& key) {
        if (++checks_ > kMaxSignatureChecks) {
            note(broken(ChainRule::TooManyChecks, certificate));
            return false;
        }
        const ChainRule rule = checkSignature(certificate, key);
        if (rule == ChainRule::None) return true;
        note(broken(rule, certificate));
        return false;
    }

    std::vector<Certificate> sent_;
    std::string_view host_;
    int64_t now_;
    const AnchorSource& anchors_;
    std::vector<const Certificate*> path_;
    ChainVerdict best_;
    size_t bestWeight_ = 0;
    int checks_ = 0;
};

// Whether an RSA key makes signatures of this algorithm. One for RSASSA-PSS alone may name the hash
// and the least salt (RFC 4055, 3.3).
bool mayUse(const PublicKey& key, const SignatureAlgorithm& algorithm) {
    if (key.kind == KeyKind::Rsa) return true;
    if (key.kind != KeyKind::RsaPss || algorithm.kind != SignatureKind::RsaPss) return false;
    return !key.bound ||
           (key.bound->hash == algorithm.hash && algorithm.saltSize >= key.bound->saltSize);
}

}  // namespace

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
        case ChainRule::TooManyChecks:
            return "The chain of certificates takes too many signature checks.";
    }
    return {};
}

ChainRule checkSignature(const Certificate& certificate, const PublicKey& issuerKey) {
    const SignatureAlgorithm& algorithm = certificate.signatureAlgorithm;
    if (algorithm.kind == SignatureKind::Unknown) return ChainRule::WeakSignature;
    if (algorithm.hash == crypto::HashId::kMd5 || algorithm.hash == crypto::HashId::kSha1) {
        return ChainRule::WeakSignature;
    }
    const crypto::DigestBytes digest = crypto::Hash::of(algorithm.hash, certificate.tbs);
    bool good = false;
    if (algorithm.kind == SignatureKind::Ecdsa) {
        good = issuerKey.kind == KeyKind::Ec &&
               crypto::ecdsaVerify(issuerKey.curve, issuerKey.point, digest, certificate.signature);
    } else {
        crypto::RsaPublicKey rsa;
        const bool pss = algorithm.kind == SignatureKind::RsaPss;
        good =
            mayUse(issuerKey, algorithm) && rsa.set(issuerKey.modulus, issuerKey.exponent) &&
            (pss ? rsa.verifyPss(algorithm.hash, digest, algorithm.saltSize, certificate.signature)
                 : rsa.verifyPkcs1(algorithm.hash, digest, certificate.signature));
    }
    return good ? ChainRule::None : ChainRule::BadSignature;
}

ChainVerdict verifyLeaf(Bytes leaf, std::string_view host, int64_t nowSeconds) {
    Certificate certificate;
    if (!parseCertificate(leaf, certificate)) return {ChainRule::Unreadable, {}, {}, {}};
    return judgeLeaf(certificate, host, nowSeconds);
}

ChainVerdict verifyChain(std::span<const Bytes> chain, std::string_view host, int64_t nowSeconds,
                         const AnchorSource& anchors) {
    std::vector<Certificate> sent;
    for (const Bytes der : chain.first(std::min(chain.size(), kMaxSent))) {
        Certificate certificate;
        const bool readable = parseCertificate(der, certificate);
        // An extra that nobody needs may be unreadable; the server's own may not.
        if (!readable && sent.empty()) return {ChainRule::Unreadable, {}, {}, {}};
        if (readable) sent.push_back(std::move(certificate));
    }
    if (sent.empty()) return {ChainRule::Unreadable, {}, {}, {}};
    const ChainVerdict leaf = judgeLeaf(sent.front(), host, nowSeconds);
    if (!leaf.trusted()) return leaf;
    return PathBuilder(std::move(sent), host, nowSeconds, anchors).build();
}

}  // namespace tv::x509
