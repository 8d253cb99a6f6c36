// The extensions of a certificate that decide whether it may be trusted (RFC 5280, 4.2.1).
#pragma once

#include "net/x509/X509Cert.h"

namespace tv::x509 {

// Reads the content of the [3] field into out. False where it or a known extension is malformed or
// an extension stands twice.
bool parseExtensions(Bytes field, Certificate& out);

}  // namespace tv::x509
