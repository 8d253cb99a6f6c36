// Whether the key in a server's certificate may do what the cipher suite makes it do.
#pragma once

#include <string>

#include "log/LogBase.h"
#include "net/tls/CipherSuites.h"
#include "net/x509/X509Cert.h"

namespace tv::tls {

// What the certificate's key usage lacks for the suite; empty where it fits.
std::string lackingKeyUsage(const x509::Certificate& leaf, const CipherSuite& suite);

// For connections that do not verify.
void warnOfKeyUsage(LogBase& log, const std::string& lacking);

}  // namespace tv::tls
