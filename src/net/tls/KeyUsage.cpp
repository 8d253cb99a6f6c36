// One rule for the first handshake and for renegotiations, and its warning.
#include "net/tls/KeyUsage.h"

namespace tv::tls {

// The key signs, or it decrypts a premaster secret (RFC 5246, 7.4.2; RFC 8446, 4.4.2.2).
std::string lackingKeyUsage(const x509::Certificate& leaf, const CipherSuite& suite) {
    const bool signs = suite.keyExchange != KeyExchangeKind::Rsa;
    const uint16_t needed = signs ? x509::kDigitalSignature : x509::kKeyEncipherment;
    if (!leaf.keyUsage || (*leaf.keyUsage & needed) != 0) return {};
    return std::string("its key usage lacks ") + (signs ? "digitalSignature" : "keyEncipherment") +
           ", which " + std::string(suite.name) + " needs";
}

void warnOfKeyUsage(LogBase& log, const std::string& lacking) {
    log.logInfo("Warning: the server's certificate does not fit the key exchange: " + lacking +
                ".");
}

}  // namespace tv::tls
