// Builds and judges a chain from a server's certificate to a trust anchor (RFC 5280, 6).
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "net/x509/CertificateRules.h"
#include "net/x509/CertificateSet.h"
#include "net/x509/WorkBudget.h"

namespace tv::x509 {

struct ChainQuestion {
    std::string_view host;
    int64_t nowSeconds = 0;  // since 1970-01-01 UTC
    // Of an anchor name, key, validity and what it says of those below it count.
    const CertificateSet& anchors;
    const CertificateSet& refused;  // none of them may stand on the path
};

// chain is what the server sent, its own certificate first, the others in any order and with any
// extras. At most 64 certificates, 8 of them in a chain. Where no chain holds, the verdict is the
// fault of the best one: of the one that came nearest to an anchor.
ChainVerdict verifyChain(std::span<const Bytes> chain, const ChainQuestion& question,
                         WorkBudget& budget);

}  // namespace tv::x509
