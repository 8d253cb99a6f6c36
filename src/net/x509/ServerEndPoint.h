// What ties a login to the certificate of a TLS server: "tls-server-end-point" (RFC 5929 section
// 4).
#pragma once

#include <cstdint>
#include <vector>

#include "net/x509/DerReader.h"

namespace tv::x509 {

// The name of this kind of binding, a colon (RFC 5056 section 2.1) and the hash of the certificate.
std::vector<uint8_t> serverEndPoint(Bytes certificate);

}  // namespace tv::x509
