// The long-lived keys of the scripted server, which stand apart from it: OpenSSL's where it judges
// (peer/OpenSslKeys.cpp), or ours where a program is to need nobody else.
#pragma once

#include <string>

#include "tests/unit/net/tls/TestEnvironment.h"

namespace tv::tls::test {

// In DER, of a key by name ("P-256").
Bytes serverCertificate(const std::string& key);

// A signature of a TLS scheme; 0: the way of TLS 1.0 and 1.1.
Bytes signatureOf(const std::string& key, uint16_t scheme, View data);

}  // namespace tv::tls::test
