// The name constraints of an authority (RFC 5280, 4.2.1.10) and the names below it.
#pragma once

#include <string_view>
#include <vector>

#include "net/x509/WorkBudget.h"
#include "net/x509/X509Cert.h"

namespace tv::x509 {

// Unjudged: a kind of names that has no rule here, or a base or name that cannot be read.
enum class Coverage : uint8_t { Outside, Inside, Unjudged };

// Whether a name falls under the base of a constraint. Names of different kinds never do.
Coverage coverageOf(const GeneralName& name, const GeneralName& base);

// Whether every name that the certificate speaks for is one that authority may name. host is the
// name that was matched, which stands behind a wildcard perhaps; it is empty for a certificate that
// is not the server's own, and then names that cannot be judged do no harm. False, too, where the
// budget is over.
bool mayName(const Certificate& authority, const Certificate& certificate, std::string_view host,
             WorkBudget& budget);

}  // namespace tv::x509
