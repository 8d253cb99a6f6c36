// The search for a path from the server's certificate to an anchor.
#include "net/x509/X509Chain.h"

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

#include "net/x509/NameConstraints.h"
#include "net/x509/X509Signature.h"

namespace tv::x509 {
namespace {

// What servers send is two to five; more of them, or a deeper search, only costs time.
constexpr size_t kMaxSent = 64;
constexpr size_t kMaxDepth = 8;

// How much a fault tells: the longer the path to it the more, and of two at the same place the one
// of a certificate that did sign, before one of a namesake, before the want of any issuer. More
// tells one of an issuer that an anchor vouches for, and most of all a path that reached its anchor
// and names what it may not.
size_t weightOf(ChainRule rule, size_t pathSize, bool isOfAnchor) {
    if (isOfAnchor) pathSize += kMaxDepth;
    if (rule == ChainRule::NameConstraint) pathSize += 2 * kMaxDepth;
    const size_t kind = rule == ChainRule::UnknownIssuer  ? 1
                        : rule == ChainRule::BadSignature ? 2
                                                          : 3;
    return pathSize * 4 + kind;
}

bool keyIdsFit(const Certificate& certificate, const Certificate& issuer) {
    return certificate.authorityKeyId.empty() || issuer.subjectKeyId.empty() ||
           sameBytes(certificate.authorityKeyId, issuer.subjectKeyId);
}

// Depth first over everything that could have issued the last certificate of the path. What is
// cheap comes first, signatures before constraints, and constraints when the path is whole.
class PathBuilder {
public:
    PathBuilder(const std::vector<Certificate>& sent, const ChainQuestion& question,
                WorkBudget& budget)
        : sent_(sent), question_(question), budget_(budget) {}

    Fault build() {
        path_.push_back(&sent_.front());
        if (extend()) return {};
        if (!budget_.isOver()) return best_;
        return {budget_.isStopped() ? ChainRule::Stopped : ChainRule::TooMuchWork, path_.front()};
    }

private:
    void note(const Fault& fault, bool isOfAnchor = false) {
        const size_t weight = weightOf(fault.rule, path_.size(), isOfAnchor);
        if (weight <= bestWeight_) return;
        bestWeight_ = weight;
        best_ = fault;
    }

    bool extend() {
        const Certificate& last = *path_.back();
        // The server may show the anchor itself, or be one.
        if (question_.anchors.holds(last)) return keepsConstraints(nullptr);
        for (const Certificate& anchor : question_.anchors.bySubject(last.issuerName)) {
            if (mayIssue(anchor, last) && keepsConstraints(&anchor)) return true;
            if (isBroken()) return false;
        }
        if (path_.size() == kMaxDepth) {
            note({ChainRule::PathTooLong, &last});
            return false;
        }
        for (const Certificate& candidate : sent_) {
            if (!bearsNameOfIssuer(candidate, last) || !mayIssue(candidate, last)) continue;
            path_.push_back(&candidate);
            if (extend()) return true;
            path_.pop_back();
            if (isBroken()) return false;
            breaker_ = kMaxDepth;
        }
        note({ChainRule::UnknownIssuer, &last});
        return false;
    }

    bool bearsNameOfIssuer(const Certificate& candidate, const Certificate& last) {
        constexpr size_t kComparedPerUnit = 64;  // bytes
        const bool mayGoOn = budget_.spend(1 + last.issuerName.size() / kComparedPerUnit);
        return mayGoOn && candidate.subjectName == last.issuerName && keyIdsFit(last, candidate) &&
               !isOnPath(candidate);
    }

    // The same name with the same key leads nowhere that it has not led to already.
    bool isOnPath(const Certificate& candidate) const {
        return std::any_of(path_.begin(), path_.end(), [&](const Certificate* other) {
            return other->subjectName == candidate.subjectName &&
                   sameBytes(other->subjectPublicKeyInfo, candidate.subjectPublicKeyInfo);
        });
    }

    // What an issuer of the last certificate must be, given the path below it. Who did not sign is
    // a namesake, and its other faults tell nothing.
    bool mayIssue(const Certificate& issuer, const Certificate& last) {
        Fault fault = judgeKey(issuer);
        if (fault.rule == ChainRule::None) fault = {signatureOf(last, issuer), &last};
        if (budget_.isOver()) return false;
        const bool didSign = fault.rule == ChainRule::None;
        if (didSign) {
            const auto below = std::count_if(path_.begin() + 1, path_.end(),
                                             [](const Certificate* c) { return !c->isSelfIssued; });
            fault = judgeAuthority(issuer, static_cast<size_t>(below), question_.nowSeconds);
            if (question_.refused.holds(issuer)) fault = {ChainRule::Disallowed, &issuer};
        }
        if (fault.rule == ChainRule::None) return true;
        note(fault, didSign && isOfAnchor(issuer));
        return false;
    }

    // An anchor, or signed by one.
    bool isOfAnchor(const Certificate& issuer) {
        constexpr size_t kComparedPerUnit = 64;  // bytes
        if (!budget_.spend(2 + issuer.issuerName.size() / kComparedPerUnit)) return false;
        if (question_.anchors.holds(issuer)) return true;
        const auto above = question_.anchors.bySubject(issuer.issuerName);
        return std::any_of(above.begin(), above.end(), [&](const Certificate& anchor) {
            return judgeKey(anchor).rule == ChainRule::None &&
                   signatureOf(issuer, anchor) == ChainRule::None;
        });
    }

    // Checked once for each key, however many certificates name it and paths lead over it.
    ChainRule signatureOf(const Certificate& certificate, const Certificate& issuer) {
        constexpr size_t kComparedPerUnit = 32;  // bytes
        const Bytes key = issuer.subjectPublicKeyInfo;
        if (!budget_.spend(1 + key.size() / kComparedPerUnit)) return ChainRule::TooMuchWork;
        const std::pair check(
            &certificate, std::string_view(reinterpret_cast<const char*>(key.data()), key.size()));
        const auto known = signatures_.find(check);
        if (known != signatures_.end()) return known->second;
        if (!budget_.spend(signatureCost(certificate, issuer.key))) return ChainRule::TooMuchWork;
        const ChainRule rule = checkSignature(certificate, issuer.key);
        signatures_.emplace(check, rule);
        return rule;
    }

    // Of everybody on the path, and of the anchor above it if that is another.
    bool keepsConstraints(const Certificate* anchor) {
        for (size_t i = 1; i <= path_.size(); ++i) {
            const Certificate* authority = i < path_.size() ? path_[i] : anchor;
            if (authority && authority->hasNameConstraints && !namesNoOther(*authority, i)) {
                breaker_ = i < path_.size() ? i : kMaxDepth;
                return false;
            }
        }
        return true;
    }

    // Somebody on the path forbids a name below him, which nobody above him can mend.
    bool isBroken() const { return breaker_ < path_.size(); }

    // Whether the first `count` certificates of the path keep to what the authority may name.
    bool namesNoOther(const Certificate& authority, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            const Certificate& below = *path_[i];
            if (i != 0 && below.isSelfIssued) continue;  // RFC 5280, 6.1.3 (b)
            if (allowsNames(authority, below)) continue;
            note({ChainRule::NameConstraint, &below, &authority});
            return false;
        }
        return true;
    }

    // Asked once for each pair, however many paths lead over both.
    bool allowsNames(const Certificate& authority, const Certificate& below) {
        constexpr uint64_t kLookUp = 2;  // units
        if (!budget_.spend(kLookUp)) return false;
        const std::pair pair(&authority, &below);
        const auto known = namings_.find(pair);
        if (known != namings_.end()) return known->second;
        const bool isLeaf = &below == path_.front();
        const bool allowed =
            mayName(authority, below, isLeaf ? question_.host : std::string_view(), budget_);
        namings_.emplace(pair, allowed);
        return allowed;
    }

    const std::vector<Certificate>& sent_;
    const ChainQuestion& question_;
    WorkBudget& budget_;
    std::vector<const Certificate*> path_;
    std::map<std::pair<const Certificate*, std::string_view>, ChainRule> signatures_;
    std::map<std::pair<const Certificate*, const Certificate*>, bool> namings_;
    size_t breaker_ = kMaxDepth;  // where on the path he stands whose constraint is broken
    Fault best_;
    size_t bestWeight_ = 0;
};

// An extra that nobody needs may be unreadable; without the server's own there is nothing.
std::vector<Certificate> readableOf(std::span<const Bytes> chain) {
    std::vector<Certificate> sent;
    for (const Bytes der : chain.first(std::min(chain.size(), kMaxSent))) {
        Certificate certificate;
        const bool readable = parseCertificate(der, certificate);
        if (!readable && sent.empty()) break;
        if (readable) sent.push_back(std::move(certificate));
    }
    return sent;
}

ChainVerdict finalVerdict(const Fault& fault, std::string_view host) {
    ChainVerdict verdict = verdictOf(fault, host);
    verdict.isFinal = true;
    return verdict;
}

}  // namespace

ChainVerdict verifyChain(std::span<const Bytes> chain, const ChainQuestion& question,
                         WorkBudget& budget) {
    const std::vector<Certificate> sent = readableOf(chain);
    if (sent.empty()) return finalVerdict({ChainRule::Unreadable}, question.host);
    const Certificate& leaf = sent.front();
    Fault fault = judgeLeaf(leaf, question.host, question.nowSeconds);
    if (question.refused.holds(leaf)) fault = {ChainRule::Disallowed, &leaf};
    if (fault.rule != ChainRule::None) return finalVerdict(fault, question.host);
    fault = PathBuilder(sent, question, budget).build();
    if (budget.isOver()) return finalVerdict(fault, question.host);
    ChainVerdict verdict = verdictOf(fault, question.host);
    if (fault.rule == ChainRule::UnknownIssuer && sent.size() < chain.size()) {
        verdict.detail = std::to_string(chain.size() - sent.size()) + " of the " +
                         std::to_string(chain.size()) + " certificates sent cannot be read";
    }
    return verdict;
}

}  // namespace tv::x509
