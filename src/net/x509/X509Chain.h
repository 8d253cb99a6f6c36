// Builds and judges a chain from a server's certificate to a trust anchor (RFC 5280, 6).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "net/x509/X509Cert.h"

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
    TooManyChecks,
};

// One line for the log: what the rule says.
std::string_view ruleText(ChainRule rule);

// Anchors by the name they issue under. Only name and key of an anchor count, and its validity.
class AnchorSource {
public:
    virtual ~AnchorSource() = default;
    // DER of every anchor with this subject, a name in canonical form; the views live as long as
    // the source.
    virtual std::vector<Bytes> findBySubject(const std::string& subjectName) const = 0;
};

struct ChainVerdict {
    ChainRule broken = ChainRule::None;
    std::string subject;  // the certificate that broke the rule
    std::string issuer;   // who issued it
    std::string detail;   // dates, names: what a reader needs to see the fault

    bool trusted() const { return broken == ChainRule::None; }
};

// chain is what the server sent, its own certificate first, the others in any order and with any
// extras. nowSeconds: seconds since 1970-01-01 UTC. At most 64 certificates, 8 of them in a chain,
// 100 signatures checked. Where no chain holds, the verdict is the fault of the best one: of the one
// that came nearest to an anchor.
ChainVerdict verifyChain(std::span<const Bytes> chain, std::string_view host, int64_t nowSeconds,
                         const AnchorSource& anchors);

// The checks of the leaf that need no chain: readable, in its time, for servers, for this host.
// For systems that build the chain themselves.
ChainVerdict verifyLeaf(Bytes leaf, std::string_view host, int64_t nowSeconds);

// Whether issuer's key made the certificate's signature, with an algorithm that is still good.
ChainRule checkSignature(const Certificate& certificate, const PublicKey& issuerKey);

}  // namespace tv::x509
