// The alert that tells the peer why a TLS connection ends (RFC 8446 section 6.2).
#pragma once

#include "base/Cause.h"
#include "net/tls/TlsTypes.h"

namespace tv::tls {

// TlsPeerAlert sends none.
Alert alertOf(Cause cause);

}  // namespace tv::tls
