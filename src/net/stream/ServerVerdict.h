// What is to be held of a server by the certificate it showed: the chain, the use of its key, pins.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "net/stream/TrustStore.h"
#include "net/tls/CipherSuites.h"
#include "net/tls/Handshake.h"
#include "net/x509/X509Cert.h"

namespace tv {

// What the server has to prove: a chain to anchors, where they are not null, and a pinned key,
// where there are any.
struct ServerTrust {
    const TrustAnchors* anchors;
    std::span<const std::string> pins;
};

// The SHA-256 of the public key as the certificate has it, tag and length included (as in RFC 7469,
// 2.4).
std::string keyPin(const x509::Certificate& leaf);

// leaf: the first certificate of server's chain, which is not empty, read; null where it is
// malformed.
x509::ChainVerdict judgeServer(LogBase& log, const tls::Negotiated& server,
                               const x509::Certificate* leaf, std::string_view host,
                               const ServerTrust& trust, int64_t nowSeconds,
                               x509::WorkBudget& budget);

}  // namespace tv
