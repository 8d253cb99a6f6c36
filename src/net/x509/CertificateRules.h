// The rules that a certificate keeps or breaks by itself, whatever path it stands on.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "net/x509/ChainRule.h"
#include "net/x509/X509Cert.h"

namespace tv::x509 {

struct ChainVerdict {
    ChainRule broken = ChainRule::None;
    std::string subject;   // the certificate that broke the rule
    std::string issuer;    // who issued it
    std::string detail;    // dates, names: what a reader needs to see the fault
    bool isFinal = false;  // whatever other path there may be

    bool trusted() const { return broken == ChainRule::None; }
};

// A rule and who broke it; light, because a search meets many.
struct Fault {
    ChainRule rule = ChainRule::None;
    const Certificate* certificate = nullptr;
    const Certificate* authority = nullptr;  // whose constraint it was
};

// What is wrong with the server's own certificate, or nothing.
Fault judgeLeaf(const Certificate& leaf, std::string_view host, int64_t nowSeconds);

// What keeps a certificate's key from being used at all.
Fault judgeKey(const Certificate& certificate);

// What keeps a certificate from being an issuer's with this many issuers below it that count
// against the length of a path (RFC 5280, 6.1.4).
Fault judgeAuthority(const Certificate& issuer, size_t issuersBelow, int64_t nowSeconds);

// In words, for a log.
ChainVerdict verdictOf(const Fault& fault, std::string_view host);

}  // namespace tv::x509
